// The transaction log of bandwidth control: its bytes, rollback, rewrite and replay.
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bw_fresh_start.h"
#include "bw_log.h"
#include "debug_log.h"
#include "fault.h"
#include "files.h"
#include "log_capture.h"
#include "wl_bw.h"
#include "wl_bw_internal.h"

using bw_log::CLEAR;
using bw_log::fields;
using bw_log::record;
using bw_log::SET;

namespace {

const bw_log::mac_address MAC = {0x00, 0x11, 0x22, 0x33, 0x44, 0x5F};
const std::string GAP(45, '\0');

int append(const fields &of) {
    const bw_rule_info request = bw_log::request_of(of);
    const queue_lock lock;
    return bw_write_txn(&request);
}

std::string log_file() {
    return file_text(bw_log::FILE_NAME);
}

/// The n-th of many distinct stations.
bw_log::mac_address mac_number(unsigned n) {
    return {2, 0, 0, 0, uint8_t(n >> 8), uint8_t(n)};
}

fields station_set(unsigned n, uint32_t profile = 3) {
    return {.mac = mac_number(n),
            .pri = 1,
            .up = int32_t(100 + n),
            .down = int32_t(200 + n),
            .profile = profile,
            .classid = n + 2,
            .interface = "ath0"};
}

fields station_clear(unsigned n, uint32_t profile = 3) {
    fields of = station_set(n, profile);
    of.command = CLEAR;
    return of;
}

fields bss_set(uint32_t profile, uint8_t pri, int32_t up, int32_t down) {
    return {.pri = pri, .up = up, .down = down, .profile = profile, .classid = 1, .flags = bw_log::BSS};
}

class BwCache : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(bw_init(), 1);
    }
};

}  // namespace

// --- append

TEST_F(BwCache, ARecordIsFortyFiveBytesOfBigEndianFields) {
    EXPECT_EQ(append({.mac = MAC,
                      .pri = 2,
                      .command = SET,
                      .up = 0x01020304,
                      .down = -1,
                      .profile = 0x11223344,
                      .classid = 0x1F,
                      .interface = "ath12",
                      .flags = bw_log::TRANSITION | bw_log::TO_APPLIED}),
              45);
    static const unsigned char expected[45] = {
        0x00, 0x11, 0x22, 0x33, 0x44, 0x5F,           // mac
        0x02,                                         // priority
        0x00, 0x00, 0x00, 0x18,                       // command
        0x01, 0x02, 0x03, 0x04,                       // up
        0xFF, 0xFF, 0xFF, 0xFF,                       // down
        0x11, 0x22, 0x33, 0x44,                       // profile
        0x00, 0x00, 0x00, 0x1F,                       // class id
        'a',  't',  'h',  '1',  '2',  0,    0, 0, 0,  // interface
        0,    0,    0,    0,    0,    0,    0, 0,     //
        0x60,                                         // flags
    };
    EXPECT_EQ(log_file(), std::string(reinterpret_cast<const char *>(expected), sizeof expected));
}

TEST_F(BwCache, TheFlagOfABssRuleIsTheFirstBit) {
    bw_rule_info request{};
    request.e = VRE_BW_CLR;
    request.bss_rule = 1;
    bw_write_txn(&request);
    const std::string bytes = log_file();
    ASSERT_EQ(bytes.size(), 45u);
    EXPECT_EQ(uint8_t(bytes[10]), 25);
    EXPECT_EQ(uint8_t(bytes[44]), 0x80);
}

TEST_F(BwCache, RecordsFollowEachOther) {
    append(station_set(1));
    append(station_clear(1));
    EXPECT_EQ(log_file(), record(station_set(1)) + record(station_clear(1)));
}

TEST_F(BwCache, AStationsSetIsLogged) {
    log_capture log;
    append({.mac = MAC, .pri = 7, .up = -1, .down = 4096, .profile = 12, .classid = 0xAB, .interface = "ath3"});
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "bw_write_txn: [Pri 7] [ProfId 12] [Evt Set] 00:11:22:33:44:5F\t(up = -1,down = 4096)\t"
                               "(classid = 0xAB) (STA) (ath3)",
                               "bw_write_txn: TXN written (45 bytes)"}));
}

