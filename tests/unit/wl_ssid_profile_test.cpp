// The table of SSID profiles: loading, publishing, deleting and the update event. The synch agent, the role rules and
// the table's own changes are watched through the linker.
#include "wl_ssid_profile.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include "child.h"
#include "event_payload.h"
#include "fault.h"
#include "files.h"
#include "log_capture.h"
#include "wl_cl_info.h"
#include "wl_client_role.h"
#include "wl_log.h"
#include "wl_server.h"
#include "wl_vap_helpers.h"

namespace {

using ids = std::vector<uint32_t>;

/// What reached the synch agent's side, and the ids of the profiles.
struct {
    ids registered;
    ids unregistered;
    std::vector<std::pair<uint32_t, int>> requests;  // id and flag
    ids rules_saved;
    std::vector<size_t> caches_at_the_rules;  // buckets of the client caches when rules were saved
} calls;

bool registered_before_flag;  // a profile came to registration without its pending request
bool unlocked_change;         // the table was changed without the lock
int table_changes;

void check_lock() {
    table_changes++;
    if (pthread_mutex_trylock(&g_ssid_profile_list_mutex) == EBUSY)
        return;
    unlocked_change = true;
    pthread_mutex_unlock(&g_ssid_profile_list_mutex);
}

ssid_profile_info *find(uint32_t id) {
    return static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &id));
}

}  // namespace

extern "C" {

int __wrap__Z30register_ssid_with_synch_agentP17ssid_profile_info(ssid_profile_info *profile) {
    registered_before_flag |= profile->send_cl_info_req != 1 || find(profile->profile_id) != profile;
    calls.registered.push_back(profile->profile_id);
    return -1;
}

int __wrap__Z32unregister_ssid_with_synch_agentP17ssid_profile_info(ssid_profile_info *profile) {
    EXPECT_EQ(find(profile->profile_id), profile);
    calls.unregistered.push_back(profile->profile_id);
    return -1;
}

int __wrap__Z23send_cl_info_req_packetP17ssid_profile_infoh(ssid_profile_info *profile, uint8_t flag) {
    calls.requests.emplace_back(profile->profile_id, flag);
    return -1;
}

int __wrap__Z26save_role_derivation_rulesP17ssid_profile_info(ssid_profile_info *profile) {
    calls.rules_saved.push_back(profile->profile_id);
    calls.caches_at_the_rules.push_back(profile->cl_info_hash.table_size);
    return -1;
}

int __real__Z14hash_table_addP12hash_table_tPvS1_(hash_table_t *table, void *key, void *value);
int __wrap__Z14hash_table_addP12hash_table_tPvS1_(hash_table_t *table, void *key, void *value) {
    check_lock();
    return __real__Z14hash_table_addP12hash_table_tPvS1_(table, key, value);
}

int __real__Z17hash_table_deleteP12hash_table_tPKv(hash_table_t *table, const void *key);
int __wrap__Z17hash_table_deleteP12hash_table_tPKv(hash_table_t *table, const void *key) {
    check_lock();
    return __real__Z17hash_table_deleteP12hash_table_tPKv(table, key);
}
}

namespace {

using lines = std::vector<std::string>;

constexpr int ADD = 1;
constexpr int DELETE = 2;
constexpr int SEND_REQUEST = 3;

// What makes a usable profile beside its id.
constexpr char USABLE[] = "WL_PROFILE_SSID=net\nVAP_LIST=ath0\nExternalDevice=eth0\n";

void write_profile(int number, const std::string &profile_conf, const std::string &wl_conf = "") {
    const std::string directory = "/tmp/profile" + std::to_string(number);
    mkdir(directory.c_str(), 0755);
    write_file(directory + "/profile.conf", profile_conf);
    write_file(directory + "/wl.conf", wl_conf);
}

/// Files of a usable profile whose own id is its number.
void write_usable_profile(int number, const std::string &more = "") {
    write_profile(number, "SSID_PROFILE_ID=" + std::to_string(number) + "\n" + USABLE + more);
}

void remove_profile_files() {
    for (const auto &entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().filename().string().starts_with("profile"))
            std::filesystem::remove_all(entry.path());
    }
}

byte_string update_event(uint32_t id, int flag) {
    byte_string event = big_endian_bytes(id, 4);
    event.push_back(static_cast<uint8_t>(flag));
    return event;
}

int update(uint32_t id, int flag) {
    return handle_ssid_profile_update(update_event(id, flag).data());
}

lines lines_at_level(int level, const std::function<void()> &action) {
    log_capture log;
    debug = level;
    action();
    return log.lines();
}

bool holds(const lines &all, const std::string &line) {
    return std::ranges::find(all, line) != all.end();
}

/// Expects a repeatable action to log a line at its level and not below.
void expect_logged(int level, const std::string &line, const std::function<void()> &action) {
    EXPECT_FALSE(holds(lines_at_level(level - 1, action), line));
    EXPECT_TRUE(holds(lines_at_level(level, action), line)) << line;
}

