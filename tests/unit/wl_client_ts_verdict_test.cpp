// What is made of an attempt that has ended: which verdict, which lines in which order, what becomes of the record.
#include "wl_client_ts_verdict_fixture.h"

#include "wl_evt_register.h"

namespace {

void detect_vlan(int vlan) {
    g_bitmap_vlans_detected[vlan / 8] |= static_cast<uint8_t>(1 << vlan % 8);
}

/// What the log says of a verdict: the lines of the function and, where they were posted, the reports.
lines verdict_of(const lines &log) {
    lines found;
    for (const std::string &line : log) {
        if (line.compare(0, 18, "decide_on_client: ") == 0)
            found.push_back(line.substr(18));
        else if (line.find(": CONN INFO: Successfully sent packet to server") != std::string::npos)
            found.push_back("<report>");
        else if (line.find(": CTS: Add Err Conn Cache entry") != std::string::npos)
            found.push_back("<stored>");
    }
    return found;
}

const std::string CLIENT = "CTS: Client 00:11:22:33:00:01 ";
const std::string ASSUMED = CLIENT + "assumed to connect successfuly!";
const std::string DISCONNECTED = "CTS: Not sending success log for client 00:11:22:33:00:01 since it is no longer "
                                 "connected to AP";
const std::string SILENT_SUCCESS = CLIENT + "not in DHCP request/discover received state, sending success since client "
                                            "is authorised and still connected to AP";

std::string silent(int authorised, int disconnected) {
    return CLIENT + "not in DHCP request/discover received state, not sending the DHCP failure. Node authorised[" +
           std::to_string(authorised) + "], client disconnected[" + std::to_string(disconnected) + "]";
}

std::string failed(int events, const std::string &word, const std::string &codes, const std::string &subs) {
    return CLIENT + "connection error! Num Evts: " + std::to_string(events) +
           "; IP Addr Rcvd: No; Rcvd err evt: " + word + "; failure_code: " + codes + ", subinfo_code: " + subs;
}

class ClientVerdict : public VerdictFixture {
protected:
    ~ClientVerdict() override {
        std::memset(g_bitmap_vlans_detected, 0, sizeof g_bitmap_vlans_detected);
    }

    /// What is left of the records: those that were not freed, and those of them that are stored.
    struct left {
        int alive;
        int stored;
        bool operator==(const left &) const = default;
        friend std::ostream &operator<<(std::ostream &out, const left &of) {
            return out << of.alive << " alive, " << of.stored << " stored";
        }
    };
    static constexpr left FREED = {0, 0};
    static constexpr left STORED = {1, 1};

    static left what_is_left() {
        return {conn_cb.num_clrec_malloc, dllist_num_entries(&conn_cb.err_conn_list)};
    }

    /// So that what was stored before does not count.
    static void make_another_client(cl_conn_evt_rec *rec) {
        static uint8_t number;
        rec->cl_info.mac[0] = ++number;
    }

    /// A client whose address can be used.
    static cl_conn_evt_rec *with_address() {
        cl_conn_evt_rec *const rec = attempt();
        rec->state = 4;
        rec->ipaddr_evt_id = 5;
        rec->is_ipv4_rcvd = 1;
        return rec;
    }

    static cl_conn_evt_rec *with_unanswered_dns() {
        cl_conn_evt_rec *const rec = with_address();
        rec->dns_timestamp = 77;
        return rec;
    }

    static cl_conn_evt_rec *in_state(uint8_t state) {
        cl_conn_evt_rec *const rec = attempt();
        rec->state = state;
        return rec;
    }

    /// An associated client that waits for an answer of the DHCP server.
    static cl_conn_evt_rec *with_unanswered_dhcp(uint8_t dhcp_state = 1) {
        cl_conn_evt_rec *const rec = in_state(4);
        rec->dhcp_state = dhcp_state;
        rec->is_tunnel_enabled = 1;
        return rec;
    }

    static lines decide(cl_conn_evt_rec *rec, int level = 7) {
        log_capture log(level);
        decide_on_client(rec);
        return verdict_of(log.lines());
    }

