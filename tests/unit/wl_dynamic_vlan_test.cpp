// VLANs of clients: which source wins, what an SSID allows with its profile loaded or only its file there, and what the
// driver is asked for. The driver is watched through the linker.
#include "wl_dynamic_vlan.h"

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <tuple>

#include "files.h"
#include "wl_cl_info_fixture.h"
#include "wl_common.h"

namespace {

struct driver_request {
    std::string command;
    std::string interface;
    byte_string data;
};

std::vector<driver_request> requests;
int driver_result;

}  // namespace

extern "C" {

int __wrap__Z18do_wlan_priv_ioctlPKcPviS0_(const char *command, void *data, int flags, const char *ifname) {
    EXPECT_EQ(flags, 0);
    const auto *const bytes = static_cast<const uint8_t *>(data);
    requests.push_back({command, ifname, byte_string(bytes, bytes + 8)});
    return driver_result;
}
}

namespace {

constexpr uint32_t PROFILE = 7;
constexpr uint32_t SSID_VLAN = 100;
constexpr uint32_t NOT_REQUESTED = 0xFFFFFFFF;
constexpr char CONF[] = "/tmp/profile7/profile.conf";
constexpr char NOT_FOUND[] = "client 02:00:00:00:00:0A entry not found in ssid profile [7] creating new one";

/// What the driver is to get for ALICE.
byte_string request_of(uint16_t vlan) {
    byte_string bytes = ALICE;
    for (const uint8_t byte : big_endian_bytes(vlan, 2))
        bytes.push_back(byte);
    return bytes;
}

class DynamicVlan : public ClientCache {
protected:
    void SetUp() override {
        ClientCache::SetUp();
        requests.clear();
        driver_result = 0;
        mkdir("/tmp/profile7", 0755);
    }

    void TearDown() override {
        ClientCache::TearDown();
        std::filesystem::remove_all("/tmp/profile7");
    }

    /// Loads a profile whose clients may also be given VLANs 10 and 20.
    static ssid_profile_info *load_profile() {
        write_file(CONF, "ALL_EXTRA_SSID_VLAN_LIST=10,20\n");
        ssid_profile_info *const profile = add_profile(PROFILE);
        profile->ap_vlan = SSID_VLAN;
        return profile;
    }

    /// A scenario that begins with an empty table.
    static std::function<void()> anew(const std::function<void()> &scenario) {
        return [scenario] {
            start_again();
            requests.clear();
            scenario();
        };
    }

    static void assign(uint32_t vlan, uint8_t source, wl_client_info *client = nullptr, const char *ifname = "ath0") {
        call_handle_dynamimc_vlan_sh(PROFILE, ALICE.data(), vlan, source, client, ifname);
    }

    static uint16_t last_vlan() {
        return requests.empty() ? 0 : static_cast<uint16_t>(requests.back().data[6] << 8 | requests.back().data[7]);
    }

    /// What the relay hands over.
    static void receive(wl_evt_info_t *info) {
        handle_vre_dynamic_vlan(VRE_HOSTAPD_EVENT, info, 0);
    }

    struct vlan_event {
        byte_string mac = ALICE;
        byte_string value = {0, 0, 0, 20};
        char name[16] = "ath0";
        wl_evt_info_t info{};

        vlan_event() {
            info.cl_mac = mac.data();
            info.profile_id = PROFILE;
            info.name = name;
            set_value(value);
        }

        void set_value(const byte_string &bytes) {
            value = bytes;
            info.subinfo_value = value.data();
            info.subinfo_value_len = static_cast<uint16_t>(value.size());
        }
    };

    struct decision {
        int32_t vlan;
        lines vaps;
        int created;
    };

    static decision decide(uint32_t vlan, ssid_profile_info *ssid) {
        list_t *vaps = nullptr;
        uint8_t created = 2;
        decision made{check_is_valid_vlan(PROFILE, vlan, ssid, &vaps, &created), {}, 0};
        made.created = created;
        for (const list_t *node = vaps; node != nullptr; node = node->next)
            made.vaps.emplace_back(static_cast<const vapinfo *>(node->value)->name);
        if (created == 1)
            list_free(&vaps);
        return made;
    }

