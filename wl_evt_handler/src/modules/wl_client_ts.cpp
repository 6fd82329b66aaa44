// The entry points: which attempt an event belongs to, switching the tracking on and off, the dump.
#include "wl_client_ts.h"

#include <cerrno>
#include <cstring>

#include "debug_log.h"
#include "error_text.h"
#include "payload.h"
#include "wl_client_ts_internal.h"
#include "wl_evt_payloads.h"
#include "wl_info_codes.h"

constinit conn_ctrlblk conn_cb = {};

namespace {

constexpr uint8_t ALL_CLIENTS[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

// The handler's lines carry its name whichever helper writes them.
constexpr char HANDLER[] = "wl_client_ts";

int create_tables() {
    conn_cb.inprog_conn_table = hash_newTable(CONN_BUCKETS, hw_mac_hash_func, hw_mac_compare_func);
    if (conn_cb.inprog_conn_table == nullptr ||
        hash_init_iterator(conn_cb.inprog_conn_table, &conn_cb.inprog_conn_iter) != 0)
        return -1;
    conn_cb.err_conn_table = hash_newTable(CONN_BUCKETS, hw_mac_hash_func, hw_mac_compare_func);
    return conn_cb.err_conn_table == nullptr ? -1 : 0;
}

/// @return 0 with the mutex made and the timer thread running
int start_module() {
    if (create_tables() != 0)
        return -1;
    dllist_init(&conn_cb.err_conn_list);
    if (pthread_mutex_init(&conn_cb.mutex, nullptr) != 0)
        return -EIO;
    const conn_lock lock;  // the thread waits until the block is complete
    // The function returns its error and leaves errno alone.
    const int error = pthread_create(&conn_cb.timer_thread, nullptr, conn_fail_det_timer_func, nullptr);
    if (error != 0) {
        WL_LOG_AS("wl_client_ts_init", 2, "CTS: Could not create timer thread %s", error_text(error));
        return -ENXIO;
    }
    conn_cb.enable = 1;
    conn_cb.init = 0;
    return 0;
}

bool has_left(uint32_t info_code) {
    switch (info_code) {
    case INFO_DEAUTH_SENT:
    case INFO_DEAUTH_RECEIVED:
    case INFO_DISASSOC_SENT:
    case INFO_DISASSOC_RECEIVED:
    case INFO_NODE_LEAVE:
    case INFO_NODE_TIMEOUT:
        return true;
    default:
        return false;
    }
}

bool is_same_attempt(const cl_conn_evt_rec &rec, const wl_evt_info_t &evt) {
    if (rec.cl_info.ssid_len != evt.ssid_len)
        return false;
    if (evt.ssid_len != 0 && std::strncmp(rec.cl_info.ssid, evt.ssid, rec.cl_info.ssid_len) != 0)
        return false;
    return evt.bssid == nullptr || std::memcmp(rec.cl_info.bssid, evt.bssid, sizeof rec.cl_info.bssid) == 0;
}

/// @return whether an event ends the attempt that its client has in progress and begins another
bool begins_anew(const cl_conn_evt_rec &rec, const wl_evt_info_t &evt, bool same_attempt) {
    if (evt.info_code == INFO_AUTH_REQUEST)
        return true;
    if (evt.info_code != INFO_ASSOC_REQUEST || (same_attempt && rec.state < CL_ASSOC_REQUESTED))
        return false;
    WL_LOG_AS(HANDLER, 7, "CTS: delete client record as Assoc/Re-assoc received for " MAC_FMT " client",
              MAC_ARGS(evt.cl_mac));
    return true;
}

/// A client that smart steering refuses has not failed.
void mark_steering_refusal(cl_conn_evt_rec &rec, const wl_evt_info_t &evt) {
    switch (evt.subinfo_code) {
    case SUBINFO_STEERING_SIGNAL_IGNORED:
    case SUBINFO_STEERING_SIGNAL_REJECTED:
        WL_LOG_AS(HANDLER, 6, "CTS: Marking Client " MAC_FMT " for ignoring assoc failure due to Min assoc rssi",
                  MAC_ARGS(evt.cl_mac));
        break;
    case SUBINFO_STEERING_LOAD_IGNORED:
    case SUBINFO_STEERING_LOAD_REJECTED:
        WL_LOG_AS(HANDLER, 6, "CTS: Marking Client " MAC_FMT "for ignoring assoc failure due to smart load balancing",
                  MAC_ARGS(evt.cl_mac));
        break;
    case SUBINFO_STEERING_BAND_IGNORED:
        WL_LOG_AS(HANDLER, 6, "CTS: Marking Client " MAC_FMT " for ignoring assoc failure due to BS, ignore assoc",
                  MAC_ARGS(evt.cl_mac));
        break;
    case SUBINFO_STEERING_BAND_REJECTED:
        WL_LOG_AS(HANDLER, 6, "CTS: Marking Client " MAC_FMT " for ignoring assoc failure due to BS, reject assoc",
                  MAC_ARGS(evt.cl_mac));
        break;
    default:
        return;
    }
    rec.ignore_assoc_fail = 1;
}

void continue_attempt(cl_conn_evt_rec *rec, const wl_evt_info_t &evt) {
    if (evt.info_code == INFO_STEERING)
        mark_steering_refusal(*rec, evt);
    if (has_left(evt.info_code))
        rec->is_client_disconnected = 1;
    else
        (void)add_evt(rec, &evt);  // when it completes the attempt, nobody here needs the record any more
}

void begin_attempt(const wl_evt_info_t &evt) {
    if (evt.info_code == INFO_ASSOC_REQUEST)
        WL_LOG_AS(HANDLER, 7, "CTS: Creating a new client connection record from Assoc req for " MAC_FMT,
                  MAC_ARGS(evt.cl_mac));
    cl_conn_evt_rec *const rec = create_rec(&evt);
    if (rec == nullptr)
        return;
    (void)add_evt(rec, &evt);  // a request never completes an attempt
    const int result = hash_add(conn_cb.inprog_conn_table, evt.cl_mac, rec);
    if (result == 0)
        return;
    WL_LOG_AS(HANDLER, 3, "CTS: Error %d while creating new client connection record for " MAC_FMT "\n", result,
              MAC_ARGS(evt.cl_mac));
    clrec_free(rec);
}

void follow_unknown_client(const wl_evt_info_t &evt) {
    switch (evt.info_code) {
    case INFO_AUTH_REQUEST:
    case INFO_ASSOC_REQUEST:
        begin_attempt(evt);
        break;
    case INFO_PORTAL:
    case INFO_DHCP:
    case INFO_DNS:
    case INFO_IPV4_ADDRESS:
        track_network_events(&evt);
        break;
    default:
        break;
    }
}

void follow_client(const wl_evt_info_t &evt) {
    auto *const rec = static_cast<cl_conn_evt_rec *>(hash_find(conn_cb.inprog_conn_table, evt.cl_mac));
    if (rec == nullptr) {
        follow_unknown_client(evt);
        return;
    }
    const bool same_attempt = is_same_attempt(*rec, evt);
    if (begins_anew(*rec, evt, same_attempt)) {
        hash_del(conn_cb.inprog_conn_table, evt.cl_mac);
        decide_on_client(rec);
        follow_unknown_client(evt);
    } else if (same_attempt) {
        continue_attempt(rec, evt);
    }
    // All else of another SSID or BSSID is dropped, so what comes late for a portal's client from its old BSSID too.
}

void dump_all(FILE *file) {
    std::fprintf(file, "AP has %d Error Records\n", dllist_num_entries(&conn_cb.err_conn_list));
    for (const dllist_t *node = conn_cb.err_conn_list.head; node != nullptr; node = node->next)
        print_record(file, static_cast<const client_list_rec *>(node->value)->clrec);
}

void dump_client(FILE *file, const uint8_t *mac) {
    const auto *const client = static_cast<const client_hash_rec *>(hash_find(conn_cb.err_conn_table, mac));
    std::fprintf(file, "Client " MAC_FMT " has %d Error Records\n", MAC_ARGS(mac),
                 client != nullptr ? client->num_entries : 0);
    if (client == nullptr)
        return;
    for (const dllist_t *const node : client->cl_ptr) {
        if (node != nullptr)
            print_record(file, static_cast<const client_list_rec *>(node->value)->clrec);
    }
}

}  // namespace

int wl_client_ts_init() {
    conn_cb = {};
    const int status = start_module();
    if (status != 0)
        conn_cb.init = status;
    WL_LOG(6, "CTS: %s completed with status %d\n", __func__, status);
    return status;
}

int wl_detailed_client_ts_init() {
    const conn_lock lock;
    conn_cb.detail_conn_table = hash_newTable(CONN_BUCKETS, hw_mac_hash_func, hw_mac_compare_func);
    const bool made = conn_cb.detail_conn_table != nullptr &&
                      hash_init_iterator(conn_cb.detail_conn_table, &conn_cb.detail_conn_iter) == 0;
    conn_cb.detail_log_init = made ? 0 : -1;
    WL_LOG(6, "DETAILED CONN INFO: Completed with status %d\n", conn_cb.detail_log_init);
    return conn_cb.detail_log_init;
}

void wl_client_ts_deinit() {
    if (conn_cb.init != 0)
        return;
    {
        const conn_lock lock;
        conn_cb.terminate_timer = 1;
    }
    pthread_join(conn_cb.timer_thread, nullptr);
    pthread_mutex_destroy(&conn_cb.mutex);
}

void wl_client_ts_reset() {}

int wl_client_ts_enable(int enable) {
    if (conn_cb.init != 0)
        return -1;
    const conn_lock lock;
    conn_cb.enable = enable;
    return 0;
}

void vre_wl_client_ts_enable(vre_iw_cmd_t, void *buf, int len) {
    if (len >= static_cast<int>(sizeof(be_i32)))
        (void)wl_client_ts_enable(read_payload<be_i32>(buf, len));
}

void wl_client_ts(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t evt;
    wl_get_evt_info(e, &evt, buf, len);
    // Events of the access point itself come here too and name no client.
    if (evt.cl_mac == nullptr || evt.info_code == INFO_NONE)
        return;
    if (evt.info_code != INFO_DNS && evt.info_code != INFO_ROAMING && evt.info_code != INFO_IPV4_ADDRESS)
        (void)send_client_ts_info(e, &evt);
    if (conn_cb.init != 0)
        return;
    const conn_lock lock;
    if (conn_cb.enable == 0)
        return;
    if (conn_cb.detail_log_init == 0)
        send_detailed_log(&evt);
    follow_client(evt);
}

int wl_client_ts_dump(const void *request) {
    if (conn_cb.init != 0 || request == nullptr)
        return -1;
    const auto what = read_payload<vre_client_ts_conn_err_log_dump>(request, sizeof(vre_client_ts_conn_err_log_dump));
    char name[sizeof what.filename + 1] = {};
    std::memcpy(name, what.filename, sizeof what.filename);
    const conn_lock lock;
    WL_LOG(6, "CTS: Opening file %s for dumping error logs of " MAC_FMT, name, MAC_ARGS(what.mac));
    FILE *const file = std::fopen(name, "we");
    if (file == nullptr) {
        WL_LOG(3, "CTS: Could not open file %s for dumping connection records", name);
        return -1;
    }
    if (std::memcmp(what.mac, ALL_CLIENTS, sizeof what.mac) == 0)
        dump_all(file);
    else
        dump_client(file, what.mac);
    std::fclose(file);
    return 0;
}

void vre_wl_client_ts_dump(vre_iw_cmd_t, void *buf, int len) {
    const bool complete = len >= static_cast<int>(sizeof(vre_client_ts_conn_err_log_dump));
    if (!complete || wl_client_ts_dump(buf) != 0)
        WL_LOG(6, "Client TS Connection Error Logs dump error!");
}
