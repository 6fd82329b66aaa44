#include <climits>
#include <functional>
#include <set>

#include "files.h"
#include "wl_client_ts_tracking_fixture.h"
#include "wl_evt_payloads.h"

// What the wrapped functions below do and have seen.
static struct {
    int mutex_error = 0;    // of pthread_mutex_init
    int destroyed = 0;      // mutexes of conn_cb that pthread_mutex_destroy has ended
    int add_result = 0;     // of hash_add; 0: the real one
    int detailed = 0;       // calls of send_detailed_log
    int network = 0;        // calls of track_network_events
    bool unlocked = false;  // one of them was called without the mutex
} stage;

extern "C" int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
extern "C" int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
    return stage.mutex_error != 0 ? stage.mutex_error : __real_pthread_mutex_init(mutex, attributes);
}

extern "C" int __real_pthread_mutex_destroy(pthread_mutex_t *mutex);
extern "C" int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex) {
    stage.destroyed += mutex == &conn_cb.mutex ? 1 : 0;
    return __real_pthread_mutex_destroy(mutex);
}

extern "C" int __real__Z8hash_addP10_hashtablePKvPv(hashTable_t *table, const void *key, void *value);
extern "C" int __wrap__Z8hash_addP10_hashtablePKvPv(hashTable_t *table, const void *key, void *value) {
    return stage.add_result != 0 ? stage.add_result : __real__Z8hash_addP10_hashtablePKvPv(table, key, value);
}

extern "C" void __wrap__Z17send_detailed_logPK11wl_evt_info(const wl_evt_info_t *) {
    stage.detailed++;
    stage.unlocked |= !is_locked();
}

extern "C" void __wrap__Z20track_network_eventsPK11wl_evt_info(const wl_evt_info_t *) {
    stage.network++;
    stage.unlocked |= !is_locked();
}

namespace {

const std::set<uint32_t> LEAVE_CODES = {10, 11, 12, 13, 17, 18};
const std::string DELETED = "CTS: delete client record as Assoc/Re-assoc received for " + mac_text(1) + " client";
const std::string CREATED = "CTS: Creating a new client connection record from Assoc req for " + mac_text(1);

std::vector<uint32_t> info_codes() {
    std::vector<uint32_t> all;
    for (uint32_t info = 1; info <= 30; info++)
        all.push_back(info);
    for (const uint32_t info : {100u, 101u, 104u, 65536u, 0xFFFFFFFFu})
        all.push_back(info);
    return all;
}

bool is_request(uint32_t info) {
    return info == 2 || info == 4;
}

class ClientTs : public TrackingFixture {
protected:
    /// The handler's own lines of an event, at a debug level.
    static lines log_of(const client_event &event, int level = 7) {
        log_capture log(level);
        deliver(event);
        return lines_of(log.lines(), "wl_client_ts");
    }
};

// What is forwarded, and when

TEST_F(ClientTs, IgnoresAnEventWithoutAnInfoCode) {
    deliver({.info = 0, .sub = 4});
    EXPECT_TRUE(world.sent.empty());
    EXPECT_EQ(world.locks, 0);
}

TEST_F(ClientTs, IgnoresAnEventOfTheAccessPointItself) {
    event_payload payload;
    payload.u32(WL_INFO_CODE, 2).u16(WL_SUBINFO_CODE, 1);
    received_payload received(payload);
    wl_client_ts(VRE_USERSPACE_EVT, received.data(), received.length());
    EXPECT_TRUE(world.sent.empty());
    EXPECT_EQ(attempts(), 0);
}

TEST_F(ClientTs, IgnoresAnEventWithoutAPayload) {
    wl_client_ts(VRE_DOT1X, nullptr, 0);
    EXPECT_TRUE(world.sent.empty());
}

TEST_F(ClientTs, SurvivesPayloadsThatAreNoItems) {
    for (int e = VRE_SYSTEM_SERVICE_CRASH_EVT; e < VRE_MAX_EVT; e++) {
        received_payload received(byte_string(518, 0xFF), 0);
        wl_client_ts(static_cast<vre_iw_cmd_t>(e), received.data(), received.length());
        wl_client_ts(static_cast<vre_iw_cmd_t>(e), received.data(), 0);
    }
    EXPECT_TRUE(world.sent.empty());
    EXPECT_EQ(attempts(), 0);
}

TEST_F(ClientTs, ForwardsEveryInfoCodeButThree) {
    for (const uint32_t info : info_codes()) {
        world.sent.clear();
        deliver({.info = info, .client = 7});
        const bool silent = info == 21 || info == 22 || info == 23;
        EXPECT_EQ(sent(VRE_DEBUG_CLIENT_TS).size(), silent ? 0u : 1u) << info;
    }
}

TEST_F(ClientTs, ForwardsItsOwnRoleEventOnceWhenTheBusBringsItBack) {
    received_payload payload(payload_of({.info = 104, .value = byte_string(41, 'r')}));
    wl_client_ts(VRE_HOSTAPD_EVENT, payload.data(), payload.length());
    ASSERT_EQ(world.sent.size(), 1u);
    EXPECT_EQ(world.sent[0].event, VRE_DEBUG_CLIENT_TS);
}

TEST_F(ClientTs, ForwardsWithoutTheMutex) {
    deliver({.info = 2});
    ASSERT_EQ(world.sent.size(), 1u);
    EXPECT_FALSE(world.sent[0].locked);
}

TEST_F(ClientTs, ForwardsAnEventBeforeTheReportThatItCauses) {
    deliver({.info = 2});
    world.sent.clear();
    deliver({.info = 8});  // a portal login completes the attempt
    ASSERT_EQ(world.sent.size(), 2u);
    EXPECT_EQ(world.sent[0].event, VRE_DEBUG_CLIENT_TS);
    EXPECT_EQ(world.sent[1].event, VRE_DEBUG_CLIENT_CONN_INFO);
    EXPECT_TRUE(world.sent[1].locked);
}

TEST_F(ClientTs, ForwardsButDoesNotTrackWhileTheModuleIsOff) {
    for (const int init : {-1, -EIO, 1}) {
        conn_cb.init = init;
        world.sent.clear();
        deliver({.info = 2});
        EXPECT_EQ(world.sent.size(), 1u);
        EXPECT_EQ(world.locks, 0);
    }
    EXPECT_EQ(attempts(), 0);
}

TEST_F(ClientTs, ForwardsButDoesNotTrackWhileTrackingIsOff) {
    conn_cb.detail_log_init = 0;
    conn_cb.enable = 0;
    deliver({.info = 2});
    EXPECT_EQ(world.sent.size(), 1u);
    EXPECT_EQ(attempts(), 0);
    EXPECT_EQ(stage.detailed, 0);
    EXPECT_FALSE(is_locked());
}

TEST_F(ClientTs, TracksWhenForwardingFails) {
    fail_nth_call("malloc", 1);
    deliver({.info = 2});
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_TRUE(world.sent.empty());
    EXPECT_NE(in_progress(), nullptr);
}

TEST_F(ClientTs, HandsEveryEventToTheDetailedLogWhenItExists) {
    conn_cb.detail_log_init = 0;
    int expected = 0;
    for (const uint32_t info : info_codes()) {
        deliver({.info = info});
        EXPECT_EQ(stage.detailed, ++expected) << info;
    }
    EXPECT_FALSE(stage.unlocked);
}

TEST_F(ClientTs, HandsNothingToADetailedLogThatDoesNotExist) {
    deliver({.info = 2});
    EXPECT_EQ(stage.detailed, 0);
}

// A client without an attempt in progress

TEST_F(ClientTs, OnlyRequestsBeginAnAttempt) {
    for (const uint32_t info : info_codes()) {
        const int before = attempts();
        deliver({.info = info, .client = info & 0xFFF});
        EXPECT_EQ(attempts() - before, is_request(info) ? 1 : 0) << info;
    }
}

TEST_F(ClientTs, FourInfoCodesOfAnUnknownClientAreNetworkEvents) {
    for (const uint32_t info : info_codes()) {
        stage.network = 0;
        deliver({.info = info, .client = info & 0xFFF});
        EXPECT_EQ(stage.network, info == 8 || info == 14 || info == 21 || info == 23 ? 1 : 0) << info;
    }
    EXPECT_FALSE(stage.unlocked);
}

TEST_F(ClientTs, EventsOfAKnownClientAreNoNetworkEvents) {
    deliver({.info = 2});
    for (const uint32_t info : {14u, 21u, 23u, 8u})
        deliver({.info = info});
    EXPECT_EQ(stage.network, 0);
}

TEST_F(ClientTs, AnAuthRequestBeginsARecordThatHoldsIt) {
    EXPECT_EQ(log_of({.info = 2, .sub = 9}), lines());
    const cl_conn_evt_rec *const rec = in_progress();
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->num_evt, 1);
    EXPECT_EQ(rec->cl_evt[0].info_code, 2u);
    EXPECT_EQ(rec->cl_evt[0].subinfo_code, 9);
    EXPECT_EQ(rec->state, CL_AUTH_REQUESTED);
}

