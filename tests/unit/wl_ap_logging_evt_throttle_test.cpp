// Which events of the access point are reported: codes, marker files, throttling, and the report's bytes.
#include "wl_ap_logging_evt_fixture.h"

#include <limits>

namespace {

constexpr uint32_t UNSENT = 1;
constexpr uint32_t THROTTLED = 3;
constexpr uint32_t TWELVE_HOURS = 43200;

struct row {
    vre_iw_cmd_t event;
    uint32_t index;
    uint32_t server_code;
};
constexpr row ROWS[] = {
    {VRE_SYSTEM_SERVICE_CRASH_EVT, 67, 0},
    {VRE_INTERNET_DOWN_EVT, 68, 11},
    {VRE_UPGRADE_LOG_EVT, 69, 10},
    {VRE_UPGRADE_SUCCESS_EVT, 70, 16},
    {VRE_LEASEFAIL_EVT, 71, 9},
    {VRE_IP_CONFLICT_EVT, 72, 8},
    {VRE_CONFIG_CHANGE_EVT, 73, 7},
    {VRE_TUNNEL_DOWN, 74, 6},
    {VRE_ETHERNET_UP_DOWN_EVT, 75, 5},
    {VRE_MEM_UTIL_EVT, 76, 4},
    {VRE_REBOOT_EVT, 77, 3},
    {VRE_EVT_TXPOW_CHANGE, 81, 17},
    {VRE_EVT_TXPOW_NOT_CHANGED, 82, 18},
    {VRE_VAP_DOWN, 84, 1},
    {VRE_CL_COUNT_EXCEEDED, 85, 2},
};

class ApReportThrottle : public ApReports {
protected:
    /// Reports a text twice with so many seconds between; result: what the second one gave.
    static int second_after(int32_t seconds, const std::string &configuration) {
        start_again(configuration);
        EXPECT_EQ(report(VRE_VAP_DOWN, "RADIO"), 0);
        clock_seconds += static_cast<uint32_t>(seconds);
        return report(VRE_VAP_DOWN, "RADIO");
    }

    static int send(const wl_evt_info_t &info) {
        return send_ap_ts_info(VRE_VAP_DOWN, &info);
    }
};

}  // namespace

// The server's codes

TEST(ApReportCodes, EveryEventOfTheTableHasItsCode) {
    for (const row &of : ROWS) {
        EXPECT_EQ(static_cast<uint32_t>(of.event), of.index);
        EXPECT_EQ(wl_translate_info_code_for_server(of.index), of.server_code) << of.index;
    }
}

TEST(ApReportCodes, EveryOtherCodeStaysAsItIs) {
    for (uint32_t code = 0; code < 300; code++) {
        const bool listed = std::ranges::any_of(ROWS, [code](const row &of) { return of.index == code; });
        EXPECT_TRUE(listed || wl_translate_info_code_for_server(code) == code) << code;
    }
    for (const uint32_t code : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU, 256U + 84U, 65536U + 84U})
        EXPECT_EQ(wl_translate_info_code_for_server(code), code);
}

TEST_F(ApReportThrottle, EveryReportCarriesTheServersCode) {
    for (const row &of : ROWS) {
        if (of.server_code == 0)
            continue;
        start_again();
        EXPECT_EQ(report(of.index, "text"), 0) << of.index;
        EXPECT_EQ(posted, std::vector{report_of(of.server_code, "text")}) << of.index;
    }
}

TEST_F(ApReportThrottle, CodesThatAreTheServersAlreadyAreReportedUnchanged) {
    for (const uint32_t code : {14U, 15U, 19U, 78U, 83U, 0xFFFFFFFFU}) {
        start_again();
        EXPECT_EQ(report(code, "text"), 0);
        EXPECT_EQ(posted, std::vector{report_of(code, "text")});
    }
}

TEST_F(ApReportThrottle, ACrashedServiceIsNeverReported) {
    for (const uint32_t code : {67U, 0U}) {
        EXPECT_EQ(report(code, "text"), UNSENT);
        EXPECT_EQ(ap_logging_hash_t.entry_count, 0U);
        EXPECT_TRUE(posted.empty());
        expect_logged(3, "wl_ap_ts: No info code mapping to server found... Skipping event ",
                      [code] { report(code, "text"); });
    }
}

