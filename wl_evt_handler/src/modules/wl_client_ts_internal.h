/// What the sources of client troubleshooting share: the control block, the records' life, the verdict, the reports.
/// Everything here needs the mutex of conn_cb, except clts_now, msec_between, timediff_msec, clts_malloc, clts_free,
/// vlan_of_value and send_client_ts_info; conn_fail_det_timer_func takes it itself.
#pragma once

#include <cstdint>
#include <cstdio>
#include <pthread.h>

#include "dllists.h"
#include "hashTable.h"
#include "wl_client_ts.h"

constexpr int CONN_BUCKETS = 53;
constexpr int CL_MAX_ERR_RECORDS = 5;               // of a client
constexpr int AP_MAX_ERR_RECORDS = 512;             // of all clients
constexpr uint32_t PREVIOUS_RECORD_LIMIT = 600000;  // ms in which a failure counts as the same
constexpr uint32_t CONN_TIMEOUT = 120001;           // ms without a change of stage that end an attempt
constexpr uint32_t PORTAL_CONN_TIMEOUT = 300001;    // ms, where the client has to log in at a portal
constexpr uint32_t DETAIL_TIMEOUT = 300000;         // ms after which a detailed log forgets a client
constexpr int SUCCESS_REPORT = -1;                  // instead of a failure's slot

/// Why a client could not connect, as the management server knows it.
enum cl_failure : uint8_t {
    FAILURE_NONE = 0,
    FAILURE_ASSOC_AP_FULL = 1,
    FAILURE_ASSOC_CAPABILITIES = 2,
    FAILURE_ASSOC = 3,
    FAILURE_RADIUS_AUTH = 4,
    FAILURE_RADIUS_UNREACHABLE = 6,
    FAILURE_PSK = 7,
    FAILURE_HANDSHAKE = 8,
    FAILURE_ROAMING = 9,
    FAILURE_PORTAL_A = 10,  // what the portal's three mean is its own affair
    FAILURE_PORTAL_B = 11,
    FAILURE_PORTAL_C = 12,
    FAILURE_DHCP = 13,
    FAILURE_DNS = 14,
    FAILURE_AUTH = 16,
    FAILURE_GAUTH = 17,
    FAILURE_IP = 18,
};

// Subinfo codes of failures whose report says more.
constexpr uint16_t SUB_DHCP_VLAN_NOT_SEEN = 1;  // of FAILURE_DHCP
constexpr uint16_t SUB_DNS_VLAN_NOT_SEEN = 4;   // of FAILURE_DNS
constexpr uint16_t SUB_IP_CONFLICT = 3;         // of FAILURE_IP

/// The error records of a client; no slot is used twice.
struct client_hash_rec {
    uint8_t cl_mac[6];  // first: the key
    uint8_t num_entries;
    dllist_t *cl_ptr[CL_MAX_ERR_RECORDS];  // nodes of err_conn_list; null: free
};

/// Value of a node of err_conn_list.
struct client_list_rec {
    client_hash_rec *ch_ptr;
    cl_conn_evt_rec *clrec;
};

/// A client in the detailed log.
struct [[gnu::packed]] detailed_client_rec {
    uint8_t cl_mac[6];
    uint32_t timestamp;  // ms
    uint32_t prev_info_code;
    uint32_t prev_sub_info_code;
    uint8_t bssid[6];
};
using detail_clrec = detailed_client_rec;
static_assert(sizeof(detail_clrec) == 24);

struct conn_ctrlblk {
    int init = -1;                   // 0: usable
    int enable;                      // 1: tracking on
    hashTable_t *inprog_conn_table;  // cl_conn_evt_rec, at most one for a MAC
    hash_Iterator_t *inprog_conn_iter;
    hashTable_t *err_conn_table;     // client_hash_rec
    dllist_ctrl_t err_conn_list;     // client_list_rec, oldest first
    hashTable_t *detail_conn_table;  // detail_clrec
    hash_Iterator_t *detail_conn_iter;
    int detail_log_init = -1;  // 0: the detailed table exists
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_t timer_thread;
    int terminate_timer;
    int num_clrec_malloc;
    int num_hashrec_malloc;
    int num_listrec_malloc;
    int num_subinfovalue_malloc;
    int num_ssid_malloc;
    int size_malloc;  // bytes; changed without the mutex, so only atomically
};

extern conn_ctrlblk conn_cb;

/// A time of the wall clock, read once.
struct clts_time {
    uint64_t usec;
    uint32_t msec;  // cut to 32 bits
};

[[nodiscard]] clts_time clts_now();

/// @return |a - b| of two millisecond times, right across the wrap
[[nodiscard]] uint32_t msec_between(uint32_t a, uint32_t b);

/// @return the milliseconds between two times, of which it does not matter which came first
[[nodiscard]] uint32_t timediff_msec(uint32_t sec1, uint32_t usec1, uint32_t sec2, uint32_t usec2);

/// malloc that counts.
///
/// @param size  bytes; a block of 0 bytes is one too
/// @return null when memory is short
[[nodiscard]] void *clts_malloc(size_t size);

/// Frees what `*block` points to, unless it is null, and clears it.
///
/// @param size  as it was asked for
void clts_free(void **block, size_t size);

/// clts_free for a pointer of any type.
template <class Type> void clts_release(Type *&pointer, size_t size) {
    void *block = pointer;
    clts_free(&block, size);
    pointer = nullptr;
}

