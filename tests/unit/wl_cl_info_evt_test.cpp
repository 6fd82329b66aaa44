// "VRE.cl_info": every pair of codes, the payloads byte by byte, and what happens when memory is short.
#include <pthread.h>

#include "wl_cl_info_fixture.h"

/// Whether decoded events come without the address of their client, which no event of this index does.
static bool hides_client;

extern "C" {

void __real__Z15wl_get_evt_info12vre_iw_cmd_tP11wl_evt_infoPvi(vre_iw_cmd_t e, wl_evt_info_t *info, void *buf, int len);
void __wrap__Z15wl_get_evt_info12vre_iw_cmd_tP11wl_evt_infoPvi(vre_iw_cmd_t e, wl_evt_info_t *info, void *buf,
                                                               int len) {
    __real__Z15wl_get_evt_info12vre_iw_cmd_tP11wl_evt_infoPvi(e, info, buf, len);
    if (hides_client)
        info->cl_mac = nullptr;
}
}

namespace {

constexpr uint32_t PMK = 100;
constexpr uint32_t PORTAL = 101;
constexpr uint16_t ADD = 1;  // also the key of a full authentication
constexpr uint16_t ADD_OKC = 2;
constexpr uint16_t DEL_FULLAUTH = 3;
constexpr uint16_t DEL_OKC = 4;
constexpr uint16_t DEL_LOGIN = 2;

struct pmk_value {
    byte_string pmk = byte_string(32, 0x5C);
    uint32_t pmk_len = 32;
    std::string identity = "alice@example";
    int64_t claimed = -1;  // length of the identity; -1: its own

    byte_string bytes() const {
        event_payload value;
        value.bytes(pmk)
            .bytes(big_endian_bytes(pmk_len, 4))
            .bytes(big_endian_bytes(0x01020304, 4))  // expiration
            .bytes({0x19})
            .bytes(big_endian_bytes(0x05060708, 4))  // interval
            .bytes(big_endian_bytes(0x090A0B0C, 4))  // down
            .bytes(big_endian_bytes(0x0D0E0F10, 4))  // up
            .bytes(byte_string(46, 0xEE))            // role
            .bytes(big_endian_bytes(0x11121314, 4))  // VLAN
            .bytes(big_endian_bytes(claimed < 0 ? identity.size() : static_cast<uint64_t>(claimed), 4))
            .bytes(text_bytes(identity));
        return value.bytes();
    }
};

byte_string login_value() {
    byte_string ip = text_bytes("192.168.1.20");
    ip.resize(16);
    byte_string user = text_bytes("guest");
    user.resize(64);
    return event_payload()
        .bytes(ip)
        .bytes(big_endian_bytes(0x21222324, 4))  // expire
        .bytes(big_endian_bytes(0x25262728, 4))  // blackout
        .bytes(big_endian_bytes(0x292A2B2C, 4))  // login
        .bytes(big_endian_bytes(0xFFFFFFFF, 4))  // down
        .bytes(big_endian_bytes(0x2D2E2F30, 4))  // up
        .bytes(user)
        .bytes();
}

void receive_payload(const event_payload &payload) {
    received_payload received(payload);
    handle_client_info(VRE_CL_INFO, received.data(), received.length());
}

/// Receives an event about Alice on profile 1 that has no value.
void receive(uint32_t info_code, uint16_t subinfo_code, const byte_string &mac = ALICE, uint32_t profile_id = 1) {
    receive_payload(event_payload().header(mac, profile_id).u32(5, info_code).u16(6, subinfo_code));
}

void receive_value(uint32_t info_code, uint16_t subinfo_code, const byte_string &value, uint32_t profile_id = 1) {
    receive_payload(event_payload().header(ALICE, profile_id).u32(5, info_code).u16(6, subinfo_code).item(7, value));
}

void add_pmk(uint16_t subinfo_code = ADD, const pmk_value &value = {}) {
    receive_value(PMK, subinfo_code, value.bytes());
}

void add_login(const byte_string &value = login_value()) {
    receive_value(PORTAL, ADD, value);
}

wl_evt_info_t info_with_codes(uint32_t info_code, uint16_t subinfo_code) {
    static byte_string mac = ALICE;
    wl_evt_info_t info{};
    info.cl_mac = mac.data();
    info.profile_id = 1;
    info.info_code = info_code;
    info.subinfo_code = subinfo_code;
    return info;
}

class ClInfoEvent : public ClientCache {
protected:
    void SetUp() override {
        ClientCache::SetUp();
        hides_client = false;
        profile = add_profile(1);
    }

    /// Plays a scenario on a new profile.
    std::function<void()> anew(const std::function<void()> &scenario) {
        return [this, scenario] {
            start_again();
            profile = add_profile(1);
            scenario();
        };
    }