TEST_F(ApReportThrottle, TheTranslatedCodeIsLogged) {
    expect_logged(3, "wl_ap_ts:  AP TS Translated Event info code : 11", [] { report(VRE_INTERNET_DOWN_EVT, "x"); });
}

TEST_F(ApReportThrottle, AnUnmappedEventIsNotSaidToBeTranslated) {
    const lines all = lines_at_level(7, [] { report(67, "x"); });
    EXPECT_EQ(all, lines{"wl_ap_ts: No info code mapping to server found... Skipping event "});
}

// The report's bytes

TEST_F(ApReportThrottle, AReportIsEncodedByteByByte) {
    uint8_t value[] = {'U', 'P'};
    wl_evt_info_t info{};
    info.info_code = 0x01020304;
    info.subinfo_code = 0xABCD;
    info.subinfo_value = value;
    info.subinfo_value_len = 2;
    EXPECT_EQ(send(info), 0);
    const byte_string bytes = {0, 6, 1, 2, 3, 4, 0, 1, 0, 4, 0, 0, 0xAB, 0xCD, 0, 2, 0, 2, 'U', 'P'};
    EXPECT_EQ(posted, std::vector{(posted_event{vre_iw_cmd_t{41}, bytes})});
}

TEST_F(ApReportThrottle, AReportWithoutAValueEndsAfterItsSubinfoCode) {
    wl_evt_info_t info{};
    info.info_code = 17;
    info.subinfo_value_len = 99;
    EXPECT_EQ(send(info), 0);
    const byte_string bytes = {0, 6, 0, 0, 0, 17, 0, 1, 0, 4, 0, 0, 0, 0};
    EXPECT_EQ(posted, std::vector{(posted_event{vre_iw_cmd_t{41}, bytes})});
}

TEST_F(ApReportThrottle, AnEmptyValueIsAnItemOfLengthZero) {
    uint8_t value[1] = {};
    wl_evt_info_t info{};
    info.info_code = 1;
    info.subinfo_value = value;
    EXPECT_EQ(send(info), 0);
    EXPECT_EQ(posted, std::vector{report_of(1, "")});
    EXPECT_EQ(posted[0].bytes.size(), 18U);
}

TEST_F(ApReportThrottle, AValueOfAnyBytesIsCopiedAsItIs) {
    byte_string value(256);
    for (size_t at = 0; at < value.size(); at++)
        value[at] = static_cast<uint8_t>(at);
    wl_evt_info_t info{};
    info.info_code = 1;
    info.subinfo_value = value.data();
    info.subinfo_value_len = 256;
    EXPECT_EQ(send(info), 0);
    EXPECT_EQ(posted, std::vector{report_of(1, value)});
}

TEST_F(ApReportThrottle, AReportHasAtMost2048Bytes) {
    byte_string value(0xFFFF, 'x');
    wl_evt_info_t info{};
    info.info_code = 1;
    info.subinfo_value = value.data();
    for (const uint16_t length : {2030, 2031, 0xFFFF}) {
        info.subinfo_value_len = length;
        posted.clear();
        EXPECT_EQ(send(info), 0);
        EXPECT_EQ(posted, std::vector{report_of(1, byte_string(2030, 'x'))});
        EXPECT_EQ(posted[0].bytes.size(), 2048U);
    }
}

TEST_F(ApReportThrottle, TheResultOfTheBusIsNotLookedAt) {
    post_result = -1;
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    EXPECT_EQ(posted.size(), 1U);
}

TEST_F(ApReportThrottle, NoMemoryForAReportIsLogged) {
    wl_evt_info_t info{};
    info.info_code = 1;
    expect_logged(3, "send_ap_ts_info: Malloc error", [&info] {
        fail_every_call("calloc");
        fail_every_call("malloc");
        EXPECT_EQ(send(info), -1);
        EXPECT_GT(faults_fired("calloc") + faults_fired("malloc"), 0);
        clear_faults();
    });
    EXPECT_TRUE(posted.empty());
}

