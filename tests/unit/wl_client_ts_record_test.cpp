#include <memory>

#include "test_clock.h"
#include "wl_client_ts_tracking_fixture.h"
#include "wl_evt_payloads.h"

/// Keeps what the watched blocks held when they were freed.
static struct {
    std::vector<const void *> blocks;
    size_t size = 0;
    std::vector<byte_string> freed;
} watched;

extern "C" void __real_free(void *block);
extern "C" void __wrap_free(void *block) {
    if (std::find(watched.blocks.begin(), watched.blocks.end(), block) != watched.blocks.end() && block != nullptr) {
        const auto *const bytes = static_cast<const uint8_t *>(block);
        watched.freed.emplace_back(bytes, bytes + watched.size);
    }
    __real_free(block);
}

namespace {

const std::string SUCCESS = "CTS: Client " + mac_text(1) + " connected successfuly! Sending info to server now!!";
const std::string PORTAL_SUCCESS = "CTS: Portal Client " + mac_text(1) + " connected successfully";

byte_string address_bytes(const uint32_t &address) {
    byte_string bytes(4);
    std::memcpy(bytes.data(), &address, 4);
    return bytes;
}

const byte_string SERVER = {10, 0, 0, 53};
const byte_string NOWHERE = {0, 0, 0, 0};

byte_string joined(byte_string first, const byte_string &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

uint64_t now_usec() {
    return world.clock_usec;
}

/// Every field of a record but the client, by name.
std::vector<std::pair<std::string, uint64_t>> fields_of(const cl_conn_evt_rec &rec) {
    std::vector<std::pair<std::string, uint64_t>> all;
#define FIELD(name) all.emplace_back(#name, rec.name)
    FIELD(gmt);
    FIELD(timestamp);
    FIELD(auth_timestamp);
    FIELD(num_evt);
    FIELD(ipaddr_evt_id);
    FIELD(rcvd_err_evt);
    for (const cl_evt &event : rec.cl_evt) {
        all.emplace_back("tdiff_msec", event.tdiff_msec);
        all.emplace_back("info_code", event.info_code);
        all.emplace_back("subinfo_code", event.subinfo_code);
        all.emplace_back("subinfo_value", reinterpret_cast<uintptr_t>(event.subinfo_value));
        all.emplace_back("subinfo_value_len", event.subinfo_value_len);
    }
    for (int i = 0; i < CL_MAX_FAILURES; i++) {
        FIELD(failure_code[i]);
        FIELD(subinfo_code[i]);
    }
    FIELD(is_rec_sent_to_server);
    FIELD(channel);
    FIELD(state);
    FIELD(ignore_assoc_fail);
    FIELD(dhcp_state);
    FIELD(is_ipv4_rcvd);
    FIELD(is_ipv6_rcvd);
    FIELD(is_link_local_ip_rcvd);
    FIELD(is_dot1x);
    FIELD(is_portal_enabled);
    FIELD(is_node_authorised);
    FIELD(roaming_failure_occured);
    FIELD(dhcp_timestamp);
    FIELD(aaa_timestamp);
    FIELD(dns_timestamp);
    FIELD(dhcp_latency);
    FIELD(aaa_latency);
    FIELD(dns_latency);
    FIELD(prev_evt_info_code);
    FIELD(prev_evt_subinfo_code);
    FIELD(is_client_disconnected);
    FIELD(cli_jrny.assoc_ts);
    FIELD(cli_jrny.auth_ts);
    FIELD(cli_jrny.network_ts);
    FIELD(dhcp_server_ip);
    FIELD(dns_server_ip);
    FIELD(invalid_ip_addr);
    FIELD(rogue_dhcp_server_ip);
    for (size_t i = 0; i < sizeof rec.conflict_mac; i++)
        FIELD(conflict_mac[i]);
    FIELD(vlan);
    FIELD(is_tunnel_enabled);
    FIELD(ipv4_addr);
    FIELD(aaa_server_ip);
    FIELD(is_nat_enabled);
#undef FIELD
    return all;
}

class ClientRecord : public TrackingFixture {
protected:
    ClientRecord() {
        watched.blocks.clear();
        watched.freed.clear();
    }

    ~ClientRecord() override {
        watched.blocks.clear();
    }

    /// A new record that is in no table.
    static cl_conn_evt_rec *created(const client_event &request = {}) {
        const decoded_event event(request);
        return create_rec(&event.info);
    }

    /// Begins an attempt of client 1.
    static cl_conn_evt_rec &begin(const client_event &request = {}) {
        deliver(request);
        return *in_progress();
    }

    /// The lines of one function for an event, at a debug level.
    static lines log_of(const client_event &event, int level = 7, const std::string &function = "add_evt") {
        log_capture log(level);
        deliver(event);
        return lines_of(log.lines(), function);
    }

    static std::vector<byte_string> reports() {
        return sent(VRE_DEBUG_CLIENT_CONN_INFO);
    }
};

// create_rec

TEST_F(ClientRecord, IsNewWithTheClientItsNetworkAndTheTime) {
    test_time = 1234567890;
    std::unique_ptr<cl_conn_evt_rec, void (*)(cl_conn_evt_rec *)> rec(created(), clrec_free);
    test_time = 0;
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(byte_string(rec->cl_info.mac, rec->cl_info.mac + 6), mac_of(1));
    EXPECT_EQ(byte_string(rec->cl_info.bssid, rec->cl_info.bssid + 6), ap_bssid());
    EXPECT_STREQ(rec->cl_info.ssid, "Lobby");
    EXPECT_EQ(rec->cl_info.ssid_len, 5);
    EXPECT_EQ(rec->gmt, 1234567890u);
    EXPECT_EQ(rec->timestamp, now());
    EXPECT_EQ(rec->auth_timestamp, now());
    EXPECT_EQ(rec->prev_evt_info_code, 0xFFFFFFFFu);
    EXPECT_EQ(rec->prev_evt_subinfo_code, 0xFFFF);
}

TEST_F(ClientRecord, IsNewWithEverythingElseZero) {
    test_time = 1234567890;
    cl_conn_evt_rec *const rec = created();
    test_time = 0;
    cl_conn_evt_rec expected{};
    expected.gmt = 1234567890;
    expected.timestamp = expected.auth_timestamp = now();
    expected.prev_evt_info_code = 0xFFFFFFFF;
    expected.prev_evt_subinfo_code = 0xFFFF;
    EXPECT_EQ(fields_of(*rec), fields_of(expected));
    clrec_free(rec);
}

TEST_F(ClientRecord, IsCountedWithItsSsid) {
    cl_conn_evt_rec *const rec = created();
    EXPECT_EQ(accounts::now(), (accounts{1, 1, 0, 0, 0, static_cast<int>(sizeof *rec + 6)}));
    clrec_free(rec);
    EXPECT_EQ(accounts::now(), accounts());
}

TEST_F(ClientRecord, CreationIsSaidAtLevel7) {
    for (const int level : {6, 7}) {
        log_capture log(level);
        clrec_free(created());
        EXPECT_EQ(lines_of(log.lines(), "create_rec"),
                  level == 7 ? lines{"CONN INFO: Successfully created the client record"} : lines());
    }
}

TEST_F(ClientRecord, TakesTheMillisecondsCutTo32Bits) {
    for (const uint64_t msec : {uint64_t{1} << 32, (uint64_t{391} << 32) - 1, (uint64_t{391} << 32) + 5}) {
        world.clock_usec = msec * 1000 + 999;
        cl_conn_evt_rec *const rec = created();
        EXPECT_EQ(rec->timestamp, static_cast<uint32_t>(msec));
        clrec_free(rec);
    }
}

TEST_F(ClientRecord, HasNoSsidWithoutOne) {
    cl_conn_evt_rec *const rec = created({.ssid = std::nullopt});
    EXPECT_EQ(rec->cl_info.ssid, nullptr);
    EXPECT_EQ(rec->cl_info.ssid_len, 0);
    EXPECT_EQ(conn_cb.num_ssid_malloc, 0);
    clrec_free(rec);
}

TEST_F(ClientRecord, CopiesAnSsidOf32CharactersAndEndsIt) {
    const std::string longest(32, 's');
    cl_conn_evt_rec *const rec = created({.ssid = longest});
    EXPECT_EQ(rec->cl_info.ssid, longest);
    EXPECT_EQ(rec->cl_info.ssid_len, 32);
    clrec_free(rec);
}

TEST_F(ClientRecord, DoesNotReadBeyondTheSsid) {
    byte_string mac = mac_of(1);
    char vap[] = "ath0";
    for (const std::string text : {"abc", "abcd"}) {
        const std::unique_ptr<char[]> name(new char[text.size()]);  // of just its size
        text.copy(name.get(), text.size());
        wl_evt_info_t request{};
        request.cl_mac = mac.data();
        request.name = vap;
        request.ssid = name.get();
        request.ssid_len = 3;
        cl_conn_evt_rec *const rec = create_rec(&request);
        EXPECT_STREQ(rec->cl_info.ssid, "abc");
        clrec_free(rec);
    }
}

TEST_F(ClientRecord, HasAnEmptyBssidWithoutOne) {
    cl_conn_evt_rec *const rec = created({.bssid = std::nullopt});
    EXPECT_EQ(byte_string(rec->cl_info.bssid, rec->cl_info.bssid + 6), byte_string(6));
    clrec_free(rec);
}

TEST_F(ClientRecord, TakesTheChannelFromTheFirstWordOfEitherRequest) {
    struct {
        std::optional<byte_string> value;
        int channel;
    } const values[] = {{byte_string{0x00, 0x24, 0xC5}, 36},
                        {byte_string{0x01, 0x02}, 0x0102},
                        {byte_string{0x00, 0x0B, 0, 9, 9, 9}, 11},
                        {byte_string{}, 0},
                        {std::nullopt, 0}};
    for (const uint32_t info : {2u, 4u})
        for (const auto &each : values) {
            cl_conn_evt_rec *const rec = created({.info = info, .value = each.value});
            EXPECT_EQ(rec->channel, each.channel);
            clrec_free(rec);
        }
}

TEST_F(ClientRecord, AValueOfOneByteHoldsNoChannel) {
    cl_conn_evt_rec *const rec = created({.value = byte_string{1}});
    EXPECT_EQ(rec->channel, 0);
    clrec_free(rec);
}

TEST_F(ClientRecord, TakesTheConfigurationOfItsVap) {
    cl_conn_evt_rec *rec = created({.vap = "ath1"});
    EXPECT_EQ(rec->is_portal_enabled, 1);
    EXPECT_EQ(rec->is_dot1x, 0);
    EXPECT_EQ(rec->vlan, 0);
    EXPECT_EQ(rec->is_tunnel_enabled, 0);
    EXPECT_EQ(rec->is_nat_enabled, 0);
    clrec_free(rec);
    rec = created({.vap = "ath2"});
    EXPECT_EQ(rec->is_portal_enabled, 0);
    EXPECT_EQ(rec->is_dot1x, 1);
    EXPECT_EQ(rec->vlan, 2748);
    EXPECT_EQ(rec->is_tunnel_enabled, 1);
    EXPECT_EQ(rec->is_nat_enabled, 1);
    clrec_free(rec);
}

TEST_F(ClientRecord, IsKeptWithoutAConfiguration) {
    for (const std::optional<std::string> &vap : {std::optional<std::string>(), {"ath7"}, {"ath"}}) {
        log_capture log(3);
        cl_conn_evt_rec *const rec = created({.vap = vap});
        ASSERT_NE(rec, nullptr);
        EXPECT_EQ(lines_of(log.lines(), "create_rec"), lines{"Fail in getting config from the ssid profile"});
        EXPECT_EQ(rec->is_portal_enabled, 0);
        clrec_free(rec);
    }
}

TEST_F(ClientRecord, TheMissingConfigurationIsSaidAtLevel3) {
    log_capture log(2);
    clrec_free(created({.vap = "ath7"}));
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientRecord, IsNotCreatedWithoutMemory) {
    fail_nth_call("malloc", 1);
    log_capture log(7);
    EXPECT_EQ(created(), nullptr);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(accounts::now(), accounts());
    EXPECT_EQ(lines_of(log.lines(), "create_rec"), lines());
}

TEST_F(ClientRecord, HasAnEmptySsidWithoutMemoryForIt) {
    fail_nth_call("malloc", 2);
    cl_conn_evt_rec *const rec = created();
    EXPECT_EQ(faults_fired("malloc"), 1);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->cl_info.ssid, nullptr);
    EXPECT_EQ(rec->cl_info.ssid_len, 0);
    EXPECT_EQ(accounts::now(), (accounts{1, 0, 0, 0, 0, static_cast<int>(sizeof *rec)}));
    clrec_free(rec);
}

/// A record of every configuration flag, with events and a failure, that has seen everything.
cl_conn_evt_rec &fill(cl_conn_evt_rec &rec) {
    rec.is_portal_enabled = 1;  // the VAP has set the other flags
    rec.failure_code[1] = 14;
    rec.subinfo_code[1] = 4;
    rec.rcvd_err_evt = 0x150003;
    rec.ipaddr_evt_id = 2;
    rec.state = CL_ASSOC_ANSWERED;
    rec.ignore_assoc_fail = rec.dhcp_state = rec.is_ipv4_rcvd = rec.is_ipv6_rcvd = 1;
    rec.is_link_local_ip_rcvd = rec.is_node_authorised = rec.roaming_failure_occured = 1;
    rec.dhcp_timestamp = rec.aaa_timestamp = rec.dns_timestamp = 5;
    rec.dhcp_latency = rec.aaa_latency = rec.dns_latency = 6;
    rec.cli_jrny = {1, 2, 3};
    rec.dhcp_server_ip = rec.dns_server_ip = rec.invalid_ip_addr = rec.rogue_dhcp_server_ip = 7;
    rec.ipv4_addr = rec.aaa_server_ip = 8;
    std::memset(rec.conflict_mac, 9, sizeof rec.conflict_mac);
    rec.is_rec_sent_to_server = rec.is_client_disconnected = 1;
    return rec;
}

TEST_F(ClientRecord, WithoutItsSsidTheAttemptTakesNoEventsButARequestBeginsAnew) {
    fail_nth_call("malloc", 3);  // 1 forwards, 2 is the record
    cl_conn_evt_rec &rec = begin();
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(rec.cl_info.ssid, nullptr);
    deliver({.info = 16});
    EXPECT_EQ(rec.num_evt, 1) << "the event is of another SSID";
    EXPECT_EQ(rec.is_node_authorised, 0);
    deliver({.info = 4});
    EXPECT_EQ(attempts(), 1);
    EXPECT_STREQ(in_progress()->cl_info.ssid, "Lobby");
    EXPECT_EQ(in_progress()->num_evt, 1);
    EXPECT_EQ(accounts::now().clrec, 1);
}

TEST_F(ClientRecord, AResetKeepsTheClientTheConfigurationAndTheEvents) {
    cl_conn_evt_rec &rec = begin({.value = byte_string{0, 40}, .vap = "ath2"});
    deliver({.info = 16, .sub = 7, .value = byte_string{1, 2, 3}, .vap = "ath2"});
    fill(rec);
    const auto client = rec.cl_info;
    cl_conn_evt_rec expected{};
    expected.gmt = rec.gmt;
    expected.num_evt = 2;
    expected.ipaddr_evt_id = 2;
    expected.rcvd_err_evt = 0x150003;
    std::memcpy(expected.cl_evt, rec.cl_evt, sizeof expected.cl_evt);
    expected.failure_code[1] = 14;
    expected.subinfo_code[1] = 4;
    expected.channel = 40;
    expected.prev_evt_info_code = 16;
    expected.prev_evt_subinfo_code = 7;
    expected.is_dot1x = expected.is_portal_enabled = expected.is_tunnel_enabled = expected.is_nat_enabled = 1;
    expected.vlan = 2748;
    reset_clrec(&rec);
    EXPECT_EQ(std::memcmp(&client, &rec.cl_info, sizeof client), 0);
    EXPECT_EQ(fields_of(rec), fields_of(expected));
}

TEST_F(ClientRecord, AnEntryOfTheDetailedLogTakes24Bytes) {
    const decoded_event event({.info = 4, .sub = 17});
    detail_clrec *rec = create_detail_clrec(&event.info);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(accounts::now().size, 24);
    EXPECT_EQ(byte_string(rec->cl_mac, rec->cl_mac + 6), mac_of(1));
    clts_release(rec, sizeof *rec);
    fail_nth_call("malloc", 1);
    EXPECT_EQ(create_detail_clrec(&event.info), nullptr);
    EXPECT_EQ(accounts::now().size, 0);
}

// The accounts

TEST_F(ClientRecord, MemoryIsCountedInBytes) {
    void *block = clts_malloc(1000);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(conn_cb.size_malloc, 1000);
    fail_nth_call("malloc", 1);
    EXPECT_EQ(clts_malloc(7), nullptr);
    EXPECT_EQ(conn_cb.size_malloc, 1000);
    clts_free(&block, 1000);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(conn_cb.size_malloc, 0);
    clts_free(&block, 1000);
    EXPECT_EQ(conn_cb.size_malloc, 0) << "nothing was freed";
}

TEST_F(ClientRecord, ValuesAreCountedAndWipedBeforeTheyAreFreed) {
    const byte_string secret = {'s', 'e', 'c', 'r', 'e', 't', '0', '1'};
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 100, .value = secret});
    deliver({.info = 101, .value = secret});
    EXPECT_EQ(accounts::now(), (accounts{1, 1, 0, 0, 2, static_cast<int>(sizeof rec + 6 + 16)}));
    watched.size = secret.size();
    for (int i = 1; i <= 2; i++) {
        EXPECT_EQ(std::memcmp(rec.cl_evt[i].subinfo_value, secret.data(), secret.size()), 0);
        watched.blocks.push_back(rec.cl_evt[i].subinfo_value);
    }
    hash_del(conn_cb.inprog_conn_table, rec.cl_info.mac);
    clrec_free(&rec);
    EXPECT_EQ(watched.freed, std::vector<byte_string>(2, byte_string(8)));
    EXPECT_EQ(accounts::now(), accounts());
}