    wl_client_info *alice() const {
        return find(profile, ALICE);
    }

    const dot1x_pmk_cl_data *fullauth() const {
        return alice() != nullptr && alice()->hapd_cl_info != nullptr ? alice()->hapd_cl_info->pmk_fullauth : nullptr;
    }

    const dot1x_pmk_cl_data *okc() const {
        return alice() != nullptr && alice()->hapd_cl_info != nullptr ? alice()->hapd_cl_info->pmk_okc : nullptr;
    }

    const portal_cl_auth_info *login() const {
        return alice() != nullptr && alice()->portal_cl_info != nullptr ? alice()->portal_cl_info->portal_cl_auth_info
                                                                        : nullptr;
    }

    ssid_profile_info *profile = nullptr;
};

using Dispatch = ClInfoEvent;
using PmkAdd = ClInfoEvent;
using PmkDelete = ClInfoEvent;
using PortalAdd = ClInfoEvent;
using PortalDelete = ClInfoEvent;

TEST_F(Dispatch, AnotherEventIsRefused) {
    received_payload payload(event_payload().header(ALICE, 1).u32(5, PMK).u16(6, ADD).item(7, pmk_value().bytes()));
    expect_logged(3, "handle_client_info: Invalid event recevied[14] instead of VRE_CL_INFO",
                  [&] { handle_client_info(VRE_NODE_LEAVE, payload.data(), payload.length()); });
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(Dispatch, AbsentDataIsRefused) {
    expect_logged(3, "handle_client_info: Event data is NULL for event[65]",
                  [] { handle_client_info(VRE_CL_INFO, nullptr, 0); });
}

TEST_F(Dispatch, AnEventWithoutAClientIsRefused) {
    hides_client = true;
    expect_logged(3, "handle_client_info: Client mac null in event[65] for infocode[100] subinfo code[1]",
                  [] { add_pmk(); });
    EXPECT_EQ(lines_at_level(7, [] { add_pmk(); }).size(), 1U);
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
}

TEST_F(Dispatch, TellsWhatItReceives) {
    expect_logged(
        2,
        "handle_client_info: [VRE_CL_INFO] : Received VRE_CL_INFO event with infocode : 7 subinfocode : 65535 "
        "for client[02:00:00:00:00:0A]",
        [] { receive(7, 65535); });
}

TEST_F(Dispatch, OtherSubinfoCodesAreRefused) {
    for (const int code : {0, 5, 65535})
        expect_logged(
            3, "handle_client_info: Invalid subinfo code[" + std::to_string(code) + "] for info code[100] in event[65]",
            [code] { receive(PMK, static_cast<uint16_t>(code)); });
    for (const int code : {0, 3, 65535})
        expect_logged(
            3, "handle_client_info: Invalid subinfo code[" + std::to_string(code) + "] for info code[101] in event[65]",
            [code] { receive(PORTAL, static_cast<uint16_t>(code)); });
}

TEST_F(Dispatch, OtherInfoCodesAreRefused) {
    for (const uint32_t code : {0U, 99U, 102U, 0xFFFFFFFFU})
        expect_logged(3, "handle_client_info: Invalid info code in event VRE_CL_INFO", [code] { receive(code, ADD); });
    receive_value(102, ADD, pmk_value().bytes());
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(Dispatch, AnEventWithoutCodesIsRefused) {
    expect_logged(3, "handle_client_info: Invalid info code in event VRE_CL_INFO",
                  [] { receive_payload(event_payload().header(ALICE, 1)); });
}

TEST_F(Dispatch, AnUnknownProfileIsTold) {
    const byte_string key = pmk_value().bytes();
    const auto line = [](const std::string &function) {
        return function + ": SSID profile structure not found for profile id[-2]";
    };
    const uint32_t unknown = 0xFFFFFFFE;
    expect_logged(3, line("handle_cl_pmk_add_evt"), [&] { receive_value(PMK, ADD, key, unknown); });
    expect_logged(3, line("handle_cl_pmk_del_evt"), [&] { receive(PMK, DEL_OKC, ALICE, unknown); });
    expect_logged(3, line("handle_portal_cl_auth_add"), [&] { receive_value(PORTAL, ADD, login_value(), unknown); });
    expect_logged(3, line("handle_portal_cl_auth_del"), [&] { receive(PORTAL, DEL_LOGIN, ALICE, unknown); });
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
}

TEST_F(Dispatch, ANewClientIsTold) {
    const std::string rest = ": client [02:00:00:00:00:0A] entry not found in ssid profile [1] creating new one";
    expect_logged(3, "handle_cl_pmk_add_evt" + rest, anew([] { add_pmk(); }));
    expect_logged(3, "handle_portal_cl_auth_add" + rest, anew([] { add_login(); }));
}

TEST_F(Dispatch, AKnownClientIsNot) {
    add_client(profile, ALICE);
    const lines all = lines_at_level(7, [] {
        add_pmk();
        add_login();
    });
    EXPECT_EQ(all.size(), 2U) << "only that they were received";
}

TEST_F(Dispatch, ARoleTakesNoClient) {
    add_profile(2, "role", true);
    expect_logged(3, "handle_cl_pmk_add_evt: Could not create client info record for [02:00:00:00:00:0A]",
                  [] { receive_value(PMK, ADD, pmk_value().bytes(), 2); });
    expect_logged(3, "handle_portal_cl_auth_add: Could not create client info record for [clmac]",
                  [] { receive_value(PORTAL, ADD, login_value(), 2); });
}

TEST_F(Dispatch, TheAddsCheckTheirCodes) {
    const auto add = [](const std::string &function, const std::string &codes) {
        return function + ": Invalid info code " + codes + " for event type VRE_CL_INFO";
    };
    for (const auto &[code, subinfo] : {std::pair(101U, 1), {100U, 0}, {100U, 3}, {100U, 4}}) {
        const wl_evt_info_t info = info_with_codes(code, static_cast<uint16_t>(subinfo));
        const std::string codes = "[" + std::to_string(code) + "] or subinfocode[" + std::to_string(subinfo) + "]";
        expect_logged(3, add("handle_cl_pmk_add_evt", codes), [&] { handle_cl_pmk_add_evt(&info); });
    }
    for (const auto &[code, subinfo] : {std::pair(100U, 1), {101U, 0}, {101U, 2}}) {
        const wl_evt_info_t info = info_with_codes(code, static_cast<uint16_t>(subinfo));
        const std::string codes = "[" + std::to_string(code) + "] or subinfocode[" + std::to_string(subinfo) + "]";
        expect_logged(3, add("handle_portal_cl_auth_add", codes), [&] { handle_portal_cl_auth_add(&info); });
    }
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
}

TEST_F(Dispatch, TheDeletesCheckTheirCodes) {
    const auto line = [](const std::string &function, uint32_t code, int subinfo) {
        return function + ": Invalid info code[" + std::to_string(code) + "] or subinfocode [" +
               std::to_string(subinfo) + "] for event type VRE_CL_INFO";
    };
    for (const auto &[code, subinfo] : {std::pair(101U, 3), {100U, 1}, {100U, 2}, {100U, 5}}) {
        const wl_evt_info_t info = info_with_codes(code, static_cast<uint16_t>(subinfo));
        expect_logged(3, line("handle_cl_pmk_del_evt", code, subinfo), [&] { handle_cl_pmk_del_evt(&info); });
    }
    for (const auto &[code, subinfo] : {std::pair(100U, 2), {101U, 1}, {101U, 3}}) {
        const wl_evt_info_t info = info_with_codes(code, static_cast<uint16_t>(subinfo));
        expect_logged(3, line("handle_portal_cl_auth_del", code, subinfo), [&] { handle_portal_cl_auth_del(&info); });
    }
}

TEST_F(Dispatch, AnAddWithoutAValueIsRefused) {
    for (const int code : {1, 2})
        expect_logged(3,
                      "handle_cl_pmk_add_evt: Subinfo value NULL in event VRE_CL_INFO for info code[100]subinfo code[" +
                          std::to_string(code) + "] for client",
                      [code] { receive(PMK, static_cast<uint16_t>(code)); });
    expect_logged(
        3,
        "handle_portal_cl_auth_add: Subinfo value NULL in event VRE_CL_INFO for info code[101]subinfo code[1] "
        "for client",
        [] { receive(PORTAL, ADD); });
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
}

TEST_F(PmkAdd, EveryFieldIsReadAtItsOffset) {
    pmk_value value;
    for (size_t i = 0; i < 32; i++)
        value.pmk[i] = static_cast<uint8_t>(i + 0x80);
    add_pmk(ADD, value);
    const dot1x_pmk_cl_data *const pmk = fullauth();
    ASSERT_NE(pmk, nullptr);
    EXPECT_EQ(std::memcmp(pmk->pmk, value.pmk.data(), 32), 0);
    EXPECT_EQ(pmk->pmk_len, 32U);
    EXPECT_EQ(pmk->expiration, 0x01020304U);
    EXPECT_EQ(pmk->eap_type_authsrv, 0x19);
    EXPECT_EQ(pmk->acct_interim_interval, 0x05060708);
    EXPECT_EQ(pmk->bw_data.bw_download_limit, 0x090A0B0C);
    EXPECT_EQ(pmk->bw_data.bw_upload_limit, 0x0D0E0F10);
    EXPECT_EQ(pmk->vlan_id, 0x11121314);
    EXPECT_EQ(pmk->identity_len, 13U);
    EXPECT_STREQ(reinterpret_cast<const char *>(pmk->identity), "alice@example");
}

TEST_F(PmkAdd, TheRoleOfThePayloadIsNotStored) {
    add_pmk();
    const role_client_t none{};
    EXPECT_EQ(std::memcmp(&alice()->role_info, &none, sizeof none), 0);
}

TEST_F(PmkAdd, NegativeNumbersAreKept) {
    byte_string value = pmk_value().bytes();
    std::fill(value.begin() + 41, value.begin() + 53, 0xFF);
    std::fill(value.begin() + 99, value.begin() + 103, 0xFF);
    receive_value(PMK, ADD, value);
    EXPECT_EQ(fullauth()->acct_interim_interval, -1);
    EXPECT_EQ(fullauth()->bw_data.bw_download_limit, -1);
    EXPECT_EQ(fullauth()->bw_data.bw_upload_limit, -1);
    EXPECT_EQ(fullauth()->vlan_id, -1);
}

TEST_F(PmkAdd, EachSubinfoCodeHasItsPlace) {
    add_pmk(ADD, {.identity = "full"});
    EXPECT_EQ(okc(), nullptr);
    add_pmk(ADD_OKC, {.identity = "okc"});
    EXPECT_STREQ(reinterpret_cast<const char *>(fullauth()->identity), "full");
    EXPECT_STREQ(reinterpret_cast<const char *>(okc()->identity), "okc");
    EXPECT_EQ(profile->cl_info_hash.entry_count, 1U);
}

TEST_F(PmkAdd, DoesNotMakeTheClientActive) {
    add_pmk();
    EXPECT_EQ(alice()->is_active, 0);
    EXPECT_EQ(alice()->ssid, profile);
}

TEST_F(PmkAdd, ASecondKeyReplacesAndWipesTheFirst) {
    for (const uint16_t kind : {ADD, ADD_OKC}) {
        add_pmk(kind, {.identity = "first"});
        const dot1x_pmk_cl_data *const first = kind == ADD ? fullauth() : okc();
        release_watch watched;
        watched.add(first);
        watched.add(first->identity, 5);
        EXPECT_EQ(wiped_at_release(watched, [kind] { add_pmk(kind, {.identity = "second"}); }),
                  (std::vector{true, true}));
        const dot1x_pmk_cl_data *const second = kind == ADD ? fullauth() : okc();
        EXPECT_STREQ(reinterpret_cast<const char *>(second->identity), "second");
    }
}

TEST_F(PmkAdd, AShortKeyIsCopiedToItsLength) {
    add_pmk(ADD, {.pmk_len = 16});
    EXPECT_EQ(fullauth()->pmk_len, 16U);
    EXPECT_EQ(fullauth()->pmk[15], 0x5C);
    EXPECT_EQ(fullauth()->pmk[16], 0);
}

TEST_F(PmkAdd, AKeyOfNoLengthIsStored) {
    add_pmk(ADD, {.pmk_len = 0});
    ASSERT_NE(fullauth(), nullptr);
    EXPECT_EQ(fullauth()->pmk[0], 0);
}

TEST_F(PmkAdd, AKeyThatIsTooLongIsRefused) {
    for (const auto &[length, printed] : {std::pair(33U, "33"), {0x7FFFFFFFU, "2147483647"}, {0xFFFFFFFFU, "-1"}}) {
        const auto scenario = anew([length = length] { add_pmk(ADD, {.pmk_len = length}); });
        expect_logged(3,
                      std::string("fill_cl_pmk_info_from_evt: Memory overwrite avoided as pmk_evt->pmk_len[") +
                          printed + "] > PMK_LEN ",
                      scenario);
        expect_logged(3, "handle_cl_pmk_add_evt: Error  copying the client info", scenario);
    }
}

TEST_F(PmkAdd, ARefusedKeyOfANewClientLeavesNoRecord) {
    expect_logged(2, "decide_and_delete_client: Deleting client record for [02:00:00:00:00:0A]",
                  anew([] { add_pmk(ADD, {.pmk_len = 33}); }));
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
}

TEST_F(PmkAdd, ARefusedKeyLeavesTheHeldOne) {
    add_pmk();
    add_pmk(ADD, {.pmk_len = 33});
    ASSERT_NE(fullauth(), nullptr);
    EXPECT_EQ(fullauth()->pmk_len, 32U);
}

TEST_F(PmkAdd, WithoutAnIdentityThereIsNone) {
    add_pmk(ADD, {.identity = ""});
    EXPECT_EQ(fullauth()->identity, nullptr);
    EXPECT_EQ(fullauth()->identity_len, 0U);
}

TEST_F(PmkAdd, AnIdentityMayHoldAnyBytesAndGetsANul) {
    const std::string identity("a\0\xFF\n", 4);
    add_pmk(ADD, {.identity = identity});
    ASSERT_EQ(fullauth()->identity_len, 4U);
    EXPECT_EQ(std::memcmp(fullauth()->identity, identity.data(), 4), 0);
    EXPECT_EQ(fullauth()->identity[4], 0);
}

TEST_F(PmkAdd, OfALongerValueOnlyTheClaimedIdentityCounts) {
    add_pmk(ADD, {.identity = "alice@example", .claimed = 5});
    EXPECT_EQ(fullauth()->identity_len, 5U);
    EXPECT_STREQ(reinterpret_cast<const char *>(fullauth()->identity), "alice");
}

TEST_F(PmkAdd, BytesBehindAKeyWithoutIdentityDoNotCount) {
    add_pmk(ADD, {.identity = std::string(1500, 'x'), .claimed = 0});
    ASSERT_NE(fullauth(), nullptr);
    EXPECT_EQ(fullauth()->vlan_id, 0x11121314);
    EXPECT_EQ(fullauth()->identity, nullptr);
    EXPECT_EQ(fullauth()->identity_len, 0U);
}

TEST_F(PmkAdd, AKeyWithoutAPayloadIsNoKey) {
    dot1x_pmk_cl_data pmk{};
    EXPECT_EQ(fill_cl_pmk_info_from_evt({}, &pmk), -1);
}

TEST_F(PmkAdd, AnIdentityThatGoesBeyondItsValueIsRefused) {
    for (const int64_t claimed : {14LL, 0x7FFFFFFFLL, 0xFFFFFFFFLL}) {
        const auto scenario = anew([claimed] { add_pmk(ADD, {.claimed = claimed}); });
        expect_logged(3, "fill_cl_pmk_info_from_evt: could not allocate memmory..", scenario);
        expect_logged(3, "handle_cl_pmk_add_evt: Error  copying the client info", scenario);
        EXPECT_EQ(profile->cl_info_hash.entry_count, 0U) << claimed;
    }
}

TEST_F(PmkAdd, AValueCutWithinTheLengthOfItsIdentityIsRefused) {
    byte_string value = pmk_value{.claimed = 0x01000000}.bytes();
    value.resize(104);
    receive_value(PMK, ADD, value);
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
}

TEST_F(PmkAdd, WhatAShortValueLacksIsZero) {
    byte_string value = pmk_value().bytes();
    value.resize(46);
    receive_value(PMK, ADD, value);
    ASSERT_NE(fullauth(), nullptr);
    EXPECT_EQ(fullauth()->pmk_len, 32U);
    EXPECT_EQ(fullauth()->acct_interim_interval, 0x05060708);
    EXPECT_EQ(fullauth()->bw_data.bw_download_limit, 0x09000000);
    EXPECT_EQ(fullauth()->bw_data.bw_upload_limit, 0);
    EXPECT_EQ(fullauth()->vlan_id, 0);
    EXPECT_EQ(fullauth()->identity, nullptr);
}

TEST_F(PmkAdd, AnEmptyValueIsAKeyOfNoLength) {
    receive_value(PMK, ADD, {});
    ASSERT_NE(fullauth(), nullptr);
    EXPECT_EQ(fullauth()->pmk_len, 0U);
    EXPECT_EQ(fullauth()->vlan_id, 0);
}

class PmkAddWithoutMemory : public ClInfoEvent {
protected:
    /// Plays an event on a new profile with the n-th call of an allocator failing, for n from 1 until none fails.
    ///
    /// @param prepare  runs before the failing event
    /// @return for each n the lines at level 3, but for those of the event's arrival and of the new client
    std::vector<lines> sweep(const char *function, const std::function<void()> &prepare,
                             const std::function<void()> &event) {
        std::vector<lines> all;
        for (int nth = 1;; nth++) {
            anew(prepare)();
            log_capture log(3);
            fail_nth_call(function, nth);
            event();
            const int fired = faults_fired(function);
            clear_faults();
            if (fired == 0)
                return all;
            lines said = log.lines();
            std::erase_if(said, [](const std::string &line) {
                return line.find("Received VRE_CL_INFO") != line.npos || line.find("creating new one") != line.npos;
            });
            all.push_back(said);
            remaining.push_back(profile->cl_info_hash.entry_count);
        }
    }

    std::vector<size_t> remaining;  // clients after each failing event
};

using PortalAddWithoutMemory = PmkAddWithoutMemory;

const std::string DELETING = "decide_and_delete_client: Deleting client record for [02:00:00:00:00:0A]";

TEST_F(PmkAddWithoutMemory, EveryFailureOfANewClientIsToldAndLeavesNoRecord) {
    const std::vector<lines> calloc_failures = sweep(
        "calloc", [] {}, [] { add_pmk(); });
    const std::string no_record = "handle_cl_pmk_add_evt: Could not create client info record for [02:00:00:00:00:0A]";
    const std::vector<lines> expected = {
        {"get_new_wl_client_info: could not alloc mem for client. Malloc error", no_record},
        {"handle_cl_pmk_add_evt: could not allocate memory for hapd cl info", DELETING},
        {"handle_cl_pmk_add_evt: Could not allocate memory for pmk cl info", DELETING},
    };
    EXPECT_EQ(calloc_failures, expected);
    const std::vector<lines> malloc_failures = sweep(
        "malloc", [] {}, [] { add_pmk(); });
    const std::vector<lines> expected_of_malloc = {
        {no_record},  // no entry of the table
        {"fill_cl_pmk_info_from_evt: could not allocate memmory..",
         "handle_cl_pmk_add_evt: Error  copying the client info", DELETING},
    };
    EXPECT_EQ(malloc_failures, expected_of_malloc);
    EXPECT_EQ(remaining, std::vector<size_t>(5, 0));
}

TEST_F(PmkAddWithoutMemory, AClientThatHoldsAKeyKeepsIt) {
    for (const char *const function : {"calloc", "malloc"}) {
        const std::vector<lines> failures = sweep(
            function, [] { add_pmk(); }, [] { add_pmk(ADD, {.identity = "other"}); });
        EXPECT_EQ(failures.size(), 1U);
    }
    EXPECT_EQ(remaining, std::vector<size_t>(2, 1));
}

TEST_F(PmkAddWithoutMemory, TheFailuresAreToldAtLevelThree) {
    for (const auto &[nth, line] :
         {std::pair(1, "handle_cl_pmk_add_evt: Could not create client info record for [02:00:00:00:00:0A]"),
          {2, "handle_cl_pmk_add_evt: could not allocate memory for hapd cl info"},
          {3, "handle_cl_pmk_add_evt: Could not allocate memory for pmk cl info"}})
        expect_logged(3, line, anew([nth = nth] {
                          fail_nth_call("calloc", nth);
                          add_pmk();
                      }));
}

TEST_F(PmkDelete, AKeyOfAClientThatWasNeverActiveTakesTheRecordAlong) {
    add_pmk();
    receive(PMK, DEL_FULLAUTH);
    EXPECT_EQ(alice(), nullptr);
    add_pmk(ADD_OKC);
    receive(PMK, DEL_OKC);
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(PmkDelete, EachSubinfoCodeTakesItsOwn) {
    add_pmk(ADD);
    add_pmk(ADD_OKC);
    receive(PMK, DEL_FULLAUTH);
    EXPECT_EQ(fullauth(), nullptr);
    EXPECT_NE(okc(), nullptr);
    add_pmk(ADD);
    receive(PMK, DEL_OKC);
    EXPECT_NE(fullauth(), nullptr);
    EXPECT_EQ(okc(), nullptr);
}

TEST_F(PmkDelete, WipesTheKeyAndKeepsAnActiveClient) {
    add_pmk();
    alice()->is_active = 1;
    release_watch watched;
    watched.add(fullauth());
    watched.add(fullauth()->identity, 13);
    EXPECT_EQ(wiped_at_release(watched, [] { receive(PMK, DEL_FULLAUTH); }), (std::vector{true, true}));
    EXPECT_NE(alice(), nullptr);
}

TEST_F(PmkDelete, OfAnUnknownClientIsTold) {
    expect_logged(3,
                  "handle_cl_pmk_del_evt: client [02:00:00:00:00:0A] entry not found [cl:(nil)] in ssid profile [1] or "
                  "hapd info[(nil)] is null while deleting the client",
                  [] { receive(PMK, DEL_FULLAUTH); });
}

std::string pointer_text(const void *pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

TEST_F(PmkDelete, OfAClientWithoutKeysIsTold) {
    const wl_client_info *const client = add_client(profile, ALICE);
    expect_logged(3,
                  "handle_cl_pmk_del_evt: client [02:00:00:00:00:0A] entry not found [cl:" + pointer_text(client) +
                      "] in ssid profile [1] or hapd info[(nil)] is null while deleting the client",
                  [] { receive(PMK, DEL_OKC); });
    EXPECT_EQ(alice(), client);
}

TEST_F(PmkDelete, OfAnAbsentKeyIsToldAndChangesNothing) {
    add_client(profile, ALICE)->hapd_cl_info = get_new_hapd_cl_info();
    expect_logged(3,
                  "handle_cl_pmk_del_evt: pmk info already null eap type [(nil)] okc[(nil)]. Event came for type [3]",
                  [] { receive(PMK, DEL_FULLAUTH); });
    EXPECT_NE(alice(), nullptr);
    add_pmk(ADD);
    expect_logged(3,
                  "handle_cl_pmk_del_evt: pmk info already null eap type [" + pointer_text(fullauth()) +
                      "] okc[(nil)]. Event came for type [4]",
                  [] { receive(PMK, DEL_OKC); });
    EXPECT_NE(fullauth(), nullptr);
}

TEST_F(PortalAdd, EveryFieldIsReadAtItsOffset) {
    add_login();
    const portal_cl_auth_info *const auth = login();
    ASSERT_NE(auth, nullptr);
    EXPECT_STREQ(auth->ip_addr, "192.168.1.20");
    EXPECT_EQ(auth->expire, 0x21222324);
    EXPECT_EQ(auth->blackout_expire, 0x25262728);
    EXPECT_EQ(auth->login_time, 0x292A2B2CU);
    EXPECT_EQ(auth->bw_download_limit, -1);
    EXPECT_EQ(auth->bw_upload_limit, 0x2D2E2F30);
    EXPECT_STREQ(auth->username, "guest");
    EXPECT_EQ(alice()->hapd_cl_info, nullptr);
    EXPECT_EQ(alice()->is_active, 0);
}

TEST_F(PortalAdd, TextsMayFillTheirFields) {
    byte_string value = login_value();
    std::fill(value.begin(), value.begin() + 16, '9');
    std::fill(value.begin() + 36, value.end(), 'u');
    add_login(value);
    EXPECT_EQ(std::string(login()->ip_addr, 16), std::string(16, '9'));
    EXPECT_EQ(std::string(login()->username, 64), std::string(64, 'u'));
}

TEST_F(PortalAdd, WhatAShortValueLacksIsZero) {
    byte_string value = login_value();
    value.resize(25);
    add_login(value);
    EXPECT_EQ(login()->blackout_expire, 0x25262728);
    EXPECT_EQ(login()->login_time, 0x29000000U);
    EXPECT_EQ(login()->bw_upload_limit, 0);
    EXPECT_EQ(login()->username[0], '\0');
}

TEST_F(PortalAdd, BytesBehindTheUserNameDoNotCount) {
    for (const size_t size : {101U, 1500U}) {
        byte_string value = login_value();
        std::fill(value.begin() + 36, value.end(), 'u');
        value.resize(size, 'x');
        anew([&] { add_login(value); })();
        ASSERT_NE(login(), nullptr);
        EXPECT_STREQ(login()->ip_addr, "192.168.1.20");
        EXPECT_EQ(login()->bw_upload_limit, 0x2D2E2F30);
        EXPECT_EQ(std::string(login()->username, 64), std::string(64, 'u'));
    }
}

TEST_F(PortalAdd, AnEmptyValueIsALoginOfZeros) {
    add_login({});
    ASSERT_NE(login(), nullptr);
    EXPECT_EQ(login()->login_time, 0U);
}

TEST_F(PortalAdd, ANewLoginReplacesTheOldWithoutFreeingIt) {
    add_login();
    const portal_cl_info *const holder = alice()->portal_cl_info;
    release_watch watched;
    watched.add(login());
    watch = &watched;
    byte_string value = login_value();
    value[0] = '8';
    add_login(value);
    watch = nullptr;
    EXPECT_EQ(watched.pending.size(), 1U);
    EXPECT_EQ(alice()->portal_cl_info, holder);
    EXPECT_STREQ(login()->ip_addr, "892.168.1.20");
}

TEST_F(PortalAddWithoutMemory, EveryFailureOfANewClientIsToldAndLeavesNoRecord) {
    const std::vector<lines> calloc_failures = sweep(
        "calloc", [] {}, [] { add_login(); });
    const std::string no_record = "handle_portal_cl_auth_add: Could not create client info record for [clmac]";
    const std::vector<lines> expected = {
        {"get_new_wl_client_info: could not alloc mem for client. Malloc error", no_record},
        {"handle_portal_cl_auth_add: could not allocate memory for portal cl info", DELETING},
        {"handle_portal_cl_auth_add: Could not allocate memory for pmk cl info", DELETING},
    };
    EXPECT_EQ(calloc_failures, expected);
    EXPECT_EQ(sweep(
                  "malloc", [] {}, [] { add_login(); }),
              std::vector<lines>{{no_record}});
    EXPECT_EQ(remaining, std::vector<size_t>(4, 0));
}

TEST_F(PortalAddWithoutMemory, TheFailuresAreToldAtLevelThree) {
    for (const auto &[nth, line] :
         {std::pair(1, "handle_portal_cl_auth_add: Could not create client info record for [clmac]"),
          {2, "handle_portal_cl_auth_add: could not allocate memory for portal cl info"},
          {3, "handle_portal_cl_auth_add: Could not allocate memory for pmk cl info"}})
        expect_logged(3, line, anew([nth = nth] {
                          fail_nth_call("calloc", nth);
                          add_login();
                      }));
}

TEST_F(PortalAddWithoutMemory, AClientKeepsTheLoginItHas) {
    EXPECT_EQ(sweep(
                  "calloc", [] { add_login(); }, [] { add_login(); })
                  .size(),
              1U);
    EXPECT_EQ(remaining, std::vector<size_t>(1, 1));
}

TEST_F(PortalAdd, ALoginWithoutAPayloadIsNoLogin) {
    portal_cl_auth_info auth{};
    EXPECT_EQ(fill_cl_portal_login_info_from_evt({}, &auth), -1);
}

TEST_F(PortalDelete, TakesTheRecordOfAClientThatWasNeverActiveAlong) {
    add_login();
    release_watch watched;
    watched.add(login());
    watched.add(alice());
    EXPECT_EQ(wiped_at_release(watched, [] { receive(PORTAL, DEL_LOGIN); }).size(), 2U);
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(PortalDelete, KeepsAnActiveClient) {
    add_login();
    alice()->is_active = 1;
    receive(PORTAL, DEL_LOGIN);
    ASSERT_NE(alice(), nullptr);
    EXPECT_NE(alice()->portal_cl_info, nullptr);
    EXPECT_EQ(login(), nullptr);
}

TEST_F(PortalDelete, OfAnAbsentLoginIsToldAndChangesNothing) {
    add_client(profile, ALICE)->portal_cl_info = get_new_portal_cl_info();
    expect_logged(3, "handle_portal_cl_auth_del: client portal info already null . Event came for type [2]",
                  [] { receive(PORTAL, DEL_LOGIN); });
    EXPECT_NE(alice(), nullptr);
}

TEST_F(PortalDelete, OfAnUnknownClientOrOneWithoutAHolderIsTold) {
    const std::string line =
        "handle_portal_cl_auth_del: client entry for [02:00:00:00:00:0A]not found in ssid profile [1] or portal info is "
        "null while deleting the client";
    expect_logged(3, line, [] { receive(PORTAL, DEL_LOGIN); });
    expect_logged(7, "handle_portal_cl_auth_del: subinfovalue : (nil)", [] { receive(PORTAL, DEL_LOGIN); });
    add_client(profile, ALICE);
    expect_logged(3, line, [] { receive(PORTAL, DEL_LOGIN); });
    EXPECT_NE(alice(), nullptr);
}

TEST_F(PortalDelete, SaysWhereTheValueIs) {
    received_payload payload(event_payload().header(ALICE, 1).u32(5, PORTAL).u16(6, DEL_LOGIN).item(7, {1}));
    const void *const value = payload.data() + 10 + 12 + 10 + 8;
    expect_logged(7, "handle_portal_cl_auth_del: subinfovalue : " + pointer_text(value),
                  [&] { handle_client_info(VRE_CL_INFO, payload.data(), payload.length()); });
}

/// Runs `action` on a stack of its own.
///
/// @return what it has left there
byte_string stack_after(void *(*action)(void *), void *argument) {
    byte_string stack(1 << 20);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack.data(), stack.size());
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, action, argument), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return stack;
}

TEST_F(PmkAdd, LeavesNoCopyOfTheKeyOnTheStack) {
    struct filling {
        byte_string payload;
        dot1x_pmk_cl_data pmk;
        int result;
    } of{pmk_value{.pmk = text_bytes("SECRETSECRETSECRETSECRETSECRETSE"), .identity = ""}.bytes(), {}, -1};
    const byte_string stack = stack_after(
        [](void *argument) -> void * {
            auto *const own = static_cast<filling *>(argument);
            own->result = fill_cl_pmk_info_from_evt(own->payload, &own->pmk);
            return nullptr;
        },
        &of);
    ASSERT_EQ(of.result, 0);
    EXPECT_EQ(of.pmk.pmk[0], 'S');
    const byte_string part = text_bytes("SECRETSE");
    EXPECT_EQ(std::ranges::search(stack, part).size(), 0U);
}

TEST_F(Dispatch, NoLineHoldsAKey) {
    const lines all = lines_at_level(7, [] {
        add_pmk(ADD, {.pmk = text_bytes("SECRETSECRETSECRETSECRETSECRETSE")});
        add_pmk(ADD, {.pmk = text_bytes("SECRETSECRETSECRETSECRETSECRETSE"), .pmk_len = 33});
        receive(PMK, DEL_FULLAUTH);
    });
    EXPECT_FALSE(all.empty());
    for (const std::string &line : all)
        EXPECT_EQ(line.find("SECRET"), line.npos) << line;
}

}  // namespace
