// What each event says about a failure: codes, messages, the alert of a full SSID, the four slots.
#include "wl_client_ts_verdict_fixture.h"

#include "wl_ap_logging_evt.h"

namespace {

/// An SSID alert as it was handed on, its value copied.
struct alert {
    int event;
    int size;
    wl_evt_info_t info;
    std::string value;
};

std::vector<alert> alerts;

}  // namespace

int __wrap_wl_ap_ts(vre_iw_cmd_t event, wl_evt_info_t *info,
                    int len) asm("__wrap__Z8wl_ap_ts12vre_iw_cmd_tP11wl_evt_infoi");
int __wrap_wl_ap_ts(vre_iw_cmd_t event, wl_evt_info_t *info, int len) {
    alerts.push_back(
        {event, len, *info, std::string(reinterpret_cast<const char *>(info->subinfo_value), info->subinfo_value_len)});
    return 0;
}

namespace {

/// A row of the failure table.
struct row {
    uint32_t info;
    uint16_t sub;
    bool dot1x;
    uint8_t code;
    uint16_t reported_sub;
    const char *message;  // null: none of its own
};

const row ROWS[] = {
    {5, 17, false, 1, 17, "CONN INFO: Assoc failure -failure code 1, subinfo code 17"},
    {5, 10, false, 2, 10, "CONN INFO: Assoc failure -failure code 2, subinfo code 10"},
    {5, 1, false, 3, 1, "CONN INFO: Assoc failure -failure code 3, subinfo code 1"},
    {5, 12, false, 3, 12, "CONN INFO: Assoc failure -failure code 3, subinfo code 12"},
    {5, 52, false, 3, 52, "CONN INFO: Assoc failure -failure code 3, subinfo code 52"},
    {5, 56, false, 3, 56, "CONN INFO: Assoc failure -failure code 3, subinfo code 56"},
    {5, 65535, false, 3, 65535, "CONN INFO: Assoc failure -failure code 3, subinfo code 65535"},
    {15, 2, false, 4, 2, "CONN INFO: Radius auth fail - Error code 4, subinfo code 2"},
    {15, 5, false, 4, 5, "CONN INFO: Radius auth fail - Error code 4, subinfo code 5"},
    {15, 12, false, 4, 12, "CONN INFO: Radius auth fail - Error code 4, subinfo code 12"},
    {15, 803, false, 4, 803, "CONN INFO: Radius auth fail - Error code 4, subinfo code 803"},
    {15, 809, false, 4, 809, "CONN INFO: Radius auth fail - Error code 4, subinfo code 809"},
    {15, 846, false, 4, 846, "CONN INFO: Radius auth fail - Error code 4, subinfo code 846"},
    {15, 7, false, 6, 7, "CONN INFO: Radius server not reachable - Error code 6, subinfo code 7"},
    {15, 8, false, 6, 8, "CONN INFO: Radius server not reachable - Error code 6, subinfo code 8"},
    {1, 14, false, 7, 14, "CONN INFO: MIC Client failure code 7, subinfo code 14"},
    {1, 14, true, 8, 14, "CONN INFO: MIC Client failure code 8, subinfo code 14"},
    {1, 15, false, 8, 15, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 15"},
    {1, 16, false, 8, 16, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 16"},
    {1, 17, true, 8, 17, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 17"},
    {1, 18, false, 8, 18, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 18"},
    {1, 19, false, 8, 19, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 19"},
    {1, 20, false, 8, 20, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 20"},
    {1, 21, false, 8, 21, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 21"},
    {1, 22, false, 8, 22, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 22"},
    {1, 40, false, 8, 40, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 40"},
    {1, 41, true, 8, 41, "CONN INFO: WPA handshake fail - Error code 8, subinfo code 41"},
    {22, 0, false, 9, 0, "CONN INFO: Roaming failure - failure code 9, subinfo code 0"},
    {22, 2, false, 9, 2, "CONN INFO: Roaming failure - failure code 9, subinfo code 2"},
    {8, 1, false, 10, 1, nullptr},
    {8, 2, false, 11, 2, nullptr},
    {8, 3, false, 11, 3, nullptr},
    {8, 6, false, 11, 6, nullptr},
    {8, 4, false, 12, 4, nullptr},
    {21, 3, false, 14, 3, "CONN INFO: DNS failure - failure code 14, subinfo code 3"},
    {3, 1, false, 16, 1, "CONN INFO: Auth failure - failure code 16, subinfo code 1"},
    {3, 17, false, 16, 17, "CONN INFO: Auth failure - failure code 16, subinfo code 17"},
    {1, 45, false, 17, 45, "CONN INFO: GAUTH failed - failure code 17, subinfo code 45"},
    {25, 0, false, 18, 0, "CONN INFO: IP failure - failure code 18, subinfo code 0"},
    {25, 2, false, 18, 2, "CONN INFO: IP failure - failure code 18, subinfo code 2"},
    {26, 0, false, 18, 3, "CONN INFO: IP Conflict - failure code 18, subinfo code 3"},
    {26, 7, false, 18, 3, "CONN INFO: IP Conflict - failure code 18, subinfo code 3"},
};

/// The code of the table for an event; 0 when it has no row.
int code_of(uint32_t info, uint16_t sub, bool dot1x) {
    struct range {
        uint32_t info;
        int first;
        int last;
        int code;
    };
    // The first that holds the event counts.
    static const range TABLE[] = {
        {5, 0, 0, 0},   {5, 17, 17, 1},    {5, 10, 10, 2},     {5, 53, 55, 0},     {5, 1, 65535, 3},  {15, 2, 2, 4},
        {15, 5, 5, 4},  {15, 12, 12, 4},   {15, 803, 803, 4},  {15, 809, 809, 4},  {15, 846, 846, 4}, {15, 7, 8, 6},
        {1, 14, 14, 7}, {1, 15, 22, 8},    {1, 40, 41, 8},     {1, 45, 45, 17},    {22, 1, 1, 0},     {22, 0, 65535, 9},
        {8, 1, 1, 10},  {8, 2, 3, 11},     {8, 6, 6, 11},      {8, 4, 4, 12},      {21, 3, 3, 14},    {3, 0, 0, 0},
        {3, 53, 55, 0}, {3, 1, 65535, 16}, {25, 0, 65535, 18}, {26, 0, 65535, 18},
    };
    for (const range &one : TABLE)
        if (one.info == info && sub >= one.first && sub <= one.last)
            return one.code == 7 && dot1x ? 8 : one.code;
    return 0;
}

class ClientFailure : public VerdictFixture {
protected:
    ClientFailure() {
        alerts.clear();
    }

    static own_record own_attempt(unsigned client = 1, const std::string &ssid = "net") {
        return own_record(attempt(client, ssid));
    }

    static own_record attempt_of(const row &wanted) {
        own_record rec = own_attempt();
        rec->is_dot1x = wanted.dot1x;
        return rec;
    }
};

std::string trace_of(const row &wanted) {
    return "info " + std::to_string(wanted.info) + " sub " + std::to_string(wanted.sub) + " dot1x " +
           std::to_string(wanted.dot1x);
}

// ---- What an event says ----

TEST_F(ClientFailure, EachRowOfTheTableStoresItsCodeAndSubInTheFirstSlot) {
    for (const row &wanted : ROWS) {
        SCOPED_TRACE(trace_of(wanted));
        const own_record rec = attempt_of(wanted);
        check(rec, wanted.info, wanted.sub);
        EXPECT_EQ(codes(*rec), (std::vector<int>{wanted.code, 0, 0, 0}));
        EXPECT_EQ(subs(*rec), (std::vector<int>{wanted.reported_sub, 0, 0, 0}));
    }
}

TEST_F(ClientFailure, EachRowOfTheTableIsReportedOnceAsAFailure) {
    for (const row &wanted : ROWS) {
        SCOPED_TRACE(trace_of(wanted));
        const own_record rec = attempt_of(wanted);
        check(rec, wanted.info, wanted.sub);
        const std::vector<report> reports = take_reports();
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_EQ(reports[0].mac(), mac_of(1));
        EXPECT_EQ(reports[0].outcome(), 0);
        EXPECT_EQ(reports[0].failure(), code_and_sub(wanted.code, wanted.reported_sub));
        EXPECT_EQ(rec->is_rec_sent_to_server, 1);
    }
}

TEST_F(ClientFailure, EachRowOfTheTableGivesTheWordOfItsOwnSub) {
    for (const row &wanted : ROWS) {
        SCOPED_TRACE(trace_of(wanted));
        const own_record rec = attempt_of(wanted);
        const uint32_t word = wanted.info * 65536 + wanted.sub;
        EXPECT_EQ(check(rec, wanted.info, wanted.sub), word);
        EXPECT_EQ(rec->rcvd_err_evt, word);
    }
}

TEST_F(ClientFailure, EachRowOfTheTableSaysItsMessageAtLevel6) {
    for (const row &wanted : ROWS) {
        SCOPED_TRACE(trace_of(wanted));
        const own_record rec = attempt_of(wanted);
        log_capture log(6);
        check(rec, wanted.info, wanted.sub);
        lines expected;
        if (wanted.message != nullptr)
            expected.push_back(wanted.message);
        expected.push_back("CONN INFO: Client failure code " + std::to_string(wanted.code) + ", subinfo code " +
                           std::to_string(wanted.reported_sub));
        EXPECT_EQ(lines_of(log.lines(), "check_err_code"), expected);
    }
}

TEST_F(ClientFailure, NoRowOfTheTableSaysAnythingBelowLevel6) {
    for (const row &wanted : ROWS) {
        SCOPED_TRACE(trace_of(wanted));
        const own_record rec = attempt_of(wanted);
        log_capture log(5);
        check(rec, wanted.info, wanted.sub);
        EXPECT_EQ(log.lines(), lines());
    }
}

TEST_F(ClientFailure, OnlyTheRowsOfTheTableSetACode) {
    std::vector<uint16_t> all_subs = {65535, 1000, 32768};
    for (int sub = 0; sub < 70; sub++)
        all_subs.push_back(static_cast<uint16_t>(sub));
    for (int sub = 795; sub < 850; sub++)
        all_subs.push_back(static_cast<uint16_t>(sub));
    for (uint32_t info = 0; info < 107; info++) {
        for (const uint16_t sub : all_subs) {
            for (const bool dot1x : {false, true}) {
                const own_record rec = own_attempt();
                rec->is_dot1x = dot1x;
                check(rec, info, sub);
                ASSERT_EQ(rec->failure_code[0], code_of(info, sub, dot1x)) << "info " << info << " sub " << sub;
                ASSERT_EQ(take_reports().size(), rec->failure_code[0] != 0 ? 1u : 0u);
            }
        }
    }
}

TEST_F(ClientFailure, EventsOfNoRowAreNoErrors) {
    const own_record rec = own_attempt();
    rec->rcvd_err_evt = 0x00010005;
    const std::pair<uint32_t, uint16_t> harmless[] = {{1, 13}, {1, 23}, {3, 0},  {5, 0},  {8, 0},    {8, 5},  {9, 0},
                                                      {14, 1}, {15, 1}, {15, 9}, {16, 0}, {15, 801}, {21, 0}, {21, 1},
                                                      {21, 2}, {22, 1}, {23, 0}, {27, 0}, {65561, 0}};
    log_capture log(7);
    for (const auto &[info, sub] : harmless)
        EXPECT_EQ(check(rec, info, sub), 0u) << info << '/' << sub;
    EXPECT_EQ(rec->rcvd_err_evt, 0x00010005u);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientFailure, ALaterErrorReplacesTheErrorWord) {
    const own_record rec = own_attempt();
    check(rec, 15, 2);
    check(rec, 1, 14);
    EXPECT_EQ(rec->rcvd_err_evt, 0x0001000Eu);
}

TEST_F(ClientFailure, RadiusTimeoutsAreErrorsThatAreNotReported) {
    for (const uint16_t sub : {uint16_t{10}, uint16_t{17}}) {
        const own_record rec = own_attempt();
        log_capture log(6);
        EXPECT_EQ(check(rec, 15, sub), 15u * 65536 + sub);
        EXPECT_EQ(rec->rcvd_err_evt, 15u * 65536 + sub);
        EXPECT_EQ(codes(*rec), std::vector<int>(4));
        EXPECT_EQ(rec->is_rec_sent_to_server, 0);
        EXPECT_EQ(log.lines(), (lines{"check_err_code: CONN INFO: Auth timedout - Error code 0, subinfo code " +
                                      std::to_string(sub)}));
    }
    EXPECT_TRUE(take_reports().empty());
}

TEST_F(ClientFailure, RadiusTimeoutsSayNothingBelowLevel6) {
    const own_record rec = own_attempt();
    log_capture log(5);
    check(rec, 15, 10);
    check(rec, 15, 17);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientFailure, RequestsAndResponsesSetTheState) {
    const own_record rec = own_attempt();
    EXPECT_EQ(rec->state, 0);
    for (uint8_t state = 1; state <= 4; state++) {
        check(rec, state + 1u, 0);
        EXPECT_EQ(rec->state, state);
    }
}

TEST_F(ClientFailure, AnAuthenticationResponseLowersTheStateOfARequestedAssociation) {
    const own_record rec = own_attempt();
    check(rec, 4, 0);
    check(rec, 3, 0);
    EXPECT_EQ(rec->state, 2);
}

TEST_F(ClientFailure, FailedResponsesSetTheStateToo) {
    const own_record rec = own_attempt();
    check(rec, 3, 1);
    EXPECT_EQ(rec->state, 2);
    check(rec, 5, 1);
    EXPECT_EQ(rec->state, 4);
}

TEST_F(ClientFailure, OtherEventsLeaveTheStateAlone) {
    const own_record rec = own_attempt();
    rec->state = 3;
    for (uint32_t info = 0; info < 110; info++)
        if (info < 2 || info > 5)
            check(rec, info, 2);
    EXPECT_EQ(rec->state, 3);
}

TEST_F(ClientFailure, AnIgnoredAssociationFailureOnlySetsTheState) {
    for (const uint16_t status : {uint16_t{1}, uint16_t{10}, uint16_t{17}}) {
        const own_record rec = own_attempt();
        rec->ignore_assoc_fail = 1;
        log_capture log(7);
        EXPECT_EQ(check(rec, 5, status), 0u);
        EXPECT_EQ(rec->state, 4);
        EXPECT_EQ(rec->rcvd_err_evt, 0u);
        EXPECT_EQ(codes(*rec), std::vector<int>(4));
        EXPECT_EQ(log.lines(), lines());
    }
    EXPECT_TRUE(alerts.empty());
    EXPECT_TRUE(take_reports().empty());
}

TEST_F(ClientFailure, AnAuthenticationFailureIsNotIgnoredWithTheAssociationFailures) {
    const own_record rec = own_attempt();
    rec->ignore_assoc_fail = 1;
    check(rec, 3, 1);
    EXPECT_EQ(rec->failure_code[0], 16);
}

TEST_F(ClientFailure, FastTransitionStatusesAreNoFailures) {
    for (const uint32_t info : {3u, 5u}) {
        for (const uint16_t status : {uint16_t{53}, uint16_t{54}, uint16_t{55}}) {
            const own_record rec = own_attempt();
            log_capture log(6);
            EXPECT_EQ(check(rec, info, status), 0u);
            EXPECT_EQ(rec->state, info - 1);
            EXPECT_EQ(rec->rcvd_err_evt, 0u);
            EXPECT_EQ(codes(*rec), std::vector<int>(4));
            EXPECT_EQ(log.lines(), (lines{"check_for_11r_failures: CONN INFO: Ignore 11r related Auth/Assoc failures, "
                                          "reason code " +
                                          std::to_string(status)}));
        }
    }
    EXPECT_TRUE(take_reports().empty());
}

TEST_F(ClientFailure, FastTransitionStatusesSayNothingBelowLevel6) {
    const wl_evt_info_t event = event_of(3, 53);
    log_capture log(5);
    EXPECT_EQ(check_for_11r_failures(&event), 1);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientFailure, StatusesBesideThoseOfFastTransitionAreNotIgnored) {
    for (const uint16_t status : {uint16_t{0}, uint16_t{52}, uint16_t{56}, uint16_t{65535}}) {
        const wl_evt_info_t event = event_of(5, status);
        log_capture log(7);
        EXPECT_EQ(check_for_11r_failures(&event), 0);
        EXPECT_EQ(log.lines(), lines());
    }
}

// ---- The alert of a full SSID ----

TEST_F(ClientFailure, AFullAccessPointRaisesTheAlertOfTheSsid) {
    const own_record rec = own_attempt(1, "cafe");
    check(rec, 5, 17);
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].event, 80);
    EXPECT_EQ(alerts[0].size, 88);
    EXPECT_EQ(alerts[0].info.info_code, 85u);
    EXPECT_EQ(alerts[0].info.subinfo_value_len, 15);
    EXPECT_EQ(alerts[0].value, "SSID,ALERT,cafe");
}

TEST_F(ClientFailure, TheAlertHoldsNothingElse) {
    const own_record rec = own_attempt();
    check(rec, 5, 17);
    ASSERT_EQ(alerts.size(), 1u);
    const wl_evt_info_t &info = alerts[0].info;
    EXPECT_EQ(info.cl_mac, nullptr);
    EXPECT_EQ(info.profile_id, 0u);
    EXPECT_EQ(info.ssid, nullptr);
    EXPECT_EQ(info.ssid_len, 0);
    EXPECT_EQ(info.bssid, nullptr);
    EXPECT_EQ(info.name, nullptr);
    EXPECT_EQ(info.name_len, 0);
    EXPECT_EQ(info.subinfo_code, 0);
    constexpr uint8_t zeros[sizeof info.bw] = {};
    EXPECT_EQ(std::memcmp(&info.bw, zeros, sizeof info.bw), 0);
}

TEST_F(ClientFailure, TheAlertOfAClientWithoutSsidSaysSo) {
    const own_record rec = own_attempt();
    drop_ssid(rec.get());
    check(rec, 5, 17);
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].info.subinfo_value_len, 17);
    EXPECT_EQ(alerts[0].value, "SSID,ALERT,(null)");
}

TEST_F(ClientFailure, TheAlertTakesTheLongestSsid) {
    const std::string ssid(32, 's');
    const own_record rec = own_attempt(1, ssid);
    check(rec, 5, 17);
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].value, "SSID,ALERT," + ssid);
}

TEST_F(ClientFailure, TheAlertIsCutAt255Bytes) {
    const own_record rec = own_attempt(1, std::string(300, 's'));
    check(rec, 5, 17);
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].value, "SSID,ALERT," + std::string(244, 's'));
}

TEST_F(ClientFailure, EveryEventRaisesTheAlertThoughTheFailureIsReportedOnce) {
    const own_record rec = own_attempt();
    check(rec, 5, 17);
    check(rec, 5, 17);
    EXPECT_EQ(alerts.size(), 2u);
    EXPECT_EQ(take_reports().size(), 1u);
}

TEST_F(ClientFailure, OnlyStatus17OfAnAssociationRaisesTheAlert) {
    for (const row &wanted : ROWS) {
        if (wanted.code == 1)
            continue;
        const own_record rec = attempt_of(wanted);
        check(rec, wanted.info, wanted.sub);
    }
    EXPECT_TRUE(alerts.empty());
}

// ---- The four slots ----

TEST_F(ClientFailure, FourFailuresTakeTheFourSlotsInTheOrderTheyCame) {
    const own_record rec = own_attempt();
    check(rec, 3, 1);
    check(rec, 15, 7);
    check(rec, 1, 14);
    check(rec, 21, 3);
    EXPECT_EQ(codes(*rec), (std::vector<int>{16, 6, 7, 14}));
    EXPECT_EQ(subs(*rec), (std::vector<int>{1, 7, 14, 3}));
    std::vector<code_and_sub> reported;
    for (const report &one : take_reports())
        reported.push_back(one.failure());
    EXPECT_EQ(reported, (std::vector<code_and_sub>{{16, 1}, {6, 7}, {7, 14}, {14, 3}}));
}

TEST_F(ClientFailure, TheFifthFailureFindsNoSpace) {
    const own_record rec = own_attempt();
    for (const uint8_t slot : {0, 1, 2, 3})
        rec->failure_code[slot] = static_cast<uint8_t>(100 + slot);
    log_capture log(6);
    EXPECT_EQ(check(rec, 21, 3), 21u * 65536 + 3);
    EXPECT_EQ(codes(*rec), (std::vector<int>{100, 101, 102, 103}));
    EXPECT_EQ(subs(*rec), std::vector<int>(4));
    EXPECT_EQ(rec->rcvd_err_evt, 21u * 65536 + 3);
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(log.lines(), (lines{"check_err_code: CONN INFO: DNS failure - failure code 14, subinfo code 3",
                                  "check_err_code: CONN INFO: Client failure code 14, subinfo code 3",
                                  "check_err_code: CONN INFO: No space to store new failure info"}));
}

TEST_F(ClientFailure, ACodeInAnySlotIsNotReportedAgain) {
    for (const size_t slot : {0, 1, 2, 3}) {
        const own_record rec = own_attempt();
        for (size_t before = 0; before < slot; before++)
            rec->failure_code[before] = static_cast<uint8_t>(100 + before);
        rec->failure_code[slot] = 6;
        rec->subinfo_code[slot] = 7;
        const std::vector<int> held = codes(*rec);
        log_capture log(6);
        EXPECT_EQ(check(rec, 15, 8), 15u * 65536 + 8);
        EXPECT_EQ(codes(*rec), held);
        EXPECT_EQ(rec->subinfo_code[slot], 7) << "the first sub stays";
        EXPECT_EQ(
            log.lines(),
            (lines{"check_err_code: CONN INFO: Radius server not reachable - Error code 6, subinfo code 8",
                   "check_err_code: CONN INFO: Client failure code 6, subinfo code 8",
                   "check_err_code: CONN INFO: Not sending to server, already sent within 120 secs interval", ""}));
    }
    EXPECT_TRUE(take_reports().empty());
}

TEST_F(ClientFailure, ACodeBehindAFreeSlotDoesNotCount) {
    const own_record rec = own_attempt();
    rec->failure_code[0] = 100;
    rec->failure_code[2] = 6;
    check(rec, 15, 7);
    EXPECT_EQ(codes(*rec), (std::vector<int>{100, 6, 6, 0}));
    EXPECT_EQ(take_reports().size(), 1u);
}

TEST_F(ClientFailure, AFreeFirstSlotIsTakenWhateverTheOthersHold) {
    const own_record rec = own_attempt();
    rec->failure_code[1] = 6;
    check(rec, 15, 7);
    EXPECT_EQ(codes(*rec), (std::vector<int>{6, 6, 0, 0}));
    EXPECT_EQ(take_reports().size(), 1u);
}

TEST_F(ClientFailure, NoticesOfUnsentFailuresSayNothingBelowLevel6) {
    const own_record rec = own_attempt();
    for (uint8_t &code : rec->failure_code)
        code = 6;
    log_capture log(5);
    check(rec, 15, 7);
    check(rec, 21, 3);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientFailure, AFailureIsStoredInTheSlotItIsSentFor) {
    const own_record rec = own_attempt();
    send_error_to_server(nullptr, rec.get(), 2, 13, 1);
    EXPECT_EQ(codes(*rec), (std::vector<int>{0, 0, 13, 0}));
    EXPECT_EQ(subs(*rec), (std::vector<int>{0, 0, 1, 0}));
    const std::vector<report> reports = take_reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].failure(), code_and_sub(13, 1));
}