// add_evt: what is stored

TEST_F(ClientRecord, StoresTheEventWithItsAge) {
    cl_conn_evt_rec &rec = begin({.sub = 3, .value = byte_string{0, 6, 0xC0}});
    EXPECT_EQ(rec.cl_evt[0].tdiff_msec, 0u);
    EXPECT_EQ(rec.cl_evt[0].subinfo_value_len, 3);
    advance(1500);
    deliver({.info = 1, .sub = 40, .value = byte_string{1, 2, 3, 4, 5}});
    const cl_evt &stored = rec.cl_evt[1];
    EXPECT_EQ(rec.num_evt, 2);
    EXPECT_EQ(stored.tdiff_msec, 1500u) << "since the stage before, not since this one";
    EXPECT_EQ(stored.info_code, 1u);
    EXPECT_EQ(stored.subinfo_code, 40);
    EXPECT_EQ(byte_string(stored.subinfo_value, stored.subinfo_value + stored.subinfo_value_len),
              (byte_string{1, 2, 3, 4, 5}));
}

TEST_F(ClientRecord, TheAgeOfAnEventHasNoSign) {
    cl_conn_evt_rec &rec = begin({.sub = 5});
    const uint64_t start = world.clock_usec / 1000;
    for (const int64_t msec : {int64_t{-700}, int64_t{700}}) {
        set_clock(start + static_cast<uint64_t>(msec));
        deliver({.info = 7, .sub = 5});  // leaves the clock of the stage alone
        EXPECT_EQ(rec.cl_evt[rec.num_evt - 1].tdiff_msec, 700u);
    }
}

