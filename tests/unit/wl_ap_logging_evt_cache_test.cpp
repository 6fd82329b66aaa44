// How reports are throttled by configuration, and how the throttling outlives the daemon in its cache file.
#include "wl_ap_logging_evt_fixture.h"

#include <cerrno>
#include <csignal>
#include <sys/resource.h>

#include "child.h"

namespace {

int ftell_error;

}  // namespace

extern "C" long __real_ftell(FILE *file);
extern "C" long __wrap_ftell(FILE *file) {
    if (ftell_error == 0)
        return __real_ftell(file);
    errno = ftell_error;
    return -1;
}

// Like the C libraries that forget the text once its last token is out: whoever asks on gets nothing.
extern "C" char *__real_strtok_r(char *text, const char *separators, char **rest);
extern "C" char *__wrap_strtok_r(char *text, const char *separators, char **rest) {
    if (text == nullptr && *rest == nullptr)
        return nullptr;
    char *const token = __real_strtok_r(text, separators, rest);
    if (token == nullptr || **rest == '\0')
        *rest = nullptr;
    return token;
}

namespace {

using texts = std::vector<std::pair<std::string, uint32_t>>;

struct entry {
    uint32_t evt_id;
    int throttle_disabled;
    int32_t throttle_delta;
    int logging_file;
    bool operator==(const entry &) const = default;
};

class ApReportConfig : public ApReports {
protected:
    /// The entries that a configuration makes, by their ids.
    static std::vector<entry> entries_of(const std::string &configuration) {
        start_again(configuration);
        std::vector<entry> found;
        hash_table_iter_t all;
        hash_table_iter_init(&ap_logging_hash_t, &all);
        while (hash_table_iter_next(&all) != 0) {
            const auto *const data = static_cast<const ap_logging_evt_data *>(all.entry->value);
            EXPECT_EQ(all.entry->key, data);
            EXPECT_EQ(data->evt_node_list, nullptr);
            found.push_back({data->evt_id, data->throttle_disabled, data->throttle_delta, data->logging_file});
        }
        std::ranges::sort(found, {}, &entry::evt_id);
        return found;
    }

    static std::vector<entry> one(uint32_t evt_id, int throttle_disabled, int32_t throttle_delta, int logging_file) {
        return {{evt_id, throttle_disabled, throttle_delta, logging_file}};
    }
};

class ApReportCache : public ApReports {
protected:
    void TearDown() override {
        ftell_error = 0;
        ApReports::TearDown();
    }

    /// Starts with a cache file; result: what the loading gave.
    static int load(const std::string &cache, const std::string &configuration = "") {
        start_again(configuration);
        write_file(CACHE, cache);
        return init_ap_logging_cache(CACHE);
    }

    static ap_logging_evt_node node_of(const std::string &text, uint32_t time) {
        ap_logging_evt_node node{};
        node.time = time;
        text.copy(node.buf, sizeof node.buf - 1);
        return node;
    }

    static int edit(uint32_t evt_id, const std::string &text, uint32_t time, int mode, const char *path = CACHE) {
        const ap_logging_evt_node node = node_of(text, time);
        file_ap_logging_evt_node record;
        std::memset(&record, 0xEE, sizeof record);
        return perform_file_edit(path, evt_id, &node, &record, mode);
    }
};

}  // namespace

// Configuration lines

TEST_F(ApReportConfig, ALineSetsEveryField) {
    EXPECT_EQ(entries_of("11|1|60|2\n"), one(11, 1, 60, 2));
    EXPECT_EQ(entries_of("0|0|0|0\n"), one(0, 0, 0, 0));
    EXPECT_EQ(entries_of("007|00|0060|01\n"), one(7, 0, 60, 1));
}

TEST_F(ApReportConfig, EveryLineIsAnEvent) {
    EXPECT_EQ(entries_of("3|0|1|0\n1|0|2|1\n2|1|3|0\n"),
              (std::vector<entry>{{1, 0, 2, 1}, {2, 1, 3, 0}, {3, 0, 1, 0}}));
}

TEST_F(ApReportConfig, AnEmptyFileConfiguresNothing) {
    EXPECT_EQ(entries_of(""), std::vector<entry>{});
    EXPECT_EQ(init_ap_logging_config(), 0);
}

