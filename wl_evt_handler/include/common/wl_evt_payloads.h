/// Fixed-size payloads of the bus, as the access point's processes exchange them: packed, big-endian, no header.
#pragma once

#include <cstdint>

#include "big_endian.h"

/// Who speaks in a vre_vlan_detected_info.
enum sic_t : uint16_t {
    VLAN_DETECTED_REQUEST = 1,      // this daemon asks
    VLAN_DETECTED_INFORMATION = 2,  // the sensor tells
};

constexpr int VLAN_COUNT = 4096;
constexpr int VLAN_BITMAP_SIZE = VLAN_COUNT / 8;

/// Event 43: the VLANs that the sensor has seen.
struct [[gnu::packed]] vre_vlan_detected_info {
    be_u16 msg_type;                                  // sic_t
    uint8_t vlans_detected_bitmap[VLAN_BITMAP_SIZE];  // VLAN v: bit v % 8 of byte v / 8, least significant bit first
    be_i32 vlan;                                      // one VLAN to add; -1: the bitmap is complete
};
static_assert(sizeof(vre_vlan_detected_info) == 518);

/// Limits of a client; -1 means none.
struct [[gnu::packed]] vre_bw_data {
    be_i32 bw_download_limit;
    be_i32 bw_upload_limit;
};
static_assert(sizeof(vre_bw_data) == 8);

/// Value of an event 65 that brings a key of a client. The identity begins in the last field and goes on behind it.
struct [[gnu::packed]] vre_dot1x_pmk_evt_data {
    uint8_t pmk[32];
    be_u32 pmk_len;
    be_u32 expiration;
    uint8_t eap_type_authsrv;
    be_i32 acct_interim_interval;
    vre_bw_data bw_data;
    uint8_t role_info[46];
    be_i32 vlan_id;  // -1: none
    be_u32 identity_len;
    uint8_t identity[4];
};
static_assert(sizeof(vre_dot1x_pmk_evt_data) == 111);

/// Value of an event 65 that brings the portal login of a client. Times are seconds of the wall clock.
struct [[gnu::packed]] vre_portal_cl_auth_evt_info {
    char ip_addr[16];  // dotted text; may lack its NUL
    be_i32 expire;
    be_i32 blackout_expire;
    be_u32 login_time;
    be_i32 bw_download_limit;
    be_i32 bw_upload_limit;
    char username[64];  // may lack its NUL
};
static_assert(sizeof(vre_portal_cl_auth_evt_info) == 100);

/// Event 93: who takes part in a traffic test.
struct [[gnu::packed]] vre_traffic_test_evt_data {
    uint8_t subinfo_code;  // 1: the client, 2: the server, whose event arms the test
    be_u16 profile_id;
    char interface_name[16];  // the VAP on which the client is expected; may lack its NUL
    uint8_t vre_mac_addr[6];
    be_u32 vre_ip_addr;
    be_u16 vre_port;
};
static_assert(sizeof(vre_traffic_test_evt_data) == 31);

/// Event 94: the script of a traffic test has started.
struct [[gnu::packed]] vre_traffic_test_pid {
    uint8_t client_mac_addr[6];
    be_i32 pid;
};
static_assert(sizeof(vre_traffic_test_pid) == 10);

/// Event 83, statistics of a channel.
struct [[gnu::packed]] vre_evt_ch_stats_data {
    uint8_t sub_event_id;
    be_u32 chan;
    be_u16 index;
    be_u32 ap_score;
    uint8_t nonwifi_per;  // percent
    int8_t chan_busy_percentage;
};
static_assert(sizeof(vre_evt_ch_stats_data) == 13);

/// Event 83, the channel has changed.
struct [[gnu::packed]] vre_evt_ch_change_cause_data {
    uint8_t event_id;
    uint8_t sub_event_id;  // the cause
};
static_assert(sizeof(vre_evt_ch_change_cause_data) == 2);

/// Event 83, a channel was selected or kept.
struct [[gnu::packed]] vre_evt_ch_select_data {
    uint8_t sub_event_id;
    uint8_t cur_chan;
    uint8_t operating_mode;
};
static_assert(sizeof(vre_evt_ch_select_data) == 3);

/// Events 81 and 82: the transmit power of a radio.
struct [[gnu::packed]] vre_evt_txpow_change {
    be_i32 old_tx_power;  // dBm
    be_i32 new_tx_power;  // dBm
    char radio[10];       // may lack its NUL
};
static_assert(sizeof(vre_evt_txpow_change) == 18);

