// The decoders and builders of event payloads, on bytes built apart from the product's own records.
#include "wl_common.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "event_payload.h"
#include "fault.h"
#include "log_capture.h"
#include "vap_table.h"
#include "wl_log.h"

namespace {

std::vector<int> looked_up;  // interface indices asked of the VAP table
bool lookup_fails;

const byte_string MAC = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
const byte_string BSSID = {0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F};

using decoder = void (*)(vre_iw_cmd_t, wl_evt_info_t *, void *, int);

wl_evt_info decode_with(decoder decode, vre_iw_cmd_t e, received_payload &payload, int length) {
    wl_evt_info info;
    std::memset(static_cast<void *>(&info), 0x5A, sizeof info);
    decode(e, &info, payload.data(), length);
    return info;
}

wl_evt_info decode(vre_iw_cmd_t e, received_payload &payload) {
    return decode_with(wl_get_evt_info, e, payload, payload.length());
}

/// An event of the access point itself: no header.
wl_evt_info decode_ap_event(received_payload &payload) {
    return decode(VRE_USERSPACE_EVT, payload);
}

event_payload client_event() {
    return event_payload().header(MAC, 0x01020304);
}

/// The bytes of a packed bw record.
byte_string bytes_of(const bw_rule_info &bw) {
    byte_string bytes(sizeof bw);
    std::memcpy(bytes.data(), &bw, sizeof bw);
    return bytes;
}

/// Whether every field that an item can set is zero.
void expect_no_items(const wl_evt_info &info) {
    EXPECT_EQ(info.ssid, nullptr);
    EXPECT_EQ(info.ssid_len, 0);
    EXPECT_EQ(info.bssid, nullptr);
    EXPECT_EQ(info.name, nullptr);
    EXPECT_EQ(info.name_len, 0);
    EXPECT_EQ(info.info_code, 0U);
    EXPECT_EQ(info.subinfo_code, 0);
    EXPECT_EQ(info.subinfo_value, nullptr);
    EXPECT_EQ(info.subinfo_value_len, 0);
    EXPECT_EQ(bytes_of(info.bw), byte_string(45, 0));
}

std::vector<std::string> lines_at_level(int level, const std::function<void()> &action) {
    log_capture log;
    debug = level;
    action();
    return log.lines();
}

using lines = std::vector<std::string>;

}  // namespace

extern "C" vap_info *__wrap__Z21add_or_lookup_vapinfoi(int index) {
    static char vap;
    looked_up.push_back(index);
    return lookup_fails ? nullptr : reinterpret_cast<vap_info *>(&vap);
}

// ---- header

TEST(EventDecoder, ClientEventOfTenBytesHasMacAndProfileOnly) {
    received_payload payload(client_event());
    const wl_evt_info info = decode(VRE_NODE_AUTHORIZE, payload);
    EXPECT_EQ(info.cl_mac, payload.data());
    EXPECT_EQ(info.profile_id, 0x01020304U);
    expect_no_items(info);
}

TEST(EventDecoder, Index66IsTheLastWithAHeader) {
    received_payload payload(client_event().u32(5, 7));
    const wl_evt_info info = decode(VRE_ALL, payload);
    EXPECT_EQ(info.cl_mac, payload.data());
    EXPECT_EQ(info.profile_id, 0x01020304U);
    EXPECT_EQ(info.info_code, 7U);
}

TEST(EventDecoder, ApEventsFrom67OnStartWithTheFirstItem) {
    received_payload payload(event_payload().u32(5, 7));
    const wl_evt_info info = decode(VRE_SYSTEM_SERVICE_CRASH_EVT, payload);
    EXPECT_EQ(info.cl_mac, nullptr);
    EXPECT_EQ(info.profile_id, 0U);
    EXPECT_EQ(info.info_code, 7U);
}

TEST(EventDecoder, HeaderIsReadEvenWhenTheLengthIsZero) {
    received_payload payload(client_event().u32(5, 7));
    const wl_evt_info info = decode_with(wl_get_evt_info, VRE_NODE_LEAVE, payload, 0);
    EXPECT_EQ(info.cl_mac, payload.data());
    EXPECT_EQ(info.profile_id, 0x01020304U);
    expect_no_items(info);
}