TEST_F(BwCache, ABssClearIsLogged) {
    log_capture log;
    append({.command = CLEAR, .up = 1, .down = 2, .profile = 9, .classid = 1, .flags = bw_log::BSS});
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "bw_write_txn: [Pri 0] [ProfId 9] [Evt Clr] 00:00:00:00:00:00\t(up = 1,down = 2)\t"
                               "(classid = 0x1) (BSS) ()",
                               "bw_write_txn: TXN written (45 bytes)"}));
}

TEST_F(BwCache, AnInterfaceThatFillsItsFieldIsLoggedWithoutItsNeighbour) {
    log_capture log;
    append({.interface = "abcdefghijklmnopq", .flags = 0xFF});
    EXPECT_NE(log.lines().at(0).find(" (BSS) (abcdefghijklmnopq)"), std::string::npos);
}

TEST_F(BwCache, AFailedWriteIsToldAndNothingIsWritten) {
    fail_nth_call("write", 1, EIO);
    log_capture log;
    EXPECT_EQ(append(station_set(1)), -1);
    EXPECT_EQ(faults_fired("write"), 1);
    EXPECT_EQ(log.lines().back(), "bw_write_txn: TXN written (-1 bytes)");
    EXPECT_EQ(log_file(), "");
}

TEST_F(BwCache, NothingIsWrittenDuringAReplay) {
    restoring_cache = 1;
    log_capture log;
    EXPECT_EQ(append(station_clear(1)), 0);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(log_file(), "");
    EXPECT_EQ(g_num_clear_rules, 0);
}

// A full disk takes part of a record; so does a file at its size limit.
class BwCacheFullDisk : public BwCache {
protected:
    void SetUp() override {
        BwCache::SetUp();
        std::signal(SIGXFSZ, SIG_IGN);
    }

    void TearDown() override {
        set_room(RLIM_INFINITY);
    }

    static void set_room(rlim_t bytes) {
        rlimit limit{};
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
        limit.rlim_cur = bytes;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
};

TEST_F(BwCacheFullDisk, NoPartOfARecordThatDoesNotFitStays) {
    append(station_set(1));
    set_room(45 + 20);
    log_capture log;
    EXPECT_EQ(append(station_set(2)), 20);
    EXPECT_EQ(log.lines().back(), "bw_write_txn: TXN written (20 bytes)");
    EXPECT_EQ(log_file(), record(station_set(1)));
}

TEST_F(BwCacheFullDisk, TheNextRecordThatFitsIsReadable) {
    append(station_set(1));
    set_room(45 + 20);
    append(station_set(2));
    set_room(RLIM_INFINITY);
    EXPECT_EQ(append(station_set(3)), 45);
    EXPECT_EQ(log_file(), record(station_set(1)) + record(station_set(3)));
}

TEST_F(BwCacheFullDisk, ARewriteThatDoesNotFitLeavesWholeRecords) {
    bw_log::restart_with(record(bss_set(3, 1, 10, 20)) + record(station_set(1)) + record(station_set(2)));
    set_room(45 + 44);
    rewrite_all_txn();
    EXPECT_EQ(log_file(), record(bss_set(3, 1, 10, 20)));
}

TEST_F(BwCacheFullDisk, NoRoomAtAllFails) {
    set_room(0);
    EXPECT_EQ(append(station_set(1)), -1);
    EXPECT_EQ(log_file(), "");
}

// --- ten clears

TEST_F(BwCache, NineClearsAreOnlyAppended) {
    std::string expected = record(station_set(0));
    append(station_set(0));
    log_capture log(2);
    for (unsigned i = 1; i <= 9; i++) {
        append(station_clear(i));
        expected += record(station_clear(i));
    }
    EXPECT_EQ(log_file(), expected);
    EXPECT_EQ(g_num_clear_rules, 9);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BwCache, TheTenthClearFollowsTheRewrittenState) {
    bw_log::restart_with(record(bss_set(3, 1, 10, 20)) + record(station_set(5)));
    for (unsigned i = 1; i <= 9; i++)
        append(station_clear(i));
    log_capture log;
    append(station_clear(10));
    EXPECT_EQ(log_file(), record(bss_set(3, 1, 10, 20)) + record(station_set(5)) + record(station_clear(10)));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "bw_write_txn: 10 remove rules. Reinitializing backup", "rewrite_all_txn: Flushing bw_cache",
                  "rewrite_all_txn: ++ (profile 3) #1 [up = 10, down = 20] bss",
                  "rewrite_all_txn: ++ (profile 3) #1 [up = 105, down = 205] 02:00:00:00:00:05 clasid = 7",
                  "bw_write_txn: [Pri 1] [ProfId 3] [Evt Clr] 02:00:00:00:00:0A\t(up = 110,down = 210)\t"
                  "(classid = 0xC) (STA) (ath0)",
                  "bw_write_txn: TXN written (45 bytes)"}));
}

