// The bindings of the daemon's handlers, and the handlers that live in its core. What they call in other modules is
// replaced through the linker, under the symbol names of the modules' functions.
#include "wl_evt_register.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "event_payload.h"
#include "hostapd_event.h"
#include "log_capture.h"
#include "vap_profile_map.h"
#include "vap_table.h"
#include "wl_ap_logging_evt.h"
#include "wl_bw.h"
#include "wl_cl_info.h"
#include "wl_client_ts.h"
#include "wl_common.h"
#include "wl_disconnect.h"
#include "wl_log.h"
#include "wl_logger.h"
#include "wl_ssid_profile.h"
#include "wl_synch.h"
#include "wl_traffic_test.h"

namespace {

using lines = std::vector<std::string>;

std::vector<std::pair<int, wl_evt_handler_t>> bound;
std::set<int> refused;  // places in the order of binding, from 0

struct sent_event {
    int event;
    byte_string payload;
};
std::vector<sent_event> sent;

struct steering {
    byte_string mac;
    uint16_t code;
    uint8_t attempts;
};
std::vector<steering> steered;

std::vector<int> looked_up;
bool lookup_fails;

std::vector<byte_string> profile_updates;
std::vector<byte_string> dump_requests;
std::vector<byte_string> inter_ap_parameters;
std::vector<byte_string> conn_err_dumps;
std::vector<int> enabled;
int client_ts_result;
int cache_clears;

byte_string bytes_at(const void *data, size_t size) {
    const auto *bytes = static_cast<const uint8_t *>(data);
    return byte_string(bytes, bytes + size);
}

lines lines_at_level(int level, const std::function<void()> &action) {
    log_capture log;
    debug = level;
    action();
    return log.lines();
}

/// Whether the line appears at its level and not below.
void expect_line(int level, const std::string &line, const std::function<void()> &action) {
    EXPECT_EQ(lines_at_level(level, action), lines{line});
    EXPECT_EQ(lines_at_level(level - 1, action), lines());
}

const byte_string MAC = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

event_payload client_event() {
    return event_payload().header(MAC, 1);
}

}  // namespace

extern "C" {

int __wrap_wl_register_handler(vre_iw_cmd_t event, wl_evt_handler_t handler) {
    bound.emplace_back(event, handler);
    return refused.contains(static_cast<int>(bound.size()) - 1) ? -1 : 0;
}

int __wrap_wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    sent.push_back({event, bytes_at(payload, static_cast<size_t>(length))});
    return 1;
}

int __wrap__Z36send_client_steering_attempts_packetPKhth(const uint8_t *mac, uint16_t code, uint8_t attempts) {
    steered.push_back({bytes_at(mac, 6), code, attempts});
    return 0;
}

vap_info *__wrap__Z21add_or_lookup_vapinfoi(int index) {
    static char vap;
    looked_up.push_back(index);
    return lookup_fails ? nullptr : reinterpret_cast<vap_info *>(&vap);
}

int __wrap__Z26handle_ssid_profile_updatePKv(const void *update) {
    profile_updates.push_back(bytes_at(update, 5));
    return 0;
}

int __wrap__Z27handle_client_info_dump_reqPKv(const void *request) {
    dump_requests.push_back(bytes_at(request, 39));
    return 0;
}

int __wrap__Z22handle_inter_ap_paramsPKv(const void *parameters) {
    inter_ap_parameters.push_back(bytes_at(parameters, 2));
    return 0;
}

int __wrap__Z19wl_client_ts_enablei(int enable) {
    enabled.push_back(enable);
    return client_ts_result;
}

int __wrap__Z17wl_client_ts_dumpPKv(const void *request) {
    conn_err_dumps.push_back(bytes_at(request, 38));
    return client_ts_result;
}

void __wrap__Z23iface_table_clear_cachev() {
    cache_clears++;
}
}

// ---- bindings