TEST(EventDecoder, NegativeLengthCountsAsZero) {
    received_payload payload(client_event().u32(5, 7));
    for (const int length : {-1, -10, INT32_MIN}) {
        const wl_evt_info info = decode_with(wl_get_evt_info, VRE_NODE_LEAVE, payload, length);
        EXPECT_EQ(info.cl_mac, payload.data());
        EXPECT_EQ(info.profile_id, 0x01020304U);
        expect_no_items(info);
    }
}

TEST(EventDecoder, NegativeLengthOfAnApEventReadsNothing) {
    received_payload payload(event_payload().u32(5, 7));
    expect_no_items(decode_with(wl_get_evt_info, VRE_USERSPACE_EVT, payload, -1));
}

TEST(EventDecoder, NullPayloadClearsTheRecord) {
    for (const decoder decode : {wl_get_evt_info, wl_get_spl_evt_info}) {
        wl_evt_info info;
        std::memset(static_cast<void *>(&info), 0x5A, sizeof info);
        decode(VRE_NODE_LEAVE, &info, nullptr, 100);
        EXPECT_EQ(info.cl_mac, nullptr);
        EXPECT_EQ(info.profile_id, 0U);
        expect_no_items(info);
    }
}

TEST(EventDecoder, EmptyApEventClearsTheRecord) {
    received_payload payload{event_payload()};
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.cl_mac, nullptr);
    expect_no_items(info);
}

// ---- one test for every tag

TEST(EventDecoder, Tag0EndsTheWalk) {
    received_payload payload(event_payload().item(0).u32(5, 7));
    expect_no_items(decode_ap_event(payload));
}

TEST(EventDecoder, Tag1IsTheSsid) {
    received_payload payload(event_payload().text(1, "Guest WLAN"));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.ssid, reinterpret_cast<char *>(payload.data() + 8));
    EXPECT_STREQ(info.ssid, "Guest WLAN");
    EXPECT_EQ(info.ssid_len, 10);
}

TEST(EventDecoder, Tag2IsTheBssid) {
    received_payload payload(event_payload().item(2, BSSID));
    EXPECT_EQ(decode_ap_event(payload).bssid, payload.data() + 8);
}

TEST(EventDecoder, Tag3IsTheInterfaceName) {
    received_payload payload(event_payload().text(3, "ath12"));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.name, reinterpret_cast<char *>(payload.data() + 8));
    EXPECT_STREQ(info.name, "ath12");
    EXPECT_EQ(info.name_len, 5);
}

TEST(EventDecoder, Tag4LooksUpTheVapAndSetsNothing) {
    received_payload payload(event_payload().u32(4, 0x00010002));
    expect_no_items(decode_ap_event(payload));
    EXPECT_EQ(looked_up, std::vector<int>{0x00010002});
}

TEST(EventDecoder, Tag4TakesIndicesOfTheUpperHalf) {
    received_payload payload(event_payload().u32(4, 0xFFFFFFFE));
    decode_ap_event(payload);
    EXPECT_EQ(looked_up, std::vector<int>{-2});
}

TEST(EventDecoder, Tag5IsTheInfoCode) {
    received_payload payload(event_payload().u32(5, 0xF1E2D3C4));
    EXPECT_EQ(decode_ap_event(payload).info_code, 0xF1E2D3C4U);
}

TEST(EventDecoder, Tag6IsTheSubinfoCode) {
    received_payload payload(event_payload().u16(6, 0xF1E2));
    EXPECT_EQ(decode_ap_event(payload).subinfo_code, 0xF1E2);
}

