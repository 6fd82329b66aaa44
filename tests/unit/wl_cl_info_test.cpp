// The records of the client cache, when they go, and who is here. The announcement of a login and the driver's roles
// are watched through the linker.
#include "wl_cl_info_fixture.h"
#include "wl_client_role.h"
#include "wl_synch.h"

namespace {

struct announcement {
    const ssid_profile_info *profile;
    const wl_client_info *client;
    bool active;
    const vapinfo *vap;
};

struct role_request {
    const ssid_profile_info *profile;
    const wl_client_info *client;
    int action;
    bool active;
};

std::vector<announcement> announced;
std::vector<role_request> role_requests;

}  // namespace

extern "C" {

void __wrap__Z27send_cl_portal_login_packetP17ssid_profile_infoP14wl_client_info(ssid_profile_info *profile,
                                                                                 wl_client_info *client) {
    announced.push_back({profile, client, client->is_active == 1, client->connected_vap});
    WL_LOG_AS("send_cl_portal_login_packet", 7, "announced");
}

int __wrap__Z15send_role_ioctlP17ssid_profile_infoP14wl_client_info17role_ioctl_action(ssid_profile_info *profile,
                                                                                       wl_client_info *client,
                                                                                       role_ioctl_action action) {
    role_requests.push_back({profile, client, action, client->is_active != 0});
    WL_LOG_AS("send_role_ioctl", 7, "action %d", action);
    return -1;
}
}

