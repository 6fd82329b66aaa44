// Roles set and cleared: each step, what the driver, bandwidth control, the device and the bus are told and in which
// order, and what stays in the cache.
#include "wl_client_role_internal.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "wl_bw.h"
#include "wl_cl_info_fixture.h"
#include "wl_client_ts_sent.h"
#include "wl_dynamic_vlan.h"
#include "wl_evt_payloads.h"

namespace {

/// What the neighbours of this code are told, in order.
std::vector<std::string> timeline;

int radio = 0;
byte_string asked_for;  // the client of the last question to the driver

int opens_that_fail = 0;
int device = -1;
int device_flags = 0;
int device_result = 0;
bool request_on_device = false;
unsigned long request_number = 0;
byte_string request;

struct limit {
    int event, len;
    const wl_evt_info_t *info;
};
std::vector<limit> limits;
std::vector<byte_string> limit_requests;  // their 45 bytes

struct vlan_call {
    uint32_t profile_id;
    byte_string mac;
    uint32_t vlan;
    int source;
    const wl_client_info *client;
    std::string ifname;
};
std::vector<vlan_call> vlans;

}  // namespace

extern "C" [[gnu::used]] int __wrap_get_wl_client_radio(const uint8_t *mac) {
    asked_for.assign(mac, mac + 6);
    return radio;
}