TEST(EventDecoder, Tag6TakesTheFirstTwoBytesOfALongerValue) {
    received_payload payload(event_payload().item(6, {0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(decode_ap_event(payload).subinfo_code, 0x1234);
}

TEST(EventDecoder, Tag7IsTheSubinfoValue) {
    received_payload payload(event_payload().item(7, {1, 0, 3}));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.subinfo_value, payload.data() + 8);
    EXPECT_EQ(info.subinfo_value_len, 3);
}

TEST(EventDecoder, Tag7WithoutBytesIsPresentAndEmpty) {
    received_payload payload(event_payload().item(7));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.subinfo_value, payload.data() + 8);
    EXPECT_EQ(info.subinfo_value_len, 0);
}

TEST(EventDecoder, Tag8IsThePriorityAtOffset6OfTheRule) {
    received_payload payload(event_payload().item(8, {0xC8}));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.bw.pri, 0xC8);
    byte_string expected(45, 0);
    expected[6] = 0xC8;
    EXPECT_EQ(bytes_of(info.bw), expected);
}

TEST(EventDecoder, Tag9IsTheUploadLimitAtOffset11OfTheRule) {
    received_payload payload(event_payload().u32(9, 0xFFFFFF01));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.bw.up, -255);
    byte_string expected(45, 0);
    expected[11] = expected[12] = expected[13] = 0xFF;
    expected[14] = 1;
    EXPECT_EQ(bytes_of(info.bw), expected);
}

TEST(EventDecoder, Tag10IsTheDownloadLimitAtOffset15OfTheRule) {
    received_payload payload(event_payload().u32(10, 0x01020304));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.bw.down, 0x01020304);
    byte_string expected(45, 0);
    expected[15] = 1;
    expected[16] = 2;
    expected[17] = 3;
    expected[18] = 4;
    EXPECT_EQ(bytes_of(info.bw), expected);
}

TEST(EventDecoder, Tag11SetsBit80OfTheRulesFlags) {
    received_payload payload(event_payload().item(11));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.bw.bss_rule, 1);
    byte_string expected(45, 0);
    expected[44] = 0x80;
    EXPECT_EQ(bytes_of(info.bw), expected);
}

TEST(EventDecoder, Tag12SetsBits40And20OfTheRulesFlags) {
    received_payload payload(event_payload().item(12, {9, 9}));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.bw.state_transition, 1);
    EXPECT_EQ(info.bw.to_state, 1);
    byte_string expected(45, 0);
    expected[44] = 0x60;
    EXPECT_EQ(bytes_of(info.bw), expected);
}

TEST(EventDecoder, Tags13And14AreSkipped) {
    received_payload payload(event_payload().item(13, {1, 2, 3}).item(14).u32(5, 7));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.info_code, 7U);
    EXPECT_EQ(info.subinfo_value, nullptr);
}

TEST(EventDecoder, Tag15AndAnyLargerEndTheWalk) {
    for (const uint32_t tag : {15U, 16U, 256U, 0x01000005U, 0x80000005U, 0xFFFFFFFFU}) {
        received_payload payload(event_payload().item(tag).u32(5, 7));
        expect_no_items(decode_ap_event(payload));
    }
}

TEST(BwRule, EachFieldIsAtItsOffset) {
    bw_rule_info rule{};
    rule.e = 0x01020304;
    rule.profile_id = 0x05060708;
    rule.classid = 0x090A0B0C;
    rule.interface[0] = 'a';
    rule.interface[16] = 'z';
    byte_string expected(45, 0);
    for (uint8_t i = 0; i < 4; i++) {
        expected[7 + i] = static_cast<uint8_t>(1 + i);
        expected[19 + i] = static_cast<uint8_t>(5 + i);
        expected[23 + i] = static_cast<uint8_t>(9 + i);
    }
    expected[27] = 'a';
    expected[43] = 'z';
    EXPECT_EQ(bytes_of(rule), expected);
}

TEST(BwRule, EachFlagHasItsOwnBit) {
    bw_rule_info rule{};
    rule.state_transition = 1;
    EXPECT_EQ(bytes_of(rule)[44], 0x40);
    rule = {};
    rule.to_state = 1;
    EXPECT_EQ(bytes_of(rule)[44], 0x20);
}

// ---- the walk

TEST(EventDecoder, ItemsAtOddOffsetsAreDecoded) {
    received_payload payload(client_event()
                                 .item(13, {0})
                                 .u32(5, 0x11223344)
                                 .item(13, {0, 0})
                                 .u32(9, 0x55667788)
                                 .item(13, {0, 0, 0})
                                 .u16(6, 0x99AA)
                                 .item(13, {0})
                                 .u32(4, 6));
    const wl_evt_info info = decode(VRE_NODE_AUTHORIZE, payload);
    EXPECT_EQ(info.info_code, 0x11223344U);
    EXPECT_EQ(info.bw.up, 0x55667788);
    EXPECT_EQ(info.subinfo_code, 0x99AA);
    EXPECT_EQ(looked_up, std::vector<int>{6});
}