TEST_F(BwCache, TheCountBeginsAgainAfterARewrite) {
    for (unsigned i = 1; i <= 10; i++)
        append(station_clear(i));
    EXPECT_EQ(g_num_clear_rules, 0);
    log_capture log(2);
    for (unsigned i = 11; i <= 19; i++)
        append(station_clear(i));
    EXPECT_TRUE(log.lines().empty());
    append(station_clear(20));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"bw_write_txn: 10 remove rules. Reinitializing backup"}));
    EXPECT_EQ(log_file(), record(station_clear(20)));
}

TEST_F(BwCache, SetsDoNotCount) {
    for (unsigned i = 0; i < 20; i++)
        append(station_set(i));
    EXPECT_EQ(g_num_clear_rules, 0);
    EXPECT_EQ(log_file().size(), 20u * 45);
}

TEST_F(BwCache, ARollbackDoesNotLowerTheCount) {
    append(station_clear(1));
    bw_rollback_last_txn();
    EXPECT_EQ(g_num_clear_rules, 1);
}

TEST_F(BwCache, TheTenthClearOfAClosedCacheResetsNothing) {
    close(bw_cache_fd);
    bw_cache_fd = -1;
    log_capture log(2);
    for (unsigned i = 1; i <= 11; i++)
        EXPECT_EQ(append(station_clear(i)), -1);
    EXPECT_EQ(g_num_clear_rules, 11);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"bw_write_txn: 10 remove rules. Reinitializing backup"}));
}

// --- rewrite

TEST_F(BwCache, ARewriteHoldsEachProfileAndItsStations) {
    // Profiles in the order of their slots, stations in the order of theirs: the sum of the address's bytes modulo 23.
    const std::string profile_25 =  // 25 modulo 23 is 2
        record(bss_set(25, 0, 0, 0)) + record(station_set(21, 25)) + record(station_set(0, 25));
    const std::string profile_3 = record(bss_set(3, 4, -1, 4096)) + record(station_set(1)) + record(station_set(2));
    bw_log::restart_with(record(station_set(2)) + record(station_set(1)) + record(bss_set(3, 4, -1, 4096)) +
                         record(station_set(0, 25)) + record(station_set(21, 25)));
    append(station_set(9));
    rewrite_all_txn();
    EXPECT_EQ(log_file(), profile_25 + profile_3);
}

TEST_F(BwCache, ARewriteForgetsWhatIsAppliedAndStagedAndKeepsAllBytesOfTheInterface) {
    fields applied = station_set(1);
    applied.flags = bw_log::TRANSITION | bw_log::TO_APPLIED | 0x1F;
    applied.interface = std::string("ath0\0rest of field", 17);
    bw_log::restart_with(record(applied));
    rewrite_all_txn();
    fields expected = applied;
    expected.flags = 0;
    EXPECT_EQ(log_file(), record(bss_set(3, 0, 0, 0)) + record(expected));
}

TEST_F(BwCache, ARewriteWritesNegativeAndLargeValues) {
    fields of = station_set(1, 0xFFFFFFFF);
    of.pri = 255;
    of.up = INT_MIN;
    of.down = INT_MAX;
    bw_log::restart_with(record(of));
    log_capture log;
    rewrite_all_txn();
    EXPECT_EQ(log_file(), record(bss_set(0xFFFFFFFF, 0, 0, 0)) + record(of));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"rewrite_all_txn: Flushing bw_cache",
                                        "rewrite_all_txn: ++ (profile -1) #0 [up = 0, down = 0] bss",
                                        "rewrite_all_txn: ++ (profile -1) #255 [up = -2147483648, down = 2147483647] "
                                        "02:00:00:00:00:01 clasid = 3"}));
}