    static int32_t decide_by_file(const std::string &text, uint32_t vlan) {
        write_file(CONF, text);
        return decide(vlan, nullptr).vlan;
    }
};

// The event

TEST_F(DynamicVlan, AnEventWithoutARecordIsReported) {
    const lines expected{"handle_vre_dynamic_vlan: Payload is NULL.", ""};
    EXPECT_EQ(lines_at_level(3, [] { receive(nullptr); }), expected);
    EXPECT_EQ(lines_at_level(2, [] { receive(nullptr); }), lines());
}

TEST_F(DynamicVlan, AnEventWithoutProfileIsReported) {
    vlan_event event;
    event.info.profile_id = 0;
    const lines expected{"handle_vre_dynamic_vlan: some tags are missing in message sent to wl event handler ", ""};
    EXPECT_EQ(lines_at_level(3, [&] { receive(&event.info); }), expected);
    EXPECT_EQ(lines_at_level(2, [&] { receive(&event.info); }), lines());
    EXPECT_TRUE(requests.empty());
}

TEST_F(DynamicVlan, AnEventWithAnAllZeroOrAbsentClientIsReported) {
    vlan_event event;
    event.mac = byte_string(6);
    event.info.cl_mac = event.mac.data();
    const lines expected{"handle_vre_dynamic_vlan: some tags are missing in message sent to wl event handler ", ""};
    EXPECT_EQ(lines_at_level(7, [&] { receive(&event.info); }), expected);
    event.info.cl_mac = nullptr;
    EXPECT_EQ(lines_at_level(7, [&] { receive(&event.info); }), expected);
}

TEST_F(DynamicVlan, AClientWhoseLastByteAloneIsSetCounts) {
    load_profile();
    vlan_event event;
    event.mac = {0, 0, 0, 0, 0, 1};
    event.info.cl_mac = event.mac.data();
    receive(&event.info);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].data, byte_string({0, 0, 0, 0, 0, 1, 0, 20}));
}

TEST_F(DynamicVlan, AnEventWithoutOrWithAShortValueIsReported) {
    vlan_event event;
    const lines expected{"handle_vre_dynamic_vlan: vlan id is  NULL", ""};
    event.set_value({0, 0, 20});
    EXPECT_EQ(lines_at_level(3, [&] { receive(&event.info); }), expected);
    EXPECT_EQ(lines_at_level(2, [&] { receive(&event.info); }), lines());
    event.info.subinfo_value = nullptr;
    event.info.subinfo_value_len = 4;
    EXPECT_EQ(lines_at_level(7, [&] { receive(&event.info); }), expected);
    EXPECT_TRUE(requests.empty());
}

TEST_F(DynamicVlan, OneComplaintIsEnoughForAnEventThatLacksAll) {
    vlan_event event;
    event.info.profile_id = 0;
    event.info.subinfo_value = nullptr;
    const lines expected{"handle_vre_dynamic_vlan: some tags are missing in message sent to wl event handler ", ""};
    EXPECT_EQ(lines_at_level(7, [&] { receive(&event.info); }), expected);
}

TEST_F(DynamicVlan, TheVlanIsTheFirstFourBytesOfTheValue) {
    const ssid_profile_info *const profile = load_profile();
    vlan_event event;
    event.set_value({0, 0, 0, 20, 0xFF, 0xFF});
    receive(&event.info);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].command, "set_user_vlan");
    EXPECT_EQ(requests[0].interface, "ath0");
    EXPECT_EQ(requests[0].data, request_of(20));
    const wl_client_info *const client = find(profile, ALICE);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->vlan_info.vlan_id, 20U);
    EXPECT_EQ(client->vlan_info.recv_vlan_id, 20U);
    EXPECT_EQ(client->vlan_info.priority, 3);
}

TEST_F(DynamicVlan, AnEventWithoutVapReachesEveryVapOfTheSsid) {
    load_profile();
    vlan_event event;
    event.info.name = nullptr;
    receive(&event.info);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].interface, "ath0");
    EXPECT_EQ(requests[1].interface, "ath1");
}

// The strongest source

class SourcesInTurn : public DynamicVlan, public testing::WithParamInterface<std::tuple<int, int>> {};

TEST_P(SourcesInTurn, OnlyAnAtLeastEquallyStrongSourceReplacesTheOneBefore) {
    const auto [first, second] = GetParam();
    ssid_profile_info *const profile = load_profile();
    assign(10, static_cast<uint8_t>(first));
    ASSERT_EQ(requests.size(), 1U);
    assign(20, static_cast<uint8_t>(second));
    const bool replaces = second >= first;
    EXPECT_EQ(requests.size(), replaces ? 2U : 1U);
    EXPECT_EQ(last_vlan(), replaces ? 20 : 10);
    const vlan_info_t &stored = find(profile, ALICE)->vlan_info;
    EXPECT_EQ(stored.vlan_id, replaces ? 20U : 10U);
    EXPECT_EQ(stored.recv_vlan_id, replaces ? 20U : 10U);
    EXPECT_EQ(stored.priority, std::max(first, second));
}

INSTANTIATE_TEST_SUITE_P(EveryOrder, SourcesInTurn, testing::Combine(testing::Range(1, 4), testing::Range(1, 4)));