/// A usable profile that is in no table.
ssid_profile_info *bare_profile(uint32_t id) {
    ssid_profile_info *const profile = create_ssid_profile_data();
    profile->profile_id = id;
    char name[] = "ath0";
    create_and_add_vap(&profile->vap_data_list, name, &profile->num_vaps);
    std::strcpy(profile->ssid, "net");
    profile->external_interface = strdup("eth0");
    return profile;
}

wl_client_info *add_client(ssid_profile_info *profile, uint8_t last_byte, ssid_profile_info *role) {
    auto *const client = static_cast<wl_client_info *>(std::calloc(1, sizeof(wl_client_info)));
    client->mac_addr[5] = last_byte;
    client->role_ssid = role;
    EXPECT_EQ(__real__Z14hash_table_addP12hash_table_tPvS1_(&profile->cl_info_hash, client->mac_addr, client), 0);
    return client;
}

class SsidProfile : public testing::Test {
protected:
    void SetUp() override {
        calls = {};
        registered_before_flag = false;
        unlocked_change = false;
        table_changes = 0;
        g_synch_nack_count = 0;
        g_synch_sock = -1;
        remove_profile_files();
        wl_init_cl_cache_info();
    }

    void TearDown() override {
        EXPECT_FALSE(unlocked_change);
        EXPECT_FALSE(registered_before_flag);
        EXPECT_EQ(pthread_mutex_trylock(&g_ssid_profile_list_mutex), 0);  // it was released
        pthread_mutex_unlock(&g_ssid_profile_list_mutex);
        hash_table_destroy(ssid_profile_list);
        std::free(ssid_profile_list);
    }

    static ids listed() {
        ids found;
        hash_table_iter_t profiles;
        hash_table_iter_init(ssid_profile_list, &profiles);
        while (hash_table_iter_next(&profiles) != 0)
            found.push_back(static_cast<const ssid_profile_info *>(profiles.entry->value)->profile_id);
        std::ranges::sort(found);
        return found;
    }
};

using InitSsidConfig = SsidProfile;
using CheckNeededConfig = SsidProfile;
using DestroySsidProfile = SsidProfile;
using FreeSsidProfile = SsidProfile;
using ProfileUpdate = SsidProfile;
using ProfileTable = SsidProfile;

TEST(ProfileTableStart, AFailedTableEndsTheProcessWithStatusOne) {
    for (const char *const function : {"malloc", "calloc"}) {
        const int status = wait_for(start_child([function] {
            g_logfile_fd = std::fopen("/tmp/log", "we");
            fail_every_call(function);
            wl_init_cl_cache_info();
        }));
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 1) << function;
        EXPECT_NE(file_text("/tmp/log").find("wl_init_cl_cache_info: Error creating the ssid profile hash table\n"),
                  std::string::npos);
    }
}

TEST(ProfileTableStart, TheFailureIsLoggedAtLevelThree) {
    const int status = wait_for(start_child([] {
        g_logfile_fd = std::fopen("/tmp/log", "we");
        debug = 2;
        fail_every_call("calloc");
        wl_init_cl_cache_info();
    }));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(file_text("/tmp/log"), "");
}

TEST_F(ProfileTable, Has43BucketsAndIsEmpty) {
    EXPECT_EQ(ssid_profile_list->table_size, 43U);
    EXPECT_EQ(ssid_profile_list->entry_count, 0U);
}

TEST_F(ProfileTable, HashesTheIdModulo43) {
    for (const uint32_t id : {0U, 42U, 43U, 44U, 0xFFFFFFFFU})
        EXPECT_EQ(ssid_cache_hash_fn.hash_function(&id, nullptr), id % 43);
}

TEST_F(ProfileTable, ComparesIdsByTheirDifference) {
    const auto compare = [](uint32_t stored, uint32_t id) {
        return ssid_cache_hash_fn.compare_keys(&stored, &id, nullptr);
    };
    EXPECT_EQ(compare(7, 7), 0);
    EXPECT_EQ(compare(50, 7), 43);
    EXPECT_EQ(compare(7, 50), -43);
    EXPECT_EQ(compare(0, 0xFFFFFFFF), 1);
}

TEST_F(ProfileTable, IdsOfOneBucketAreAllKeptAndFound) {
    for (const int id : {93, 7, 50}) {
        write_usable_profile(id);
        init_ssid_config(static_cast<uint32_t>(id));
    }
    EXPECT_EQ(listed(), (ids{7, 50, 93}));
    for (const uint32_t id : {7U, 50U, 93U})
        EXPECT_EQ(find(id)->profile_id, id);
    EXPECT_EQ(destroy_ssid_profile_data(50, nullptr), 0);
    EXPECT_EQ(listed(), (ids{7, 93}));
}

TEST(DiscoveryFile, IsTheSensorsOne) {
    EXPECT_STREQ(g_discovery_conf_file, "/opt/sensor/discovery.conf");
}