TEST(EventDecoder, PayloadAtAnOddAddressIsDecoded) {
    byte_string bytes = client_event().u32(5, 0x11223344).bytes();
    bytes.insert(bytes.begin(), 0);
    received_payload shifted(bytes);
    wl_evt_info info;
    wl_get_evt_info(VRE_NODE_AUTHORIZE, &info, shifted.data() + 1, shifted.length() - 1);
    EXPECT_EQ(info.profile_id, 0x01020304U);
    EXPECT_EQ(info.info_code, 0x11223344U);
}

TEST(EventDecoder, TheLastOfSeveralEqualTagsWins) {
    received_payload payload(event_payload().text(1, "one").u32(5, 1).text(1, "three").u32(5, 2).item(7, {1}).item(7));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_STREQ(info.ssid, "three");
    EXPECT_EQ(info.ssid_len, 5);
    EXPECT_EQ(info.info_code, 2U);
    EXPECT_EQ(info.subinfo_value_len, 0);
}

TEST(EventDecoder, ApplyRuleDoesNotClearThePerBssFlag) {
    received_payload payload(event_payload().item(11).item(12));
    EXPECT_EQ(bytes_of(decode_ap_event(payload).bw)[44], 0xE0);
}

TEST(EventDecoder, ItemThatDoesNotFitHasItsEffectAndEndsTheWalk) {
    received_payload payload(event_payload().item_claiming(5, 13, big_endian_bytes(7, 4)).u32(9, 1).bytes({0}));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.info_code, 7U);
    EXPECT_EQ(info.bw.up, 0);
}

TEST(EventDecoder, ItemThatFillsTheRestExactlyEndsTheWalk) {
    received_payload payload(event_payload().item(13, byte_string(20, 0x05)), 0x05);
    expect_no_items(decode_ap_event(payload));
}

TEST(EventDecoder, OneByteMoreThanTheRestEndsTheWalk) {
    const event_payload items = event_payload().item_claiming(13, 13, {0}).u32(5, 7);
    received_payload payload(items);
    ASSERT_EQ(payload.length(), 8 + 13);
    EXPECT_EQ(decode_with(wl_get_evt_info, VRE_USERSPACE_EVT, payload, 8 + 12).info_code, 0U);
}

TEST(EventDecoder, LengthsNearTheEndOf32BitsEndTheWalk) {
    for (uint32_t length = 0xFFFFFFF0; length != 0; length++) {
        received_payload payload(event_payload().item_claiming(5, length, big_endian_bytes(7, 4)).u32(9, 1));
        const wl_evt_info info = decode_ap_event(payload);
        EXPECT_EQ(info.info_code, 7U);
        EXPECT_EQ(info.bw.up, 0);
    }
}

TEST(EventDecoder, LengthsOfTheUpperHalfEndTheWalk) {
    for (const uint32_t length : {0x7FFFFFFFU, 0x7FFFFFF8U, 0x80000000U, 0x80000001U}) {
        received_payload payload(client_event().item_claiming(13, length).u32(5, 7));
        expect_no_items(decode(VRE_NODE_AUTHORIZE, payload));
    }
}

TEST(EventDecoder, LengthWithoutTheHeaderStillReachesTheLastItem) {
    received_payload payload(client_event().text(1, "net").u32(5, 7).u16(6, 8));
    const wl_evt_info info = decode_with(wl_get_evt_info, VRE_NODE_AUTHORIZE, payload, payload.length() - 10);
    EXPECT_STREQ(info.ssid, "net");
    EXPECT_EQ(info.info_code, 7U);
    EXPECT_EQ(info.subinfo_code, 8);
}