    /// Decides, and gives code and sub of the only report, which must tell of a failure.
    static code_and_sub failure_of(cl_conn_evt_rec *rec) {
        decide_on_client(rec);
        const std::vector<report> reports = take_reports();
        EXPECT_EQ(reports.size(), 1u);
        return reports.empty() || reports[0].outcome() != 0 ? code_and_sub(-2, -2) : reports[0].failure();
    }

    /// Decides; the outcomes of the reports.
    static std::vector<int> outcomes_of(cl_conn_evt_rec *rec) {
        decide_on_client(rec);
        std::vector<int> outcomes;
        for (const report &one : take_reports())
            outcomes.push_back(one.outcome());
        return outcomes;
    }

    /// Stores a failure of the client, as if from the attempt before.
    static cl_conn_evt_rec *store(uint8_t failure) {
        cl_conn_evt_rec *const rec = failed_attempt(1, failure);
        EXPECT_EQ(move_clrec_to_err_list(rec), 0);
        return rec;
    }
};

// With an IP address

TEST_F(ClientVerdict, UnansweredDnsIsADnsFailure) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    EXPECT_EQ(decide(rec), (lines{"CONN INFO: DNS failure - failure code 14, subinfo code 3", "<report>", "<stored>"}));
    ASSERT_EQ(what_is_left(), STORED);
    EXPECT_EQ(codes(*rec), (std::vector<int>{14, 0, 0, 0}));
    EXPECT_EQ(subs(*rec), (std::vector<int>{3, 0, 0, 0}));
    const std::vector<report> reports = take_reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].outcome(), 0);
    EXPECT_EQ(reports[0].failure(), code_and_sub(14, 3));
}

TEST_F(ClientVerdict, UnansweredDnsBehindNatOnAnUnseenVlanHasSub4) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->is_nat_enabled = 1;
    rec->vlan = 100;
    detect_vlan(99);
    detect_vlan(101);
    detect_vlan(108);
    EXPECT_EQ(decide(rec), (lines{"CONN INFO: DNS failure - failure code 14, subinfo code 4", "<report>", "<stored>"}));
    EXPECT_EQ(take_reports().at(0).failure(), code_and_sub(14, 4));
}

TEST_F(ClientVerdict, UnansweredDnsBehindNatOnASeenVlanHasSub3) {
    for (const uint16_t vlan : {uint16_t{0}, uint16_t{1}, uint16_t{7}, uint16_t{8}, uint16_t{100}, uint16_t{4095}}) {
        cl_conn_evt_rec *const rec = with_unanswered_dns();
        rec->is_nat_enabled = 1;
        rec->vlan = vlan;
        detect_vlan(vlan);
        make_another_client(rec);
        EXPECT_EQ(failure_of(rec), code_and_sub(14, 3)) << vlan;
    }
}

TEST_F(ClientVerdict, WithoutNatTheVlanOfUnansweredDnsDoesNotMatter) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->vlan = 100;
    EXPECT_EQ(failure_of(rec), code_and_sub(14, 3));
}

TEST_F(ClientVerdict, AVlanBeyondTheMapIsUnseen) {
    std::memset(g_bitmap_vlans_detected, 0xFF, sizeof g_bitmap_vlans_detected);
    for (const uint16_t vlan : {uint16_t{4096}, uint16_t{4103}, uint16_t{8192}, uint16_t{65535}}) {
        cl_conn_evt_rec *const dns = with_unanswered_dns();
        dns->is_nat_enabled = 1;
        dns->vlan = vlan;
        make_another_client(dns);
        EXPECT_EQ(failure_of(dns), code_and_sub(14, 4)) << vlan;
        cl_conn_evt_rec *const dhcp = with_unanswered_dhcp();
        dhcp->is_tunnel_enabled = 0;
        dhcp->vlan = vlan;
        make_another_client(dhcp);
        EXPECT_EQ(failure_of(dhcp), code_and_sub(13, 1)) << vlan;
    }
}

TEST_F(ClientVerdict, AnIpv6AddressCountsForUnansweredDns) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->is_ipv4_rcvd = 0;
    rec->is_ipv6_rcvd = 1;
    EXPECT_EQ(failure_of(rec), code_and_sub(14, 3));
}