namespace {

constexpr int LEAVE = 14;
constexpr int AUTHORIZE = 17;

struct whereabouts {
    byte_string mac = ALICE;
    std::string ssid = "net";
    std::string vap = "ath0";
    uint32_t profile_id = 99;  // no profile of these tests
};

event_payload payload_of(const whereabouts &of) {
    return event_payload()
        .header(of.mac, of.profile_id)
        .text(1, of.ssid)
        .item(2, {0x02, 0x00, 0x00, 0x00, 0x01, 0xF0})
        .text(3, of.vap);
}

void receive(int event, const event_payload &payload) {
    received_payload received(payload);
    if (event == LEAVE)
        vre_cl_leave_updates(VRE_NODE_LEAVE, received.data(), received.length());
    else
        vre_cl_authorized_updates(VRE_NODE_AUTHORIZE, received.data(), received.length());
}

void receive(int event, const whereabouts &of = {}) {
    receive(event, payload_of(of));
}

class Whereabouts : public ClientCache {
protected:
    void SetUp() override {
        ClientCache::SetUp();
        announced.clear();
        role_requests.clear();
    }
};

using Table = ClientCache;
using Constructors = ClientCache;
using Frees = ClientCache;
using Decision = ClientCache;
using VapByName = ClientCache;
using Authorized = Whereabouts;
using Left = Whereabouts;

TEST_F(Table, HashesTheSumOfTheSixBytesModulo43) {
    const auto hash = [](const byte_string &mac) { return cl_cache_hash_fn.hash_function(mac.data(), nullptr); };
    EXPECT_EQ(hash({0, 0, 0, 0, 0, 0}), 0U);
    EXPECT_EQ(hash({1, 2, 3, 4, 5, 6}), 21U);
    EXPECT_EQ(hash({43, 0, 0, 0, 0, 0}), 0U);
    EXPECT_EQ(hash(EVERYONE), 6U * 255 % 43);
}

TEST_F(Table, ComparesSixBytes) {
    EXPECT_EQ(cl_cache_hash_fn.compare_keys("abcdef1", "abcdef2", nullptr), 0);
    EXPECT_LT(cl_cache_hash_fn.compare_keys("abcdea", "abcdeb", nullptr), 0);
    EXPECT_GT(cl_cache_hash_fn.compare_keys("\xFFzzzzz", "zzzzzz", nullptr), 0);
}

TEST_F(Table, OwnsTheRecordButNotItsKey) {
    EXPECT_EQ(cl_cache_hash_fn.free_key, nullptr);
    EXPECT_NE(cl_cache_hash_fn.free_value, nullptr);
}

TEST_F(Table, ClientsOfOneBucketAreAllFound) {
    ssid_profile_info *const profile = add_profile(1);
    for (int i = 0; i < 5; i++)
        add_client(profile, {0, 0, 0, 0, static_cast<uint8_t>(i), static_cast<uint8_t>(50 - i)});
    for (int i = 0; i < 5; i++)
        EXPECT_NE(find(profile, {0, 0, 0, 0, static_cast<uint8_t>(i), static_cast<uint8_t>(50 - i)}), nullptr);
}

TEST_F(Constructors, ANewClientHasItsAddressAndProfileAndNothingElse) {
    ssid_profile_info *const profile = add_profile(1);
    wl_client_info *const client = get_new_wl_client_info(ALICE.data(), profile);
    wl_client_info expected{};
    std::memset(static_cast<void *>(&expected), 0, sizeof expected);
    std::copy(ALICE.begin(), ALICE.end(), expected.mac_addr);
    expected.ssid = profile;
    EXPECT_EQ(std::memcmp(client, &expected, sizeof expected), 0);
    free_cl_info_node(client);
}

TEST_F(Constructors, AClientWithoutAnAddressIsRefused) {
    expect_logged(3, "get_new_wl_client_info: NULL mac passed in fn for creating new client record",
                  [] { EXPECT_EQ(get_new_wl_client_info(nullptr, nullptr), nullptr); });
}

TEST_F(Constructors, AClientWithoutMemoryIsNull) {
    expect_logged(3, "get_new_wl_client_info: could not alloc mem for client. Malloc error", [] {
        fail_nth_call("calloc", 1);
        EXPECT_EQ(get_new_wl_client_info(ALICE.data(), nullptr), nullptr);
        EXPECT_EQ(faults_fired("calloc"), 1);
    });
}

template <class Record> void expect_zero_and_free(Record *record) {
    const Record zero{};
    EXPECT_EQ(std::memcmp(record, &zero, sizeof zero), 0);
    std::free(record);
}

TEST_F(Constructors, TheOtherBlocksAreZero) {
    expect_zero_and_free(get_new_hapd_cl_info());
    expect_zero_and_free(get_new_portal_cl_info());
    expect_zero_and_free(get_new_portal_cl_auth_info());
}

TEST_F(Constructors, AKeyIsZeroButForItsVlan) {
    dot1x_pmk_cl_data *const pmk = get_new_dot1x_pmk_cl_data();
    EXPECT_EQ(pmk->vlan_id, -1);
    pmk->vlan_id = 0;
    expect_zero_and_free(pmk);
}

TEST_F(Constructors, WithoutMemoryTheyAreNull) {
    fail_every_call("calloc");
    EXPECT_EQ(get_new_hapd_cl_info(), nullptr);
    EXPECT_EQ(get_new_portal_cl_info(), nullptr);
    EXPECT_EQ(get_new_portal_cl_auth_info(), nullptr);
    EXPECT_EQ(get_new_dot1x_pmk_cl_data(), nullptr);
    EXPECT_EQ(faults_fired("calloc"), 4);
}

byte_string bytes_of(const role_client_t &role) {
    byte_string bytes(sizeof role);
    std::memcpy(bytes.data(), &role, sizeof role);
    return bytes;
}

TEST(RoleOfAClient, EveryFieldHasItsPlace) {
    role_client_t role{};
    role.role_id = 0x01020304;
    role.vendor_id = 0x05060708;
    role.attr_id = 0x090A0B0C;
    role.rdp_method = 0x0D;
    std::memset(role.client_role, 'r', 32);
    role.client_role[32] = 'z';
    EXPECT_EQ(bytes_of(role), event_payload()
                                  .bytes({1, 2, 3, 4})
                                  .bytes({5, 6, 7, 8})
                                  .bytes({9, 10, 11, 12})
                                  .bytes({13})
                                  .bytes(byte_string(32, 'r'))
                                  .bytes({'z', 0})
                                  .bytes());
    EXPECT_EQ(bytes_of(role).size(), 47U);
}

TEST(RoleOfAClient, TheFlagsAreTheHighestBitsOfTheLastByte) {
    byte_string expected(47);
    role_client_t role{};
    role.apply_ssid_firewall = 1;
    expected[46] = 0x80;
    EXPECT_EQ(bytes_of(role), expected);
    role = {};
    role.apply_ssid_portal_or_webq = 1;
    expected[46] = 0x40;
    EXPECT_EQ(bytes_of(role), expected);
    role = {};
    role.apply_ssid_bw_limit = 1;
    expected[46] = 0x20;
    EXPECT_EQ(bytes_of(role), expected);
}

TEST_F(Frees, AKeyAndItsIdentityAreWipedBeforeTheyGo) {
    dot1x_pmk_cl_data *const pmk = new_pmk();
    release_watch watched;
    watched.add(pmk);
    watched.add(pmk->identity, pmk->identity_len);
    EXPECT_EQ(wiped_at_release(watched, [=] { free_dot1x_pmk_cl_data(pmk); }), (std::vector{true, true}));
}

TEST_F(Frees, FastTransitionDataAndItsIdentityAreWipedBeforeTheyGo) {
    auto *const ft = static_cast<ft_80211r_cl_data *>(std::malloc(sizeof(ft_80211r_cl_data)));
    std::memset(static_cast<void *>(ft), 0x5C, sizeof *ft);
    ft->identity = reinterpret_cast<uint8_t *>(strdup("bob"));
    ft->identity_len = 3;
    release_watch watched;
    watched.add(ft);
    watched.add(ft->identity, ft->identity_len);
    EXPECT_EQ(wiped_at_release(watched, [=] { free_ft_80211r_cl_data(ft); }), (std::vector{true, true}));
}

TEST_F(Frees, AKeyMayHaveNoIdentity) {
    dot1x_pmk_cl_data *const pmk = get_new_dot1x_pmk_cl_data();
    pmk->identity_len = 5;  // of one that never came
    free_dot1x_pmk_cl_data(pmk);
}

TEST_F(Frees, NothingIsFreedOfNothing) {
    free_dot1x_pmk_cl_data(nullptr);
    free_ft_80211r_cl_data(nullptr);
    free_portal_cl_info(nullptr);
    free_cl_info_node(nullptr);
}

TEST_F(Frees, APortalHolderTakesItsLoginAlong) {
    portal_cl_info *const portal = get_new_portal_cl_info();
    portal->portal_cl_auth_info = get_new_portal_cl_auth_info();
    release_watch watched;
    watched.add(portal);
    watched.add(portal->portal_cl_auth_info);
    EXPECT_EQ(wiped_at_release(watched, [=] { free_portal_cl_info(portal); }).size(), 2U);
}

TEST_F(Frees, ARecordTakesEverythingItOwnsAlong) {
    wl_client_info *const client = get_new_wl_client_info(ALICE.data(), nullptr);
    give_pmk(client);
    give_pmk(client, true);
    give_login(client);
    hapd_cl_info *const hapd = client->hapd_cl_info;
    hapd->ft_data = static_cast<ft_80211r_cl_data *>(std::calloc(1, sizeof(ft_80211r_cl_data)));
    hapd->ft_data->pmk_r1[31] = 1;
    client->google_ou = strdup("staff");
    release_watch watched;
    watched.add(hapd->pmk_fullauth);
    watched.add(hapd->pmk_okc);
    watched.add(hapd->ft_data);
    watched.add(hapd);
    watched.add(client->portal_cl_info->portal_cl_auth_info);
    watched.add(client->portal_cl_info);
    watched.add(client->google_ou, 1);
    watched.add(client);
    const std::vector<bool> wiped = wiped_at_release(watched, [=] { free_cl_info_node(client); });
    ASSERT_EQ(wiped.size(), 8U);
    EXPECT_TRUE(wiped[0] && wiped[1] && wiped[2]) << "the keys come first";
}

TEST_F(Frees, ADeletedProfileWipesTheKeysOfItsClients) {
    ssid_profile_info *const profile = add_profile(1);
    wl_client_info *const client = add_client(profile, ALICE);
    give_pmk(client);
    client->is_active = 1;
    client->connected_vap = static_cast<vapinfo *>(profile->vap_data_list->value);
    release_watch watched;
    watched.add(client->hapd_cl_info->pmk_fullauth);
    const auto wiped = wiped_at_release(watched, [=] { hash_table_delete(ssid_profile_list, &profile->profile_id); });
    EXPECT_EQ(wiped, std::vector{true});
}

TEST_F(Decision, AClientThatHoldsNothingGoes) {
    ssid_profile_info *const profile = add_profile(1);
    wl_client_info *const client = add_client(profile, ALICE);
    add_client(profile, BOB);
    EXPECT_EQ(decide_and_delete_client(profile, client), 0);
    EXPECT_EQ(find(profile, ALICE), nullptr);
    EXPECT_NE(find(profile, BOB), nullptr);
}

// Whatever the fast-transition data are and whatever holders remain, a client stays for a key, a login or being active.
TEST_F(Decision, KeepsAClientForAnyKeyAnyLoginAndWhileItIsActive) {
    ssid_profile_info *const profile = add_profile(1);
    for (int choice = 0; choice < 64; choice++) {
        wl_client_info *const client = add_client(profile, ALICE);
        const bool fullauth = choice & 1, okc = choice & 2, login = choice & 4, active = choice & 8;
        if (choice & 16)
            client->hapd_cl_info = get_new_hapd_cl_info();
        if (fullauth)
            give_pmk(client);
        if (okc)
            give_pmk(client, true);
        if (client->hapd_cl_info != nullptr)
            client->hapd_cl_info->ft_data = static_cast<ft_80211r_cl_data *>(std::calloc(1, sizeof(ft_80211r_cl_data)));
        if (login)
            give_login(client);
        else if (choice & 32)
            client->portal_cl_info = get_new_portal_cl_info();
        client->is_active = active;
        const bool kept = fullauth || okc || login || active;
        EXPECT_EQ(decide_and_delete_client(profile, client), kept ? -1 : 0) << choice;
        EXPECT_EQ(find(profile, ALICE) != nullptr, kept) << choice;
        if (kept)
            hash_table_delete(&profile->cl_info_hash, ALICE.data());
    }
}

TEST_F(Decision, SaysNothingOfAClientThatStays) {
    ssid_profile_info *const profile = add_profile(1);
    wl_client_info *const client = add_client(profile, ALICE);
    client->is_active = 1;
    EXPECT_EQ(lines_at_level(7, [=] { EXPECT_EQ(decide_and_delete_client(profile, client), -1); }), lines{});
}

TEST_F(Decision, RefusesNothingness) {
    ssid_profile_info *const profile = add_profile(1);
    wl_client_info *const client = add_client(profile, ALICE);
    EXPECT_EQ(decide_and_delete_client(nullptr, client), -1);
    EXPECT_EQ(decide_and_delete_client(profile, nullptr), -1);
    EXPECT_NE(find(profile, ALICE), nullptr);
}

TEST_F(Decision, TellsOfADeletion) {
    expect_logged(2, "decide_and_delete_client: Deleting client record for [02:00:00:00:00:0A]", [] {
        start_again();
        ssid_profile_info *const profile = add_profile(1);
        EXPECT_EQ(decide_and_delete_client(profile, add_client(profile, ALICE)), 0);
    });
}

TEST_F(Decision, AClientOfNoCacheStaysItsOwners) {
    ssid_profile_info *const profile = add_profile(1);
    wl_client_info *const client = get_new_wl_client_info(BOB.data(), profile);
    expect_logged(3, "decide_and_delete_client: Could not delete client record for [02:00:00:00:00:BB]",
                  [=] { EXPECT_EQ(decide_and_delete_client(profile, client), -1); });
    free_cl_info_node(client);
}

TEST_F(VapByName, IsTheOneOfExactlyThatName) {
    const ssid_profile_info *const profile = add_profile(1);
    EXPECT_STREQ(get_vap_from_list_by_name(profile->vap_data_list, "ath0")->name, "ath0");
    EXPECT_STREQ(get_vap_from_list_by_name(profile->vap_data_list, "ath1")->name, "ath1");
    for (const char *const other : {"ath", "ath00", "ATH0", "ath0 ", ""})
        EXPECT_EQ(get_vap_from_list_by_name(profile->vap_data_list, other), nullptr) << other;
    EXPECT_EQ(get_vap_from_list_by_name(nullptr, "ath0"), nullptr);
}

TEST_F(Authorized, MakesAnUnknownClientActiveOnItsVap) {
    ssid_profile_info *const profile = add_profile(1);
    receive(AUTHORIZE);
    const wl_client_info *const client = find(profile, ALICE);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->is_active, 1);
    EXPECT_EQ(client->ssid, profile);
    EXPECT_EQ(client->connected_vap, get_vap_from_list_by_name(profile->vap_data_list, "ath0"));
}