TEST_F(ApReportConfig, LinesWithFewerThanFourFieldsAreIgnored) {
    for (const char *const line :
         {"\n", "11\n", "11|0\n", "11|0|60\n", "11|0|60|\n", "|||\n", "||||||\n", "text\n", " \n"})
        EXPECT_EQ(entries_of(line + std::string("5|0|60|0\n")), one(5, 0, 60, 0)) << line;
}

TEST_F(ApReportConfig, EmptyFieldsDoNotCount) {
    EXPECT_EQ(entries_of("11||60|1\n"), std::vector<entry>{});
    EXPECT_EQ(entries_of("|11||0|60|||1|\n"), one(11, 0, 60, 1));
}

TEST_F(ApReportConfig, FurtherFieldsAreIgnored) {
    EXPECT_EQ(entries_of("11|0|60|1|9|x\n"), one(11, 0, 60, 1));
}

TEST_F(ApReportConfig, ALastLineWithoutNewlineLosesACharacter) {
    EXPECT_EQ(entries_of("11|0|60|12"), one(11, 0, 60, 1));
    EXPECT_EQ(entries_of("11|0|60|1"), std::vector<entry>{});
    EXPECT_EQ(entries_of("5|0|60|0\n1"), one(5, 0, 60, 0));
}

TEST_F(ApReportConfig, WhatFollowsANumberIsIgnored) {
    EXPECT_EQ(entries_of("11x|1 |60.9| 1\r\n"), one(11, 1, 60, 1));
    EXPECT_EQ(entries_of("x|y|z|w\n"), one(0, 0, 0, 0));
    EXPECT_EQ(entries_of("# id|disabled|seconds|no file\n"), one(0, 0, 0, 0));
}

TEST_F(ApReportConfig, NumbersSaturateTo32Bits) {
    EXPECT_EQ(entries_of("4294967295|0|4294967295|0\n"), one(2147483647, 0, 2147483647, 0));
    EXPECT_EQ(entries_of("-9999999999|0|-9999999999|0\n"), one(0x80000000, 0, -2147483647 - 1, 0));
    EXPECT_EQ(entries_of("-1|0|-1|0\n"), one(0xFFFFFFFF, 0, -1, 0));
}

TEST_F(ApReportConfig, FlagsKeepTheirLowEightBits) {
    EXPECT_EQ(entries_of("1|255|0|255\n"), one(1, 255, 0, 255));
    EXPECT_EQ(entries_of("1|256|0|257\n"), one(1, 0, 0, 1));
    EXPECT_EQ(entries_of("1|-1|0|-256\n"), one(1, 255, 0, 0));
}

TEST_F(ApReportConfig, OfSeveralLinesOfAnIdTheFirstCounts) {
    EXPECT_EQ(entries_of("1|0|60|0\n2|0|5|0\n1|1|70|1\n1|0|80|0\n"), (std::vector<entry>{{1, 0, 60, 0}, {2, 0, 5, 0}}));
}

TEST_F(ApReportConfig, EveryCompleteLineIsLogged) {
    start_again("1|0|60|1\n1|1|70|0\n9|8\n-1|2|-3|4\n");
    hash_table_destroy(&ap_logging_hash_t);
    const auto scenario = [] { EXPECT_EQ(wl_ap_ts_init(), 0); };
    const std::string before = "init_ap_logging_config: Evt_id : ";
    for (const char *const rest : {"1 , throttle flag : 0 , throttle_time : 60 and logging file flag 1",
                                   "1 , throttle flag : 1 , throttle_time : 70 and logging file flag 0",
                                   "-1 , throttle flag : 2 , throttle_time : -3 and logging file flag 4"}) {
        expect_logged(7, before + rest, [&scenario] {
            hash_table_destroy(&ap_logging_hash_t);
            scenario();
        });
    }
    const lines all = lines_at_level(7, [&scenario] {
        hash_table_destroy(&ap_logging_hash_t);
        scenario();
    });
    EXPECT_EQ(std::ranges::count_if(all, [&before](const std::string &line) { return line.starts_with(before); }), 3);
    EXPECT_EQ(std::ranges::count(all, ""), 3);  // the message ends its line itself
}

