// The timer thread: when it ends an attempt, what it says of the module, and that it shares the tables with the events.
#include "wl_client_ts_verdict_fixture.h"

#include <sched.h>

#include "wl_evt_payloads.h"
#include "wl_evt_register.h"

namespace {

constexpr char TIMER[] = "conn_fail_det_timer_func";

class ClientTimer : public VerdictFixture {
protected:
    static constexpr uint64_t WRAP_MSEC = uint64_t{401} << 32;  // where the 32 bits of the milliseconds begin anew

    static bool is_kept(unsigned client = 1) {
        sweep();
        return in_progress(client) != nullptr;
    }

    static cl_conn_evt_rec *portal_attempt_in_progress(unsigned client = 1) {
        cl_conn_evt_rec *const rec = attempt_in_progress(client);
        rec->is_portal_enabled = 1;
        return rec;
    }

    /// An entry of the detailed log.
    static detail_clrec *detailed(unsigned client = 1) {
        byte_string mac = mac_of(client);
        wl_evt_info_t event = event_of(INFO_AUTH_REQUEST, 0);
        event.cl_mac = mac.data();
        detail_clrec *const rec = create_detail_clrec(&event);
        EXPECT_EQ(hash_add(conn_cb.detail_conn_table, mac.data(), rec), 0);
        return rec;
    }

    static bool is_detailed(unsigned client = 1) {
        return hash_find(conn_cb.detail_conn_table, mac_of(client).data()) != nullptr;
    }

    /// What the thread says in a sweep.
    static lines log_of_sweep(int level = 7) {
        log_capture log(level);
        sweep();
        return lines_of(log.lines(), TIMER);
    }

    static std::string accounts_line(int in_progress, int stored, const accounts &of) {
        return "CTS: Conn InProg Count " + std::to_string(in_progress) + "; Err Count " + std::to_string(stored) +
               "; Malloc info " + std::to_string(of.clrec) + "/" + std::to_string(of.ssid) + "/" +
               std::to_string(of.hashrec) + "/" + std::to_string(of.listrec) + "/" + std::to_string(of.value) + "/" +
               std::to_string(of.size);
    }
};

// ---- When an attempt ends ----

TEST_F(ClientTimer, SleepsThirtySecondsBetweenTheSweeps) {
    sweep();
    sweep();
    const std::lock_guard lock(world.mutex);
    EXPECT_EQ(world.naps, (std::vector<unsigned>{30, 30, 30}));
}

TEST_F(ClientTimer, AnAttemptIsKeptAt120000Milliseconds) {
    attempt_in_progress();
    advance(120000);
    EXPECT_TRUE(is_kept());
}

TEST_F(ClientTimer, AnAttemptEndsAt120001Milliseconds) {
    attempt_in_progress();
    advance(120001);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, AnAttemptAtAPortalIsKeptAt300000Milliseconds) {
    portal_attempt_in_progress();
    advance(120001);
    EXPECT_TRUE(is_kept());
    advance(300000 - 120001);
    EXPECT_TRUE(is_kept());
}

TEST_F(ClientTimer, AnAttemptAtAPortalEndsAt300001Milliseconds) {
    portal_attempt_in_progress();
    advance(300001);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, TheConfigurationOfTheSsidDecidesWhichLimitCounts) {
    vap_array[0].portal_enabled = 1;
    deliver(1, INFO_AUTH_REQUEST, 0);
    advance(300000);
    EXPECT_TRUE(is_kept());
    advance(1);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, TheLastChangeOfStageCounts) {
    deliver(1, INFO_AUTH_REQUEST, 0);
    advance(100000);
    deliver(1, INFO_ASSOC_RESPONSE, 1);
    advance(120000);
    EXPECT_TRUE(is_kept());
    advance(1);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, AnEventThatLeavesTheStageAloneDoesNotCount) {
    deliver(1, INFO_AUTH_REQUEST, 0);
    advance(100000);
    deliver(1, INFO_AUTH_RESPONSE, 0);  // the same sub as before
    advance(20001);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, TheLimitHoldsAcrossTheWrap) {
    set_clock(WRAP_MSEC - 60000);
    attempt_in_progress();
    set_clock(WRAP_MSEC + 60000);
    EXPECT_TRUE(is_kept());
    set_clock(WRAP_MSEC + 60001);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, TheLimitOfAPortalHoldsAcrossTheWrap) {
    set_clock(WRAP_MSEC - 1);
    EXPECT_EQ(portal_attempt_in_progress()->timestamp, 0xFFFFFFFFu);
    set_clock(WRAP_MSEC + 299999);
    EXPECT_TRUE(is_kept());
    set_clock(WRAP_MSEC + 300000);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, AnAttemptThatBeganAtTheWrapHasTheSameLimit) {
    set_clock(WRAP_MSEC);
    EXPECT_EQ(attempt_in_progress()->timestamp, 0u);
    set_clock(WRAP_MSEC + 120000);
    EXPECT_TRUE(is_kept());
    set_clock(WRAP_MSEC + 120001);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, AClockThatIsSetBackCountsAsMuchAsOneThatIsSetForward) {
    attempt_in_progress();
    set_clock(START_MSEC - 120000);
    EXPECT_TRUE(is_kept());
    set_clock(START_MSEC - 120001);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, TheClockMayBeSetBackAcrossTheWrap) {
    set_clock(WRAP_MSEC + 60000);
    attempt_in_progress();
    set_clock(WRAP_MSEC - 60000);
    EXPECT_TRUE(is_kept());
    set_clock(WRAP_MSEC - 60001);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, HalfTheRangeOfTheClockIsTheGreatestAge) {
    attempt_in_progress();
    advance(0x80000000);
    EXPECT_FALSE(is_kept());
}

// ---- What becomes of it ----

TEST_F(ClientTimer, AnEndedAttemptIsDecidedOn) {
    deliver(1, INFO_AUTH_REQUEST, 0);
    deliver(1, INFO_ASSOC_REQUEST, 0);
    advance(120001);
    sweep();
    const std::vector<report> reports = take_reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].mac(), mac_of(1));
    EXPECT_EQ(reports[0].failure(), code_and_sub(3, 41));
    EXPECT_NE(reports[0].poster, std::this_thread::get_id());
    ASSERT_EQ(stored().size(), 1u);
    EXPECT_EQ(stored()[0]->num_evt, 2);
}