TEST_F(ClientVerdict, UnansweredDnsAfterAnErrorIsAssumedSuccess) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->rcvd_err_evt = 15 * 65536 + 10;
    EXPECT_EQ(outcomes_of(rec), std::vector<int>{1});
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AnsweredDnsIsAssumedSuccess) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->dns_latency = 1;
    EXPECT_EQ(outcomes_of(rec), std::vector<int>{1});
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AnAddressWithoutDnsIsAssumedSuccess) {
    cl_conn_evt_rec *const rec = with_address();
    rec->dhcp_latency = 11;
    rec->aaa_latency = 22;
    EXPECT_EQ(decide(rec), (lines{ASSUMED, "CTS: Latency info Dhcp = 11 aaa = 22 dns = 0", "<report>"}));
    const std::vector<report> reports = take_reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].outcome(), 1);
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, TheSuccessOfAClientThatHasLeftIsNotSent) {
    cl_conn_evt_rec *const rec = with_address();
    rec->is_client_disconnected = 1;
    EXPECT_EQ(decide(rec), lines{DISCONNECTED});
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AnUnansweredDnsOfAClientThatHasLeftIsReported) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->is_client_disconnected = 1;
    EXPECT_EQ(failure_of(rec), code_and_sub(14, 3));
}

TEST_F(ClientVerdict, ASuccessAfterAFailureIsStored) {
    cl_conn_evt_rec *const rec = with_address();
    rec->failure_code[3] = 4;
    EXPECT_EQ(outcomes_of(rec), std::vector<int>{1});
    EXPECT_EQ(what_is_left(), STORED);
}

TEST_F(ClientVerdict, AnUnsentRecordWithAddressIsMergedAndFreed) {
    cl_conn_evt_rec *const before = store(4);
    advance(1000);
    cl_conn_evt_rec *const rec = with_address();
    rec->failure_code[0] = 4;
    rec->is_client_disconnected = 1;
    const uint32_t timestamp = rec->timestamp;
    decide_on_client(rec);
    EXPECT_EQ(what_is_left(), STORED);
    EXPECT_EQ(before->timestamp, timestamp);
}

TEST_F(ClientVerdict, ARecordThatWasSentEarlierIsStoredThoughTheClientHasLeft) {
    cl_conn_evt_rec *const rec = with_address();
    rec->failure_code[0] = 4;
    rec->is_rec_sent_to_server = 1;
    rec->is_client_disconnected = 1;
    decide_on_client(rec);
    EXPECT_EQ(what_is_left(), STORED);
}

TEST_F(ClientVerdict, ARepeatedDnsFailureIsMergedIntoTheOneBefore) {
    cl_conn_evt_rec *const before = store(14);
    advance(1000);
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    const uint32_t timestamp = rec->timestamp;
    EXPECT_EQ(decide(rec), (lines{"CONN INFO: DNS failure - failure code 14, subinfo code 3"}));
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), STORED);
    EXPECT_EQ(before->timestamp, timestamp);
}

TEST_F(ClientVerdict, ADnsFailureThatCannotBeStoredIsFreed) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    fail_nth_call("malloc", 2);  // after the report's
    EXPECT_EQ(failure_of(rec), code_and_sub(14, 3));
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AFailureWhoseReportFindsNoMemoryIsStored) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    fail_nth_call("malloc", 1);
    decide_on_client(rec);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), STORED);
}

TEST_F(ClientVerdict, NoVerdictOfAConnectionErrorIsLoggedWithAnAddress) {
    for (const std::string &line : decide(with_unanswered_dns()))
        EXPECT_EQ(line.find("connection error!"), std::string::npos) << line;
    cl_conn_evt_rec *const rec = with_address();
    rec->rcvd_err_evt = 1;
    for (const std::string &line : decide(rec))
        EXPECT_EQ(line.find("connection error!"), std::string::npos) << line;
}

// What makes an address

