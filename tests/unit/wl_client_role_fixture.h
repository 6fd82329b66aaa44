/// What the tests of client roles share: an SSID with rules and a role, the event that asks for it, and stand-ins for
/// the driver, bandwidth control, the VLAN, the device of the traffic module and the bus, which note what they are
/// told. A test executable links with --wrap for each of them, and for free.
#pragma once

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "wl_bw.h"
#include "wl_cl_info_fixture.h"
#include "wl_client_role_internal.h"
#include "wl_client_ts_sent.h"
#include "wl_dynamic_vlan.h"
#include "wl_evt_payloads.h"

/// What the neighbours of this code are told, in order.
inline std::vector<std::string> timeline;

inline int radio = 0;
inline byte_string asked_for;  // the client of the last question to the driver

inline int opens_that_fail = 0;
inline int device = -1;
inline int device_flags = 0;
inline int device_result = 0;
inline bool request_on_device = false;
inline unsigned long request_number = 0;
inline byte_string request;

struct limit {
    int event, len;
    const wl_evt_info_t *info;
};
inline std::vector<limit> limits;
inline std::vector<byte_string> limit_requests;  // their 45 bytes

struct vlan_call {
    uint32_t profile_id;
    byte_string mac;
    uint32_t vlan;
    int source;
    const wl_client_info *client;
    std::string ifname;
};
inline std::vector<vlan_call> vlans;

extern "C" [[gnu::used]] inline int __wrap_get_wl_client_radio(const uint8_t *mac) {
    asked_for.assign(mac, mac + 6);
    return radio;
}

extern "C" int __real_open(const char *path, int flags, mode_t mode);
extern "C" [[gnu::used]] inline int __wrap_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (std::string(path) != "/dev/app_visibility")
        return __real_open(path, flags, mode);
    timeline.push_back("open");
    if (opens_that_fail > 0) {
        opens_that_fail--;
        errno = ENOENT;
        return -1;
    }
    device_flags = flags;
    device = __real_open("/dev/null", flags, mode);
    return device;
}

extern "C" [[gnu::used]] inline int __wrap_ioctl(int fd, unsigned long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    const auto *const data = va_arg(arguments, const uint8_t *);
    va_end(arguments);
    timeline.push_back("request");
    request_on_device = fd == device;
    request_number = number;
    request.assign(data, data + 58);
    return device_result;
}

extern "C" void __real__Z12bw_set_limit12vre_iw_cmd_tP11wl_evt_infoi(vre_iw_cmd_t event, wl_evt_info_t *info, int len);
extern "C" [[gnu::used]] inline void
__wrap__Z12bw_set_limit12vre_iw_cmd_tP11wl_evt_infoi(vre_iw_cmd_t event, wl_evt_info_t *info, int len) {
    timeline.push_back("limit");
    limits.push_back({event, len, info});
    __real__Z12bw_set_limit12vre_iw_cmd_tP11wl_evt_infoi(event, info, len);
}

extern "C" [[gnu::used]] inline void __wrap__Z14__bw_set_limitP12bw_rule_info(const bw_rule_info *rule) {
    const auto *const bytes = reinterpret_cast<const uint8_t *>(rule);
    limit_requests.emplace_back(bytes, bytes + 45);
}

extern "C" [[gnu::used]] inline void
__wrap__Z28call_handle_dynamimc_vlan_shjPKhjhP14wl_client_infoPKc(uint32_t profile_id, const uint8_t *mac,
                                                                  uint32_t vlan, uint8_t source, wl_client_info *client,
                                                                  const char *ifname) {
    timeline.push_back("vlan");
    vlans.push_back(
        {profile_id, byte_string(mac, mac + 6), vlan, source, client, ifname != nullptr ? ifname : "(null)"});
}

constexpr int LENGTH = 77;  // of the event, passed on
inline const byte_string BSSID = {2, 0, 0, 0, 1, 0xF0};
inline const std::string SET = "handle_client_role_set: ";

/// Bytes of a text in a field of zeros.
inline byte_string field(const std::string &text, size_t size) {
    byte_string bytes = text_bytes(text);
    bytes.resize(size);
    return bytes;
}

inline event_payload bytes_of_role(uint32_t id, uint32_t vendor, uint32_t attribute, uint8_t method,
                                   const std::string &name, uint8_t flags) {
    return event_payload()
        .bytes(big_endian_bytes(id, 4))
        .bytes(big_endian_bytes(vendor, 4))
        .bytes(big_endian_bytes(attribute, 4))
        .bytes({method})
        .bytes(field(name, 33))
        .bytes({flags});
}

inline byte_string bytes_of_debug(const std::string &name, uint32_t id, uint8_t method, uint8_t looked_up,
                                  uint8_t match, uint8_t mapped) {
    return event_payload()
        .bytes(field(name, 33))
        .bytes(big_endian_bytes(id, 4))
        .bytes({method, looked_up, match, mapped})
        .bytes();
}