TEST_F(ApReportThrottle, AnAdmittedEventCountsAsSentWithoutMemoryForItsReport) {
    expect_logged(3, "send_ap_ts_info: Malloc error", [] {
        start_again("1|1|60|0\n");
        fail_nth_call("calloc", 1);
        EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
        EXPECT_EQ(faults_fired("calloc"), 1);
        clear_faults();
    });
    EXPECT_TRUE(posted.empty());
}

TEST_F(ApReportThrottle, TheCopiedValueIsLogged) {
    expect_logged(7, "send_ap_ts_info: VRE_RADIO_EVT : Copying subinfo value : RADIO,1 and len : 7 and info code 11",
                  [] {
                      start_again();
                      report(VRE_INTERNET_DOWN_EVT, "RADIO,1");
                  });
}

TEST_F(ApReportThrottle, WithoutAValueNothingIsSaidToBeCopied) {
    wl_evt_info_t info{};
    info.info_code = 1;
    EXPECT_EQ(lines_at_level(7, [&info] { EXPECT_EQ(send(info), 0); }), lines{});
}

// The lines of a report in their order

TEST_F(ApReportThrottle, AReportOfAnUnknownEventLogsItsStepsInOrder) {
    EXPECT_EQ(lines_at_level(7, [] { report(VRE_VAP_DOWN, "text"); }),
              (lines{"wl_ap_ts:  AP TS Translated Event info code : 1",
                     "wl_ap_ts: No Event Throttling configuration found.. Adding 1 with default settings",
                     "wl_ap_ts: Inserting new node into list with id 1",
                     "send_ap_ts_info: VRE_RADIO_EVT : Copying subinfo value : text and len : 4 and info code 1"}));
}

TEST_F(ApReportThrottle, AReportOfANewTextLogsItsStepsInOrder) {
    start_again("1|0|60|0\n");
    EXPECT_EQ(lines_at_level(7, [] { report(VRE_VAP_DOWN, "text"); }),
              (lines{"wl_ap_ts:  AP TS Translated Event info code : 1", "compare_evt_id:  info code match",
                     "wl_ap_ts: No old AP_TS entry for evt_id  1",
                     "perform_file_edit: Writing to file cache : id 1, buf text, time 1000",
                     "send_ap_ts_info: VRE_RADIO_EVT : Copying subinfo value : text and len : 4 and info code 1"}));
}

TEST_F(ApReportThrottle, AReportOfARepeatedTextLogsItsStepsInOrder) {
    start_again("1|0|60|0\n");
    report(VRE_VAP_DOWN, "text");
    clock_seconds += 60;
    EXPECT_EQ(lines_at_level(7, [] { report(VRE_VAP_DOWN, "text"); }),
              (lines{"wl_ap_ts:  AP TS Translated Event info code : 1", "compare_evt_id:  info code match",
                     "wl_ap_ts: Found old entry in cache which need updation for evt_id  1",
                     "edit_log_timestamp: Starting to go through file to edit cache file  1",
                     "edit_log_timestamp: FOund old entry for evt_id  1",
                     "send_ap_ts_info: VRE_RADIO_EVT : Copying subinfo value : text and len : 4 and info code 1"}));
}

TEST_F(ApReportThrottle, AThrottledTextLogsItsStepsInOrder) {
    start_again("1|0|60|0\n");
    report(VRE_VAP_DOWN, "text");
    EXPECT_EQ(lines_at_level(7, [] { report(VRE_VAP_DOWN, "text"); }),
              (lines{"wl_ap_ts:  AP TS Translated Event info code : 1", "compare_evt_id:  info code match",
                     "wl_ap_ts: Found old entry in cache which need updation for evt_id  1",
                     "wl_ap_ts: Throttiling evt : 1 since time : 0 < 60"}));
}

// Marker files

