// Events of clients in any order and of any content, as the bus brings them to the two handlers that see them all: the
// event logger with the shipped catalogue, and client troubleshooting with its timer's sweeps, dumps and switches in
// between. Afterwards every record must be where it belongs, and every byte accounted for. Linked with --wrap of
// gettimeofday, pthread_create, sleep, syslog, time and wl_send_evt.
//
// The input: steps, each a byte that says what (modulo 8) and what it takes, see run_step.
#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/time.h>

#include "event_payload.h"
#include "language_cache_funcs.h"
#include "libwl.h"
#include "vap_table.h"
#include "wl_client_ts_internal.h"
#include "wl_info_codes.h"
#include "wl_log.h"
#include "wl_logger.h"
#include "wl_server.h"
#include "wl_ssid_profile.h"
#include "wl_vap_helpers.h"

namespace {

constexpr int64_t START_MSEC = (int64_t{391} << 32) - 60000;  // a minute before 32 bits wrap
constexpr int64_t LAST_MSEC = int64_t{INT32_MAX} * 1000;
constexpr uint32_t CROWD_LIMIT = 700;  // clients in the crowds of an input: enough to fill the error store, and to end
constexpr int FEW_RECORDS = 20;        // with more, not every step is checked

int64_t clock_msec;
int send_result;
uint32_t crowd_left;  // of CROWD_LIMIT

thread_local bool sweeping;  // the fuzzer has threads of its own, and they sleep too
thread_local int sleeps_left;

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

/// Hands out the input piece by piece; what is missing is zero.
struct input {
    const uint8_t *data;
    size_t size;

    byte_string take(size_t count) {
        const size_t there = std::min(count, size);
        byte_string bytes(data, data + there);
        data += there;
        size -= there;
        bytes.resize(count);
        return bytes;
    }

    uint32_t number(size_t width) {
        uint32_t value = 0;
        for (const uint8_t byte : take(width))
            value = value << 8 | byte;
        return value;
    }
};

uint32_t number_at(const uint8_t *bytes, size_t width) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; i++)
        value = value << 8 | bytes[i];
    return value;
}

/// The items fill a posted packet to its last byte, and key material stays inside.
void check_items(const uint8_t *packet, size_t at, size_t length, bool is_secret) {
    while (at < length) {
        require(at + 4 <= length);
        require(!is_secret || number_at(packet + at, 2) != 2);
        at += 4 + number_at(packet + at + 2, 2);
    }
    require(at == length);
}

}  // namespace

extern "C" int __wrap_gettimeofday(timeval *time, void *) {
    time->tv_sec = static_cast<time_t>(clock_msec / 1000);
    time->tv_usec = static_cast<suseconds_t>(clock_msec % 1000 * 1000);
    return 0;
}

extern "C" time_t __wrap_time(time_t *) {
    return static_cast<time_t>(clock_msec / 1000);
}

extern "C" int __wrap_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
    return 0;  // the sweeps are the input's
}

extern "C" unsigned __real_sleep(unsigned seconds);

extern "C" unsigned __wrap_sleep(unsigned seconds) {
    if (!sweeping)
        return __real_sleep(seconds);
    if (sleeps_left-- == 0)
        conn_cb.terminate_timer = 1;
    return 0;
}

extern "C" void __wrap_syslog(int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char line[64];
    (void)std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
}

extern "C" int __wrap_wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    const auto *const packet = static_cast<const uint8_t *>(payload);
    const auto size = static_cast<size_t>(length);
    if (event == VRE_DEBUG_CLIENT_CONN_INFO) {
        check_items(packet, 15, size, false);
    } else if (event == VRE_DEBUG_CLIENT_TS) {
        const uint32_t info = number_at(packet + 30, 4);
        check_items(packet, 52, size, info == INFO_CLIENT_PMK || info == INFO_CLIENT_PORTAL_LOGIN);
    }
    return send_result;
}