TEST_F(ApReportConfig, LinesHaveUpTo4095CharactersWithTheirNewline) {
    const std::string fields = "1|0|60|";
    const std::string longest = fields + std::string(4095 - fields.size() - 2, '0') + "5";
    EXPECT_EQ(longest.size(), 4094U);
    EXPECT_EQ(entries_of(longest + "\n5|0|60|0\n"), (std::vector<entry>{{1, 0, 60, 5}, {5, 0, 60, 0}}));
}

TEST_F(ApReportConfig, ALongerLineCountsAsSeveral) {
    const std::string fields = "1|0|60|";
    const std::string piece = fields + std::string(4095 - fields.size() - 2, '0') + "59";
    EXPECT_EQ(entries_of(piece + "2|0|60|7\n"), (std::vector<entry>{{1, 0, 60, 5}, {2, 0, 60, 7}}));
}

TEST_F(ApReportConfig, ALineOfAnyBytesIsSurvived) {
    std::string bytes;
    for (int byte = 0; byte < 256; byte++)
        bytes += static_cast<char>(byte);
    EXPECT_EQ(entries_of(bytes + "\n5|0|60|0\n").back(), (entry{5, 0, 60, 0}));
    EXPECT_EQ(entries_of(std::string("\0\0\n", 3) + "5|0|60|0\n"), one(5, 0, 60, 0));
    EXPECT_EQ(entries_of(std::string("6|0|60|1\0|7\n", 12)),
              std::vector<entry>{});  // the character before the NUL goes
}

TEST_F(ApReportConfig, ADirectoryInPlaceOfTheFileConfiguresNothing) {
    std::filesystem::remove(CONFIG);
    std::filesystem::create_directory(CONFIG);
    EXPECT_EQ(init_ap_logging_config(), 0);
    EXPECT_EQ(ap_logging_hash_t.entry_count, 0U);
    std::filesystem::remove(CONFIG);
}

TEST_F(ApReportConfig, AFileThatCannotBeOpenedIsLogged) {
    std::filesystem::remove(CONFIG);
    expect_logged(3, "init_ap_logging_config: Cannot open /opt/ap/ap_logging_conf_evt",
                  [] { EXPECT_EQ(init_ap_logging_config(), -1); });
}

TEST_F(ApReportConfig, NoMemoryForALineIsLogged) {
    start_again("1|0|60|0\n2|0|60|0\n");
    for (const int nth : {1, 2}) {
        expect_logged(3, "init_ap_logging_config: Cannot allocate mem for ap_logging_evt_data", [nth] {
            hash_table_foreach_remove(
                &ap_logging_hash_t, [](const void *, void *, void *) { return 1; }, nullptr);
            fail_nth_call("calloc", nth);
            EXPECT_EQ(init_ap_logging_config(), -1);
            EXPECT_EQ(faults_fired("calloc"), 1);
            clear_faults();
        });
    }
}

// Start

TEST_F(ApReportConfig, TheTableHas100Buckets) {
    EXPECT_EQ(ap_logging_hash_t.table_size, 100U);
}

TEST_F(ApReportConfig, WithoutAConfigurationTheModuleWorksWithDefaults) {
    write_file(CACHE, cache_record(1, START, "text"));
    std::filesystem::remove(CONFIG);
    hash_table_destroy(&ap_logging_hash_t);
    EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(wl_ap_ts_init(), -1); }),
              lines{"init_ap_logging_config: Cannot open /opt/ap/ap_logging_conf_evt"});
    EXPECT_EQ(ap_logging_hash_t.entry_count, 0U);  // nor is the cache file read
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 3);
}

TEST_F(ApReportConfig, WithoutMemoryForTheTableNothingIsReported) {
    hash_table_destroy(&ap_logging_hash_t);
    fail_nth_call("calloc", 1);
    EXPECT_EQ(wl_ap_ts_init(), -1);
    EXPECT_EQ(faults_fired("calloc"), 1);
    clear_faults();
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 1);
    EXPECT_TRUE(posted.empty());
}