TEST_F(ClientTimer, TheMutexIsHeldWhileAnAttemptIsReported) {
    deliver(1, INFO_AUTH_REQUEST, 0);
    deliver(1, INFO_ASSOC_REQUEST, 0);
    advance(120001);
    world.watches_lock = true;
    sweep();
    world.watches_lock = false;
    EXPECT_EQ(take_reports().size(), 1u);
    EXPECT_FALSE(world.posted_unlocked);
}

TEST_F(ClientTimer, TheMutexIsFreeWhileTheThreadSleeps) {
    sweep();
    EXPECT_TRUE(others_may_lock());
}

TEST_F(ClientTimer, OnlyTheAttemptsThatStandStillEnd) {
    for (unsigned client = 1; client <= 300; client++) {
        cl_conn_evt_rec *const rec = attempt_in_progress(client);
        rec->timestamp -= client % 3 == 0 ? 120001 : 120000;
    }
    sweep();
    for (unsigned client = 1; client <= 300; client++)
        EXPECT_EQ(in_progress(client) == nullptr, client % 3 == 0) << client;
    EXPECT_EQ(conn_cb.inprog_conn_table->num_entries, 200);
}

TEST_F(ClientTimer, AllAttemptsMayEndInOneSweep) {
    for (unsigned client = 1; client <= 300; client++)
        attempt_in_progress(client);
    advance(120001);
    sweep();
    EXPECT_EQ(conn_cb.inprog_conn_table->num_entries, 0);
    EXPECT_EQ(conn_cb.num_clrec_malloc, 0);
}

TEST_F(ClientTimer, AttemptsThatEventsEndedMeanwhileDoNotConfuseTheSweep) {
    for (unsigned client = 1; client <= 60; client++)
        attempt_in_progress(client);
    sweep();  // its iterator stands at an attempt that is then freed
    for (unsigned client = 1; client <= 60; client++) {
        cl_conn_evt_rec *const rec = in_progress(client);
        hash_del(conn_cb.inprog_conn_table, rec->cl_info.mac);
        clrec_free(rec);
    }
    attempt_in_progress(61);
    advance(120001);
    EXPECT_FALSE(is_kept(61));
}

