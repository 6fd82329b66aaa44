// The report of an attempt, byte by byte, and the text of a stored record in a dump file. The bus, the clock and the
// APC feature are the tests' own.
#include "wl_client_ts_internal.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <sys/time.h>
#include <vector>

#include "fault.h"
#include "files.h"
#include "language_cache_funcs.h"
#include "log_capture.h"
#include "wl_client_ts_sent.h"
#include "wl_server.h"

int __wrap_apc_check(const uint8_t *bssid) asm("__wrap__Z34apc_check_bssid_is_feature_enabledPKh");
int __wrap_apc_generate(const uint8_t *clmac, const uint8_t *bssid, char *buf,
                        int len) asm("__wrap__Z15apc_generate_idPKhS0_Pci");

namespace {

using lines = std::vector<std::string>;

const byte_string MAC = {0x02, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
const byte_string BSSID = {0x00, 0x11, 0x74, 0xA1, 0xB2, 0xC3};
const char MAC_TEXT[] = "02:1A:2B:3C:4D:5E";

constexpr uint64_t SECOND = 1000000;  // in microseconds
constexpr uint64_t NOON = 1700000000 * SECOND + 123456;
constexpr uint32_t NOON_MSEC = static_cast<uint32_t>(NOON / 1000);

uint64_t now;  // of the wall clock, microseconds
int clock_readings;

struct {
    int enabled;
    int result;
    std::string id;
    int checks;
    byte_string checked;
    byte_string generated_for;  // both addresses
    int buffer_size;
} apc;

}  // namespace

int __wrap_apc_check(const uint8_t *bssid) {
    apc.checks++;
    apc.checked = byte_string(bssid, bssid + 6);
    return apc.enabled;
}

int __wrap_apc_generate(const uint8_t *clmac, const uint8_t *bssid, char *buf, int len) {
    apc.generated_for = byte_string(clmac, clmac + 6);
    apc.generated_for.insert(apc.generated_for.end(), bssid, bssid + 6);
    apc.buffer_size = len;
    if (apc.result == 0)
        std::snprintf(buf, static_cast<size_t>(len), "%s", apc.id.c_str());
    return apc.result;
}

extern "C" int __wrap_gettimeofday(timeval *time, void *) {
    clock_readings++;
    time->tv_sec = static_cast<time_t>(now / SECOND);
    time->tv_usec = static_cast<suseconds_t>(now % SECOND);
    return 0;
}

namespace {

/// An address as it came from the network.
uint32_t as_it_came(const byte_string &address) {
    uint32_t number;
    std::memcpy(&number, address.data(), sizeof number);
    return number;
}

cl_conn_evt_rec record_of(const byte_string &mac, const byte_string &bssid) {
    cl_conn_evt_rec rec{};
    std::copy_n(mac.begin(), 6, rec.cl_info.mac);
    std::copy_n(bssid.begin(), 6, rec.cl_info.bssid);
    return rec;
}

class Report : public testing::Test {
protected:
    Report() {
        sent.clear();
        send_results.clear();
        on_send = [] {};
        apc = {};
        now = NOON;
        clock_readings = 0;
        rec = record_of(MAC, BSSID);
        rec.channel = 6;
        rec.timestamp = NOON_MSEC;
        conn_cb.err_conn_table = hash_newTable(CONN_BUCKETS, hw_mac_hash_func, hw_mac_compare_func);
        dllist_init(&conn_cb.err_conn_list);
    }

    ~Report() override {
        while (dllist_t *const node = dllist_delink_head(&conn_cb.err_conn_list)) {
            auto *entry = static_cast<client_list_rec *>(node->value);
            remove_hash_entry(entry->ch_ptr, node);
            clrec_free(entry->clrec);
            clts_release(entry, sizeof *entry);
            free(node);
        }
        hash_delTable(&conn_cb.err_conn_table, nullptr);
        clear_faults();
    }

    void fail(int slot, uint8_t failure, uint16_t sub) {
        rec.failure_code[slot] = failure;
        rec.subinfo_code[slot] = sub;
    }

    void report(int slot) {
        check_and_send_client_connection_info(&rec, slot);
    }

    /// Reports and returns the only event that was posted.
    byte_string reported(int slot) {
        sent.clear();
        report(slot);
        EXPECT_EQ(sent.size(), 1U);
        EXPECT_EQ(sent.at(0).event, 49);
        return sent.at(0).payload;
    }

