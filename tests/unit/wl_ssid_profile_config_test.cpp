// What the files of the access point's configuration put into an SSID profile, and the dump of it. Loading a profile is
// replaced through the linker, so that the daemon configuration's lines are seen alone.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "fault.h"
#include "files.h"
#include "log_capture.h"
#include "wl_cl_info.h"
#include "wl_client_role.h"
#include "wl_log.h"
#include "wl_ssid_profile.h"
#include "wl_vap_helpers.h"

namespace {

std::vector<uint32_t> initialised;

}  // namespace

extern "C" void __wrap__Z16init_ssid_configj(uint32_t profile_id) {
    initialised.push_back(profile_id);
}

namespace {

using lines = std::vector<std::string>;

constexpr char FILE_PATH[] = "/tmp/wl.conf";

lines lines_at_level(int level, const std::function<void()> &action) {
    log_capture log;
    debug = level;
    action();
    return log.lines();
}

void expect_logged(int level, const std::string &line, const std::function<void()> &action) {
    EXPECT_EQ(lines_at_level(level - 1, action), lines{});
    EXPECT_EQ(lines_at_level(level, action), lines{line});
}

struct profile_deleter {
    void operator()(ssid_profile_info *profile) const {
        free_ssid_profile_info(profile);
    }
};
using profile_pointer = std::unique_ptr<ssid_profile_info, profile_deleter>;

profile_pointer new_profile() {
    return profile_pointer(create_ssid_profile_data());
}

void apply(const profile_pointer &profile, const char *key, std::string value) {
    fill_ssid_profile_data_config(profile.get(), value.data(), key, 1);
}

profile_pointer with(const char *key, const std::string &value) {
    profile_pointer profile = new_profile();
    apply(profile, key, value);
    return profile;
}

profile_pointer from_file(const std::string &text) {
    write_file(FILE_PATH, text);
    profile_pointer profile = new_profile();
    read_ssid_config_file(FILE_PATH, profile.get());
    return profile;
}

lines vap_names(const profile_pointer &profile) {
    lines names;
    for (const list_t *node = profile->vap_data_list; node != nullptr; node = node->next)
        names.emplace_back(static_cast<const vapinfo *>(node->value)->name);
    return names;
}

std::vector<int> vlans(const profile_pointer &profile) {
    std::vector<int> ids;
    for (const list_t *node = profile->extra_vlan_list; node != nullptr; node = node->next)
        ids.push_back(*static_cast<const int32_t *>(node->value));
    return ids;
}

int lowest_free_descriptor() {
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
}

bool same_bytes(const profile_pointer &profile, const profile_pointer &other) {
    return std::memcmp(profile.get(), other.get(), sizeof(ssid_profile_info)) == 0;
}

struct number_case {
    const char *text;
    int32_t value;
};

constexpr number_case NUMBERS[] = {
    {"7", 7},
    {"0", 0},
    {"", 0},
    {"abc", 0},
    {" 12 apples", 12},
    {"+5", 5},
    {"0x10", 0},
    {"255", 255},
    {"256", 256},
    {"511", 511},
    {"-1", -1},
    {"2147483647", INT32_MAX},
    {"4294967296", INT32_MAX},
    {"-99999999999", INT32_MIN},
};

struct byte_key {
    const char *key;
    uint8_t ssid_profile_info::*field;
};

constexpr byte_key BYTE_KEYS[] = {
    {"REMOTE_BRIDGING_ENABLED", &ssid_profile_info::ena_remote_bridging},
    {"IAPC_ENABLE", &ssid_profile_info::iapc_path},
    {"REMOTE_IAPC_ENABLED", &ssid_profile_info::remote_iapc_enabled},
    {"PORTAL_RADIUS_ACCT_ENABLED", &ssid_profile_info::portal_radius_acc_enabled},
    {"PER_USER_BANDWIDTH_ENABLED", &ssid_profile_info::per_user_bw_enable},
    {"AP_IS_PORTAL_CONFIGURED", &ssid_profile_info::is_portal_configured},
};

struct word_key {
    const char *key;
    uint32_t ssid_profile_info::*field;
};

constexpr word_key WORD_KEYS[] = {
    {"SSID_PROFILE_ID", &ssid_profile_info::profile_id},
    {"VLAN_ID", &ssid_profile_info::ap_vlan},
    {"PER_USER_BANDWIDTH_DOWNLOAD_LIMIT", &ssid_profile_info::per_user_bw_down_limit},
    {"PER_USER_BANDWIDTH_UPLOAD_LIMIT", &ssid_profile_info::per_user_bw_up_limit},
};

struct flag_key {
    const char *key;
    uint8_t flags;
    uint8_t role_flags;
};

constexpr flag_key FLAG_KEYS[] = {
    {"FIREWALL_ENABLED", 0x80, 0},  {"APP_FIREWALL_ENABLED", 0x40, 0}, {"ROLE_PROFILE_ENABLED", 0x20, 0},
    {"IS_ROLE_PROFILE", 0x10, 0},   {"WEBQ_ENABLED", 0x08, 0},         {"CONTENT_ANALYTICS_ENABLED", 0x04, 0},
    {"APC_ENABLED", 0x02, 0},       {"MESH_ENABLED", 0x01, 0},         {"AP_VLAN_ENABLED", 0, 0x80},
    {"INHERIT_FROM_SSID", 0, 0x40},
};

/// A key of a text, of a list or of 802.1X.
struct other_key {
    const char *key;
    const char *value;
    void (*clear)(ssid_profile_info *profile);  // its field
};

void clear_ssid(ssid_profile_info *profile) {
    std::memset(profile->ssid, 0, sizeof profile->ssid);
}

void clear_external_interface(ssid_profile_info *profile) {
    std::free(profile->external_interface);
    profile->external_interface = nullptr;
}

void clear_vaps(ssid_profile_info *profile) {
    list_free(&profile->vap_data_list);
    profile->num_vaps = 0;
}

void clear_extra_vlans(ssid_profile_info *profile) {
    list_free(&profile->extra_vlan_list);
    profile->num_extra_vlans = 0;
}

void clear_security(ssid_profile_info *profile) {
    profile->dot1x_enabled = 0;
    profile->is_1x_configured = 0;
}

constexpr other_key OTHER_KEYS[] = {
    {"WL_PROFILE_SSID", "0123456789012345678901234567890123456789", clear_ssid},
    {"ROLE_VALUE", "0123456789012345678901234567890123456789", clear_ssid},
    {"ExternalDevice", "eth0", clear_external_interface},
    {"VAP_LIST", "ath0,ath1", clear_vaps},
    {"ALL_EXTRA_SSID_VLAN_LIST", "10,20", clear_extra_vlans},
    {"AP_SECFILE", "EAP", clear_security},
};

template <class Flags> int flag_byte(const Flags &flags) {
    uint8_t byte;
    static_assert(sizeof flags == sizeof byte);
    std::memcpy(&byte, &flags, sizeof byte);
    return byte;
}

TEST(ProfileKeys, ByteFieldsKeepTheLowEightBitsOfTheNumber) {
    for (const byte_key &tested : BYTE_KEYS) {
        for (const number_case &number : NUMBERS)
            EXPECT_EQ(with(tested.key, number.text).get()->*tested.field, number.value & 0xff)
                << tested.key << " " << number.text;
    }
}

TEST(ProfileKeys, WordFieldsTakeTheSaturatedNumber) {
    for (const word_key &tested : WORD_KEYS) {
        for (const number_case &number : NUMBERS)
            EXPECT_EQ(with(tested.key, number.text).get()->*tested.field, static_cast<uint32_t>(number.value))
                << tested.key << " " << number.text;
    }
}

TEST(ProfileKeys, FlagsTakeTheLowestBitAndHaveTheirOwnPlace) {
    for (const flag_key &tested : FLAG_KEYS) {
        for (const number_case &number : NUMBERS) {
            const profile_pointer profile = with(tested.key, number.text);
            const int bit = number.value & 1;
            EXPECT_EQ(flag_byte(profile->flags), bit * tested.flags) << tested.key << " " << number.text;
            EXPECT_EQ(flag_byte(profile->role_flags), bit * tested.role_flags) << tested.key << " " << number.text;
        }
    }
}

TEST(ProfileKeys, ALaterValueReplacesAnEarlierOne) {
    for (const byte_key &tested : BYTE_KEYS) {
        const profile_pointer profile = with(tested.key, "3");
        apply(profile, tested.key, "0");
        EXPECT_EQ(profile.get()->*tested.field, 0) << tested.key;
    }
    for (const word_key &tested : WORD_KEYS) {
        const profile_pointer profile = with(tested.key, "70000");
        apply(profile, tested.key, "0");
        EXPECT_EQ(profile.get()->*tested.field, 0U) << tested.key;
    }
    for (const flag_key &tested : FLAG_KEYS) {
        const profile_pointer profile = with(tested.key, "1");
        apply(profile, tested.key, "0");
        EXPECT_TRUE(same_bytes(profile, new_profile())) << tested.key;
    }
}

TEST(ProfileKeys, AKeyChangesNothingButItsField) {
    for (const byte_key &tested : BYTE_KEYS) {
        const profile_pointer profile = with(tested.key, "1");
        profile.get()->*tested.field = 0;
        EXPECT_TRUE(same_bytes(profile, new_profile())) << tested.key;
    }
    for (const word_key &tested : WORD_KEYS) {
        const profile_pointer profile = with(tested.key, "1");
        profile.get()->*tested.field = new_profile().get()->*tested.field;
        EXPECT_TRUE(same_bytes(profile, new_profile())) << tested.key;
    }
    for (const other_key &tested : OTHER_KEYS) {
        const profile_pointer profile = with(tested.key, tested.value);
        EXPECT_FALSE(same_bytes(profile, new_profile())) << tested.key;
        tested.clear(profile.get());
        EXPECT_TRUE(same_bytes(profile, new_profile())) << tested.key;
    }
}

TEST(ProfileKeys, UnknownKeysAndOtherSpellingsChangeNothing) {
    for (const char *const key : {"", "vlan_id", "VLAN_ID ", " VLAN_ID", "VLAN_I", "VLAN_IDS", "NETWORK_PROFILE_ID"}) {
        const profile_pointer profile = new_profile();
        EXPECT_EQ(lines_at_level(7, [&] { apply(profile, key, "5"); }), lines{});
        EXPECT_TRUE(same_bytes(profile, new_profile())) << key;
    }
}

TEST(ProfileKeys, TheIdMarksThePortalWhenItsFileExists) {
    mkdir("/tmp/profile7", 0755);
    write_file("/tmp/profile7/portal.conf", "");
    const profile_pointer profile = with("SSID_PROFILE_ID", "7");
    EXPECT_EQ(profile->profile_id, 7U);
    EXPECT_EQ(profile->portal_enabled, 1);
    EXPECT_EQ(with("SSID_PROFILE_ID", "8")->portal_enabled, 0);
}

TEST(ProfileKeys, TheIdZeroNeverMarksThePortal) {
    mkdir("/tmp/profile0", 0755);
    write_file("/tmp/profile0/portal.conf", "");
    EXPECT_EQ(with("SSID_PROFILE_ID", "0")->portal_enabled, 0);
}

TEST(ProfileKeys, ANegativeIdMarksThePortalOfItsOwnPath) {
    mkdir("/tmp/profile-2147483648", 0755);
    write_file("/tmp/profile-2147483648/portal.conf", "");
    const profile_pointer profile = with("SSID_PROFILE_ID", "-2147483648");
    EXPECT_EQ(profile->profile_id, 0x80000000U);
    EXPECT_EQ(profile->portal_enabled, 1);
}

TEST(ProfileKeys, AnotherIdDoesNotClearThePortal) {
    mkdir("/tmp/profile7", 0755);
    write_file("/tmp/profile7/portal.conf", "");
    const profile_pointer profile = with("SSID_PROFILE_ID", "7");
    apply(profile, "SSID_PROFILE_ID", "8");
    EXPECT_EQ(profile->profile_id, 8U);
    EXPECT_EQ(profile->portal_enabled, 1);
}

TEST(ProfileKeys, ExtraVlansAreAddedOnce) {
    const profile_pointer profile = with("ALL_EXTRA_SSID_VLAN_LIST", "10,20,10");
    EXPECT_EQ(vlans(profile), (std::vector<int>{10, 20}));
    EXPECT_EQ(profile->num_extra_vlans, 2);
    apply(profile, "ALL_EXTRA_SSID_VLAN_LIST", "20,30");
    EXPECT_EQ(vlans(profile), (std::vector<int>{10, 20, 30}));
    EXPECT_EQ(profile->num_extra_vlans, 3);
}

TEST(ProfileKeys, AnEmptyExtraVlanListIsVlanZero) {
    const profile_pointer profile = with("ALL_EXTRA_SSID_VLAN_LIST", "");
    EXPECT_EQ(vlans(profile), std::vector<int>{0});
    EXPECT_EQ(profile->num_extra_vlans, 1);
}

TEST(ProfileKeys, VapsLoseWhatFollowsTheDotAndTheLatestIsFirst) {
    const profile_pointer profile = with("VAP_LIST", "ath0.1,ath1");
    EXPECT_EQ(vap_names(profile), (lines{"ath1", "ath0"}));
    EXPECT_EQ(profile->num_vaps, 2);
}

TEST(ProfileKeys, VapsAccumulateAlsoWhenTheyAreThereAlready) {
    const profile_pointer profile = with("VAP_LIST", "ath0");
    apply(profile, "VAP_LIST", "ath0,ath1");
    EXPECT_EQ(vap_names(profile), (lines{"ath1", "ath0", "ath0"}));
    EXPECT_EQ(profile->num_vaps, 3);
}

TEST(ProfileKeys, EmptyVapNamesAreSkipped) {
    const profile_pointer profile = with("VAP_LIST", ",ath0,,ath1,");
    EXPECT_EQ(vap_names(profile), (lines{"ath1", "ath0"}));
    EXPECT_EQ(profile->num_vaps, 2);
    EXPECT_EQ(with("VAP_LIST", "")->num_vaps, 0);
}

TEST(ProfileKeys, VapNamesAreNotTrimmedAndKeepFifteenCharacters) {
    EXPECT_EQ(vap_names(with("VAP_LIST", " ath0 ,0123456789abcdefg")), (lines{"0123456789abcde", " ath0 "}));
}

TEST(ProfileKeys, SsidAndRoleValueStoreTheFirst32Characters) {
    for (const char *const key : {"WL_PROFILE_SSID", "ROLE_VALUE"}) {
        EXPECT_STREQ(with(key, "Guest net")->ssid, "Guest net");
        EXPECT_STREQ(with(key, std::string(32, 's'))->ssid, std::string(32, 's').c_str());
        EXPECT_STREQ(with(key, std::string(40, 's'))->ssid, std::string(32, 's').c_str());
        EXPECT_EQ(with(key, std::string(40, 's'))->ap_vlan, 0U);
    }
}

TEST(ProfileKeys, TheLaterOfSsidAndRoleValueStands) {
    const profile_pointer profile = with("WL_PROFILE_SSID", "a long network name");
    apply(profile, "ROLE_VALUE", "staff");
    EXPECT_STREQ(profile->ssid, "staff");
    EXPECT_TRUE(std::all_of(profile->ssid + 5, std::end(profile->ssid), [](char c) { return c == 0; }));
    apply(profile, "WL_PROFILE_SSID", "");
    EXPECT_STREQ(profile->ssid, "");
}

TEST(ProfileKeys, TheExternalDeviceIsCopiedWhole) {
    const std::string name(300, 'e');
    EXPECT_STREQ(with("ExternalDevice", name)->external_interface, name.c_str());
}

TEST(ProfileKeys, AnEmptyExternalDeviceIsPresent) {
    EXPECT_STREQ(with("ExternalDevice", "")->external_interface, "");
}

TEST(ProfileKeys, ASecondExternalDeviceReplacesTheFirst) {
    const profile_pointer profile = with("ExternalDevice", "eth0");
    apply(profile, "ExternalDevice", "eth1");
    EXPECT_STREQ(profile->external_interface, "eth1");
}

TEST(ProfileKeys, AnExternalDeviceThatFindsNoMemoryIsSkipped) {
    const profile_pointer profile = new_profile();
    fail_nth_call("strdup", 1);
    apply(profile, "ExternalDevice", "eth0");
    EXPECT_EQ(faults_fired("strdup"), 1);
    EXPECT_EQ(profile->external_interface, nullptr);
}

TEST(ProfileKeys, EapSetsBothSecurityFields) {
    const profile_pointer profile = with("AP_SECFILE", "EAP");
    EXPECT_EQ(profile->dot1x_enabled, 1);
    EXPECT_EQ(profile->is_1x_configured, 1);
}

TEST(ProfileKeys, OtherSecurityFilesChangeNothing) {
    for (const char *const value : {"eap", "EAP ", "EAP\r", "PSK", ""})
        EXPECT_TRUE(same_bytes(with("AP_SECFILE", value), new_profile())) << value;
    const profile_pointer profile = with("AP_SECFILE", "EAP");
    apply(profile, "AP_SECFILE", "PSK");
    EXPECT_EQ(profile->dot1x_enabled, 1);
    EXPECT_EQ(profile->is_1x_configured, 1);
}

TEST(ProfileKeys, ListEntriesThatFindNoMemoryAreSkipped) {
    // Each VLAN takes an int from malloc; each list node, and each VAP, comes from calloc.
    for (const auto &[function, allocations] : {std::pair("malloc", 2), std::pair("calloc", 6)}) {
        int nth = 1;
        for (;; nth++) {
            const profile_pointer profile = new_profile();
            fail_nth_call(function, nth);
            apply(profile, "VAP_LIST", "ath0,ath1");
            apply(profile, "ALL_EXTRA_SSID_VLAN_LIST", "10,20");
            const bool fired = faults_fired(function) != 0;
            clear_faults();
            EXPECT_EQ(profile->num_vaps + profile->num_extra_vlans, fired ? 3 : 4) << function << nth;
            EXPECT_EQ(vap_names(profile).size(), profile->num_vaps);
            EXPECT_EQ(vlans(profile).size(), profile->num_extra_vlans);
            if (!fired)
                break;
        }
        EXPECT_EQ(nth - 1, allocations) << function;
    }
}

TEST(ProfileFile, AppliesEachPairAsItStands) {
    const profile_pointer profile = from_file("SSID_PROFILE_ID=7\nWL_PROFILE_SSID= \"a=b\" # c \nVLAN_ID=5");
    EXPECT_EQ(profile->profile_id, 7U);
    EXPECT_STREQ(profile->ssid, " \"a=b\" # c ");
    EXPECT_EQ(profile->ap_vlan, 5U);
}

TEST(ProfileFile, DoesNotTrimKeys) {
    EXPECT_TRUE(same_bytes(from_file("VLAN_ID = 5\n VLAN_ID=5\n#VLAN_ID=5\n"), new_profile()));
}

TEST(ProfileFile, KeepsACarriageReturnInTheValue) {
    EXPECT_STREQ(from_file("WL_PROFILE_SSID=net\r\n")->ssid, "net\r");
}

TEST(ProfileFile, LogsALineWithoutSeparatorWithItsNumber) {
    write_file(FILE_PATH, "VLAN_ID=5\n\nno separator\nVLAN_ID=6\n");
    const profile_pointer profile = new_profile();
    expect_logged(3, "read_ssid_config_file: Invalid config line [no separator] at line# [3]",
                  [&] { read_ssid_config_file(FILE_PATH, profile.get()); });
    EXPECT_EQ(profile->ap_vlan, 6U);
}

TEST(ProfileFile, SkipsEmptyLinesSilently) {
    write_file(FILE_PATH, "\n\n");
    const profile_pointer profile = new_profile();
    EXPECT_EQ(lines_at_level(7, [&] { read_ssid_config_file(FILE_PATH, profile.get()); }), lines{});
}

TEST(ProfileFile, LogsAFileThatCannotBeOpened) {
    const profile_pointer profile = with("VLAN_ID", "5");
    expect_logged(3,
                  "read_ssid_config_file: Could not open SSID profile conf file : /tmp/none, error : No such file or "
                  "directory",
                  [&] { read_ssid_config_file("/tmp/none", profile.get()); });
    EXPECT_EQ(profile->ap_vlan, 5U);
}

TEST(ProfileFile, ReadsALongLineInPiecesOf511Characters) {
    const std::string first = "ExternalDevice=" + std::string(511 - 15, 'e');
    const profile_pointer profile = new_profile();
    write_file(FILE_PATH, first + "VLAN_ID=6\nrest\n");
    EXPECT_EQ(lines_at_level(7, [&] { read_ssid_config_file(FILE_PATH, profile.get()); }),
              lines{"read_ssid_config_file: Invalid config line [rest] at line# [3]"});
    EXPECT_STREQ(profile->external_interface, std::string(511 - 15, 'e').c_str());
    EXPECT_EQ(profile->ap_vlan, 6U);
}

TEST(ProfileFile, CountsTheEmptyRestOfALineThatJustFits) {
    const profile_pointer profile = new_profile();
    write_file(FILE_PATH, "ExternalDevice=" + std::string(511 - 15, 'e') + "\nrest\n");
    EXPECT_EQ(lines_at_level(7, [&] { read_ssid_config_file(FILE_PATH, profile.get()); }),
              lines{"read_ssid_config_file: Invalid config line [rest] at line# [3]"});
    EXPECT_STREQ(profile->external_interface, std::string(511 - 15, 'e').c_str());
}

TEST(ProfileFile, IsClosed) {
    const int free_descriptor = lowest_free_descriptor();
    from_file("VLAN_ID=5\n");
    EXPECT_EQ(lowest_free_descriptor(), free_descriptor);
}

TEST(ProfileFile, ReadsALineUpToItsNul) {
    const profile_pointer profile = from_file(std::string("VLAN_ID=5\0VLAN_ID=6\nIAPC_ENABLE=2\n", 34));
    EXPECT_EQ(profile->ap_vlan, 5U);
    EXPECT_EQ(profile->iapc_path, 2);
}

class DaemonConfiguration : public testing::Test {
protected:
    void SetUp() override {
        wl_init_cl_cache_info();
        initialised.clear();
    }