TEST_F(ClientTs, AnAssocRequestBeginsARecordAndSaysSo) {
    EXPECT_EQ(log_of({.info = 4}), lines{CREATED});
    const cl_conn_evt_rec *const rec = in_progress();
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->num_evt, 1);
    EXPECT_EQ(rec->cl_evt[0].info_code, 4u);
    EXPECT_EQ(rec->state, CL_ASSOC_REQUESTED);
}

TEST_F(ClientTs, TheLineOfANewRecordIsOfLevel7) {
    EXPECT_EQ(log_of({.info = 4}, 6), lines());
}

TEST_F(ClientTs, TheLineOfANewRecordComesBeforeTheRecordItself) {
    log_capture log(7);
    deliver({.info = 4});
    const lines all = log.lines();
    const auto announced = std::find(all.begin(), all.end(), "wl_client_ts: " + CREATED);
    const auto made =
        std::find(all.begin(), all.end(), "create_rec: CONN INFO: Successfully created the client record");
    ASSERT_NE(made, all.end());
    EXPECT_LT(announced, made);
}

TEST_F(ClientTs, TheLineOfANewRecordIsWrittenThoughThereIsNoMemoryForIt) {
    fail_nth_call("malloc", 2);  // the first is the forwarded event's
    EXPECT_EQ(log_of({.info = 4}), lines{CREATED});
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(attempts(), 0);
}

TEST_F(ClientTs, AFailedInsertFreesTheRecord) {
    for (const uint32_t info : {2u, 4u}) {
        stage.add_result = -1;
        log_capture log(3);
        deliver({.info = info, .value = byte_string{0, 6, 200}});
        EXPECT_TRUE(contains(
            log.lines(), "wl_client_ts: CTS: Error -1 while creating new client connection record for " + mac_text(1)));
        EXPECT_EQ(log.lines().back(), "");
        stage.add_result = 0;
        EXPECT_EQ(attempts(), 0);
        EXPECT_EQ(accounts::now(), accounts());
    }
}