extern "C" int __real_open(const char *path, int flags, mode_t mode);
extern "C" [[gnu::used]] int __wrap_open(const char *path, int flags, ...) {
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

extern "C" [[gnu::used]] int __wrap_ioctl(int fd, unsigned long number, ...) {
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

extern "C" [[gnu::used]] void __real__Z12bw_set_limit12vre_iw_cmd_tP11wl_evt_infoi(vre_iw_cmd_t event,
                                                                                   wl_evt_info_t *info, int len);
extern "C" [[gnu::used]] void __wrap__Z12bw_set_limit12vre_iw_cmd_tP11wl_evt_infoi(vre_iw_cmd_t event,
                                                                                   wl_evt_info_t *info, int len) {
    timeline.push_back("limit");
    limits.push_back({event, len, info});
    __real__Z12bw_set_limit12vre_iw_cmd_tP11wl_evt_infoi(event, info, len);
}

extern "C" [[gnu::used]] void __wrap__Z14__bw_set_limitP12bw_rule_info(const bw_rule_info *rule) {
    const auto *const bytes = reinterpret_cast<const uint8_t *>(rule);
    limit_requests.emplace_back(bytes, bytes + 45);
}

extern "C" [[gnu::used]] void
__wrap__Z28call_handle_dynamimc_vlan_shjPKhjhP14wl_client_infoPKc(uint32_t profile_id, const uint8_t *mac,
                                                                  uint32_t vlan, uint8_t source, wl_client_info *client,
                                                                  const char *ifname) {
    timeline.push_back("vlan");
    vlans.push_back(
        {profile_id, byte_string(mac, mac + 6), vlan, source, client, ifname != nullptr ? ifname : "(null)"});
}

namespace {

constexpr int LENGTH = 77;  // of the event, passed on
const byte_string BSSID = {2, 0, 0, 0, 1, 0xF0};
const std::string SET = "handle_client_role_set: ";

/// Bytes of a text in a field of zeros.
byte_string field(const std::string &text, size_t size) {
    byte_string bytes = text_bytes(text);
    bytes.resize(size);
    return bytes;
}

event_payload bytes_of_role(uint32_t id, uint32_t vendor, uint32_t attribute, uint8_t method, const std::string &name,
                            uint8_t flags) {
    return event_payload()
        .bytes(big_endian_bytes(id, 4))
        .bytes(big_endian_bytes(vendor, 4))
        .bytes(big_endian_bytes(attribute, 4))
        .bytes({method})
        .bytes(field(name, 33))
        .bytes({flags});
}

byte_string bytes_of_debug(const std::string &name, uint32_t id, uint8_t method, uint8_t looked_up, uint8_t match,
                           uint8_t mapped) {
    return event_payload()
        .bytes(field(name, 33))
        .bytes(big_endian_bytes(id, 4))
        .bytes({method, looked_up, match, mapped})
        .bytes();
}

byte_string applied_role(const byte_string &debug_bytes) {
    return event_payload()
        .header(ALICE, 1)
        .text(1, "net")
        .item(2, BSSID)
        .u32(5, 104)
        .u16(6, 44)
        .item(7, debug_bytes)
        .bytes();
}

byte_string cl_role(const std::string &role, uint8_t inherits) {
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

// Who the event is about.

TEST_F(ClientRole, SettingTellsProfileRoleAndClient) {
    expect_set_logs(7, SET + "Profile ID 1 Client Role staff mac 02:00:00:00:00:0A");
}

TEST_F(ClientRole, AnUnknownProfileIsAnErrorAndNothingIsDone) {
    expect_set_logs(3, SET + "SSID profile structure not found for profile id[5]", [&] { info.profile_id = 5; });
    expect_nothing_done();
}

TEST_F(ClientRole, AnUnknownProfileIsFoundOutBeforeTheDriverIsAsked) {
    asked_for.clear();
    info.profile_id = 5;
    set();
    EXPECT_EQ(asked_for, byte_string{});
}

TEST_F(ClientRole, AClientThatTheDriverDoesNotKnowGetsNoRole) {
    expect_set_logs(3, SET + "Client 02:00:00:00:00:0A entry not found in driver, not applying role",
                    [&] { radio = -1; });
    EXPECT_EQ(asked_for, ALICE);
    expect_nothing_done();
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(ClientRole, AnyRadioWillDo) {
    for (const int any : {0, 1, 7}) {
        begin();
        radio = any;
        set();
        EXPECT_NE(alice(), nullptr);
    }
}

TEST_F(ClientRole, ANewClientIsAddedToTheCacheOfTheSsid) {
    set();
    ASSERT_NE(alice(), nullptr);
    EXPECT_EQ(alice()->ssid, ssid);
    EXPECT_EQ(alice()->is_active, 0);
    EXPECT_EQ(ssid->cl_info_hash.entry_count, 1U);
}

TEST_F(ClientRole, ANewClientIsAnError) {
    expect_set_logs(3, SET + "client 02:00:00:00:00:0A entry not found in ssid profile [1] creating new one");
}

TEST_F(ClientRole, AKnownClientIsUsed) {
    const wl_client_info *const known = add_client(ssid, ALICE);
    const lines all = set_lines(6);
    EXPECT_EQ(alice(), known);
    EXPECT_EQ(alice()->role_info.role_id, 100U);
    for (const std::string &line : all)
        EXPECT_EQ(line.find("creating new one"), std::string::npos);
}

TEST_F(ClientRole, TheMethodIsToldForNewAndKnownClients) {
    expect_set_logs(7, SET + "Client added successfully [Radius]");
    expect_set_logs(7, SET + "Client added successfully [Google OU]", [&] { by_ou("crew"); });
    expect_set_logs(7, SET + "Client added successfully [Secondary Auth]",
                    [&] { add_client(ssid, ALICE), by_id(100); });
    expect_set_logs(7, SET + "Client added successfully [Unknown]", [&] { role.rdp_method = 9; });
}

TEST_F(ClientRole, WithoutMemoryForTheClientNothingIsDone) {
    for (const char *const function : {"malloc", "calloc"}) {
        begin();
        fail_nth_call(function, 1);
        set();
        EXPECT_EQ(faults_fired(function), 1);
        expect_nothing_done();
        EXPECT_EQ(alice(), nullptr);
    }
}

TEST_F(ClientRole, ARoleProfileIsNoSsidToJoin) {
    info.profile_id = 100;
    set();
    expect_nothing_done();
    EXPECT_EQ(staff->cl_info_hash.entry_count, 0U);
}

TEST_F(ClientRole, TheClientKeepsWhatTheAuthenticatorSaid) {
    role.rdp_method = 9;
    std::strcpy(role.client_role, "nobody");
    set();
    EXPECT_EQ(alice()->role_info.rdp_method, 9);
    EXPECT_EQ(alice()->role_info.vendor_id, 9U);
    EXPECT_EQ(alice()->role_info.attr_id, 26U);
    EXPECT_STREQ(alice()->role_info.client_role, "nobody");
}

TEST_F(ClientRole, ANameWithoutNulIsCut) {
    std::memset(role.client_role, 'x', sizeof role.client_role);
    EXPECT_TRUE(
        holds(set_lines(7), SET + "Profile ID 1 Client Role " + std::string(32, 'x') + " mac 02:00:00:00:00:0A"));
    EXPECT_EQ(std::string(alice()->role_info.client_role), std::string(32, 'x'));
}

// Which role it is.

TEST_F(ClientRole, RadiusFindsARoleByItsName) {
    set();
    EXPECT_EQ(alice()->role_info.role_id, 100U);
    EXPECT_EQ(alice()->role_ssid, staff);
}

TEST_F(ClientRole, ARadiusNameWithoutARuleIsTheSsid) {
    std::strcpy(role.client_role, "nobody");
    set();
    EXPECT_EQ(alice()->role_info.role_id, 1U);
    EXPECT_EQ(alice()->role_ssid, ssid);
}

TEST_F(ClientRole, AnOrganisationalUnitFindsARole) {
    by_ou("crew");
    set();
    EXPECT_EQ(alice()->role_ssid, staff);
    EXPECT_STREQ(alice()->google_ou, "crew");
    EXPECT_STREQ(alice()->role_info.client_role, "");
}

TEST_F(ClientRole, AnOrganisationalUnitIsToldAsAnError) {
    expect_set_logs(3, SET + "GAUTH: Google OU [crew] received", [&] { by_ou("crew"); });
}

TEST_F(ClientRole, ANewOrganisationalUnitReplacesTheOldOne) {
    by_ou("crew");
    set();
    const release_watch old = {{{alice()->google_ou, 1}}, {}};
    by_ou("gang");
    wiped_at_release(old, [&] { set(); });
    EXPECT_STREQ(alice()->google_ou, "gang");
    EXPECT_EQ(alice()->role_ssid, ssid);
}

TEST_F(ClientRole, AShortOrganisationalUnitIsTheSsid) {
    for (const std::string unit : {"", "c"}) {
        expect_set_logs(3, SET + "OU not received, set SSID role", [&] { by_ou(unit); });
        EXPECT_EQ(alice()->role_ssid, ssid);
        EXPECT_EQ(alice()->google_ou, nullptr);
        EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("net", 1, 2, 0, 0, 1)));
    }
}

TEST_F(ClientRole, AMissingOrganisationalUnitIsTheSsidAndKeepsTheOldOne) {
    by_ou("crew");
    set();
    info.subinfo_value = nullptr;
    info.subinfo_value_len = 0;
    EXPECT_TRUE(holds(set_lines(3), SET + "OU not received, set SSID role"));
    EXPECT_EQ(alice()->role_ssid, ssid);
    EXPECT_STREQ(alice()->google_ou, "crew");
}

TEST_F(ClientRole, TwoBytesAreAnOrganisationalUnit) {
    by_ou("cr");
    set();
    EXPECT_STREQ(alice()->google_ou, "cr");
}

TEST_F(ClientRole, WithoutMemoryForTheOrganisationalUnitItIsTheSsid) {
    add_client(ssid, ALICE);
    by_ou("crew");
    fail_nth_call("calloc", 1);
    set();
    EXPECT_EQ(faults_fired("calloc"), 1);
    EXPECT_EQ(alice()->role_ssid, ssid);
    EXPECT_EQ(alice()->google_ou, nullptr);
}

TEST_F(ClientRole, AnIdFindsItsRoleAndGivesItsName) {
    by_id(100);
    set();
    EXPECT_EQ(alice()->role_ssid, staff);
    EXPECT_STREQ(alice()->role_info.client_role, "staff");
    EXPECT_STREQ(role.client_role, "staff");
}

TEST_F(ClientRole, AnIdFindsAnyProfile) {
    by_id(1);
    set();
    EXPECT_EQ(alice()->role_ssid, ssid);
    EXPECT_STREQ(alice()->role_info.client_role, "net");
}

TEST_F(ClientRole, TheIdZeroIsTheSsid) {
    expect_set_logs(3, SET + "Role ID received 0, set SSID role", [&] { by_id(0); });
    EXPECT_EQ(alice()->role_ssid, ssid);
}

TEST_F(ClientRole, AnUnknownIdDisconnectsTheClient) {
    expect_set_logs(3, SET + "Role profile not found for role id: 4294967295, deauthenticating client",
                    [&] { by_id(4294967295); });
    EXPECT_EQ(timeline, lines{"event 50"});
    EXPECT_EQ(sent.back().payload, event_payload().header(ALICE, 1).text(1, "net").bytes());
}

TEST_F(ClientRole, ADisconnectedClientStaysInTheCacheWithWhatItSaid) {
    by_id(300);
    role.vendor_id = 9;
    set();
    ASSERT_NE(alice(), nullptr);
    EXPECT_EQ(alice()->role_info.rdp_method, 3);
    EXPECT_EQ(alice()->role_info.vendor_id, 9U);
    EXPECT_EQ(alice()->role_info.role_id, 0U);
    EXPECT_EQ(alice()->role_ssid, nullptr);
}

TEST_F(ClientRole, OtherMethodsAreTheSsid) {
    for (const uint8_t method : {0, 4, 255}) {
        begin();
        role.rdp_method = method;
        set();
        EXPECT_EQ(alice()->role_ssid, ssid);
        EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("net", 1, method, 0, 0, 1)));
    }
}

// What a role brings.

TEST_F(ClientRole, ARoleWithAVlanBringsItsOwn) {
    staff->role_flags.ap_vlan_enabled = 1;
    set();
    ASSERT_EQ(vlans.size(), 1U);
    EXPECT_EQ(vlans[0].profile_id, 1U);
    EXPECT_EQ(vlans[0].mac, ALICE);
    EXPECT_EQ(vlans[0].vlan, 20U);
    EXPECT_EQ(vlans[0].source, 2);
    EXPECT_EQ(vlans[0].client, alice());
    EXPECT_EQ(vlans[0].ifname, "ath0");
}

TEST_F(ClientRole, ARoleWithoutAVlanBringsTheSsids) {
    set();
    ASSERT_EQ(vlans.size(), 1U);
    EXPECT_EQ(vlans[0].vlan, 10U);
    EXPECT_EQ(vlans[0].source, 1);
}

TEST_F(ClientRole, TheSsidBringsItsVlan) {
    role.rdp_method = 0;
    info.name = nullptr;
    set();
    ASSERT_EQ(vlans.size(), 1U);
    EXPECT_EQ(vlans[0].vlan, 10U);
    EXPECT_EQ(vlans[0].source, 1);
    EXPECT_EQ(vlans[0].client, alice());
    EXPECT_EQ(vlans[0].ifname, "(null)");
}

/// The byte of the client's flags.
int flags_of(const wl_client_info *client) {
    return reinterpret_cast<const uint8_t *>(&client->role_info)[46];
}

TEST_F(ClientRole, ARoleThatInheritsNothingSetsNoFlag) {
    set();
    EXPECT_EQ(flags_of(alice()), 0);
}

TEST_F(ClientRole, ARoleInheritsWhatItDoesNotHave) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0xE0);
}