    byte_string reported_failure(uint8_t failure, uint16_t sub) {
        fail(0, failure, sub);
        return reported(0);
    }

    static expected_packet head(int outcome, unsigned band = 6) {
        return expected_packet().bytes(MAC).bytes(BSSID).number(band, 2).number(static_cast<unsigned>(outcome), 1);
    }

    static expected_packet failure_head(unsigned failure, unsigned sub) {
        return head(0).item(1, {static_cast<uint8_t>(failure)}).u16(2, sub);
    }

    static expected_packet success_head() {
        return head(1).u32(3, 0).u32(4, 0).u32(5, 0);
    }

    /// Ends a report of a client that came nowhere, just after its last change of stage.
    static byte_string without_journey(expected_packet packet) {
        return packet.u32(7, 0).u32(8, 0).u32(9, 0).u32(10, 0).bytes();
    }

    static byte_string journey(uint32_t assoc, uint32_t auth, uint32_t network, uint32_t last_stage) {
        return success_head().u32(7, assoc).u32(8, auth).u32(9, network).u32(10, last_stage).bytes();
    }

    lines lines_of_report(int level, int slot) {
        log_capture log(level);
        report(slot);
        return log.lines();
    }

    cl_conn_evt_rec rec;
};

std::string spoken(const std::string &text) {
    return "check_and_send_client_connection_info: " + text;
}

// --- success ---

TEST_F(Report, ASuccessCarriesThreeLatenciesBeforeTheTimes) {
    rec.aaa_latency = 0x01020304;
    rec.dhcp_latency = 0x11121314;
    rec.dns_latency = 0xF1F2F3F4;
    EXPECT_EQ(reported(SUCCESS_REPORT),
              without_journey(head(1).u32(3, 0x01020304).u32(4, 0x11121314).u32(5, 0xF1F2F3F4)));
}

TEST_F(Report, ASuccessOfARecordWithFailuresDoesNotTellThem) {
    fail(0, FAILURE_IP, 2);
    rec.vlan = 7;
    EXPECT_EQ(reported(SUCCESS_REPORT), without_journey(success_head()));
}

TEST_F(Report, AnUnknownBssidIsZeros) {
    std::memset(rec.cl_info.bssid, 0, 6);
    const byte_string report = reported(SUCCESS_REPORT);
    EXPECT_EQ(byte_string(report.begin() + 6, report.begin() + 12), byte_string(6));
}

TEST_F(Report, TheBandFollowsFromTheChannel) {
    for (const auto &[channel, band] : std::vector<std::pair<uint16_t, uint8_t>>{
             {0, 1}, {1, 6}, {13, 6}, {14, 6}, {15, 1}, {36, 1}, {256, 1}, {65535, 1}}) {
        rec.channel = channel;
        const byte_string report = reported(SUCCESS_REPORT);
        EXPECT_EQ(report[12], 0) << channel;
        EXPECT_EQ(report[13], band) << channel;
    }
}

TEST_F(Report, TheServersFollowInTheOrderDhcpDnsAaa) {
    rec.dhcp_server_ip = as_it_came({192, 168, 1, 1});
    rec.dns_server_ip = as_it_came({9, 8, 7, 6});
    rec.aaa_server_ip = as_it_came({10, 0, 0, 254});
    EXPECT_EQ(
        reported(SUCCESS_REPORT),
        without_journey(success_head().item(36, {192, 168, 1, 1}).item(35, {9, 8, 7, 6}).item(38, {10, 0, 0, 254})));
}

TEST_F(Report, AKnownServerIsToldAlone) {
    rec.dhcp_server_ip = as_it_came({192, 168, 1, 1});
    EXPECT_EQ(reported(SUCCESS_REPORT), without_journey(success_head().item(36, {192, 168, 1, 1})));
    rec.dhcp_server_ip = 0;
    rec.dns_server_ip = as_it_came({0, 0, 0, 1});
    EXPECT_EQ(reported(SUCCESS_REPORT), without_journey(success_head().item(35, {0, 0, 0, 1})));
    rec.dns_server_ip = 0;
    rec.aaa_server_ip = as_it_came({1, 0, 0, 0});
    EXPECT_EQ(reported(SUCCESS_REPORT), without_journey(success_head().item(38, {1, 0, 0, 0})));
}

// --- failure ---

TEST_F(Report, AFailureCarriesItsCodeAndSubinfoCode) {
    EXPECT_EQ(reported_failure(FAILURE_ASSOC, 0x1229), without_journey(failure_head(3, 0x1229)));
}

TEST_F(Report, AFailureCarriesNoLatencies) {
    rec.aaa_latency = rec.dhcp_latency = rec.dns_latency = 5;
    EXPECT_EQ(reported_failure(FAILURE_PSK, 14), without_journey(failure_head(7, 14)));
}

TEST_F(Report, TheFailureIsThatOfTheSlot) {
    const uint8_t failures[] = {FAILURE_ASSOC, FAILURE_RADIUS_AUTH, FAILURE_GAUTH, FAILURE_AUTH};
    for (int slot = 0; slot < 4; slot++)
        fail(slot, failures[slot], static_cast<uint16_t>(100 + slot));
    for (int slot = 0; slot < 4; slot++)
        EXPECT_EQ(reported(slot), without_journey(failure_head(failures[slot], static_cast<unsigned>(100 + slot))));
}

TEST_F(Report, AnAddressConflictTellsTheAddressAndTheOtherStation) {
    rec.ipv4_addr = as_it_came({10, 1, 2, 3});
    rec.invalid_ip_addr = as_it_came({99, 99, 99, 99});
    rec.rogue_dhcp_server_ip = as_it_came({98, 98, 98, 98});
    std::copy_n(byte_string{6, 5, 4, 3, 2, 1}.begin(), 6, rec.conflict_mac);
    EXPECT_EQ(reported_failure(FAILURE_IP, 3),
              without_journey(failure_head(18, 3).item(16, {10, 1, 2, 3}).item(37, {6, 5, 4, 3, 2, 1})));
}

TEST_F(Report, AnInvalidAddressIsTold) {
    rec.ipv4_addr = as_it_came({10, 1, 2, 3});
    rec.invalid_ip_addr = as_it_came({172, 16, 0, 9});
    rec.rogue_dhcp_server_ip = as_it_came({98, 98, 98, 98});
    for (const uint16_t sub : {0, 1, 4, 258, 65535})
        EXPECT_EQ(reported_failure(FAILURE_IP, sub), without_journey(failure_head(18, sub).item(16, {172, 16, 0, 9})));
}

TEST_F(Report, ARogueDhcpServerIsToldAfterTheAddressItGave) {
    rec.invalid_ip_addr = as_it_came({172, 16, 0, 9});
    rec.rogue_dhcp_server_ip = as_it_came({172, 16, 0, 1});
    EXPECT_EQ(reported_failure(FAILURE_IP, 2),
              without_journey(failure_head(18, 2).item(16, {172, 16, 0, 9}).item(36, {172, 16, 0, 1})));
}

TEST_F(Report, ARogueDhcpServerAndTheClientsOwnAreBothTold) {
    rec.invalid_ip_addr = as_it_came({172, 16, 0, 9});
    rec.rogue_dhcp_server_ip = as_it_came({172, 16, 0, 1});
    rec.dhcp_server_ip = as_it_came({192, 168, 1, 1});
    EXPECT_EQ(reported_failure(FAILURE_IP, 2),
              without_journey(
                  failure_head(18, 2).item(16, {172, 16, 0, 9}).item(36, {172, 16, 0, 1}).item(36, {192, 168, 1, 1})));
}

TEST_F(Report, AddressesOfAnIpFailureAreToldEvenWhenTheyAreZero) {
    EXPECT_EQ(reported_failure(FAILURE_IP, 2), without_journey(failure_head(18, 2).u32(16, 0).u32(36, 0)));
    EXPECT_EQ(reported_failure(FAILURE_IP, 3),
              without_journey(failure_head(18, 3).u32(16, 0).item(37, byte_string(6))));
}

TEST_F(Report, OtherFailuresTellNoAddressWhateverTheirSubinfoCode) {
    rec.ipv4_addr = rec.invalid_ip_addr = rec.rogue_dhcp_server_ip = as_it_came({1, 2, 3, 4});
    for (const uint8_t failure : {1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 16, 17})
        for (const uint16_t sub : {2, 3})
            EXPECT_EQ(reported_failure(failure, sub), without_journey(failure_head(failure, sub)));
}

TEST_F(Report, AVlanThatWasNotSeenIsTold) {
    rec.vlan = 0x0ABC;
    EXPECT_EQ(reported_failure(FAILURE_DHCP, 1), without_journey(failure_head(13, 1).u16(15, 0x0ABC)));
    EXPECT_EQ(reported_failure(FAILURE_DNS, 4), without_journey(failure_head(14, 4).u16(15, 0x0ABC)));
}

TEST_F(Report, OtherFailuresTellNoVlan) {
    rec.vlan = 7;
    for (const auto &[failure, sub] : std::vector<std::pair<uint8_t, uint16_t>>{
             {13, 0}, {13, 4}, {13, 257}, {14, 1}, {14, 3}, {14, 260}, {4, 4}, {7, 1}})
        EXPECT_EQ(reported_failure(failure, sub), without_journey(failure_head(failure, sub)));
}

// --- APC ---

TEST_F(Report, AFailureOnABssidWithApcCarriesTheIdentifier) {
    apc.enabled = 1;
    apc.id = "3C4D5E-A1B2C3-004217";
    EXPECT_EQ(reported_failure(FAILURE_ASSOC, 41), without_journey(failure_head(3, 41).text(11, apc.id)));
    byte_string both = MAC;
    both.insert(both.end(), BSSID.begin(), BSSID.end());
    EXPECT_EQ(apc.checked, BSSID);
    EXPECT_EQ(apc.generated_for, both);
    EXPECT_EQ(apc.buffer_size, 33);
}

TEST_F(Report, TheIdentifierMayBeLonger) {
    apc.enabled = 1;
    apc.id = "3C4D5E-A1B2C3--004217";
    EXPECT_EQ(reported_failure(FAILURE_ASSOC, 41), without_journey(failure_head(3, 41).text(11, apc.id)));
}

TEST_F(Report, TheIdentifierFollowsTheFailuresOwnItemsAndPrecedesTheServers) {
    apc.enabled = 1;
    apc.id = "id";
    rec.vlan = 7;
    rec.dhcp_server_ip = as_it_came({1, 2, 3, 4});
    EXPECT_EQ(reported_failure(FAILURE_DHCP, 1),
              without_journey(failure_head(13, 1).u16(15, 7).text(11, "id").item(36, {1, 2, 3, 4})));
}

TEST_F(Report, WithoutApcThereIsNeitherIdentifierNorComplaint) {
    apc.result = -1;
    log_capture log(3);
    EXPECT_EQ(reported_failure(FAILURE_ASSOC, 41), without_journey(failure_head(3, 41)));
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(apc.generated_for, byte_string());
}

TEST_F(Report, AnIdentifierThatCannotBeBuiltIsLeftOutAndLogged) {
    apc.enabled = 1;
    apc.result = -1;
    log_capture log(3);
    EXPECT_EQ(reported_failure(FAILURE_ASSOC, 41), without_journey(failure_head(3, 41)));
    EXPECT_EQ(log.lines(),
              lines{spoken("Failed to generate APC ID for clmac 02:1A:2B:3C:4D:5E and bssid 00:11:74:A1:B2:C3")});
}

TEST_F(Report, AnIdentifierThatCannotBeBuiltIsNotLoggedBelowLevel3) {
    apc.enabled = 1;
    apc.result = -1;
    fail(0, FAILURE_ASSOC, 41);
    EXPECT_EQ(lines_of_report(2, 0), lines());
    EXPECT_EQ(apc.buffer_size, 33);
}

TEST_F(Report, ASuccessDoesNotAskForApc) {
    apc.enabled = 1;
    apc.id = "id";
    EXPECT_EQ(reported(SUCCESS_REPORT), without_journey(success_head()));
    EXPECT_EQ(apc.checks, 0);
}

// --- times ---

TEST_F(Report, TheTimesAreThoseSinceEachStep) {
    rec.cli_jrny = {NOON - 3 * SECOND - 1, NOON - 2 * SECOND - 2, NOON - SECOND - 3};
    rec.timestamp = NOON_MSEC - 4004;
    EXPECT_EQ(reported(SUCCESS_REPORT), journey(3000001, 2000002, 1000003, 4004));
}

TEST_F(Report, AFailureCarriesTheTimesToo) {
    rec.cli_jrny.assoc_ts = NOON - 1;
    rec.timestamp = NOON_MSEC - 120001;
    EXPECT_EQ(reported_failure(FAILURE_DHCP, 0),
              failure_head(13, 0).u32(7, 1).u32(8, 0).u32(9, 0).u32(10, 120001).bytes());
}

TEST_F(Report, AStepThatLiesInTheFutureCountsAsZero) {
    rec.cli_jrny = {NOON + 1, NOON + SECOND, UINT64_MAX};
    EXPECT_EQ(reported(SUCCESS_REPORT), journey(0, 0, 0, 0));
}

TEST_F(Report, AStepOfThisVeryMomentCountsAsZero) {
    rec.cli_jrny = {NOON, NOON, NOON};
    EXPECT_EQ(reported(SUCCESS_REPORT), journey(0, 0, 0, 0));
}

TEST_F(Report, TheTimeSinceAStepIsCutTo32Bits) {
    rec.cli_jrny = {NOON - UINT32_MAX, NOON - (uint64_t{UINT32_MAX} + 1), NOON - (uint64_t{UINT32_MAX} + 6)};
    EXPECT_EQ(reported(SUCCESS_REPORT), journey(UINT32_MAX, 0, 5, 0));
}

TEST_F(Report, TheTimeSinceTheLastStageSurvivesTheWrapOfMilliseconds) {
    now = ((uint64_t{400} << 32) + 10) * 1000;  // milliseconds have just wrapped
    rec.timestamp = UINT32_MAX - 89;
    EXPECT_EQ(reported(SUCCESS_REPORT), journey(0, 0, 0, 100));
}

TEST_F(Report, AClockThatSteppedBackShowsInTheTimeSinceTheLastStage) {
    rec.timestamp = NOON_MSEC + 1;
    EXPECT_EQ(reported(SUCCESS_REPORT), journey(0, 0, 0, UINT32_MAX));
}

TEST_F(Report, TheClockIsReadOnce) {
    report(SUCCESS_REPORT);
    EXPECT_EQ(clock_readings, 1);
}

TEST_F(Report, TheTimesAreLoggedAtLevel7) {
    rec.cli_jrny = {NOON - UINT32_MAX, NOON - 2, 0};
    rec.timestamp = NOON_MSEC - 4;
    const lines all = lines_of_report(7, SUCCESS_REPORT);
    ASSERT_GE(all.size(), 2U);
    EXPECT_EQ(all[0], spoken("Client Journey: ASSOC SUCCESS[4294967295us], AUTH SUCCESS[2us], NETWORK SUCCESS[0us], "
                             "LAST_SEEN_EVT_TS[4ms]"));
    EXPECT_EQ(all[1], "");
}

// --- sending ---

TEST_F(Report, AReportThatIsTakenIsSentOnceAndLogged) {
    EXPECT_EQ(lines_of_report(6, SUCCESS_REPORT),
              (lines{spoken("CONN INFO: Successfully sent packet to server for 02:1A:2B:3C:4D:5E length 71"), ""}));
    EXPECT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent.at(0).payload.size(), 71U);
}

TEST_F(Report, AReportThatIsRefusedIsTriedThreeTimes) {
    send_results = {-1, 0, 2};
    EXPECT_EQ(lines_of_report(6, SUCCESS_REPORT),
              (lines{spoken("CONN INFO: Successfully sent packet to server for 02:1A:2B:3C:4D:5E length 71"), ""}));
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent[1].payload, sent[0].payload);
    EXPECT_EQ(sent[2].payload, sent[0].payload);
    EXPECT_EQ(sent[2].event, 49);
}