TEST_F(Authorized, AnnouncesTheLoginOfTheActiveClient) {
    ssid_profile_info *const profile = add_profile(1);
    receive(AUTHORIZE);
    ASSERT_EQ(announced.size(), 1U);
    EXPECT_EQ(announced[0].profile, profile);
    EXPECT_EQ(announced[0].client, find(profile, ALICE));
    EXPECT_TRUE(announced[0].active);
    EXPECT_STREQ(announced[0].vap->name, "ath0");
}

TEST_F(Authorized, KeepsWhatAKnownClientHolds) {
    ssid_profile_info *const profile = add_profile(1);
    wl_client_info *const client = add_client(profile, ALICE);
    give_pmk(client);
    receive(AUTHORIZE, {.vap = "ath1"});
    EXPECT_EQ(find(profile, ALICE), client);
    EXPECT_NE(client->hapd_cl_info->pmk_fullauth, nullptr);
    EXPECT_STREQ(client->connected_vap->name, "ath1");
}

TEST_F(Authorized, MovesAClientToTheVapOfTheEvent) {
    ssid_profile_info *const profile = add_profile(1);
    receive(AUTHORIZE, {.vap = "ath0"});
    receive(AUTHORIZE, {.vap = "ath1"});
    EXPECT_STREQ(find(profile, ALICE)->connected_vap->name, "ath1");
}