TEST_F(ClientRecord, TheAgeOfAnEventSurvivesTheWrap) {
    set_clock((uint64_t{391} << 32) - 100);
    cl_conn_evt_rec &rec = begin();
    advance(250);
    deliver({.info = 6, .sub = 1});
    EXPECT_EQ(rec.cl_evt[1].tdiff_msec, 250u);
    EXPECT_EQ(rec.timestamp, 150u);
}

TEST_F(ClientRecord, AnEventWithoutAValueHasNone) {
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 6, .sub = 1});
    EXPECT_EQ(rec.cl_evt[1].subinfo_value, nullptr);
    EXPECT_EQ(rec.cl_evt[1].subinfo_value_len, 0);
    EXPECT_EQ(conn_cb.num_subinfovalue_malloc, 0);
}

TEST_F(ClientRecord, AValueWithoutMemoryIsEmpty) {
    cl_conn_evt_rec &rec = begin();
    fail_nth_call("malloc", 2);  // the first is the forwarded event's
    deliver({.info = 14, .sub = 5, .value = SERVER});
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(rec.num_evt, 2);
    EXPECT_EQ(rec.cl_evt[1].info_code, 14u);
    EXPECT_EQ(rec.cl_evt[1].subinfo_value, nullptr);
    EXPECT_EQ(rec.cl_evt[1].subinfo_value_len, 0);
    EXPECT_EQ(address_bytes(rec.dhcp_server_ip), SERVER) << "the event still acts";
    EXPECT_EQ(conn_cb.num_subinfovalue_malloc, 0);
}