TEST_F(ApReportConfig, WithoutACacheFileTheStartSaysSo) {
    hash_table_destroy(&ap_logging_hash_t);
    expect_logged(3, "wl_ap_ts_init: File absent skipping init", [] {
        hash_table_destroy(&ap_logging_hash_t);
        EXPECT_EQ(wl_ap_ts_init(), 0);
    });
}

TEST_F(ApReportConfig, EveryAllocationOfTheStartMayFail) {
    start_again("1|0|60|0\n2|0|60|0\n");
    write_file(CACHE, cache_record(1, START, "text") + cache_record(7, START, "text"));
    for (const char *const function : {"calloc", "malloc"}) {
        int faults = 0;
        int fired = 1;
        for (int nth = 1; fired > 0; nth++) {
            ASSERT_LT(nth, 30);
            hash_table_destroy(&ap_logging_hash_t);
            fail_nth_call(function, nth);
            const int result = wl_ap_ts_init();
            fired = faults_fired(function);
            clear_faults();
            EXPECT_TRUE(result == 0 || result == -1);
            posted.clear();
            const bool usable = ap_logging_hash_t.table_size != 0;
            EXPECT_EQ(report(VRE_INTERNET_DOWN_EVT, "text"), usable ? 0 : 1);
            EXPECT_EQ(posted.size(), usable ? 1U : 0U);
            faults += fired;
        }
        EXPECT_GT(faults, 0) << function;
    }
}

TEST_F(ApReportConfig, ACacheThatCannotBeReadDoesNotHinderTheStart) {
    start_again("1|0|60|0\n");
    write_file(CACHE, cache_record(1, START, "text"));
    hash_table_destroy(&ap_logging_hash_t);
    log_capture log(3);
    fail_nth_call("fopen", 2, EACCES);
    EXPECT_EQ(wl_ap_ts_init(), 0);
    EXPECT_EQ(faults_fired("fopen"), 1);
    clear_faults();
    EXPECT_EQ(log.lines(), lines{"init_ap_logging_cache: Cannot open /tmp/ap_logging_evt_cache"});
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
}

// Reading the cache file

TEST_F(ApReportCache, ARecordIsReadByteByByte) {
    std::string bytes("\x01\x02\x03\x04\x0A\x0B\x0C\x0D", 8);
    bytes += "RADIO";
    bytes.resize(264, '\0');
    EXPECT_EQ(load(bytes), 0);
    EXPECT_EQ(texts_of(0x01020304), (texts{{"RADIO", 0x0A0B0C0D}}));
}

TEST_F(ApReportCache, EveryRecordIsATextOfItsEvent) {
    EXPECT_EQ(
        load(cache_record(1, 5, "a") + cache_record(17, 6, "b") + cache_record(1, 4, "c"), "1|0|60|0\n17|0|60|0\n"), 0);
    EXPECT_EQ(texts_of(1), (texts{{"a", 5}, {"c", 4}}));
    EXPECT_EQ(texts_of(17), (texts{{"b", 6}}));
    EXPECT_EQ(find_evt_data(1)->throttle_delta, 60);
}

TEST_F(ApReportCache, AnUnknownEventGetsTheDefaults) {
    EXPECT_EQ(load(cache_record(99, 5, "a")), 0);
    const ap_logging_evt_data *const data = find_evt_data(99);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->throttle_disabled, 0);
    EXPECT_EQ(data->logging_file, 0);
    EXPECT_EQ(data->throttle_delta, 43200);
}

TEST_F(ApReportCache, ReadingIsLogged) {
    const auto scenario = [] { load(cache_record(99, 5, "abc")); };
    expect_logged(7, "init_ap_logging_cache: Reading up Cache information from /tmp/ap_logging_evt_cache", scenario);
    expect_logged(7, "init_ap_logging_cache: Reading line with evt_id 99 and buf abc", scenario);
    expect_logged(3, "init_ap_logging_cache: No Event Throttling configuration found.. Adding 99 with default settings",
                  scenario);
    expect_logged(7, "init_ap_logging_cache: Allocation complete for abc", scenario);
    expect_logged(7, "init_ap_logging_cache:  CACHE INIT. Inserting node into list with id 99", scenario);
    expect_logged(3, "init_ap_logging_cache: File read complete", scenario);
}

