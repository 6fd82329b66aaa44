// The APC feature: for which BSSIDs it is on, and the identifier. The clock and the interfaces are the tests' own.
#include "wl_apc.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "event_payload.h"
#include "fault.h"
#include "files.h"
#include "log_capture.h"
#include "test_clock.h"
#include "wl_ssid_profile.h"
#include "wl_vap_helpers.h"

namespace {

byte_string hardware_address;  // of every interface; empty: it cannot be read
std::vector<std::string> interfaces_asked;
bool asked_without_lock;

}  // namespace

extern "C" int __wrap_socklib_get_hwaddr(const char *device, uint8_t *address) {
    interfaces_asked.emplace_back(device);
    if (pthread_mutex_trylock(&g_ssid_profile_list_mutex) != EBUSY)
        asked_without_lock = true;
    if (hardware_address.empty())
        return -1;
    std::copy_n(hardware_address.begin(), 6, address);
    return 0;
}

namespace {

using lines = std::vector<std::string>;

const byte_string CLIENT = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
const byte_string BSSID = {0x02, 0x11, 0x22, 0xA1, 0xB2, 0xC3};
const byte_string OTHER = {0x02, 0x11, 0x22, 0xA1, 0xB2, 0xC4};
const byte_string UNKNOWN(6);
constexpr char OFFSET_FILE[] = "/tmp/time.offset";

std::string check_says(const std::string &text) {
    return "apc_check_bssid_is_feature_enabled: APC: " + text;
}

std::string generator_says(const std::string &text) {
    return "apc_generate_id: " + text;
}

// --- for which BSSIDs it is on ---

class ApcCheck : public testing::Test {
protected:
    ApcCheck() {
        hardware_address.clear();
        interfaces_asked.clear();
        asked_without_lock = false;
        ssid_profile_list = hash_table_init(nullptr, SSID_PROFILE_BUCKETS, &ssid_cache_hash_fn, nullptr);
    }

    ~ApcCheck() override {
        hash_table_destroy(ssid_profile_list);
        free(ssid_profile_list);
        ssid_profile_list = nullptr;
    }

    static ssid_profile_info *add_profile(uint32_t id, bool apc) {
        ssid_profile_info *const profile = create_ssid_profile_data();
        profile->profile_id = id;
        profile->flags.apc_enabled = apc ? 1 : 0;
        EXPECT_EQ(hash_table_add(ssid_profile_list, &profile->profile_id, profile), 0);
        return profile;
    }

    static vapinfo *add_vap(ssid_profile_info *profile, const std::string &name, const byte_string &bssid) {
        auto *const vap = static_cast<vapinfo *>(calloc(1, sizeof(vapinfo)));
        std::strcpy(vap->name, name.c_str());
        std::copy_n(bssid.begin(), 6, vap->bssid);
        EXPECT_NE(list_insert_tail(&profile->vap_data_list, vap), nullptr);
        profile->num_vaps++;
        return vap;
    }

    static int check(const byte_string &bssid) {
        return apc_check_bssid_is_feature_enabled(bssid.data());
    }

    static lines lines_of_check(int level, const byte_string &bssid) {
        log_capture log(level);
        (void)check(bssid);
        return log.lines();
    }

