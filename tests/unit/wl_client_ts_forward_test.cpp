// What every event of a client becomes on the bus, byte by byte.
#include "wl_client_ts_internal.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "fault.h"
#include "log_capture.h"
#include "wl_client_ts_packet.h"
#include "wl_client_ts_sent.h"
#include "wl_info_codes.h"

namespace {

using lines = std::vector<std::string>;

constexpr int FAILED = -1;
constexpr int DONE = 0;
constexpr uint16_t SUB_VLAN = 39;
constexpr uint16_t SUB_ACCESS_REQUEST = 801;

const byte_string MAC = {0x02, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
const byte_string BSSID = {0x00, 0x11, 0x74, 0xA1, 0xB2, 0xC3};
const std::string OVERWRITE = "send_client_ts_info: CRASH_DEBUG[423]: Memory overwrite detected.";
const std::string INVALID_VLAN = "send_client_ts_info: CLIENT TS INFO: Invalid vlan -1 received, not sending it!";

class Forward : public testing::Test {
protected:
    Forward() {
        sent.clear();
        send_results.clear();
        on_send = [] {};
        keep(mac_, MAC);
        keep(bssid_, BSSID);
        evt.cl_mac = mac_.get();
        evt.bssid = bssid_.get();
    }

    ~Forward() override {
        clear_faults();
    }

    void event(uint32_t info, uint16_t sub) {
        evt.info_code = info;
        evt.subinfo_code = sub;
        evt.subinfo_value = nullptr;
        evt.subinfo_value_len = 0;
    }

    void event(uint32_t info, uint16_t sub, const byte_string &value) {
        event(info, sub);
        keep(value_, value);
        evt.subinfo_value = value_.get();
        evt.subinfo_value_len = static_cast<uint16_t>(value.size());
    }

    void ssid(const std::string &text) {
        keep(ssid_, text_bytes(text));
        evt.ssid = reinterpret_cast<char *>(ssid_.get());
        evt.ssid_len = static_cast<int16_t>(text.size());
    }

    int forward() {
        return send_client_ts_info(VRE_NODE_IP, &evt);
    }

    /// Forwards and returns the only event that was posted.
    byte_string forwarded() {
        sent.clear();
        EXPECT_EQ(forward(), DONE);
        EXPECT_EQ(sent.size(), 1U);
        EXPECT_EQ(sent.at(0).event, 42);
        return sent.at(0).payload;
    }

    byte_string forwarded(uint32_t info, uint16_t sub, const byte_string &value) {
        event(info, sub, value);
        return forwarded();
    }

    static expected_packet start(uint32_t info) {
        return expected_packet()
            .bytes(MAC)
            .number(5, 2)
            .number(0, 4)
            .bytes(text_bytes("02:1A:2B:3C:4D:5E"))
            .number(0, 1)
            .number(info, 4)
            .bytes(text_bytes("00:11:74:A1:B2:C3"))
            .number(0, 1);
    }

    /// All that an event without SSID and value has.
    static expected_packet bare(uint32_t info, uint16_t sub) {
        return start(info).u32(1, sub);
    }

    wl_evt_info_t evt{};

private:
    /// In a block of just that size, so that a sanitizer sees every step beyond.
    static void keep(std::unique_ptr<uint8_t[]> &block, const byte_string &bytes) {
        block.reset(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), block.get());
    }

    std::unique_ptr<uint8_t[]> mac_, bssid_, value_, ssid_;
};

// --- the fixed start ---

TEST_F(Forward, ARecordBeginsWith52FixedBytes) {
    event(0x01020304, 0);
    const byte_string record = forwarded();
    EXPECT_EQ(start(0x01020304).bytes().size(), 52U);
    EXPECT_EQ(byte_string(record.begin(), record.begin() + 52), start(0x01020304).bytes());
}

TEST_F(Forward, AnAbsentBssidIs18Zeros) {
    evt.bssid = nullptr;
    event(INFO_NODE_LEAVE, 0);
    const byte_string record = forwarded();
    ASSERT_EQ(record.size(), 60U);
    EXPECT_EQ(byte_string(record.begin() + 34, record.begin() + 52), byte_string(18));
}

TEST_F(Forward, TheSubinfoCodeIsAlwaysTold) {
    for (const uint16_t sub : {0, 1, 803, 65535}) {
        event(INFO_AUTHORIZED, sub);
        EXPECT_EQ(forwarded(), bare(16, sub).bytes());
    }
}

// --- SSID ---

TEST_F(Forward, AnSsidIsToldWithoutItsNul) {
    event(INFO_AUTHORIZED, 0);
    ssid("Office");
    EXPECT_EQ(forwarded(), bare(16, 0).text(3, "Office").bytes());
    ssid(std::string(32, 'x'));
    EXPECT_EQ(forwarded(), bare(16, 0).text(3, std::string(32, 'x')).bytes());
}

TEST_F(Forward, AnEmptySsidIsNotTold) {
    event(INFO_AUTHORIZED, 0);
    ssid("");
    EXPECT_EQ(forwarded(), bare(16, 0).bytes());
}

TEST_F(Forward, TheSsidPrecedesTheValue) {
    event(INFO_AUTHORIZED, 0, {1});
    ssid("Office");
    EXPECT_EQ(forwarded(), bare(16, 0).text(3, "Office").item(2, {1}).bytes());
}

// --- the value ---

TEST_F(Forward, AnAbsentValueIsNotTold) {
    for (uint32_t info = 1; info < 128; info++) {
        if (info == INFO_BANDWIDTH)
            continue;
        event(info, 801);
        EXPECT_EQ(forwarded(), bare(info, 801).bytes()) << info;
    }
}

TEST_F(Forward, AValueIsToldAsItIs) {
    const byte_string value = {0, 1, 0xFF, 0x80, 0};
    for (const uint32_t info :
         {1, 2, 3, 4, 5, 6, 7, 8, 10, 11, 12, 13, 16, 17, 18, 19, 20, 21, 22, 23, 24, 28, 99, 102, 104, 500})
        EXPECT_EQ(forwarded(info, 1, value), bare(info, 1).item(2, value).bytes()) << info;
}

TEST_F(Forward, AnEmptyValueIsAnEmptyItem) {
    EXPECT_EQ(forwarded(INFO_PORTAL, 0, {}), bare(8, 0).item(2, {}).bytes());
}

TEST_F(Forward, KeysAndLoginsNeverLeave) {
    const byte_string secret = text_bytes("correct horse battery staple, thirty-two bytes and more of it....");
    for (const uint32_t info : {100, 101})
        for (const uint16_t sub : {0, 1, 38, 40, 801}) {
            const byte_string record = forwarded(info, sub, secret);
            EXPECT_EQ(record, bare(info, sub).bytes());
            EXPECT_EQ(std::search(record.begin(), record.end(), secret.begin(), secret.begin() + 4), record.end());
        }
}

TEST_F(Forward, KeysAndLoginsNeverLeaveAsAVlanEither) {
    for (const uint32_t info : {100, 101})
        EXPECT_EQ(forwarded(info, SUB_VLAN, text_bytes("correct horse")), bare(info, SUB_VLAN).bytes());
}

TEST_F(Forward, AnAddressIsToldAsText) {
    for (const uint32_t info : {INFO_IPV6_ADDRESS, INFO_DHCP}) {
        EXPECT_EQ(forwarded(info, 5, {192, 168, 0, 255}), bare(info, 5).text(2, "192.168.0.255").bytes());
        const byte_string local = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0xCD};
        EXPECT_EQ(forwarded(info, 5, local), bare(info, 5).text(2, "fe80::abcd").bytes());
    }
}