    static std::vector<uint32_t> ids_of(const std::string &text) {
        write_file(FILE_PATH, text);
        read_wl_conf(FILE_PATH);
        return initialised;
    }

    static constexpr char START[] =
        "print_all_ssid_config: +++++++++++++ Dumping all ssid configs START ++++++++++++++";
    static constexpr char END[] = "print_all_ssid_config: +++++++++++++ Dumping all ssid configs END ++++++++++++++";
};

using ids = std::vector<uint32_t>;

TEST_F(DaemonConfiguration, LoadsEachProfileInOrder) {
    EXPECT_EQ(ids_of("PROFILE 7 office\nPROFILE 3 guests\n"), (ids{7, 3}));
}

TEST_F(DaemonConfiguration, LogsEachProfileAndTheDumpAtLevelTwo) {
    write_file(FILE_PATH, "PROFILE 7 office\nPROFILE -2 guests\n");
    EXPECT_EQ(lines_at_level(1, [] { read_wl_conf(FILE_PATH); }), lines{});
    EXPECT_EQ(lines_at_level(2, [] { read_wl_conf(FILE_PATH); }),
              (lines{"read_wl_conf: Initializing configuration for ProfileID : 7",
                     "read_wl_conf: Initializing configuration for ProfileID : -2", START, END}));
}

TEST_F(DaemonConfiguration, TakesAnIdWithoutName) {
    EXPECT_EQ(ids_of("PROFILE 7\nPROFILE   8"), (ids{7, 8}));
}

TEST_F(DaemonConfiguration, AnyOtherLineStandsForTheProfileBefore) {
    EXPECT_EQ(ids_of("PROFILE 7 office\n# comment\n\nPROFILE x\nPROFILE\n"), (ids{7, 7, 7, 7, 7}));
}

TEST_F(DaemonConfiguration, AnyBlanksOrNoneMayStandBeforeTheId) {
    EXPECT_EQ(ids_of("PROFILE7 a\nPROFILE\t8\nPROFILES 9\n"), (ids{7, 8, 8}));
}

TEST_F(DaemonConfiguration, AFirstLineThatDoesNotMatchIsProfileZero) {
    EXPECT_EQ(ids_of("profile 7 office\n PROFILE 8 guests\n"), (ids{0, 0}));
}

TEST_F(DaemonConfiguration, IdsSaturate) {
    EXPECT_EQ(ids_of("PROFILE 4294967295 a\nPROFILE -1 b\nPROFILE -99999999999 c\n"),
              (ids{0x7fffffff, 0xffffffff, 0x80000000}));
}

TEST_F(DaemonConfiguration, ReadsLinesOfAnyLength) {
    EXPECT_EQ(ids_of("PROFILE 7 " + std::string(100000, 'n') + "\nPROFILE 8 " + std::string(300, ' ') + "n\n"),
              (ids{7, 8}));
}

TEST_F(DaemonConfiguration, AnEmptyFileLoadsNothingAndDumpsAnEmptyTable) {
    write_file(FILE_PATH, "");
    EXPECT_EQ(lines_at_level(7, [] { read_wl_conf(FILE_PATH); }), (lines{START, END}));
    EXPECT_EQ(initialised, ids{});
}

TEST_F(DaemonConfiguration, IsClosed) {
    const int free_descriptor = lowest_free_descriptor();
    ids_of("PROFILE 7 office\n");
    EXPECT_EQ(lowest_free_descriptor(), free_descriptor);
}

TEST_F(DaemonConfiguration, LogsAMissingFileName) {
    expect_logged(3, "read_wl_conf: conf file name not passed", [] { read_wl_conf(nullptr); });
}

TEST_F(DaemonConfiguration, LogsAFileThatCannotBeOpened) {
    expect_logged(2, "read_wl_conf: Unable to open conf file : /tmp/none errno : No such file or directory",
                  [] { read_wl_conf("/tmp/none"); });
    EXPECT_EQ(initialised, ids{});
}

TEST(ProfileDump, PrintsEveryFieldOfAFreshProfileAtLevelTwo) {
    const profile_pointer profile = new_profile();
    EXPECT_EQ(lines_at_level(1, [&] { print_ssid_profile_data_config(profile.get()); }), lines{});
    const std::string name = "print_ssid_profile_data_config: ";
    EXPECT_EQ(
        lines_at_level(2, [&] { print_ssid_profile_data_config(profile.get()); }),
        (lines{name + "profile_id [-1] ssid [] ap_vlan [0] external_interface [(null)]",
               name + "num_vaps [0] num_extra_vlans [0]",
               name + "ena_remote_bridging [0] iapc_path [0] remote_iapc_enabled [0]",
               name + "dot1x_enabled [0] is_1x_configured [0]",
               name + "portal_enabled [0] is_portal_configured [0] portal_radius_acc_enabled [0] portal_ssid_info "
                      "[absent]",
               name + "per_user_bw_enable [0] per_user_bw_down_limit [0] per_user_bw_up_limit [0]",
               name + "firewall_enabled [0] app_firewall_enabled [0] webq_enabled [0] content_analytics_enabled [0]",
               name + "apc_enabled [0] is_mesh_enabled [0]",
               name + "role_profile_enabled [0] is_role_profile [0] ap_vlan_enabled [0] inherit_ssid_settings_enabled "
                      "[0]",
               name + "role_derivation_rules [0]",
               name + "nack [0] send_cl_info_req [0] synch_registered [0] clients [0]"}));
}

TEST(ProfileDump, PrintsTheValuesOfAFullProfile) {
    const profile_pointer profile =
        from_file("SSID_PROFILE_ID=7\nWL_PROFILE_SSID=Guest\nVLAN_ID=-1\n"
                  "ExternalDevice=eth0\nVAP_LIST=ath0,ath1\nALL_EXTRA_SSID_VLAN_LIST=10,-4\n"
                  "REMOTE_BRIDGING_ENABLED=1\nIAPC_ENABLE=2\nREMOTE_IAPC_ENABLED=3\n"
                  "AP_SECFILE=EAP\nAP_IS_PORTAL_CONFIGURED=4\n"
                  "PORTAL_RADIUS_ACCT_ENABLED=5\nPER_USER_BANDWIDTH_ENABLED=6\n"
                  "PER_USER_BANDWIDTH_DOWNLOAD_LIMIT=700\n"
                  "PER_USER_BANDWIDTH_UPLOAD_LIMIT=800\n");
    struct portal_ssid_info portal {};
    profile->portal_ssid_info = &portal;
    profile->portal_enabled = 9;
    profile->dot1x_enabled = 8;
    profile->nack = 1;
    profile->send_cl_info_req = 2;
    profile->synch_registered = 3;
    static_cast<vapinfo *>(profile->vap_data_list->value)->bssid[5] = 0xab;
    ASSERT_NE(list_insert_head(&profile->role_derivation_rules, calloc(1, sizeof(role_derivation_rule))), nullptr);
    const std::string name = "print_ssid_profile_data_config: ";
    const lines printed = lines_at_level(2, [&] { print_ssid_profile_data_config(profile.get()); });
    EXPECT_EQ(lines(printed.begin(), printed.begin() + 10),
              (lines{name + "profile_id [7] ssid [Guest] ap_vlan [4294967295] external_interface [eth0]",
                     name + "num_vaps [2] num_extra_vlans [2]", name + "vap [ath1] bssid [00:00:00:00:00:AB]",
                     name + "vap [ath0] bssid [00:00:00:00:00:00]", name + "extra vlan [10]", name + "extra vlan [-4]",
                     name + "ena_remote_bridging [1] iapc_path [2] remote_iapc_enabled [3]",
                     name + "dot1x_enabled [8] is_1x_configured [1]",
                     name + "portal_enabled [9] is_portal_configured [4] portal_radius_acc_enabled [5] "
                            "portal_ssid_info [present]",
                     name + "per_user_bw_enable [6] per_user_bw_down_limit [700] per_user_bw_up_limit [800]"}));
    EXPECT_EQ(lines(printed.end() - 2, printed.end()),
              (lines{name + "role_derivation_rules [1]",
                     name + "nack [1] send_cl_info_req [2] synch_registered [3] clients [0]"}));
}

TEST(ProfileDump, PrintsEachFlagUnderItsName) {
    for (const char *const key :
         {"FIREWALL_ENABLED", "APP_FIREWALL_ENABLED", "WEBQ_ENABLED", "CONTENT_ANALYTICS_ENABLED", "APC_ENABLED",
          "MESH_ENABLED", "ROLE_PROFILE_ENABLED", "IS_ROLE_PROFILE", "AP_VLAN_ENABLED", "INHERIT_FROM_SSID"}) {
        const profile_pointer profile = with(key, "1");
        std::string field;
        if (std::strcmp(key, "MESH_ENABLED") == 0)
            field = "is_mesh_enabled";
        else if (std::strcmp(key, "INHERIT_FROM_SSID") == 0)
            field = "inherit_ssid_settings_enabled";
        else
            for (const char character : std::string(key))
                field += static_cast<char>(std::tolower(character));
        int found = 0;
        for (const std::string &line : lines_at_level(2, [&] { print_ssid_profile_data_config(profile.get()); })) {
            const size_t at = line.find(field + " [1]");
            found += at != std::string::npos && line[at - 1] == ' ' ? 1 : 0;
        }
        EXPECT_EQ(found, 1) << key;
    }
}

}  // namespace