TEST_F(ClientTs, AFailedInsertShowsItsResult) {
    stage.add_result = 7;
    const lines log = log_of({.info = 2}, 3);
    stage.add_result = 0;
    EXPECT_EQ(log, lines{"CTS: Error 7 while creating new client connection record for " + mac_text(1)});
}

TEST_F(ClientTs, TheLineOfAFailedInsertIsOfLevel3) {
    stage.add_result = -1;
    const lines log = log_of({.info = 2}, 2);
    stage.add_result = 0;
    EXPECT_EQ(log, lines());
}

TEST_F(ClientTs, ClientsHaveRecordsOfTheirOwn) {
    for (unsigned client = 1; client <= 200; client++)
        deliver({.info = 2, .client = client});
    EXPECT_EQ(attempts(), 200);
    for (unsigned client = 1; client <= 200; client++) {
        ASSERT_NE(in_progress(client), nullptr);
        EXPECT_EQ(in_progress(client)->cl_info.mac[5], client);
    }
}

// An event of the attempt in progress

TEST_F(ClientTs, AnAuthRequestAlwaysBeginsAnew) {
    for (uint8_t state = 0; state <= 4; state++) {
        deliver({.info = 2});
        deliver({.info = 16});
        in_progress()->state = state;
        EXPECT_EQ(log_of({.info = 2}), lines());
        EXPECT_EQ(attempts(), 1);
        EXPECT_EQ(in_progress()->num_evt, 1) << int{state};
        EXPECT_EQ(in_progress()->is_node_authorised, 0);
    }
}

TEST_F(ClientTs, TheOldAttemptIsDecidedBeforeTheNewOneBegins) {
    deliver({.info = 2});
    log_capture log(7);
    deliver({.info = 4, .ssid = "Other"});
    lines order;
    for (const std::string &line : log.lines())
        for (const char *const what : {"delete client record", "Supressing CL_CONN_NO_ASSOC_RCVD", "Creating a new"})
            if (line.find(what) != line.npos)
                order.emplace_back(what);
    EXPECT_EQ(order, (lines{"delete client record", "Supressing CL_CONN_NO_ASSOC_RCVD", "Creating a new"}));
}

TEST_F(ClientTs, AFailedOldAttemptGoesToTheErrorStore) {
    deliver({.info = 2});
    deliver({.info = 3, .sub = 1});  // a refusal
    deliver({.info = 2});
    ASSERT_NE(errors_of(), nullptr);
    EXPECT_EQ(errors_of()->num_entries, 1);
    EXPECT_EQ(in_progress()->failure_code[0], 0);
}

TEST_F(ClientTs, AnAssocRequestContinuesAnAttemptThatHasNotSeenOne) {
    for (uint8_t state = 0; state <= 2; state++) {
        deliver({.info = 2});
        in_progress()->state = state;
        EXPECT_EQ(log_of({.info = 4}), lines());
        EXPECT_EQ(in_progress()->num_evt, 2) << int{state};
        EXPECT_EQ(in_progress()->state, CL_ASSOC_REQUESTED);
    }
}

TEST_F(ClientTs, ASecondAssocRequestBeginsAnew) {
    for (const uint8_t state : {3, 4}) {
        deliver({.info = 2});
        in_progress()->state = state;
        EXPECT_EQ(log_of({.info = 4}), (lines{DELETED, CREATED}));
        EXPECT_EQ(attempts(), 1);
        EXPECT_EQ(in_progress()->num_evt, 1) << int{state};
        EXPECT_EQ(in_progress()->state, CL_ASSOC_REQUESTED);
    }
}

TEST_F(ClientTs, TheLineOfADeletedRecordIsOfLevel7) {
    deliver({.info = 4});
    EXPECT_EQ(log_of({.info = 4}, 6), lines());
}

TEST_F(ClientTs, EveryOtherEventIsStored) {
    for (const uint32_t info : info_codes()) {
        if (is_request(info) || LEAVE_CODES.count(info) != 0)
            continue;
        deliver({.info = 2});
        deliver({.info = info, .sub = 99});
        ASSERT_NE(in_progress(), nullptr) << info;
        EXPECT_EQ(in_progress()->num_evt, 2) << info;
        EXPECT_EQ(in_progress()->cl_evt[1].info_code, info);
        EXPECT_EQ(in_progress()->is_client_disconnected, 0);
    }
}

TEST_F(ClientTs, ALeaveMarksTheRecordAndIsNotStored) {
    for (const uint32_t info : LEAVE_CODES) {
        deliver({.info = 2});
        advance(50);
        deliver({.info = info, .sub = 4, .value = byte_string{1, 2}});
        const cl_conn_evt_rec &rec = *in_progress();
        EXPECT_EQ(rec.is_client_disconnected, 1) << info;
        EXPECT_EQ(rec.num_evt, 1) << info;
        EXPECT_EQ(rec.prev_evt_info_code, 2u);
        EXPECT_EQ(rec.timestamp, now() - 50);
    }
}

struct mark {
    uint16_t sub;
    std::string text;  // what follows the client; empty: no mark
};