TEST_F(ClientRole, ARoleInheritsNoFirewallWhenItHasOneOfEitherKind) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    staff->flags.firewall_enabled = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0x60);
    staff->flags.firewall_enabled = 0;
    staff->flags.app_firewall_enabled = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0x60);
}

TEST_F(ClientRole, ARoleInheritsNoPortalWhenItHasAQuotaOfItsOwn) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    staff->flags.webq_enabled = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0xA0);
}

TEST_F(ClientRole, ARoleInheritsNoLimitWhenItHasOne) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    staff->per_user_bw_enable = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0xC0);
}

TEST_F(ClientRole, ASecondRoleKeepsNothingOfTheFirst) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    staff->role_flags.inherit_ssid_settings_enabled = 0;
    set();
    EXPECT_EQ(flags_of(alice()), 0);
}

TEST_F(ClientRole, TheSsidKeepsNothingOfARole) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    role.rdp_method = 0;
    set();
    EXPECT_EQ(flags_of(alice()), 0);
    EXPECT_EQ(sent[2].payload, cl_role("--", 0));
}

/// The 45 bytes of a request for Alice on ath0.
byte_string limit_bytes(uint8_t priority, uint32_t up, uint32_t down) {
    return event_payload()
        .bytes(ALICE)
        .bytes({priority})
        .bytes(big_endian_bytes(24, 4))
        .bytes(big_endian_bytes(up, 4))
        .bytes(big_endian_bytes(down, 4))
        .bytes(big_endian_bytes(1, 4))
        .bytes(big_endian_bytes(0, 4))
        .bytes(field("ath0", 17))
        .bytes({0x60})
        .bytes();
}

