// The map from VAP numbers to profiles, and its file.
#include "vap_profile_map.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "event_payload.h"
#include "files.h"
#include "log_capture.h"
#include "wl_log.h"

namespace {

using lines = std::vector<std::string>;

constexpr char MAP_FILE[] = "/tmp/.wl.vap_to_profile";

/// An event of this name; `value` of `value_len` bytes or none.
wl_evt_info event_of(char *name, uint32_t profile_id, uint8_t *value, uint16_t value_len = 4) {
    wl_evt_info info{};
    info.name = name;
    info.name_len = static_cast<int16_t>(name == nullptr ? 0 : std::strlen(name));
    info.profile_id = profile_id;
    info.subinfo_value = value;
    info.subinfo_value_len = value == nullptr ? 0 : value_len;
    return info;
}

void update(const std::string &name, uint32_t profile_id, uint32_t profile_data) {
    std::string text = name;
    byte_string value = big_endian_bytes(profile_data, 4);
    const wl_evt_info info = event_of(text.data(), profile_id, value.data());
    bw_update_vap_profile_id(VRE_BW_VAP_PROFILE_ID, &info);
}

/// The file that holds exactly one entry.
std::string file_with(size_t number, const byte_string &entry) {
    std::string bytes(128, '\0');
    std::copy(entry.begin(), entry.end(), bytes.begin() + static_cast<long>(8 * number));
    return bytes;
}

TEST(VapProfileMap, StoresAnEntryAndWritesSixteenOfThemBigEndian) {
    update("ath3", 0x01020304, 0x0A0B0C0D);
    EXPECT_EQ(file_text(MAP_FILE), file_with(3, {1, 2, 3, 4, 0x0A, 0x0B, 0x0C, 0x0D}));
    EXPECT_EQ(lookup_vap_profile_id("ath3"), 0x01020304U);
}

TEST(VapProfileMap, KeepsTheEntriesWrittenBefore) {
    update("ath0", 7, 1);
    update("ath15", 9, 0);
    std::string expected = file_with(0, {0, 0, 0, 7, 0, 0, 0, 1});
    expected[15 * 8 + 3] = 9;
    EXPECT_EQ(file_text(MAP_FILE), expected);
}

TEST(VapProfileMap, EnabledVapIsFoundByBothLookups) {
    update("ath0", 7, 1);
    EXPECT_EQ(bw_lookup_vap_profile_id("ath0"), 7U);
    EXPECT_EQ(lookup_vap_profile_id("ath0"), 7U);
}

TEST(VapProfileMap, VapThatIsNotEnabledHasAProfileButNoBandwidthControl) {
    for (const uint32_t data : {0U, 2U, 0x01000000U}) {
        update("ath0", 7, data);
        EXPECT_EQ(bw_lookup_vap_profile_id("ath0"), 0U);
        EXPECT_EQ(lookup_vap_profile_id("ath0"), 7U);
    }
}

TEST(VapProfileMap, LogsTheEntryAndThatControlIsEnabled) {
    log_capture log;
    debug = 2;
    update("ath12", 7, 1);
    EXPECT_EQ(log.lines(),
              (lines{"bw_update_vap_profile_id: VAP ath12 : profile id 7 profile data 1",
                     "bw_update_vap_profile_id: WL.bw: Enabling bandwidth control feature for profile ID 7."}));
}

TEST(VapProfileMap, LogsLargeNumbersSigned) {
    log_capture log;
    update("ath1", 0xFFFFFFFF, 0x80000000);
    EXPECT_EQ(log.lines(), (lines{"bw_update_vap_profile_id: VAP ath1 : profile id -1 profile data -2147483648"}));
}

TEST(VapProfileMap, SaysNothingOfAnEntryBelowLevel2) {
    log_capture log;
    debug = 1;
    update("ath12", 7, 1);
    update("ath", 7, 1);
    update("ath17", 7, 1);
    EXPECT_EQ(log.lines(), lines{});
}

TEST(VapProfileMap, AbsentValueIsZero) {
    log_capture log;
    char name[] = "ath2";
    const wl_evt_info info = event_of(name, 5, nullptr);
    bw_update_vap_profile_id(VRE_BW_VAP_PROFILE_ID, &info);
    EXPECT_EQ(log.lines(), (lines{"bw_update_vap_profile_id: VAP ath2 : profile id 5 profile data 0"}));
}

TEST(VapProfileMap, MissingBytesOfAShortValueAreZero) {
    char name[] = "ath2";
    uint8_t value[] = {0, 1, 0xEE, 0xEE};
    const wl_evt_info info = event_of(name, 5, value, 2);
    bw_update_vap_profile_id(VRE_BW_VAP_PROFILE_ID, &info);
    EXPECT_EQ(file_text(MAP_FILE), file_with(2, {0, 0, 0, 5, 0, 1, 0, 0}));
}

TEST(VapProfileMap, OnlyFourBytesOfALongValueCount) {
    char name[] = "ath2";
    uint8_t value[] = {0, 0, 0, 1, 0xEE, 0xEE};
    const wl_evt_info info = event_of(name, 5, value, sizeof value);
    bw_update_vap_profile_id(VRE_BW_VAP_PROFILE_ID, &info);
    EXPECT_EQ(file_text(MAP_FILE), file_with(2, {0, 0, 0, 5, 0, 0, 0, 1}));
}

TEST(VapProfileMap, RefusesANameWithoutDigits) {
    log_capture log;
    debug = 2;
    update("wifi", 7, 1);
    update("", 7, 1);
    const wl_evt_info info = event_of(nullptr, 7, nullptr);
    bw_update_vap_profile_id(VRE_BW_VAP_PROFILE_ID, &info);
    EXPECT_EQ(log.lines(), lines(3, "bw_update_vap_profile_id: Invalid VAP name"));
    EXPECT_NE(access(MAP_FILE, F_OK), 0);
}

TEST(VapProfileMap, SearchesOnlyTheNamesLength) {
    log_capture log;
    char name[] = "ath7";
    uint8_t value[4] = {};
    wl_evt_info info = event_of(name, 7, value);
    info.name_len = 3;
    bw_update_vap_profile_id(VRE_BW_VAP_PROFILE_ID, &info);
    EXPECT_EQ(log.lines(), lines{"bw_update_vap_profile_id: Invalid VAP name"});
}

TEST(VapProfileMap, RefusesNumbersAboveSixteen) {
    log_capture log;
    debug = 2;
    update("ath17", 7, 1);
    update("ath4294967296", 7, 1);
    update("a99999999999999", 7, 1);
    EXPECT_EQ(log.lines(), lines(3, "bw_update_vap_profile_id: Invalid vap_index."));
    EXPECT_NE(access(MAP_FILE, F_OK), 0);
}

TEST(VapProfileMap, TakesTheFirstNumberOfAName) {
    update("wifi1ath3", 7, 1);
    update("ath-2.100", 8, 1);
    EXPECT_EQ(lookup_vap_profile_id("ath1"), 7U);
    EXPECT_EQ(lookup_vap_profile_id("ath2"), 8U);
}

TEST(VapProfileMap, Number16IsServedButNotSaved) {
    log_capture log;
    update("ath16", 7, 1);
    EXPECT_EQ(log.lines().at(0), "bw_update_vap_profile_id: VAP ath16 : profile id 7 profile data 1");
    EXPECT_EQ(bw_lookup_vap_profile_id("ath16"), 7U);
    EXPECT_EQ(file_text(MAP_FILE), std::string(128, '\0'));
}

TEST(VapProfileMap, LookupOfANameOutsideTheMapIsZero) {
    for (int i = 0; i <= SAVED_VAP_PROFILES; i++)
        update("ath" + std::to_string(i), 7, 1);
    for (const char *name : {"ath17", "ath99999999999999999999", "ath", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(lookup_vap_profile_id(name), 0U);
        EXPECT_EQ(bw_lookup_vap_profile_id(name), 0U);
    }
}

TEST(VapProfileMap, LookupReadsSixteenCharactersOfANameWithoutNul) {
    update("ath1", 7, 1);
    update("ath12", 8, 1);
    const std::vector<char> name = {'a', 't', 'h', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', '1'};
    EXPECT_EQ(lookup_vap_profile_id(name.data()), 7U);
    EXPECT_EQ(lookup_vap_profile_id("athxxxxxxxxxxxx12"), 7U);
    EXPECT_EQ(lookup_vap_profile_id("athxxxxxxxxxxxxx12"), 0U);
}

TEST(VapProfileMap, ReplacesALongerFile) {
    write_file(MAP_FILE, std::string(500, 'x'));
    update("ath0", 7, 1);
    EXPECT_EQ(file_text(MAP_FILE).size(), 128U);
}

TEST(VapProfileMap, EndsTheDaemonWhenItsFileCannotBeCreated) {
    ASSERT_EQ(mkdir(MAP_FILE, 0755), 0);
    EXPECT_EXIT(update("ath0", 7, 1), testing::ExitedWithCode(1),
                "^[^\n]* bw_update_vap_profile_id: FATAL: Could not create file /tmp/\\.wl\\.vap_to_profile\n$");
}

TEST(VapProfileMap, StoresTheEntryBeforeItOpensTheFile) {
    ASSERT_EQ(mkdir(MAP_FILE, 0755), 0);
    EXPECT_EXIT(
        {
            std::atexit([] { std::fprintf(stderr, "stored %u\n", lookup_vap_profile_id("ath0")); });
            update("ath0", 7, 1);
        },
        testing::ExitedWithCode(1), "stored 7\n$");
}

TEST(VapProfileMap, EndsTheDaemonWhenItsFileCannotBeWritten) {
    ASSERT_EQ(symlink("/dev/full", MAP_FILE), 0);
    // The entry is told of once the file is open, before it is written.
    EXPECT_EXIT(update("ath0", 7, 1), testing::ExitedWithCode(1),
                "^[^\n]* bw_update_vap_profile_id: VAP ath0 : profile id 7 profile data 1\n"
                "[^\n]* bw_update_vap_profile_id: WL\\.bw: Enabling bandwidth control feature for profile ID 7\\.\n"
                "[^\n]* bw_update_vap_profile_id: FATAL: Could not create file /tmp/\\.wl\\.vap_to_profile\n$");
}

TEST(VapProfileMap, IsAsLastWrittenAfterARestart) {
    std::string saved = file_with(0, {0, 0, 0, 7, 0, 0, 0, 1});
    saved[15 * 8] = '\x80';
    write_file(MAP_FILE, saved);
    restore_profile_vap_cache();
    EXPECT_EQ(bw_lookup_vap_profile_id("ath0"), 7U);
    EXPECT_EQ(lookup_vap_profile_id("ath15"), 0x80000000U);
    EXPECT_EQ(lookup_vap_profile_id("ath16"), 0U);
}

TEST(VapProfileMap, RestoresOnlyWholeEntriesOfAShortFile) {
    log_capture log;
    write_file(MAP_FILE, file_with(0, {0, 0, 0, 7, 0, 0, 0, 1}).substr(0, 8) + std::string(7, '\x11'));
    restore_profile_vap_cache();
    EXPECT_EQ(lookup_vap_profile_id("ath0"), 7U);
    EXPECT_EQ(lookup_vap_profile_id("ath1"), 0U);
    EXPECT_EQ(log.lines(), lines{});
}

TEST(VapProfileMap, RestoresSixteenEntriesOfALongFile) {
    write_file(MAP_FILE, std::string(136, '\x01'));
    restore_profile_vap_cache();
    EXPECT_EQ(lookup_vap_profile_id("ath15"), 0x01010101U);
    EXPECT_EQ(lookup_vap_profile_id("ath16"), 0U);
}

TEST(VapProfileMap, MissingFileRestoresNothingAndSaysNothing) {
    log_capture log;
    restore_profile_vap_cache();
    EXPECT_EQ(lookup_vap_profile_id("ath0"), 0U);
    EXPECT_EQ(log.lines(), lines{});
}

TEST(VapProfileMap, FileThatCannotBeReadRestoresNothingAndSaysNothing) {
    log_capture log;
    ASSERT_EQ(mkdir(MAP_FILE, 0755), 0);  // can be opened, but not read
    restore_profile_vap_cache();
    ASSERT_EQ(rmdir(MAP_FILE), 0);
    ASSERT_EQ(symlink(MAP_FILE, MAP_FILE), 0);  // cannot even be opened
    restore_profile_vap_cache();
    for (const profile_vap_info &entry : profile_id_for_vap) {
        EXPECT_EQ(entry.profile_id, 0U);
        EXPECT_EQ(entry.profile_data, 0U);
    }
    EXPECT_EQ(log.lines(), lines{});
}

TEST(VapProfileMap, HandlerDecodesTheMessage) {
    received_payload payload(
        event_payload().header({2, 0, 0, 0, 0, 0}, 42).text(WL_VAP_NAME, "ath5").item(WL_SUBINFO_VALUE, {0, 0, 0, 1}));
    handle_bw_vap_profile_id(VRE_BW_VAP_PROFILE_ID, payload.data(), payload.length());
    EXPECT_EQ(bw_lookup_vap_profile_id("ath5"), 42U);
}

TEST(VapProfileMap, HandlerTakesANameThatEndsWithTheMessage) {
    received_payload payload(event_payload()
                                 .header({2, 0, 0, 0, 0, 0}, 42)
                                 .item(WL_SUBINFO_VALUE, {0, 0, 0, 1})
                                 .item(WL_VAP_NAME, text_bytes("ath5")));
    handle_bw_vap_profile_id(VRE_BW_VAP_PROFILE_ID, payload.data(), payload.length());
    EXPECT_EQ(bw_lookup_vap_profile_id("ath5"), 42U);
}

TEST(VapProfileMap, HandlerRefusesAMessageWithoutAName) {
    log_capture log;
    debug = 2;
    received_payload payload(byte_string{});
    handle_bw_vap_profile_id(VRE_BW_VAP_PROFILE_ID, payload.data(), payload.length());
    EXPECT_EQ(log.lines(), lines{"bw_update_vap_profile_id: Invalid VAP name"});
}

TEST(GetFirstNumInStr, FindsTheFirstDigitWithinTheLimit) {
    const char text[] = "ab12";
    EXPECT_EQ(get_first_num_in_str(text, 16), text + 2);
    EXPECT_EQ(get_first_num_in_str(text, 3), text + 2);
    EXPECT_EQ(get_first_num_in_str(text, 2), nullptr);
    EXPECT_EQ(get_first_num_in_str(text, 0), nullptr);
}

TEST(GetFirstNumInStr, StopsAtTheNulAndTakesNull) {
    EXPECT_EQ(get_first_num_in_str("ab\0001", 16), nullptr);
    EXPECT_EQ(get_first_num_in_str(nullptr, 16), nullptr);
}

}  // namespace
