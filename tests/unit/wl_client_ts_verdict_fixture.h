/// What the tests of the verdict on connection attempts share: the module with a clock and a timer thread that stand
/// still until the test moves them, and what it sends. A test executable links with --wrap=gettimeofday, --wrap=sleep
/// and --wrap=wl_send_evt, and has malloc and calloc in its WRAP list.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <sys/time.h>
#include <thread>
#include <utility>

#include "fault.h"
#include "log_capture.h"
#include "vap_table.h"
#include "wl_client_ts_common.h"
#include "wl_info_codes.h"

using code_and_sub = std::pair<int64_t, int64_t>;  // of a failure

/// A connection report as it was posted.
struct report {
    byte_string bytes;
    std::thread::id poster;

    byte_string mac() const {
        return byte_string(bytes.begin(), bytes.begin() + 6);
    }

    /// 1 success, 0 failure
    int outcome() const {
        return bytes.at(14);
    }

    /// The first item of a type; -1 when there is none.
    int64_t item(unsigned type) const {
        for (size_t at = 15; at + 4 <= bytes.size(); at += 4 + number(at + 2, 2))
            if (number(at, 2) == type)
                return number(at + 4, number(at + 2, 2));
        return -1;
    }

    /// Code and sub of a failure report.
    code_and_sub failure() const {
        return {item(1), item(2)};
    }

private:
    unsigned number(size_t at, size_t width) const {
        unsigned value = 0;
        for (size_t i = 0; i < width; i++)
            value = value << 8 | bytes.at(at + i);
        return value;
    }
};

/// The world around the module; the timer thread uses it too.
struct surroundings {
    std::mutex mutex;
    std::condition_variable changed;
    uint64_t clock_usec = 0;
    std::vector<report> reports;   // event 49
    int forwarded = 0;             // events 42
    bool watches_lock = false;     // whether posting looks at the mutex of conn_cb
    bool posted_unlocked = false;  // a report was posted while that mutex was free
    std::vector<unsigned> naps;    // seconds of the sleeps begun
    size_t wakes = 0;              // sleeps that may end
    unsigned pace_usec = 0;        // when not 0, every sleep takes this long
};

inline surroundings world;

/// Whether another thread could take the mutex of conn_cb now.
inline bool others_may_lock() {
    bool locked = false;
    std::thread([&locked] {
        locked = pthread_mutex_trylock(&conn_cb.mutex) == 0;
        if (locked)
            pthread_mutex_unlock(&conn_cb.mutex);
    }).join();
    return locked;
}

extern "C" [[gnu::used]] inline int __wrap_gettimeofday(timeval *time, void *) {
    const std::lock_guard lock(world.mutex);
    time->tv_sec = static_cast<time_t>(world.clock_usec / 1000000);
    time->tv_usec = static_cast<suseconds_t>(world.clock_usec % 1000000);
    return 0;
}

extern "C" [[gnu::used]] inline unsigned __wrap_sleep(unsigned seconds) {
    std::unique_lock lock(world.mutex);
    world.naps.push_back(seconds);
    const size_t mine = world.naps.size();
    world.changed.notify_all();
    world.changed.wait(lock, [mine] { return world.wakes >= mine || world.pace_usec != 0; });
    const timespec pace = {0, static_cast<long>(world.pace_usec) * 1000};
    lock.unlock();
    nanosleep(&pace, nullptr);
    return 0;
}

extern "C" [[gnu::used]] inline int __wrap_wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    const std::lock_guard lock(world.mutex);
    const auto *const bytes = static_cast<const uint8_t *>(payload);
    if (event == VRE_DEBUG_CLIENT_CONN_INFO) {
        world.reports.push_back({byte_string(bytes, bytes + length), std::this_thread::get_id()});
        world.posted_unlocked |= world.watches_lock && others_may_lock();
    } else {
        world.forwarded++;
    }
    return 1;
}

/// Whether the log holds a line and after it the empty one that a line ending in a newline leaves.
inline bool contains_with_newline(const lines &log, const std::string &line) {
    const auto found = std::find(log.begin(), log.end(), line);
    return found != log.end() && found + 1 != log.end() && (found + 1)->empty();
}

/// What a test sets in a decoded event.
inline wl_evt_info_t event_of(uint32_t info, uint16_t sub) {
    wl_evt_info_t event{};
    event.info_code = info;
    event.subinfo_code = sub;
    return event;
}

struct record_deleter {
    void operator()(cl_conn_evt_rec *rec) const {
        clrec_free(rec);
    }
};
/// A record that stays the test's.
using own_record = std::unique_ptr<cl_conn_evt_rec, record_deleter>;

/// Looks at an event, as when it has just come.
inline uint32_t check(cl_conn_evt_rec *rec, uint32_t info, uint16_t sub) {
    const wl_evt_info_t event = event_of(info, sub);
    return check_err_code(&event, rec);
}

inline uint32_t check(const own_record &rec, uint32_t info, uint16_t sub) {
    return check(rec.get(), info, sub);
}

inline std::vector<int> codes(const cl_conn_evt_rec &rec) {
    return std::vector<int>(rec.failure_code, rec.failure_code + 4);
}

inline std::vector<int> subs(const cl_conn_evt_rec &rec) {
    return std::vector<int>(rec.subinfo_code, rec.subinfo_code + 4);
}

class VerdictFixture : public testing::Test {
protected:
    static constexpr std::chrono::seconds WAIT_LIMIT{60};  // for another thread, on a busy machine too

