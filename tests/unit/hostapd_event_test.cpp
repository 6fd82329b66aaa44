// The relay of what the authenticator says: which handler gets an event, and with what. The handlers are watched
// through the linker.
#include "hostapd_event.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "event_payload.h"
#include "log_capture.h"
#include "wl_client_role.h"
#include "wl_common.h"
#include "wl_dynamic_vlan.h"
#include "wl_evt_payloads.h"

namespace {

struct call {
    std::string handler;
    int event;
    int length;
    byte_string mac;
    uint32_t profile_id;
    bool has_value;
    byte_string value;
    byte_string role;  // its 46 bytes
};

std::vector<call> calls;

void note(const char *handler, int event, const wl_evt_info_t *info, int length, const role_info *role = nullptr) {
    call call{handler, event, length, byte_string(info->cl_mac, info->cl_mac + 6), info->profile_id, false, {}, {}};
    call.has_value = info->subinfo_value != nullptr;
    if (call.has_value)
        call.value.assign(info->subinfo_value, info->subinfo_value + info->subinfo_value_len);
    if (role != nullptr) {
        call.role.resize(sizeof *role);
        std::memcpy(call.role.data(), role, sizeof *role);
    }
    calls.push_back(call);
}

}  // namespace

extern "C" {

void __wrap__Z23handle_vre_dynamic_vlan12vre_iw_cmd_tP11wl_evt_infoi(vre_iw_cmd_t event, wl_evt_info_t *info, int len) {
    note("vlan", event, info, len);
}

void __wrap__Z22handle_client_role_set12vre_iw_cmd_tP11wl_evt_infoiP9role_info(vre_iw_cmd_t event, wl_evt_info_t *info,
                                                                               int len, role_info *role) {
    note("set", event, info, len, role);
}

void __wrap__Z24handle_client_role_clear12vre_iw_cmd_tP11wl_evt_infoi(vre_iw_cmd_t event, wl_evt_info_t *info,
                                                                      int len) {
    note("clear", event, info, len);
}
}

namespace {

constexpr uint32_t INFO = 5;
constexpr uint32_t SUB = 6;
constexpr uint32_t VALUE = 7;
const byte_string CLIENT = {0x02, 0x00, 0x00, 0x00, 0x00, 0x0A};

class HostapdEvent : public testing::Test {
protected:
    HostapdEvent() {
        calls.clear();
    }

    static event_payload of_client() {
        return event_payload().header(CLIENT, 7);
    }

    static void receive(const event_payload &payload) {
        received_payload received(payload);
        handle_vre_hostapd_event(VRE_HOSTAPD_EVENT, received.data(), received.length());
    }

    static void receive(uint16_t sub, const byte_string &value) {
        receive(of_client().u16(SUB, sub).item(VALUE, value));
    }