TEST_F(ClientTs, SteeringRefusalsMarkTheRecord) {
    const std::vector<mark> marks = {{4, " for ignoring assoc failure due to Min assoc rssi"},
                                     {26, " for ignoring assoc failure due to Min assoc rssi"},
                                     {9, "for ignoring assoc failure due to smart load balancing"},
                                     {27, "for ignoring assoc failure due to smart load balancing"},
                                     {6, " for ignoring assoc failure due to BS, ignore assoc"},
                                     {7, " for ignoring assoc failure due to BS, reject assoc"}};
    for (const mark &each : marks) {
        deliver({.info = 2});
        EXPECT_EQ(log_of({.info = 20, .sub = each.sub}, 6), lines{"CTS: Marking Client " + mac_text(1) + each.text});
        EXPECT_EQ(in_progress()->ignore_assoc_fail, 1);
        EXPECT_EQ(in_progress()->num_evt, 2) << "it is stored too";
        deliver({.info = 2});
        EXPECT_EQ(log_of({.info = 20, .sub = each.sub}, 5), lines());
    }
}

TEST_F(ClientTs, OtherSteeringEventsLeaveTheMarkAlone) {
    deliver({.info = 2});
    for (uint16_t sub = 0; sub <= 60; sub++) {
        if (std::set<int>{4, 6, 7, 9, 26, 27}.count(sub) != 0)
            continue;
        EXPECT_EQ(log_of({.info = 20, .sub = sub}), lines()) << sub;
        EXPECT_EQ(in_progress()->ignore_assoc_fail, 0) << sub;
    }
    deliver({.info = 20, .sub = 4});
    deliver({.info = 20, .sub = 5});
    EXPECT_EQ(in_progress()->ignore_assoc_fail, 1);
}

TEST_F(ClientTs, TheSubsOfSteeringMarkNothingWithAnotherInfoCode) {
    deliver({.info = 2});
    for (const uint16_t sub : {4, 26, 9, 27, 6, 7})
        deliver({.info = 19, .sub = sub});
    EXPECT_EQ(in_progress()->ignore_assoc_fail, 0);
}

// Whether an event belongs to the attempt in progress

/// A request and an event of the same client, and whether the event belongs to the attempt.
struct pairing {
    std::string what;
    client_event request;
    client_event event;
    bool same;
};

std::vector<pairing> pairings() {
    const std::string name(32, 'x');
    return {
        {"same SSID and BSSID", {}, {}, true},
        {"no BSSID in the event", {}, {.bssid = std::nullopt}, true},
        {"no BSSID at all", {.bssid = std::nullopt}, {.bssid = std::nullopt}, true},
        {"no BSSID in the record", {.bssid = std::nullopt}, {}, false},
        {"no SSID at all", {.ssid = std::nullopt}, {.ssid = std::nullopt}, true},
        {"empty and absent SSID", {.ssid = ""}, {.ssid = std::nullopt}, true},
        {"absent and empty SSID", {.ssid = std::nullopt}, {.ssid = ""}, true},
        {"empty SSIDs", {.ssid = ""}, {.ssid = ""}, true},
        {"empty SSIDs, other BSSID", {.ssid = ""}, {.ssid = "", .bssid = ap_bssid(2)}, false},
        {"no SSID in the event", {}, {.ssid = std::nullopt}, false},
        {"no SSID in the record", {.ssid = std::nullopt}, {}, false},
        {"the longest SSID", {.ssid = name}, {.ssid = name}, true},
        {"the longest SSID, last character", {.ssid = name}, {.ssid = std::string(31, 'x') + "y"}, false},
        {"longer SSID", {}, {.ssid = "Lobby2"}, false},
        {"shorter SSID", {}, {.ssid = "Lobb"}, false},
        {"other SSID of that length", {}, {.ssid = "lobby"}, false},
        {"other BSSID", {}, {.bssid = ap_bssid(2)}, false},
        {"other SSID, no BSSID", {}, {.ssid = "Other", .bssid = std::nullopt}, false},
        {"other VAP name only", {}, {.vap = "ath1"}, true},
    };
}

TEST_F(ClientTs, SsidAndBssidTellWhetherAnEventBelongsToTheAttempt) {
    for (pairing each : pairings()) {
        each.request.info = 2;
        each.event.info = 16;
        deliver(each.request);
        deliver(each.event);
        EXPECT_EQ(in_progress()->num_evt, each.same ? 2 : 1) << each.what;
    }
}

TEST_F(ClientTs, ARequestForAnotherNetworkBeginsAnewInAnyState) {
    for (const uint32_t info : {2u, 4u})
        for (uint8_t state = 0; state <= 4; state++)
            for (const bool other_ssid : {true, false}) {
                deliver({.info = 2});
                in_progress()->state = state;
                client_event request{.info = info, .bssid = ap_bssid(other_ssid ? 1 : 2)};
                if (other_ssid)
                    request.ssid = "Other";
                EXPECT_EQ(log_of(request), info == 4 ? (lines{DELETED, CREATED}) : lines());
                EXPECT_EQ(attempts(), 1);
                EXPECT_EQ(in_progress()->num_evt, 1);
                EXPECT_STREQ(in_progress()->cl_info.ssid, request.ssid->c_str());
                EXPECT_EQ(in_progress()->cl_info.bssid[5], other_ssid ? 1 : 2);
            }
}

TEST_F(ClientTs, OtherEventsOfAnotherNetworkAreDropped) {
    for (const char *const vap : {"ath0", "ath1"}) {
        deliver({.info = 2, .vap = vap});
        const cl_conn_evt_rec before = *in_progress();
        advance(10);
        for (const uint32_t info : info_codes()) {
            if (is_request(info))
                continue;
            for (const uint16_t sub : {0, 1, 4, 801}) {
                deliver({.info = info, .sub = sub, .ssid = "Other"});
                deliver({.info = info, .sub = sub, .bssid = ap_bssid(2)});
            }
        }
        ASSERT_NE(in_progress(), nullptr);
        EXPECT_EQ(std::memcmp(&before, in_progress(), sizeof before), 0);
    }
    EXPECT_EQ(stage.network, 0);
    EXPECT_TRUE(sent(VRE_DEBUG_CLIENT_CONN_INFO).empty());
}

