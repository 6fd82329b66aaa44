// The table of VAPs, filled by the simulated driver (it is linked in place of the C library's ioctl) and from files.
#include "vap_table.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "event_payload.h"
#include "fault.h"
#include "files.h"
#include "log_capture.h"
#include "vap_profile_map.h"
#include "wl_client_ts.h"
#include "wl_log.h"

namespace {

using lines = std::vector<std::string>;

constexpr char OFFICE[] = "101 ath3 Office 02:11:22:33:44:55 2 up\n";

void set_driver(const std::string &configuration) {
    mkdir("/tmp/sim", 0755);
    write_file("/tmp/sim/driver.conf", configuration);
}

/// Makes a profile's folder and its configuration file.
void set_profile(int id, const std::string &configuration) {
    const std::string folder = "/tmp/profile" + std::to_string(id);
    mkdir(folder.c_str(), 0755);
    write_file(folder + "/profile.conf", configuration);
}

void map_vap(int number, uint32_t profile_id) {
    profile_id_for_vap[number].profile_id = profile_id;
}

byte_string bytes_of(const vap_info &vap) {
    byte_string bytes(sizeof vap);
    std::memcpy(bytes.data(), &vap, sizeof vap);
    return bytes;
}

int open_descriptors() {
    int count = 0;
    for (int fd = 0; fd < 256; fd++)
        count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return count;
}

/// A record of one profile, with nothing else set.
vap_info record_of(int32_t profile_id) {
    vap_info vap{};
    vap.profile_id = profile_id;
    return vap;
}

vap_info configured(int32_t profile_id, const char *key, const char *value) {
    vap_info vap = record_of(profile_id);
    update_vap_config(&vap, value, key, 1);
    return vap;
}

TEST(VapInfo, IsPackedAndBigEndian) {
    vap_info vap{};
    vap.index = 0x01020304;
    std::memset(vap.name, 'n', sizeof vap.name);
    std::memset(vap.ssid, 's', sizeof vap.ssid);
    std::memset(vap.bssid, 'b', sizeof vap.bssid);
    vap.profile_id = -2;
    vap.dot1x_enabled = 0x31;
    vap.portal_enabled = 0x32;
    vap.secured_vap = 0x33;
    vap.samog_enabled = 0x34;
    vap.gauth_enabled = 0x35;
    vap.proto = 0x36;
    vap.ssid_vlan = 0x0FA1;
    vap.tunneled_vap = 0x37;
    vap.nat_vap = 0x38;
    const std::string expected = std::string("\x01\x02\x03\x04") + std::string(16, 'n') + std::string(33, 's') +
                                 "bbbbbb\xFF\xFF\xFF\xFE"
                                 "123456\x0F\xA1"
                                 "78";
    EXPECT_EQ(bytes_of(vap), text_bytes(expected));
}

TEST(AddVapinfo, FillsARecordFromKernelDriverMapAndProfile) {
    set_driver(OFFICE);
    map_vap(3, 0x0102);
    set_profile(0x0102, "AP_SECFILE=EAP\nVLAN_ID=300\nSAMOG_MAB_ENABLED=1\n");
    const vap_info *vap = add_vapinfo(101);
    ASSERT_EQ(vap, &vap_array[0]);
    EXPECT_EQ(vap_count, 1);
    std::string expected("\0\0\0\x65"
                         "ath3\0\0\0\0\0\0\0\0\0\0\0\0"
                         "Office",
                         26);
    expected += std::string(27, '\0') + "\x02\x11\x22\x33\x44\x55" + std::string("\0\0\x01\x02", 4);
    expected += std::string("\x01\0\x01\x01\0\x02\x01\x2C\0\0", 10);
    EXPECT_EQ(bytes_of(*vap), text_bytes(expected));
}

TEST(AddVapinfo, LogsTheProfileItFound) {
    log_capture log;
    debug = 2;
    set_driver(OFFICE);
    map_vap(3, 7);
    set_profile(7, "");
    ASSERT_NE(add_vapinfo(101), nullptr);
    EXPECT_EQ(
        log.lines(),
        (lines{"add_vapinfo: Created profile_id 7 for vap ath3", "",
               "update_other_vap_information: update_other_vap_information: updating information for profile_id 7",
               ""}));
}

TEST(AddVapinfo, TakesAVapWithoutAProfile) {
    log_capture log;
    set_driver(OFFICE);
    const vap_info *vap = add_vapinfo(101);
    ASSERT_NE(vap, nullptr);
    EXPECT_EQ(vap->profile_id, 0);
    EXPECT_EQ(log.lines().at(4), "update_other_vap_information: Could not open SSID profile conf file : "
                                 "/tmp/profile0/profile.conf, error : No such file or directory");
}

TEST(AddVapinfo, ReadsTheFileOfProfile0) {
    set_driver(OFFICE);
    set_profile(0, "AP_SECFILE=PSK\nVLAN_ID=300\n");
    const vap_info *vap = add_vapinfo(101);
    ASSERT_NE(vap, nullptr);
    EXPECT_EQ(vap->profile_id, 0);
    EXPECT_EQ(vap->secured_vap, 1);
    EXPECT_EQ(vap->ssid_vlan, 300);
}

TEST(AddVapinfo, ReadsALargeProfileIdAsNegative) {
    log_capture log;
    debug = 2;
    set_driver(OFFICE);
    map_vap(3, 0xFFFFFFFF);
    set_profile(-1, "AP_SECFILE=PSK\n");
    const vap_info *vap = add_vapinfo(101);
    ASSERT_NE(vap, nullptr);
    EXPECT_EQ(vap->profile_id, -1);
    EXPECT_EQ(vap->secured_vap, 1);
    EXPECT_EQ(log.lines().at(0), "add_vapinfo: Created profile_id -1 for vap ath3");
}

TEST(AddVapinfo, LeavesAVapThatIsNotUpForALaterEvent) {
    log_capture log;
    set_driver("101 ath3 Office 02:11:22:33:44:55 2 down\n");
    EXPECT_EQ(add_vapinfo(101), nullptr);
    EXPECT_EQ(vap_count, 0);
    EXPECT_EQ(log.lines(), lines{});
    set_driver(OFFICE);
    ASSERT_NE(add_vapinfo(101), nullptr);
    EXPECT_EQ(vap_count, 1);
}

TEST(AddVapinfo, LeavesAVapWithoutSsidForALaterEvent) {
    set_driver("101 ath3 - 02:11:22:33:44:55 2 up\n");
    EXPECT_EQ(add_vapinfo(101), nullptr);
    EXPECT_EQ(vap_count, 0);
}

TEST(AddVapinfo, TakesAnSsidOf32CharactersWhole) {
    const std::string ssid(32, 'S');
    set_driver("101 ath3 " + ssid + " 02:11:22:33:44:55 2 up\n");
    ASSERT_NE(add_vapinfo(101), nullptr);
    EXPECT_EQ(vap_array[0].ssid, ssid);
}

TEST(AddVapinfo, CutsAnSsidWithoutNul) {
    set_driver("101 ath3 " + std::string(33, 'S') + " 02:11:22:33:44:55 2 up\n");
    ASSERT_NE(add_vapinfo(101), nullptr);
    EXPECT_EQ(vap_array[0].ssid, std::string(32, 'S'));
}

TEST(AddVapinfo, TakesAnInterfaceNameOf15Characters) {
    set_driver("101 ath3xxxxxxxxxxx Office 02:11:22:33:44:55 2 up\n");
    ASSERT_NE(add_vapinfo(101), nullptr);
    EXPECT_STREQ(vap_array[0].name, "ath3xxxxxxxxxxx");
}

TEST(AddVapinfo, ReturnsTheSixteenthRecordForASeventeenthVap) {
    std::string vaps;
    for (int i = 1; i <= 17; i++)
        vaps += std::to_string(100 + i) + " ath" + std::to_string(i) + " S 02:11:22:33:44:55 2 up\n";
    set_driver(vaps);
    for (int i = 1; i <= 16; i++)
        ASSERT_EQ(add_vapinfo(100 + i), &vap_array[i - 1]);
    EXPECT_EQ(add_vapinfo(117), &vap_array[15]);
    EXPECT_EQ(vap_count, 16);
    EXPECT_EQ(vap_array[15].index, 116);
    EXPECT_EQ(lookup_vapinfo(117), nullptr);
}

TEST(AddVapinfo, ReportsAMissingSocketOnStandardError) {
    set_driver(OFFICE);
    fail_nth_call("socket", 1, EMFILE);
    testing::internal::CaptureStderr();
    EXPECT_EQ(add_vapinfo(101), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Socket\n: Too many open files\n");
}

TEST(AddVapinfo, NeedsAnInterface) {
    log_capture log;
    set_driver(OFFICE);
    EXPECT_EQ(add_vapinfo(102), nullptr);
    EXPECT_EQ(add_vapinfo(0), nullptr);
    EXPECT_EQ(add_vapinfo(-1), nullptr);
    EXPECT_EQ(log.lines(), lines{});
}

TEST(AddVapinfo, NeedsADriverThatKnowsTheInterface) {
    set_driver("");
    EXPECT_EQ(add_vapinfo(1), nullptr);  // the loopback interface
    EXPECT_EQ(vap_count, 0);
}

TEST(AddVapinfo, SurvivesEveryFailureOnItsWayAndAddsTheVapLater) {
    set_driver(OFFICE);
    map_vap(3, 7);
    set_profile(7, "AP_SECFILE=PSK\n");
    const struct {
        const char *function;
        int calls;
        int error;
    } faults[] = {{"socket", 2, EMFILE}, {"ioctl", 3, EIO}, {"calloc", 2, 0}};
    const int descriptors = open_descriptors();
    for (const auto &fault : faults) {
        for (int nth = 1; nth <= fault.calls; nth++) {
            fail_nth_call(fault.function, nth, fault.error);
            EXPECT_EQ(add_vapinfo(101), nullptr) << fault.function << nth;
            EXPECT_EQ(faults_fired(fault.function), 1) << fault.function << nth;
            EXPECT_EQ(vap_count, 0);
        }
        fail_nth_call(fault.function, fault.calls + 1, fault.error);
        EXPECT_NE(add_vapinfo(101), nullptr);
        EXPECT_EQ(faults_fired(fault.function), 0) << fault.function;
        clear_faults();
        init_iface_table();
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(AddVapinfo, AddsTheVapWhoseProfileFileCannotBeOpened) {
    log_capture log;
    set_driver(OFFICE);
    map_vap(3, 7);
    set_profile(7, "AP_SECFILE=PSK\n");
    fail_nth_call("fopen", 1, EACCES);
    ASSERT_NE(add_vapinfo(101), nullptr);
    EXPECT_EQ(vap_array[0].secured_vap, 0);
    EXPECT_EQ(log.lines().at(4), "update_other_vap_information: Could not open SSID profile conf file : "
                                 "/tmp/profile7/profile.conf, error : Permission denied");
}

TEST(LookupVapinfo, FindsAVapByItsIndex) {
    set_driver(std::string(OFFICE) + "102 ath4 Guest 02:11:22:33:44:56 1 up\n");
    EXPECT_EQ(lookup_vapinfo(101), nullptr);
    ASSERT_NE(add_vapinfo(101), nullptr);
    ASSERT_NE(add_vapinfo(102), nullptr);
    EXPECT_EQ(lookup_vapinfo(101), &vap_array[0]);
    EXPECT_EQ(lookup_vapinfo(102), &vap_array[1]);
    EXPECT_EQ(lookup_vapinfo(0), nullptr);
}

TEST(AddOrLookupVapinfo, DumpsANewVapButNotAKnownOne) {
    log_capture log;
    debug = 2;
    set_driver(OFFICE);
    EXPECT_EQ(add_or_lookup_vapinfo(101), &vap_array[0]);
    const lines first = log.lines();
    ASSERT_EQ(first.size(), 6U);
    EXPECT_EQ(first[4], "dump_vapinfo: COMMON INFORMATION: interface ath3 ssid Office bssid 02:11:22:33:44:55 "
                        "profile_id 0 dot1x_enabled 0 portal_enabled 0 secured_vap 0 samog_enabled 0 gauth_enabled 0");
    EXPECT_EQ(first[5], ", ssid_vlan 0, tunneled vap 0 NAT vap 0");
    EXPECT_EQ(add_or_lookup_vapinfo(101), &vap_array[0]);
    EXPECT_EQ(log.lines(), first);
}

TEST(AddOrLookupVapinfo, AsksTheDriverForANewVapOnly) {
    set_driver(OFFICE);
    ASSERT_NE(add_or_lookup_vapinfo(101), nullptr);
    fail_every_call("ioctl", EIO);
    EXPECT_NE(add_or_lookup_vapinfo(101), nullptr);
    EXPECT_EQ(add_or_lookup_vapinfo(102), nullptr);
}

TEST(AddOrLookupVapinfo, LogsAFailedAddAndDumpsNothing) {
    log_capture log;
    debug = 2;
    set_driver("");
    EXPECT_EQ(add_or_lookup_vapinfo(-5), nullptr);
    EXPECT_EQ(log.lines(), lines{"add_or_lookup_vapinfo: VAP add failed for index -5"});
}

TEST(AddOrLookupVapinfo, DumpsTheSixteenthRecordForEveryEventOfASeventeenthVap) {
    std::string vaps;
    for (int i = 1; i <= 17; i++)
        vaps += std::to_string(100 + i) + " ath" + std::to_string(i) + " S 02:11:22:33:44:55 2 up\n";
    set_driver(vaps);
    for (int i = 1; i <= 16; i++)
        ASSERT_NE(add_or_lookup_vapinfo(100 + i), nullptr);
    for (int event = 0; event < 2; event++) {
        log_capture log;
        EXPECT_EQ(add_or_lookup_vapinfo(117), &vap_array[15]);
        const lines logged = log.lines();
        EXPECT_EQ(logged.at(0), "add_vapinfo: Created profile_id 0 for vap ath17");
        EXPECT_EQ(logged.at(logged.size() - 2).substr(0, 56),
                  "dump_vapinfo: COMMON INFORMATION: interface ath16 ssid S");
    }
}

TEST(AddOrLookupVapinfo, FailureIsLoggedBeforeTheDecodersOwn) {
    log_capture log;
    received_payload payload(event_payload().u32(WL_VAP_INDEX, 102));
    wl_evt_info info;
    wl_get_evt_info(VRE_VAP_DOWN, &info, payload.data(), payload.length());
    EXPECT_EQ(log.lines(),
              (lines{"add_or_lookup_vapinfo: VAP add failed for index 102", "wl_get_evt_info: Vap lookup failed "}));
}

TEST(DumpVapinfo, PrintsEveryFieldInOrder) {
    log_capture log;
    debug = 2;
    vap_info vap{};
    std::strcpy(vap.name, "ath3");
    std::strcpy(vap.ssid, "Of%s fice");
    const uint8_t bssid[] = {0xAB, 0x0C, 0, 1, 2, 0xFF};
    std::memcpy(vap.bssid, bssid, sizeof bssid);
    vap.profile_id = -1;
    vap.dot1x_enabled = 1;
    vap.portal_enabled = 2;
    vap.secured_vap = 3;
    vap.samog_enabled = 255;
    vap.gauth_enabled = 5;
    vap.ssid_vlan = 65535;
    vap.tunneled_vap = 6;
    vap.nat_vap = 7;
    dump_vapinfo(&vap);
    EXPECT_EQ(log.lines(),
              (lines{"dump_vapinfo: COMMON INFORMATION: interface ath3 ssid Of%s fice bssid AB:0C:00:01:02:FF "
                     "profile_id -1 dot1x_enabled 1 portal_enabled 2 secured_vap 3 samog_enabled 255 gauth_enabled 5",
                     ", ssid_vlan 65535, tunneled vap 6 NAT vap 7"}));
}

TEST(DumpVapinfo, SaysNothingBelowLevel2AndOfNull) {
    log_capture log;
    dump_vapinfo(nullptr);
    debug = 1;
    const vap_info vap{};
    dump_vapinfo(&vap);
    EXPECT_EQ(log.lines(), lines{});
}

TEST(GetVapInfo, TakesSsidBssidAndProtoAndNothingElse) {
    set_driver(OFFICE);
    vap_info *vap = get_vap_info("ath3");
    ASSERT_NE(vap, nullptr);
    vap_info expected{};
    std::strcpy(expected.ssid, "Office");
    const uint8_t bssid[] = {2, 0x11, 0x22, 0x33, 0x44, 0x55};
    std::memcpy(expected.bssid, bssid, sizeof bssid);
    expected.proto = 2;
    EXPECT_EQ(bytes_of(*vap), bytes_of(expected));
    std::free(vap);
}

TEST(GetVapInfo, TakesAReplyLongerThanTheRecord) {
    set_driver(std::string(OFFICE) + "args get_vaps 0 0x1200\nreply_size 512\n");
    vap_info *vap = get_vap_info("ath3");
    ASSERT_NE(vap, nullptr);
    EXPECT_STREQ(vap->ssid, "Office");
    std::free(vap);
}

TEST(GetVapInfo, TakesAReplyThatClaimsMoreThanThereIs) {
    set_driver(std::string(OFFICE) + "reply_size 512\nreply_claims 65535\n");
    vap_info *vap = get_vap_info("ath3");
    ASSERT_NE(vap, nullptr);
    EXPECT_STREQ(vap->ssid, "Office");
    std::free(vap);
}

TEST(GetVapInfo, ReadsWhatAShortReplyLeavesOutAsZero) {
    for (const char *reply : {"reply_size 36", "args get_vaps 0 0x1024"}) {
        set_driver(std::string(OFFICE) + reply + "\n");
        vap_info *vap = get_vap_info("ath3");
        ASSERT_NE(vap, nullptr);
        EXPECT_STREQ(vap->ssid, "Office");
        const uint8_t bssid[] = {2, 0x11, 0, 0, 0, 0};
        EXPECT_EQ(std::memcmp(vap->bssid, bssid, sizeof bssid), 0) << reply;
        EXPECT_EQ(vap->proto, 0) << reply;
        std::free(vap);
    }
}

TEST(GetVapInfo, FailsForAnUnknownInterfaceAndWithoutMemory) {
    set_driver(OFFICE);
    EXPECT_EQ(get_vap_info("ath4"), nullptr);
    fail_every_call("calloc");
    EXPECT_EQ(get_vap_info("ath3"), nullptr);
}

TEST(UpdateVapConfig, ProfileIdLooksForThePortalFile) {
    set_profile(7, "");
    EXPECT_EQ(bytes_of(configured(7, "SSID_PROFILE_ID", "7")), bytes_of(record_of(7)));
    write_file("/tmp/profile7/portal.conf", "");
    vap_info expected = record_of(7);
    expected.portal_enabled = 1;
    EXPECT_EQ(bytes_of(configured(7, "SSID_PROFILE_ID", "7")), bytes_of(expected));
}

TEST(UpdateVapConfig, ProfileIdLooksForTheNetworkFileOfTheProfile) {
    set_profile(7, "");
    write_file("/tmp/profile7/network.conf", "");
    vap_info expected = record_of(7);
    expected.tunneled_vap = 1;
    EXPECT_EQ(bytes_of(configured(7, "SSID_PROFILE_ID", "7")), bytes_of(expected));
}

TEST(UpdateVapConfig, ProfileIdLooksForTheNatFile) {
    set_profile(7, "");
    write_file("/tmp/profile7/nat.conf", "");
    vap_info expected = record_of(7);
    expected.nat_vap = 1;
    EXPECT_EQ(bytes_of(configured(7, "SSID_PROFILE_ID", "7")), bytes_of(expected));
}

TEST(UpdateVapConfig, ProfileIdIgnoresItsValue) {
    set_profile(7, "");
    write_file("/tmp/profile7/portal.conf", "");
    EXPECT_EQ(configured(7, "SSID_PROFILE_ID", "8").portal_enabled, 1);
    EXPECT_EQ(configured(8, "SSID_PROFILE_ID", "7").portal_enabled, 0);
}

TEST(UpdateVapConfig, ProfileIdOfARecordWithoutProfileIsIgnored) {
    set_profile(0, "");
    write_file("/tmp/profile0/portal.conf", "");
    write_file("/tmp/profile0/network.conf", "");
    write_file("/tmp/profile0/nat.conf", "");
    EXPECT_EQ(bytes_of(configured(0, "SSID_PROFILE_ID", "7")), bytes_of(record_of(0)));
}

TEST(UpdateVapConfig, ProfileIdMayBeNegative) {
    set_profile(-2147483647, "");
    write_file("/tmp/profile-2147483647/nat.conf", "");
    EXPECT_EQ(configured(-2147483647, "SSID_PROFILE_ID", "").nat_vap, 1);
}

TEST(UpdateVapConfig, EapSetsDot1xAndSecured) {
    vap_info expected = record_of(7);
    expected.dot1x_enabled = 1;
    expected.secured_vap = 1;
    EXPECT_EQ(bytes_of(configured(7, "AP_SECFILE", "EAP")), bytes_of(expected));
}

TEST(UpdateVapConfig, PskSetsSecuredOnly) {
    vap_info expected = record_of(7);
    expected.secured_vap = 1;
    EXPECT_EQ(bytes_of(configured(7, "AP_SECFILE", "PSK")), bytes_of(expected));
}

TEST(UpdateVapConfig, OtherSecurityIsIgnored) {
    for (const char *value : {"EAP\r", "eap", " PSK", "PSK ", "EAPX", "", "OPEN"})
        EXPECT_EQ(bytes_of(configured(7, "AP_SECFILE", value)), bytes_of(record_of(7))) << value;
}

TEST(UpdateVapConfig, SamogTakesTheLow8Bits) {
    const struct {
        const char *value;
        int expected;
    } rows[] = {{"1", 1}, {"256", 0}, {"511", 255}, {"-1", 255}, {"abc", 0}, {" 3x", 3}, {"99999999999", 255}};
    for (const auto &row : rows) {
        vap_info expected = record_of(7);
        expected.samog_enabled = static_cast<uint8_t>(row.expected);
        EXPECT_EQ(bytes_of(configured(7, "SAMOG_MAB_ENABLED", row.value)), bytes_of(expected)) << row.value;
    }
}

TEST(UpdateVapConfig, GauthTakesTheLow8Bits) {
    const struct {
        const char *value;
        int expected;
    } rows[] = {{"1", 1}, {"258", 2}, {"-2147483648", 0}, {"-99999999999", 0}, {"2147483647", 255}};
    for (const auto &row : rows) {
        vap_info expected = record_of(7);
        expected.gauth_enabled = static_cast<uint8_t>(row.expected);
        EXPECT_EQ(bytes_of(configured(7, "GAUTH_ENABLED", row.value)), bytes_of(expected)) << row.value;
    }
}

TEST(UpdateVapConfig, VlanTakesTheLow16Bits) {
    const struct {
        const char *value;
        int expected;
    } rows[] = {{"4094", 4094}, {"65537", 1}, {"-1", 65535}, {"0x10", 0}, {"4294967295", 65535}, {"", 0}};
    for (const auto &row : rows) {
        vap_info expected = record_of(7);
        expected.ssid_vlan = static_cast<uint16_t>(row.expected);
        EXPECT_EQ(bytes_of(configured(7, "VLAN_ID", row.value)), bytes_of(expected)) << row.value;
    }
}

TEST(UpdateVapConfig, NetworkProfileLooksAtTheNetworksOwnFolder) {
    mkdir("/tmp/network9", 0755);
    mkdir("/tmp/network0", 0755);
    write_file("/tmp/network9/network.conf", "");
    write_file("/tmp/network0/network.conf", "");
    vap_info expected = record_of(7);
    expected.tunneled_vap = 1;
    EXPECT_EQ(bytes_of(configured(7, "NETWORK_PROFILE_ID", "9")), bytes_of(expected));
    for (const char *value : {"0", "8", "", "x"})
        EXPECT_EQ(bytes_of(configured(7, "NETWORK_PROFILE_ID", value)), bytes_of(record_of(7))) << value;
}

TEST(UpdateVapConfig, NetworkProfileMayBeNegative) {
    mkdir("/tmp/network-3", 0755);
    write_file("/tmp/network-3/network.conf", "");
    EXPECT_EQ(configured(7, "NETWORK_PROFILE_ID", "-3").tunneled_vap, 1);
    EXPECT_EQ(configured(7, "NETWORK_PROFILE_ID", "3").tunneled_vap, 0);
}

TEST(UpdateVapConfig, OtherKeysAreIgnored) {
    for (const char *key : {"", "VLAN_ID ", " VLAN_ID", "vlan_id", "VLAN_IDS", "SSID", "VLAN"})
        EXPECT_EQ(bytes_of(configured(7, key, "1")), bytes_of(record_of(7))) << key;
}

TEST(UpdateVapConfig, FlagsAreNeverCleared) {
    vap_info vap = configured(7, "AP_SECFILE", "EAP");
    vap.portal_enabled = vap.tunneled_vap = vap.nat_vap = 1;
    const byte_string before = bytes_of(vap);
    update_vap_config(&vap, "OPEN", "AP_SECFILE", 1);
    update_vap_config(&vap, "7", "SSID_PROFILE_ID", 1);
    update_vap_config(&vap, "7", "NETWORK_PROFILE_ID", 1);
    EXPECT_EQ(bytes_of(vap), before);
}

TEST(UpdateOtherVapInformation, SplitsAtTheFirstEqualsSign) {
    set_profile(7, "GAUTH_ENABLED=4=5\nVLAN_ID==12\n=1\nSAMOG_MAB_ENABLED=6");
    vap_info vap = record_of(7);
    update_other_vap_information(&vap);
    vap_info expected = record_of(7);
    expected.gauth_enabled = 4;
    expected.samog_enabled = 6;
    EXPECT_EQ(bytes_of(vap), bytes_of(expected));
}

TEST(UpdateOtherVapInformation, LogsLinesWithoutEqualsSignWithTheirNumbers) {
    log_capture log;
    debug = 3;
    set_profile(7, "\nVLAN_ID\n\nVLAN_ID=5\r\n\r\n # x\n");
    vap_info vap = record_of(7);
    update_other_vap_information(&vap);
    EXPECT_EQ(vap.ssid_vlan, 5);
    EXPECT_EQ(
        log.lines(),
        (lines{"update_other_vap_information: update_other_vap_information: updating information for profile_id 7", "",
               "update_other_vap_information: Invalid config line [VLAN_ID] at line# [2]",
               "update_other_vap_information: Invalid config line [\r] at line# [5]",
               "update_other_vap_information: Invalid config line [ # x] at line# [6]"}));
}

TEST(UpdateOtherVapInformation, InvalidLinesAreLoggedAtLevel3) {
    log_capture log;
    debug = 2;
    set_profile(7, "VLAN_ID\n");
    vap_info vap = record_of(7);
    update_other_vap_information(&vap);
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST(UpdateOtherVapInformation, AMissingFileIsLoggedAtLevel3) {
    log_capture log;
    debug = 2;
    vap_info vap = record_of(7);
    update_other_vap_information(&vap);
    EXPECT_EQ(log.lines().size(), 2U);
    debug = 3;
    update_other_vap_information(&vap);
    EXPECT_EQ(log.lines().back(), "update_other_vap_information: Could not open SSID profile conf file : "
                                  "/tmp/profile7/profile.conf, error : No such file or directory");
}

TEST(UpdateOtherVapInformation, APieceOfALongLineCountsAsALine) {
    log_capture log;
    set_profile(7, std::string(511, 'x') + "VLAN_ID=12\n" + "y\n");
    vap_info vap = record_of(7);
    update_other_vap_information(&vap);
    EXPECT_EQ(vap.ssid_vlan, 12);
    const lines logged = log.lines();
    ASSERT_EQ(logged.size(), 4U);
    EXPECT_EQ(logged[2],
              "update_other_vap_information: Invalid config line [" + std::string(511, 'x') + "] at line# [1]");
    EXPECT_EQ(logged[3], "update_other_vap_information: Invalid config line [y] at line# [3]");
}

TEST(UpdateOtherVapInformation, ALineEndsAtItsNul) {
    set_profile(7, std::string("GAUTH_ENABLED=1\0VLAN_ID=5\n\0VLAN_ID=6\nSAMOG_MAB_ENABLED=2\n", 58));
    vap_info vap = record_of(7);
    update_other_vap_information(&vap);
    vap_info expected = record_of(7);
    expected.gauth_enabled = 1;
    expected.samog_enabled = 2;
    EXPECT_EQ(bytes_of(vap), bytes_of(expected));
}

TEST(GetConfigFromVapinfo, CopiesFiveFieldsOfTheVapThatTheEventNames) {
    set_driver(std::string(OFFICE) + "102 ath4 Guest 02:11:22:33:44:56 1 up\n");
    ASSERT_NE(add_vapinfo(101), nullptr);
    ASSERT_NE(add_vapinfo(102), nullptr);
    vap_array[1].portal_enabled = 2;
    vap_array[1].dot1x_enabled = 3;
    vap_array[1].tunneled_vap = 4;
    vap_array[1].ssid_vlan = 0x1234;
    vap_array[1].nat_vap = 5;
    cl_conn_evt_rec record{};
    char name[] = "ath4";
    wl_evt_info_t event{};
    event.name = name;
    EXPECT_EQ(get_config_from_vapinfo(&record, &event), 1);
    EXPECT_EQ(record.is_portal_enabled, 2);
    EXPECT_EQ(record.is_dot1x, 3);
    EXPECT_EQ(record.is_tunnel_enabled, 4);
    EXPECT_EQ(record.vlan, 0x1234);
    EXPECT_EQ(record.is_nat_enabled, 5);
}

TEST(GetConfigFromVapinfo, NeedsTheWholeName) {
    set_driver(OFFICE);
    ASSERT_NE(add_vapinfo(101), nullptr);
    vap_array[0].nat_vap = 1;
    cl_conn_evt_rec record{};
    for (const char *name : {"ath", "ath33", "ATH3", ""}) {
        std::string text = name;
        wl_evt_info_t event{};
        event.name = text.data();
        EXPECT_EQ(get_config_from_vapinfo(&record, &event), 0) << name;
    }
    EXPECT_EQ(record.is_nat_enabled, 0);
}

TEST(GetConfigFromVapinfo, LogsAnEventWithoutName) {
    log_capture log;
    debug = 3;
    cl_conn_evt_rec record{};
    wl_evt_info_t event{};
    event.info_code = 23;
    EXPECT_EQ(get_config_from_vapinfo(&record, &event), 0);
    EXPECT_EQ(log.lines(), lines{"get_config_from_vapinfo: VAP name is null for event info_code 23"});
    debug = 2;
    EXPECT_EQ(get_config_from_vapinfo(&record, &event), 0);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(IfaceTableClearCache, EmptiesTheTableAndTellsTheSystemLog) {
    const int log = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    ASSERT_EQ(bind(log, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    set_driver(OFFICE);
    ASSERT_NE(add_vapinfo(101), nullptr);
    iface_table_clear_cache();
    EXPECT_EQ(vap_count, 0);
    EXPECT_EQ(bytes_of(vap_array[0]), byte_string(sizeof(vap_info)));
    char line[256] = {};
    ASSERT_GT(recv(log, line, sizeof line - 1, MSG_DONTWAIT), 0);
    const std::string text = line;
    const std::string message = ": Reboot avoidance path triggered. Reinitializing interface cache.";
    EXPECT_EQ(text.substr(0, 5), "<134>");
    EXPECT_EQ(text.substr(text.size() - message.size()), message);
    close(log);
}

TEST(IfaceTableClearCache, TheNextLookupAsksTheDriverAgain) {
    set_driver(OFFICE);
    ASSERT_NE(add_or_lookup_vapinfo(101), nullptr);
    set_driver("101 ath3 Renamed 02:11:22:33:44:55 2 up\n");
    EXPECT_STREQ(add_or_lookup_vapinfo(101)->ssid, "Office");
    wl_iface_table_clear_cache(VRE_WL_CLR_IFACE_TABLE_CACHE, nullptr, 0);
    EXPECT_EQ(vap_count, 0);
    EXPECT_STREQ(add_or_lookup_vapinfo(101)->ssid, "Renamed");
}

TEST(InitIfaceTable, EmptiesTheTable) {
    set_driver(OFFICE);
    ASSERT_NE(add_vapinfo(101), nullptr);
    init_iface_table();
    EXPECT_EQ(vap_count, 0);
    EXPECT_EQ(bytes_of(vap_array[0]), byte_string(sizeof(vap_info)));
}

}  // namespace