TEST_F(ClientVerdict, WithoutAnIpv6EventThereIsNoAddress) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->ipaddr_evt_id = 0;
    EXPECT_EQ(decide(rec), lines{failed(0, "0x0", "0:0:0:0:", "0:0:0:0:")});
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, ALinkLocalAddressIsNone) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->is_link_local_ip_rcvd = 1;
    EXPECT_EQ(decide(rec), lines{failed(0, "0x0", "0:0:0:0:", "0:0:0:0:")});
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AnIpv6EventWithoutAUsableAddressIsNone) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    rec->is_ipv4_rcvd = 0;
    EXPECT_EQ(decide(rec), lines{silent(0, 0)});
    EXPECT_EQ(what_is_left(), FREED);
}

// Without an IP address

TEST_F(ClientVerdict, AnIgnoredAssociationIsFreedWithoutReport) {
    cl_conn_evt_rec *const rec = in_state(3);
    rec->ignore_assoc_fail = 1;
    rec->rcvd_err_evt = 15 * 65536 + 2;
    rec->failure_code[0] = 4;
    rec->is_rec_sent_to_server = 1;
    EXPECT_EQ(decide(rec), lines{CLIENT + "ignore sending assoc failure to server"});
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AnIgnoredAssociationWithAnAddressCountsAsSuccess) {
    cl_conn_evt_rec *const rec = with_address();
    rec->ignore_assoc_fail = 1;
    EXPECT_EQ(outcomes_of(rec), std::vector<int>{1});
}

TEST_F(ClientVerdict, AnAssociationNeverRequestedIsSuppressed) {
    for (const uint8_t state : {uint8_t{0}, uint8_t{1}, uint8_t{2}, uint8_t{5}}) {
        cl_conn_evt_rec *const rec = in_state(state);
        rec->failure_code[0] = 4;
        rec->is_rec_sent_to_server = 1;
        EXPECT_EQ(decide(rec), lines{"CTS: Supressing CL_CONN_NO_ASSOC_RCVD failure for client00:11:22:33:00:01"});
        EXPECT_EQ(what_is_left(), FREED);
    }
    EXPECT_TRUE(take_reports().empty());
}

TEST_F(ClientVerdict, AnUnansweredAssociationIsAFailure) {
    cl_conn_evt_rec *const rec = in_state(3);
    rec->num_evt = 0;
    EXPECT_EQ(decide(rec), (lines{CLIENT + "Assoc failure - failure code 3 subinfo code 41", "<report>",
                                  failed(0, "0x0", "3:0:0:0:", "41:0:0:0:"), "<stored>"}));
    EXPECT_EQ(take_reports().at(0).failure(), code_and_sub(3, 41));
    EXPECT_EQ(what_is_left(), STORED);
}

TEST_F(ClientVerdict, AnErrorOfTheAttemptKeepsItFromBeingJudgedByItsState) {
    for (const uint8_t state : {uint8_t{1}, uint8_t{3}, uint8_t{4}}) {
        cl_conn_evt_rec *const rec = in_state(state);
        rec->dhcp_state = 1;
        rec->rcvd_err_evt = 15 * 65536 + 10;
        EXPECT_EQ(decide(rec), lines{failed(0, "0xf000a", "0:0:0:0:", "0:0:0:0:")});
        EXPECT_EQ(what_is_left(), FREED);
    }
    EXPECT_TRUE(take_reports().empty());
}

TEST_F(ClientVerdict, AnAddressFlagKeepsAnAttemptFromBeingJudgedByItsState) {
    for (const bool ipv6 : {false, true}) {
        cl_conn_evt_rec *const rec = in_state(3);
        (ipv6 ? rec->is_ipv6_rcvd : rec->is_ipv4_rcvd) = 1;
        EXPECT_EQ(decide(rec), lines{failed(0, "0x0", "0:0:0:0:", "0:0:0:0:")});
        EXPECT_EQ(what_is_left(), FREED);
    }
}

TEST_F(ClientVerdict, AnAttemptReportedEarlierIsStoredWithItsVerdict) {
    cl_conn_evt_rec *const rec = in_state(4);
    EXPECT_EQ(check(rec, 1, 14), 0x0001000Eu);
    EXPECT_EQ(check(rec, 15, 803), 0x000F0323u);
    EXPECT_EQ(decide(rec), (lines{failed(0, "0xf0323", "7:4:0:0:", "14:803:0:0:"), "<stored>"}));
    EXPECT_EQ(what_is_left(), STORED);
}