TEST_F(ClientRole, ARolesLimitsAreAppliedWithPriorityOne) {
    ssid->per_user_bw_enable = 1;
    staff->per_user_bw_enable = 1;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(1, 4000, 3000)});
    EXPECT_EQ(alice()->cl_bw_info.down, 3000U);
    EXPECT_EQ(alice()->cl_bw_info.up, 4000U);
    EXPECT_EQ(alice()->cl_bw_info.pri, 1);
    ASSERT_EQ(limits.size(), 1U);
    EXPECT_EQ(limits[0].event, 24);
    EXPECT_EQ(limits[0].info, &info);
    EXPECT_EQ(limits[0].len, LENGTH);
}

TEST_F(ClientRole, ARolesLimitsGoBeforeInheritedOnes) {
    ssid->per_user_bw_enable = 1;
    staff->per_user_bw_enable = 1;
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(1, 4000, 3000)});
}

TEST_F(ClientRole, InheritedLimitsHaveTheRolesPriorityButAreKeptAsTheSsids) {
    ssid->per_user_bw_enable = 1;
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(1, 2000, 1000)});
    EXPECT_EQ(alice()->cl_bw_info.down, 1000U);
    EXPECT_EQ(alice()->cl_bw_info.up, 2000U);
    EXPECT_EQ(alice()->cl_bw_info.pri, 0);
}