TEST_F(ClientTimer, NoAttemptEndsWhileTheTrackingIsOff) {
    attempt_in_progress();
    advance(120001);
    EXPECT_EQ(wl_client_ts_enable(0), 0);
    EXPECT_TRUE(is_kept());
    EXPECT_EQ(wl_client_ts_enable(1), 0);
    EXPECT_FALSE(is_kept());
}

TEST_F(ClientTimer, NoAttemptEndsWhileTheModuleIsOff) {
    attempt_in_progress();
    advance(120001);
    conn_cb.init = -1;
    EXPECT_TRUE(is_kept());
    conn_cb.init = 0;
}

// ---- Its account of the module ----

TEST_F(ClientTimer, TellsOfAnEmptyModule) {
    EXPECT_EQ(log_of_sweep(), (lines{"CTS: Conn InProg Count 0; Err Count 0; Malloc info 0/0/0/0/0/0",
                                     "DETAILED CONN INFO: detail_conn_table Count 0;"}));
}

TEST_F(ClientTimer, TellsWhatTheModuleHolds) {
    for (unsigned client = 1; client <= 4; client++)
        attempt_in_progress(client);
    for (const size_t size : {41, 9, 3, 1, 1})
        deliver(message(1, INFO_ROLE, 0).item(WL_SUBINFO_VALUE, byte_string(size)));
    drop_ssid(in_progress(2));
    ASSERT_EQ(move_clrec_to_err_list(failed_attempt(7, 3)), 0);
    ASSERT_EQ(move_clrec_to_err_list(failed_attempt(8, 3)), 0);
    ASSERT_EQ(move_clrec_to_err_list(failed_attempt(8, 3)), 0);
    const size_t bytes =
        7 * sizeof(cl_conn_evt_rec) + 6 * sizeof "net" + 55 + 2 * sizeof(client_hash_rec) + 3 * sizeof(client_list_rec);
    EXPECT_EQ(log_of_sweep().at(0), accounts_line(4, 3, {7, 6, 2, 3, 5, static_cast<int>(bytes)}));
}

TEST_F(ClientTimer, TellsItBeforeTheAttemptsEnd) {
    attempt_in_progress();
    const accounts before = accounts::now();
    advance(120001);
    EXPECT_EQ(log_of_sweep().at(0), accounts_line(1, 0, before));
    EXPECT_EQ(log_of_sweep().at(0), accounts_line(0, 0, {}));
}

TEST_F(ClientTimer, TellsItAtLevel7Only) {
    detailed();
    advance(300000);
    EXPECT_EQ(log_of_sweep(6), lines());
}

TEST_F(ClientTimer, TellsItWhileTheTrackingIsOff) {
    EXPECT_EQ(wl_client_ts_enable(0), 0);
    EXPECT_EQ(log_of_sweep().at(0), accounts_line(0, 0, {}));
}

TEST_F(ClientTimer, TellsNothingOfAModuleThatIsOff) {
    conn_cb.init = -1;
    EXPECT_EQ(log_of_sweep(), lines{"DETAILED CONN INFO: detail_conn_table Count 0;"});
    conn_cb.init = 0;
}

// ---- The detailed log ----

TEST_F(ClientTimer, TheDetailedLogKeepsAClientAt299999Milliseconds) {
    detailed();
    advance(299999);
    EXPECT_EQ(log_of_sweep().back(), "DETAILED CONN INFO: detail_conn_table Count 1;");
    EXPECT_TRUE(is_detailed());
}

TEST_F(ClientTimer, TheDetailedLogForgetsAClientAt300000Milliseconds) {
    detailed();
    advance(300000);
    EXPECT_EQ(log_of_sweep(),
              (lines{accounts_line(0, 0, {0, 0, 0, 0, 0, 24}), "DETAILED CONN INFO: detail_conn_table Count 1;",
                     "DETAILED CONN INFO: deleted detailed_clrec 00:11:22:33:00:01 from conn_rec"}));
    EXPECT_FALSE(is_detailed());
    EXPECT_EQ(accounts::now(), accounts());
}

