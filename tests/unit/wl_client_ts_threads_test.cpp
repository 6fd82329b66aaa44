// The timer thread of client troubleshooting beside the other modules of the main thread: the APC feature looks at the
// SSID profiles while they come and go, and lines and dumps are written while attempts end.
#include "wl_client_ts_verdict_fixture.h"

#include <chrono>
#include <cstdlib>
#include <sched.h>
#include <sys/stat.h>

#include "files.h"
#include "language_cache_funcs.h"
#include "wl_cl_info.h"
#include "wl_logger.h"
#include "wl_server.h"
#include "wl_ssid_profile.h"

extern "C" int __wrap_socklib_get_hwaddr(const char *, uint8_t *address) {
    std::memcpy(address, ap_bssid().data(), 6);
    return 0;
}

namespace {

constexpr unsigned ITEM_APC_ID = 11;

class ThreadsOfClients : public VerdictFixture {
protected:
    static void let_timer_run() {
        const std::lock_guard lock(world.mutex);
        world.pace_usec = 1000;
        world.changed.notify_all();
    }

    static int attempts_in_progress() {
        const conn_lock lock;
        return conn_cb.inprog_conn_table->num_entries;
    }

    /// An attempt that the next sweep finds without an answer from DHCP.
    static void add_ended_attempt(unsigned client) {
        cl_conn_evt_rec *const rec = attempt(client);
        rec->state = CL_ASSOC_ANSWERED;
        rec->dhcp_state = 1;
        rec->timestamp -= CONN_TIMEOUT;
        const conn_lock lock;
        EXPECT_EQ(hash_add(conn_cb.inprog_conn_table, mac_of(client).data(), rec), 0);
    }

    /// Waits until the timer has ended all attempts.
    static void wait_for_verdicts() {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        for (; attempts_in_progress() != 0; sched_yield())
            ASSERT_LT(std::chrono::steady_clock::now(), limit) << "the thread does not sweep";
    }
};

class ProfilesComeAndGo : public ThreadsOfClients {
protected:
    static constexpr uint8_t ADD = 1;
    static constexpr uint8_t DELETE = 2;
    static constexpr uint8_t PROFILES = 3;

    ProfilesComeAndGo() {
        wl_init_cl_cache_info();
        for (int id = 1; id <= PROFILES; id++) {
            const std::string directory = "/tmp/profile" + std::to_string(id);
            mkdir(directory.c_str(), 0755);
            write_file(directory + "/profile.conf",
                       "SSID_PROFILE_ID=" + std::to_string(id) +
                           "\nWL_PROFILE_SSID=net\nVAP_LIST=ath0,ath1\nExternalDevice=eth0\nAPC_ENABLED=1\n");
            write_file(directory + "/wl.conf", "");
        }
    }

    ~ProfilesComeAndGo() override {
        stop_timer();
        stopped = true;
        hash_table_destroy(ssid_profile_list);
        std::free(ssid_profile_list);
        ssid_profile_list = nullptr;
    }

    static void update(uint8_t id, uint8_t flag) {
        const uint8_t event[] = {0, 0, 0, id, flag};
        EXPECT_EQ(handle_ssid_profile_update(event), 0);
    }

    static void update_all(uint8_t flag) {
        for (uint8_t id = 1; id <= PROFILES; id++)
            update(id, flag);
    }

    /// The identifier's length in the report on an attempt that ends now; -1 without one.
    static int64_t length_of_identifier(unsigned client) {
        take_reports();
        add_ended_attempt(client);
        wait_for_verdicts();
        const std::vector<report> reports = take_reports();
        return reports.size() == 1 ? reports[0].item(ITEM_APC_ID) : -2;
    }
};

TEST_F(ProfilesComeAndGo, WhileTheTimerAsksThemForApc) {
    let_timer_run();
    for (unsigned wave = 0; wave < 10; wave++) {
        for (unsigned client = 1; client <= 20; client++)
            add_ended_attempt(wave * 20 + client);
        for (int i = 0; i < 5; i++) {  // without a lock that would order the threads
            update_all(ADD);
            update_all(DELETE);
        }
    }
    wait_for_verdicts();
    EXPECT_EQ(take_reports().size(), 200u);
    EXPECT_EQ(length_of_identifier(201), -1);
    update_all(ADD);
    EXPECT_NE(length_of_identifier(202), -1);
    update_all(DELETE);
    EXPECT_EQ(length_of_identifier(203), -1);
}

class LinesAndDumps : public ThreadsOfClients {
protected:
    LinesAndDumps() {
        write_file("/tmp/labels", "INFOCODE_1=KEY\nINFOCODE_2=AUTH\nINFOCODE_14=DHCP\nKEY_14=wrong key\n"
                                  "AUTH_0=$MAC asks $BSSID for $SSID\nDHCP_1=DHCP begins\n");
        wl_debug_log_cache = hash_newTable(137, lang_hash_func, lang_compare_record);
        EXPECT_EQ(pop_lang_cache_from_file("/tmp/labels", wl_debug_log_cache), 0);
        init_logger();
    }

    ~LinesAndDumps() override {
        deinit_logger();
        (void)hash_delTable(&wl_debug_log_cache, free_lang_node);
    }

    /// Brings an event to both modules that see every one.
    static void bring(unsigned client, uint32_t info, uint16_t sub) {
        received_payload received(message(client, info, sub));
        wl_logger(VRE_DOT1X, received.data(), received.length());
        wl_client_ts(VRE_DOT1X, received.data(), received.length());
    }

    static void dump_all() {
        byte_string request(6, 0xFF);
        const byte_string path = text_bytes("/tmp/errors");
        request.insert(request.end(), path.begin(), path.end());
        request.resize(38);
        vre_wl_client_ts_dump(VRE_CLIENT_TS_CONN_ERR_LOG_DUMP, request.data(), 38);
    }
};

TEST_F(LinesAndDumps, AreWrittenWhileTheTimerEndsAttempts) {
    log_capture log(7);
    let_timer_run();
    for (unsigned client = 1; client <= 150; client++) {
        bring(client, INFO_AUTH_REQUEST, 0);
        bring(client, INFO_ASSOC_REQUEST, 0);
        bring(client, INFO_ASSOC_RESPONSE, 0);
        bring(client, INFO_KEY_HANDSHAKE, 14);
        advance(5000);  // 24 attempts are in progress at a time
        if (client % 10 == 0)
            dump_all();
    }
    advance(CONN_TIMEOUT);
    wait_for_verdicts();
    dump_all();
    stop_timer();  // before the log ends
    stopped = true;
    EXPECT_EQ(stored().size(), 150u);
    const std::string text = file_text("/tmp/errors");
    EXPECT_EQ(text.substr(0, text.find('\n')), "AP has 150 Error Records");
    EXPECT_NE(text.find("     0:" + mac_text(150) + " asks 02:AA:BB:CC:DD:01 for net\n"), text.npos);
    const lines all = log.lines();
    EXPECT_TRUE(contains(all, "wl_log_evt: [" + mac_text(1) + "]=>[net(02:AA:BB:CC:DD:01)] wrong key"));
}

}  // namespace