    static byte_string bssid_of(const vapinfo *vap) {
        return byte_string(vap->bssid, vap->bssid + 6);
    }
};

TEST_F(ApcCheck, IsOnForAVapOfAProfileWithTheFeature) {
    add_vap(add_profile(1, true), "ath0", BSSID);
    EXPECT_EQ(check(BSSID), 1);
    EXPECT_EQ(lines_of_check(6, BSSID), lines{check_says("Enabled on bssid 02:11:22:A1:B2:C3")});
}

TEST_F(ApcCheck, IsOffForAVapOfAProfileWithoutTheFeature) {
    ssid_profile_info *const profile = add_profile(1, false);
    std::memset(&profile->flags, 0xFF, 1);
    profile->flags.apc_enabled = 0;
    add_vap(profile, "ath0", BSSID);
    EXPECT_EQ(check(BSSID), 0);
    EXPECT_EQ(lines_of_check(6, BSSID), lines{check_says("Disabled on bssid 02:11:22:A1:B2:C3")});
}

TEST_F(ApcCheck, IsOffForAnotherBssid) {
    add_vap(add_profile(1, true), "ath0", BSSID);
    EXPECT_EQ(check(OTHER), 0);
    EXPECT_EQ(lines_of_check(6, OTHER), lines{check_says("Disabled on bssid 02:11:22:A1:B2:C4")});
}

TEST_F(ApcCheck, IsSilentBelowLevel6) {
    add_vap(add_profile(1, true), "ath0", BSSID);
    add_vap(add_profile(2, true), "ath1", UNKNOWN);
    EXPECT_EQ(lines_of_check(5, BSSID), lines());
    EXPECT_EQ(lines_of_check(5, OTHER), lines());
}

TEST_F(ApcCheck, AnAddressThatIsReadAgainIsNotLoggedBelowLevel6) {
    vapinfo *const vap = add_vap(add_profile(1, true), "ath0", UNKNOWN);
    hardware_address = OTHER;
    EXPECT_EQ(lines_of_check(5, OTHER), lines());
    EXPECT_EQ(bssid_of(vap), OTHER);
}

TEST_F(ApcCheck, IsOffWithoutProfiles) {
    EXPECT_EQ(check(BSSID), 0);
    add_profile(1, true);
    EXPECT_EQ(check(BSSID), 0);
}

TEST_F(ApcCheck, IsOffForANullBssidWithoutAWord) {
    add_vap(add_profile(1, true), "ath0", UNKNOWN);
    log_capture log;
    EXPECT_EQ(apc_check_bssid_is_feature_enabled(nullptr), 0);
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(interfaces_asked, lines());
}

TEST_F(ApcCheck, LooksAtEveryVapOfEveryProfileWithTheFeature) {
    for (uint32_t id = 1; id <= 50; id++) {  // more than the table has rows
        ssid_profile_info *const profile = add_profile(id, id % 2 == 0);
        for (uint8_t vap = 0; vap < 3; vap++)
            add_vap(profile, "ath0", {2, 0, 0, 0, static_cast<uint8_t>(id), vap});
    }
    for (uint8_t id = 1; id <= 50; id++)
        for (uint8_t vap = 0; vap < 3; vap++)
            EXPECT_EQ(check({2, 0, 0, 0, id, vap}), id % 2 == 0 ? 1 : 0) << int{id};
}

TEST_F(ApcCheck, ReadsAnUnknownBssidAgainBeforeItCompares) {
    vapinfo *const vap = add_vap(add_profile(1, true), "ath0", UNKNOWN);
    hardware_address = BSSID;
    EXPECT_EQ(lines_of_check(6, BSSID), (lines{check_says("Zero bssid, generated again 02:11:22:A1:B2:C3"),
                                               check_says("Enabled on bssid 02:11:22:A1:B2:C3")}));
    EXPECT_EQ(interfaces_asked, lines{"ath0"});
    EXPECT_EQ(bssid_of(vap), BSSID);
}

TEST_F(ApcCheck, ReadsAnUnknownBssidOnlyOnce) {
    add_vap(add_profile(1, true), "ath0", UNKNOWN);
    hardware_address = BSSID;
    EXPECT_EQ(check(BSSID), 1);
    EXPECT_EQ(check(OTHER), 0);
    EXPECT_EQ(interfaces_asked, lines{"ath0"});
}

TEST_F(ApcCheck, ABssidReadAgainMayStillBeAnother) {
    add_vap(add_profile(1, true), "ath0", UNKNOWN);
    hardware_address = OTHER;
    EXPECT_EQ(lines_of_check(6, BSSID), (lines{check_says("Zero bssid, generated again 02:11:22:A1:B2:C4"),
                                               check_says("Disabled on bssid 02:11:22:A1:B2:C3")}));
}

TEST_F(ApcCheck, GoesOnAfterABssidThatCannotBeRead) {
    ssid_profile_info *const profile = add_profile(1, true);
    vapinfo *const unknown = add_vap(profile, "ath0", UNKNOWN);
    add_vap(profile, "ath1", BSSID);
    EXPECT_EQ(lines_of_check(6, BSSID), (lines{check_says("Zero bssid, generation failed 00:00:00:00:00:00"),
                                               check_says("Enabled on bssid 02:11:22:A1:B2:C3")}));
    EXPECT_EQ(bssid_of(unknown), UNKNOWN);
}

TEST_F(ApcCheck, ComparesABssidThatCannotBeReadAllTheSame) {
    add_vap(add_profile(1, true), "ath0", UNKNOWN);
    EXPECT_EQ(check(UNKNOWN), 1);
}

TEST_F(ApcCheck, DoesNotReadABssidThatIsKnown) {
    add_vap(add_profile(1, true), "ath0", {0, 0, 0, 0, 0, 1});
    EXPECT_EQ(check(BSSID), 0);
    EXPECT_EQ(interfaces_asked, lines());
}

TEST_F(ApcCheck, DoesNotReadBssidsOfProfilesWithoutTheFeature) {
    add_vap(add_profile(1, false), "ath0", UNKNOWN);
    hardware_address = BSSID;
    EXPECT_EQ(check(BSSID), 0);
    EXPECT_EQ(interfaces_asked, lines());
}

TEST_F(ApcCheck, EndsAtTheFirstMatch) {
    ssid_profile_info *const profile = add_profile(1, true);
    add_vap(profile, "ath0", BSSID);
    add_vap(profile, "ath1", UNKNOWN);
    EXPECT_EQ(check(BSSID), 1);
    EXPECT_EQ(interfaces_asked, lines());
}

TEST_F(ApcCheck, HoldsTheLockOfTheProfilesWhileItWalksAndNotAfter) {
    add_vap(add_profile(1, true), "ath0", UNKNOWN);
    hardware_address = OTHER;
    EXPECT_EQ(check(OTHER), 1);
    EXPECT_EQ(check(BSSID), 0);
    EXPECT_EQ(interfaces_asked.size(), 1U);
    EXPECT_FALSE(asked_without_lock);
    EXPECT_EQ(pthread_mutex_trylock(&g_ssid_profile_list_mutex), 0);
    pthread_mutex_unlock(&g_ssid_profile_list_mutex);
}

// --- the identifier ---

class ApcId : public testing::Test {
protected:
    ApcId() {
        unlink(OFFSET_FILE);
        test_time = 1700000000;
    }