TEST_F(ClientVerdict, TheVerdictCountsTheEvents) {
    const wl_evt_info_t event = event_of(15, 10);
    cl_conn_evt_rec *const rec = in_state(4);
    (void)add_evt(rec, &event);
    (void)add_evt(rec, &event);
    EXPECT_EQ(decide(rec), lines{failed(2, "0xf000a", "0:0:0:0:", "0:0:0:0:")});
}

TEST_F(ClientVerdict, AReportedAttemptWithErrorIsStoredEvenWithoutAFailure) {
    cl_conn_evt_rec *const rec = in_state(4);
    rec->rcvd_err_evt = 15 * 65536 + 10;
    rec->is_rec_sent_to_server = 1;
    decide_on_client(rec);
    EXPECT_EQ(what_is_left(), STORED);
}

TEST_F(ClientVerdict, AFailedAttemptThatCannotBeStoredIsFreed) {
    cl_conn_evt_rec *const rec = in_state(4);
    rec->rcvd_err_evt = 1;
    rec->is_rec_sent_to_server = 1;
    fail_nth_call("malloc", 1);
    decide_on_client(rec);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AFailedAttemptThatWasNotSentIsMergedAndFreed) {
    cl_conn_evt_rec *const before = store(3);
    advance(1000);
    cl_conn_evt_rec *const rec = in_state(3);
    const uint32_t timestamp = rec->timestamp;
    EXPECT_EQ(decide(rec), (lines{CLIENT + "Assoc failure - failure code 3 subinfo code 41",
                                  failed(0, "0x0", "3:0:0:0:", "41:0:0:0:")}));
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), STORED);
    EXPECT_EQ(before->timestamp, timestamp);
}

// An associated client without address

TEST_F(ClientVerdict, AClientThatNeverAskedForAnAddressHasNotFailed) {
    for (int dhcp_state = 0; dhcp_state < 256; dhcp_state++) {
        if (dhcp_state == 1 || dhcp_state == 3 || dhcp_state == 8)
            continue;
        EXPECT_EQ(decide(with_unanswered_dhcp(static_cast<uint8_t>(dhcp_state))), lines{silent(0, 0)}) << dhcp_state;
    }
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AnAuthorisedSilentClientIsASuccess) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp(0);
    rec->is_node_authorised = 1;
    EXPECT_EQ(decide(rec), (lines{SILENT_SUCCESS, "<report>"}));
    EXPECT_EQ(take_reports().at(0).outcome(), 1);
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, AnAuthorisedSilentClientThatHasLeftIsNotReported) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp(0);
    rec->is_node_authorised = 1;
    rec->is_client_disconnected = 1;
    EXPECT_EQ(decide(rec), lines{silent(1, 1)});
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, ASilentClientThatHasLeftIsNotReported) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp(0);
    rec->is_client_disconnected = 1;
    EXPECT_EQ(decide(rec), lines{silent(0, 1)});
    EXPECT_EQ(what_is_left(), FREED);
}

TEST_F(ClientVerdict, ASilentClientThatFailedBeforeIsStored) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp(0);
    rec->failure_code[0] = 4;
    rec->is_rec_sent_to_server = 1;
    EXPECT_EQ(decide(rec), (lines{silent(0, 0), "<stored>"}));
    EXPECT_EQ(what_is_left(), STORED);
}

TEST_F(ClientVerdict, ASilentClientThatFailedBeforeButWasNotSentIsMergedAndFreed) {
    cl_conn_evt_rec *const before = store(4);
    advance(1000);
    cl_conn_evt_rec *const rec = with_unanswered_dhcp(0);
    rec->failure_code[1] = 4;
    const uint32_t timestamp = rec->timestamp;
    decide_on_client(rec);
    EXPECT_EQ(what_is_left(), STORED);
    EXPECT_EQ(before->timestamp, timestamp);
}

TEST_F(ClientVerdict, AnUnansweredRequestForAnAddressIsADhcpFailure) {
    for (const uint8_t dhcp_state : {uint8_t{1}, uint8_t{3}, uint8_t{8}}) {
        cl_conn_evt_rec *const rec = with_unanswered_dhcp(dhcp_state);
        make_another_client(rec);
        EXPECT_EQ(failure_of(rec), code_and_sub(13, 0));
    }
    EXPECT_EQ(stored().size(), 3u);
}