TEST_F(ApReportThrottle, MarkerFilesAreLookedAtInTheirOrder) {
    const std::string reconfiguring = "wl_ap_ts: MOD operation in progress... skipping event : VRE.vap_down";
    const std::string unconnected = "wl_ap_ts: SENSORD not connected with server... skipping event : VRE.vap_down";
    const std::string offline = "wl_ap_ts: AP in offline mode... Skipping event : VRE.vap_down";
    struct {
        bool reconfiguring, connected, offline;
        std::string line;  // empty: reported
    } const cases[] = {
        {false, false, false, unconnected}, {false, false, true, unconnected},   {false, true, false, ""},
        {false, true, true, offline},       {true, false, false, reconfiguring}, {true, false, true, reconfiguring},
        {true, true, false, reconfiguring}, {true, true, true, reconfiguring},
    };
    for (const auto &of : cases) {
        start_again();
        set_markers(of.reconfiguring, of.connected, of.offline);
        int result = -1;
        const lines all = lines_at_level(3, [&result] { result = report(VRE_VAP_DOWN, "text"); });
        EXPECT_EQ(result, of.line.empty() ? 0 : 1);
        EXPECT_EQ(posted.size(), of.line.empty() ? 1U : 0U);
        EXPECT_EQ(ap_logging_hash_t.entry_count, posted.size());
        EXPECT_EQ(clock_reads, 1);
        EXPECT_TRUE(of.line.empty() || all == lines{of.line}) << testing::PrintToString(all);
    }
}

TEST_F(ApReportThrottle, SkippedEventsAreLoggedAtLevel3) {
    const auto scenario = [](bool reconfiguring, bool connected, bool offline) {
        return [=] {
            start_again();
            set_markers(reconfiguring, connected, offline);
            report(VRE_VAP_DOWN, "text");
        };
    };
    expect_logged(3, "wl_ap_ts: MOD operation in progress... skipping event : VRE.vap_down",
                  scenario(true, true, false));
    expect_logged(3, "wl_ap_ts: SENSORD not connected with server... skipping event : VRE.vap_down",
                  scenario(false, false, false));
    expect_logged(3, "wl_ap_ts: AP in offline mode... Skipping event : VRE.vap_down", scenario(false, true, true));
}

TEST_F(ApReportThrottle, TheNameOfASkippedEventIsThatOfTheFirstArgument) {
    set_markers(false, true, true);
    const std::string skipped = "wl_ap_ts: AP in offline mode... Skipping event : ";
    EXPECT_EQ(lines_at_level(3, [] { report(14, "x", VRE_EVT_CHAN_INFO); }),
              lines{skipped + "VRE.evt_chan_debug_info"});
    for (const int unnamed : {80, -1, 109, std::numeric_limits<int>::min()})
        EXPECT_EQ(lines_at_level(3, [unnamed] { report(14, "x", unnamed); }), lines{skipped + "(null)"});
}

TEST_F(ApReportThrottle, MarkerFilesComeBeforeTheTranslation) {
    set_markers(false, true, true);
    EXPECT_EQ(lines_at_level(3, [] { report(67, "x"); }),
              lines{"wl_ap_ts: AP in offline mode... Skipping event : VRE.vap_down"});
}

TEST_F(ApReportThrottle, ASkippedEventDoesNotThrottleALaterOne) {
    set_markers(false, false, false);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), UNSENT);
    set_markers(false, true, false);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    EXPECT_EQ(posted.size(), 1U);
}

TEST_F(ApReportThrottle, AMarkerMayBeADirectory) {
    std::filesystem::create_directory(RECONFIGURING);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), UNSENT);
}

// An event that has no entry

TEST_F(ApReportThrottle, AnUnknownEventGetsTheDefaultsAndIsSent) {
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    const ap_logging_evt_data *const data = find_evt_data(1);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->evt_id, 1U);
    EXPECT_EQ(data->throttle_disabled, 0);
    EXPECT_EQ(data->logging_file, 0);
    EXPECT_EQ(data->throttle_delta, 43200);
    EXPECT_EQ(texts_of(1), (std::vector{std::pair{std::string("text"), START}}));
    EXPECT_EQ(posted.size(), 1U);
}

TEST_F(ApReportThrottle, TheFirstReportOfAnUnknownEventIsNotWrittenToTheCacheFile) {
    report(VRE_VAP_DOWN, "text");
    EXPECT_FALSE(std::filesystem::exists(CACHE));
    report(VRE_VAP_DOWN, "other");
    EXPECT_EQ(file_text(CACHE), cache_record(1, START, "other"));
}