TEST_F(ClientRole, ARoleWithoutLimitsThatInheritsNothingLeavesThemAlone) {
    ssid->per_user_bw_enable = 1;
    add_client(ssid, ALICE)->cl_bw_info = {5, 6, 7};
    set();
    EXPECT_EQ(limits.size(), 0U);
    EXPECT_EQ(alice()->cl_bw_info.down, 5U);
    EXPECT_EQ(alice()->cl_bw_info.up, 6U);
    EXPECT_EQ(alice()->cl_bw_info.pri, 7);
}

TEST_F(ClientRole, AnSsidWithoutLimitsLetsNoRoleHaveAny) {
    staff->per_user_bw_enable = 1;
    set();
    staff->per_user_bw_enable = 0;
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    role.rdp_method = 0;
    set();
    EXPECT_EQ(limits.size(), 0U);
}

TEST_F(ClientRole, TheSsidsLimitsAreAppliedWithPriorityZero) {
    ssid->per_user_bw_enable = 1;
    staff->per_user_bw_enable = 1;
    role.rdp_method = 0;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(0, 2000, 1000)});
    EXPECT_EQ(alice()->cl_bw_info.down, 1000U);
    EXPECT_EQ(alice()->cl_bw_info.up, 2000U);
    EXPECT_EQ(alice()->cl_bw_info.pri, 0);
    EXPECT_EQ(limits[0].event, 24);
    EXPECT_EQ(limits[0].len, LENGTH);
}

TEST_F(ClientRole, NoLimitIsAlsoALimit) {
    ssid->per_user_bw_enable = 1;
    ssid->per_user_bw_down_limit = 0xFFFFFFFF;
    ssid->per_user_bw_up_limit = 0x80000000;
    role.rdp_method = 0;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(0, 0x80000000, 0xFFFFFFFF)});
    EXPECT_EQ(alice()->cl_bw_info.down, 0xFFFFFFFF);
}

TEST_F(ClientRole, ARoleThatIsFoundIsToldAsCritical) {
    expect_set_logs(2, SET + "Role found for client :100 with Role { vlan[10] apply_ssid_firewall[0] "
                             "apply_ssid_portal_or_webq[0] apply_ssid_bw_limit[0] }");
    for (const int which : {0, 1, 2})
        expect_set_logs(2,
                        SET + "Role found for client :100 with Role { vlan[20] apply_ssid_firewall[" +
                            std::to_string(which == 0) + "] apply_ssid_portal_or_webq[" + std::to_string(which == 1) +
                            "] apply_ssid_bw_limit[" + std::to_string(which == 2) + "] }",
                        [&] {
                            staff->role_flags.ap_vlan_enabled = 1;
                            staff->role_flags.inherit_ssid_settings_enabled = 1;
                            staff->flags.firewall_enabled = which != 0;
                            staff->flags.webq_enabled = which != 1;
                            staff->per_user_bw_enable = which != 2;
                        });
}

TEST_F(ClientRole, ARoleThatIsNotFoundIsToldAsCritical) {
    expect_set_logs(2, SET + "Role Not found for client :1", [&] { role.rdp_method = 0; });
}

// What the neighbours are told.

TEST_F(ClientRole, LimitsThenVlanThenDeviceThenTheBus) {
    const lines order = {"limit", "vlan", "open", "request", "event 44", "event 59"};
    ssid->per_user_bw_enable = 1;
    staff->per_user_bw_enable = 1;
    set();
    EXPECT_EQ(timeline, order);
    timeline.clear();
    role.rdp_method = 0;
    set();
    EXPECT_EQ(timeline, order);
}

TEST_F(ClientRole, LinesComeInTheOrderOfTheSteps) {
    add_client(ssid, ALICE);
    EXPECT_EQ(set_lines(7),
              lines({SET + "Profile ID 1 Client Role staff mac 02:00:00:00:00:0A",
                     SET + "Client added successfully [Radius]", "get_role_id_by_role_name: rdp_method [Radius] ",
                     "get_role_id_by_role_name: role_info-> vendor_id[9] attribute_id[26]",
                     "get_role_id_by_role_name: rdp-> vendor_id[9] attribute_id[26]",
                     "get_role_id_by_role_name: Match type is Exact", "get_role_id_by_role_name: Role Ids : 100",
                     SET + "Role found for client :100 with Role { vlan[10] apply_ssid_firewall[0] "
                           "apply_ssid_portal_or_webq[0] apply_ssid_bw_limit[0] }",
                     "wl_send_cl_role: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - staff",
                     "wl_send_applied_role: Sending Role applied event successful"}));
}