TEST_F(DynamicVlan, AWeakerSourceLeavesNoLine) {
    load_profile();
    assign(20, CLIENT_PER_USER_VLAN);
    EXPECT_EQ(lines_at_level(7, [] { assign(10, CLIENT_ROLE_VLAN); }), lines());
}

TEST_F(DynamicVlan, SettingStoresVlanAndSource) {
    ssid_profile_info *const profile = load_profile();
    wl_client_info *client = add_client(profile, ALICE);
    wl_client_info *const same = client;
    EXPECT_EQ(set_client_vlan_with_priority(&client, 30, 2, PROFILE, ALICE.data(), profile), 1);
    EXPECT_EQ(client, same);
    EXPECT_EQ(client->vlan_info.vlan_id, 30U);
    EXPECT_EQ(client->vlan_info.priority, 2);
    EXPECT_EQ(client->vlan_info.recv_vlan_id, 0U) << "that is the caller's";
    EXPECT_EQ(set_client_vlan_with_priority(&client, 31, 1, PROFILE, ALICE.data(), profile), 0);
    EXPECT_EQ(client->vlan_info.vlan_id, 30U);
    EXPECT_EQ(client->vlan_info.priority, 2);
}

TEST_F(DynamicVlan, SettingNeedsNoProfileForAKnownClient) {
    wl_client_info *client = add_client(load_profile(), ALICE);
    EXPECT_EQ(set_client_vlan_with_priority(&client, 30, 2, PROFILE, ALICE.data(), nullptr), 1);
    EXPECT_EQ(client->vlan_info.vlan_id, 30U);
}

TEST_F(DynamicVlan, SettingFindsTheClientInTheCache) {
    ssid_profile_info *const profile = load_profile();
    wl_client_info *const known = add_client(profile, ALICE);
    add_client(profile, BOB);
    log_capture log;
    wl_client_info *client = nullptr;
    EXPECT_EQ(set_client_vlan_with_priority(&client, 30, 2, PROFILE, ALICE.data(), profile), 1);
    EXPECT_EQ(client, known);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(DynamicVlan, SettingAddsAnUnknownClient) {
    const auto set = anew([] {
        ssid_profile_info *const profile = load_profile();
        wl_client_info *client = nullptr;
        EXPECT_EQ(set_client_vlan_with_priority(&client, 30, 2, PROFILE, ALICE.data(), profile), 1);
        EXPECT_NE(client, nullptr);
        EXPECT_EQ(client, find(profile, ALICE));
        EXPECT_EQ(client->ssid, profile);
    });
    expect_logged(3, std::string("set_client_vlan_with_priority: ") + NOT_FOUND, set);
}

TEST_F(DynamicVlan, SettingWithoutClientAndProfileIsOutcomeTwo) {
    wl_client_info *client = nullptr;
    EXPECT_EQ(set_client_vlan_with_priority(&client, 30, 2, PROFILE, ALICE.data(), nullptr), 2);
    EXPECT_EQ(client, nullptr);
}

TEST_F(DynamicVlan, NoClientIsMadeInAProfileWithoutCache) {
    ssid_profile_info *const role = add_profile(PROFILE, "Staff", true);
    wl_client_info *client = nullptr;
    EXPECT_EQ(set_client_vlan_with_priority(&client, 30, 2, PROFILE, ALICE.data(), role), 0);
    EXPECT_EQ(client, nullptr);
    assign(30, 3);
    EXPECT_TRUE(requests.empty());
}

TEST_F(DynamicVlan, WithoutMemoryForTheClientNothingIsDone) {
    ssid_profile_info *const profile = load_profile();
    for (const char *const function : {"calloc", "malloc"}) {  // the record; its place in the cache
        fail_nth_call(function, 1);
        assign(20, CLIENT_PER_USER_VLAN);
        EXPECT_EQ(faults_fired(function), 1);
        clear_faults();
        EXPECT_TRUE(requests.empty());
        EXPECT_EQ(find(profile, ALICE), nullptr);
    }
    assign(20, CLIENT_PER_USER_VLAN);
    EXPECT_EQ(last_vlan(), 20);
}

// No VLAN requested

TEST_F(DynamicVlan, WithoutARequestedVlanTheSsidsIsApplied) {
    ssid_profile_info *const profile = load_profile();
    assign(NOT_REQUESTED, CLIENT_PER_USER_VLAN);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].data, request_of(SSID_VLAN));
    const vlan_info_t &stored = find(profile, ALICE)->vlan_info;
    EXPECT_EQ(stored.vlan_id, SSID_VLAN);
    EXPECT_EQ(stored.recv_vlan_id, NOT_REQUESTED);
    EXPECT_EQ(stored.priority, 1) << "it counts as the SSID's";
}