TEST_F(ClientRecord, A33rdEventIsNotStoredButActs) {
    cl_conn_evt_rec &rec = begin();
    for (uint16_t i = 1; i < 32; i++)
        deliver({.info = 6, .sub = i, .value = byte_string{1}});
    EXPECT_EQ(rec.num_evt, 32);
    const accounts before = accounts::now();
    advance(10);
    deliver({.info = 16, .sub = 100, .value = byte_string{7}});
    deliver({.info = 9, .sub = 101, .value = byte_string(16, 0x20)});
    EXPECT_EQ(rec.num_evt, 32);
    EXPECT_EQ(rec.cl_evt[31].info_code, 6u);
    EXPECT_EQ(rec.is_node_authorised, 1);
    EXPECT_EQ(rec.is_ipv6_rcvd, 1);
    EXPECT_EQ(rec.ipaddr_evt_id, 31);
    EXPECT_EQ(rec.timestamp, now());
    EXPECT_EQ(accounts::now(), before);
}

TEST_F(ClientRecord, A33rdEventMayCompleteTheAttempt) {
    begin();
    for (uint16_t i = 1; i < 32; i++)
        deliver({.info = 6, .sub = i});
    deliver({.info = 8, .sub = 0});
    EXPECT_EQ(in_progress(), nullptr);
    EXPECT_EQ(reports().size(), 1u);
}

/// Begins an attempt and fills its record to the last event.
cl_conn_evt_rec &filled_up(cl_conn_evt_rec &rec, void (*deliver)(const client_event &)) {
    for (uint16_t i = 1; i < 32; i++)
        deliver({.info = 6, .sub = i});
    return rec;
}

TEST_F(ClientRecord, A33rdEventMayCompleteTheAttemptByDns) {
    cl_conn_evt_rec &rec = filled_up(begin(), deliver);
    rec.dns_timestamp = 1;
    deliver({.info = 21, .sub = 1, .value = byte_string{0, 0, 0, 25}});
    EXPECT_EQ(in_progress(), nullptr);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0][14], 1) << "a success";
    EXPECT_EQ(accounts::now(), accounts());
}

TEST_F(ClientRecord, A33rdEventMayBringAFailure) {
    cl_conn_evt_rec &rec = filled_up(begin(), deliver);
    deliver({.info = 15, .sub = 12});
    EXPECT_EQ(in_progress(), &rec);
    EXPECT_EQ(rec.num_evt, 32);
    EXPECT_EQ(rec.failure_code[0], FAILURE_RADIUS_AUTH);
    EXPECT_EQ(rec.rcvd_err_evt, 15u * 65536 + 12);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0][14], 0) << "a failure";
}

// What add_evt says of the record

TEST_F(ClientRecord, IsAliveUntilAnEventCompletesTheAttempt) {
    const client_event answer = {.info = 21, .sub = 1, .value = byte_string{0, 0, 0, 25}};
    for (const client_event &last : {client_event{.info = 8}, answer}) {
        cl_conn_evt_rec &rec = begin();
        rec.dns_timestamp = 1;
        for (const client_event &event : {client_event{.info = 16}, {.info = 15, .sub = 12}, {.info = 8, .sub = 1}}) {
            const decoded_event decoded(event);
            EXPECT_TRUE(add_evt(&rec, &decoded.info)) << event.info;
        }
        EXPECT_EQ(in_progress(), &rec);
        const decoded_event decoded(last);
        EXPECT_FALSE(add_evt(&rec, &decoded.info)) << last.info;
        EXPECT_EQ(in_progress(), nullptr);
    }
}

// The clock of the stage

struct step {
    uint32_t info_before;
    uint16_t sub_before;
    uint32_t info;
    uint16_t sub;
    bool moves;
};

TEST_F(ClientRecord, ARepeatOfEitherCodeLeavesTheClockAlone) {
    constexpr uint32_t NO_INFO = 0xFFFFFFFF;
    constexpr uint16_t NO_SUB = 0xFFFF;
    const step steps[] = {
        {NO_INFO, NO_SUB, 6, 1, true},
        {NO_INFO, NO_SUB, 6, NO_SUB, true},
        {NO_INFO, NO_SUB, NO_INFO, NO_SUB, true},
        {6, 1, 7, 2, true},
        {6, 1, 6, 2, false},
        {6, 1, 7, 1, false},
        {6, 1, 6, 1, false},
        {5, 0, 16, 0, false},
        {NO_INFO, 3, 6, 4, true},
        {NO_INFO, 3, NO_INFO, 4, false},
        {NO_INFO, 3, 6, 3, false},
        {6, NO_SUB, 7, NO_SUB, false},
        {6, NO_SUB, 7, 1, true},
        {65542, 1, 6, 2, true},
    };
    for (const step &each : steps) {
        cl_conn_evt_rec &rec = begin();
        const uint32_t before = rec.timestamp;
        rec.prev_evt_info_code = each.info_before;
        rec.prev_evt_subinfo_code = each.sub_before;
        advance(40);
        deliver({.info = each.info, .sub = each.sub});
        EXPECT_EQ(rec.timestamp, each.moves ? now() : before)
            << each.info_before << "/" << each.sub_before << " then " << each.info << "/" << each.sub;
        EXPECT_EQ(rec.prev_evt_info_code, each.info);
        EXPECT_EQ(rec.prev_evt_subinfo_code, each.sub);
    }
}

TEST_F(ClientRecord, TheFirstEventSetsTheClockAndTheCodes) {
    const cl_conn_evt_rec &rec = begin({.info = 4, .sub = 8});
    EXPECT_EQ(rec.timestamp, now());
    EXPECT_EQ(rec.prev_evt_info_code, 4u);
    EXPECT_EQ(rec.prev_evt_subinfo_code, 8);
}

// What each info code changes

TEST_F(ClientRecord, AnAssociationSetsItsTimeOnlyOnSuccess) {
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 5, .sub = 1});
    EXPECT_EQ(rec.cli_jrny.assoc_ts, 0u);
    world.clock_usec += 123;
    deliver({.info = 5, .sub = 0});
    EXPECT_EQ(rec.cli_jrny.assoc_ts, now_usec());
}