TEST(ClientCacheFunctions, HashTheSumOfTheBytesModulo43) {
    const uint8_t mac[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xfe};
    EXPECT_EQ(cl_cache_hash_fn.hash_function(mac, nullptr), (5U * 0xff + 0xfe) % 43);
}

TEST(ClientCacheFunctions, CompareSixBytes) {
    const uint8_t mac[7] = {1, 2, 3, 4, 5, 6, 7};
    const uint8_t same[7] = {1, 2, 3, 4, 5, 6, 8};
    const uint8_t greater[6] = {1, 2, 3, 4, 5, 7};
    EXPECT_EQ(cl_cache_hash_fn.compare_keys(mac, same, nullptr), 0);
    EXPECT_LT(cl_cache_hash_fn.compare_keys(mac, greater, nullptr), 0);
    EXPECT_GT(cl_cache_hash_fn.compare_keys(greater, mac, nullptr), 0);
    EXPECT_EQ(cl_cache_hash_fn.free_key, nullptr);
}

TEST(CreateSsidProfile, IsZeroedButForTheIdThatIsNotSet) {
    ssid_profile_info *const profile = create_ssid_profile_data();
    ssid_profile_info expected;
    std::memset(&expected, 0, sizeof expected);
    expected.profile_id = 0xFFFFFFFF;
    EXPECT_EQ(std::memcmp(profile, &expected, sizeof expected), 0);
    free_ssid_profile_info(profile);
}

TEST(CreateSsidProfile, LogsAFailedAllocation) {
    expect_logged(3, "create_ssid_profile_data: Cannot allocate memory for SSID profile data", [] {
        fail_nth_call("calloc", 1);
        EXPECT_EQ(create_ssid_profile_data(), nullptr);
    });
}

TEST(CreateSsidProfile, DefaultsOfNothingAreLogged) {
    expect_logged(3, "set_ssid_profile_data_defaults: NULL SSID data struct passed",
                  [] { set_ssid_profile_data_defaults(nullptr); });
}

TEST(CreateSsidProfile, TheIdIsTheFirstField) {
    EXPECT_EQ(offsetof(ssid_profile_info, profile_id), 0U);
}

TEST_F(InitSsidConfig, AddsAndRegistersAUsableProfile) {
    write_usable_profile(7);
    init_ssid_config(7);
    ASSERT_EQ(listed(), ids{7});
    EXPECT_EQ(find(7)->send_cl_info_req, 1);
    EXPECT_EQ(find(7)->cl_info_hash.table_size, 43U);
    EXPECT_EQ(find(7)->flags.is_mesh_enabled, 0);
    EXPECT_EQ(calls.registered, ids{7});
    EXPECT_EQ(calls.unregistered, ids{});
    EXPECT_EQ(table_changes, 1);
}

TEST_F(InitSsidConfig, LetsTheSecondFileOverrideTheFirst) {
    write_profile(7, std::string("SSID_PROFILE_ID=7\nVLAN_ID=5\nIAPC_ENABLE=2\nAP_SECFILE=EAP\n") + USABLE,
                  "VLAN_ID=6\nVAP_LIST=ath1\nALL_EXTRA_SSID_VLAN_LIST=3\nAP_SECFILE=PSK\n");
    init_ssid_config(7);
    const ssid_profile_info *const profile = find(7);
    ASSERT_NE(profile, nullptr);
    EXPECT_EQ(profile->ap_vlan, 6U);
    EXPECT_EQ(profile->iapc_path, 2);
    EXPECT_EQ(profile->num_vaps, 2);
    EXPECT_EQ(profile->num_extra_vlans, 1);
    EXPECT_EQ(profile->dot1x_enabled, 1);
}

TEST_F(InitSsidConfig, WorksWithOneFileAndLogsTheOther) {
    mkdir("/tmp/profile7", 0755);
    write_file("/tmp/profile7/wl.conf", std::string("SSID_PROFILE_ID=7\n") + USABLE);
    const lines logged = lines_at_level(3, [] { init_ssid_config(7); });
    EXPECT_EQ(logged.front(), "read_ssid_config_file: Could not open SSID profile conf file : "
                              "/tmp/profile7/profile.conf, error : No such file or directory");
    EXPECT_EQ(listed(), ids{7});
}

TEST_F(InitSsidConfig, KeysTheProfileByTheIdOfItsFiles) {
    write_profile(7, std::string("SSID_PROFILE_ID=9\n") + USABLE);
    init_ssid_config(7);
    EXPECT_EQ(listed(), ids{9});
    EXPECT_EQ(calls.registered, ids{9});
}

TEST_F(InitSsidConfig, DropsAProfileWithoutItsFilesAndNamesTheLastOne) {
    const lines logged = lines_at_level(3, [] { init_ssid_config(7); });
    ASSERT_GE(logged.size(), 3U);
    EXPECT_EQ(logged[1], "read_ssid_config_file: Could not open SSID profile conf file : /tmp/profile7/wl.conf, error "
                         ": No such file or directory");
    EXPECT_EQ(logged[2].rfind("print_ssid_profile_data_config: ", 0), 0U);
    EXPECT_EQ(logged.back(), "init_ssid_config: Required config not present in /tmp/profile7/wl.conf");
    EXPECT_EQ(listed(), ids{});
    EXPECT_EQ(calls.registered, ids{});
}