TEST_F(Report, AfterThreeTriesAReportIsLost) {
    send_results = {-1, 0, -1, 1};
    EXPECT_EQ(lines_of_report(6, SUCCESS_REPORT),
              (lines{spoken("CONN INFO: Failed to send packet to server for 02:1A:2B:3C:4D:5E length 71"), ""}));
    EXPECT_EQ(sent.size(), 3U);
}

TEST_F(Report, TheOutcomeOfSendingIsNotLoggedBelowLevel6) {
    EXPECT_EQ(lines_of_report(5, SUCCESS_REPORT), lines());
    send_results = {0, 0, 0, 0};
    EXPECT_EQ(lines_of_report(5, SUCCESS_REPORT), lines());
}

TEST_F(Report, TheRecordIsMarkedAsSentBeforeItIsSent) {
    int marked = 0;
    on_send = [&] { marked += rec.is_rec_sent_to_server; };
    report(SUCCESS_REPORT);
    EXPECT_EQ(marked, 1);
}

TEST_F(Report, ALostReportLeavesTheRecordMarkedAsSent) {
    send_results = {-1, -1, -1};
    report(SUCCESS_REPORT);
    EXPECT_EQ(rec.is_rec_sent_to_server, 1);
}

TEST_F(Report, TheBuffersMemoryIsGivenBack) {
    int held = 0;
    on_send = [&] { held = conn_cb.size_malloc; };
    report(SUCCESS_REPORT);
    EXPECT_EQ(held, 2048);
    EXPECT_EQ(conn_cb.size_malloc, 0);
}