TEST_F(ClientRecord, AnAuthorisationSetsItsTimeAndTheFlag) {
    cl_conn_evt_rec &rec = begin();
    world.clock_usec += 123;
    deliver({.info = 16, .sub = 3});
    EXPECT_EQ(rec.cli_jrny.auth_ts, now_usec());
    EXPECT_EQ(rec.is_node_authorised, 1);
}

TEST_F(ClientRecord, TheJourneyKeepsMicrosecondsAcrossThe32BitWrap) {
    world.clock_usec = ((uint64_t{391} << 32) + 1) * 1000 + 7;
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 5, .sub = 0});
    EXPECT_EQ(rec.cli_jrny.assoc_ts, ((uint64_t{391} << 32) + 1) * 1000 + 7);
}

byte_string ipv6(uint8_t first, uint8_t second) {
    byte_string address(16, 1);
    address[0] = first;
    address[1] = second;
    return address;
}

TEST_F(ClientRecord, AnIpv6AddressCountsUnlessItIsLinkLocal) {
    struct {
        std::optional<byte_string> value;
        bool counts;
    } const values[] = {
        {ipv6(0x20, 0x01), true},   {ipv6(0xFE, 0xC0), true},       {ipv6(0xFE, 0x7F), true},
        {ipv6(0xFF, 0x80), true},   {ipv6(0xFE, 0x80), false},      {ipv6(0xFE, 0xBF), false},
        {byte_string(4, 1), false}, {byte_string(15, 0x20), false}, {byte_string(17, 0x20), false},
        {byte_string(), false},     {std::nullopt, false},
    };
    for (const auto &each : values) {
        cl_conn_evt_rec &rec = begin();
        deliver({.info = 6, .sub = 1});
        rec.rcvd_err_evt = 0x10001;
        rec.is_link_local_ip_rcvd = 1;
        deliver({.info = 9, .sub = 2, .value = each.value});
        EXPECT_EQ(rec.ipaddr_evt_id, 2) << "where it is stored";
        EXPECT_EQ(rec.rcvd_err_evt, 0u);
        EXPECT_EQ(rec.is_ipv6_rcvd, each.counts ? 1 : 0);
        EXPECT_EQ(rec.is_link_local_ip_rcvd, each.counts ? 0 : 1);
    }
}

struct ipv4_case {
    std::optional<byte_string> value;
    bool link_local;
};

TEST_F(ClientRecord, AnIpv4AddressCountsUnlessItIsLinkLocal) {
    const ipv4_case cases[] = {
        {byte_string{10, 0, 0, 9}, false},
        {byte_string{169, 254, 0, 1}, true},
        {byte_string{169, 254, 255, 255}, true},
        {byte_string{169, 253, 0, 1}, false},
        {byte_string{168, 254, 0, 1}, false},
        {byte_string{254, 169, 0, 1}, false},
        {byte_string{169, 254, 0}, false},
        {byte_string{169, 254, 0, 1, 0}, false},
        {byte_string(), false},
        {std::nullopt, false},
    };
    for (const uint8_t dhcp_state : {0, 1, 2, 3, 5, 8})
        for (const ipv4_case &each : cases) {
            cl_conn_evt_rec &rec = begin();
            rec.dhcp_state = dhcp_state;
            rec.rcvd_err_evt = 0x10001;
            rec.is_link_local_ip_rcvd = each.link_local ? 0 : 1;
            world.clock_usec += 5;
            deliver({.info = 23, .sub = 2, .value = each.value});
            const bool asking = dhcp_state == 1 || dhcp_state == 3 || dhcp_state == 8;
            const bool counts = !each.link_local && !asking;
            EXPECT_EQ(rec.is_link_local_ip_rcvd, each.link_local ? 1 : 0);
            EXPECT_EQ(rec.is_ipv4_rcvd, counts ? 1 : 0);
            EXPECT_EQ(rec.rcvd_err_evt, counts ? 0u : 0x10001u);
            EXPECT_EQ(rec.cli_jrny.network_ts, each.link_local ? 0 : now_usec());
            EXPECT_EQ(rec.ipaddr_evt_id, 0) << "that is for IPv6";
        }
}

TEST_F(ClientRecord, AnInvalidIpTakesTheAddressAndItsServer) {
    cl_conn_evt_rec &rec = begin();
    rec.is_ipv4_rcvd = 1;
    deliver({.info = 25, .sub = 2, .value = byte_string{10, 1, 2, 3, 192, 168, 7, 8}});
    EXPECT_EQ(rec.is_ipv4_rcvd, 0);
    EXPECT_EQ(address_bytes(rec.invalid_ip_addr), (byte_string{10, 1, 2, 3}));
    EXPECT_EQ(address_bytes(rec.rogue_dhcp_server_ip), (byte_string{192, 168, 7, 8}));
}

TEST_F(ClientRecord, AShortInvalidIpIsFilledUpWithZeros) {
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 25, .sub = 2, .value = byte_string{10, 1, 2, 3, 192}});
    EXPECT_EQ(address_bytes(rec.invalid_ip_addr), (byte_string{10, 1, 2, 3}));
    EXPECT_EQ(address_bytes(rec.rogue_dhcp_server_ip), (byte_string{192, 0, 0, 0}));
    deliver({.info = 25, .sub = 1});
    EXPECT_EQ(address_bytes(rec.invalid_ip_addr), NOWHERE);
}

TEST_F(ClientRecord, AnIpConflictTakesTheOtherStationAndTheAddress) {
    cl_conn_evt_rec &rec = begin();
    rec.is_ipv4_rcvd = 1;
    deliver({.info = 26, .value = joined(mac_of(9), {10, 1, 2, 3})});
    EXPECT_EQ(rec.is_ipv4_rcvd, 0);
    EXPECT_EQ(byte_string(rec.conflict_mac, rec.conflict_mac + 6), mac_of(9));
    EXPECT_EQ(address_bytes(rec.ipv4_addr), (byte_string{10, 1, 2, 3}));
}

TEST_F(ClientRecord, AShortIpConflictIsFilledUpWithZeros) {
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 26, .value = joined(mac_of(9), {10, 1})});
    EXPECT_EQ(byte_string(rec.conflict_mac, rec.conflict_mac + 6), mac_of(9));
    EXPECT_EQ(address_bytes(rec.ipv4_addr), (byte_string{10, 1, 0, 0}));
}

TEST_F(ClientRecord, AVlanIsKeptFrom1To4095) {
    struct {
        std::optional<byte_string> value;
        int vlan;
    } const values[] = {
        {byte_string{0, 0, 0, 1}, 1},
        {byte_string{0, 0, 0x0F, 0xFF}, 4095},
        {byte_string{0, 0, 0, 0}, 2748},
        {byte_string{0, 0, 0x10, 0}, 2748},
        {byte_string{0, 1, 0, 5}, 2748},
        {byte_string(4, 0xFF), 2748},
        {byte_string{0, 20}, 20},
        {byte_string{0, 20, 9}, 20},
        {byte_string{0x10, 0}, 2748},
        {byte_string{0, 0, 0, 7, 1, 2}, 7},
        {byte_string{5}, 2748},
        {byte_string(), 2748},
        {std::nullopt, 2748},
    };
    for (const auto &each : values) {
        cl_conn_evt_rec &rec = begin({.vap = "ath2"});
        deliver({.info = 27, .value = each.value});
        EXPECT_EQ(rec.vlan, each.vlan);
    }
}