TEST_F(Authorized, OnAVapThatTheProfileLacksTheClientHasNone) {
    ssid_profile_info *const profile = add_profile(1);
    receive(AUTHORIZE, {.vap = "ath0"});
    receive(AUTHORIZE, {.vap = "ath9"});
    EXPECT_EQ(find(profile, ALICE)->is_active, 1);
    EXPECT_EQ(find(profile, ALICE)->connected_vap, nullptr);
}

TEST_F(Authorized, OnAnOpenSsidLeavesNoRecord) {
    ssid_profile_info *const profile = add_profile(1);
    profile->is_1x_configured = 0;
    receive(AUTHORIZE);
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
    EXPECT_TRUE(announced.empty());
}

TEST_F(Authorized, APortalAloneIsEnough) {
    ssid_profile_info *const profile = add_profile(1);
    profile->is_1x_configured = 0;
    profile->is_portal_configured = 1;
    receive(AUTHORIZE);
    EXPECT_NE(find(profile, ALICE), nullptr);
}

TEST_F(Authorized, TheSsidMustBeTheWholeOne) {
    ssid_profile_info *const profile = add_profile(1, "network");
    for (const char *const other : {"net", "networks", "Network", ""})
        receive(AUTHORIZE, {.ssid = other});
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
}

TEST_F(Authorized, AnSsidOf32CharactersIsFound) {
    const std::string name(32, 'n');
    ssid_profile_info *const profile = add_profile(1, name.c_str());
    receive(AUTHORIZE, {.ssid = name});
    EXPECT_NE(find(profile, ALICE), nullptr);
}