TEST_F(ClientTs, EveryPathReleasesTheMutex) {
    for (const uint32_t info : info_codes()) {
        deliver({.info = info});
        EXPECT_FALSE(is_locked()) << info;
        deliver({.info = info, .ssid = "Other"});
        EXPECT_FALSE(is_locked()) << info;
    }
}

// Switching the tracking on and off

TEST_F(ClientTs, EnableStoresTheValueUnderTheMutex) {
    log_capture log(7);
    for (const int value : {0, 1, 7, -1, INT_MIN}) {
        world.locks = 0;
        EXPECT_EQ(wl_client_ts_enable(value), 0);
        EXPECT_EQ(conn_cb.enable, value);
        EXPECT_EQ(world.locks, 1);
    }
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientTs, EnableRefusesWhileTheModuleIsOff) {
    conn_cb.init = -ENXIO;
    EXPECT_EQ(wl_client_ts_enable(0), -1);
    EXPECT_EQ(conn_cb.enable, 1);
    EXPECT_EQ(world.locks, 0);
}

void enable_event(const byte_string &bytes) {
    received_payload payload(bytes);
    vre_wl_client_ts_enable(VRE_CLIENT_TS_CONN_ERR_LOG_ENABLE, payload.data(), payload.length());
}

TEST_F(ClientTs, TheEnableEventCarriesABigEndianWord) {
    enable_event({0, 0, 0, 0});
    EXPECT_EQ(conn_cb.enable, 0);
    enable_event({0x01, 0x02, 0x03, 0x04});
    EXPECT_EQ(conn_cb.enable, 0x01020304);
    enable_event({0xFF, 0xFF, 0xFF, 0xFE, 1, 2, 3});
    EXPECT_EQ(conn_cb.enable, -2);
}

TEST_F(ClientTs, AShortEnableEventChangesNothingAndSaysNothing) {
    log_capture log(7);
    enable_event({0, 0, 0});
    enable_event({});
    vre_wl_client_ts_enable(VRE_CLIENT_TS_CONN_ERR_LOG_ENABLE, nullptr, -1);
    EXPECT_EQ(conn_cb.enable, 1);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientTs, TheEnableEventSaysNothingWhileTheModuleIsOff) {
    conn_cb.init = -1;
    log_capture log(7);
    enable_event({0, 0, 0, 0});
    EXPECT_EQ(conn_cb.enable, 1);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientTs, AttemptsSurviveWhileTrackingIsOff) {
    deliver({.info = 2});
    enable_event({0, 0, 0, 0});
    deliver({.info = 16});
    EXPECT_EQ(in_progress()->num_evt, 1);
    enable_event({0, 0, 0, 1});
    deliver({.info = 16});
    EXPECT_EQ(in_progress()->num_evt, 2);
}

// The dump

struct dump_request {
    byte_string mac;
    std::string file = "/tmp/errors";

    byte_string bytes() const {
        byte_string all = mac;
        const byte_string name = text_bytes(file);
        all.insert(all.end(), name.begin(), name.end());
        all.resize(38);
        return all;
    }
};

const byte_string EVERY_CLIENT(6, 0xFF);

class ClientTsDump : public TrackingFixture {
protected:
    /// Stores a record of a failed attempt; `number` is how the dump shows it, and its age.
    static void store(unsigned client, unsigned number) {
        const decoded_event request({.info = 2, .client = client});
        cl_conn_evt_rec *const rec = create_rec(&request.info);
        rec->failure_code[0] = FAILURE_AUTH;
        rec->rcvd_err_evt = number;
        rec->timestamp = 1000000 + number;
        const conn_lock lock;
        ASSERT_EQ(move_clrec_to_err_list(rec), 0);
    }

    static int dump(const dump_request &request) {
        const byte_string bytes = request.bytes();
        return wl_client_ts_dump(bytes.data());
    }

    static void dump_event(byte_string bytes) {
        received_payload payload(bytes);
        vre_wl_client_ts_dump(VRE_CLIENT_TS_CONN_ERR_LOG_DUMP, payload.data(), payload.length());
    }

    /// The first line of a dump.
    static std::string heading(const std::string &path = "/tmp/errors") {
        const std::string text = file_text(path);
        return text.substr(0, text.find('\n') + 1);
    }

    /// "<last byte of the MAC>/<number>" of each record in the dump.
    static lines records() {
        lines found;
        const std::string text = file_text("/tmp/errors");
        for (size_t at = 0; (at = text.find(" ==> [", at)) != text.npos; at++) {
            const size_t number = text.find("Err Event:", at) + 10;
            found.push_back(text.substr(at - 2, 2) + "/" + text.substr(number, text.find('\n', number) - number));
        }
        return found;
    }
};

TEST_F(ClientTsDump, OfAllClientsIsInTheOrderOfArrival) {
    store(2, 20);
    store(1, 11);
    store(2, 19);
    store(3, 30);
    EXPECT_EQ(dump({EVERY_CLIENT}), 0);
    EXPECT_EQ(heading(), "AP has 4 Error Records\n");
    EXPECT_EQ(records(), (lines{"02/20", "01/11", "02/19", "03/30"}));
}

TEST_F(ClientTsDump, OfAllClientsWithoutRecords) {
    EXPECT_EQ(dump({EVERY_CLIENT}), 0);
    EXPECT_EQ(file_text("/tmp/errors"), "AP has 0 Error Records\n");
}