TEST_F(ClientRecord, DhcpKeepsTheLowByteOfItsLastSub) {
    cl_conn_evt_rec &rec = begin();
    for (const uint16_t sub : {0, 1, 2, 8, 255, 0x0102}) {
        deliver({.info = 14, .sub = sub});
        EXPECT_EQ(rec.dhcp_state, sub & 0xFF);
    }
}

TEST_F(ClientRecord, ThreeDhcpSubsStartTheWatch) {
    for (uint16_t sub = 0; sub <= 12; sub++) {
        cl_conn_evt_rec &rec = begin();
        deliver({.info = 14, .sub = sub});
        EXPECT_EQ(rec.dhcp_timestamp, sub == 1 || sub == 3 || sub == 8 ? now() : 0u) << sub;
    }
}

TEST_F(ClientRecord, ASubOfDhcpIsComparedWhole) {
    cl_conn_evt_rec &rec = begin();
    for (const uint16_t sub : {0x0101, 0x0103, 0x0108, 0x0105})
        deliver({.info = 14, .sub = sub, .value = SERVER});
    EXPECT_EQ(rec.dhcp_timestamp, 0u);
    EXPECT_EQ(rec.dhcp_latency, 0u);
    EXPECT_EQ(rec.dhcp_server_ip, 0u);
}

TEST_F(ClientRecord, TheAnswerOfDhcpTakesTheTimeAndTheServer) {
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 14, .sub = 1});
    advance(320);
    deliver({.info = 14, .sub = 2, .value = SERVER});
    EXPECT_EQ(rec.dhcp_latency, 0u);
    EXPECT_EQ(rec.dhcp_server_ip, 0u);
    deliver({.info = 14, .sub = 5, .value = SERVER});
    EXPECT_EQ(rec.dhcp_latency, 320u);
    EXPECT_EQ(address_bytes(rec.dhcp_server_ip), SERVER);
    EXPECT_EQ(rec.dhcp_state, 5);
}

TEST_F(ClientRecord, AnAnswerOfDhcpWithoutAValueNamesNoServer) {
    cl_conn_evt_rec &rec = begin();
    rec.dhcp_server_ip = 6;
    deliver({.info = 14, .sub = 3});
    advance(40);
    deliver({.info = 14, .sub = 5});
    EXPECT_EQ(rec.dhcp_latency, 40u);
    EXPECT_EQ(rec.dhcp_server_ip, 0u);
}

TEST_F(ClientRecord, DhcpIsTimedAcrossTheWrapAndWithoutASign) {
    set_clock((uint64_t{391} << 32) - 100);
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 14, .sub = 3});
    advance(200);
    deliver({.info = 14, .sub = 5});
    EXPECT_EQ(rec.dhcp_latency, 200u);
    advance(-500);
    deliver({.info = 14, .sub = 5});
    EXPECT_EQ(rec.dhcp_latency, 300u);
}

TEST_F(ClientRecord, TheRequestToRadiusStartsTheWatchAndTakesTheServer) {
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 15, .sub = 801, .value = joined(SERVER, {1, 2, 3})});
    EXPECT_EQ(rec.aaa_timestamp, now());
    EXPECT_EQ(address_bytes(rec.aaa_server_ip), SERVER);
    deliver({.info = 15, .sub = 801, .value = byte_string{10, 0}});
    EXPECT_EQ(address_bytes(rec.aaa_server_ip), (byte_string{10, 0, 0, 0}));
}

TEST_F(ClientRecord, TheAnswerOfRadiusTakesTheTime) {
    cl_conn_evt_rec &rec = begin();
    set_clock((uint64_t{391} << 32) - 1);
    deliver({.info = 15, .sub = 801});
    advance(51);
    for (const uint16_t sub : {1, 802, 811}) {
        deliver({.info = 15, .sub = sub});
        EXPECT_EQ(rec.aaa_latency, 0u) << sub;
    }
    deliver({.info = 15, .sub = 11});
    EXPECT_EQ(rec.aaa_latency, 51u);
}

TEST_F(ClientRecord, AQuestionToDnsIsASignOfAnAddress) {
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 21, .sub = 0, .value = joined({0, 0, 0, 9}, SERVER)});
    EXPECT_EQ(rec.is_ipv4_rcvd, 1);
    EXPECT_EQ(rec.dns_timestamp, now());
    EXPECT_EQ(address_bytes(rec.dns_server_ip), SERVER);
    EXPECT_EQ(rec.dns_latency, 0u) << "a question has none";
    deliver({.info = 21, .sub = 0, .value = byte_string{10, 9, 8, 7}});
    EXPECT_EQ(address_bytes(rec.dns_server_ip), (byte_string{10, 9, 8, 7})) << "a bare address is the server's";
}

TEST_F(ClientRecord, AnAnswerOfDnsBringsItsLatencyAndTheServer) {
    cl_conn_evt_rec &rec = begin();
    EXPECT_EQ(log_of({.info = 21, .sub = 1, .value = joined({0, 1, 2, 3}, SERVER)}), lines());
    EXPECT_EQ(rec.dns_latency, 0x00010203u);
    EXPECT_EQ(address_bytes(rec.dns_server_ip), SERVER);
    deliver({.info = 21, .sub = 1, .value = byte_string{0, 0, 0, 4}});
    EXPECT_EQ(rec.dns_latency, 4u);
    EXPECT_EQ(address_bytes(rec.dns_server_ip), SERVER) << "a bare number is the latency";
}

TEST_F(ClientRecord, AnAnswerOfDnsWithoutAValueIsAnError) {
    for (const std::optional<byte_string> &value : {std::optional<byte_string>(), {byte_string()}}) {
        cl_conn_evt_rec &rec = begin();
        rec.dns_latency = 5;
        rec.dns_server_ip = 6;
        EXPECT_EQ(log_of({.info = 21, .sub = 1, .value = value}, 3), lines{"CL_CONN:dns latency is empty"});
        EXPECT_EQ(rec.dns_latency, 5u);
        EXPECT_EQ(rec.dns_server_ip, 6u);
        EXPECT_EQ(log_of({.info = 21, .sub = 1, .value = value}, 2), lines());
    }
}

/// Values of DNS, the server that a question takes from it, and what an answer takes.
struct dns_case {
    std::optional<byte_string> value;
    byte_string asked_server;
    uint32_t latency;
    byte_string answering_server;
};