// ---- Small helpers ----

TEST_F(ClientFailure, AFailureInAnySlotMakesAFailedRecord) {
    const own_record rec = own_attempt();
    EXPECT_EQ(check_clrec_for_failures(rec.get()), 0);
    for (uint8_t &code : rec->failure_code) {
        code = 255;
        EXPECT_EQ(check_clrec_for_failures(rec.get()), 1);
        code = 0;
    }
}

TEST_F(ClientFailure, CodesAreWrittenBackToBack) {
    const own_record rec = own_attempt();
    rec->failure_code[0] = 3;
    rec->subinfo_code[0] = 41;
    char text[30];
    get_failure_code(rec.get(), text);
    EXPECT_STREQ(text, "3:0:0:0:");
    get_subinfo_code(rec.get(), text);
    EXPECT_STREQ(text, "41:0:0:0:");
}

TEST_F(ClientFailure, TheLongestCodesAreWrittenWhole) {
    const own_record rec = own_attempt();
    for (const size_t slot : {0, 1, 2, 3}) {
        rec->failure_code[slot] = 255;
        rec->subinfo_code[slot] = 65535;
    }
    char text[30];
    get_failure_code(rec.get(), text);
    EXPECT_STREQ(text, "255:255:255:255:");
    get_subinfo_code(rec.get(), text);
    EXPECT_STREQ(text, "65535:65535:65535:65535:");
}