TEST_F(ClientTimer, TheDetailedLogForgetsAcrossTheWrap) {
    set_clock(WRAP_MSEC - 100000);
    detailed();
    set_clock(WRAP_MSEC + 199999);
    sweep();
    EXPECT_TRUE(is_detailed());
    set_clock(WRAP_MSEC + 200000);
    sweep();
    EXPECT_FALSE(is_detailed());
}

TEST_F(ClientTimer, TheDetailedLogForgetsOnlyTheOldClients) {
    for (unsigned client = 1; client <= 200; client++)
        detailed(client)->timestamp -= client % 2 == 0 ? 300000 : 299999;
    sweep();
    for (unsigned client = 1; client <= 200; client++)
        EXPECT_EQ(is_detailed(client), client % 2 != 0) << client;
}

TEST_F(ClientTimer, TheDetailedLogForgetsClientsWhateverTheTrackingDoes) {
    detailed();
    advance(300000);
    EXPECT_EQ(wl_client_ts_enable(0), 0);
    conn_cb.init = -1;
    sweep();
    conn_cb.init = 0;
    EXPECT_FALSE(is_detailed());
}

TEST_F(ClientTimer, WithoutADetailedTableNothingIsSaidOfIt) {
    conn_cb.detail_log_init = -1;
    EXPECT_EQ(log_of_sweep(), lines{accounts_line(0, 0, {})});
}

// ---- The end of the thread ----

TEST_F(ClientTimer, EndsWhenItWakesAfterTheModuleWasStopped) {
    attempt_in_progress();
    advance(120001);
    log_capture log(7);
    std::thread waker([] {
        const auto limit = std::chrono::steady_clock::now() + WAIT_LIMIT;
        for (bool terminates = false; !terminates;) {
            sched_yield();
            if (std::chrono::steady_clock::now() > limit) {
                ADD_FAILURE() << "the thread is not told to end";
                break;
            }
            const conn_lock lock;
            terminates = conn_cb.terminate_timer != 0;
        }
        let_sleeps_end();
    });
    wl_client_ts_deinit();  // waits for the thread
    waker.join();
    stopped = true;
    EXPECT_EQ(lines_of(log.lines(), TIMER), lines()) << "no last sweep";
    EXPECT_NE(in_progress(), nullptr) << "records are not freed";
}

TEST_F(ClientTimer, AModuleThatIsOffHasNoThreadToStop) {
    conn_cb.init = -1;
    wl_client_ts_deinit();
    EXPECT_EQ(conn_cb.terminate_timer, 0);
    conn_cb.init = 0;
    sweep();
}

// ---- Together with the events ----

class TimerBesideEvents : public ClientTimer {
protected:
    static constexpr int EVENTS = 20000;

    uint32_t random(uint32_t limit) {
        seed = seed * 1664525 + 1013904223;
        return (seed >> 8) % limit;
    }

    /// Clients come and go: each is seen for a while and then falls silent.
    unsigned client_at(int event) {
        return static_cast<unsigned>(event) / 200 % 1000 + random(20);
    }

    event_payload any_event(unsigned client) {
        static const uint32_t INFOS[] = {1,  2,  3,  4,  4,  5,  5,  8,  9,  10, 14, 15,
                                         16, 17, 19, 20, 21, 22, 23, 25, 26, 27, 100};
        static const uint16_t SUBS[] = {0, 0, 0, 1, 3, 5, 9, 14, 17, 41, 801, 803};
        event_payload payload = message(client, INFOS[random(std::size(INFOS))], SUBS[random(std::size(SUBS))]);
        const uint32_t length = random(20);
        if (length > 0)
            payload.item(WL_SUBINFO_VALUE, byte_string(length, static_cast<uint8_t>(length)));
        return payload;
    }

    /// The sensor's news of VLANs, which the verdict looks at.
    static void bring_vlans(uint8_t bits) {
        event_payload payload;
        payload.bytes(big_endian_bytes(VLAN_DETECTED_INFORMATION, 2)).bytes(byte_string(VLAN_BITMAP_SIZE, bits));
        payload.bytes(big_endian_bytes(0xFFFFFFFF, 4));
        received_payload received(payload);
        vre_handle_vlan_detected_info(VRE_SENSOR_VLAN_DETECTED, received.data(), received.length());
    }