/// Event 84: a VAP went up or down.
struct [[gnu::packed]] vre_vap_down_data {
    uint8_t vap_up_or_down;  // 1: up
    uint8_t vap_cur_band;    // 1: 2.4 GHz, 0: 5 GHz
    uint8_t vap_stop_reason;
    char vap_name[33];  // may lack its NUL
};
static_assert(sizeof(vre_vap_down_data) == 36);

/// Event 96: an SSID profile was added or deleted.
struct [[gnu::packed]] vre_profile_update_evt_info {
    be_u32 profile_id;
    uint8_t evt_flags;
};
static_assert(sizeof(vre_profile_update_evt_info) == 5);

/// Event 97: request to dump the client cache to a file.
struct [[gnu::packed]] vre_client_info_dump_req_evt {
    uint8_t mac[6];
    char filename[32];  // may lack its NUL
    uint8_t evt_flags;
};
static_assert(sizeof(vre_client_info_dump_req_evt) == 39);

/// Event 99: request to dump the connection errors to a file.
struct [[gnu::packed]] vre_client_ts_conn_err_log_dump {
    uint8_t mac[6];
    char filename[32];  // may lack its NUL
};
static_assert(sizeof(vre_client_ts_conn_err_log_dump) == 38);

/// Event 101: how the access points synchronise.
struct [[gnu::packed]] vre_inter_ap_param {
    uint8_t inter_ap_flag;
    uint8_t synch_period;
};
static_assert(sizeof(vre_inter_ap_param) == 2);

/// Event 102: the gateway of a VLAN.
struct [[gnu::packed]] vre_vg_evt_data {
    be_u16 profile_id;
    be_u16 vlanID;
    uint8_t gatewayIP[4];
    uint8_t gatewayMAC[6];
    uint8_t protocol;
    uint8_t subnet_mask[4];
    uint8_t dhcp_server_ip[4];
    be_u16 tunnel_profile_id;
    uint8_t is_nat_profile;
};
static_assert(sizeof(vre_vg_evt_data) == 26);

/// Value of an authentication or association request.
struct [[gnu::packed]] vre_auth_recv_evt_data {
    be_u16 chan;
    int8_t rssi;  // dBm
};
static_assert(sizeof(vre_auth_recv_evt_data) == 3);
using vre_assoc_recv_evt_data = vre_auth_recv_evt_data;

/// Value of a steering event.
struct [[gnu::packed]] vre_ss_evt_data {
    uint8_t mac[6];
    int8_t rssi;  // dBm
    uint8_t unused[17];
    uint8_t attempts;
};
static_assert(sizeof(vre_ss_evt_data) == 25);

/// Value of a DNS query or answer; one of exactly 4 bytes is the server (query) or the latency (answer).
struct [[gnu::packed]] vre_dns_evt_data {
    be_u32 latency;  // ms
    uint8_t server_ip[4];
};
static_assert(sizeof(vre_dns_evt_data) == 8);

/// Value of an invalid-address event.
struct [[gnu::packed]] vre_node_invalid_ip_evt_data {
    uint8_t ip[4];
    uint8_t server_ip[4];  // the DHCP server that gave it
};
static_assert(sizeof(vre_node_invalid_ip_evt_data) == 8);

/// Value of an address-conflict event.
struct [[gnu::packed]] vre_node_ip_conflict_data {
    uint8_t mac[6];  // the other station
    uint8_t ip[4];
};
static_assert(sizeof(vre_node_ip_conflict_data) == 10);

/// Value of a bandwidth event, where one is written to the log or forwarded.
struct [[gnu::packed]] bw_info {
    uint8_t pri;
    be_i32 up;
    be_i32 down;
    be_u32 profile_id;
};
static_assert(sizeof(bw_info) == 13);

/// The role that a client got and why; value of an applied-role event.
struct [[gnu::packed]] role_debug_info {
    char client_role[33];  // may lack its NUL
    be_u32 role_id;
    uint8_t rdp_method;  // vre_rdp_method
    uint8_t rule_lookup_performed;
    uint8_t match_type;
    uint8_t mapped_to_ssid;
};
static_assert(sizeof(role_debug_info) == 41);

/// The role that the authenticator asks for.
struct [[gnu::packed]] role_info {
    char client_role[33];  // may lack its NUL
    be_u32 vendor_id;
    be_u32 attr_id;
    uint8_t rdp_method;  // vre_rdp_method
    be_u32 role_id;
};
static_assert(sizeof(role_info) == 46);

constexpr size_t CLIENT_ROLE_SIZE = 33;  // bytes of a role's name that count

/// Event 44: the role of a client.
struct [[gnu::packed]] vre_cl_role {
    char macaddr[20];  // MAC address as a text
    char role[40];
    be_u32 profile_id;
    uint8_t is_inherit_ssid_portal;
};
static_assert(sizeof(vre_cl_role) == 65);