TEST_F(ApReportThrottle, AnUnknownEventIsLogged) {
    const auto scenario = [] {
        start_again();
        report(VRE_VAP_DOWN, "text");
    };
    expect_logged(3, "wl_ap_ts: No Event Throttling configuration found.. Adding 1 with default settings", scenario);
    expect_logged(7, "wl_ap_ts: Inserting new node into list with id 1", scenario);
}

TEST_F(ApReportThrottle, TheDefaultIntervalIsTwelveHours) {
    EXPECT_EQ(second_after(TWELVE_HOURS - 1, ""), THROTTLED);
    EXPECT_EQ(second_after(TWELVE_HOURS, ""), 0);
}

TEST_F(ApReportThrottle, NoMemoryForAnEntry) {
    for (const char *const function : {"calloc", "malloc"}) {
        expect_logged(3, "wl_ap_ts: Could not create a Evt hash entry.", [function] {
            start_again();
            fail_nth_call(function, 1);
            EXPECT_EQ(report(VRE_VAP_DOWN, "text"), UNSENT);
            EXPECT_EQ(faults_fired(function), 1);
            clear_faults();
        });
        EXPECT_EQ(ap_logging_hash_t.entry_count, 0U);
        EXPECT_TRUE(posted.empty());
    }
}

TEST_F(ApReportThrottle, NoMemoryForTheTextOfAnUnknownEvent) {
    expect_logged(3, "wl_ap_ts: Failed to create evt_node instance", [] {
        start_again();
        fail_nth_call("calloc", 2);
        EXPECT_EQ(report(VRE_VAP_DOWN, "text"), UNSENT);
        EXPECT_EQ(faults_fired("calloc"), 1);
        clear_faults();
    });
    EXPECT_TRUE(posted.empty());
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
}

TEST_F(ApReportThrottle, NoMemoryForTheTextOfAKnownEvent) {
    expect_logged(3, "wl_ap_ts: Failed to create evt_node instance", [] {
        start_again("1|0|60|0\n");
        fail_nth_call("calloc", 1);
        EXPECT_EQ(report(VRE_VAP_DOWN, "text"), UNSENT);
        EXPECT_EQ(faults_fired("calloc"), 1);
        clear_faults();
    });
    EXPECT_TRUE(posted.empty());
    EXPECT_FALSE(std::filesystem::exists(CACHE));
}

TEST_F(ApReportThrottle, EveryAllocationOfAReportMayFail) {
    for (const std::string configuration : {"", "1|0|60|0\n"}) {
        int faults = 0;
        for (const char *const function : {"calloc", "malloc"}) {
            int fired = 1;
            for (int nth = 1; fired > 0; nth++) {
                ASSERT_LT(nth, 20);
                start_again(configuration);
                fail_nth_call(function, nth);
                const int result = report(VRE_VAP_DOWN, "text");
                fired = faults_fired(function);
                clear_faults();
                EXPECT_TRUE(result == 0 || result == 1) << function << nth;
                EXPECT_LE(posted.size(), result == 0 ? 1U : 0U);
                report(VRE_VAP_DOWN, "other");
                EXPECT_FALSE(posted.empty());
                faults += fired;
            }
        }
        EXPECT_GT(faults, 0) << configuration;
    }
}

TEST_F(ApReportThrottle, AModuleThatIsNotSetUpReportsNothing) {
    hash_table_destroy(&ap_logging_hash_t);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), UNSENT);
    EXPECT_TRUE(posted.empty());
}

// Throttling switched off

TEST_F(ApReportThrottle, WithThrottlingDisabledEveryOccurrenceIsSent) {
    start_again("1|1|60|0\n");
    for (int n = 0; n < 3; n++)
        EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    EXPECT_EQ(posted.size(), 3U);
    EXPECT_TRUE(texts_of(1).empty());
    EXPECT_FALSE(std::filesystem::exists(CACHE));
}

TEST_F(ApReportThrottle, DisabledThrottlingIsLogged) {
    start_again("1|255|60|0\n");
    expect_logged(3, "wl_ap_ts: Throttling disabled.. sending 1 to server", [] { report(VRE_VAP_DOWN, "text"); });
}