TEST(EventDecoder, BytesBeyondTheWindowOfAClientEventReadAsZero) {
    received_payload payload(client_event().item(5), 0xEE);
    // 18 bytes are stated, so 28 may be read: the whole word.
    EXPECT_EQ(decode(VRE_NODE_AUTHORIZE, payload).info_code, 0xEEEEEEEEU);
    // With 11 the window ends at 21, one byte before the word does.
    EXPECT_EQ(decode_with(wl_get_evt_info, VRE_NODE_AUTHORIZE, payload, 11).info_code, 0xEEEEEE00U);
    EXPECT_EQ(decode_with(wl_get_evt_info, VRE_NODE_AUTHORIZE, payload, 9).info_code, 0xEE000000U);
    EXPECT_EQ(decode_with(wl_get_evt_info, VRE_NODE_AUTHORIZE, payload, 8).info_code, 0U);
}

TEST(EventDecoder, BytesBeyondTheWindowOfAnApEventReadAsZero) {
    received_payload payload(event_payload().item(5, {1}), 0xEE);
    EXPECT_EQ(decode_ap_event(payload).info_code, 0x01000000U);
}

TEST(EventDecoder, TagCutByTheWindowReadsAsZeroAndEndsTheWalk) {
    received_payload payload(event_payload().u32(5, 7), 0x05);
    for (int length = 0; length < 4; length++)
        expect_no_items(decode_with(wl_get_evt_info, VRE_USERSPACE_EVT, payload, length));
}

TEST(EventDecoder, LengthCutByTheWindowReadsAsZero) {
    received_payload payload(event_payload().item_claiming(7, 0x01010101), 0xEE);
    const wl_evt_info info = decode_with(wl_get_evt_info, VRE_USERSPACE_EVT, payload, 7);
    EXPECT_EQ(info.subinfo_value, payload.data() + 8);
    EXPECT_EQ(info.subinfo_value_len, 0);
}

TEST(EventDecoder, EveryTruncationStaysInsideTheBlock) {
    const byte_string whole = client_event()
                                  .text(1, "net")
                                  .item(2, BSSID)
                                  .text(3, "ath0")
                                  .u32(4, 3)
                                  .u32(5, 5)
                                  .u16(6, 6)
                                  .item(7, byte_string(40, 'x'))
                                  .item(8, {1})
                                  .u32(9, 9)
                                  .u32(10, 10)
                                  .item(11)
                                  .item(12)
                                  .bytes();
    for (size_t length = 0; length <= whole.size(); length++) {
        received_payload payload(byte_string(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        for (const decoder decoder_of : {wl_get_evt_info, wl_get_spl_evt_info}) {
            for (const vre_iw_cmd_t e : {VRE_NODE_AUTHORIZE, VRE_USERSPACE_EVT}) {
                const wl_evt_info info = decode_with(decoder_of, e, payload, payload.length());
                if (info.subinfo_value != nullptr) {
                    EXPECT_LE(info.subinfo_value + info.subinfo_value_len, payload.data() + length + 10);
                }
                if (info.ssid != nullptr) {
                    EXPECT_EQ(strlen(info.ssid), static_cast<size_t>(info.ssid_len));
                }
            }
        }
    }
}

// ---- sub-information value

TEST(EventDecoder, SubinfoValueIsClampedToTheWindowOfAnApEvent) {
    received_payload payload(event_payload().item_claiming(7, 100, {1, 2, 3}));
    EXPECT_EQ(decode_ap_event(payload).subinfo_value_len, 3);
}

TEST(EventDecoder, SubinfoValueIsClampedToTheWindowOfAClientEvent) {
    received_payload payload(client_event().item_claiming(7, 100, {1, 2, 3}));
    EXPECT_EQ(decode(VRE_NODE_AUTHORIZE, payload).subinfo_value_len, 13);
}

TEST(EventDecoder, SubinfoValueBeyondTheWindowIsEmpty) {
    received_payload payload(event_payload().bytes({0, 0, 0, 7}), 0xEE);
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.subinfo_value, payload.data() + 8);
    EXPECT_EQ(info.subinfo_value_len, 0);
}

TEST(EventDecoder, SubinfoValueLengthKeepsItsLow16Bits) {
    received_payload payload(event_payload().item_claiming(7, 65536, {1, 2, 3}));
    EXPECT_EQ(decode_ap_event(payload).subinfo_value_len, 0);
    received_payload one_more(event_payload().item_claiming(7, 65538, {1, 2, 3}));
    EXPECT_EQ(decode_ap_event(one_more).subinfo_value_len, 2);
    received_payload largest(event_payload().item_claiming(7, 0xFFFFFFF8, {1, 2, 3}));
    EXPECT_EQ(decode_ap_event(largest).subinfo_value_len, 3);
}

// ---- texts

TEST(EventDecoder, SsidOf32CharactersIsWhole) {
    received_payload payload(event_payload().text(1, std::string(32, 's')));
    log_capture log;
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.ssid_len, 32);
    EXPECT_EQ(std::string(info.ssid), std::string(32, 's'));
    EXPECT_EQ(log.lines(), lines());
}