TEST_F(InitSsidConfig, LogsMissingConfigurationAtLevelThree) {
    expect_logged(3, "init_ssid_config: Required config not present in /tmp/profile7/wl.conf",
                  [] { init_ssid_config(7); });
}

TEST_F(InitSsidConfig, NamesTheWholePathOfTheLongestId) {
    expect_logged(3, "init_ssid_config: Required config not present in /tmp/profile-2147483648/wl.conf",
                  [] { init_ssid_config(0x80000000); });
}

TEST_F(InitSsidConfig, ReadsTheFilesOfTheLongestId) {
    write_profile(INT32_MIN, std::string("SSID_PROFILE_ID=7\n") + USABLE);
    init_ssid_config(0x80000000);
    EXPECT_EQ(listed(), ids{7});
}

TEST_F(InitSsidConfig, DropsAProfileWithoutExternalDevice) {
    write_profile(7, "SSID_PROFILE_ID=7\nWL_PROFILE_SSID=net\nVAP_LIST=ath0\n");
    expect_logged(3, "init_ssid_config: Required config not present in /tmp/profile7/wl.conf",
                  [] { init_ssid_config(7); });
    EXPECT_EQ(listed(), ids{});
}

TEST_F(InitSsidConfig, DropsAProfileWhoseOwnIdIsTheOneThatMeansNotSet) {
    write_profile(7, std::string("SSID_PROFILE_ID=-1\n") + USABLE);
    expect_logged(3, "init_ssid_config: Required config not present in /tmp/profile7/wl.conf",
                  [] { init_ssid_config(7); });
    EXPECT_EQ(listed(), ids{});
    EXPECT_EQ(calls.registered, ids{});
}

TEST_F(InitSsidConfig, PutsAProfileInThePlaceOfOneWithTheSameId) {
    write_usable_profile(7, "VLAN_ID=5\n");
    init_ssid_config(7);
    write_usable_profile(7, "VLAN_ID=6\n");
    const lines logged = lines_at_level(3, [] { init_ssid_config(7); });
    for (const std::string &line : logged)
        EXPECT_EQ(line.rfind("print_ssid_profile_data_config: ", 0), 0U) << line;
    EXPECT_EQ(listed(), ids{7});
    EXPECT_EQ(find(7)->ap_vlan, 6U);
    EXPECT_EQ(calls.registered, (ids{7, 7}));
    EXPECT_EQ(calls.unregistered, ids{});
}

TEST_F(InitSsidConfig, TheReplacedProfileIsNoLongerCountedAsRefused) {
    write_usable_profile(7);
    init_ssid_config(7);
    find(7)->nack = 1;
    g_synch_nack_count = 2;
    init_ssid_config(7);
    EXPECT_EQ(g_synch_nack_count, 1);
}

TEST_F(InitSsidConfig, ClientsForgetARoleThatIsReplaced) {
    write_usable_profile(7);
    write_usable_profile(9, "IS_ROLE_PROFILE=1\n");
    init_ssid_config(7);
    init_ssid_config(9);
    const wl_client_info *const client = add_client(find(7), 1, find(9));
    init_ssid_config(9);
    EXPECT_EQ(client->role_ssid, nullptr);
    EXPECT_EQ(listed(), (ids{7, 9}));
}

TEST_F(InitSsidConfig, ABlankConfigurationLineLoadsTheProfileAgain) {
    write_usable_profile(7);
    write_file("/tmp/daemon.conf", "PROFILE 7 office\n\n");
    const lines logged = lines_at_level(2, [] { read_wl_conf("/tmp/daemon.conf"); });
    EXPECT_EQ(std::ranges::count(logged, "read_wl_conf: Initializing configuration for ProfileID : 7"), 2);
    EXPECT_EQ(listed(), ids{7});
    EXPECT_EQ(calls.registered, (ids{7, 7}));
}

TEST_F(InitSsidConfig, TheFinalDumpHoldsEachProfile) {
    write_usable_profile(7);
    write_usable_profile(8);
    write_file("/tmp/daemon.conf", "PROFILE 7 office\nPROFILE 8 guests\n");
    const lines logged = lines_at_level(2, [] { read_wl_conf("/tmp/daemon.conf"); });
    const auto start =
        std::ranges::find(logged, "print_all_ssid_config: +++++++++++++ Dumping all ssid configs START ++++++++++++++");
    for (const char *const id : {"7", "8"})
        EXPECT_EQ(std::count(start, logged.end(),
                             std::string("print_ssid_profile_data_config: profile_id [") + id +
                                 "] ssid [net] ap_vlan [0] external_interface [eth0]"),
                  1);
    EXPECT_EQ(logged.back(), "print_all_ssid_config: +++++++++++++ Dumping all ssid configs END ++++++++++++++");
}