TEST_F(Forward, TheLongestAddressIsToldWhole) {
    const byte_string address = {0x20, 0x01, 0x0D, 0xB8, 0x11, 0x11, 0x22, 0x22,
                                 0x33, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66};
    EXPECT_EQ(forwarded(INFO_IPV6_ADDRESS, 0, address),
              bare(9, 0).text(2, "2001:db8:1111:2222:3333:4444:5555:6666").bytes());
}

TEST_F(Forward, AnAddressOfAnotherLengthIsTakenForAnIpv6Address) {
    EXPECT_EQ(forwarded(INFO_DHCP, 5, {}), bare(14, 5).text(2, "::").bytes());
    EXPECT_EQ(forwarded(INFO_DHCP, 5, {0x20}), bare(14, 5).text(2, "2000::").bytes());
    EXPECT_EQ(forwarded(INFO_DHCP, 5, {10, 0, 0}), bare(14, 5).text(2, "a00::").bytes());
    EXPECT_EQ(forwarded(INFO_DHCP, 5, {10, 0, 0, 1, 0}), bare(14, 5).text(2, "a00:1::").bytes());
    EXPECT_EQ(forwarded(INFO_DHCP, 5, byte_string(15, 0x11)),
              bare(14, 5).text(2, "1111:1111:1111:1111:1111:1111:1111:1100").bytes());
    EXPECT_EQ(forwarded(INFO_DHCP, 5, byte_string(20, 0x11)),
              bare(14, 5).text(2, "1111:1111:1111:1111:1111:1111:1111:1111").bytes());
}