TEST(EventDecoder, SsidOf33CharactersIsCutAndLogged) {
    received_payload payload(client_event().text(1, std::string(33, 's')));
    log_capture log;
    const wl_evt_info info = decode(VRE_ASSOC_RECV, payload);
    EXPECT_EQ(info.ssid_len, 32);
    EXPECT_EQ(payload.data()[18 + 31], 's');
    EXPECT_EQ(payload.data()[18 + 32], 0);
    EXPECT_EQ(log.lines(), lines{"wl_get_evt_info: Invalid SSID len received for event VRE.assoc.recv"});
}

TEST(EventDecoder, SsidOf40CharactersWithoutNulIsCutAtByte32AndTheWalkGoesOn) {
    received_payload payload(client_event().item(1, byte_string(40, 's')).u32(5, 7));
    const wl_evt_info info = decode(VRE_ASSOC_RECV, payload);
    EXPECT_EQ(info.ssid_len, 32);
    EXPECT_EQ(payload.data()[18 + 32], 0);
    EXPECT_EQ(payload.data()[18 + 33], 's');
    EXPECT_EQ(info.info_code, 7U);
}

TEST(EventDecoder, OverlongSsidIsLoggedByTheFirstDecodingOnly) {
    received_payload payload(client_event().item(1, byte_string(40, 's')));
    decode(VRE_ASSOC_RECV, payload);
    log_capture log;
    EXPECT_EQ(decode(VRE_ASSOC_RECV, payload).ssid_len, 32);
    EXPECT_EQ(log.lines(), lines());
}

TEST(EventDecoder, OverlongSsidIsLoggedAtLevel3) {
    const auto decode_overlong = [] {
        received_payload payload(client_event().item(1, byte_string(40, 's')));
        decode(VRE_ASSOC_RECV, payload);
    };
    EXPECT_EQ(lines_at_level(3, decode_overlong).size(), 1U);
    EXPECT_EQ(lines_at_level(2, decode_overlong).size(), 0U);
}

TEST(EventDecoder, OverlongSsidOfAnUnnamedEventIsLoggedWithoutAName) {
    received_payload payload(client_event().item(1, byte_string(40, 's')));
    log_capture log;
    decode(VRE_STA_INFO, payload);
    EXPECT_EQ(log.lines(), lines{"wl_get_evt_info: Invalid SSID len received for event (null)"});
}

TEST(EventDecoder, TextWithoutNulRunsOnToTheNextItemsTag) {
    received_payload payload(event_payload().item(1, text_bytes("net")).text(3, "ath0"));
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_STREQ(info.ssid, "net");
    EXPECT_EQ(info.ssid_len, 3);
    EXPECT_STREQ(info.name, "ath0");
}

TEST(EventDecoder, TextLengthDoesNotComeFromTheItem) {
    received_payload payload(event_payload().item_claiming(1, 2, text_bytes("network")));
    EXPECT_EQ(decode_ap_event(payload).ssid_len, 7);
}

TEST(EventDecoder, TextEndsWithTheWindow) {
    received_payload payload(event_payload().item_claiming(1, 40, text_bytes("net")), 'x');
    log_capture log;
    EXPECT_EQ(decode_ap_event(payload).ssid_len, 3);
    received_payload name(client_event().item_claiming(3, 40, text_bytes("a")), 'x');
    EXPECT_EQ(decode(VRE_ASSOC_RECV, name).name_len, 11);
    EXPECT_EQ(log.lines(), lines());
}