namespace {

// The tables

/// Values of a record, and the bytes of all it owns.
int check_record(const cl_conn_evt_rec &rec, int &values, int &ssids) {
    require(rec.num_evt >= 1 && rec.num_evt <= CL_MAX_EVENTS);
    require(rec.state <= CL_ASSOC_ANSWERED);
    int size = sizeof rec;
    for (int i = 0; i < CL_MAX_EVENTS; i++) {
        const cl_evt &event = rec.cl_evt[i];
        require(i < rec.num_evt || event.subinfo_value == nullptr);
        values += event.subinfo_value != nullptr ? 1 : 0;
        size += event.subinfo_value_len;
    }
    if (rec.cl_info.ssid != nullptr) {
        require(std::strlen(rec.cl_info.ssid) == rec.cl_info.ssid_len);
        ssids++;
        size += rec.cl_info.ssid_len + 1;
    }
    return size;
}

/// Every client of the error store has the records that the list says it has.
void check_clients() {
    int stored = 0;
    for (int row = 0; row < CONN_BUCKETS; row++)
        for (const list_t *node = conn_cb.err_conn_table->rows[row]; node != nullptr; node = node->next) {
            auto *const client = static_cast<client_hash_rec *>(node->value);
            require(hash_find(conn_cb.err_conn_table, client->cl_mac) == client);
            int slots = 0;
            for (const dllist_t *const entry : client->cl_ptr) {
                if (entry == nullptr)
                    continue;
                slots++;
                const auto *const what = static_cast<const client_list_rec *>(entry->value);
                require(what->ch_ptr == client);
                require(std::memcmp(what->clrec->cl_info.mac, client->cl_mac, sizeof client->cl_mac) == 0);
            }
            require(slots == client->num_entries && slots >= 1 && slots <= CL_MAX_ERR_RECORDS);
            stored += slots;
        }
    require(stored == conn_cb.err_conn_list.num_entries);
}

void check_everything() {
    int records = 0;
    int values = 0;
    int ssids = 0;
    int size = 0;
    for (int row = 0; row < CONN_BUCKETS; row++)
        for (const list_t *node = conn_cb.inprog_conn_table->rows[row]; node != nullptr; node = node->next) {
            auto *const rec = static_cast<cl_conn_evt_rec *>(node->value);
            require(hash_find(conn_cb.inprog_conn_table, rec->cl_info.mac) == rec);  // else there are two of the client
            size += check_record(*rec, values, ssids);
            records++;
        }
    require(records == conn_cb.inprog_conn_table->num_entries);
    const int stored = conn_cb.err_conn_list.num_entries;
    require(stored <= AP_MAX_ERR_RECORDS);
    for (const dllist_t *node = conn_cb.err_conn_list.head; node != nullptr; node = node->next) {
        const cl_conn_evt_rec *const rec = static_cast<const client_list_rec *>(node->value)->clrec;
        require(check_clrec_for_failures(rec) != 0 || rec->rcvd_err_evt != 0 || rec->is_rec_sent_to_server != 0);
        size += check_record(*rec, values, ssids);
        records++;
    }
    check_clients();
    const int clients = conn_cb.err_conn_table->num_entries;
    size += stored * static_cast<int>(sizeof(client_list_rec)) + clients * static_cast<int>(sizeof(client_hash_rec));
    require(conn_cb.num_clrec_malloc == records && conn_cb.num_listrec_malloc == stored);
    require(conn_cb.num_hashrec_malloc == clients && conn_cb.num_ssid_malloc == ssids);
    require(conn_cb.num_subinfovalue_malloc == values && conn_cb.size_malloc == size);
}

void drop_everything() {
    while (auto *const rec = static_cast<cl_conn_evt_rec *>(hash_first_element(conn_cb.inprog_conn_table))) {
        hash_del(conn_cb.inprog_conn_table, rec->cl_info.mac);
        clrec_free(rec);
    }
    while (dllist_t *const node = dllist_delink_head(&conn_cb.err_conn_list)) {
        auto *entry = static_cast<client_list_rec *>(node->value);
        remove_hash_entry(entry->ch_ptr, node);
        clrec_free(entry->clrec);
        clts_release(entry, sizeof *entry);
        conn_cb.num_listrec_malloc--;
        std::free(node);
    }
    require(conn_cb.size_malloc == 0 && conn_cb.num_hashrec_malloc == 0);
}

// The access point

void add_vap(const char *name, vap_info vap) {
    std::snprintf(vap.name, sizeof vap.name, "%s", name);
    vap_array[vap_count++] = vap;
}

/// An open VAP, one with a portal, one with everything else.
void add_vaps() {
    add_vap("ath0", {});
    vap_info portal{};
    portal.portal_enabled = 1;
    add_vap("ath1", portal);
    vap_info other{};
    other.dot1x_enabled = other.tunneled_vap = other.nat_vap = 1;
    other.ssid_vlan = 4095;
    add_vap("ath2", other);
}

byte_string bssid_of(uint8_t number) {
    return {0x02, 0xAA, 0xBB, 0xCC, 0xDD, number};
}

/// A profile whose reports carry an APC identifier, and one without.
void add_profiles() {
    ssid_profile_list = hash_table_init(nullptr, 43, &ssid_cache_hash_fn, nullptr);
    for (uint32_t id = 1; id <= 2; id++) {
        auto *const profile = static_cast<ssid_profile_info *>(std::calloc(1, sizeof(ssid_profile_info)));
        profile->profile_id = id;
        profile->flags.apc_enabled = id == 1;
        auto *const vap = static_cast<vapinfo *>(std::calloc(1, sizeof(vapinfo)));
        std::snprintf(vap->name, sizeof vap->name, "ath%u", id);
        std::memcpy(vap->bssid, bssid_of(static_cast<uint8_t>(id)).data(), sizeof vap->bssid);
        require(list_insert_head(&profile->vap_data_list, vap) != nullptr);
        require(hash_table_add(ssid_profile_list, &profile->profile_id, profile) == 0);
    }
}

void start() {
    g_logfile_fd = std::fopen("/dev/null", "w");  // log lines are formatted and dropped
    g_max_logfile_size = INT_MAX;
    debug = 7;
    add_vaps();
    add_profiles();
    wl_debug_log_cache = hash_newTable(137, lang_hash_func, lang_compare_record);
    for (const char *const file :
         {CATALOGUE "/cl_debug_info_code_en.properties", CATALOGUE "/cl_debug_subinfo_code_en.properties"})
        require(pop_lang_cache_from_file(file, wl_debug_log_cache) == 0);
    require(wl_client_ts_init() == 0 && wl_detailed_client_ts_init() == 0);
}

// The steps

byte_string mac_of(uint32_t client) {
    if (client == 15)
        return byte_string(6, 0xFF);  // what a dump calls all clients
    return {0x00, 0x1A, 0x22, 0xF3, static_cast<uint8_t>(client >> 8), static_cast<uint8_t>(client)};
}

/// As the bus calls them.
void call_handlers(uint32_t event, const byte_string &bytes) {
    received_payload payload(bytes);
    const auto e = static_cast<vre_iw_cmd_t>(event);
    wl_logger(e, payload.data(), payload.length());
    wl_client_ts(e, payload.data(), payload.length());
}

/// @param network  two bits each for the VAP, the SSID and the BSSID, 3 for none
event_payload event_of(uint32_t client, uint32_t network, uint32_t info, uint16_t sub) {
    static const std::string SSIDS[] = {"Lobby", "Guest", std::string(32, 's')};
    event_payload payload;
    payload.header(mac_of(client), network & 3);
    if ((network & 3) != 3)
        payload.text(WL_VAP_NAME, "ath" + std::to_string(network & 3));
    if ((network >> 2 & 3) != 3)
        payload.text(WL_VAP_SSID, SSIDS[network >> 2 & 3]);
    if ((network >> 4 & 3) != 3)
        payload.item(WL_VAP_BSSID, bssid_of(network >> 4 & 3));
    return payload.u32(WL_INFO_CODE, info).u16(WL_SUBINFO_CODE, sub);
}

void deliver(input &from) {
    const uint32_t event = from.number(1) % 67;
    const uint32_t client = from.number(1) % 16;
    const uint32_t network = from.number(1);
    uint32_t info = from.number(1);
    if (info == 255)
        info = from.number(4);
    const auto sub = static_cast<uint16_t>(from.number(2));
    event_payload payload = event_of(client, network, info, sub);
    const uint32_t length = from.number(1);
    if (length != 255)
        payload.item(WL_SUBINFO_VALUE, from.take(length));
    call_handlers(event, payload.bytes());
}

/// An attempt of each of many clients is refused, and the next begins.
void deliver_crowd(input &from) {
    const uint32_t count = std::min(from.number(1), crowd_left);
    crowd_left -= count;
    const uint32_t first = from.number(1);
    const auto sub = static_cast<uint16_t>(from.number(2));
    for (uint32_t client = first; client < first + count; client++) {
        call_handlers(VRE_DOT1X, event_of(client, 0, INFO_ASSOC_REQUEST, 0).bytes());
        call_handlers(VRE_DOT1X, event_of(client, 0, INFO_ASSOC_RESPONSE, sub).bytes());
        call_handlers(VRE_DOT1X, event_of(client, 0, INFO_AUTH_REQUEST, 0).bytes());
    }
}

void advance(int32_t msec) {
    clock_msec += msec;
    if (clock_msec < 0 || clock_msec > LAST_MSEC)
        clock_msec = START_MSEC;
}

void dump(uint32_t client) {
    byte_string request = mac_of(client);
    const byte_string name = text_bytes("/dev/null");
    request.insert(request.end(), name.begin(), name.end());
    request.resize(38);
    vre_wl_client_ts_dump(VRE_CLIENT_TS_CONN_ERR_LOG_DUMP, request.data(), 38);
}

void sweep() {
    sleeps_left = 1;
    sweeping = true;
    conn_fail_det_timer_func(nullptr);
    sweeping = false;
    conn_cb.terminate_timer = 0;
}

void run_step(input &from) {
    switch (from.number(1) % 8) {
    case 0:
        deliver(from);
        break;
    case 1: {  // any payload of any event
        const uint32_t event = from.number(1) % 109;
        call_handlers(event, from.take(from.number(2) % 2049));
        break;
    }
    case 2:
        advance(static_cast<int32_t>(from.number(4)));
        break;
    case 3:
        dump(from.number(1) % 16);
        break;
    case 4: {
        byte_string word = from.take(from.number(1) % 5);
        vre_wl_client_ts_enable(VRE_CLIENT_TS_CONN_ERR_LOG_ENABLE, word.data(), static_cast<int>(word.size()));
        break;
    }
    case 5:
        sweep();
        break;
    case 6:
        deliver_crowd(from);
        break;
    case 7:
        send_result = static_cast<int8_t>(from.number(1));
        break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (wl_debug_log_cache == nullptr)
        start();
    clock_msec = START_MSEC;
    send_result = 1;
    crowd_left = CROWD_LIMIT;
    conn_cb.enable = 1;
    input from{data, size};
    for (unsigned step = 1; from.size > 0; step++) {
        run_step(from);
        if (conn_cb.num_clrec_malloc <= FEW_RECORDS || step % 64 == 0)
            check_everything();
    }
    check_everything();
    drop_everything();
    return 0;
}
