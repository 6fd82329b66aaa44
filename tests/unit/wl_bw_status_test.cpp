// The two files that a status request writes.
#include "wl_bw_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include "files.h"

// The file that did open is left open, on purpose.
extern "C" const char *__lsan_default_suppressions() {
    return "leak:dump_cache";
}

namespace {

constexpr char HASH_DUMP[] = "/tmp/.wl.bw_hash.dmp";
constexpr char CACHE_DUMP[] = "/tmp/.wl.bw_cache.dmp";

class BandwidthStatus : public BandwidthFixture {
protected:
    static void ask() {
        bw_status(VRE_BW_GET_STATUS, nullptr, 0);
    }

    static void write_cache(const std::vector<limit> &records, const std::string &rest = "") {
        std::string text;
        for (const limit &record : records) {
            const byte_string bytes = record_bytes(record);
            text.append(bytes.begin(), bytes.end());
        }
        write_file(BW_CACHE_FILE, text + rest);
    }
};

TEST_F(BandwidthStatus, WithoutRulesIsTwoEmptyFiles) {
    write_file(HASH_DUMP, "old");
    write_file(CACHE_DUMP, "old");
    log_capture log;
    ask();
    EXPECT_EQ(file_text(HASH_DUMP), "");
    EXPECT_EQ(file_text(CACHE_DUMP), "");
    EXPECT_EQ(access(HASH_DUMP, F_OK) | access(CACHE_DUMP, F_OK), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BandwidthStatus, ListsProfilesAndTheirStationsInTheOrderOfTheTables) {
    set({.profile = 25, .pri = 4, .up = 100, .down = -1, .bss = true});  // bucket 2
    set({.profile = 1, .pri = 0, .up = 7, .down = 8, .bss = true});      // bucket 1
    set({.profile = 25, .station = 0xAB, .pri = 2, .up = 10, .down = 20});
    apply({.profile = 25, .station = 0x02, .pri = 200, .up = -1, .down = 1});
    for (uint32_t id = 4; id < 0x1F; id++)
        profile(25)->classid_bm[0] |= uint64_t{1} << id;
    set({.profile = 25, .station = 0x03, .pri = 1, .up = 1, .down = 1});
    ask();
    const std::string dashes(75, '-');
    EXPECT_EQ(file_text(HASH_DUMP), "Profile 1 [#0] (up = 7, down = 8):\n" + dashes +
                                        "\n"
                                        "Profile 25 [#4] (up = 100, down = -1):\n" +
                                        dashes +
                                        "\n"
                                        "\t[#200] 00:11:22:33:44:02\t(up = -1,down = 1)\t(classid = 0x3)\tAPPLIED\n"
                                        "\t[#1] 00:11:22:33:44:03\t(up = 1,down = 1)\t(classid = 0x1F)\tHELD\n"
                                        "\t[#2] 00:11:22:33:44:AB\t(up = 10,down = 20)\t(classid = 0x2)\tHELD\n");
}

TEST_F(BandwidthStatus, ListsTheRecordsOfTheCache) {
    write_cache(
        {{.pri = 4, .up = 100, .down = -1, .interface = "", .bss = true, .classid = 1},
         {.profile = 0xFFFFFFFF, .station = 0xAB, .pri = 255, .up = -1, .down = 8, .e = VRE_BW_CLR, .classid = 0xAF},
         {.e = VRE_BW_GET_STATUS}});
    ask();
    EXPECT_EQ(file_text(CACHE_DUMP),
              "[Pri 4] [ProfId 3] [Evt Set] 00:00:00:00:00:00\t(up = 100,down = -1)\t(classid = 0x1) (BSS) ()\n"
              "[Pri 255] [ProfId -1] [Evt Clr] 00:11:22:33:44:AB\t(up = -1,down = 8)\t(classid = 0xAF) (STA) (ath0)\n"
              "[Pri 1] [ProfId 3] [Evt Clr] 00:11:22:33:44:01\t(up = 2048,down = 4096)\t(classid = 0x0) (STA) "
              "(ath0)\n");
}

TEST_F(BandwidthStatus, ListsAGapOfTheCacheAndNoPartOfARecord) {
    write_cache({}, std::string(45 + 44, '\0'));
    ask();
    EXPECT_EQ(file_text(CACHE_DUMP),
              "[Pri 0] [ProfId 0] [Evt Clr] 00:00:00:00:00:00\t(up = 0,down = 0)\t(classid = 0x0) (STA) ()\n");
}

TEST_F(BandwidthStatus, CutsAnInterfaceThatFillsItsField) {
    write_cache({{.interface = "a1234567890123456"}});
    ask();
    EXPECT_NE(file_text(CACHE_DUMP).find(" (STA) (a1234567890123456)\n"), std::string::npos);
}

TEST_F(BandwidthStatus, ListsWhatWasRecordedThroughTheCache) {
    const bw_rule_info req = request({.pri = 2, .classid = 5});
    EXPECT_EQ(bw_write_txn(&req), 45);
    ask();
    EXPECT_EQ(file_text(CACHE_DUMP),
              "[Pri 2] [ProfId 3] [Evt Set] 00:11:22:33:44:01\t(up = 2048,down = 4096)\t(classid "
              "= 0x5) (STA) (ath0)\n");
}

TEST_F(BandwidthStatus, SaysThatTheRulesCannotBeWritten) {
    ASSERT_EQ(mkdir(HASH_DUMP, 0700), 0);
    log_capture log(3);
    ask();
    EXPECT_EQ(log.lines(),
              lines({"bw_status: Could not open file /tmp/.wl.bw_hash.dmp to dump BW Hash Table contents"}));
    EXPECT_EQ(access(CACHE_DUMP, F_OK), 0);
}

TEST_F(BandwidthStatus, SaysThatTheCacheIsNotThere) {
    ASSERT_EQ(unlink(BW_CACHE_FILE), 0);
    log_capture log(3);
    ask();
    EXPECT_EQ(log.lines(), lines({"bw_status: Could not open BW cache files"}));
}

TEST_F(BandwidthStatus, SaysThatTheRecordsCannotBeWritten) {
    ASSERT_EQ(mkdir(CACHE_DUMP, 0700), 0);
    log_capture log(3);
    ask();
    EXPECT_EQ(log.lines(), lines({"bw_status: Could not open BW cache files"}));
}

TEST_F(BandwidthStatus, FailuresAreErrors) {
    ASSERT_EQ(mkdir(HASH_DUMP, 0700), 0);
    ASSERT_EQ(unlink(BW_CACHE_FILE), 0);
    log_capture log(2);
    ask();
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BandwidthStatus, LeavesTheFileThatDidOpenOpen) {
    ASSERT_EQ(unlink(BW_CACHE_FILE), 0);
    const int before = dup(0);
    close(before);
    ask();
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before + 1);
}

TEST_F(BandwidthStatus, ClosesAllFiles) {
    const int before = dup(0);
    close(before);
    ask();
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

}  // namespace
