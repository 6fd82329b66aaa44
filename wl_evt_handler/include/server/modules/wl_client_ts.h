/// Client troubleshooting: why a client could not connect. Every client that starts to join gets a connection record
/// that collects the events of its attempt, until the attempt is judged a success or a failure; the verdict leaves on
/// the bus, records of failed attempts stay in a bounded store that can be dumped to a file.
///
/// Handlers run on the main thread; a timer thread ends attempts that stand still. Both hold the mutex of conn_cb
/// around all work on its tables, counters and records.
#pragma once

#include <cstdint>

#include "wl_common.h"
#include "wl_events.h"

constexpr int CL_MAX_EVENTS = 32;   // events kept in a record
constexpr int CL_MAX_FAILURES = 4;  // failures kept in a record

struct cl_info {
    uint8_t mac[6];
    uint8_t bssid[6];  // all zero when not known
    char *ssid;        // clts_malloc'ed, NUL-terminated, ssid_len + 1 bytes; null without an SSID
    uint16_t ssid_len;
};

/// An event of an attempt.
struct cl_evt {
    uint32_t tdiff_msec;  // since the last change of the attempt's stage
    uint32_t info_code;
    uint16_t subinfo_code;
    uint8_t *subinfo_value;  // clts_malloc'ed copy, subinfo_value_len bytes; null without a value
    uint16_t subinfo_value_len;
};

/// When a client came how far: microseconds since the epoch, 0 for not yet.
struct client_journey {
    uint64_t assoc_ts;
    uint64_t auth_ts;
    uint64_t network_ts;  // it has a usable IPv4 address
};

/// How far an attempt has come.
enum cl_conn_state : uint8_t {
    CL_CREATED = 0,
    CL_AUTH_REQUESTED = 1,
    CL_AUTH_ANSWERED = 2,
    CL_ASSOC_REQUESTED = 3,
    CL_ASSOC_ANSWERED = 4,
};

/// A client's attempt to connect. IPv4 addresses are in network order as they came; timestamps in milliseconds are the
/// wall clock's, cut to 32 bits, 0 for not yet; latencies are milliseconds. Not packed: it never leaves memory, and
/// packed members could neither be bound to references nor be passed by address on the target.
struct cl_conn_evt_rec {
    struct cl_info cl_info;
    uint32_t gmt;        // second of creation
    uint32_t timestamp;  // of the last event that changed the stage
    uint32_t auth_timestamp;
    uint8_t num_evt;
    uint8_t ipaddr_evt_id;  // place in cl_evt of the event that brought the IPv6 address; 0: none
    uint32_t rcvd_err_evt;  // the last error event, info code * 65536 + subinfo code; 0: none
    struct cl_evt cl_evt[CL_MAX_EVENTS];
    uint8_t failure_code[CL_MAX_FAILURES];  // 0: free
    uint16_t subinfo_code[CL_MAX_FAILURES];
    uint8_t is_rec_sent_to_server;
    uint16_t channel;
    uint8_t state;  // cl_conn_state
    uint8_t ignore_assoc_fail;
    uint8_t dhcp_state;  // last DHCP subinfo code
    uint8_t is_ipv4_rcvd;
    uint8_t is_ipv6_rcvd;
    uint8_t is_link_local_ip_rcvd;
    uint8_t is_dot1x;
    uint8_t is_portal_enabled;
    uint8_t is_node_authorised;
    uint8_t roaming_failure_occured;
    uint32_t dhcp_timestamp;
    uint32_t aaa_timestamp;
    uint32_t dns_timestamp;
    uint32_t dhcp_latency;
    uint32_t aaa_latency;
    uint32_t dns_latency;
    uint32_t prev_evt_info_code;     // 0xFFFFFFFF in a new record
    uint16_t prev_evt_subinfo_code;  // 0xFFFF in a new record
    uint8_t is_client_disconnected;
    client_journey cli_jrny;
    uint32_t dhcp_server_ip;
    uint32_t dns_server_ip;
    uint32_t invalid_ip_addr;
    uint32_t rogue_dhcp_server_ip;
    uint8_t conflict_mac[6];
    uint16_t vlan;
    uint8_t is_tunnel_enabled;
    uint32_t ipv4_addr;  // that another station uses too
    uint32_t aaa_server_ip;
    uint8_t is_nat_enabled;
};

/// Every event of a client: forwards it and adds it to the client's connection record.
void wl_client_ts(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.client_ts_conn_err_log_enable": the first word of the payload switches the tracking on or off.
void vre_wl_client_ts_enable(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.client_ts_conn_err_log_dump".
void vre_wl_client_ts_dump(vre_iw_cmd_t e, void *buf, int len);

/// Switches the tracking on or off.
///
/// @return 0; -1 when the module is off
[[nodiscard]] int wl_client_ts_enable(int enable);

/// Dumps error records to the file that the request names: of one client, or all for ff:ff:ff:ff:ff:ff.
///
/// @param request  the 38 bytes of a vre_client_ts_conn_err_log_dump
/// @return 0; -1 when the module is off or the file cannot be opened
[[nodiscard]] int wl_client_ts_dump(const void *request);

/// Starts the module and its timer thread. Called once, when the process has detached.
///
/// @return 0; -1 no memory for a table, -EIO no mutex, -ENXIO no thread: the module is then off
[[nodiscard]] int wl_client_ts_init();

/// Makes the table of the detailed log.
///
/// @return 0 or -1
[[nodiscard]] int wl_detailed_client_ts_init();

/// Stops the timer thread, which may take the 30 seconds of its sleep. Records are not freed.
void wl_client_ts_deinit();

/// Does nothing.
void wl_client_ts_reset();