TEST_F(DynamicVlan, WithoutARequestedVlanAStrongerOneStays) {
    ssid_profile_info *const profile = load_profile();
    for (const uint8_t source : {CLIENT_ROLE_VLAN, CLIENT_PER_USER_VLAN}) {
        assign(20, source);
        requests.clear();
        assign(NOT_REQUESTED, CLIENT_PER_USER_VLAN);
        EXPECT_TRUE(requests.empty());
        EXPECT_EQ(find(profile, ALICE)->vlan_info.vlan_id, 20U);
        EXPECT_EQ(find(profile, ALICE)->vlan_info.recv_vlan_id, 20U);
        EXPECT_EQ(find(profile, ALICE)->vlan_info.priority, source);
    }
}

TEST_F(DynamicVlan, WithoutARequestedVlanTheSsidsOwnIsGivenAgain) {
    const ssid_profile_info *const profile = load_profile();
    assign(20, CLIENT_SSID_VLAN);
    assign(NOT_REQUESTED, CLIENT_PER_USER_VLAN);
    EXPECT_EQ(last_vlan(), SSID_VLAN);
    EXPECT_EQ(find(profile, ALICE)->vlan_info.vlan_id, SSID_VLAN);
}

// What the driver is told

TEST_F(DynamicVlan, TheRequestIsTheClientAndTheVlanBigEndian) {
    load_profile()->ap_vlan = 0x0ABC;
    assign(5, CLIENT_PER_USER_VLAN);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].data, byte_string({0x02, 0x00, 0x00, 0x00, 0x00, 0x0A, 0x0A, 0xBC}));
}

TEST_F(DynamicVlan, AGivenClientsVlanCountsAndIsChanged) {
    ssid_profile_info *const profile = load_profile();
    wl_client_info *const client = add_client(profile, ALICE);
    assign(10, CLIENT_ROLE_VLAN, client);
    EXPECT_EQ(client->vlan_info.vlan_id, 10U);
    EXPECT_EQ(client->vlan_info.recv_vlan_id, 10U);
    EXPECT_EQ(client->vlan_info.priority, 2);
}

TEST_F(DynamicVlan, ARefusedVlanIsRememberedAsRequestedOnly) {
    const ssid_profile_info *const profile = load_profile();
    assign(77, CLIENT_PER_USER_VLAN);
    EXPECT_EQ(last_vlan(), SSID_VLAN);
    EXPECT_EQ(find(profile, ALICE)->vlan_info.vlan_id, SSID_VLAN);
    EXPECT_EQ(find(profile, ALICE)->vlan_info.recv_vlan_id, 77U);
    EXPECT_EQ(find(profile, ALICE)->vlan_info.priority, 3);
}

TEST_F(DynamicVlan, ARolesVlanIsCheckedToo) {
    load_profile();
    assign(77, CLIENT_ROLE_VLAN);
    EXPECT_EQ(last_vlan(), SSID_VLAN);
}

TEST_F(DynamicVlan, WithoutProfileAKnownClientsOwnVlanIsDecidedOn) {
    write_file(CONF, "DYNAMIC_VLAN=40\nVLAN_ID=9\n");
    ssid_profile_info *const other = add_profile(8);
    wl_client_info *const client = add_client(other, ALICE);
    client->vlan_info = {40, 0, 3};
    assign(20, CLIENT_PER_USER_VLAN, client);
    EXPECT_EQ(last_vlan(), 40) << "nothing has stored the requested VLAN";
    EXPECT_EQ(client->vlan_info.recv_vlan_id, 20U);
}

TEST_F(DynamicVlan, TheSourceIsNamed) {
    const std::vector<std::pair<uint8_t, std::string>> names{
        {1, "SSID VLAN"}, {2, "Role Vlan"}, {3, "Radius"}, {0, ""}, {4, ""}};
    for (const auto &[source, name] : names) {
        const uint8_t of = source;
        expect_logged(7, "call_handle_dynamimc_vlan_sh: VLAN received from " + name + " : 20", anew([of] {
                          load_profile();
                          assign(20, of);
                      }));
    }
    expect_logged(7, "call_handle_dynamimc_vlan_sh: VLAN received from SSID VLAN : -1", anew([] {
                      load_profile();
                      assign(NOT_REQUESTED, CLIENT_PER_USER_VLAN);
                  }));
}