// --- bandwidth ---

TEST_F(Forward, ABandwidthEventWithoutAValueTellsItsRule) {
    event(INFO_BANDWIDTH, 3);
    evt.profile_id = 0x0A0B0C0D;
    evt.bw.pri = 7;
    evt.bw.up = -2;
    evt.bw.down = 0x01020304;
    EXPECT_EQ(forwarded(), bare(19, 3).item(2, {7, 0xFF, 0xFF, 0xFF, 0xFE, 1, 2, 3, 4, 10, 11, 12, 13}).bytes());
}

TEST_F(Forward, ABandwidthEventWithAValueTellsThat) {
    event(INFO_BANDWIDTH, 3, {9});
    evt.bw.pri = 7;
    EXPECT_EQ(forwarded(), bare(19, 3).item(2, {9}).bytes());
}

// --- the VLAN that was assigned ---

TEST_F(Forward, AnAssignedVlanIsToldWhateverTheEventIs) {
    for (const uint32_t info : {1, 8, 9, 14, 15, 19, 104})
        EXPECT_EQ(forwarded(info, SUB_VLAN, {0, 0, 0x0F, 0xA0}), bare(info, SUB_VLAN).u32(2, 4000).bytes()) << info;
}

TEST_F(Forward, AnAssignedVlanMayBeAnyNumberButTheInvalidOne) {
    for (const uint32_t vlan : {0U, 1U, 4096U, 0x7FFFFFFFU, 0xFFFFFFFEU})
        EXPECT_EQ(forwarded(INFO_PORTAL, SUB_VLAN, big_endian_bytes(vlan, 4)), bare(8, SUB_VLAN).u32(2, vlan).bytes());
}

TEST_F(Forward, WhatFollowsAnAssignedVlanIsToldWithIt) {
    const byte_string value = {0, 0, 0, 7, 0xFF, 0xFF, 1};
    EXPECT_EQ(forwarded(INFO_DHCP, SUB_VLAN, value), bare(14, SUB_VLAN).item(2, value).bytes());
}

TEST_F(Forward, AnAssignedVlanOfLessThanFourBytesIsNotTold) {
    for (size_t size = 0; size < 4; size++)
        EXPECT_EQ(forwarded(INFO_PORTAL, SUB_VLAN, byte_string(size, 0xFF)), bare(8, SUB_VLAN).bytes()) << size;
}

TEST_F(Forward, AnEventThatShouldBringAVlanBringsNothingElse) {
    event(INFO_BANDWIDTH, SUB_VLAN);
    evt.bw.pri = 7;
    EXPECT_EQ(forwarded(), bare(19, SUB_VLAN).bytes());
}

TEST_F(Forward, TheInvalidVlanKeepsTheEventBack) {
    for (const uint32_t info : {1, 8, 9, 14, 15, 26, 27, 100, 101, 104}) {
        event(info, SUB_VLAN, {0xFF, 0xFF, 0xFF, 0xFF});
        log_capture log(3);
        EXPECT_EQ(forward(), FAILED);
        EXPECT_EQ(log.lines(), lines{INVALID_VLAN});
    }
    EXPECT_EQ(sent.size(), 0U);
    EXPECT_EQ(conn_cb.size_malloc, 0);
}

TEST_F(Forward, TheInvalidVlanCountsWithMoreBytesBehindIt) {
    event(INFO_PORTAL, SUB_VLAN, {0xFF, 0xFF, 0xFF, 0xFF, 0});
    EXPECT_EQ(forward(), FAILED);
    EXPECT_EQ(sent.size(), 0U);
}