TEST_F(ClientRecord, OnlyFourBytesOfDnsAreTheServerOrTheLatencyAlone) {
    const byte_string before = {9, 9, 9, 9};
    const dns_case cases[] = {
        {byte_string{1}, NOWHERE, 0x01000000, NOWHERE},
        {byte_string{1, 2}, NOWHERE, 0x01020000, NOWHERE},
        {byte_string{1, 2, 3}, NOWHERE, 0x01020300, NOWHERE},
        {byte_string{1, 2, 3, 4}, {1, 2, 3, 4}, 0x01020304, before},
        {byte_string{1, 2, 3, 4, 10}, {10, 0, 0, 0}, 0x01020304, {10, 0, 0, 0}},
        {byte_string{1, 2, 3, 4, 10, 11}, {10, 11, 0, 0}, 0x01020304, {10, 11, 0, 0}},
        {byte_string{1, 2, 3, 4, 10, 11, 12}, {10, 11, 12, 0}, 0x01020304, {10, 11, 12, 0}},
        {byte_string{1, 2, 3, 4, 10, 11, 12, 13}, {10, 11, 12, 13}, 0x01020304, {10, 11, 12, 13}},
        {byte_string{1, 2, 3, 4, 10, 11, 12, 13, 14}, {10, 11, 12, 13}, 0x01020304, {10, 11, 12, 13}},
    };
    for (const dns_case &each : cases) {
        cl_conn_evt_rec &asking = begin();
        deliver({.info = 21, .sub = 0, .value = each.value});
        EXPECT_EQ(address_bytes(asking.dns_server_ip), each.asked_server) << each.value->size();
        EXPECT_EQ(asking.dns_latency, 0u);
        cl_conn_evt_rec &answered = begin();
        std::memcpy(&answered.dns_server_ip, before.data(), before.size());
        deliver({.info = 21, .sub = 1, .value = each.value});
        EXPECT_EQ(answered.dns_latency, each.latency) << each.value->size();
        EXPECT_EQ(address_bytes(answered.dns_server_ip), each.answering_server) << each.value->size();
    }
}

TEST_F(ClientRecord, AQuestionToDnsWithoutAValueNamesNoServer) {
    for (const std::optional<byte_string> &value : {std::optional<byte_string>(), {byte_string()}}) {
        cl_conn_evt_rec &rec = begin();
        rec.dns_server_ip = 6;
        EXPECT_EQ(log_of({.info = 21, .sub = 0, .value = value}), lines());
        EXPECT_EQ(rec.is_ipv4_rcvd, 1);
        EXPECT_EQ(rec.dns_timestamp, now());
        EXPECT_EQ(rec.dns_server_ip, 0u);
    }
}

TEST_F(ClientRecord, OtherSubsOfDnsChangeNothing) {
    cl_conn_evt_rec &rec = begin();
    deliver({.info = 21, .sub = 2, .value = joined({0, 0, 0, 9}, SERVER)});
    EXPECT_EQ(rec.is_ipv4_rcvd, 0);
    EXPECT_EQ(rec.dns_timestamp | rec.dns_latency | rec.dns_server_ip, 0u);
}

// Completion by a portal login

TEST_F(ClientRecord, APortalLoginCompletesTheAttempt) {
    cl_conn_evt_rec &rec = begin({.vap = "ath1"});
    rec.dhcp_latency = 11;
    rec.aaa_latency = 22;
    rec.dns_latency = 33;
    EXPECT_EQ(log_of({.info = 8}, 6), (lines{PORTAL_SUCCESS, "CTS: Latency info Dhcp = 11 aaa = 22 dns = 33"}));
    EXPECT_EQ(attempts(), 0);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0][14], 1) << "a success";
    EXPECT_EQ(accounts::now(), accounts()) << "the record is gone";
}

TEST_F(ClientRecord, APortalLoginCompletesWithoutAPortalToo) {
    begin();
    deliver({.info = 8});
    EXPECT_EQ(attempts(), 0);
    EXPECT_EQ(reports().size(), 1u);
}

TEST_F(ClientRecord, ThePortalLinesAreOfLevel6) {
    begin({.vap = "ath1"});
    EXPECT_EQ(log_of({.info = 8}, 5), lines());
}

TEST_F(ClientRecord, ThePortalRecordIsOutOfTheTableWhenItIsReported) {
    begin({.vap = "ath1"});
    deliver({.info = 8});
    EXPECT_EQ(world.sent.back().event, VRE_DEBUG_CLIENT_CONN_INFO);
    EXPECT_EQ(world.sent.back().attempts, 0);
    EXPECT_TRUE(world.sent.back().locked);
}

TEST_F(ClientRecord, APortalLoginAfterAFailureKeepsTheRecord) {
    cl_conn_evt_rec &rec = begin({.vap = "ath1"});
    deliver({.info = 8, .sub = 1});
    EXPECT_EQ(rec.failure_code[0], FAILURE_PORTAL_A);
    EXPECT_EQ(in_progress(), &rec);
    deliver({.info = 8, .sub = 0});
    EXPECT_EQ(attempts(), 0);
    EXPECT_EQ(reports().size(), 2u);
    ASSERT_NE(errors_of(), nullptr);
    EXPECT_EQ(record_of(conn_cb.err_conn_list.head), &rec);
}

TEST_F(ClientRecord, APortalRecordThatWasNotReportedIsKeptToo) {
    cl_conn_evt_rec &rec = begin({.vap = "ath1"});
    rec.failure_code[2] = FAILURE_DNS;
    fail_nth_call("malloc", 2);  // the report's
    deliver({.info = 8});
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_TRUE(reports().empty());
    EXPECT_EQ(dllist_num_entries(&conn_cb.err_conn_list), 1);
}

TEST_F(ClientRecord, APortalRecordThatCannotBeKeptIsFreed) {
    for (int nth = 3; nth <= 4; nth++) {  // 1 forwards, 2 reports
        cl_conn_evt_rec &rec = begin({.vap = "ath1"});
        rec.failure_code[0] = FAILURE_DNS;
        fail_nth_call("malloc", nth);
        deliver({.info = 8});
        EXPECT_EQ(faults_fired("malloc"), 1);
        clear_faults();
        EXPECT_EQ(attempts(), 0);
        EXPECT_EQ(accounts::now(), accounts());
    }
}

TEST_F(ClientRecord, TheLoginIsNoErrorOfTheAttempt) {
    cl_conn_evt_rec &rec = begin({.vap = "ath1"});
    rec.failure_code[1] = FAILURE_DNS;
    rec.rcvd_err_evt = 0x150003;
    deliver({.info = 8});
    EXPECT_EQ(record_of(conn_cb.err_conn_list.head)->rcvd_err_evt, 0x150003u);
}

// Completion by DNS

void ask_dns(const client_event &like = {}) {
    client_event question = like;
    question.info = 21;
    question.value = joined({0, 0, 0, 0}, SERVER);
    received_payload payload(payload_of(question));
    wl_client_ts(VRE_DOT1X, payload.data(), payload.length());
}