TEST_F(DynamicVlan, TheLinesOfAnAssignmentComeInOrder) {
    ssid_profile_info *const profile = load_profile();
    add_client(profile, ALICE);
    const std::string me = "call_handle_dynamimc_vlan_sh: ";
    const lines expected{
        me + "VLAN received from Radius : 20",
        "read_ssid_extra_vlan_list: ALL_EXTRA_SSID_VLAN_LIST=10,20",
        "create_and_add_extra_vlan: vlan_id : 10",
        "",
        "create_and_add_extra_vlan: vlan_id : 20",
        "",
        "check_is_valid_vlan: Vlan[20] is configured on SSID so set for client",
        me + "DYNAMIC_VLAN applied to the Client: 20 Client MAC : 02:00:00:00:00:0A",
        me + "Profile ID 7 vlan 20 mac 02:00:00:00:00:0A vapname[ath0]",
        "",
    };
    EXPECT_EQ(lines_at_level(7, [] { assign(20, CLIENT_PER_USER_VLAN); }), expected);
    assign(20, CLIENT_PER_USER_VLAN);
    const lines at_6 = lines_at_level(6, [] { assign(20, CLIENT_PER_USER_VLAN); });
    EXPECT_EQ(at_6, lines({"check_is_valid_vlan: Vlan[20] is configured on SSID so set for client"}));
}

TEST_F(DynamicVlan, WithoutClientNothingIsSaidToBeApplied) {
    write_file(CONF, "VLAN_ID=9\n");
    const lines all = lines_at_level(7, [] { assign(20, CLIENT_PER_USER_VLAN); });
    for (const std::string &line : all)
        EXPECT_EQ(line.find("DYNAMIC_VLAN applied"), std::string::npos) << line;
    EXPECT_TRUE(holds(all, "call_handle_dynamimc_vlan_sh: Profile ID 7 vlan 9 mac 02:00:00:00:00:0A vapname[ath0]"));
}

TEST_F(DynamicVlan, ARefusalOfTheDriverIsReported) {
    driver_result = -1;
    const std::string line = "call_handle_dynamimc_vlan_sh: set_user_vlan : failed to perform IOCTL";
    expect_logged(3, line, anew([] {
                      load_profile();
                      assign(20, 3);
                  }));
    EXPECT_EQ(requests.size(), 1U);
}

TEST_F(DynamicVlan, AVlanThatTheDriverRefusesStaysInTheCache) {
    for (const char *const ifname : {static_cast<const char *>(nullptr), "ath0"}) {
        start_again();
        requests.clear();
        const ssid_profile_info *const profile = load_profile();
        driver_result = -1;
        assign(20, CLIENT_PER_USER_VLAN, nullptr, ifname);
        ASSERT_FALSE(requests.empty());
        requests.clear();
        driver_result = 0;
        assign(10, CLIENT_ROLE_VLAN, nullptr, ifname);
        EXPECT_TRUE(requests.empty()) << "it is as strong as one that was taken";
        const wl_client_info *const client = find(profile, ALICE);
        ASSERT_NE(client, nullptr);
        EXPECT_EQ(client->vlan_info.vlan_id, 20U);
        EXPECT_EQ(client->vlan_info.recv_vlan_id, 20U);
        EXPECT_EQ(client->vlan_info.priority, 3);
    }
}

TEST_F(DynamicVlan, WithoutInterfaceEveryVapIsToldAndNamed) {
    ssid_profile_info *const profile = load_profile();
    add_client(profile, ALICE);
    driver_result = -1;
    const std::string me = "call_handle_dynamimc_vlan_sh: ";
    const lines at_3 = lines_at_level(3, [] { assign(20, 3, nullptr, nullptr); });
    EXPECT_EQ(at_3, lines({me + "vap name : ath0", me + "set_user_vlan : failed to perform IOCTL athname[ath0]", "",
                           me + "vap name : ath1", me + "set_user_vlan : failed to perform IOCTL athname[ath1]", ""}));
    const lines at_2 = lines_at_level(2, [] { assign(20, 3, nullptr, nullptr); });
    EXPECT_EQ(at_2, lines({me + "vap name : ath0", me + "vap name : ath1"}));
    EXPECT_EQ(lines_at_level(1, [] { assign(20, 3, nullptr, nullptr); }), lines());
    expect_logged(7, me + "Profile ID 7 vlan 20 mac 02:00:00:00:00:0A vapname[]",
                  [] { assign(20, 3, nullptr, nullptr); });
    for (const driver_request &request : requests)
        EXPECT_EQ(request.data, request_of(20));
}

TEST_F(DynamicVlan, TheVapsOfTheFileAreToldLastNamedFirst) {
    write_file(CONF, "VAP_LIST=ath3,ath4.100\nVAP_LIST=ath5\nVLAN_ID=9\n");
    assign(20, 3, nullptr, nullptr);
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].interface, "ath5");
    EXPECT_EQ(requests[1].interface, "ath4");
    EXPECT_EQ(requests[2].interface, "ath3");
    requests.clear();
    assign(20, 3, nullptr, "ath9");
    ASSERT_EQ(requests.size(), 1U) << "the list is freed all the same, as the leak checker sees";
    EXPECT_EQ(requests[0].interface, "ath9");
}

TEST_F(DynamicVlan, WithoutVapsNobodyIsTold) {
    list_free(&load_profile()->vap_data_list);
    assign(20, 3, nullptr, nullptr);
    EXPECT_TRUE(requests.empty());
}