TEST(EventDecoder, TextThatFillsTheWindowUpToItsLimitIsNotCut) {
    received_payload payload(event_payload().item(1, byte_string(32, 's')), 'x');
    EXPECT_EQ(decode_ap_event(payload).ssid_len, 32);
    EXPECT_EQ(payload.data()[8 + 32], 'x');
}

TEST(EventDecoder, TextBeyondTheWindowIsEmpty) {
    received_payload payload(event_payload().bytes({0, 0, 0, 1}), 'x');
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.ssid, reinterpret_cast<char *>(payload.data() + 8));
    EXPECT_EQ(info.ssid_len, 0);
}

TEST(EventDecoder, CuttingATextTouchesOneByteOnly) {
    const event_payload items = client_event().item(1, byte_string(40, 's')).item(3, byte_string(20, 'n'));
    received_payload payload(items);
    decode(VRE_ASSOC_RECV, payload);
    byte_string expected = items.bytes();
    expected[18 + 32] = 0;
    expected[18 + 40 + 8 + 15] = 0;
    EXPECT_EQ(byte_string(payload.data(), payload.data() + payload.length()), expected);
}

TEST(EventDecoder, InterfaceNameOf15CharactersIsWhole) {
    received_payload payload(event_payload().text(3, "ath012345678901"));
    log_capture log;
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.name_len, 15);
    EXPECT_STREQ(info.name, "ath012345678901");
    EXPECT_EQ(log.lines(), lines());
}

TEST(EventDecoder, InterfaceNameOf16CharactersIsCutAndLogged) {
    received_payload payload(event_payload().text(3, "ath0123456789012").u32(5, 7));
    log_capture log;
    const wl_evt_info info = decode(VRE_VAP_DOWN, payload);
    EXPECT_EQ(info.name_len, 15);
    EXPECT_STREQ(info.name, "ath012345678901");
    EXPECT_EQ(info.info_code, 7U);
    EXPECT_EQ(log.lines(), lines{"wl_get_evt_info: Invalid interface name len received for event VRE.vap_down"});
}

TEST(EventDecoder, OverlongInterfaceNameIsLoggedAtLevel3) {
    const auto decode_overlong = [] {
        received_payload payload(event_payload().item(3, byte_string(16, 'n')));
        decode_ap_event(payload);
    };
    EXPECT_EQ(lines_at_level(3, decode_overlong).size(), 1U);
    EXPECT_EQ(lines_at_level(2, decode_overlong).size(), 0U);
}

// ---- VAP lookup

TEST(EventDecoder, FailedVapLookupIsLoggedAndKeepsWhatWasRead) {
    lookup_fails = true;
    received_payload payload(event_payload().u32(5, 7).u32(4, 3).u16(6, 8));
    log_capture log;
    const wl_evt_info info = decode_ap_event(payload);
    EXPECT_EQ(info.info_code, 7U);
    EXPECT_EQ(info.subinfo_code, 0);
    EXPECT_EQ(log.lines(), lines{"wl_get_evt_info: Vap lookup failed "});
}

TEST(EventDecoder, FailedVapLookupIsLoggedAtLevel3) {
    lookup_fails = true;
    const auto decode_unknown_vap = [] {
        received_payload payload(event_payload().u32(4, 3));
        decode_ap_event(payload);
    };
    EXPECT_EQ(lines_at_level(3, decode_unknown_vap).size(), 1U);
    EXPECT_EQ(lines_at_level(2, decode_unknown_vap).size(), 0U);
}

TEST(EventDecoder, DecodingGoesOnAfterAKnownVap) {
    received_payload payload(event_payload().u32(4, 3).u16(6, 8));
    EXPECT_EQ(decode_ap_event(payload).subinfo_code, 8);
}

// ---- special payloads