TEST_F(Report, WithoutMemoryNothingIsSentButTheRecordIsMarkedAsSent) {
    log_capture log;
    fail_nth_call("malloc", 1);
    report(SUCCESS_REPORT);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(sent.size(), 0U);
    EXPECT_EQ(rec.is_rec_sent_to_server, 1);
    EXPECT_EQ(conn_cb.size_malloc, 0);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(Report, AnEmptyBlockIsABlockThatCountsNothing) {
    void *block = clts_malloc(0);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(conn_cb.size_malloc, 0);
    clts_free(&block, 0);
    EXPECT_EQ(conn_cb.size_malloc, 0);
}

TEST_F(Report, ANullRecordIsNotReported) {
    log_capture log;
    check_and_send_client_connection_info(nullptr, SUCCESS_REPORT);
    check_and_send_client_connection_info(nullptr, 0);
    EXPECT_EQ(sent.size(), 0U);
    EXPECT_EQ(log.lines(), lines());
}

// --- a failure that was reported before ---

class RepeatedReport : public Report {
protected:
    /// Stores a record that failed with code 3, `age` milliseconds older than the one to report.
    void store(const byte_string &mac, const byte_string &bssid, uint32_t age) {
        auto *const stored = static_cast<cl_conn_evt_rec *>(clts_malloc(sizeof(cl_conn_evt_rec)));
        *stored = record_of(mac, bssid);
        stored->timestamp = rec.timestamp - age;
        stored->failure_code[2] = FAILURE_ASSOC;
        ASSERT_EQ(move_clrec_to_err_list(stored), 0);
    }

    size_t reports(uint8_t failure) {
        fail(0, failure, 41);
        report(0);
        return sent.size();
    }
};

TEST_F(RepeatedReport, IsNotSentWithinTenMinutes) {
    store(MAC, BSSID, 599999);
    fail(1, FAILURE_ASSOC, 41);
    EXPECT_EQ(lines_of_report(6, 1), (lines{spoken("CONN INFO: Not sending to server for client 02:1A:2B:3C:4D:5E, "
                                                   "already sent in 600000 ms interval"),
                                            ""}));
    EXPECT_EQ(sent.size(), 0U);
    EXPECT_EQ(rec.is_rec_sent_to_server, 0);
}

TEST_F(RepeatedReport, IsSilentBelowLevel6) {
    store(MAC, BSSID, 0);
    fail(1, FAILURE_ASSOC, 41);
    EXPECT_EQ(lines_of_report(5, 1), lines());
}

TEST_F(RepeatedReport, IsSentAfterTenMinutes) {
    store(MAC, BSSID, 600000);
    EXPECT_EQ(reports(FAILURE_ASSOC), 1U);
}

TEST_F(RepeatedReport, IsSentForAnotherFailure) {
    store(MAC, BSSID, 1);
    EXPECT_EQ(reports(FAILURE_AUTH), 1U);
}

TEST_F(RepeatedReport, IsSentForAnotherBssid) {
    store(MAC, MAC, 1);
    EXPECT_EQ(reports(FAILURE_ASSOC), 1U);
}

TEST_F(RepeatedReport, IsSentForAnotherClient) {
    store(BSSID, BSSID, 1);
    EXPECT_EQ(reports(FAILURE_ASSOC), 1U);
}

TEST_F(RepeatedReport, DoesNotHoldBackASuccess) {
    store(MAC, BSSID, 1);
    fail(0, FAILURE_ASSOC, 41);
    report(SUCCESS_REPORT);
    EXPECT_EQ(sent.size(), 1U);
}

// --- a record in a dump file ---

class Dump : public Report {
protected:
    Dump() {
        setenv("TZ", "UTC-02:00", 1);
        tzset();
        write_file("/tmp/labels", "INFOCODE_2=AUTHREQ\nINFOCODE_14=DHCP\nINFOCODE_15=RADIUS\n"
                                  "AUTHREQ_0=$MAC asks $BSSID for $SSID\nDHCP_5=address from $IP\n");
        wl_debug_log_cache = hash_newTable(137, lang_hash_func, lang_compare_record);
        EXPECT_EQ(pop_lang_cache_from_file("/tmp/labels", wl_debug_log_cache), 0);
        rec.cl_info.ssid = ssid.data();
        rec.cl_info.ssid_len = static_cast<uint16_t>(ssid.size());
        rec.gmt = 1704067199;
        rec.rcvd_err_evt = 15 * 65536 + 803;
    }

    ~Dump() override {
        hash_delTable(&wl_debug_log_cache, free_lang_node);
    }

    void add(uint32_t tdiff, uint32_t info, uint16_t sub, byte_string *value = nullptr) {
        cl_evt &event = rec.cl_evt[rec.num_evt++];
        event = {tdiff, info, sub, nullptr, 0};
        if (value != nullptr) {
            event.subinfo_value = value->data();
            event.subinfo_value_len = static_cast<uint16_t>(value->size());
        }
    }

    std::string dumped() {
        FILE *const file = fopen("/tmp/dump", "w");
        print_record(file, &rec);
        fclose(file);
        return file_text("/tmp/dump");
    }

    static std::string framed(const std::string &text) {
        return "\n" + std::string(81, '=') + "\n" + text + "\n" + std::string(80, '=') + "\n";
    }

    std::string ssid = "Office";
    const std::string client = std::string(MAC_TEXT) + " ==> [Office(00:11:74:A1:B2:C3)] @ 2024.01.01 01:59:59 ";
};

TEST_F(Dump, HoldsTheClientBetweenTwoRulesOfDifferentLength) {
    EXPECT_EQ(dumped(), framed(client + "Num Events:0 Err Event:983843\n"));
}

TEST_F(Dump, HoldsALineOfEveryEventThatBeginsWithItsTime) {
    byte_string server = {10, 0, 0, 1};
    add(0, 2, 0);
    add(1234567, 14, 5, &server);
    EXPECT_EQ(dumped(), framed(client + "Num Events:2 Err Event:983843\n" +
                               "     0:02:1A:2B:3C:4D:5E asks 00:11:74:A1:B2:C3 for Office\n" +
                               "1234567:address from 10.0.0.1\n"));
}

TEST_F(Dump, ShowsTheAttributesOfARadiusPacket) {
    byte_string value = {10, 0, 0, 1};
    value.resize(4 + 45);
    std::memcpy(value.data() + 4, "NAS-Port", 8);
    value[4 + 40] = 1;
    value[4 + 44] = 77;
    add(77, 15, 801, &value);
    EXPECT_EQ(dumped(), framed(client + "Num Events:1 Err Event:983843\n" +
                               "    77:Radius Pkt Type: Access-Request\n\t\t[NAS-Port: 77]\n"));
}

TEST_F(Dump, LeavesOutAnEventWithoutALabel) {
    add(1, 3, 0);
    add(2, 2, 0);
    EXPECT_EQ(dumped(), framed(client + "Num Events:2 Err Event:983843\n" +
                               "     2:02:1A:2B:3C:4D:5E asks 00:11:74:A1:B2:C3 for Office\n"));
}

TEST_F(Dump, HoldsAll32Events) {
    for (int i = 0; i < 32; i++)
        add(static_cast<uint32_t>(i), 15, 802);
    std::string text = client + "Num Events:32 Err Event:983843\n";
    for (int i = 0; i < 32; i++)
        text += (i < 10 ? "     " : "    ") + std::to_string(i) + ":Radius Pkt Type: Access-Accept\n";
    EXPECT_EQ(dumped(), framed(text));
}

TEST_F(Dump, ShowsAnUnknownSsidAsAnEmptyText) {
    rec.cl_info.ssid = nullptr;
    rec.cl_info.ssid_len = 0;
    add(0, 2, 0);
    EXPECT_EQ(dumped(),
              framed(std::string(MAC_TEXT) + " ==> [(00:11:74:A1:B2:C3)] @ 2024.01.01 01:59:59 " +
                     "Num Events:1 Err Event:983843\n" + "     0:02:1A:2B:3C:4D:5E asks 00:11:74:A1:B2:C3 for \n"));
}

TEST_F(Dump, ShowsASecondBeyond31BitsAsOneBefore1970) {
    for (const auto &[second, shown] :
         std::vector<std::pair<uint32_t, std::string>>{{0x7FFFFFFF, "2038.01.19 05:14:07"},
                                                       {0x80000000, "1901.12.13 22:45:52"},
                                                       {0xFFFFFFFF, "1970.01.01 01:59:59"}}) {
        rec.gmt = second;
        EXPECT_NE(dumped().find(" @ " + shown + " Num"), std::string::npos) << shown;
    }
}

TEST_F(Dump, HoldsAFailureWhoseReportHadNoMemory) {
    auto *const attempt = static_cast<cl_conn_evt_rec *>(clts_malloc(sizeof(cl_conn_evt_rec)));
    *attempt = rec;
    attempt->cl_info.ssid = nullptr;
    attempt->cl_info.ssid_len = 0;
    fail_nth_call("malloc", 1);
    send_error_to_server(nullptr, attempt, 0, FAILURE_PSK, 14);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(sent.size(), 0U);
    EXPECT_EQ(attempt->is_rec_sent_to_server, 1);
    settle_record(attempt);
    conn_cb.init = 0;
    byte_string request = MAC;
    for (const char c : std::string("/tmp/dump"))
        request.push_back(static_cast<uint8_t>(c));
    request.resize(38);
    EXPECT_EQ(wl_client_ts_dump(request.data()), 0);
    conn_cb.init = -1;
    EXPECT_EQ(file_text("/tmp/dump"),
              std::string("Client ") + MAC_TEXT + " has 1 Error Records\n" +
                  framed(std::string(MAC_TEXT) + " ==> [(00:11:74:A1:B2:C3)] @ 2024.01.01 01:59:59 " +
                         "Num Events:0 Err Event:983843\n"));
}

TEST_F(Dump, ShowsNothingOfKeysAndLoginsWhateverTheirLabels) {
    write_file("/tmp/more",
               "INFOCODE_100=PMK\nINFOCODE_101=LOGIN\nPMK_1=key $OU $IP $ROLE.\nPMK_42=key $OU $IP $ROLE.\n"
               "LOGIN_1=login $OU $IP $ROLE.\n");
    ASSERT_EQ(pop_lang_cache_from_file("/tmp/more", wl_debug_log_cache), 0);
    byte_string secret = text_bytes("correct horse battery staple, and fifty bytes in all, no less");
    byte_string address = {'a', 'b', 'c', 'd'};
    add(1, 100, 1, &secret);
    add(2, 100, 42, &secret);
    add(3, 101, 1, &secret);
    add(4, 101, 1, &address);
    EXPECT_EQ(dumped(),
              framed(client + "Num Events:4 Err Event:983843\n" +
                     "     1:key (Nil)  .\n     2:key (Nil)  .\n     3:login (Nil)  .\n     4:login (Nil)  .\n"));
}

TEST_F(Dump, LosesNoMoreThanALineForEachAllocationThatFails) {
    byte_string server = {10, 0, 0, 1};
    byte_string attribute(45);
    std::memcpy(attribute.data(), "NAS-Port", 8);
    attribute[40] = 1;
    add(0, 2, 0);
    add(1, 14, 5, &server);
    add(2, 15, 802, &attribute);
    const std::string all[] = {"     0:02:1A:2B:3C:4D:5E asks 00:11:74:A1:B2:C3 for Office\n",
                               "     1:address from 10.0.0.1\n",
                               "     2:Radius Pkt Type: Access-Accept\n\t\t[NAS-Port: 0]\n"};
    const std::string head = client + "Num Events:3 Err Event:983843\n";
    int fired = 0;
    for (const char *const function : {"malloc", "calloc", "realloc", "strdup"}) {
        for (int nth = 1;; nth++) {
            fail_nth_call(function, nth);
            const std::string text = dumped();
            const int failed = faults_fired(function);
            clear_faults();
            if (failed == 0) {
                EXPECT_EQ(text, framed(head + all[0] + all[1] + all[2]));
                break;
            }
            fired++;
            EXPECT_TRUE(text == framed(head + all[1] + all[2]) || text == framed(head + all[0] + all[2]) ||
                        text == framed(head + all[0] + all[1]))
                << function << nth << text;
        }
    }
    EXPECT_GE(fired, 5) << "two values, three texts";
}

TEST_F(Dump, OfNothingIsNothing) {
    FILE *const file = fopen("/tmp/dump", "w");
    print_record(file, nullptr);
    fclose(file);
    print_record(nullptr, &rec);
    EXPECT_EQ(file_text("/tmp/dump"), "");
}

}  // namespace