TEST_F(ApReportCache, AKnownEventIsNotSaidToBeAdded) {
    for (const std::string &line : lines_at_level(3, [] { load(cache_record(1, 5, "abc"), "1|0|60|0\n"); }))
        EXPECT_EQ(line.find("Adding 1"), std::string::npos);
}

TEST_F(ApReportCache, TheEndOfTheFileIsSaidOnce) {
    for (const std::string &cache : {std::string(), cache_record(1, 5, "a"), cache_record(1, 5, "a") + "tail"}) {
        const lines all = lines_at_level(3, [&cache] { EXPECT_EQ(load(cache, "1|0|60|0\n"), 0); });
        EXPECT_EQ(std::ranges::count(all, "init_ap_logging_cache: File read complete"), 1);
    }
}

TEST_F(ApReportCache, AShortLastRecordIsNotUsed) {
    for (const size_t missing : {1U, 100U, 263U}) {
        const std::string last = cache_record(1, 6, "b");
        EXPECT_EQ(load(cache_record(1, 5, "a") + last.substr(0, 264 - missing)), 0);
        EXPECT_EQ(texts_of(1), (texts{{"a", 5}}));
    }
}

TEST_F(ApReportCache, ATextWithoutNulIsCut) {
    EXPECT_EQ(load(cache_record(1, 5, std::string(255, 'x'), 'y') + cache_record(1, 6, "b")), 0);
    EXPECT_EQ(texts_of(1), (texts{{std::string(254, 'x'), 5}, {"b", 6}}));
}

TEST_F(ApReportCache, ATextWithoutNulIsLoggedCut) {
    expect_logged(7, "init_ap_logging_cache: Reading line with evt_id 1 and buf " + std::string(254, 'x'),
                  [] { load(cache_record(1, 5, std::string(255, 'x'), 'y')); });
}

TEST_F(ApReportCache, AnyBytesAreRecords) {
    EXPECT_EQ(load(std::string(2 * 264, '\xFF')), 0);
    EXPECT_EQ(texts_of(0xFFFFFFFF),
              (texts{{std::string(254, '\xFF'), 0xFFFFFFFF}, {std::string(254, '\xFF'), 0xFFFFFFFF}}));
    EXPECT_EQ(load(std::string(264, '\0')), 0);
    EXPECT_EQ(texts_of(0), (texts{{"", 0}}));
}

TEST_F(ApReportCache, AFileThatCannotBeOpenedIsLogged) {
    expect_logged(3, "init_ap_logging_cache: Cannot open /tmp/none",
                  [] { EXPECT_EQ(init_ap_logging_cache("/tmp/none"), -1); });
}

TEST_F(ApReportCache, AFileThatCannotBeReadEndsSilently) {
    std::filesystem::create_directory(CACHE);
    EXPECT_EQ(lines_at_level(6, [] { EXPECT_EQ(init_ap_logging_cache(CACHE), 0); }), lines{});
}

TEST_F(ApReportCache, NoMemoryForAnEntryEndsTheReading) {
    for (const char *const function : {"calloc", "malloc"}) {
        start_again();
        write_file(CACHE, cache_record(99, 5, "a") + cache_record(98, 6, "b"));
        expect_logged(3, "init_ap_logging_cache: Could not create a Evt hash entry.", [function] {
            // The C library takes the stream's memory from itself.
            fail_nth_call(function, 1);
            EXPECT_EQ(init_ap_logging_cache(CACHE), 1);
            EXPECT_EQ(faults_fired(function), 1);
            clear_faults();
        });
        EXPECT_EQ(ap_logging_hash_t.entry_count, 0U);
    }
}

// Restarts

TEST_F(ApReportCache, ThrottlingOutlivesTheDaemon) {
    start_again("1|0|60|0\n");
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    clock_seconds += 59;
    restart("1|0|60|0\n");
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 3);
    clock_seconds++;
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
}

TEST_F(ApReportCache, ARestartFindsTheOldAndTheNewRecordOfAText) {
    start_again("1|0|60|0\n");
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    clock_seconds += 60;
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    restart("1|0|60|0\n");
    EXPECT_EQ(texts_of(1), (texts{{"text", START}, {"text", START + 60}}));
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);  // the older time is met first
    EXPECT_EQ(texts_of(1), (texts{{"text", START + 60}, {"text", START + 60}}));
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 3);
}