TEST_F(InitSsidConfig, SurvivesEveryFailedAllocation) {
    write_usable_profile(7, "ALL_EXTRA_SSID_VLAN_LIST=3,4\n");
    // malloc: two VLANs and the table's entry; calloc: the profile, its cache, the VAP and three list nodes.
    for (const auto &[function, allocations] :
         {std::pair("malloc", 3), std::pair("calloc", 6), std::pair("strdup", 1)}) {
        int nth = 1;
        for (;; nth++) {
            calls = {};
            fail_nth_call(function, nth);
            init_ssid_config(7);
            const bool fired = faults_fired(function) != 0;
            clear_faults();
            EXPECT_EQ(calls.registered, listed()) << function << nth;
            EXPECT_EQ(destroy_ssid_profile_data(7, nullptr), calls.registered.empty() ? -1 : 0);
            if (!fired)
                break;
        }
        EXPECT_EQ(calls.registered, ids{7}) << function;
        EXPECT_EQ(nth - 1, allocations) << function;
    }
}

TEST_F(InitSsidConfig, AProfileThatCannotBeAddedIsNotRegistered) {
    write_usable_profile(7);
    fail_every_call("malloc");  // of the table's entry: the rest of this profile comes from calloc and strdup
    init_ssid_config(7);
    EXPECT_GT(faults_fired("malloc"), 0);
    clear_faults();
    EXPECT_EQ(table_changes, 1);
    EXPECT_EQ(listed(), ids{});
    EXPECT_EQ(calls.registered, ids{});
}

TEST_F(InitSsidConfig, AReplacementThatCannotBeAddedLeavesNoProfile) {
    write_usable_profile(7);
    init_ssid_config(7);
    calls = {};
    fail_every_call("malloc");  // as above
    init_ssid_config(7);
    EXPECT_EQ(faults_fired("malloc"), 1);
    clear_faults();
    EXPECT_EQ(listed(), ids{});
    EXPECT_EQ(calls.registered, ids{});
}

TEST_F(CheckNeededConfig, AUsableProfileGetsItsClientCache) {
    ssid_profile_info *const profile = bare_profile(7);
    EXPECT_EQ(check_needed_ssid_config_present(profile), 0);
    EXPECT_EQ(profile->cl_info_hash.table_size, 43U);
    EXPECT_EQ(profile->cl_info_hash.funcs.hash_function, cl_cache_hash_fn.hash_function);
    EXPECT_EQ(calls.rules_saved, ids{});
    free_ssid_profile_info(profile);
}

TEST_F(CheckNeededConfig, AnIdThatIsNotSetIsUnusable) {
    ssid_profile_info *const profile = bare_profile(PROFILE_ID_NOT_SET);
    EXPECT_EQ(check_needed_ssid_config_present(profile), 1);
    EXPECT_EQ(profile->cl_info_hash.table_size, 0U);
    free_ssid_profile_info(profile);
}

TEST_F(CheckNeededConfig, NoVapsAreUnusable) {
    ssid_profile_info *const profile = bare_profile(7);
    list_free(&profile->vap_data_list);
    profile->num_vaps = 0;
    EXPECT_EQ(check_needed_ssid_config_present(profile), 1);
    free_ssid_profile_info(profile);
}

TEST_F(CheckNeededConfig, NoExternalDeviceIsUnusableAndAnEmptyOneIsNot) {
    ssid_profile_info *const profile = bare_profile(7);
    std::free(profile->external_interface);
    profile->external_interface = nullptr;
    EXPECT_EQ(check_needed_ssid_config_present(profile), 1);
    profile->external_interface = strdup("");
    EXPECT_EQ(check_needed_ssid_config_present(profile), 0);
    free_ssid_profile_info(profile);
}

TEST_F(CheckNeededConfig, NoSsidIsUnusable) {
    ssid_profile_info *const profile = bare_profile(7);
    profile->ssid[0] = '\0';
    profile->flags.role_profile_enabled = 1;
    EXPECT_EQ(check_needed_ssid_config_present(profile), 1);
    EXPECT_EQ(calls.rules_saved, ids{});
    free_ssid_profile_info(profile);
}

TEST_F(CheckNeededConfig, ARoleProfileNeedsNoSsidAndGetsNoClientCache) {
    ssid_profile_info *const profile = bare_profile(7);
    profile->ssid[0] = '\0';
    profile->flags.is_role_profile = 1;
    EXPECT_EQ(check_needed_ssid_config_present(profile), 0);
    EXPECT_EQ(profile->cl_info_hash.entries, nullptr);
    EXPECT_EQ(profile->cl_info_hash.table_size, 0U);
    free_ssid_profile_info(profile);
}

TEST_F(CheckNeededConfig, ARoleProfileNeedsVapsAndExternalDeviceToo) {
    ssid_profile_info *const profile = bare_profile(7);
    profile->flags.is_role_profile = 1;
    profile->num_vaps = 0;
    EXPECT_EQ(check_needed_ssid_config_present(profile), 1);
    free_ssid_profile_info(profile);
}