TEST_F(DynamicVlan, WithoutProfileAndFileMinusOneIsSent) {
    assign(20, CLIENT_PER_USER_VLAN);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].data, request_of(0xFFFF));
}

TEST_F(DynamicVlan, WithoutProfileAndVlanOfItsOwnMinusOneIsSent) {
    write_file(CONF, "DYNAMIC_VLAN=10,30\n");
    assign(20, CLIENT_PER_USER_VLAN);
    assign(NOT_REQUESTED, CLIENT_PER_USER_VLAN);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].data, request_of(0xFFFF));
    EXPECT_EQ(requests[1].data, request_of(0xFFFF));
    expect_logged(7, "call_handle_dynamimc_vlan_sh: Profile ID 7 vlan -1 mac 02:00:00:00:00:0A vapname[ath0]",
                  [] { assign(20, CLIENT_PER_USER_VLAN); });
}

TEST_F(DynamicVlan, WithoutProfileTheStrengthOfSourcesDoesNotCount) {
    write_file(CONF, "DYNAMIC_VLAN=10,20\n");
    assign(20, CLIENT_PER_USER_VLAN);
    assign(10, CLIENT_SSID_VLAN);
    EXPECT_EQ(requests.size(), 2U);
    EXPECT_EQ(last_vlan(), 10);
}

// What a loaded SSID allows

TEST_F(DynamicVlan, AConfiguredVlanIsTaken) {
    ssid_profile_info *profile = load_profile();
    const decision made = decide(20, profile);
    EXPECT_EQ(made.vlan, 20);
    EXPECT_EQ(made.created, 0);
    EXPECT_EQ(made.vaps, lines({"ath0", "ath1"}));
    expect_logged(6, "check_is_valid_vlan: Vlan[20] is configured on SSID so set for client",
                  [&] { (void)decide(20, profile); });
}

TEST_F(DynamicVlan, AnotherVlanBecomesTheSsids) {
    ssid_profile_info *profile = load_profile();
    EXPECT_EQ(decide(30, profile).vlan, 100);
    expect_logged(6, "check_is_valid_vlan: Vlan[30] not configured so setting SSID vlan to client",
                  [&] { (void)decide(30, profile); });
}

TEST_F(DynamicVlan, NoVlanIsTheSsidsWithoutAWord) {
    ssid_profile_info *profile = load_profile();
    log_capture log;
    EXPECT_EQ(decide(NOT_REQUESTED, profile).vlan, 100);
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(profile->extra_vlan_list, nullptr) << "nor is the file read";
    EXPECT_EQ(decide(NOT_REQUESTED, profile).vaps, lines({"ath0", "ath1"}));
}

TEST_F(DynamicVlan, MembershipLooksAtSixteenBits) {
    ssid_profile_info *profile = load_profile();
    EXPECT_EQ(decide(0x10000 + 20, profile).vlan, 0x10000 + 20);
    EXPECT_EQ(decide(0x8000 + 20, profile).vlan, 100);
    assign(0x10000 + 20, 3);
    EXPECT_EQ(last_vlan(), 20);
    expect_logged(6, "check_is_valid_vlan: Vlan[4294901780] is configured on SSID so set for client",
                  [&] { (void)decide(0xFFFF0000 + 20, profile); });
}

TEST_F(DynamicVlan, TheVlansAreReadOnce) {
    ssid_profile_info *profile = load_profile();
    EXPECT_EQ(decide(20, profile).vlan, 20);
    EXPECT_EQ(profile->num_extra_vlans, 2);
    write_file(CONF, "ALL_EXTRA_SSID_VLAN_LIST=30\n");
    EXPECT_EQ(decide(30, profile).vlan, 100);
    EXPECT_EQ(profile->num_extra_vlans, 2);
}

TEST_F(DynamicVlan, WithoutAnyVlanTheyAreReadAgain) {
    ssid_profile_info *profile = load_profile();
    write_file(CONF, "VLAN_ID=1\n");
    EXPECT_EQ(decide(20, profile).vlan, 100);
    write_file(CONF, "ALL_EXTRA_SSID_VLAN_LIST=20\n");
    EXPECT_EQ(decide(20, profile).vlan, 20);
}

TEST_F(DynamicVlan, VlansThatTheProfileHasAlreadyAreTaken) {
    ssid_profile_info *profile = load_profile();
    create_and_add_extra_vlan(&profile->extra_vlan_list, 33, &profile->num_extra_vlans);
    EXPECT_EQ(decide(33, profile).vlan, 33);
    EXPECT_EQ(decide(20, profile).vlan, 100) << "the file is not needed then";
}