TEST_F(ClientRole, TheDeviceIsAskedToAddTheRole) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    EXPECT_EQ(request, event_payload()
                           .bytes({1})
                           .bytes(ALICE)
                           .bytes(big_endian_bytes(1, 4))
                           .bytes(bytes_of_role(100, 9, 26, 1, "staff", 0xE0).bytes())
                           .bytes());
    EXPECT_EQ(request_number, 0x40046401U);
    EXPECT_TRUE(request_on_device);
}

TEST_F(ClientRole, TheDeviceIsAskedToAddTheSsidAsARole) {
    role.vendor_id = 0x01020304;
    role.attr_id = 0x05060708;
    set();
    EXPECT_EQ(request, event_payload()
                           .bytes({1})
                           .bytes(ALICE)
                           .bytes(big_endian_bytes(1, 4))
                           .bytes(bytes_of_role(1, 0x01020304, 0x05060708, 1, "staff", 0).bytes())
                           .bytes());
}

TEST_F(ClientRole, ADeviceThatRefusesChangesNothingElse) {
    device_result = -1;
    EXPECT_TRUE(holds(set_lines(3), "send_role_ioctl: ioctl_get_msg failed:-1"));
    EXPECT_EQ(timeline, lines({"vlan", "open", "request", "event 44", "event 59"}));
    EXPECT_EQ(alice()->role_ssid, staff);
}

TEST_F(ClientRole, TheBusIsToldTheRole) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].event, 44);
    EXPECT_EQ(sent[0].payload, cl_role("staff", 1));
    EXPECT_EQ(sent[1].event, 59);
    EXPECT_EQ(sent[1].payload, applied_role(bytes_of_debug("staff", 100, 1, 1, 1, 0)));
}

TEST_F(ClientRole, TheBusIsToldWhetherThePortalIsInherited) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    staff->flags.webq_enabled = 1;
    set();
    EXPECT_EQ(sent[0].payload, cl_role("staff", 0));
}

TEST_F(ClientRole, TheBusIsToldTwoDashesWithoutARole) {
    std::strcpy(role.client_role, "nobody");
    set();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].event, 44);
    EXPECT_EQ(sent[0].payload, cl_role("--", 0));
    EXPECT_EQ(sent[1].payload, applied_role(bytes_of_debug("net", 1, 1, 1, 0, 1)));
}

TEST_F(ClientRole, TheBusIsNotToldTheNameOfAProfileThatIsNoRole) {
    staff->flags.is_role_profile = 0;
    set();
    EXPECT_EQ(timeline, lines({"vlan", "open", "request", "event 59"}));
    EXPECT_EQ(sent[0].payload, applied_role(bytes_of_debug("staff", 100, 1, 1, 1, 0)));
}

TEST_F(ClientRole, TheBusIsToldHowTheRoleWasFound) {
    by_ou("crew");
    set();
    EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("staff", 100, 2, 1, 3, 0)));
    by_id(100);
    set();
    EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("staff", 100, 3, 0, 0, 0)));
    by_id(0);
    set();
    EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("net", 1, 3, 0, 0, 1)));
    by_id(1);
    set();
    EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("net", 1, 3, 0, 0, 1)));
}

TEST_F(ClientRole, WithoutAnSsidInTheEventTheProfilesIsTold) {
    info.ssid = nullptr;
    std::strcpy(ssid->ssid, "other");
    set();
    EXPECT_EQ(sent.back().payload, event_payload()
                                       .header(ALICE, 1)
                                       .text(1, "other")
                                       .item(2, BSSID)
                                       .u32(5, 104)
                                       .u16(6, 44)
                                       .item(7, bytes_of_debug("staff", 100, 1, 1, 1, 0))
                                       .bytes());
}

TEST_F(ClientRole, WithoutABssidInTheEventNoneIsTold) {
    info.bssid = nullptr;
    set();
    EXPECT_EQ(sent.back().payload, event_payload()
                                       .header(ALICE, 1)
                                       .text(1, "net")
                                       .u32(5, 104)
                                       .u16(6, 44)
                                       .item(7, bytes_of_debug("staff", 100, 1, 1, 1, 0))
                                       .bytes());
}

TEST_F(ClientRole, WhatDoesNotFitInTheEventIsLeftOut) {
    std::string name(2029, 'x');
    info.ssid = name.data();
    set();
    EXPECT_EQ(sent.back().payload, event_payload()
                                       .header(ALICE, 1)
                                       .item(2, BSSID)
                                       .u32(5, 104)
                                       .u16(6, 44)
                                       .item(7, bytes_of_debug("staff", 100, 1, 1, 1, 0))
                                       .bytes());
    name.pop_back();
    set();
    EXPECT_EQ(sent.back().payload, event_payload().header(ALICE, 1).text(1, name).bytes());
    EXPECT_EQ(sent.back().payload.size(), 2047U);
}