TEST_F(ClientTsDump, OfOneClientIsInTheOrderOfItsSlots) {
    for (unsigned number = 1; number <= 5; number++)
        store(1, number);
    store(2, 77);
    store(1, 6);  // takes the slot of the oldest, the first
    EXPECT_EQ(dump({mac_of(1)}), 0);
    EXPECT_EQ(heading(), "Client " + mac_text(1) + " has 5 Error Records\n");
    EXPECT_EQ(records(), (lines{"01/6", "01/2", "01/3", "01/4", "01/5"}));
}

TEST_F(ClientTsDump, OfOneClientSkipsFreeSlots) {
    for (unsigned number = 1; number <= 3; number++)
        store(1, number);
    dllist_t *const node = errors_of()->cl_ptr[1];
    dllist_delink_node(&conn_cb.err_conn_list, node);
    remove_hash_entry(errors_of(), node);
    auto *entry = static_cast<client_list_rec *>(node->value);
    EXPECT_EQ(dump({mac_of(1)}), 0);
    EXPECT_EQ(heading(), "Client " + mac_text(1) + " has 2 Error Records\n");
    EXPECT_EQ(records(), (lines{"01/1", "01/3"}));
    clrec_free(entry->clrec);
    clts_release(entry, sizeof *entry);
    conn_cb.num_listrec_malloc--;
    std::free(node);
}

TEST_F(ClientTsDump, OfAnUnknownClient) {
    store(1, 1);
    EXPECT_EQ(dump({mac_of(2)}), 0);
    EXPECT_EQ(file_text("/tmp/errors"), "Client " + mac_text(2) + " has 0 Error Records\n");
}

TEST_F(ClientTsDump, LeavesOutAttemptsInProgress) {
    deliver({.info = 2});
    EXPECT_EQ(dump({mac_of(1)}), 0);
    EXPECT_EQ(file_text("/tmp/errors"), "Client " + mac_text(1) + " has 0 Error Records\n");
}

TEST_F(ClientTsDump, ReplacesTheFile) {
    write_file("/tmp/errors", std::string(5000, 'x'));
    EXPECT_EQ(dump({EVERY_CLIENT}), 0);
    EXPECT_EQ(file_text("/tmp/errors"), "AP has 0 Error Records\n");
}

TEST_F(ClientTsDump, SaysWhatItOpens) {
    log_capture log(6);
    EXPECT_EQ(dump({{0xFE, 0xDC, 0xBA, 0x09, 0x08, 0x07}, "/tmp/one"}), 0);
    EXPECT_EQ(log.lines(), lines{"wl_client_ts_dump: CTS: Opening file /tmp/one for dumping error logs of "
                                 "FE:DC:BA:09:08:07"});
}

TEST_F(ClientTsDump, WhatItOpensIsSaidAtLevel6) {
    log_capture log(5);
    EXPECT_EQ(dump({EVERY_CLIENT}), 0);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientTsDump, FailsWhenTheFileCannotBeOpened) {
    log_capture log(3);
    EXPECT_EQ(dump({EVERY_CLIENT, "/nowhere/errors"}), -1);
    EXPECT_EQ(log.lines(),
              lines{"wl_client_ts_dump: CTS: Could not open file /nowhere/errors for dumping connection records"});
    EXPECT_FALSE(is_locked());
}

TEST_F(ClientTsDump, TheFailedOpenIsSaidAtLevel3) {
    log_capture log(2);
    EXPECT_EQ(dump({EVERY_CLIENT, ""}), -1);
    EXPECT_EQ(log.lines(), lines());
}

TEST_F(ClientTsDump, HoldsTheMutexOnceForItsWholeRun) {
    EXPECT_EQ(dump({EVERY_CLIENT}), 0);
    EXPECT_EQ(world.locks, 1);
    EXPECT_FALSE(is_locked());
}

TEST_F(ClientTsDump, DoesNothingWhileTheModuleIsOff) {
    conn_cb.init = -EIO;
    log_capture log(7);
    EXPECT_EQ(dump({EVERY_CLIENT}), -1);
    EXPECT_EQ(log.lines(), lines());
    EXPECT_EQ(file_text("/tmp/errors"), "");
}

TEST_F(ClientTsDump, TakesAFileNameOf32Characters) {
    const std::string path = "/tmp/" + std::string(27, 'n');
    byte_string bytes = dump_request{EVERY_CLIENT, path}.bytes();
    bytes.insert(bytes.end(), {'m', 'o', 'r', 'e'});  // not part of the name
    dump_event(bytes);
    EXPECT_EQ(file_text(path), "AP has 0 Error Records\n");
}

TEST_F(ClientTsDump, TheEventOfADumpThatWorksSaysNoMore) {
    store(1, 1);
    log_capture log(3);
    dump_event(dump_request{mac_of(1)}.bytes());
    EXPECT_EQ(records(), lines{"01/1"});
    EXPECT_FALSE(contains(log.lines(), "vre_wl_client_ts_dump: Client TS Connection Error Logs dump error!"));
}

TEST_F(ClientTsDump, AShortEventIsAnError) {
    byte_string bytes = dump_request{EVERY_CLIENT}.bytes();
    for (const size_t size : {37, 6, 0}) {
        bytes.resize(size);
        log_capture log(6);
        dump_event(bytes);
        EXPECT_EQ(log.lines(), lines{"vre_wl_client_ts_dump: Client TS Connection Error Logs dump error!"});
    }
    vre_wl_client_ts_dump(VRE_CLIENT_TS_CONN_ERR_LOG_DUMP, nullptr, -1);
    EXPECT_EQ(file_text("/tmp/errors"), "");
}