TEST(EventBindings, All31AreMadeInOrder) {
    const std::vector<std::pair<int, wl_evt_handler_t>> expected = {
        {14, vre_bw_clr_limit_disassoc},
        {14, vre_cl_leave_updates},
        {17, vre_cl_authorized_updates},
        {17, bw_set_limit_node_authorized},
        {24, vre_bw_set_limit},
        {25, vre_bw_clr_limit},
        {26, bw_status},
        {40, handle_bw_events},
        {50, handle_vre_disconnect_event},
        {84, handle_vre_vap_down},
        {81, handle_vre_evt_txpow_change},
        {82, handle_vre_evt_txpow_not_changed},
        {78, handle_vre_userspace_event},
        {59, handle_vre_hostapd_event},
        {65, handle_client_info},
        {83, handle_vre_evt_chan_info},
        {66, wl_logger},
        {66, wl_client_ts},
        {105, handle_bw_vap_profile_id},
        {106, wl_iface_table_clear_cache},
        {96, handle_wl_ssid_profile_update},
        {97, handle_wl_client_info_dump_req},
        {98, vre_wl_client_ts_enable},
        {99, vre_wl_client_ts_dump},
        {101, handle_inter_ap_synch_params},
        {102, handle_vlan_gateway_info},
        {32, handle_vre_ss},
        {95, wl_handle_traffic_test_details},
        {17, vre_handle_traffic_authorized_event},
        {14, vre_handle_traffic_leave_event},
        {43, vre_handle_vlan_detected_info},
    };
    ASSERT_EQ(expected.size(), 31U);
    log_capture log;
    EXPECT_EQ(wl_evt_register_events(), 0);
    EXPECT_EQ(bound, expected);
    EXPECT_EQ(log.lines(), lines());
}

TEST(EventBindings, FailedBindingIsLoggedAndTheRestIsMade) {
    refused = {0, 30};
    log_capture log;
    EXPECT_EQ(wl_evt_register_events(), 0);
    EXPECT_EQ(bound.size(), 31U);
    EXPECT_EQ(log.lines(), (lines{"wl_evt_register_events: Event registation failed VRE.node_leave",
                                  "wl_evt_register_events: Event registation failed VRE.vlan.detector"}));
}

TEST(EventBindings, FailedCatchAllBindingHasNoName) {
    refused = {16, 17};
    log_capture log;
    EXPECT_EQ(wl_evt_register_events(), 0);
    EXPECT_EQ(log.lines(), (lines{"wl_evt_register_events: Event registation failed (null)",
                                  "wl_evt_register_events: Event registation failed (null)"}));
}

TEST(EventBindings, FailedBindingIsLoggedAtLevel2) {
    expect_line(2, "wl_evt_register_events: Event registation failed VRE.bw.set", [] {
        bound.clear();
        refused = {4};
        wl_evt_register_events();
    });
}

// ---- bandwidth-events channel

class BwEvents : public testing::Test {
protected:
    static void handle(const event_payload &payload, vre_iw_cmd_t e = VRE_BW_EVENTS) {
        received_payload received(payload);
        handle_bw_events(e, received.data(), received.length());
    }
};

TEST_F(BwEvents, Code0SetsTheDebugLevelClamped) {
    debug = 3;
    handle(client_event().u16(6, 0).u16(7, 9));
    EXPECT_EQ(debug, 7);
    handle(client_event().u16(6, 0).u16(7, 0));
    EXPECT_EQ(debug, 2);
    handle(client_event().u16(6, 0).u16(7, 6));
    EXPECT_EQ(debug, 6);
}

TEST_F(BwEvents, DebugLevelIsAnUnsignedWord) {
    debug = 3;
    handle(client_event().u16(6, 0).u16(7, 0xFFFF));
    EXPECT_EQ(debug, 7);
}

TEST_F(BwEvents, ValueWithoutCodeSetsTheDebugLevel) {
    debug = 3;
    handle(client_event().u16(7, 6));
    EXPECT_EQ(debug, 6);
}

TEST_F(BwEvents, ValueOfOneByteIsTheUpperHalfOfTheWord) {
    log_capture log;
    handle(client_event().u16(6, 1).item(7, {0x12}).item(13));
    EXPECT_EQ(g_enable_simulator, 0x1200);
}