TEST_F(BwCache, OnlyTheBssLinesOfARewriteAreCritical) {
    bw_log::restart_with(record(station_set(1)));
    log_capture log(6);
    rewrite_all_txn();
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"rewrite_all_txn: ++ (profile 3) #0 [up = 0, down = 0] bss"}));
}

TEST_F(BwCache, ARewriteOfAClosedCacheDoesNothing) {
    bw_log::restart_with(record(station_set(1)));
    close(bw_cache_fd);
    bw_cache_fd = -1;
    g_num_clear_rules = 10;
    log_capture log;
    rewrite_all_txn();
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(g_num_clear_rules, 10);
    EXPECT_EQ(log_file(), record(station_set(1)));
}

TEST_F(BwCache, ARewriteDoesNotMakeTheFileAnew) {
    unlink(bw_log::FILE_NAME.c_str());
    g_num_clear_rules = 10;
    log_capture log;
    rewrite_all_txn();
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"rewrite_all_txn: Could not open file"}));
    EXPECT_EQ(bw_cache_fd, -1);
    EXPECT_EQ(g_num_clear_rules, 0);
    EXPECT_NE(access(bw_log::FILE_NAME.c_str(), F_OK), 0);
}

TEST_F(BwCache, AfterAFailedRewriteEveryWriteFails) {
    append(station_set(1));
    fail_nth_call("open", 1, EMFILE);
    rewrite_all_txn();
    EXPECT_EQ(faults_fired("open"), 1);
    EXPECT_EQ(append(station_set(2)), -1);
    bw_rollback_last_txn();
    rewrite_all_txn();
    EXPECT_EQ(log_file(), record(station_set(1)));
}

TEST_F(BwCache, ARewriteClosesTheOldDescriptorAndAppendsNoMore) {
    const int before = bw_cache_fd;
    EXPECT_EQ(fcntl(before, F_GETFL) & (O_ACCMODE | O_APPEND), O_WRONLY | O_APPEND);
    rewrite_all_txn();
    EXPECT_EQ(bw_cache_fd, before);  // the lowest free number
    EXPECT_EQ(fcntl(bw_cache_fd, F_GETFL) & (O_ACCMODE | O_APPEND), O_WRONLY);
}

TEST_F(BwCache, NoScriptInheritsTheDescriptor) {
    EXPECT_EQ(fcntl(bw_cache_fd, F_GETFD), FD_CLOEXEC);
    rewrite_all_txn();
    EXPECT_EQ(fcntl(bw_cache_fd, F_GETFD), FD_CLOEXEC);
}

// --- rollback

TEST_F(BwCache, ARollbackTakesTheLastRecordOut) {
    append(station_set(1));
    append(station_set(2));
    bw_rollback_last_txn();
    EXPECT_EQ(log_file(), record(station_set(1)));
}

TEST_F(BwCache, TheRecordAfterARollbackTakesThePlaceOfTheOneTakenOut) {
    append(station_set(1));
    append(station_set(2));
    bw_rollback_last_txn();
    append(station_set(3));
    EXPECT_EQ(log_file(), record(station_set(1)) + record(station_set(3)));
}

TEST_F(BwCache, ARollbackTakesWhateverRecordIsLast) {
    append(station_set(1));
    append(station_clear(2));  // queued meanwhile by the main thread
    bw_rollback_last_txn();
    EXPECT_EQ(log_file(), record(station_set(1)));
}

TEST_F(BwCache, TwoRollbacksTakeOneRecord) {
    for (unsigned i = 1; i <= 3; i++)
        append(station_set(i));
    bw_rollback_last_txn();
    bw_rollback_last_txn();
    EXPECT_EQ(log_file(), record(station_set(1)) + record(station_set(2)));
}

TEST_F(BwCache, AfterARewriteARollbackLeavesAGapBeforeTheNextRecord) {
    bw_log::restart_with(record(station_set(1)));
    rewrite_all_txn();
    append(station_set(2));
    bw_rollback_last_txn();
    EXPECT_EQ(log_file(), record(bss_set(3, 0, 0, 0)) + record(station_set(1)));
    append(station_set(3));
    EXPECT_EQ(log_file(), record(bss_set(3, 0, 0, 0)) + record(station_set(1)) + GAP + record(station_set(3)));
}