// A text that was reported

TEST_F(ApReportThrottle, ARepeatedTextIsThrottledWithinTheInterval) {
    EXPECT_EQ(second_after(0, "1|0|60|0\n"), THROTTLED);
    EXPECT_EQ(second_after(59, "1|0|60|0\n"), THROTTLED);
    EXPECT_EQ(posted.size(), 1U);
}

TEST_F(ApReportThrottle, ARepeatedTextIsSentAtTheEndOfTheInterval) {
    EXPECT_EQ(second_after(60, "1|0|60|0\n"), 0);
    EXPECT_EQ(posted, (std::vector{report_of(1, "RADIO"), report_of(1, "RADIO")}));
    EXPECT_EQ(texts_of(1), (std::vector{std::pair{std::string("RADIO"), START + 60}}));
}

TEST_F(ApReportThrottle, AThrottledTextDoesNotProlongTheInterval) {
    EXPECT_EQ(second_after(59, "1|0|60|0\n"), THROTTLED);
    clock_seconds++;
    EXPECT_EQ(report(VRE_VAP_DOWN, "RADIO"), 0);
}

TEST_F(ApReportThrottle, ASentTextBeginsTheIntervalAnew) {
    EXPECT_EQ(second_after(60, "1|0|60|0\n"), 0);
    clock_seconds += 59;
    EXPECT_EQ(report(VRE_VAP_DOWN, "RADIO"), THROTTLED);
}

TEST_F(ApReportThrottle, ARepeatedTextIsLogged) {
    const auto scenario = [] { second_after(59, "1|0|60|0\n"); };
    expect_logged(7, "wl_ap_ts: Found old entry in cache which need updation for evt_id  1", scenario);
    expect_logged(7, "wl_ap_ts: Throttiling evt : 1 since time : 59 < 60", scenario);
}

TEST_F(ApReportThrottle, AHitInTheTableIsTraced) {
    start_again("1|0|60|0\n");
    log_capture log(7);
    EXPECT_NE(find_evt_data(1), nullptr);
    const lines hit = log.lines();
    EXPECT_EQ(find_evt_data(101), nullptr);
    ASSERT_EQ(hit.size(), 1U);
    EXPECT_TRUE(hit[0].ends_with(":  info code match")) << hit[0];
    EXPECT_EQ(log.lines(), hit);
}

TEST_F(ApReportThrottle, IdsOfOneBucketAreKeptApart) {
    start_again("301|1|1|1\n1|1|1|1\n201|1|1|1\n101|1|1|1\n4294967201|1|1|1\n");
    EXPECT_EQ(ap_logging_hash_t.table_size, 100U);
    for (const uint32_t id : {1U, 101U, 201U, 301U}) {
        ASSERT_NE(find_evt_data(id), nullptr);
        EXPECT_EQ(find_evt_data(id)->evt_id, id);
    }
    EXPECT_EQ(find_evt_data(401), nullptr);
}

TEST_F(ApReportThrottle, AnotherTextIsNotThrottled) {
    start_again("1|0|60|0\n");
    EXPECT_EQ(report(VRE_VAP_DOWN, "one"), 0);
    EXPECT_EQ(report(VRE_VAP_DOWN, "two"), 0);
    EXPECT_EQ(report(VRE_VAP_DOWN, "on"), 0);
    EXPECT_EQ(report(VRE_VAP_DOWN, "ONE"), 0);
    EXPECT_EQ(report(VRE_VAP_DOWN, "one"), THROTTLED);
    EXPECT_EQ(posted.size(), 4U);
    EXPECT_EQ(texts_of(1).size(), 4U);
}

TEST_F(ApReportThrottle, ANewTextIsLogged) {
    expect_logged(7, "wl_ap_ts: No old AP_TS entry for evt_id  1", [] {
        start_again("1|0|60|0\n");
        report(VRE_VAP_DOWN, "text");
    });
}