TEST_F(CheckNeededConfig, SavesTheRulesOfAProfileWithRoles) {
    for (const unsigned is_role : {0U, 1U}) {
        ssid_profile_info *const profile = bare_profile(7 + is_role);
        profile->flags.role_profile_enabled = 1;
        profile->flags.is_role_profile = is_role & 1U;
        EXPECT_EQ(check_needed_ssid_config_present(profile), 0);
        free_ssid_profile_info(profile);
    }
    EXPECT_EQ(calls.rules_saved, (ids{7, 8}));
}

TEST_F(CheckNeededConfig, TheCacheIsThereBeforeTheRulesAreSaved) {
    ssid_profile_info *const profile = bare_profile(7);
    profile->flags.role_profile_enabled = 1;
    EXPECT_EQ(check_needed_ssid_config_present(profile), 0);
    EXPECT_EQ(calls.caches_at_the_rules, std::vector<size_t>{43});
    free_ssid_profile_info(profile);
}

TEST_F(CheckNeededConfig, ACacheThatFindsNoMemoryStaysEmpty) {
    ssid_profile_info *const profile = bare_profile(7);
    fail_nth_call("calloc", 1);
    EXPECT_EQ(check_needed_ssid_config_present(profile), 0);
    EXPECT_EQ(faults_fired("calloc"), 1);
    EXPECT_EQ(profile->cl_info_hash.table_size, 0U);
    free_ssid_profile_info(profile);
}

TEST_F(DestroySsidProfile, UnregistersAndDeletes) {
    write_usable_profile(7);
    write_usable_profile(8);
    init_ssid_config(7);
    init_ssid_config(8);
    table_changes = 0;
    EXPECT_EQ(destroy_ssid_profile_data(7, nullptr), 0);
    EXPECT_EQ(calls.unregistered, ids{7});
    EXPECT_EQ(listed(), ids{8});
    EXPECT_EQ(table_changes, 1);
}

TEST_F(DestroySsidProfile, LogsAnUnknownId) {
    expect_logged(3, "destroy_ssid_profile_data: No ssid data present for ssid profile id [7]",
                  [] { EXPECT_EQ(destroy_ssid_profile_data(7, nullptr), -1); });
    EXPECT_EQ(calls.unregistered, ids{});
}

TEST_F(DestroySsidProfile, IgnoresANegativeId) {
    EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(destroy_ssid_profile_data(-1, nullptr), 0); }), lines{});
}

TEST_F(DestroySsidProfile, CountsARefusedProfileNoLonger) {
    write_usable_profile(7);
    init_ssid_config(7);
    find(7)->nack = 1;
    g_synch_nack_count = 3;
    EXPECT_EQ(destroy_ssid_profile_data(7, nullptr), 0);
    EXPECT_EQ(g_synch_nack_count, 2);
}

TEST_F(DestroySsidProfile, LeavesTheCountOfRefusedProfilesOtherwise) {
    write_usable_profile(7);
    init_ssid_config(7);
    g_synch_nack_count = 3;
    EXPECT_EQ(destroy_ssid_profile_data(7, nullptr), 0);
    EXPECT_EQ(g_synch_nack_count, 3);
    init_ssid_config(7);
    find(7)->nack = 1;
    g_synch_nack_count = 0;
    EXPECT_EQ(destroy_ssid_profile_data(7, nullptr), 0);
    EXPECT_EQ(g_synch_nack_count, 0);
}

TEST_F(DestroySsidProfile, ClientsOfOtherProfilesForgetTheRole) {
    for (const int id : {7, 8, 9, 10}) {
        write_usable_profile(id, id < 9 ? "" : "IS_ROLE_PROFILE=1\n");
        init_ssid_config(static_cast<uint32_t>(id));
    }
    const wl_client_info *const with_role = add_client(find(7), 1, find(9));
    const wl_client_info *const with_role_too = add_client(find(8), 1, find(9));
    const wl_client_info *const with_other_role = add_client(find(8), 2, find(10));
    const wl_client_info *const without_role = add_client(find(8), 3, nullptr);
    EXPECT_EQ(destroy_ssid_profile_data(9, nullptr), 0);
    EXPECT_EQ(with_role->role_ssid, nullptr);
    EXPECT_EQ(with_role_too->role_ssid, nullptr);
    EXPECT_EQ(with_other_role->role_ssid, find(10));
    EXPECT_EQ(without_role->role_ssid, nullptr);
}