TEST_F(Authorized, ARoleOfTheSameNameIsPassedOver) {
    add_profile(1, "net", true);
    ssid_profile_info *const profile = add_profile(2);
    receive(AUTHORIZE);
    EXPECT_NE(find(profile, ALICE), nullptr);
}

TEST_F(Authorized, TheFirstProfileOfTheTableWinsWhateverIdTheEventHas) {
    ssid_profile_info *const second_bucket = add_profile(44);
    ssid_profile_info *const second_id = add_profile(43);
    ssid_profile_info *const first = add_profile(0);
    receive(AUTHORIZE, {.profile_id = 44});
    EXPECT_NE(find(first, ALICE), nullptr);
    EXPECT_EQ(find(second_id, ALICE), nullptr);
    EXPECT_EQ(find(second_bucket, ALICE), nullptr);
}

TEST_F(Authorized, AnOpenProfileBeforeASecuredOneIsPassedOver) {
    add_profile(1)->is_1x_configured = 0;
    ssid_profile_info *const secured = add_profile(2);
    receive(AUTHORIZE);
    EXPECT_NE(find(secured, ALICE), nullptr);
}

/// The payload of a client's whereabouts without the item of a tag.
event_payload payload_without(int tag) {
    event_payload payload;
    payload.header(ALICE, 1);
    if (tag != 1)
        payload.text(1, "net");
    if (tag != 2)
        payload.item(2, {2, 0, 0, 0, 1, 0});
    if (tag != 3)
        payload.text(3, "ath0");
    return payload;
}