    ~ApcId() override {
        test_time = 0;
        clear_faults();
    }

    static std::string id() {
        char text[33];
        EXPECT_EQ(apc_generate_id(CLIENT.data(), BSSID.data(), text, sizeof text), 0);
        return text;
    }

    static std::string id_with_offset(const std::string &offset) {
        write_file(OFFSET_FILE, offset);
        return id();
    }

    static lines lines_of_id(int level) {
        log_capture log(level);
        (void)id();
        return log.lines();
    }
};

TEST_F(ApcId, HoldsTheEndsOfBothAddressesAndTheTime) {
    test_time = 1700004217;
    EXPECT_EQ(id(), "3C4D5E-A1B2C3-004217");
}

TEST_F(ApcId, HoldsSixDigitsOfTheTime) {
    for (const auto &[time, digits] : std::vector<std::pair<time_t, std::string>>{
             {1, "000001"}, {999999, "999999"}, {1000000, "000000"}, {1700999999, "999999"}, {2147483647, "483647"}}) {
        test_time = time;
        EXPECT_EQ(id(), "3C4D5E-A1B2C3-" + digits);
    }
}

TEST_F(ApcId, HoldsAddressesInUpperCaseWithTwoDigitsAByte) {
    const byte_string client = {1, 2, 3, 0x0A, 0xFF, 0};
    const byte_string bssid = {1, 2, 3, 0xAB, 9, 0xCD};
    char text[33];
    EXPECT_EQ(apc_generate_id(client.data(), bssid.data(), text, sizeof text), 0);
    EXPECT_STREQ(text, "0AFF00-AB09CD-000000");
}

TEST_F(ApcId, AddsTheOffsetOfTheFile) {
    EXPECT_EQ(id_with_offset("4217"), "3C4D5E-A1B2C3-004217");
    EXPECT_EQ(id_with_offset("4217\n"), "3C4D5E-A1B2C3-004217");
    EXPECT_EQ(id_with_offset("  +12 34"), "3C4D5E-A1B2C3-000012");
    EXPECT_EQ(id_with_offset("-1"), "3C4D5E-A1B2C3-999999");
    EXPECT_EQ(id_with_offset("0x10"), "3C4D5E-A1B2C3-000000");
    EXPECT_EQ(id_with_offset("soon"), "3C4D5E-A1B2C3-000000");
    EXPECT_EQ(id_with_offset(""), "3C4D5E-A1B2C3-000000");
}

TEST_F(ApcId, ReadsAtMost15BytesOfTheFile) {
    EXPECT_EQ(id_with_offset("0000000000001234567"), "3C4D5E-A1B2C3-000123");
}

TEST_F(ApcId, MayHaveANegativeRemainder) {
    EXPECT_EQ(id_with_offset("-1700001234"), "3C4D5E-A1B2C3--001234");
    EXPECT_EQ(id_with_offset("-1700000001"), "3C4D5E-A1B2C3--000001");
}

TEST_F(ApcId, SaturatesTheOffsetTo32Bits) {
    test_time = 1;
    EXPECT_EQ(id_with_offset("-9999999999"), "3C4D5E-A1B2C3--483647");  // -2147483648 + 1
    test_time = -1;
    EXPECT_EQ(id_with_offset("4294967296"), "3C4D5E-A1B2C3-483646");  // 2147483647 - 1
}

TEST_F(ApcId, WrapsTheSumAt32Bits) {
    test_time = 1;
    EXPECT_EQ(id_with_offset("2147483647"), "3C4D5E-A1B2C3--483648");
    test_time = 2147483647;
    EXPECT_EQ(id_with_offset("2147483647"), "3C4D5E-A1B2C3--000002");
}

TEST_F(ApcId, IsLoggedWithItsSourcesAtLevel6) {
    write_file(OFFSET_FILE, "12");
    EXPECT_EQ(lines_of_id(6), (lines{generator_says("Received clmac: 00:1A:2B:3C:4D:5E, bssid:  02:11:22:A1:B2:C3"),
                                     generator_says("Read timestamp 12 from file"),
                                     generator_says("Generated id: 3C4D5E-A1B2C3-000012")}));
    EXPECT_EQ(lines_of_id(5), lines());
}

TEST_F(ApcId, FormsWithoutTheFile) {
    EXPECT_EQ(lines_of_id(6), (lines{generator_says("Received clmac: 00:1A:2B:3C:4D:5E, bssid:  02:11:22:A1:B2:C3"),
                                     generator_says("Open timestamp file failed"),
                                     generator_says("Generated id: 3C4D5E-A1B2C3-000000")}));
    EXPECT_EQ(lines_of_id(5), lines());
}

TEST_F(ApcId, FormsWhenTheFileCannotBeOpened) {
    write_file(OFFSET_FILE, "12");
    fail_nth_call("open", 1, EACCES);
    EXPECT_EQ(id(), "3C4D5E-A1B2C3-000000");
    EXPECT_EQ(faults_fired("open"), 1);
}

TEST_F(ApcId, FormsWhenTheFileCannotBeRead) {
    write_file(OFFSET_FILE, "12");
    fail_every_call("read", EIO);
    EXPECT_EQ(lines_of_id(6),
              (lines{generator_says("Received clmac: 00:1A:2B:3C:4D:5E, bssid:  02:11:22:A1:B2:C3"),
                     generator_says("Read timestamp failed"), generator_says("Generated id: 3C4D5E-A1B2C3-000000")}));
    EXPECT_EQ(faults_fired("read"), 1);
}

TEST_F(ApcId, AFileThatCannotBeReadIsNotLoggedBelowLevel6) {
    write_file(OFFSET_FILE, "12");
    fail_every_call("read", EIO);
    EXPECT_EQ(lines_of_id(5), lines());
    EXPECT_EQ(faults_fired("read"), 1);
}

TEST_F(ApcId, DoesNotWaitForTheWriterOfAFifo) {
    unlink(OFFSET_FILE);
    ASSERT_EQ(mkfifo(OFFSET_FILE, 0600), 0);
    EXPECT_EQ(id(), "3C4D5E-A1B2C3-000000");
    const int writer = open(OFFSET_FILE, O_RDWR | O_CLOEXEC);
    EXPECT_EQ(lines_of_id(6).at(1), generator_says("Read timestamp failed"));
    EXPECT_EQ(write(writer, "12", 2), 2);
    EXPECT_EQ(id(), "3C4D5E-A1B2C3-000012");
    close(writer);
    unlink(OFFSET_FILE);
}

TEST_F(ApcId, ReadsAnEmptyFileAsAnEmptyText) {
    write_file(OFFSET_FILE, "");
    const lines all = lines_of_id(6);
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[1], generator_says("Read timestamp  from file"));
}