TEST_F(FreeSsidProfile, FreesEverythingAProfileOwns) {
    ssid_profile_info *const profile = bare_profile(7);
    create_and_add_extra_vlan(&profile->extra_vlan_list, 5, &profile->num_extra_vlans);
    ASSERT_EQ(check_needed_ssid_config_present(profile), 0);
    add_client(profile, 1, nullptr);
    auto *const rule = static_cast<role_derivation_rule *>(std::calloc(1, sizeof(role_derivation_rule)));
    rule->match_text = strdup("text");
    ASSERT_NE(list_insert_tail(&rule->role_ids, reinterpret_cast<void *>(uintptr_t{16})), nullptr);
    ASSERT_NE(list_insert_tail(&profile->role_derivation_rules, rule), nullptr);
    struct portal_ssid_info holder {
        static_cast<asr_info_t *>(std::calloc(1, sizeof(asr_info_t)))
    };
    for (char *&text : holder.asr_info->texts)
        text = strdup("text");
    profile->portal_ssid_info = &holder;
    free_ssid_profile_info(profile);  // the leak checker's part
}

TEST_F(FreeSsidProfile, FreesListsWhoseCountsCameBackToZero) {
    ssid_profile_info *const profile = bare_profile(7);
    create_and_add_extra_vlan(&profile->extra_vlan_list, 5, &profile->num_extra_vlans);
    profile->num_vaps = 0;
    profile->num_extra_vlans = 0;
    free_ssid_profile_info(profile);  // the leak checker's part
}

TEST_F(FreeSsidProfile, AcceptsAFreshProfile) {
    free_ssid_profile_info(create_ssid_profile_data());
}

TEST_F(FreeSsidProfile, PortalSettingsAreClearedAndTheirHolderLeft) {
    ssid_profile_info *const profile = create_ssid_profile_data();
    struct portal_ssid_info holder {
        nullptr
    };
    profile->portal_ssid_info = &holder;
    free_portal_ssid_info(profile);
    EXPECT_EQ(profile->portal_ssid_info, nullptr);
    free_portal_ssid_info(profile);
    free_ssid_profile_info(profile);
}

TEST_F(ProfileUpdate, RefusesFewerThanFiveBytes) {
    for (int length = -1; length < 5; length++) {
        expect_logged(3,
                      "handle_wl_ssid_profile_update: Insufficient data len [" + std::to_string(length) +
                          "] received for event[96]",
                      [length] {
                          const byte_string event(static_cast<size_t>(std::max(length, 0)), 1);
                          handle_wl_ssid_profile_update(VRE_WL_SSID_PROFILE_UPDATE, const_cast<uint8_t *>(event.data()),
                                                        length);
                      });
    }
}

TEST_F(ProfileUpdate, TakesTheFirstFiveBytesOfALongerEvent) {
    write_usable_profile(7);
    for (const size_t length : {size_t{5}, size_t{6}, size_t{8192}}) {
        byte_string event = update_event(7, ADD);
        event.resize(length, 0xEE);
        handle_wl_ssid_profile_update(VRE_WL_SSID_PROFILE_UPDATE, event.data(), static_cast<int>(length));
        EXPECT_EQ(listed(), ids{7});
        EXPECT_EQ(destroy_ssid_profile_data(7, nullptr), 0);
    }
}

TEST_F(ProfileUpdate, ReadsTheIdWithoutAlignment) {
    write_usable_profile(0x00010203);
    const byte_string event{0xEE, 0, 1, 2, 3, ADD};
    EXPECT_EQ(handle_ssid_profile_update(event.data() + 1), 0);
    EXPECT_EQ(listed(), ids{0x00010203});
}

TEST_F(ProfileUpdate, RefusesNoData) {
    expect_logged(3, "handle_ssid_profile_update: Event info NULL passed for SSID profile update event.",
                  [] { EXPECT_EQ(handle_ssid_profile_update(nullptr), -1); });
    expect_logged(3, "handle_ssid_profile_update: Event info NULL passed for SSID profile update event.",
                  [] { handle_wl_ssid_profile_update(VRE_WL_SSID_PROFILE_UPDATE, nullptr, 5); });
}

TEST_F(ProfileUpdate, LogsTheEventAtLevelTwo) {
    expect_logged(2,
                  "handle_ssid_profile_update: SSID Profile update event received. Event details profileid : [-1] "
                  "Add/Del/SENDCLReq : [255]",
                  [] { update(0xFFFFFFFF, 255); });
}

TEST_F(ProfileUpdate, AddLoadsAnUnknownProfile) {
    write_usable_profile(7);
    EXPECT_EQ(update(7, ADD), 0);
    EXPECT_EQ(listed(), ids{7});
    EXPECT_EQ(calls.registered, ids{7});
}

TEST_F(ProfileUpdate, AddSucceedsAlsoWhenTheProfileIsUnusable) {
    EXPECT_EQ(update(7, ADD), 0);
    EXPECT_EQ(listed(), ids{});
}

TEST_F(ProfileUpdate, AddRefusesAProfileThatIsThere) {
    write_usable_profile(7, "VLAN_ID=5\n");
    ASSERT_EQ(update(7, ADD), 0);
    write_usable_profile(7, "VLAN_ID=6\n");
    expect_logged(3, "handle_ssid_profile_update: SSID profile already present [7]",
                  [] { EXPECT_EQ(update(7, ADD), -1); });
    EXPECT_EQ(find(7)->ap_vlan, 5U);
    EXPECT_EQ(calls.registered, ids{7});
}