const client_event DNS_ANSWER = {.info = 21, .sub = 1, .value = byte_string{0, 0, 0, 25, 10, 0, 0, 53}};

TEST_F(ClientRecord, AnAnswerOfDnsCompletesTheAttempt) {
    cl_conn_evt_rec &rec = begin();
    rec.dhcp_latency = 11;
    rec.aaa_latency = 22;
    ask_dns();
    EXPECT_EQ(in_progress(), &rec);
    EXPECT_EQ(log_of(DNS_ANSWER, 6), (lines{SUCCESS, "CTS: Latency info Dhcp = 11 aaa = 22 dns = 25"}));
    EXPECT_EQ(attempts(), 0);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0][14], 1) << "a success";
    EXPECT_EQ(accounts::now(), accounts()) << "the record is gone";
}

TEST_F(ClientRecord, TheLinesOfCompletionAreOfLevel6) {
    begin();
    ask_dns();
    EXPECT_EQ(log_of(DNS_ANSWER, 5), lines());
}

TEST_F(ClientRecord, DnsDoesNotCompleteBehindAPortal) {
    begin({.vap = "ath1"});
    ask_dns();
    deliver(DNS_ANSWER);
    EXPECT_EQ(attempts(), 1);
    EXPECT_TRUE(reports().empty());
}

TEST_F(ClientRecord, AnAnswerWithoutAQuestionDoesNotComplete) {
    cl_conn_evt_rec &rec = begin();
    deliver(DNS_ANSWER);
    EXPECT_EQ(in_progress(), &rec);
    EXPECT_EQ(rec.dns_latency, 25u);
    ask_dns();  // now both are known
    EXPECT_EQ(in_progress(), nullptr);
}

TEST_F(ClientRecord, AnAnswerInNoTimeDoesNotComplete) {
    begin();
    ask_dns();
    deliver({.info = 21, .sub = 1, .value = byte_string(8)});
    EXPECT_EQ(attempts(), 1);
}

TEST_F(ClientRecord, AnErrorEventDoesNotCompleteButTheNextEventDoes) {
    cl_conn_evt_rec &rec = begin();
    rec.dns_timestamp = 1;
    rec.dns_latency = 1;
    deliver({.info = 15, .sub = 10});  // an error that is no failure
    EXPECT_EQ(in_progress(), &rec);
    EXPECT_EQ(rec.rcvd_err_evt, 15u * 65536 + 10);
    deliver({.info = 6});
    EXPECT_EQ(in_progress(), nullptr);
    EXPECT_EQ(accounts::now(), accounts());
}

TEST_F(ClientRecord, AReportedRecordWithAFailureIsKept) {
    cl_conn_evt_rec &rec = begin();
    ask_dns();
    deliver({.info = 21, .sub = 3});
    EXPECT_EQ(rec.failure_code[0], FAILURE_DNS);
    deliver(DNS_ANSWER);
    EXPECT_EQ(attempts(), 0);
    EXPECT_EQ(reports().size(), 2u);
    ASSERT_NE(errors_of(), nullptr);
    EXPECT_EQ(record_of(conn_cb.err_conn_list.head), &rec);
}

TEST_F(ClientRecord, ACompletedRecordThatCannotBeKeptIsFreed) {
    for (int nth = 4; nth <= 5; nth++) {  // 1 keeps the value, 2 reports; DNS events are not forwarded
        cl_conn_evt_rec &rec = begin();
        ask_dns();
        rec.failure_code[0] = FAILURE_DNS;
        fail_nth_call("malloc", nth - 1);
        deliver(DNS_ANSWER);
        EXPECT_EQ(faults_fired("malloc"), 1);
        clear_faults();
        EXPECT_EQ(attempts(), 0);
        EXPECT_EQ(accounts::now(), accounts());
    }
}

TEST_F(ClientRecord, ACompletedRecordIsKeptThoughTheBusIsFull) {
    cl_conn_evt_rec &rec = begin();
    ask_dns();
    rec.failure_code[0] = FAILURE_DNS;
    world.send_result = -1;
    deliver(DNS_ANSWER);
    EXPECT_EQ(reports().size(), 3u) << "three tries";
    EXPECT_EQ(record_of(conn_cb.err_conn_list.head), &rec);
}

TEST_F(ClientRecord, ARepeatedRequestAfterCompletionBeginsAnew) {
    begin();
    ask_dns();
    deliver(DNS_ANSWER);
    deliver({.info = 16});
    EXPECT_EQ(attempts(), 0);
    deliver({.info = 4});
    EXPECT_EQ(in_progress()->num_evt, 1);
}

// Memory that runs short at any call of a long sequence

void play(const client_event &event) {
    received_payload payload(payload_of(event));
    wl_client_ts(VRE_DOT1X, payload.data(), payload.length());
}

/// Attempts of every end, of several clients; six failures of one client.
void play_everything() {
    for (unsigned i = 0; i < 6; i++) {
        play({.info = 2, .value = byte_string{0, 6, 0xC0}, .client = 1});
        play({.info = 3, .sub = static_cast<uint16_t>(20 + i), .client = 1});
        world.clock_usec += 700000000;  // beyond the time in which a failure counts as the same
    }
    play({.info = 2, .client = 2, .vap = "ath1"});
    play({.info = 8, .sub = 1, .value = byte_string{1, 2, 3}, .client = 2, .vap = "ath1"});
    play({.info = 8, .sub = 0, .value = byte_string{1, 2, 3}, .client = 2, .vap = "ath1"});
    play({.info = 4, .client = 3});
    play({.info = 100, .value = byte_string(64, 0x5A), .client = 3});
    play({.info = 21, .sub = 0, .value = byte_string(8, 1), .client = 3});
    play({.info = 21, .sub = 1, .value = byte_string(8, 1), .client = 3});
    play({.info = 4, .client = 4, .ssid = std::nullopt});
    play({.info = 4, .client = 4});
    const byte_string dump(38, 0xFF);
    (void)wl_client_ts_dump(dump.data());
}

TEST_F(ClientRecord, SurvivesEveryAllocationFailure) {
    for (const char *const function : {"malloc", "calloc"}) {
        int failures = 0;
        for (int nth = 1;; nth++) {
            world.clock_usec = START_MSEC * 1000;
            fail_nth_call(function, nth);
            play_everything();
            const int fired = faults_fired(function);
            clear_faults();
            EXPECT_LE(attempts(), 4);
            EXPECT_EQ(accounts::now().clrec, attempts() + dllist_num_entries(&conn_cb.err_conn_list));
            EXPECT_EQ(accounts::now().listrec, dllist_num_entries(&conn_cb.err_conn_list));
            EXPECT_EQ(accounts::now().hashrec, conn_cb.err_conn_table->num_entries);
            drop_everything();
            ASSERT_EQ(accounts::now(), accounts()) << function << " " << nth;
            if (fired == 0)
                break;
            failures++;
        }
        EXPECT_GT(failures, function[0] == 'm' ? 50 : 10);
    }
}

}  // namespace