TEST_F(ClientFailure, TimesDifferByWholeMilliseconds) {
    EXPECT_EQ(timediff_msec(0, 0, 0, 0), 0u);
    EXPECT_EQ(timediff_msec(10, 0, 9, 0), 1000u);
    EXPECT_EQ(timediff_msec(10, 500999, 10, 499000), 1u);
    EXPECT_EQ(timediff_msec(10, 999, 10, 0), 0u);
    EXPECT_EQ(timediff_msec(120, 1000, 0, 0), 120001u);
}

TEST_F(ClientFailure, TheOrderOfTwoTimesDoesNotMatter) {
    EXPECT_EQ(timediff_msec(9, 0, 10, 250000), 1250u);
    EXPECT_EQ(timediff_msec(10, 250000, 9, 0), 1250u);
}

TEST_F(ClientFailure, TimesDifferRightlyWhereTheirMillisecondsWrap) {
    // 4294967 s and 296 ms are 2^32 ms.
    EXPECT_EQ(timediff_msec(4294967, 296000, 4294967, 295000), 1u);
    EXPECT_EQ(timediff_msec(4294968, 0, 4294967, 0), 1000u);
    EXPECT_EQ(timediff_msec(4294967, 0, 4294968, 0), 1000u);
    EXPECT_EQ(timediff_msec(2147483, 648000, 0, 0), 0x80000000u);
    EXPECT_EQ(timediff_msec(2147483, 649000, 0, 0), 0x7FFFFFFFu);
}