TEST(SpecialDecoder, HeaderIsExpectedWhateverTheEvent) {
    for (const vre_iw_cmd_t e : {VRE_AUTH_RECV, VRE_BW_VAP_PROFILE_ID, static_cast<vre_iw_cmd_t>(1000)}) {
        received_payload payload(client_event().u32(5, 7));
        const wl_evt_info info = decode_with(wl_get_spl_evt_info, e, payload, payload.length());
        EXPECT_EQ(info.cl_mac, payload.data());
        EXPECT_EQ(info.profile_id, 0x01020304U);
        EXPECT_EQ(info.info_code, 7U);
    }
}

TEST(SpecialDecoder, VapIndexIsSkipped) {
    lookup_fails = true;
    received_payload payload(client_event().u32(4, 3).u32(5, 7));
    log_capture log;
    EXPECT_EQ(decode_with(wl_get_spl_evt_info, VRE_SPL_BW_EVENTS, payload, payload.length()).info_code, 7U);
    EXPECT_TRUE(looked_up.empty());
    EXPECT_EQ(log.lines(), lines());
}

TEST(SpecialDecoder, OverlongTextsAreLoggedUnderItsOwnName) {
    received_payload payload(client_event().item(1, byte_string(40, 's')).item(3, byte_string(20, 'n')));
    log_capture log;
    const wl_evt_info info = decode_with(wl_get_spl_evt_info, VRE_BW_VAP_PROFILE_ID, payload, payload.length());
    EXPECT_EQ(info.ssid_len, 32);
    EXPECT_EQ(info.name_len, 15);
    EXPECT_EQ(log.lines(),
              (lines{"wl_get_spl_evt_info: Invalid SSID len received for event VRE.bw.vap_profile_id",
                     "wl_get_spl_evt_info: Invalid interface name len received for event VRE.bw.vap_profile_id"}));
}

TEST(SpecialDecoder, WindowIsTenBytesLongerThanTheLength) {
    received_payload payload(client_event().item(5), 0xEE);
    EXPECT_EQ(decode_with(wl_get_spl_evt_info, VRE_SPL_BW_EVENTS, payload, 9).info_code, 0xEE000000U);
}

// ---- other operations of the module

TEST(AllocEvtBuf, HoldsTheNameItsNulAndThePayload) {
    const char payload[] = {1, 0, 3};
    char *message = static_cast<char *>(alloc_evt_buf(VRE_SS, payload, 3));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(std::string(message, 22), std::string("VRE.smart_steering\0\1\0\3", 22));
    std::free(message);
}

TEST(AllocEvtBuf, WithoutPayloadHoldsNameAndNul) {
    for (const int length : {0, -5}) {
        char *message = static_cast<char *>(alloc_evt_buf(VRE_BW, nullptr, length));
        ASSERT_NE(message, nullptr);
        EXPECT_STREQ(message, "VRE.bw");
        std::free(message);
    }
}

TEST(AllocEvtBuf, RefusesEventsWithoutAName) {
    for (const int e : {45, 66, 92, -1, 109, INT32_MAX, INT32_MIN})
        EXPECT_EQ(alloc_evt_buf(static_cast<vre_iw_cmd_t>(e), "x", 1), nullptr);
}

TEST(AllocEvtBuf, ReturnsNullWhenMemoryIsShort) {
    fail_nth_call("malloc", 1);
    void *message = alloc_evt_buf(VRE_SS, "x", 1);
    const int fired = faults_fired("malloc");
    clear_faults();
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(fired, 1);
}

class PrintHex : public testing::Test {
protected:
    std::string printed(const void *data, int length) {
        char *text = nullptr;
        size_t size = 0;
        FILE *out = open_memstream(&text, &size);
        print_hex(data, length, out);
        std::fclose(out);
        const std::string result(text, size);
        std::free(text);
        return result;
    }
};

TEST_F(PrintHex, WritesTwoUpperCaseDigitsAByteAndANewline) {
    EXPECT_EQ(printed("\x00\x0A\xFF\x7f", 4), "000AFF7F\n");
}

TEST_F(PrintHex, WithoutBytesWritesTheNewline) {
    EXPECT_EQ(printed("x", 0), "\n");
    EXPECT_EQ(printed("x", -1), "\n");
}

TEST_F(PrintHex, WritesNothingForNullData) {
    EXPECT_EQ(printed(nullptr, 4), "");
}