/// Holds the mutex of conn_cb until the end of the scope.
struct conn_lock {
    conn_lock() {
        pthread_mutex_lock(&conn_cb.mutex);
    }
    ~conn_lock() {
        pthread_mutex_unlock(&conn_cb.mutex);
    }
    conn_lock(const conn_lock &) = delete;
    conn_lock &operator=(const conn_lock &) = delete;
};

// wl_client_ts_record.cpp: the life of a record

/// @return a new record for the client of an event, in no table; null when memory is short
[[nodiscard]] cl_conn_evt_rec *create_rec(const wl_evt_info_t *evt);

/// @return the VLAN of a VLAN event's value; 0 when it is none of 1 to 4095
[[nodiscard]] uint16_t vlan_of_value(const uint8_t *value, int len);

/// @return whether the client's last DHCP message asked for an address or settings
[[nodiscard]] bool is_asking_for_address(const cl_conn_evt_rec &rec);

/// Stores a record that was reported and holds a failure; else drops it, after merging what was not reported into the
/// client's earlier records. The record must be in no table.
void settle_record(cl_conn_evt_rec *rec);

/// Logs how long DHCP, RADIUS and DNS took.
void log_latencies(const char *function, const cl_conn_evt_rec &rec);

/// Clears what an attempt collects: state, flags, timestamps, latencies, journey, addresses. The client, the channel,
/// `gmt`, the SSID's configuration and the stored events with their codes and failures stay.
void reset_clrec(cl_conn_evt_rec *rec);

/// Adds an event to a record, which may complete the attempt: the record then leaves the table of those in progress and
/// must not be touched any more.
///
/// @return whether the record is still the caller's to touch
[[nodiscard]] bool add_evt(cl_conn_evt_rec *rec, const wl_evt_info_t *evt);

/// Frees a record that is in no table, with what it owns; values are wiped, they may hold keys.
void clrec_free(cl_conn_evt_rec *rec);

/// @return a new entry of the detailed log; null when memory is short
[[nodiscard]] detail_clrec *create_detail_clrec(const wl_evt_info_t *evt);

/// Fills an entry from the event that brought its client: MAC, BSSID if known, codes; the time is now.
void init_detailed_clrec(detail_clrec *rec, const wl_evt_info_t *evt);

/// Ends of the detailed log, which has no content yet.
void track_network_events(const wl_evt_info_t *evt);
void send_detailed_log(const wl_evt_info_t *evt);

// wl_client_ts_failure.cpp: the verdict

/// Looks for a failure in an event.
///
/// @return the error word, info code * 65536 + subinfo code; 0 for no error
[[nodiscard]] uint32_t check_err_code(const wl_evt_info_t *evt, cl_conn_evt_rec *rec);

/// @return 1 for a status of a fast transition, which is no failure; else 0
[[nodiscard]] int check_for_11r_failures(const wl_evt_info_t *evt);

/// Stores a failure in a slot of the record and reports it.
void send_error_to_server(const wl_evt_info_t *evt, cl_conn_evt_rec *rec, int slot, uint8_t failure, uint16_t sub);

/// Decides on an attempt that has ended; takes the record over.
void decide_on_client(cl_conn_evt_rec *rec);

/// @return 1 when the record holds a failure, else 0
[[nodiscard]] int check_clrec_for_failures(const cl_conn_evt_rec *rec);

/// Write the four codes as "%d:" each.
///
/// @param buf  30 bytes
void get_failure_code(const cl_conn_evt_rec *rec, char *buf);
void get_subinfo_code(const cl_conn_evt_rec *rec, char *buf);

/// Body of the timer thread. Takes the mutex for each sweep.
void *conn_fail_det_timer_func(void *);

// wl_client_ts_store.cpp: the error store

/// Moves a record that is in no table to the error store, which pushes out an old one when it is full.
///
/// @return 0; -1 when memory is short: the record stays the caller's
[[nodiscard]] int move_clrec_to_err_list(cl_conn_evt_rec *rec);

/// Puts a record into a slot of its client; takes the record over on success.
///
/// @param slot     0 to 4; free, unless its record is replaced
/// @param replace  1: the record of the slot is freed for it; 0: the client gets one more, for which the oldest record
///                 of all is freed when AP_MAX_ERR_RECORDS are stored
/// @return 0; -1 when memory is short: nothing has changed
[[nodiscard]] int add_err_cache_entry(client_hash_rec *hrec, int slot, cl_conn_evt_rec *rec, int replace);

/// Takes a node out of its client's slots; a client without any more is freed. The node and its record stay.
void remove_hash_entry(client_hash_rec *hrec, const dllist_t *node);

/// @return 1 when the failure of a slot was stored for this client and BSSID within PREVIOUS_RECORD_LIMIT, else 0
[[nodiscard]] int check_connection_info_in_previous_records(const cl_conn_evt_rec *rec, int slot);

/// Copies the times of a record into the client's stored record of the same failure, if there is one.
void merge_connection_info_in_previous_records(const cl_conn_evt_rec *rec);

// wl_client_ts_report.cpp: the verdict leaves

/// Reports an attempt on the bus (event 49).
///
/// @param slot  of the failure; SUCCESS_REPORT for a success
void check_and_send_client_connection_info(cl_conn_evt_rec *clrec, int slot);

/// Writes a stored record into a dump file; nothing for a null argument.
void print_record(FILE *fp, const cl_conn_evt_rec *clrec);

// wl_client_ts_forward.cpp

/// Forwards an event of a client on the bus (event 42). Needs no mutex.
///
/// @return 0; -1 when it was not sent
[[nodiscard]] int send_client_ts_info(vre_iw_cmd_t e, const wl_evt_info_t *evt);