TEST_F(ClientVerdict, ADhcpFailureIsLoggedThenReportedThenStored) {
    EXPECT_EQ(decide(with_unanswered_dhcp()),
              (lines{CLIENT + "DHCP failure", "<report>", failed(0, "0x0", "13:0:0:0:", "0:0:0:0:"), "<stored>"}));
}

TEST_F(ClientVerdict, ALinkLocalIpv4AddressIsADhcpFailure) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp(0);
    rec->is_link_local_ip_rcvd = 1;
    EXPECT_EQ(decide(rec), (lines{CLIENT + "still has link local IP. Sending DHCP failure", "<report>",
                                  failed(0, "0x0", "13:0:0:0:", "0:0:0:0:"), "<stored>"}));
    EXPECT_EQ(take_reports().at(0).failure(), code_and_sub(13, 0));
}

TEST_F(ClientVerdict, ALinkLocalAddressIsNamedEvenWhileTheClientAsksForAnother) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp(3);
    rec->is_link_local_ip_rcvd = 1;
    EXPECT_EQ(decide(rec).at(0), CLIENT + "still has link local IP. Sending DHCP failure");
}

TEST_F(ClientVerdict, ADhcpFailureOnAnUnseenVlanHasSub1) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp();
    rec->is_tunnel_enabled = 0;
    rec->vlan = 100;
    detect_vlan(99);
    detect_vlan(101);
    EXPECT_EQ(failure_of(rec), code_and_sub(13, 1));
}

TEST_F(ClientVerdict, ADhcpFailureOnASeenVlanHasSub0) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp();
    rec->is_tunnel_enabled = 0;
    rec->vlan = 100;
    detect_vlan(100);
    EXPECT_EQ(failure_of(rec), code_and_sub(13, 0));
}

TEST_F(ClientVerdict, ADhcpFailureInATunnelHasSub0) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp();
    rec->vlan = 100;
    EXPECT_EQ(failure_of(rec), code_and_sub(13, 0));
}

// The slot of a failure of the whole attempt

TEST_F(ClientVerdict, TheFailureOfAnAttemptTakesTheFirstFreeSlot) {
    struct {
        std::vector<int> before;
        std::vector<int> after;
    } const slots[] = {
        {{0, 0, 0, 0}, {3, 0, 0, 0}},       {{50, 0, 0, 0}, {50, 3, 0, 0}},      {{50, 51, 0, 0}, {50, 51, 3, 0}},
        {{50, 51, 52, 0}, {50, 51, 52, 3}}, {{50, 51, 52, 53}, {50, 51, 52, 3}}, {{50, 0, 52, 53}, {50, 3, 52, 53}},
        {{0, 51, 52, 53}, {3, 51, 52, 53}},
    };
    for (const auto &[before, after] : slots) {
        cl_conn_evt_rec *const rec = in_state(3);
        make_another_client(rec);
        for (size_t slot = 0; slot < 4; slot++)
            rec->failure_code[slot] = static_cast<uint8_t>(before[slot]);
        EXPECT_EQ(failure_of(rec), code_and_sub(3, 41));
        EXPECT_EQ(codes(*stored().back()), after);
    }
}

TEST_F(ClientVerdict, ADhcpFailureOverwritesTheFourthSlotWhenAllAreTaken) {
    cl_conn_evt_rec *const rec = with_unanswered_dhcp();
    for (const size_t slot : {0, 1, 2, 3}) {
        rec->failure_code[slot] = static_cast<uint8_t>(50 + slot);
        rec->subinfo_code[slot] = 9;
    }
    EXPECT_EQ(failure_of(rec), code_and_sub(13, 0));
    EXPECT_EQ(codes(*rec), (std::vector<int>{50, 51, 52, 13}));
    EXPECT_EQ(subs(*rec), (std::vector<int>{9, 9, 9, 0}));
}