TEST_F(ApReportThrottle, TheSameTextOfAnotherEventIsNotThrottled) {
    start_again("1|0|60|0\n17|0|60|0\n");
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    EXPECT_EQ(report(VRE_EVT_TXPOW_CHANGE, "text"), 0);
    EXPECT_EQ(posted.size(), 2U);
}

TEST_F(ApReportThrottle, TheSearchMeetsTheFirstOfEqualTexts) {
    start_again("1|0|60|1\n");
    ap_logging_evt_data *const data = find_evt_data(1);
    ASSERT_NE(add_evt_node(data, START - 60, "text"), nullptr);
    ASSERT_NE(add_evt_node(data, START, "text"), nullptr);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), THROTTLED);
}

// Clocks

TEST_F(ApReportThrottle, ATimeInTheFutureThrottles) {
    EXPECT_EQ(second_after(-1, "1|0|60|0\n"), THROTTLED);
    EXPECT_EQ(second_after(-1, "1|0|0|0\n"), THROTTLED);
    EXPECT_EQ(second_after(std::numeric_limits<int32_t>::min(), "1|0|60|0\n"), THROTTLED);
    EXPECT_TRUE(holds(lines_at_level(7, [] { second_after(-5, "1|0|60|0\n"); }),
                      "wl_ap_ts: Throttiling evt : 1 since time : -5 < 60"));
}

TEST_F(ApReportThrottle, AnIntervalOfZeroDoesNotThrottle) {
    EXPECT_EQ(second_after(0, "1|0|0|0\n"), 0);
}

TEST_F(ApReportThrottle, ANegativeIntervalDoesNotThrottle) {
    for (const int32_t seconds : {-10, 0, 1000})
        EXPECT_EQ(second_after(seconds, "1|0|-10|0\n"), 0) << seconds;
    EXPECT_EQ(second_after(0, "1|0|-2147483648|0\n"), 0);
}

TEST_F(ApReportThrottle, DifferencesOfTimesAreSigned32BitNumbers) {
    EXPECT_EQ(second_after(std::numeric_limits<int32_t>::max(), "1|0|2147483647|0\n"), 0);
    start_again("1|0|60|1\n");
    ASSERT_NE(add_evt_node(find_evt_data(1), 0xFFFFFFF0, "text"), nullptr);
    clock_seconds = 43;  // 59 seconds later
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), THROTTLED);
    clock_seconds = 44;
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), 0);
}

// What of a text counts

TEST_F(ApReportThrottle, ATextOf254CharactersIsThrottled) {
    start_again("1|0|60|0\n");
    const std::string text(254, 'x');
    EXPECT_EQ(report(VRE_VAP_DOWN, text), 0);
    EXPECT_EQ(report(VRE_VAP_DOWN, text), THROTTLED);
    EXPECT_EQ(report(VRE_VAP_DOWN, text.substr(1)), 0);
    EXPECT_EQ(posted[0], report_of(1, text));
}

TEST_F(ApReportThrottle, ALongerTextIsNeverThrottled) {
    for (const size_t length : {255U, 256U, 1000U}) {
        start_again("1|0|60|0\n");
        const std::string text(length, 'x');
        EXPECT_EQ(report(VRE_VAP_DOWN, text), 0);
        EXPECT_EQ(report(VRE_VAP_DOWN, text), 0);
        EXPECT_EQ(posted, (std::vector{report_of(1, text), report_of(1, text)}));
        EXPECT_EQ(texts_of(1).size(), 2U);
        EXPECT_EQ(file_text(CACHE),
                  cache_record(1, START, std::string(254, 'x')) + cache_record(1, START, std::string(254, 'x')));
    }
}

TEST_F(ApReportThrottle, AnAbsentValueCountsAsAnEmptyText) {
    start_again("1|0|60|0\n");
    wl_evt_info_t info{};
    info.info_code = VRE_VAP_DOWN;
    EXPECT_EQ(wl_ap_ts(VRE_VAP_DOWN, &info, 0), 0);
    EXPECT_EQ(info.info_code, 1u) << "the server's code is the record's now";
    info.info_code = VRE_VAP_DOWN;
    EXPECT_EQ(wl_ap_ts(VRE_VAP_DOWN, &info, 0), THROTTLED);
    EXPECT_EQ(report(VRE_VAP_DOWN, ""), THROTTLED);
    EXPECT_EQ(posted, std::vector{(posted_event{vre_iw_cmd_t{41}, {0, 6, 0, 0, 0, 1, 0, 1, 0, 4, 0, 0, 0, 0}})});
    EXPECT_EQ(file_text(CACHE), cache_record(1, START, ""));
}