    static std::vector<std::string> handlers() {
        std::vector<std::string> names;
        for (const call &call : calls)
            names.push_back(call.handler);
        return names;
    }
};

using names = std::vector<std::string>;

/// A role's 46 bytes with every byte another.
byte_string some_role() {
    byte_string role;
    for (uint8_t i = 0; i < 46; i++)
        role.push_back(static_cast<uint8_t>(i + 1));
    return role;
}

TEST_F(HostapdEvent, EverySubCodeHasItsHandlerOrNone) {
    for (unsigned sub = 0; sub < 0x10000; sub++) {
        calls.clear();
        receive(static_cast<uint16_t>(sub), some_role());
        names expected;
        if (sub == 39)
            expected = {"vlan"};
        else if (sub == 42 || sub == 46)
            expected = {"set"};
        else if (sub == 43 || sub == 47)
            expected = {"clear"};
        ASSERT_EQ(handlers(), expected) << sub;
    }
}

TEST_F(HostapdEvent, AnUnknownSubCodeLeavesNoLine) {
    log_capture log;
    for (const uint16_t sub : {0, 38, 40, 41, 44, 45, 48, 0xFFFF})
        receive(sub, some_role());
    EXPECT_EQ(log.lines(), std::vector<std::string>());
}

TEST_F(HostapdEvent, AnEventWithoutSubCodeOrWithoutPayloadIsIgnored) {
    receive(of_client());
    receive(event_payload());
    handle_vre_hostapd_event(VRE_HOSTAPD_EVENT, nullptr, 0);
    EXPECT_EQ(handlers(), names());
}

TEST_F(HostapdEvent, TheInfoCodeDoesNotCount) {
    for (const uint32_t info : {0U, 1U, 104U, 0xFFFFFFFFU})
        receive(of_client().u32(INFO, info).u16(SUB, 43));
    EXPECT_EQ(handlers(), names(4, "clear"));
}

TEST_F(HostapdEvent, AVlanIsHandedOnAsTheEventHasIt) {
    receive(39, {0, 0, 0, 20});
    ASSERT_EQ(handlers(), names({"vlan"}));
    EXPECT_EQ(calls[0].event, 59);
    EXPECT_EQ(calls[0].length, 10 + 10 + 12);
    EXPECT_EQ(calls[0].mac, CLIENT);
    EXPECT_EQ(calls[0].profile_id, 7U);
    EXPECT_EQ(calls[0].value, byte_string({0, 0, 0, 20}));
}

TEST_F(HostapdEvent, AVlanEventWithoutValueIsHandedOnToo) {
    receive(of_client().u16(SUB, 39));
    ASSERT_EQ(handlers(), names({"vlan"}));
    EXPECT_FALSE(calls[0].has_value);
}

TEST_F(HostapdEvent, ARoleIsTheValue) {
    receive(42, some_role());
    ASSERT_EQ(handlers(), names({"set"}));
    EXPECT_EQ(calls[0].event, 59);
    EXPECT_EQ(calls[0].length, 10 + 10 + 8 + 46);
    EXPECT_EQ(calls[0].mac, CLIENT);
    EXPECT_EQ(calls[0].profile_id, 7U);
    EXPECT_EQ(calls[0].value, some_role());
    EXPECT_EQ(calls[0].role, some_role()) << "it is the handler that terminates the name";
}

TEST_F(HostapdEvent, TheFieldsOfARoleAreBigEndian) {
    byte_string value(33, 0);
    value[0] = 'R';
    for (const auto &[number, width] : {std::pair{14179U, 4}, {1U, 4}, {1U, 1}, {0x01020304U, 4}})
        for (const uint8_t byte : big_endian_bytes(number, width))
            value.push_back(byte);
    ASSERT_EQ(value.size(), 46U);
    receive(42, value);
    ASSERT_EQ(handlers(), names({"set"}));
    role_info role;
    std::memcpy(&role, calls[0].role.data(), sizeof role);
    EXPECT_STREQ(role.client_role, "R");
    EXPECT_EQ(role.vendor_id, 14179U);
    EXPECT_EQ(role.attr_id, 1U);
    EXPECT_EQ(role.rdp_method, 1);
    EXPECT_EQ(role.role_id, 0x01020304U);
}

TEST_F(HostapdEvent, AShortRoleIsFilledUpWithZeros) {
    for (size_t size = 0; size < 46; size++) {
        calls.clear();
        const byte_string all = some_role();
        const byte_string value(all.begin(), all.begin() + static_cast<long>(size));
        receive(42, value);
        ASSERT_EQ(handlers(), names({"set"})) << size;
        byte_string expected = value;
        expected.resize(46);
        EXPECT_EQ(calls[0].role, expected) << size;
    }
}

TEST_F(HostapdEvent, OfALongerRoleTheFirst46BytesCount) {
    byte_string value = some_role();
    value.resize(200, 0xEE);
    receive(42, value);
    ASSERT_EQ(handlers(), names({"set"}));
    EXPECT_EQ(calls[0].role[45], 46);
}

TEST_F(HostapdEvent, ARoleEventWithoutValueIsIgnored) {
    log_capture log;
    receive(of_client().u16(SUB, 42));
    EXPECT_EQ(handlers(), names());
    EXPECT_EQ(log.lines(), std::vector<std::string>());
}

TEST_F(HostapdEvent, AnOrganisationalUnitTravelsAsTheValue) {
    receive(46, text_bytes("/Staff"));
    ASSERT_EQ(handlers(), names({"set"}));
    EXPECT_EQ(calls[0].value, text_bytes("/Staff"));
    byte_string role(46);
    role[41] = 2;
    EXPECT_EQ(calls[0].role, role);
}

TEST_F(HostapdEvent, AShortOrAbsentOrganisationalUnitIsTheHandlersToJudge) {
    receive(46, {'x'});
    receive(46, {});
    receive(of_client().u16(SUB, 46));
    ASSERT_EQ(handlers(), names({"set", "set", "set"}));
    EXPECT_EQ(calls[0].value, byte_string({'x'}));
    EXPECT_EQ(calls[1].value, byte_string());
    EXPECT_FALSE(calls[2].has_value);
}

TEST_F(HostapdEvent, BothWaysToClearARoleNeedNoValue) {
    receive(of_client().u16(SUB, 43));
    receive(of_client().u16(SUB, 47));
    ASSERT_EQ(handlers(), names({"clear", "clear"}));
    EXPECT_EQ(calls[1].event, 59);
    EXPECT_EQ(calls[1].length, 20);
    EXPECT_EQ(calls[1].mac, CLIENT);
    EXPECT_EQ(calls[1].profile_id, 7U);
}

TEST_F(HostapdEvent, TheLastSubCodeAndValueCount) {
    receive(of_client().u16(SUB, 39).item(VALUE, {1}).u16(SUB, 46).item(VALUE, {'o', 'u'}));
    ASSERT_EQ(handlers(), names({"set"}));
    EXPECT_EQ(calls[0].value, byte_string({'o', 'u'}));
}

}  // namespace
