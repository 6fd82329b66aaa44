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