TEST_F(Forward, TheInvalidVlanIsNotLoggedBelowLevel3) {
    event(INFO_PORTAL, SUB_VLAN, {0xFF, 0xFF, 0xFF, 0xFF});
    log_capture log(2);
    EXPECT_EQ(forward(), FAILED);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(Forward, TheInvalidVlanIsAnOrdinaryValueOfOtherEvents) {
    const byte_string value(4, 0xFF);
    EXPECT_EQ(forwarded(INFO_PORTAL, 40, value), bare(8, 40).item(2, value).bytes());
}

// --- details ---

TEST_F(Forward, AVlanEventTellsItsVlan) {
    const byte_string of_four = {0, 0, 0x0F, 0xFF};
    EXPECT_EQ(forwarded(INFO_VLAN, 0, of_four), bare(27, 0).item(2, of_four).u32(4, 4095).bytes());
    EXPECT_EQ(forwarded(INFO_VLAN, 0, {0, 1}), bare(27, 0).item(2, {0, 1}).u32(4, 1).bytes());
    const byte_string of_three = {0x01, 0x02, 0xFF};
    EXPECT_EQ(forwarded(INFO_VLAN, 0, of_three), bare(27, 0).item(2, of_three).u32(4, 0x0102).bytes());
}

TEST_F(Forward, AVlanEventWithoutAUsableVlanTellsOnlyItsValue) {
    for (const byte_string &value : std::vector<byte_string>{
             {}, {7}, {0, 0}, {0x10, 0}, {0, 0, 0, 0}, {0, 0, 0x10, 0}, {0, 1, 0, 1}, {0xFF, 0xFF, 0xFF, 0xFF}})
        EXPECT_EQ(forwarded(INFO_VLAN, 0, value), bare(27, 0).item(2, value).bytes());
}

TEST_F(Forward, AVlanEventOfAnAssignedVlanTellsItTwice) {
    EXPECT_EQ(forwarded(INFO_VLAN, SUB_VLAN, {0, 0, 0, 9}), bare(27, SUB_VLAN).u32(2, 9).u32(4, 9).bytes());
}

TEST_F(Forward, ARadiusRequestTellsItsServerApart) {
    EXPECT_EQ(forwarded(INFO_RADIUS, SUB_ACCESS_REQUEST, {10, 0, 0, 5, 'a', 'b', 0}),
              bare(15, 801).item(2, {'a', 'b', 0}).text(5, "10.0.0.5").bytes());
    EXPECT_EQ(forwarded(INFO_RADIUS, SUB_ACCESS_REQUEST, {10, 0, 0, 5}),
              bare(15, 801).item(2, {}).text(5, "10.0.0.5").bytes());
}

TEST_F(Forward, ARadiusRequestTooShortForItsServerIsEmpty) {
    for (size_t size = 0; size < 4; size++)
        EXPECT_EQ(forwarded(INFO_RADIUS, SUB_ACCESS_REQUEST, byte_string(size, 1)), bare(15, 801).item(2, {}).bytes());
}

TEST_F(Forward, OtherRadiusPacketsAreToldAsTheyAre) {
    const byte_string value = {10, 0, 0, 5, 'a'};
    for (const uint16_t sub : {2, 800, 802, 811})
        EXPECT_EQ(forwarded(INFO_RADIUS, sub, value), bare(15, sub).item(2, value).bytes());
}

TEST_F(Forward, AnInvalidAddressIsToldWithTheServerThatGaveIt) {
    EXPECT_EQ(forwarded(INFO_INVALID_IP, 2, {172, 16, 0, 9, 172, 16, 0, 1}),
              bare(25, 2).text(2, "172.16.0.9").text(5, "172.16.0.1").bytes());
    EXPECT_EQ(forwarded(INFO_INVALID_IP, 2, {255, 255, 255, 255, 0, 0, 0, 1, 99}),
              bare(25, 2).text(2, "255.255.255.255").text(5, "0.0.0.1").bytes());
}

TEST_F(Forward, MissingBytesOfAnInvalidAddressAreZero) {
    EXPECT_EQ(forwarded(INFO_INVALID_IP, 2, {172, 16, 0, 9, 172}),
              bare(25, 2).text(2, "172.16.0.9").text(5, "172.0.0.0").bytes());
    EXPECT_EQ(forwarded(INFO_INVALID_IP, 2, {172, 16}), bare(25, 2).text(2, "172.16.0.0").text(5, "0.0.0.0").bytes());
}

TEST_F(Forward, AnAddressConflictIsToldWithTheOtherStation) {
    EXPECT_EQ(forwarded(INFO_IP_CONFLICT, 0, {0xAA, 0xBB, 0xCC, 1, 2, 3, 10, 1, 2, 3}),
              bare(26, 0).text(2, "10.1.2.3").text(6, "AA:BB:CC:01:02:03").bytes());
}

TEST_F(Forward, MissingBytesOfAnAddressConflictAreZero) {
    EXPECT_EQ(forwarded(INFO_IP_CONFLICT, 0, {0xAA, 0xBB, 0xCC, 1, 2, 3, 10}),
              bare(26, 0).text(2, "10.0.0.0").text(6, "AA:BB:CC:01:02:03").bytes());
    EXPECT_EQ(forwarded(INFO_IP_CONFLICT, 0, {0xAA}),
              bare(26, 0).text(2, "0.0.0.0").text(6, "AA:00:00:00:00:00").bytes());
}

// --- long records ---

constexpr size_t AROUND_THE_VALUE = 52 + 8 + 4;

byte_string counting_bytes(size_t size) {
    byte_string bytes(size);
    for (size_t i = 0; i < size; i++)
        bytes[i] = static_cast<uint8_t>(i * 7 + i / 256);
    return bytes;
}

TEST_F(Forward, ARecordOf2048BytesIsAnOrdinaryOne) {
    const byte_string value = counting_bytes(2048 - AROUND_THE_VALUE);
    log_capture log;
    EXPECT_EQ(forwarded(INFO_RADIUS, 802, value), bare(15, 802).item(2, value).bytes());
    EXPECT_EQ(sent.at(0).payload.size(), 2048U);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(Forward, ALongerRecordIsLoggedAndPostedWhole) {
    for (const size_t size : {size_t{2049}, size_t{4000}, AROUND_THE_VALUE + 65535}) {
        const byte_string value = counting_bytes(size - AROUND_THE_VALUE);
        log_capture log(3);
        EXPECT_EQ(forwarded(INFO_RADIUS, 802, value), bare(15, 802).item(2, value).bytes());
        EXPECT_EQ(sent.at(0).payload.size(), size);
        EXPECT_EQ(log.lines(), lines{OVERWRITE});
    }
    EXPECT_EQ(conn_cb.size_malloc, 0);
}

TEST_F(Forward, ALongRecordWithEveryItemIsPostedWhole) {
    ssid(std::string(32, 's'));
    byte_string value = {255, 255, 255, 255};
    const byte_string attributes = counting_bytes(65531);
    value.insert(value.end(), attributes.begin(), attributes.end());
    log_capture log(3);
    EXPECT_EQ(forwarded(INFO_RADIUS, SUB_ACCESS_REQUEST, value),
              bare(15, 801).text(3, std::string(32, 's')).item(2, attributes).text(5, "255.255.255.255").bytes());
}

TEST_F(Forward, ALongRecordIsNotLoggedBelowLevel3) {
    log_capture log(2);
    forwarded(INFO_RADIUS, 802, counting_bytes(2049));
    EXPECT_EQ(log.lines(), lines());
}

// --- posting and memory ---

TEST_F(Forward, ARefusedRecordIsLostWithoutAWord) {
    event(INFO_AUTHORIZED, 0);
    send_results = {-1};
    log_capture log;
    EXPECT_EQ(forward(), DONE);
    EXPECT_EQ(sent.size(), 1U);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(Forward, TheBuffersMemoryIsGivenBack) {
    event(INFO_AUTHORIZED, 0);
    int held = 0;
    on_send = [&] { held = conn_cb.size_malloc; };
    forward();
    EXPECT_EQ(held, 2048);
    EXPECT_EQ(conn_cb.size_malloc, 0);
}

TEST_F(Forward, WithoutMemoryNothingIsForwarded) {
    event(INFO_AUTHORIZED, 0);
    log_capture log;
    fail_nth_call("malloc", 1);
    EXPECT_EQ(forward(), FAILED);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(sent.size(), 0U);
    EXPECT_EQ(conn_cb.size_malloc, 0);
    EXPECT_EQ(log.lines(), lines());
}

// --- packets ---

/// What a packet of some capacity becomes, in a block of just that size.
byte_string packed(size_t capacity, const std::function<void(packet &)> &fill) {
    const std::unique_ptr<uint8_t[]> block(new uint8_t[capacity]);
    packet out{block.get(), capacity, 0};
    fill(out);
    return byte_string(block.get(), block.get() + out.length);
}

TEST(Packet, TakesAnItemThatJustFits) {
    EXPECT_EQ(packed(7, [](packet &out) { put_item(out, 5, "abc", 3); }), expected_packet().text(5, "abc").bytes());
}

TEST(Packet, LeavesOutAnItemThatDoesNotFitAsAWhole) {
    for (const size_t capacity : {0, 1, 3, 4, 6})
        EXPECT_EQ(packed(capacity, [](packet &out) { put_item(out, 5, "abc", 3); }), byte_string()) << capacity;
}

TEST(Packet, GoesOnWithTheItemsThatFit) {
    EXPECT_EQ(packed(12,
                     [](packet &out) {
                         put_item_u16(out, 1, 7);
                         put_item_u32(out, 2, 7);
                         put_item_u16(out, 3, 8);
                         put_item_text(out, 4, "");
                     }),
              expected_packet().u16(1, 7).u16(3, 8).bytes());
}

TEST(Packet, LeavesOutFixedFieldsThatDoNotFit) {
    EXPECT_EQ(packed(3, [](packet &out) { put(out, "abcd", 4); }), byte_string());
    EXPECT_EQ(packed(4, [](packet &out) { put(out, "abcd", 4); }), text_bytes("abcd"));
}

}  // namespace