TEST_F(Authorized, NeedsSsidBssidAndVap) {
    ssid_profile_info *const profile = add_profile(1);
    for (const int tag : {1, 2, 3})
        EXPECT_EQ(lines_at_level(7, [=] { receive(AUTHORIZE, payload_without(tag)); }), lines{}) << tag;
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
    vre_cl_authorized_updates(VRE_NODE_AUTHORIZE, nullptr, 0);
}

TEST_F(Authorized, TellsWhatItReceives) {
    expect_logged(7,
                  "vre_cl_authorized_updates: [VRE_CL_INFO] : Received node authorizd for client[02:00:00:00:00:0A]"
                  "connected to SSID [other] with bssid [02:00:00:00:01:F0] vapname [ath0]",
                  [] { receive(AUTHORIZE, {.ssid = "other"}); });
}

TEST_F(Authorized, TellsOfANewClient) {
    expect_logged(
        3,
        "vre_cl_authorized_updates: client [02:00:00:00:00:0A] entry not found in ssid profile [net] creating "
        "new one",
        [] {
            start_again();
            add_profile(1);
            receive(AUTHORIZE);
        });
}

TEST_F(Authorized, SaysNothingOfANewClientWhenItIsKnown) {
    add_profile(1);
    receive(AUTHORIZE);
    EXPECT_EQ(lines_at_level(6, [] { receive(AUTHORIZE); }), lines{});
}

TEST_F(Authorized, TellsThatTheClientIsActive) {
    expect_logged(7, "vre_cl_authorized_updates: [VRE_CL_INFO] Setting client active status for [02:00:00:00:00:0A]",
                  [] {
                      start_again();
                      add_profile(1);
                      receive(AUTHORIZE);
                  });
}

TEST_F(Authorized, WithoutMemoryNothingIsLeftBehind) {
    for (const char *const function : {"calloc", "malloc"}) {
        for (int nth = 1;; nth++) {
            start_again();
            ssid_profile_info *const profile = add_profile(1);
            fail_nth_call(function, nth);
            receive(AUTHORIZE);
            if (faults_fired(function) == 0) {
                EXPECT_NE(find(profile, ALICE), nullptr);
                break;
            }
            EXPECT_EQ(profile->cl_info_hash.entry_count, 0U) << function << nth;
            EXPECT_TRUE(announced.empty());
        }
        announced.clear();
    }
}

TEST_F(Authorized, TellsThatThereIsNoMemory) {
    expect_logged(3, "vre_cl_authorized_updates: Could not allocate memory client info record for [02:00:00:00:00:0A]",
                  [] {
                      start_again();
                      add_profile(1);
                      fail_nth_call("calloc", 1);
                      receive(AUTHORIZE);
                      EXPECT_EQ(faults_fired("calloc"), 1);
                  });
}

TEST_F(Authorized, AProfileWithoutACacheTakesNoClient) {
    ssid_profile_info *const profile = add_profile(1);
    hash_table_destroy(&profile->cl_info_hash);
    profile->cl_info_hash = {};
    expect_logged(3, "vre_cl_authorized_updates: Could not allocate memory client info record for [02:00:00:00:00:0A]",
                  [] { receive(AUTHORIZE); });
    EXPECT_TRUE(announced.empty());
}

TEST_F(Left, DeletesAClientThatHoldsNothing) {
    ssid_profile_info *const profile = add_profile(1);
    receive(AUTHORIZE);
    receive(LEAVE);
    EXPECT_EQ(profile->cl_info_hash.entry_count, 0U);
}

TEST_F(Left, KeepsAClientWithAKeyButNotActive) {
    ssid_profile_info *const profile = add_profile(1);
    receive(AUTHORIZE);
    give_pmk(find(profile, ALICE));
    receive(LEAVE);
    ASSERT_NE(find(profile, ALICE), nullptr);
    EXPECT_EQ(find(profile, ALICE)->is_active, 0);
    EXPECT_EQ(find(profile, ALICE)->connected_vap, nullptr);
}