    static void dump(byte_string request) {
        const byte_string file = text_bytes("/tmp/errors");
        request.insert(request.end(), file.begin(), file.end());
        request.resize(38);
        EXPECT_EQ(wl_client_ts_dump(request.data()), 0);
    }

    void feed() {
        for (int i = 0; i < EVENTS; i++) {
            vap_array[0].portal_enabled = random(4) == 0;
            vap_array[0].nat_vap = random(2) == 0;
            deliver(any_event(client_at(i)));
            advance(random(100));
            if (i % 500 == 499) {
                bring_vlans(static_cast<uint8_t>(i));
                EXPECT_EQ(wl_client_ts_enable(0), 0);
                deliver(any_event(1));
                EXPECT_EQ(wl_client_ts_enable(1), 0);
            }
            if (i % 500 == 0)
                dump(mac_of(client_at(i)));
            if (i % 4000 == 3999) {
                dump(byte_string(6, 0xFF));
                wait_for_sweep();  // on a busy machine too
            }
        }
    }

    static void let_timer_run() {
        const std::lock_guard lock(world.mutex);
        world.pace_usec = 2000;
        world.changed.notify_all();
    }

    static size_t sweeps() {
        const std::lock_guard lock(world.mutex);
        return world.naps.size();
    }

    /// Waits until a sweep has begun and ended.
    static void wait_for_sweep() {
        const auto limit = std::chrono::steady_clock::now() + WAIT_LIMIT;
        for (const size_t now = sweeps(); sweeps() < now + 2; sched_yield())
            ASSERT_LT(std::chrono::steady_clock::now(), limit) << "the thread does not sweep";
    }

    static int attempts_in_progress() {
        const conn_lock lock;
        return conn_cb.inprog_conn_table->num_entries;
    }

    /// The reports of the thread that calls, and of the other one.
    static std::pair<int, int> reports_of_both_threads() {
        std::pair<int, int> count;
        for (const report &one : take_reports())
            (one.poster == std::this_thread::get_id() ? count.first : count.second)++;
        return count;
    }

private:
    uint32_t seed = 1;
};

TEST_F(TimerBesideEvents, SweepsWhileEventsFlowAndRecordsAreDumped) {
    let_timer_run();
    feed();
    advance(300001);
    wait_for_sweep();
    EXPECT_EQ(attempts_in_progress(), 0);
    const auto [of_events, of_timer] = reports_of_both_threads();
    EXPECT_GT(of_events, 0);
    EXPECT_GT(of_timer, 0);
    const std::lock_guard lock(world.mutex);
    EXPECT_GT(world.forwarded, EVENTS / 2);
}

TEST_F(TimerBesideEvents, LooksAtTheVlansWhileTheSensorBringsThem) {
    for (unsigned client = 1; client <= 300; client++) {
        cl_conn_evt_rec *const rec = attempt_in_progress(client);
        rec->state = CL_ASSOC_ANSWERED;
        rec->dhcp_state = 1;
        rec->vlan = static_cast<uint16_t>(client);
    }
    advance(120001);
    let_timer_run();
    for (int i = 0; i < 1000; i++)  // without a lock that would order the threads
        bring_vlans(static_cast<uint8_t>(i));
    wait_for_sweep();
    EXPECT_EQ(attempts_in_progress(), 0);
    EXPECT_EQ(reports_of_both_threads(), std::pair(0, 300));
}

TEST_F(TimerBesideEvents, SweepsWhileEventsAreLogged) {
    log_capture log(7);
    let_timer_run();
    for (int i = 0; i < 2000; i++) {
        deliver(any_event(client_at(i)));
        advance(500);
    }
    advance(300001);
    wait_for_sweep();
    EXPECT_EQ(attempts_in_progress(), 0);
    EXPECT_GT(lines_of(log.lines(), TIMER).size(), 2u);
    stop_timer();  // before the log ends
    stopped = true;
}

}  // namespace