TEST_F(ClientVerdict, ADnsFailureOverwritesTheFourthSlotWhenAllAreTaken) {
    cl_conn_evt_rec *const rec = with_unanswered_dns();
    for (const size_t slot : {0, 1, 2, 3})
        rec->failure_code[slot] = static_cast<uint8_t>(50 + slot);
    EXPECT_EQ(failure_of(rec), code_and_sub(14, 3));
    EXPECT_EQ(codes(*rec), (std::vector<int>{50, 51, 52, 14}));
}

// Levels

TEST_F(ClientVerdict, EachLineHasItsLevel) {
    struct {
        int level;
        std::string line;
        cl_conn_evt_rec *(*ended)();
    } const cases[] = {
        {6, "CONN INFO: DNS failure - failure code 14, subinfo code 3", with_unanswered_dns},
        {6, ASSUMED, with_address},
        {6, "CTS: Latency info Dhcp = 0 aaa = 0 dns = 0", with_address},
        {6, DISCONNECTED,
         [] {
             cl_conn_evt_rec *const rec = with_address();
             rec->is_client_disconnected = 1;
             return rec;
         }},
        {6, CLIENT + "ignore sending assoc failure to server",
         [] {
             cl_conn_evt_rec *const rec = in_state(3);
             rec->ignore_assoc_fail = 1;
             return rec;
         }},
        {7, "CTS: Supressing CL_CONN_NO_ASSOC_RCVD failure for client00:11:22:33:00:01", [] { return in_state(1); }},
        {3, CLIENT + "Assoc failure - failure code 3 subinfo code 41", [] { return in_state(3); }},
        {7, failed(0, "0x0", "3:0:0:0:", "41:0:0:0:"), [] { return in_state(3); }},
        {7, CLIENT + "DHCP failure", [] { return with_unanswered_dhcp(); }},
        {7, CLIENT + "still has link local IP. Sending DHCP failure",
         [] {
             cl_conn_evt_rec *const rec = with_unanswered_dhcp();
             rec->is_link_local_ip_rcvd = 1;
             return rec;
         }},
        {7, silent(0, 0), [] { return with_unanswered_dhcp(0); }},
        {7, SILENT_SUCCESS,
         [] {
             cl_conn_evt_rec *const rec = with_unanswered_dhcp(0);
             rec->is_node_authorised = 1;
             return rec;
         }},
    };
    for (const auto &[level, line, ended] : cases) {
        EXPECT_TRUE(contains(decide(ended(), level), line)) << line;
        EXPECT_FALSE(contains(decide(ended(), level - 1), line)) << line;
    }
}

// ---- From the bus ----

TEST_F(ClientVerdict, ANewAuthenticationEndsAnUnansweredAssociation) {
    deliver(1, INFO_AUTH_REQUEST, 0);
    deliver(1, INFO_AUTH_RESPONSE, 0);
    deliver(1, INFO_ASSOC_REQUEST, 0);
    EXPECT_TRUE(take_reports().empty());
    deliver(1, INFO_AUTH_REQUEST, 0);
    const std::vector<report> reports = take_reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].failure(), code_and_sub(3, 41));
    ASSERT_EQ(stored().size(), 1u);
    EXPECT_EQ(stored()[0]->num_evt, 3);
    ASSERT_NE(in_progress(), nullptr);
    EXPECT_EQ(in_progress()->num_evt, 1);
}

TEST_F(ClientVerdict, AnAddressClearsAnErrorButNotTheFailureItReported) {
    deliver(1, INFO_AUTH_REQUEST, 0);
    deliver(1, INFO_ASSOC_RESPONSE, 0);
    deliver(1, INFO_KEY_HANDSHAKE, 14);
    byte_string ipv6(16, 0x20);
    deliver(message(1, INFO_IPV6_ADDRESS, 0).item(WL_SUBINFO_VALUE, ipv6));
    EXPECT_EQ(in_progress()->rcvd_err_evt, 0u);
    take_reports();
    deliver(1, INFO_AUTH_REQUEST, 0);
    const std::vector<report> reports = take_reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].outcome(), 1);
    ASSERT_EQ(stored().size(), 1u);
    EXPECT_EQ(codes(*stored()[0]), (std::vector<int>{7, 0, 0, 0}));
}

}  // namespace