TEST_F(DynamicVlan, WithoutItsFileALoadedSsidGivesItsOwnVlan) {
    ssid_profile_info *profile = load_profile();
    std::filesystem::remove(CONF);
    EXPECT_EQ(decide(20, profile).vlan, 100);
    expect_logged(3,
                  "read_ssid_extra_vlan_list: Cannot open /tmp/profile7/profile.conf for reading (No such file or "
                  "directory)",
                  [&] { (void)decide(20, profile); });
}

TEST_F(DynamicVlan, WithoutMemoryForAVlanItIsNotAllowed) {
    ssid_profile_info *profile = load_profile();
    // The file's buffer may come from malloc, too, so every call is made to fail in turn.
    bool reported = false;
    for (int nth = 1;; nth++) {
        list_free(&profile->extra_vlan_list);
        profile->num_extra_vlans = 0;
        log_capture log;
        fail_nth_call("malloc", nth);
        const int32_t vlan = decide(20, profile).vlan;
        const bool fired = faults_fired("malloc") > 0;
        clear_faults();
        reported = reported || holds(log.lines(), "create_and_add_extra_vlan: Cannot allocate memory for vlan data");
        EXPECT_TRUE(vlan == 20 || vlan == 100);
        if (!fired) {
            EXPECT_EQ(vlan, 20);
            break;
        }
    }
    EXPECT_TRUE(reported);
}

TEST_F(DynamicVlan, TheVlansOfEveryLineOfTheFileCount) {
    ssid_profile_info *profile = add_profile(PROFILE);
    write_file(CONF, "#ALL_EXTRA_SSID_VLAN_LIST=5\n"
                     "  all_extra_ssid_vlan_list = 10,11\r\n"
                     "ALL_EXTRA_SSID_VLAN_LISTS=6\n"
                     "ALL_EXTRA_SSID_VLAN_LIS=7\n"
                     "ALL_EXTRA_SSID_VLAN_LIST\n"
                     "ALL_EXTRA_SSID_VLAN_LIST 20\n");
    const lines all = lines_at_level(6, [&] { read_ssid_extra_vlan_list(PROFILE, profile); });
    const std::string add = "create_and_add_extra_vlan: vlan_id : ";
    const std::string me = "read_ssid_extra_vlan_list: ";
    EXPECT_EQ(all, lines({me + "ALL_EXTRA_SSID_VLAN_LIST=10,11", add + "10", "", add + "11", "",
                          me + "ALL_EXTRA_SSID_VLAN_LIST=20", add + "20", ""}));
    EXPECT_EQ(profile->num_extra_vlans, 3);
    EXPECT_EQ(lines_at_level(5, [&] { read_ssid_extra_vlan_list(PROFILE, profile); }), lines());
    EXPECT_EQ(profile->num_extra_vlans, 3);
}

TEST_F(DynamicVlan, TheFileIsNamedByTheIdThatIsGiven) {
    ssid_profile_info *profile = add_profile(PROFILE);
    expect_logged(
        3,
        "read_ssid_extra_vlan_list: Cannot open /tmp/profile4294967295/profile.conf for reading (No such file "
        "or directory)",
        [&] { read_ssid_extra_vlan_list(0xFFFFFFFF, profile); });
    EXPECT_EQ(profile->num_extra_vlans, 0);
}

// What the file of an SSID that is not loaded allows

TEST_F(DynamicVlan, WithoutProfileTheFileIsRead) {
    write_file(CONF, "VAP_LIST=ath0,ath1\nVLAN_ID=9\nDYNAMIC_VLAN=10,20\n");
    const std::string me = "check_is_valid_vlan: ";
    const lines all = lines_at_level(6, [] {
        const decision made = decide(20, nullptr);
        EXPECT_EQ(made.vlan, 20);
        EXPECT_EQ(made.created, 1);
        EXPECT_EQ(made.vaps, lines({"ath1", "ath0"}));
    });
    EXPECT_EQ(all, lines({me + "SSID not configured so Reading /tmp/profile7/profile.conf", me + "VAP_LIST=ath0,ath1",
                          me + "VLAN_ID=9", me + "DYNAMIC_VLAN=10,20"}));
    EXPECT_EQ(lines_at_level(5, [] { (void)decide(20, nullptr); }), lines());
}

TEST_F(DynamicVlan, WithoutProfileAndFileNoVlanIsGiven) {
    const std::string me = "check_is_valid_vlan: ";
    const lines all = lines_at_level(7, [] {
        const decision made = decide(20, nullptr);
        EXPECT_EQ(made.vlan, -1);
        EXPECT_EQ(made.created, 0);
        EXPECT_EQ(made.vaps, lines());
    });
    const std::string failure = me + "Cannot open /tmp/profile7/profile.conf for reading (No such file or directory)";
    EXPECT_EQ(all, lines({me + "SSID not configured so Reading /tmp/profile7/profile.conf", failure}));
    expect_logged(3, failure, [] { (void)decide(20, nullptr); });
}