TEST_F(Left, OfAnotherVapOfTheSsidTheClientStaysActive) {
    ssid_profile_info *const profile = add_profile(1);
    receive(AUTHORIZE, {.vap = "ath1"});
    receive(LEAVE, {.vap = "ath0"});
    receive(LEAVE, {.vap = "ath"});
    EXPECT_EQ(find(profile, ALICE)->is_active, 1);
    EXPECT_STREQ(find(profile, ALICE)->connected_vap->name, "ath1");
}

TEST_F(Left, WithoutAKnownVapAnyLeaveCounts) {
    ssid_profile_info *const profile = add_profile(1);
    receive(AUTHORIZE, {.vap = "ath9"});
    receive(LEAVE, {.vap = "ath0"});
    EXPECT_EQ(find(profile, ALICE), nullptr);
}

TEST_F(Left, OnAnOpenSsidCountsToo) {
    ssid_profile_info *const profile = add_profile(1);
    profile->is_1x_configured = 0;
    add_client(profile, ALICE)->is_active = 1;
    receive(LEAVE);
    EXPECT_EQ(find(profile, ALICE), nullptr);
}

TEST_F(Left, ARoleOfTheSameNameIsPassedOver) {
    add_profile(1, "net", true);
    ssid_profile_info *const profile = add_profile(2);
    add_client(profile, ALICE);
    receive(LEAVE);
    EXPECT_EQ(find(profile, ALICE), nullptr);
}

TEST_F(Left, NeedsSsidBssidAndVap) {
    ssid_profile_info *const profile = add_profile(1);
    add_client(profile, ALICE)->is_active = 1;
    for (const int tag : {1, 2, 3})
        EXPECT_EQ(lines_at_level(7, [=] { receive(LEAVE, payload_without(tag)); }), lines{}) << tag;
    vre_cl_leave_updates(VRE_NODE_LEAVE, nullptr, 0);
    EXPECT_EQ(find(profile, ALICE)->is_active, 1);
}

TEST_F(Left, TellsWhatItReceives) {
    expect_logged(7,
                  "vre_cl_leave_updates: [VRE_CL_INFO] : Received node leave for client[02:00:00:00:00:0A]disconnected "
                  "from SSID [other] with bssid [02:00:00:00:01:F0] vapname [ath0]",
                  [] { receive(LEAVE, {.ssid = "other"}); });
}

TEST_F(Left, AnUnknownClientIsTold) {
    add_profile(1);
    expect_logged(7,
                  "vre_cl_leave_updates: [VRE_CL_INFO] client entry not found for [02:00:00:00:00:0A] in event "
                  "VRE.node_leave",
                  [] { receive(LEAVE); });
}

TEST_F(Left, TellsThatTheClientIsNotActiveAnyMore) {
    expect_logged(7, "vre_cl_leave_updates: [VRE_CL_INFO] reseting client active status for [02:00:00:00:00:0A]", [] {
        start_again();
        add_client(add_profile(1), ALICE);
        receive(LEAVE);
    });
}

TEST_F(Left, TakesTheRoleFromTheDriverWhereRolesAreInUse) {
    ssid_profile_info *const profile = add_profile(1);
    profile->flags.role_profile_enabled = 1;
    receive(AUTHORIZE);
    const wl_client_info *const client = find(profile, ALICE);
    receive(LEAVE);
    ASSERT_EQ(role_requests.size(), 1U);
    EXPECT_EQ(role_requests[0].profile, profile);
    EXPECT_EQ(role_requests[0].client, client);
    EXPECT_EQ(role_requests[0].action, 2);
    EXPECT_FALSE(role_requests[0].active);
}

TEST_F(Left, TheFirstProfileOfTheTableAloneLosesTheClientWhateverIdTheEventHas) {
    ssid_profile_info *const second = add_profile(44);
    ssid_profile_info *const first = add_profile(43);
    for (ssid_profile_info *const profile : {first, second}) {
        wl_client_info *const client = add_client(profile, ALICE);
        client->is_active = 1;
        client->connected_vap = get_vap_from_list_by_name(profile->vap_data_list, "ath0");
    }
    receive(LEAVE, {.profile_id = 44});
    EXPECT_EQ(find(first, ALICE), nullptr);
    ASSERT_NE(find(second, ALICE), nullptr);
    EXPECT_EQ(find(second, ALICE)->is_active, 1);
    EXPECT_STREQ(find(second, ALICE)->connected_vap->name, "ath0");
}

