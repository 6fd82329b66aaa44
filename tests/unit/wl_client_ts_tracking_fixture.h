/// What the tests of connection tracking share: the module without its timer thread, a clock that stands still until
/// the test moves it, and what the module sends. A test executable links with --wrap=gettimeofday,
/// --wrap=pthread_create, --wrap=pthread_join, --wrap=pthread_mutex_lock and --wrap=wl_send_evt.
#pragma once

#include <cerrno>
#include <optional>
#include <sys/time.h>

#include "fault.h"
#include "libwl.h"
#include "log_capture.h"
#include "vap_table.h"
#include "wl_client_ts_common.h"
#include "wl_info_codes.h"

// Its milliseconds are far from where 32 bits wrap.
constexpr uint64_t START_MSEC = (uint64_t{390} << 32) + 1000000000;

struct sent_event {
    vre_iw_cmd_t event;
    byte_string payload;
    bool locked;   // the mutex of conn_cb was held
    int attempts;  // in progress then
};

/// The world around the module, all on the test's thread.
inline struct {
    uint64_t clock_usec = START_MSEC * 1000;
    std::vector<sent_event> sent;
    int send_result = 1;
    int thread_error = 0;  // of the attempt to start the timer thread
    void *(*thread_body)(void *) = nullptr;
    int joins = 0;
    int terminate_at_join = -1;  // the stop flag then
    int locks = 0;               // of the mutex of conn_cb
} world;

/// Only for a mutex that no other thread uses.
inline bool is_locked() {
    if (pthread_mutex_trylock(&conn_cb.mutex) != 0)
        return true;
    pthread_mutex_unlock(&conn_cb.mutex);
    return false;
}

extern "C" [[gnu::used]] inline int __wrap_gettimeofday(timeval *time, void *) {
    time->tv_sec = static_cast<time_t>(world.clock_usec / 1000000);
    time->tv_usec = static_cast<suseconds_t>(world.clock_usec % 1000000);
    return 0;
}

extern "C" [[gnu::used]] inline int __wrap_pthread_create(pthread_t *, const pthread_attr_t *, void *(*body)(void *),
                                                          void *) {
    world.thread_body = body;
    return world.thread_error;
}

extern "C" [[gnu::used]] inline int __wrap_pthread_join(pthread_t, void **) {
    world.joins++;
    world.terminate_at_join = is_locked() ? -1 : conn_cb.terminate_timer;
    return 0;
}

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t *mutex);

extern "C" [[gnu::used]] inline int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
    if (mutex == &conn_cb.mutex)
        world.locks++;
    return __real_pthread_mutex_lock(mutex);
}

extern "C" [[gnu::used]] inline int __wrap_wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    const auto *const bytes = static_cast<const uint8_t *>(payload);
    const int attempts = conn_cb.inprog_conn_table != nullptr ? conn_cb.inprog_conn_table->num_entries : 0;
    world.sent.push_back({event, byte_string(bytes, bytes + length), is_locked(), attempts});
    return world.send_result;
}

/// An event in the words of a test. The VAPs: ath0 is open, ath1 has a portal, ath2 has every other flag.
struct client_event {
    uint32_t info = INFO_AUTH_REQUEST;
    uint16_t sub = 0;
    std::optional<byte_string> value{};
    unsigned client = 1;
    std::optional<std::string> ssid = "Lobby";
    std::optional<byte_string> bssid = ap_bssid();
    std::optional<std::string> vap = "ath0";
};

inline event_payload payload_of(const client_event &event) {
    event_payload payload;
    payload.header(mac_of(event.client), 3);
    if (event.ssid)
        payload.text(WL_VAP_SSID, *event.ssid);
    if (event.bssid)
        payload.item(WL_VAP_BSSID, *event.bssid);
    if (event.vap)
        payload.text(WL_VAP_NAME, *event.vap);
    payload.u32(WL_INFO_CODE, event.info).u16(WL_SUBINFO_CODE, event.sub);
    if (event.value)
        payload.item(WL_SUBINFO_VALUE, *event.value);
    return payload;
}

/// A decoded event and the payload that it leads into.
struct decoded_event {
    explicit decoded_event(const client_event &event) : payload(payload_of(event)) {
        wl_get_evt_info(VRE_DOT1X, &info, payload.data(), payload.length());
    }

    received_payload payload;
    wl_evt_info_t info;
};

class TrackingFixture : public testing::Test {
protected:
    TrackingFixture() {
        add_vap("ath0", {});
        vap_info portal{};
        portal.portal_enabled = 1;
        add_vap("ath1", portal);
        vap_info other{};
        other.dot1x_enabled = 1;
        other.ssid_vlan = 2748;
        other.tunneled_vap = 1;
        other.nat_vap = 1;
        add_vap("ath2", other);
        EXPECT_EQ(wl_client_ts_init(), 0);
        world.locks = 0;
    }

    /// Frees what is left: every byte and every object must then be accounted for.
    ~TrackingFixture() override {
        clear_faults();
        EXPECT_FALSE(is_locked());
        drop_everything();
        EXPECT_EQ(accounts::now(), accounts());
        drop_tables();
    }

    /// Brings an event from the bus.
    static void deliver(const client_event &event) {
        received_payload payload(payload_of(event));
        wl_client_ts(VRE_DOT1X, payload.data(), payload.length());
    }

    static cl_conn_evt_rec *in_progress(unsigned client = 1) {
        return static_cast<cl_conn_evt_rec *>(hash_find(conn_cb.inprog_conn_table, mac_of(client).data()));
    }

    static int attempts() {
        return conn_cb.inprog_conn_table->num_entries;
    }

    static client_hash_rec *errors_of(unsigned client = 1) {
        return static_cast<client_hash_rec *>(hash_find(conn_cb.err_conn_table, mac_of(client).data()));
    }

    static void set_clock(uint64_t msec) {
        world.clock_usec = msec * 1000;
    }

    static void advance(int64_t msec) {
        world.clock_usec += static_cast<uint64_t>(msec * 1000);
    }

    static uint32_t now() {
        return static_cast<uint32_t>(world.clock_usec / 1000);
    }

    /// The events posted of an index.
    static std::vector<byte_string> sent(vre_iw_cmd_t event) {
        std::vector<byte_string> found;
        for (const sent_event &each : world.sent)
            if (each.event == event)
                found.push_back(each.payload);
        return found;
    }

private:
    static void add_vap(const char *name, vap_info vap) {
        std::snprintf(vap.name, sizeof vap.name, "%s", name);
        vap_array[vap_count++] = vap;
    }
};