TEST_F(ApcId, ClosesTheFile) {
    write_file(OFFSET_FILE, "12");
    const int before = dup(0);
    close(before);
    (void)id();
    fail_every_call("read", EIO);
    (void)id();
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(ApcId, IsCutToItsBuffer) {
    char text[24];
    for (const auto &[length, expected] : std::vector<std::pair<int, std::string>>{
             {1, ""}, {2, "3"}, {14, "3C4D5E-A1B2C3"}, {20, "3C4D5E-A1B2C3-00000"}, {21, "3C4D5E-A1B2C3-000000"}}) {
        std::memset(text, '#', sizeof text);
        EXPECT_EQ(apc_generate_id(CLIENT.data(), BSSID.data(), text, length), 0);
        EXPECT_STREQ(text, expected.c_str());
        EXPECT_EQ(text[length], '#') << length;
    }
}

TEST_F(ApcId, IsNotWrittenWithoutABuffer) {
    for (const int length : {0, -1, -2147483647 - 1}) {
        char text = '#';
        log_capture log(6);
        EXPECT_EQ(apc_generate_id(CLIENT.data(), BSSID.data(), &text, length), 0);
        EXPECT_EQ(text, '#');
        EXPECT_EQ(log.lines(), (lines{generator_says("Received clmac: 00:1A:2B:3C:4D:5E, bssid:  02:11:22:A1:B2:C3"),
                                      generator_says("Open timestamp file failed")}));
    }
}

}  // namespace