TEST_F(BwEvents, EmptyValueIsTheWordZero) {
    g_enable_simulator = 5;
    handle(client_event().u16(6, 1).item(7));
    EXPECT_EQ(g_enable_simulator, 0);
}

TEST_F(BwEvents, Code1SetsTheSimulatorFlagAndLogsIt) {
    EXPECT_EQ(g_enable_simulator, 0);
    log_capture log;
    handle(client_event().u16(6, 1).item(7, {0xAB, 0xCD, 0xEF}));
    EXPECT_EQ(g_enable_simulator, 0xABCD);
    EXPECT_EQ(log.lines(), lines{"handle_bw_events: g_enable_simulator [43981]"});
}

TEST_F(BwEvents, SimulatorFlagIsLoggedAtLevel3) {
    expect_line(3, "handle_bw_events: g_enable_simulator [1]", [] { handle(client_event().u16(6, 1).u16(7, 1)); });
}

TEST_F(BwEvents, CodesWithoutAValueAreIgnored) {
    debug = 6;
    g_enable_simulator = 5;
    handle(client_event().u16(6, 0));
    handle(client_event().u16(6, 1));
    EXPECT_EQ(debug, 6);
    EXPECT_EQ(g_enable_simulator, 5);
}

TEST_F(BwEvents, OtherCodesAreIgnored) {
    debug = 6;
    g_enable_simulator = 5;
    for (const int code : {2, 3, 256, 0xFFFF})
        handle(client_event().u16(6, static_cast<uint16_t>(code)).u16(7, 3));
    EXPECT_EQ(debug, 6);
    EXPECT_EQ(g_enable_simulator, 5);
}

TEST_F(BwEvents, PayloadIsDecodedAsThatOfEvent40WhateverTheIndex) {
    handle(client_event().u16(6, 1).u16(7, 9), VRE_USERSPACE_EVT);
    EXPECT_EQ(g_enable_simulator, 9);
}

// ---- smart steering

class SmartSteering : public testing::Test {
protected:
    static void handle(const event_payload &payload) {
        received_payload received(payload);
        handle_vre_ss(VRE_SS, received.data(), received.length());
    }

    /// A value of 25 bytes: the client's MAC first, the attempts last.
    static byte_string value(uint8_t attempts) {
        byte_string bytes = MAC;
        bytes.resize(24, 0x77);
        bytes.push_back(attempts);
        return bytes;
    }
};

TEST_F(SmartSteering, EightCodesAreTold) {
    std::vector<int> told;
    for (int code = 0; code < 300; code++) {
        steered.clear();
        handle(client_event().u16(6, static_cast<uint16_t>(code)).item(7, value(3)));
        if (!steered.empty())
            told.push_back(code);
    }
    EXPECT_EQ(told, (std::vector<int>{2, 4, 7, 8, 9, 25, 26, 27}));
}

TEST_F(SmartSteering, PassesTheValueItsCodeAndByte24) {
    log_capture log;
    handle(client_event().u16(6, 25).item(7, value(200)));
    ASSERT_EQ(steered.size(), 1U);
    EXPECT_EQ(steered[0].mac, MAC);
    EXPECT_EQ(steered[0].code, 25);
    EXPECT_EQ(steered[0].attempts, 200);
    EXPECT_EQ(log.lines(), lines{"handle_vre_ss: Subinfo code 25 match , send steering packet"});
}

TEST_F(SmartSteering, MatchIsLoggedAtLevel7) {
    expect_line(7, "handle_vre_ss: Subinfo code 2 match , send steering packet",
                [] { handle(client_event().u16(6, 2).item(7, value(1))); });
}

TEST_F(SmartSteering, ShortValueAtTheEndHasNoAttempts) {
    handle(client_event().u16(6, 2).item(7, MAC));
    ASSERT_EQ(steered.size(), 1U);
    EXPECT_EQ(steered[0].attempts, 0);
}