TEST_F(ApReportCache, TheFirstReportOfAnUnknownEventIsForgottenAtARestart) {
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    restart("");
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
}

TEST_F(ApReportCache, ATimeAfterAResetOfTheClockThrottles) {
    load(cache_record(1, START + 1000, "text"), "1|0|60|0\n");
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 3);
}

// Writing the cache file

TEST_F(ApReportCache, AnAppendedRecordIsWrittenByteByByte) {
    const ap_logging_evt_node node = node_of("RADIO", 0x0A0B0C0D);
    file_ap_logging_evt_node record;
    std::memset(&record, 0xEE, sizeof record);
    EXPECT_EQ(perform_file_edit(CACHE, 0x01020304, &node, &record, 1), 0);
    std::string expected("\x01\x02\x03\x04\x0A\x0B\x0C\x0D"
                         "RADIO");
    expected.resize(264, '\0');
    EXPECT_EQ(file_text(CACHE), expected);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&record), sizeof record), expected);
}

TEST_F(ApReportCache, AnAppendedTextEndsWithANul) {
    ap_logging_evt_node node;
    node.time = 5;
    std::memset(node.buf, 'x', sizeof node.buf);
    file_ap_logging_evt_node record;
    EXPECT_EQ(perform_file_edit(CACHE, 1, &node, &record, 1), 0);
    EXPECT_EQ(file_text(CACHE), cache_record(1, 5, std::string(254, 'x')));
    EXPECT_EQ(record.buf[254], '\0');
}

TEST_F(ApReportCache, AppendingIsLogged) {
    expect_logged(7, "perform_file_edit: Writing to file cache : id 17, buf text, time 1234567",
                  [] { EXPECT_EQ(edit(17, "text", 1234567, 1), 0); });
    expect_logged(7, "perform_file_edit: Writing to file cache : id -1, buf , time -294967296",
                  [] { EXPECT_EQ(edit(0xFFFFFFFF, "", 4000000000, 1), 0); });
}

TEST_F(ApReportCache, ARecordsOldFormStaysWhenItsTimeIsEdited) {
    const std::string before =
        cache_record(2, 1, "a") + cache_record(1, 2, "b") + cache_record(1, 3, "a") + cache_record(1, 4, "a");
    write_file(CACHE, before);
    EXPECT_EQ(edit(1, "a", 99, 2), 0);
    EXPECT_EQ(file_text(CACHE), before + cache_record(1, 99, "a"));
}

TEST_F(ApReportCache, AnyOtherModeEdits) {
    for (const int mode : {0, 2, 3, -1}) {
        write_file(CACHE, cache_record(1, 5, "a"));
        EXPECT_EQ(edit(1, "a", 6, mode), 0);
        EXPECT_EQ(file_text(CACHE), cache_record(1, 5, "a") + cache_record(1, 6, "a"));
    }
}

TEST_F(ApReportCache, EditingIsLogged) {
    const auto scenario = [] {
        write_file(CACHE, cache_record(17, 5, "a"));
        edit(17, "a", 6, 2);
    };
    expect_logged(3, "edit_log_timestamp: Starting to go through file to edit cache file  17", scenario);
    expect_logged(3, "edit_log_timestamp: FOund old entry for evt_id  17", scenario);
    EXPECT_EQ(lines_at_level(7, scenario),
              (lines{"edit_log_timestamp: Starting to go through file to edit cache file  17",
                     "edit_log_timestamp: FOund old entry for evt_id  17"}));
}

TEST_F(ApReportCache, ATextThatTheFileLacksIsNotEdited) {
    for (const std::string &before : {std::string(), cache_record(1, 5, "ab"), cache_record(1, 5, ""),
                                      cache_record(2, 5, "a"), cache_record(1, 5, "a").substr(0, 263)}) {
        write_file(CACHE, before);
        EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(edit(1, "a", 6, 2), 0); }),
                  lines{"edit_log_timestamp: Starting to go through file to edit cache file  1"});
        EXPECT_EQ(file_text(CACHE), before);
    }
}