// ---- From the bus ----

TEST_F(ClientFailure, AFullAccessPointIsReportedWhileTheAttemptGoesOn) {
    deliver(1, INFO_AUTH_REQUEST, 0);
    deliver(1, INFO_ASSOC_REQUEST, 0);
    deliver(1, INFO_ASSOC_RESPONSE, 17);
    EXPECT_EQ(take_reports().at(0).failure(), code_and_sub(1, 17));
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].value, "SSID,ALERT,net");
    ASSERT_NE(in_progress(), nullptr);
    EXPECT_EQ(in_progress()->rcvd_err_evt, 5u * 65536 + 17);
    EXPECT_EQ(in_progress()->state, 4);
}

TEST_F(ClientFailure, ASteeringRefusalKeepsTheRefusedAssociationSilent) {
    deliver(1, INFO_AUTH_REQUEST, 0);
    deliver(1, INFO_ASSOC_REQUEST, 0);
    deliver(1, INFO_STEERING, 9);
    deliver(1, INFO_ASSOC_RESPONSE, 17);
    deliver(1, INFO_AUTH_REQUEST, 0);
    EXPECT_TRUE(take_reports().empty());
    EXPECT_TRUE(alerts.empty());
    EXPECT_TRUE(stored().empty());
}

}  // namespace