TEST_F(SmartSteering, CodeWithoutAValueIsIgnored) {
    log_capture log;
    handle(client_event().u16(6, 2));
    EXPECT_TRUE(steered.empty());
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(SmartSteering, EveryTruncationStaysInsideTheBlock) {
    const byte_string whole = client_event().u16(6, 2).item(7, value(1)).bytes();
    for (size_t length = 0; length <= whole.size(); length++) {
        received_payload received(byte_string(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        handle_vre_ss(VRE_SS, received.data(), received.length());
    }
}

// ---- VLAN detection

namespace {

byte_string vlan_record(uint16_t type, const byte_string &bitmap, int32_t vlan) {
    return event_payload()
        .bytes(big_endian_bytes(type, 2))
        .bytes(bitmap)
        .bytes(big_endian_bytes(static_cast<uint32_t>(vlan), 4))
        .bytes();
}

void tell_vlans(byte_string record) {
    received_payload received(record);
    vre_handle_vlan_detected_info(VRE_SENSOR_VLAN_DETECTED, received.data(), received.length());
}

void tell_vlan(int32_t vlan) {
    tell_vlans(vlan_record(2, byte_string(512, 0), vlan));
}

byte_string detected() {
    return bytes_at(g_bitmap_vlans_detected, sizeof g_bitmap_vlans_detected);
}

/// A bitmap with one byte set.
byte_string bitmap_with(size_t at, uint8_t bits) {
    byte_string bitmap(512, 0);
    bitmap[at] = bits;
    return bitmap;
}

std::string detected_text() {
    char text[VLANS_DETECTED_TEXT_SIZE];
    std::memset(text, 'x', sizeof text);
    vlans_detected_text(text);
    return text;
}

}  // namespace

TEST(VlanDetection, RequestIs518BytesOfType1) {
    vre_request_vlan_detected_info();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].event, 43);
    byte_string expected(518, 0);
    expected[1] = 1;
    EXPECT_EQ(sent[0].payload, expected);
}

TEST(VlanDetection, Vlan100SetsBit4OfByte12) {
    tell_vlan(100);
    EXPECT_EQ(detected(), bitmap_with(12, 0x10));
}

TEST(VlanDetection, VlansAreAdded) {
    tell_vlan(0);
    tell_vlan(4095);
    tell_vlan(7);
    byte_string expected = bitmap_with(0, 0x81);
    expected[511] = 0x80;
    EXPECT_EQ(detected(), expected);
}

TEST(VlanDetection, BitmapIsNotReadWhenOneVlanIsAdded) {
    tell_vlans(vlan_record(2, byte_string(512, 0xFF), 8));
    EXPECT_EQ(detected(), bitmap_with(1, 0x01));
}

TEST(VlanDetection, MinusOneReplacesTheWholeBitmap) {
    tell_vlan(100);
    byte_string bitmap(512);
    for (size_t i = 0; i < bitmap.size(); i++)
        bitmap[i] = static_cast<uint8_t>(i * 7);
    tell_vlans(vlan_record(2, bitmap, -1));
    EXPECT_EQ(detected(), bitmap);
}

TEST(VlanDetection, VlansOutsideTheBitmapAreIgnoredSilently) {
    log_capture log;
    for (const int32_t vlan : {4096, 4097, 65535, INT32_MAX, -2, -100, INT32_MIN})
        tell_vlan(vlan);
    EXPECT_EQ(detected(), byte_string(512, 0));
    EXPECT_EQ(log.lines(), lines());
}

TEST(VlanDetection, RecordOf517BytesIsDroppedAndLogged) {
    byte_string record = vlan_record(2, byte_string(512, 0), 100);
    record.pop_back();
    log_capture log;
    tell_vlans(record);
    EXPECT_EQ(detected(), byte_string(512, 0));
    EXPECT_EQ(log.lines(), lines{"vre_handle_vlan_detected_info: Insufficient data len [517] received for event[43]"});
}

TEST(VlanDetection, LengthIsTestedBeforeTheNullPayload) {
    expect_line(3, "vre_handle_vlan_detected_info: Insufficient data len [-1] received for event[43]",
                [] { vre_handle_vlan_detected_info(VRE_AUTH_RECV, nullptr, -1); });
}

TEST(VlanDetection, NullPayloadIsIgnored) {
    log_capture log;
    vre_handle_vlan_detected_info(VRE_SENSOR_VLAN_DETECTED, nullptr, 518);
    EXPECT_EQ(log.lines(), lines());
}

TEST(VlanDetection, OtherTypesAreIgnored) {
    for (const int type : {0, 1, 3, 0x0200, 0xFFFF})
        tell_vlans(vlan_record(static_cast<uint16_t>(type), byte_string(512, 0xFF), -1));
    EXPECT_EQ(detected(), byte_string(512, 0));
}

TEST(VlanDetection, RecordLongerThan518BytesIsRead) {
    byte_string record = vlan_record(2, byte_string(512, 0), 3);
    record.push_back(0xFF);
    tell_vlans(record);
    EXPECT_EQ(detected(), bitmap_with(0, 0x08));
}

TEST(VlanDetection, AnyThreadMayAskForAVlan) {
    tell_vlan(0);
    tell_vlan(100);
    tell_vlan(4095);
    EXPECT_TRUE(vlan_detected(0));
    EXPECT_TRUE(vlan_detected(100));
    EXPECT_TRUE(vlan_detected(4095));
    EXPECT_FALSE(vlan_detected(1));
    EXPECT_FALSE(vlan_detected(99));
    EXPECT_FALSE(vlan_detected(4094));
}

TEST(VlanDetectionText, IsEmptyListWithoutVlans) {
    EXPECT_EQ(detected_text(), "VLAN IDs seen: ");
}

TEST(VlanDetectionText, NamesUntaggedTraffic) {
    tell_vlan(0);
    EXPECT_EQ(detected_text(), "VLAN IDs seen: Untagged");
}

TEST(VlanDetectionText, ListsVlansInAscendingOrder) {
    for (const int vlan : {4095, 10, 0, 1})
        tell_vlan(vlan);
    EXPECT_EQ(detected_text(), "VLAN IDs seen: Untagged,1,10,4095");
}

TEST(VlanDetectionText, BeginsWithACommaWithoutUntaggedTraffic) {
    tell_vlan(10);
    tell_vlan(5);
    EXPECT_EQ(detected_text(), "VLAN IDs seen: ,5,10");
}

TEST(VlanDetectionText, EndsBeforeTheFirstVlanThatDoesNotFit) {
    // 15 characters, then 5 for each VLAN: 22 of them make 125, and two more fit only as a short number.
    for (int vlan = 1000; vlan < 1100; vlan++)
        tell_vlan(vlan);
    std::string expected = "VLAN IDs seen: ";
    for (int vlan = 1000; vlan < 1022; vlan++)
        expected.append(",").append(std::to_string(vlan));
    ASSERT_EQ(expected.size(), 125U);
    EXPECT_EQ(detected_text(), expected);
}

TEST(VlanDetectionText, MayFillItsBufferButForTheNul) {
    // 15 characters, one VLAN of 2 and 22 of 5 make 127.
    tell_vlan(7);
    for (int vlan = 1000; vlan < 1023; vlan++)
        tell_vlan(vlan);
    EXPECT_EQ(detected_text().size(), 127U);
}

TEST(VlanDetectionText, DumpLogsNothing) {
    tell_vlan(0);
    log_capture log;
    dump_vlan_detected_info();
    EXPECT_EQ(log.lines(), lines());
}

// ---- VLAN gateway, VAP lookup

TEST(VlanGateway, ShortRecordIsLoggedAtLevel3) {
    expect_line(3, "handle_vlan_gateway_info: Insufficient data len [25] received for event[102]", [] {
        received_payload received(byte_string(25, 1));
        handle_vlan_gateway_info(VRE_VLAN_GATEWAY_INFO, received.data(), received.length());
    });
}

TEST(VlanGateway, RecordOf26BytesIsAccepted) {
    log_capture log;
    received_payload received(byte_string(26, 1));
    handle_vlan_gateway_info(VRE_VLAN_GATEWAY_INFO, received.data(), received.length());
    EXPECT_EQ(log.lines(), lines());
}

TEST(VapLookup, PassesTheFirstWordOfTheValue) {
    received_payload received(client_event().item(7, {0x01, 0x02, 0x03, 0x04, 0x05}));
    log_capture log;
    handle_add_or_lookup_vapinfo(VRE_USERSPACE_EVT, received.data(), received.length());
    EXPECT_EQ(looked_up, std::vector<int>{0x01020304});
    EXPECT_EQ(log.lines(), lines());
}

TEST(VapLookup, MissingBytesOfTheWordAreZero) {
    received_payload received(client_event().item(7, {0x01, 0x02}).item(13));
    handle_add_or_lookup_vapinfo(VRE_BW_EVENTS, received.data(), received.length());
    received_payload absent(client_event());
    handle_add_or_lookup_vapinfo(VRE_BW_EVENTS, absent.data(), absent.length());
    EXPECT_EQ(looked_up, (std::vector<int>{0x01020000, 0}));
}

TEST(VapLookup, FailureIsLoggedAtLevel3) {
    lookup_fails = true;
    expect_line(3, "handle_add_or_lookup_vapinfo: Vap lookup failed ", [] {
        received_payload received(client_event().u32(7, 1));
        handle_add_or_lookup_vapinfo(VRE_BW_EVENTS, received.data(), received.length());
    });
}

// ---- special events

namespace {

void handle_special(int e, const byte_string &payload) {
    received_payload received(payload);
    wl_handle_special_evt(static_cast<vre_iw_cmd_t>(e), received.data(), received.length());
}

/// Bytes 1, 2, 3 ...
byte_string counted(size_t size) {
    byte_string bytes(size);
    for (size_t i = 0; i < size; i++)
        bytes[i] = static_cast<uint8_t>(i + 1);
    return bytes;
}

/// The lines of the dispatcher after its first.
lines complaints(int e, size_t size) {
    log_capture log;
    handle_special(e, counted(size));
    lines all = log.lines();
    all.erase(all.begin());
    return all;
}

std::string too_short(int e, int length) {
    char line[128];
    std::snprintf(line, sizeof line, "wl_handle_special_evt: Insufficient data len [%d] received for event[%d]", length,
                  e);
    return line;
}

}  // namespace

TEST(SpecialEvents, AreLoggedAtLevel7WithNameAndLength) {
    expect_line(7, "wl_handle_special_evt: Handling Special Event VRE.ssid_profile_update len = 5",
                [] { handle_special(96, counted(5)); });
}

TEST(SpecialEvents, UnnamedAndUnknownIndicesAreLoggedWithoutAName) {
    for (const int e : {45, -1, 109, INT32_MAX}) {
        log_capture log;
        handle_special(e, counted(1));
        EXPECT_EQ(log.lines(), lines{"wl_handle_special_evt: Handling Special Event (null) len = 1"});
    }
}

TEST(SpecialEvents, Index96UpdatesTheProfile) {
    EXPECT_EQ(complaints(96, 5), lines());
    EXPECT_EQ(profile_updates, std::vector<byte_string>{counted(5)});
}

TEST(SpecialEvents, Index96Needs5Bytes) {
    EXPECT_EQ(complaints(96, 4), lines{too_short(96, 4)});
    EXPECT_TRUE(profile_updates.empty());
}

TEST(SpecialEvents, Index97DumpsTheClientCache) {
    EXPECT_EQ(complaints(97, 39), lines());
    EXPECT_EQ(dump_requests, std::vector<byte_string>{counted(39)});
}

TEST(SpecialEvents, Index97Needs39Bytes) {
    EXPECT_EQ(complaints(97, 38), lines{too_short(97, 38)});
    EXPECT_TRUE(dump_requests.empty());
}

TEST(SpecialEvents, Index98EnablesTheClientRecords) {
    EXPECT_EQ(complaints(98, 5), lines());
    EXPECT_EQ(complaints(98, 2), lines());
    EXPECT_EQ(complaints(98, 0), lines());
    EXPECT_EQ(enabled, (std::vector<int>{0x01020304, 0x01020000, 0}));
}

TEST(SpecialEvents, Index98FailureIsLoggedAtLevel3) {
    client_ts_result = -1;
    expect_line(3, "wl_handle_special_evt: Client TS Connection Error Logs did not initialize correctly",
                [] { handle_special(98, counted(4)); });
}

TEST(SpecialEvents, Index99DumpsTheConnectionErrors) {
    EXPECT_EQ(complaints(99, 38), lines());
    EXPECT_EQ(conn_err_dumps, std::vector<byte_string>{counted(38)});
}

TEST(SpecialEvents, Index99HasNoMinimumLength) {
    EXPECT_EQ(complaints(99, 6), lines());
    byte_string expected = counted(6);
    expected.resize(38, 0);
    EXPECT_EQ(conn_err_dumps, std::vector<byte_string>{expected});
}

TEST(SpecialEvents, Index99FailureIsLoggedAtLevel6) {
    client_ts_result = 1;
    expect_line(6, "wl_handle_special_evt: Client TS Connection Error Logs dump error!",
                [] { handle_special(99, counted(38)); });
}

TEST(SpecialEvents, Index101SetsTheSynchronisationParameters) {
    EXPECT_EQ(complaints(101, 2), lines());
    EXPECT_EQ(inter_ap_parameters, std::vector<byte_string>{counted(2)});
}

TEST(SpecialEvents, Index101Needs2Bytes) {
    EXPECT_EQ(complaints(101, 1), lines{too_short(101, 1)});
    EXPECT_TRUE(inter_ap_parameters.empty());
}

TEST(SpecialEvents, ShortRecordsAreLoggedAtLevel3) {
    for (const int e : {96, 97, 101})
        expect_line(3, too_short(e, 0), [e] { handle_special(e, {}); });
}

TEST(SpecialEvents, NegativeLengthIsTooShort) {
    log_capture log;
    wl_handle_special_evt(VRE_WL_SSID_PROFILE_UPDATE, nullptr, INT32_MIN);
    EXPECT_EQ(log.lines().back(), too_short(96, INT32_MIN));
}

TEST(SpecialEvents, Index106ClearsTheVapTable) {
    EXPECT_EQ(complaints(106, 0), lines());
    EXPECT_EQ(cache_clears, 1);
}

TEST(SpecialEvents, TheOthersDoNothing) {
    for (const int e : {100, 102, 103, 104, 105, 95, 107})
        EXPECT_EQ(complaints(e, 64), lines());
    EXPECT_TRUE(profile_updates.empty());
    EXPECT_TRUE(dump_requests.empty());
    EXPECT_TRUE(inter_ap_parameters.empty());
    EXPECT_TRUE(conn_err_dumps.empty());
    EXPECT_TRUE(enabled.empty());
    EXPECT_EQ(cache_clears, 0);
}

// ---- records

TEST(EventPayloads, RecordsHaveTheirSizesAndOffsets) {
    EXPECT_EQ(sizeof(vre_vlan_detected_info), 518U);
    EXPECT_EQ(sizeof(vre_profile_update_evt_info), 5U);
    EXPECT_EQ(sizeof(vre_client_info_dump_req_evt), 39U);
    EXPECT_EQ(sizeof(vre_client_ts_conn_err_log_dump), 38U);
    EXPECT_EQ(sizeof(vre_inter_ap_param), 2U);
    EXPECT_EQ(sizeof(vre_vg_evt_data), 26U);
    EXPECT_EQ(offsetof(vre_vlan_detected_info, vlans_detected_bitmap), 2U);
    EXPECT_EQ(offsetof(vre_vlan_detected_info, vlan), 514U);
    EXPECT_EQ(offsetof(vre_profile_update_evt_info, evt_flags), 4U);
    EXPECT_EQ(offsetof(vre_client_info_dump_req_evt, filename), 6U);
    EXPECT_EQ(offsetof(vre_client_info_dump_req_evt, evt_flags), 38U);
    EXPECT_EQ(offsetof(vre_vg_evt_data, gatewayMAC), 8U);
    EXPECT_EQ(offsetof(vre_vg_evt_data, tunnel_profile_id), 23U);
    EXPECT_EQ(offsetof(vre_vg_evt_data, is_nat_profile), 25U);
}