TEST_F(ApReportThrottle, TheComparedTextEndsAtANul) {
    start_again("1|0|60|0\n");
    const std::string value("text\0one", 8);
    EXPECT_EQ(report(VRE_VAP_DOWN, value), 0);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), THROTTLED);
    EXPECT_EQ(posted, std::vector{report_of(1, value)});
    EXPECT_EQ(file_text(CACHE), cache_record(1, START, "text"));
}

TEST_F(ApReportThrottle, TheSubinfoCodeTravelsAlong) {
    wl_evt_info_t info{};
    info.info_code = VRE_REBOOT_EVT;
    info.subinfo_code = 513;
    EXPECT_EQ(wl_ap_ts(VRE_REBOOT_EVT, &info, 0), 0);
    EXPECT_EQ(posted[0].bytes, (byte_string{0, 6, 0, 0, 0, 3, 0, 1, 0, 4, 0, 0, 2, 1}));
}

// The cache file

TEST_F(ApReportThrottle, ANewTextIsAppendedToTheCacheFile) {
    start_again("1|0|60|0\n");
    report(VRE_VAP_DOWN, "one");
    clock_seconds++;
    report(VRE_VAP_DOWN, "two");
    EXPECT_EQ(file_text(CACHE), cache_record(1, START, "one") + cache_record(1, START + 1, "two"));
}

TEST_F(ApReportThrottle, AThrottledTextIsNotWritten) {
    EXPECT_EQ(second_after(59, "1|0|60|0\n"), THROTTLED);
    EXPECT_EQ(file_text(CACHE), cache_record(1, START, "RADIO"));
}

TEST_F(ApReportThrottle, ATextThatIsSentAgainIsAppendedWithItsNewTime) {
    EXPECT_EQ(second_after(60, "1|0|60|0\n"), 0);
    EXPECT_EQ(file_text(CACHE), cache_record(1, START, "RADIO") + cache_record(1, START + 60, "RADIO"));
}

TEST_F(ApReportThrottle, WithTheFlagSetNothingIsWritten) {
    EXPECT_EQ(second_after(60, "1|0|60|1\n"), 0);
    EXPECT_EQ(posted.size(), 2U);
    EXPECT_FALSE(std::filesystem::exists(CACHE));
}

TEST_F(ApReportThrottle, ANewTextThatCannotBeWrittenIsNotSent) {
    start_again("1|0|60|0\n");
    std::filesystem::create_directory(CACHE);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), UNSENT);
    EXPECT_TRUE(posted.empty());
    EXPECT_EQ(texts_of(1).size(), 1U);
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), THROTTLED);
}

TEST_F(ApReportThrottle, ARepeatedTextThatCannotBeWrittenIsNotSent) {
    start_again("1|0|60|0\n");
    report(VRE_VAP_DOWN, "text");
    std::filesystem::remove(CACHE);
    std::filesystem::create_directory(CACHE);
    clock_seconds += 60;
    EXPECT_EQ(report(VRE_VAP_DOWN, "text"), UNSENT);
    EXPECT_EQ(posted.size(), 1U);
    EXPECT_EQ(texts_of(1), (std::vector{std::pair{std::string("text"), START + 60}}));
}

TEST_F(ApReportThrottle, ALostCacheFileIsBegunAnew) {
    start_again("1|0|60|0\n");
    report(VRE_VAP_DOWN, "one");
    std::filesystem::remove(CACHE);
    clock_seconds += 60;
    EXPECT_EQ(report(VRE_VAP_DOWN, "one"), 0);  // there is no record to be written again
    EXPECT_EQ(file_text(CACHE), "");
    EXPECT_EQ(report(VRE_VAP_DOWN, "two"), 0);
    EXPECT_EQ(file_text(CACHE), cache_record(1, START + 60, "two"));
}