TEST_F(ClientTsDump, AFailedEventIsSaidAtLevel6) {
    const byte_string bytes = dump_request{EVERY_CLIENT, "/nowhere/errors"}.bytes();
    {
        log_capture log(6);
        dump_event(bytes);
        EXPECT_EQ(log.lines().back(), "vre_wl_client_ts_dump: Client TS Connection Error Logs dump error!");
    }
    log_capture log(5);
    dump_event(bytes);
    EXPECT_FALSE(contains(log.lines(), "vre_wl_client_ts_dump: Client TS Connection Error Logs dump error!"));
}

TEST_F(ClientTsDump, TheEventFailsWhileTheModuleIsOff) {
    conn_cb.init = -1;
    log_capture log(6);
    dump_event(dump_request{EVERY_CLIENT}.bytes());
    EXPECT_EQ(log.lines(), lines{"vre_wl_client_ts_dump: Client TS Connection Error Logs dump error!"});
}

// Start and end

/// The module is started by the test.
class ClientTsStart : public testing::Test {
protected:
    ~ClientTsStart() override {
        drop_tables();
    }

    static lines log_of(const std::function<void()> &action, int level = 7) {
        log_capture log(level);
        action();
        return log.lines();
    }
};

TEST_F(ClientTsStart, TheModuleIsOffBefore) {
    EXPECT_NE(conn_cb.init, 0);
    EXPECT_EQ(conn_cb.detail_log_init, -1);
    EXPECT_EQ(wl_client_ts_enable(1), -1);
    wl_client_ts_deinit();
    EXPECT_EQ(world.joins, 0);
    received_payload payload(payload_of({.info = 2}));
    wl_client_ts(VRE_DOT1X, payload.data(), payload.length());
    EXPECT_EQ(world.sent.size(), 1u) << "only forwarded";
}

TEST_F(ClientTsStart, MakesTheTablesAndTheThread) {
    EXPECT_EQ(wl_client_ts_init(), 0);
    EXPECT_EQ(conn_cb.init, 0);
    EXPECT_EQ(conn_cb.enable, 1);
    EXPECT_EQ(conn_cb.terminate_timer, 0);
    for (const hashTable_t *const table : {conn_cb.inprog_conn_table, conn_cb.err_conn_table}) {
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->length, 53);
        EXPECT_EQ(table->num_entries, 0);
        EXPECT_EQ(table->hash_func, hw_mac_hash_func);
        EXPECT_EQ(table->compare, hw_mac_compare_func);
    }
    ASSERT_NE(conn_cb.inprog_conn_iter, nullptr);
    EXPECT_EQ(conn_cb.inprog_conn_iter->htable, conn_cb.inprog_conn_table);
    EXPECT_EQ(dllist_num_entries(&conn_cb.err_conn_list), 0);
    EXPECT_EQ(world.thread_body, conn_fail_det_timer_func);
    EXPECT_FALSE(is_locked());
}

TEST_F(ClientTsStart, ClearsTheBlock) {
    conn_cb.num_clrec_malloc = 5;
    conn_cb.size_malloc = 100;
    conn_cb.terminate_timer = 1;
    conn_cb.detail_log_init = 0;
    EXPECT_EQ(wl_client_ts_init(), 0);
    EXPECT_EQ(accounts::now(), accounts());
    EXPECT_EQ(conn_cb.terminate_timer, 0);
    EXPECT_EQ(conn_cb.detail_log_init, -1) << "the detailed table does not exist yet";
    EXPECT_EQ(conn_cb.detail_conn_table, nullptr);
}

TEST_F(ClientTsStart, SaysItsStatusAtLevel6) {
    EXPECT_EQ(log_of([] { EXPECT_EQ(wl_client_ts_init(), 0); }, 6),
              (lines{"wl_client_ts_init: CTS: wl_client_ts_init completed with status 0", ""}));
    drop_tables();
    EXPECT_EQ(log_of([] { EXPECT_EQ(wl_client_ts_init(), 0); }, 5), lines());
}

TEST_F(ClientTsStart, IsOffWhenATableCannotBeMade) {
    int failures = 0;
    for (int nth = 1;; nth++) {
        world.thread_body = nullptr;
        fail_nth_call("calloc", nth);
        log_capture log(6);
        const int status = wl_client_ts_init();
        const int fired = faults_fired("calloc");
        clear_faults();
        if (fired == 0) {
            EXPECT_EQ(status, 0);
            break;
        }
        failures++;
        EXPECT_EQ(status, -1);
        EXPECT_EQ(conn_cb.init, -1);
        EXPECT_EQ(conn_cb.enable, 0);
        EXPECT_EQ(world.thread_body, nullptr);
        EXPECT_EQ(log.lines(), (lines{"wl_client_ts_init: CTS: wl_client_ts_init completed with status -1", ""}));
        drop_tables();
    }
    EXPECT_EQ(failures, 5) << "two for each table and one for the iterator";
}

TEST_F(ClientTsStart, IsOffWithoutAMutex) {
    stage.mutex_error = ENOMEM;
    const std::string status = std::to_string(-EIO);
    EXPECT_EQ(log_of([] { EXPECT_EQ(wl_client_ts_init(), -EIO); }),
              (lines{"wl_client_ts_init: CTS: wl_client_ts_init completed with status " + status, ""}));
    EXPECT_EQ(conn_cb.init, -EIO);
    EXPECT_EQ(conn_cb.enable, 0);
    EXPECT_EQ(world.thread_body, nullptr);
}