TEST_F(ProfileUpdate, AddLooksForTheIdOfTheEventAndReplacesByTheIdOfTheFiles) {
    write_usable_profile(9, "VLAN_ID=5\n");
    ASSERT_EQ(update(9, ADD), 0);
    write_profile(7, std::string("SSID_PROFILE_ID=9\nVLAN_ID=6\n") + USABLE);
    EXPECT_EQ(update(7, ADD), 0);
    EXPECT_EQ(listed(), ids{9});
    EXPECT_EQ(find(9)->ap_vlan, 6U);
}

TEST_F(ProfileUpdate, DeleteRemovesAProfile) {
    write_usable_profile(7);
    ASSERT_EQ(update(7, ADD), 0);
    EXPECT_EQ(update(7, DELETE), 0);
    EXPECT_EQ(listed(), ids{});
    EXPECT_EQ(calls.unregistered, ids{7});
}

TEST_F(ProfileUpdate, DeleteOfAnUnknownProfileFailsAndChangesNothing) {
    write_usable_profile(7);
    ASSERT_EQ(update(7, ADD), 0);
    expect_logged(3, "destroy_ssid_profile_data: No ssid data present for ssid profile id [50]",
                  [] { EXPECT_EQ(update(50, DELETE), -1); });
    EXPECT_EQ(listed(), ids{7});
}

TEST_F(ProfileUpdate, AnIdWithTheTopBitCanBeAddedButNotDeleted) {
    write_usable_profile(-2);
    EXPECT_EQ(update(0xFFFFFFFE, ADD), 0);
    EXPECT_EQ(listed(), ids{0xFFFFFFFE});
    EXPECT_EQ(update(0xFFFFFFFE, DELETE), 0);
    EXPECT_EQ(listed(), ids{0xFFFFFFFE});
}

TEST_F(ProfileUpdate, AChangedProfileIsDeletedAndAddedAgain) {
    write_usable_profile(7, "VLAN_ID=5\n");
    ASSERT_EQ(update(7, ADD), 0);
    write_usable_profile(7, "VLAN_ID=6\n");
    EXPECT_EQ(update(7, DELETE), 0);
    EXPECT_EQ(update(7, ADD), 0);
    EXPECT_EQ(find(7)->ap_vlan, 6U);
}

TEST_F(ProfileUpdate, SendRequestOfAnUnknownProfileIsRefused) {
    expect_logged(3, "handle_ssid_profile_update: SSID profile not present for sending CL info Req packet[7]",
                  [] { EXPECT_EQ(update(7, SEND_REQUEST), -1); });
}

class ProfileSendRequest : public SsidProfile {
protected:
    void SetUp() override {
        SsidProfile::SetUp();
        write_usable_profile(7, "IAPC_ENABLE=2\n");
        init_ssid_config(7);
        profile = find(7);
        profile->send_cl_info_req = 0;
        profile->synch_registered = 1;
        g_synch_sock = 5;
    }

    void expect_sent() {
        EXPECT_EQ(update(7, SEND_REQUEST), 0);
        EXPECT_EQ(calls.requests, (std::vector<std::pair<uint32_t, int>>{{7, 1}}));
        EXPECT_EQ(profile->send_cl_info_req, 0);
    }

    void expect_pending() {
        EXPECT_EQ(update(7, SEND_REQUEST), 0);
        EXPECT_TRUE(calls.requests.empty());
        EXPECT_EQ(profile->send_cl_info_req, 1);
    }

    ssid_profile_info *profile;
};

TEST_F(ProfileSendRequest, IsSentAtOnceWhenRegistered) {
    expect_sent();
}

TEST_F(ProfileSendRequest, WaitsForTheConnection) {
    g_synch_sock = -1;
    expect_pending();
}

TEST_F(ProfileSendRequest, WaitsWhileTheDescriptorIsZero) {
    g_synch_sock = 0;
    expect_pending();
}

TEST_F(ProfileSendRequest, WaitsWhileRefused) {
    profile->nack = 1;
    expect_pending();
}

TEST_F(ProfileSendRequest, WaitsForTheRegistration) {
    profile->synch_registered = 0;
    expect_pending();
}

TEST_F(ProfileSendRequest, DoesNothingOnAnotherPath) {
    profile->iapc_path = 1;
    EXPECT_EQ(update(7, SEND_REQUEST), 0);
    EXPECT_TRUE(calls.requests.empty());
    EXPECT_EQ(profile->send_cl_info_req, 0);
}

TEST_F(ProfileUpdate, RefusesAnyOtherFlag) {
    for (const int flag : {0, 4, 255})
        expect_logged(
            3, "handle_ssid_profile_update: Invalid event data. Evt flag : " + std::to_string(flag) + " for event [96]",
            [flag] { EXPECT_EQ(update(7, flag), -1); });
}

}  // namespace