TEST_F(Left, AClientThatTheFirstProfileDoesNotKnowStaysActiveInTheNext) {
    ssid_profile_info *const second = add_profile(44);
    add_profile(43);
    add_client(second, ALICE)->is_active = 1;
    receive(LEAVE);
    ASSERT_NE(find(second, ALICE), nullptr);
    EXPECT_EQ(find(second, ALICE)->is_active, 1);
}

const std::string CAME =
    "vre_cl_authorized_updates: [VRE_CL_INFO] : Received node authorizd for "
    "client[02:00:00:00:00:0A]connected to SSID [net] with bssid [02:00:00:00:01:F0] vapname [ath0]";
const std::string IS_ACTIVE =
    "vre_cl_authorized_updates: [VRE_CL_INFO] Setting client active status for [02:00:00:00:00:0A]";
const std::string ANNOUNCED = "send_cl_portal_login_packet: announced";
const std::string LEFT = "vre_cl_leave_updates: [VRE_CL_INFO] : Received node leave for client[02:00:00:00:00:0A]"
                         "disconnected from SSID [net] with bssid [02:00:00:00:01:F0] vapname [ath0]";
const std::string IS_INACTIVE =
    "vre_cl_leave_updates: [VRE_CL_INFO] reseting client active status for [02:00:00:00:00:0A]";
const std::string DELETING = "decide_and_delete_client: Deleting client record for [02:00:00:00:00:0A]";

TEST_F(Authorized, ANewClientIsMadeThenActiveThenAnnounced) {
    add_profile(1);
    EXPECT_EQ(lines_at_level(7, [] { receive(AUTHORIZE); }),
              lines({CAME,
                     "vre_cl_authorized_updates: client [02:00:00:00:00:0A] entry not found in ssid profile [net] "
                     "creating new one",
                     IS_ACTIVE, ANNOUNCED}));
}

TEST_F(Left, TheRoleIsTakenBeforeTheRecordGoes) {
    add_profile(1)->flags.role_profile_enabled = 1;
    receive(AUTHORIZE);
    EXPECT_EQ(lines_at_level(7, [] { receive(LEAVE); }),
              lines({LEFT, IS_INACTIVE, "send_role_ioctl: action 2", DELETING}));
}

void receive_key_event(uint16_t subinfo_code) {
    received_payload received(
        event_payload().header(ALICE, 1).u32(5, 100).u16(6, subinfo_code).item(7, byte_string(111)));
    handle_client_info(VRE_CL_INFO, received.data(), received.length());
}

TEST_F(Whereabouts, TheWholeStayOfAClientWithAKeyIsTold) {
    add_profile(1)->flags.role_profile_enabled = 1;
    const std::string received = "handle_client_info: [VRE_CL_INFO] : Received VRE_CL_INFO event with infocode : 100 ";
    EXPECT_EQ(lines_at_level(7,
                             [] {
                                 receive_key_event(1);
                                 receive(AUTHORIZE);
                                 receive(LEAVE);
                                 receive_key_event(3);
                             }),
              lines({received + "subinfocode : 1 for client[02:00:00:00:00:0A]",
                     "handle_cl_pmk_add_evt: client [02:00:00:00:00:0A] entry not found in ssid profile [1] creating "
                     "new one",
                     CAME, IS_ACTIVE, ANNOUNCED, LEFT, IS_INACTIVE, "send_role_ioctl: action 2",
                     received + "subinfocode : 3 for client[02:00:00:00:00:0A]", DELETING}));
}

TEST_F(Left, WithoutRolesTheDriverHearsNothing) {
    add_profile(1);
    receive(AUTHORIZE);
    receive(LEAVE);
    EXPECT_TRUE(role_requests.empty());
}

TEST_F(Left, ARecordWithoutAProfileHasNoRole) {
    ssid_profile_info *const profile = add_profile(1);
    profile->flags.role_profile_enabled = 1;
    add_client(profile, ALICE)->ssid = nullptr;
    receive(LEAVE);
    EXPECT_TRUE(role_requests.empty());
}

}  // namespace