    // Its milliseconds are far from where 32 bits wrap.
    static constexpr uint64_t START_MSEC = (uint64_t{400} << 32) + 1000000000;

    VerdictFixture() {
        world.clock_usec = START_MSEC * 1000;
        world.reports.clear();
        world.naps.clear();
        world.wakes = 0;
        world.pace_usec = 0;
        vap_array[0] = {};
        std::memcpy(vap_array[0].name, "ath0", sizeof "ath0");
        vap_count = 1;
        EXPECT_EQ(wl_client_ts_init(), 0);
        EXPECT_EQ(wl_detailed_client_ts_init(), 0);
    }

    /// Frees what is left: every byte and every object must then be accounted for.
    ~VerdictFixture() override {
        clear_faults();
        if (!stopped)
            stop_timer();
        drop_everything();
        vap_count = 0;
        EXPECT_EQ(accounts::now(), accounts());
        drop_tables();
    }

    /// Ends the timer thread without another sweep.
    static void stop_timer() {
        {
            const conn_lock lock;
            conn_cb.terminate_timer = 1;
        }
        let_sleeps_end();
        wl_client_ts_deinit();
    }

    static void let_sleeps_end() {
        const std::lock_guard lock(world.mutex);
        world.wakes = SIZE_MAX;
        world.changed.notify_all();
    }

    /// Lets the timer thread do one sweep, and waits for its end.
    static void sweep() {
        std::unique_lock lock(world.mutex);
        const auto sleeps = [] { return world.naps.size() == world.wakes + 1; };
        ASSERT_TRUE(world.changed.wait_for(lock, WAIT_LIMIT, sleeps)) << "the thread does not sleep";
        world.wakes++;
        world.changed.notify_all();
        ASSERT_TRUE(world.changed.wait_for(lock, WAIT_LIMIT, sleeps)) << "the sweep does not end";
    }

    static void set_clock(uint64_t msec) {
        const std::lock_guard lock(world.mutex);
        world.clock_usec = msec * 1000;
    }

    static void advance(uint64_t msec) {
        const std::lock_guard lock(world.mutex);
        world.clock_usec += msec * 1000;
    }

    static std::vector<report> take_reports() {
        const std::lock_guard lock(world.mutex);
        return std::exchange(world.reports, {});
    }

    /// A new record that is in no table.
    static cl_conn_evt_rec *attempt(unsigned client = 1, const std::string &ssid = "net",
                                    const byte_string &bssid = ap_bssid()) {
        byte_string mac = mac_of(client);
        byte_string of_ap = bssid;
        std::string name = ssid;
        char vap[] = "ath0";
        wl_evt_info_t request = event_of(INFO_AUTH_REQUEST, 0);
        request.name = vap;
        request.cl_mac = mac.data();
        request.bssid = of_ap.data();
        request.ssid = name.data();
        request.ssid_len = static_cast<int16_t>(name.size());
        return create_rec(&request);
    }

    /// Makes it a record of an event that named no SSID.
    static void drop_ssid(cl_conn_evt_rec *rec) {
        clts_release(rec->cl_info.ssid, rec->cl_info.ssid_len + size_t{1});
        rec->cl_info.ssid_len = 0;
        conn_cb.num_ssid_malloc--;
    }

    /// A record as an event reported it: with a failure, sent.
    static cl_conn_evt_rec *failed_attempt(unsigned client, uint8_t failure, const byte_string &bssid = ap_bssid()) {
        cl_conn_evt_rec *const rec = attempt(client, "net", bssid);
        rec->failure_code[0] = failure;
        rec->subinfo_code[0] = 1;
        rec->is_rec_sent_to_server = 1;
        return rec;
    }

    /// A new record in the table of those in progress.
    static cl_conn_evt_rec *attempt_in_progress(unsigned client = 1) {
        cl_conn_evt_rec *const rec = attempt(client);
        const conn_lock lock;
        EXPECT_EQ(hash_add(conn_cb.inprog_conn_table, mac_of(client).data(), rec), 0);
        return rec;
    }

    static cl_conn_evt_rec *in_progress(unsigned client = 1) {
        return static_cast<cl_conn_evt_rec *>(hash_find(conn_cb.inprog_conn_table, mac_of(client).data()));
    }

    static event_payload message(unsigned client, uint32_t info, uint16_t sub) {
        return event_payload()
            .header(mac_of(client), 3)
            .text(WL_VAP_SSID, "net")
            .item(WL_VAP_BSSID, ap_bssid())
            .text(WL_VAP_NAME, "ath0")
            .u32(WL_INFO_CODE, info)
            .u16(WL_SUBINFO_CODE, sub);
    }

    /// Brings an event from the bus.
    static void deliver(const event_payload &payload) {
        received_payload received(payload);
        wl_client_ts(VRE_DOT1X, received.data(), received.length());
    }

    static void deliver(unsigned client, uint32_t info, uint16_t sub) {
        deliver(message(client, info, sub));
    }

    static const client_hash_rec *client_of(unsigned client) {
        return static_cast<client_hash_rec *>(hash_find(conn_cb.err_conn_table, mac_of(client).data()));
    }

    /// The stored records, oldest first.
    static std::vector<cl_conn_evt_rec *> stored() {
        std::vector<cl_conn_evt_rec *> all;
        for (const dllist_t *node = conn_cb.err_conn_list.head; node != nullptr; node = node->next)
            all.push_back(record_of(node));
        return all;
    }

    bool stopped = false;  // whether the test has ended the timer thread itself
};