TEST_F(ClientRole, ASentRoleIsToldAtDebugLevel) {
    const std::string line = "wl_send_cl_role: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - ";
    expect_set_logs(7, line + "staff");
    expect_set_logs(7, line + "--", [&] { role.rdp_method = 0; });
}

TEST_F(ClientRole, ARoleThatNoProcessTookIsAnError) {
    for (const int result : {0, -1})
        expect_set_logs(3,
                        "wl_send_cl_role: FAILED: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - staff",
                        [&] { send_results = {result}; });
}

TEST_F(ClientRole, TheOutcomeOfAnAppliedRoleIsToldAtDebugLevel) {
    expect_set_logs(7, "wl_send_applied_role: Sending Role applied event successful");
    for (const int result : {0, -1})
        expect_set_logs(7, "wl_send_applied_role: Sending Role applied event failed", [&] {
            send_results = {1, result};
        });
}

TEST_F(ClientRole, AnyNumberOfReceiversIsASuccess) {
    send_results = {3, 2};
    const lines all = set_lines(7);
    EXPECT_TRUE(holds(all, "wl_send_cl_role: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - staff"));
    EXPECT_TRUE(holds(all, "wl_send_applied_role: Sending Role applied event successful"));
}

TEST_F(ClientRole, TheNameOfARoleIsPostedWithThirtyThreeBytesAtMost) {
    const std::string name(33, 'y');
    wl_send_cl_role(ALICE.data(), (name + "zzz").c_str(), 1, 1);
    EXPECT_EQ(sent.back().payload, cl_role(name, 1));
}

TEST_F(ClientRole, ANameOfThirtyThreeBytesNeedsNoNul) {
    char name[33];
    std::memset(name, 'y', sizeof name);
    log_capture log(7);
    wl_send_cl_role(ALICE.data(), name, 1, 0);
    EXPECT_EQ(sent.back().payload, cl_role(std::string(33, 'y'), 0));
    EXPECT_EQ(log.lines(), lines{"wl_send_cl_role: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - " +
                                 std::string(33, 'y')});
}

TEST_F(ClientRole, ADisconnectWithoutAnSsidIsTheHeadAlone) {
    info.ssid = nullptr;
    send_client_disconnect(&info);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].event, 50);
    EXPECT_EQ(sent[0].payload, event_payload().header(ALICE, 1).bytes());
}

TEST_F(ClientRole, ADisconnectHasAsMuchOfTheSsidAsTheEventSays) {
    info.ssid_len = 2;
    send_client_disconnect(&info);
    EXPECT_EQ(sent[0].payload, event_payload().header(ALICE, 1).item(1, text_bytes("net")).bytes());
}

TEST_F(ClientRole, AnSsidThatDoesNotFitInADisconnectIsLeftOut) {
    std::string name(2029, 'x');
    info.ssid = name.data();
    info.ssid_len = 2029;
    send_client_disconnect(&info);
    EXPECT_EQ(sent.back().payload, event_payload().header(ALICE, 1).bytes());
    name.pop_back();
    info.ssid_len = 2028;
    send_client_disconnect(&info);
    EXPECT_EQ(sent.back().payload, event_payload().header(ALICE, 1).text(1, name).bytes());
}

// The device.

TEST_F(ClientRole, TheDeviceIsTriedUntilItOpens) {
    opens_that_fail = 3;
    wl_client_info *const client = add_client(ssid, ALICE);
    log_capture log(7);
    EXPECT_EQ(send_role_ioctl(ssid, client, ADD_CLIENT_ROLE), 0);
    EXPECT_EQ(timeline, lines({"open", "open", "open", "open", "request"}));
    EXPECT_EQ(log.lines(), lines(3, "send_role_ioctl: Can't open device file: /dev/app_visibility"));
}

TEST_F(ClientRole, ADeviceThatDoesNotOpenIsToldAtDebugLevel) {
    opens_that_fail = 3;
    log_capture log(6);
    EXPECT_EQ(send_role_ioctl(ssid, add_client(ssid, ALICE), ADD_CLIENT_ROLE), 0);
    EXPECT_EQ(log.lines(), lines{});
}

TEST_F(ClientRole, TheDeviceIsOpenedForReadingAndClosed) {
    for (const int result : {0, -1}) {
        device_result = result;
        (void)send_role_ioctl(ssid, add_client(ssid, result == 0 ? ALICE : BOB), ADD_CLIENT_ROLE);
        EXPECT_EQ(device_flags & O_ACCMODE, O_RDONLY);
        EXPECT_NE(device_flags & O_CLOEXEC, 0);
        EXPECT_EQ(fcntl(device, F_GETFD), -1);
    }
}