inline byte_string applied_role(const byte_string &debug_bytes) {
    return event_payload()
        .header(ALICE, 1)
        .text(1, "net")
        .item(2, BSSID)
        .u32(5, 104)
        .u16(6, 44)
        .item(7, debug_bytes)
        .bytes();
}

inline byte_string cl_role(const std::string &role, uint8_t inherits) {
    return event_payload()
        .bytes(field("02:00:00:00:00:0A", 20))
        .bytes(field(role, 40))
        .bytes(big_endian_bytes(1, 4))
        .bytes({inherits})
        .bytes();
}

/// Profile 1, the SSID "net", whose rules give the role 100, "staff", to that name from RADIUS and to the
/// organisational unit "crew".
class ClientRole : public ClientCache {
protected:
    void SetUp() override {
        ClientCache::SetUp();
        on_send = [] { timeline.push_back("event " + std::to_string(sent.back().event)); };
        begin();
    }

    void begin() {
        start_again();
        timeline.clear();
        sent.clear();
        send_results.clear();
        limits.clear();
        limit_requests.clear();
        vlans.clear();
        request.clear();
        radio = 0;
        opens_that_fail = device_result = 0;
        device = -1;
        ssid = add_profile(1);
        ssid->ap_vlan = 10;
        ssid->per_user_bw_down_limit = 1000;
        ssid->per_user_bw_up_limit = 2000;
        staff = add_profile(100, "staff", true);
        staff->ap_vlan = 20;
        staff->per_user_bw_down_limit = 3000;
        staff->per_user_bw_up_limit = 4000;
        add_rule(RDP_METHOD_RADIUS, MATCH_EXACT, nullptr);
        add_rule(RDP_METHOD_GOOGLE_OU, MATCH_EQUALS, "crew");

        std::copy(ALICE.begin(), ALICE.end(), mac);
        std::copy(BSSID.begin(), BSSID.end(), bssid);
        info = {};
        info.cl_mac = mac;
        info.profile_id = 1;
        info.ssid = net;
        info.ssid_len = 3;
        info.bssid = bssid;
        info.name = ath0;
        info.name_len = 4;
        role = {};
        role.rdp_method = RDP_METHOD_RADIUS;
        role.vendor_id = 9;
        role.attr_id = 26;
        std::strcpy(role.client_role, "staff");
    }

    void add_rule(uint8_t method, uint8_t match, const char *text) {
        char copy[16] = "";
        role_derivation_rule rule{};
        rule.rdp_method = method;
        rule.vendor_id = 9;
        rule.attribute_id = 26;
        rule.match_type = match;
        if (text != nullptr)
            rule.match_text = std::strcpy(copy, text);
        if (list_insert_tail(&rule.role_ids, reinterpret_cast<void *>(uintptr_t{100})) == nullptr ||
            add_role_derivation_rule(ssid, &rule) == nullptr)
            std::abort();
        list_free_without_payload_freeing(&rule.role_ids);
    }

    void set() {
        handle_client_role_set(VRE_HOSTAPD_EVENT, &info, LENGTH, &role);
    }

    void clear() {
        handle_client_role_clear(VRE_HOSTAPD_EVENT, &info, LENGTH);
    }

    /// The event says an organisational unit instead of a role.
    void by_ou(const std::string &unit) {
        role = {};
        role.rdp_method = RDP_METHOD_GOOGLE_OU;
        value.reset(new uint8_t[unit.size()]);
        std::copy(unit.begin(), unit.end(), value.get());
        info.subinfo_value = value.get();
        info.subinfo_value_len = static_cast<uint16_t>(unit.size());
    }

    /// The event says the id of a role instead of its name.
    void by_id(uint32_t id) {
        role = {};
        role.rdp_method = RDP_METHOD_AUTH_FAIL;
        role.role_id = id;
    }

    wl_client_info *alice() {
        return find(ssid, ALICE);
    }

    lines set_lines(int level) {
        log_capture log(level);
        set();
        return log.lines();
    }

    /// Expects that setting the role logs a line at its level and not below.
    void expect_set_logs(
        int level, const std::string &line, const std::function<void()> &arrange = [] {}) {
        expect_logged(level, line, [&] {
            const int captured = debug;
            debug = 0;
            begin();
            arrange();
            debug = captured;
            set();
        });
    }

    void expect_nothing_done() {
        EXPECT_EQ(timeline, lines{});
    }

    ssid_profile_info *ssid = nullptr;
    ssid_profile_info *staff = nullptr;
    uint8_t mac[6];
    uint8_t bssid[6];
    char net[33] = "net";
    char ath0[16] = "ath0";
    std::unique_ptr<uint8_t[]> value;
    wl_evt_info_t info{};
    role_info role{};
};