TEST(BwCacheStart, ARollbackBeforeTheFirstWriteChangesNothing) {
    write_file(bw_log::FILE_NAME, record(station_set(1)) + record(station_set(2)));
    ASSERT_EQ(bw_init(), 1);
    bw_rollback_last_txn();
    EXPECT_EQ(log_file(), record(station_set(1)) + record(station_set(2)));
}

// --- replay

TEST(BwCacheReplay, WithoutAFileThereAreNoRules) {
    log_capture log;
    bw_log::restart_with("");
    unlink(bw_log::FILE_NAME.c_str());
    restore_bw_cache();
    EXPECT_EQ(bw_log::rules_in_words(), "");
    EXPECT_EQ(restoring_cache, 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST(BwCacheReplay, ASetBringsTheRuleAndTheClassIdOfItsRecordBack) {
    fields of = station_set(1);
    of.classid = 0x1F;
    bw_log::restart_with(record(of));
    EXPECT_EQ(bw_log::rules_in_words(),
              "profile 3 pri 0 up 0 down 0 last 31 used 0 1 31\n"
              "  :2:0:0:0:0:1 pri 1 held class 31 up 101 down 201 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n");
}

TEST(BwCacheReplay, ATransitionToAppliedBringsTheStateBack) {
    fields of = station_set(1);
    of.flags = bw_log::TRANSITION | bw_log::TO_APPLIED;
    bw_log::restart_with(record(of));
    EXPECT_NE(bw_log::rules_in_words().find(" pri 1 applied class 3 "), std::string::npos);
}

TEST(BwCacheReplay, AClearTakesTheRuleAwayAgain) {
    bw_log::restart_with(record(station_set(1)) + record(station_clear(1)));
    EXPECT_EQ(bw_log::rules_in_words(), "profile 3 pri 0 up 0 down 0 last 3 used 0 1\n");
}

TEST(BwCacheReplay, OtherCommandsAreSkipped) {
    std::string log;
    for (const uint32_t command : {0u, 1u, 14u, 17u, 23u, 26u, 0x18000000u, 0xFFFFFFFFu}) {
        fields of = station_set(1);
        of.command = command;
        log += record(of);
    }
    bw_log::restart_with(log);
    EXPECT_EQ(bw_log::rules_in_words(), "");
}

TEST(BwCacheReplay, AGapOfZerosIsSkipped) {
    log_capture lines;
    bw_log::restart_with(GAP);
    EXPECT_EQ(bw_log::rules_in_words(), "");
    bw_log::restart_with(record(station_set(1)) + GAP + record(station_set(2)));
    EXPECT_EQ(bw_log::rules_in_words(), bw_log::reader(record(station_set(1)) + record(station_set(2))).text());
    for (const std::string &line : lines.lines())
        EXPECT_EQ(line.find("Invalid profile id"), std::string::npos);
}

TEST(BwCacheReplay, AShortLastRecordCountsAsFarAsItGoes) {
    const std::string whole = record(station_set(1));
    bw_log::restart_with(whole + record(station_set(2)).substr(0, 29));  // up to two letters of the interface
    EXPECT_EQ(bw_log::rules_in_words(),
              "profile 3 pri 0 up 0 down 0 last 4 used 0 1 3 4\n"
              "  :2:0:0:0:0:1 pri 1 held class 3 up 101 down 201 on 97 116 104 48 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
              "  :2:0:0:0:0:2 pri 1 held class 4 up 102 down 202 on 97 116 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n");
}

TEST(BwCacheReplay, ABssRecordWithoutItsFlagByteIsAStations) {
    bw_log::restart_with(record(bss_set(3, 1, 10, 20)).substr(0, 44));
    // Class 1 is the BSS's, so the station gets no rule.
    EXPECT_EQ(bw_log::rules_in_words(), "profile 3 pri 0 up 0 down 0 last 1 used 0 1\n");
}

TEST(BwCacheReplay, EveryLengthOfALogCountsAsFarAsItGoes) {
    const std::string log = record(station_set(1)) + record(bss_set(3, 1, 10, 20)) + record(station_clear(1));
    for (size_t length = 0; length <= log.size(); length++) {
        bw_log::restart_with(log.substr(0, length));
        EXPECT_EQ(bw_log::rules_in_words(), bw_log::reader(log.substr(0, length)).text()) << length;
    }
}

TEST(BwCacheReplay, QueuesAndRecordsNothing) {
    fields applied = station_set(1);
    applied.flags = bw_log::TRANSITION | bw_log::TO_APPLIED;
    std::string log = record(bss_set(3, 1, 10, 20)) + record(applied);
    for (unsigned i = 0; i < 12; i++)
        log += record(station_clear(1));
    write_file(bw_log::FILE_NAME, log);
    ASSERT_EQ(bw_init(), 1);
    EXPECT_EQ(dllist_num_entries(&bw_queue), 0);
    EXPECT_EQ(g_bw_queue_started, 0);
    EXPECT_EQ(g_num_clear_rules, 0);
    EXPECT_EQ(log_file(), log);
}

TEST(BwCacheReplay, ARewrittenLogBringsTheSameRulesBackHeld) {
    std::string log;
    for (const uint32_t profile : {1, 2, 40}) {
        log += record(bss_set(profile, 3, int32_t(profile), -1));
        for (unsigned i = 0; i < 30; i++) {
            fields of = station_set(i, profile);
            of.flags = i % 2 == 0 ? bw_log::TRANSITION | bw_log::TO_APPLIED : 0;
            log += record(of);
        }
    }
    write_file(bw_log::FILE_NAME, log);
    ASSERT_EQ(bw_init(), 1);
    std::string expected = bw_log::rules_in_words();
    for (size_t at; (at = expected.find("applied")) != std::string::npos;)
        expected.replace(at, 7, "held");
    rewrite_all_txn();
    bw_log::restart_with(log_file());
    EXPECT_EQ(bw_log::rules_in_words(), expected);
}

TEST(BwCacheReplay, ADirectoryInPlaceOfTheFileIsNoLog) {
    ASSERT_EQ(mkdir(bw_log::FILE_NAME.c_str(), 0700), 0);
    restore_bw_cache();
    EXPECT_EQ(bw_log::rules_in_words(), "");
    EXPECT_EQ(restoring_cache, 0);
}

TEST(BwCacheReplay, AReadThatFailsEndsTheReplay) {
    write_file(bw_log::FILE_NAME, record(station_set(1)) + record(station_set(2)));
    fail_nth_call("read", 2, EIO);
    ASSERT_EQ(bw_init(), 1);
    EXPECT_EQ(faults_fired("read"), 1);
    EXPECT_EQ(bw_log::rules_in_words(), bw_log::reader(record(station_set(1))).text());
}

TEST(BwCacheReplay, TheFileIsClosedAfterwards) {
    const int free_number = dup(0);
    close(free_number);
    bw_log::restart_with(record(station_set(1)));
    EXPECT_EQ(fcntl(free_number, F_GETFD), -1);
}

namespace {

/// Requests as a daemon might have recorded them, few enough stations and profiles that they meet each other.
std::string plausible_log(std::mt19937 &random, size_t records) {
    const auto below = [&](unsigned limit) { return random() % limit; };
    std::string log;
    for (size_t i = 0; i < records; i++) {
        fields of;
        of.mac = mac_number(below(8));
        of.pri = uint8_t(below(3));
        of.command = below(10) == 0 ? random() : SET + below(2);
        of.up = int32_t(below(3)) - 1;
        of.down = int32_t(below(3)) - 1;
        of.profile = std::array{0u, 1u, 5u, 28u, 24u}[below(5)];
        of.classid = below(20) == 0 ? random() : below(12);
        of.interface = std::array{"ath0", "ath1", "ath1", "abcdefghijklmnopq"}[below(4)];
        of.flags = below(8) == 0 ? uint8_t(random()) : uint8_t(below(4) << 5);
        log += record(of);
    }
    return log;
}

}  // namespace

TEST(BwCacheReplay, AnyLogLeadsToTheRulesThatItSpellsOut) {
    debug = 1;  // the rules' own lines are not what is looked at
    std::mt19937 random(1);
    for (int round = 0; round < 400; round++) {
        std::string log = plausible_log(random, random() % 60);
        if (round % 4 == 0 && !log.empty())
            log.resize(random() % log.size());
        if (round % 5 == 0)
            for (int i = 0; i < 20 && !log.empty(); i++)
                log[random() % log.size()] = char(random());
        bw_log::restart_with(log);
        ASSERT_EQ(bw_log::rules_in_words(), bw_log::reader(log).text()) << "round " << round;
    }
}