TEST_F(ClientRole, ADeviceThatRefusesIsAnError) {
    wl_client_info *const client = add_client(ssid, ALICE);
    device_result = -1;
    for (const int level : {3, 2}) {
        log_capture log(level);
        EXPECT_EQ(send_role_ioctl(ssid, client, ADD_CLIENT_ROLE), -1);
        EXPECT_EQ(log.lines(), level == 3 ? lines{"send_role_ioctl: ioctl_get_msg failed:-1"} : lines{});
    }
}

TEST_F(ClientRole, APositiveAnswerOfTheDeviceIsASuccess) {
    device_result = 4;
    EXPECT_EQ(send_role_ioctl(ssid, add_client(ssid, ALICE), ADD_CLIENT_ROLE), 0);
}

TEST_F(ClientRole, WithContentAnalyticsADeletedRoleIsCleared) {
    wl_client_info *const client = add_client(ssid, ALICE);
    const auto action = [&](role_ioctl_action wanted) {
        EXPECT_EQ(send_role_ioctl(ssid, client, wanted), 0);
        return int{request[0]};
    };
    EXPECT_EQ(action(ADD_CLIENT_ROLE), 1);
    EXPECT_EQ(action(DELETE_CLIENT_ROLE), 2);
    EXPECT_EQ(action(CLEAR_ROLE_INFO), 3);
    ssid->flags.content_analytics_enabled = 1;
    EXPECT_EQ(action(ADD_CLIENT_ROLE), 1);
    EXPECT_EQ(action(DELETE_CLIENT_ROLE), 3);
    EXPECT_EQ(action(CLEAR_ROLE_INFO), 3);
}

TEST_F(ClientRole, TheRequestHasTheNameByItsBytes) {
    wl_client_info *const client = add_client(ssid, ALICE);
    std::memset(client->role_info.client_role, 'z', sizeof client->role_info.client_role);
    client->role_info.role_id = 0x0A0B0C0D;
    client->role_info.apply_ssid_portal_or_webq = 1;
    EXPECT_EQ(send_role_ioctl(ssid, client, CLEAR_ROLE_INFO), 0);
    EXPECT_EQ(request, event_payload()
                           .bytes({3})
                           .bytes(ALICE)
                           .bytes(big_endian_bytes(1, 4))
                           .bytes(bytes_of_role(0x0A0B0C0D, 0, 0, 0, std::string(33, 'z'), 0x40).bytes())
                           .bytes());
}

// Taking a role away.

TEST_F(ClientRole, ClearingTellsTheDeviceAndForgetsTheClient) {
    set();
    timeline.clear();
    clear();
    EXPECT_EQ(timeline, lines({"open", "request"}));
    EXPECT_EQ(request, event_payload()
                           .bytes({2})
                           .bytes(ALICE)
                           .bytes(big_endian_bytes(1, 4))
                           .bytes(bytes_of_role(100, 9, 26, 1, "staff", 0).bytes())
                           .bytes());
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(ClientRole, ClearingIsToldAtDebugLevel) {
    expect_logged(7, "handle_client_role_clear: Client deleted successfully", [&] {
        begin();
        add_client(ssid, ALICE);
        clear();
    });
}

TEST_F(ClientRole, ClearingForgetsAlsoAnActiveClientWithKeyAndLogin) {
    wl_client_info *const client = add_client(ssid, ALICE);
    client->is_active = 1;
    give_pmk(client);
    give_login(client);
    client->google_ou = strdup("crew");
    clear();
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(ClientRole, ClearingForgetsOneClientOnly) {
    add_client(ssid, ALICE);
    add_client(ssid, BOB);
    clear();
    EXPECT_EQ(alice(), nullptr);
    EXPECT_NE(find(ssid, BOB), nullptr);
}

TEST_F(ClientRole, ADeviceThatRefusesDoesNotKeepTheClient) {
    add_client(ssid, ALICE);
    device_result = -1;
    clear();
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(ClientRole, ClearingWithContentAnalyticsClears) {
    ssid->flags.content_analytics_enabled = 1;
    add_client(ssid, ALICE);
    clear();
    EXPECT_EQ(request[0], 3);
}

TEST_F(ClientRole, ClearingWhatIsNotThereDoesNothing) {
    for (const uint32_t id : {1, 5, 100}) {
        info.profile_id = id;
        log_capture log(7);
        clear();
        EXPECT_EQ(log.lines(), lines{}) << id;
    }
    expect_nothing_done();
}

TEST_F(ClientRole, AClearedClientCanComeAgain) {
    set();
    clear();
    set();
    EXPECT_EQ(alice()->role_ssid, staff);
}

}  // namespace