TEST_F(ApReportCache, ATextWithoutNulIsEditedAsItsCutForm) {
    write_file(CACHE, cache_record(1, 5, std::string(255, 'x')));
    EXPECT_EQ(edit(1, std::string(254, 'x'), 6, 2), 0);
    EXPECT_EQ(file_text(CACHE), cache_record(1, 5, std::string(255, 'x')) + cache_record(1, 6, std::string(254, 'x')));
}

TEST_F(ApReportCache, OnlyTheTimeOfARecordIsEdited) {
    const std::string text_and_rest = std::string("a\0", 2) + std::string(252, 'y');
    write_file(CACHE, cache_record(1, 5, text_and_rest, 'p'));
    EXPECT_EQ(edit(1, "a", 6, 2), 0);
    EXPECT_EQ(file_text(CACHE), cache_record(1, 5, text_and_rest, 'p') + cache_record(1, 6, text_and_rest, 'p'));
}

TEST_F(ApReportCache, APositionThatCannotBeToldEndsTheEdit) {
    const std::string before = cache_record(1, 5, "a");
    write_file(CACHE, before);
    expect_logged(3, "edit_log_timestamp: File Offset ftell call failed with errno 75. Skipping write ", [] {
        ftell_error = 75;
        EXPECT_EQ(edit(1, "a", 6, 2), 0);
        ftell_error = 0;
    });
    EXPECT_EQ(file_text(CACHE), before);
}

TEST_F(ApReportCache, NoNodeIsLogged) {
    file_ap_logging_evt_node record;
    for (const int mode : {1, 2}) {
        expect_logged(3, "perform_file_edit: Evt_node null",
                      [&record, mode] { EXPECT_EQ(perform_file_edit(CACHE, 1, nullptr, &record, mode), 1); });
    }
    EXPECT_FALSE(std::filesystem::exists(CACHE));
}

TEST_F(ApReportCache, AFileThatCannotBeWrittenIsLogged) {
    for (const int mode : {1, 2}) {
        expect_logged(3, "perform_file_edit: Cannot open file /tmp/none/cache to dump cache",
                      [mode] { EXPECT_EQ(edit(1, "a", 5, mode, "/tmp/none/cache"), 1); });
    }
}

TEST_F(ApReportCache, AShortLastRecordStaysBeforeTheNext) {
    const std::string whole = cache_record(1, 5, "a");
    for (const std::string &tail : {std::string("t"), std::string("tail"), cache_record(1, 6, "b").substr(0, 263)}) {
        write_file(CACHE, whole + tail);
        EXPECT_EQ(edit(1, "b", 6, 1), 0);
        EXPECT_EQ(file_text(CACHE), whole + tail + cache_record(1, 6, "b"));
        write_file(CACHE, whole + tail);
        EXPECT_EQ(edit(1, "a", 7, 2), 0);
        EXPECT_EQ(file_text(CACHE), whole + tail + cache_record(1, 7, "a"));
    }
}

TEST_F(ApReportCache, AFullDiskIsSurvived) {
    const pid_t child = start_child([] {
        start_again("1|0|60|0\n");
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit one_record_and_a_part = {300, 300};
        if (setrlimit(RLIMIT_FSIZE, &one_record_and_a_part) != 0)
            _exit(1);
        const bool sent = report(VRE_VAP_DOWN, "one") == 0 && report(VRE_VAP_DOWN, "two") == 0;
        const bool repeated = report(VRE_VAP_DOWN, "one") == 3 && report(VRE_VAP_DOWN, "two") == 3;
        _exit(sent && repeated && posted.size() == 2 ? 0 : 2);
    });
    EXPECT_EQ(wait_for(child), 0);
    const std::string before = cache_record(1, START, "one") + cache_record(1, START, "two").substr(0, 300 - 264);
    EXPECT_EQ(file_text(CACHE), before);
    restart("1|0|60|0\n");
    EXPECT_EQ(texts_of(1), (texts{{"one", START}}));
    EXPECT_EQ(report(VRE_VAP_DOWN, "two"), 0);
    EXPECT_EQ(file_text(CACHE), before + cache_record(1, START, "two"));
}