TEST_F(DynamicVlan, WithoutVapsInTheFileTheListIsEmptyWhateverItWas) {
    list_t stale{};
    for (const char *const text : {"VLAN_ID=9\n", "VAP_LIST=ath0\n"}) {
        list_t *vaps = &stale;
        uint8_t created = 2;
        write_file(CONF, text);
        (void)check_is_valid_vlan(PROFILE, 20, nullptr, &vaps, &created);
        ASSERT_NE(vaps, &stale) << text;
        EXPECT_EQ(vaps != nullptr, created == 1) << text;
        EXPECT_EQ(stale.next, nullptr) << text;
        list_free(&vaps);
    }
}

TEST_F(DynamicVlan, WithoutProfileAnUnlistedVlanBecomesTheFilesOwn) {
    EXPECT_EQ(decide_by_file("VLAN_ID=9\nDYNAMIC_VLAN=10,20\n", 30), 9);
    EXPECT_EQ(decide_by_file("DYNAMIC_VLAN=10,20\nVLAN_ID=9\n", 30), 9);
    EXPECT_EQ(decide_by_file("VLAN_ID=9\n", 30), 9);
    EXPECT_EQ(decide_by_file("VLAN_ID=9\nVLAN_ID=8\n", 30), 8);
    EXPECT_EQ(decide_by_file("VLAN_ID=9\nDYNAMIC_VLAN=10\n", NOT_REQUESTED), 9);
}

TEST_F(DynamicVlan, WithoutProfileAndVlanIdAnUnlistedVlanIsMinusOne) {
    EXPECT_EQ(decide_by_file("DYNAMIC_VLAN=10,20\n", 30), -1);
    EXPECT_EQ(decide_by_file("", 30), -1);
}

TEST_F(DynamicVlan, AnyLineOfTheFileMayListTheVlan) {
    EXPECT_EQ(decide_by_file("DYNAMIC_VLAN=30\nDYNAMIC_VLAN=10\nVLAN_ID=9\n", 30), 30);
    EXPECT_EQ(decide_by_file("DYNAMIC_VLAN=10\nDYNAMIC_VLAN=30\nVLAN_ID=9\n", 30), 30);
    EXPECT_EQ(decide_by_file("DYNAMIC_VLAN=10, 30,50\nVLAN_ID=9\n", 30), 30);
    EXPECT_EQ(decide_by_file("DYNAMIC_VLAN=10,50,30\nVLAN_ID=9\n", 30), 30);
    EXPECT_EQ(decide_by_file("DYNAMIC_VLAN=300,3\nVLAN_ID=9\n", 30), 9);
    EXPECT_EQ(decide_by_file("DYNAMIC_VLAN=65566\nVLAN_ID=9\n", 30), 9) << "all bits count here";
}

TEST_F(DynamicVlan, KeysOfTheFileMayBeOfAnyCaseAndMustBeWhole) {
    EXPECT_EQ(decide_by_file("dynamic_vlan=30\nvlan_id=9\n", 30), 30);
    EXPECT_EQ(decide_by_file("Vlan_Id=9\n", 30), 9);
    EXPECT_EQ(decide_by_file("VLAN_IDS=9\nXVLAN_ID=8\nVLAN=7\nDYNAMIC_VLANS=30\n", 30), -1);
    write_file(CONF, "vap_list=ath7\nVAP_LISTS=ath8\n");
    EXPECT_EQ(decide(30, nullptr).vaps, lines({"ath7"}));
}

TEST_F(DynamicVlan, WithoutMemoryForAVapOfTheFileTheOthersAreTold) {
    write_file(CONF, "VAP_LIST=ath0,ath1\nVLAN_ID=9\n");
    fail_nth_call("calloc", 1);
    assign(20, 3, nullptr, nullptr);
    EXPECT_EQ(faults_fired("calloc"), 1);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].interface, "ath1");
}

TEST_F(DynamicVlan, AFileOfAnyBytesIsSurvived) {
    std::string bytes;
    for (unsigned state = 1, i = 0; i < 20000; i++) {
        state = state * 1103515245 + 12345;
        bytes.push_back(static_cast<char>(state >> 16));
    }
    (void)decide_by_file("VAP_LIST=" + bytes + "\nDYNAMIC_VLAN=,,,\nVAP_LIST=,,\nVLAN_ID=x\n", 20);
    EXPECT_EQ(decide_by_file("VAP_LIST=,\nDYNAMIC_VLAN=,\nVLAN_ID=x\n", 20), 0);
    assign(20, 3, nullptr, nullptr);
    EXPECT_TRUE(requests.empty());
}

}  // namespace