TEST_F(ClientTsStart, IsOffWithoutATimerThread) {
    world.thread_error = EAGAIN;
    const std::string status = std::to_string(-ENXIO);
    EXPECT_EQ(log_of([] { EXPECT_EQ(wl_client_ts_init(), -ENXIO); }, 6),
              (lines{"wl_client_ts_init: CTS: Could not create timer thread Resource temporarily unavailable",
                     "wl_client_ts_init: CTS: wl_client_ts_init completed with status " + status, ""}));
    EXPECT_EQ(conn_cb.init, -ENXIO);
    EXPECT_EQ(conn_cb.enable, 0);
    EXPECT_FALSE(is_locked());
}

TEST_F(ClientTsStart, TheMissingThreadIsSaidAtLevel2) {
    world.thread_error = EAGAIN;
    EXPECT_EQ(log_of([] { EXPECT_EQ(wl_client_ts_init(), -ENXIO); }, 2).size(), 1u);
    drop_tables();
    EXPECT_EQ(log_of([] { EXPECT_EQ(wl_client_ts_init(), -ENXIO); }, 1), lines());
}

TEST_F(ClientTsStart, AModuleThatFailedToStartIsOff) {
    world.thread_error = EAGAIN;
    EXPECT_EQ(wl_client_ts_init(), -ENXIO);
    world.locks = 0;
    EXPECT_EQ(wl_client_ts_enable(1), -1);
    received_payload payload(payload_of({.info = 2}));
    wl_client_ts(VRE_DOT1X, payload.data(), payload.length());
    EXPECT_EQ(conn_cb.inprog_conn_table->num_entries, 0);
    wl_client_ts_deinit();
    EXPECT_EQ(world.joins, 0);
    EXPECT_EQ(world.locks, 0);
}

TEST_F(ClientTsStart, TheDetailedLogGetsItsTable) {
    EXPECT_EQ(wl_client_ts_init(), 0);
    world.locks = 0;
    EXPECT_EQ(log_of([] { EXPECT_EQ(wl_detailed_client_ts_init(), 0); }, 6),
              (lines{"wl_detailed_client_ts_init: DETAILED CONN INFO: Completed with status 0", ""}));
    EXPECT_EQ(conn_cb.detail_log_init, 0);
    ASSERT_NE(conn_cb.detail_conn_table, nullptr);
    EXPECT_EQ(conn_cb.detail_conn_table->length, 53);
    EXPECT_EQ(conn_cb.detail_conn_table->hash_func, hw_mac_hash_func);
    EXPECT_EQ(conn_cb.detail_conn_table->compare, hw_mac_compare_func);
    EXPECT_EQ(conn_cb.detail_conn_iter->htable, conn_cb.detail_conn_table);
    EXPECT_EQ(world.locks, 1);
    EXPECT_FALSE(is_locked());
}

TEST_F(ClientTsStart, TheStatusOfTheDetailedLogIsSaidAtLevel6) {
    EXPECT_EQ(wl_client_ts_init(), 0);
    EXPECT_EQ(log_of([] { EXPECT_EQ(wl_detailed_client_ts_init(), 0); }, 5), lines());
}

TEST_F(ClientTsStart, TheDetailedLogIsOffWithoutMemory) {
    EXPECT_EQ(wl_client_ts_init(), 0);
    for (int nth = 1; nth <= 3; nth++) {
        conn_cb.detail_log_init = 0;
        fail_nth_call("calloc", nth);
        EXPECT_EQ(log_of([] { EXPECT_EQ(wl_detailed_client_ts_init(), -1); }),
                  (lines{"wl_detailed_client_ts_init: DETAILED CONN INFO: Completed with status -1", ""}));
        EXPECT_EQ(faults_fired("calloc"), 1);
        EXPECT_EQ(conn_cb.detail_log_init, -1);
        clear_faults();
        (void)hash_delTable(&conn_cb.detail_conn_table, nullptr);
    }
}

TEST_F(ClientTsStart, TheDetailedLogStartsAfterAFailedStartToo) {
    stage.mutex_error = ENOMEM;
    EXPECT_EQ(wl_client_ts_init(), -EIO);
    EXPECT_EQ(wl_detailed_client_ts_init(), 0);
}

TEST_F(ClientTsStart, TheEndStopsTheThreadAndKeepsTheRecords) {
    EXPECT_EQ(wl_client_ts_init(), 0);
    received_payload payload(payload_of({.info = 2}));
    wl_client_ts(VRE_DOT1X, payload.data(), payload.length());
    world.locks = 0;
    wl_client_ts_deinit();
    EXPECT_EQ(world.joins, 1);
    EXPECT_EQ(stage.destroyed, 1);
    EXPECT_EQ(world.terminate_at_join, 1) << "set, and the mutex free, when the thread is waited for";
    EXPECT_EQ(world.locks, 1);
    EXPECT_EQ(conn_cb.inprog_conn_table->num_entries, 1);
    EXPECT_EQ(conn_cb.num_clrec_malloc, 1);
    drop_everything();
}

TEST_F(ClientTsStart, AResetChangesNothing) {
    EXPECT_EQ(wl_client_ts_init(), 0);
    const conn_ctrlblk before = conn_cb;
    world.locks = 0;
    wl_client_ts_reset();
    EXPECT_EQ(std::memcmp(&before, &conn_cb, sizeof before), 0);
    EXPECT_EQ(world.locks, 0);
}

}  // namespace
