#include "wl_evt_register.h"

#include <algorithm>
#include <cstdio>

#include "debug_log.h"
#include "hostapd_event.h"
#include "libwl.h"
#include "payload.h"
#include "vap_profile_map.h"
#include "vap_table.h"
#include "wl_ap_logging_evt.h"
#include "wl_bw.h"
#include "wl_cl_info.h"
#include "wl_client_ts.h"
#include "wl_common.h"
#include "wl_disconnect.h"
#include "wl_log.h"
#include "wl_logger.h"
#include "wl_ssid_profile.h"
#include "wl_synch.h"
#include "wl_traffic_test.h"

uint8_t g_bitmap_vlans_detected[VLAN_BITMAP_SIZE];

namespace {

struct binding {
    vre_iw_cmd_t event;
    wl_evt_handler_t handler;
};

// In the order in which the handlers of one event run.
constexpr binding BINDINGS[] = {
    {VRE_NODE_LEAVE, vre_bw_clr_limit_disassoc},
    {VRE_NODE_LEAVE, vre_cl_leave_updates},
    {VRE_NODE_AUTHORIZE, vre_cl_authorized_updates},
    {VRE_NODE_AUTHORIZE, bw_set_limit_node_authorized},
    {VRE_BW_SET, vre_bw_set_limit},
    {VRE_BW_CLR, vre_bw_clr_limit},
    {VRE_BW_GET_STATUS, bw_status},
    {VRE_BW_EVENTS, handle_bw_events},
    {VRE_CLIENT_DISCONNECT, handle_vre_disconnect_event},
    {VRE_VAP_DOWN, handle_vre_vap_down},
    {VRE_EVT_TXPOW_CHANGE, handle_vre_evt_txpow_change},
    {VRE_EVT_TXPOW_NOT_CHANGED, handle_vre_evt_txpow_not_changed},
    {VRE_USERSPACE_EVT, handle_vre_userspace_event},
    {VRE_HOSTAPD_EVENT, handle_vre_hostapd_event},
    {VRE_CL_INFO, handle_client_info},
    {VRE_EVT_CHAN_INFO, handle_vre_evt_chan_info},
    {VRE_ALL, wl_logger},
    {VRE_ALL, wl_client_ts},
    {VRE_BW_VAP_PROFILE_ID, handle_bw_vap_profile_id},
    {VRE_WL_CLR_IFACE_TABLE_CACHE, wl_iface_table_clear_cache},
    {VRE_WL_SSID_PROFILE_UPDATE, handle_wl_ssid_profile_update},
    {VRE_WL_CLIENT_INFO_DUMP, handle_wl_client_info_dump_req},
    {VRE_CLIENT_TS_CONN_ERR_LOG_ENABLE, vre_wl_client_ts_enable},
    {VRE_CLIENT_TS_CONN_ERR_LOG_DUMP, vre_wl_client_ts_dump},
    {VRE_INTER_AP_SYNCH_CONF, handle_inter_ap_synch_params},
    {VRE_VLAN_GATEWAY_INFO, handle_vlan_gateway_info},
    {VRE_SS, handle_vre_ss},
    {VRE_TARGET_AP_TRAFFIC_TEST, wl_handle_traffic_test_details},
    {VRE_NODE_AUTHORIZE, vre_handle_traffic_authorized_event},
    {VRE_NODE_LEAVE, vre_handle_traffic_leave_event},
    {VRE_SENSOR_VLAN_DETECTED, vre_handle_vlan_detected_info},
};

// What the value of a bandwidth-events record is for.
constexpr uint16_t SUBINFO_DEBUG_LEVEL = 0;
constexpr uint16_t SUBINFO_SIMULATOR = 1;

// Outcomes of steering that the neighbours must hear of.
constexpr uint16_t STEERING_SUBINFO_CODES[] = {2, 4, 7, 8, 9, 25, 26, 27};
constexpr int STEERING_ATTEMPTS_OFFSET = 24;

void store_bitmap_byte(int at, uint8_t bits) {
    __atomic_store_n(&g_bitmap_vlans_detected[at], bits, __ATOMIC_RELAXED);
}

uint8_t load_bitmap_byte(int at) {
    return __atomic_load_n(&g_bitmap_vlans_detected[at], __ATOMIC_RELAXED);
}

/// @return whether a special event brings the record it needs; logged when it does not
bool has_record(const char *function, vre_iw_cmd_t e, int len, size_t needed) {
    if (len >= static_cast<int>(needed))
        return true;
    WL_LOG_AS(function, 3, "Insufficient data len [%d] received for event[%d]", len, e);
    return false;
}

}  // namespace

int wl_evt_register_events() {
    for (const binding &bound : BINDINGS) {
        if (wl_register_handler(bound.event, bound.handler) < 0)
            WL_LOG(2, "Event registation failed %s", event_name(bound.event));
    }
    return 0;
}

void handle_bw_events(vre_iw_cmd_t, void *buf, int len) {
    wl_evt_info_t info;
    wl_get_evt_info(VRE_BW_EVENTS, &info, buf, len);
    if (info.subinfo_value == nullptr)
        return;
    const uint16_t word = read_payload<be_u16>(info.subinfo_value, info.subinfo_value_len);
    if (info.subinfo_code == SUBINFO_DEBUG_LEVEL) {
        set_debug_level(word);
    } else if (info.subinfo_code == SUBINFO_SIMULATOR) {
        g_enable_simulator = word;
        WL_LOG(3, "g_enable_simulator [%d]", g_enable_simulator);
    }
}

void handle_vre_ss(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t info;
    wl_get_evt_info(e, &info, buf, len);
    if (info.subinfo_value == nullptr ||
        std::ranges::find(STEERING_SUBINFO_CODES, info.subinfo_code) == std::ranges::end(STEERING_SUBINFO_CODES))
        return;
    WL_LOG(7, "Subinfo code %d match , send steering packet", info.subinfo_code);
    // A value too short for the count is deliberately not refused: what follows it stands in, 0 after the last item.
    send_client_steering_attempts_packet(info.subinfo_value, info.subinfo_code,
                                         info.subinfo_value[STEERING_ATTEMPTS_OFFSET]);
}

void vre_request_vlan_detected_info() {
    vre_vlan_detected_info request{};
    request.msg_type = VLAN_DETECTED_REQUEST;
    wl_send_evt(VRE_SENSOR_VLAN_DETECTED, &request, sizeof request);
}

void vre_handle_vlan_detected_info(vre_iw_cmd_t, void *buf, int len) {
    if (!has_record(__func__, VRE_SENSOR_VLAN_DETECTED, len, sizeof(vre_vlan_detected_info)) || buf == nullptr)
        return;
    const auto info = read_payload<vre_vlan_detected_info>(buf, len);
    if (info.msg_type != VLAN_DETECTED_INFORMATION)
        return;
    if (info.vlan == -1) {
        for (int at = 0; at < VLAN_BITMAP_SIZE; at++)
            store_bitmap_byte(at, info.vlans_detected_bitmap[at]);
    } else if (info.vlan >= 0 && info.vlan < VLAN_COUNT) {
        const int at = info.vlan / 8;
        store_bitmap_byte(at, static_cast<uint8_t>(load_bitmap_byte(at) | 1U << info.vlan % 8));
    }
}

bool vlan_detected(int vlan) {
    return (load_bitmap_byte(vlan / 8) >> vlan % 8 & 1) != 0;
}

void vlans_detected_text(char (&text)[VLANS_DETECTED_TEXT_SIZE]) {
    int length = std::snprintf(text, sizeof text, "VLAN IDs seen: %s", vlan_detected(0) ? "Untagged" : "");
    for (int vlan = 1; vlan < VLAN_COUNT; vlan++) {
        if (!vlan_detected(vlan))
            continue;
        char piece[6];
        const int added = std::snprintf(piece, sizeof piece, ",%d", vlan);
        if (length + added >= VLANS_DETECTED_TEXT_SIZE)
            return;
        std::copy_n(piece, added + 1, text + length);
        length += added;
    }
}

void dump_vlan_detected_info() {
    char text[VLANS_DETECTED_TEXT_SIZE];
    vlans_detected_text(text);
}

void handle_vlan_gateway_info(vre_iw_cmd_t, void *, int len) {
    (void)has_record(__func__, VRE_VLAN_GATEWAY_INFO, len, sizeof(vre_vg_evt_data));
}

void handle_add_or_lookup_vapinfo(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t info;
    wl_get_spl_evt_info(e, &info, buf, len);
    const uint32_t index = read_payload<be_u32>(info.subinfo_value, info.subinfo_value_len);
    if (add_or_lookup_vapinfo(static_cast<int>(index)) == nullptr)
        WL_LOG(3, "Vap lookup failed ");
}

void wl_handle_special_evt(vre_iw_cmd_t e, void *buf, int len) {
    WL_LOG(7, "Handling Special Event %s len = %d", event_name(e), len);
    switch (e) {
    case VRE_WL_SSID_PROFILE_UPDATE:
        if (has_record(__func__, e, len, sizeof(vre_profile_update_evt_info)))
            handle_ssid_profile_update(buf);
        break;
    case VRE_WL_CLIENT_INFO_DUMP:
        if (has_record(__func__, e, len, sizeof(vre_client_info_dump_req_evt)))
            handle_client_info_dump_req(buf);
        break;
    case VRE_CLIENT_TS_CONN_ERR_LOG_ENABLE:
        if (wl_client_ts_enable(read_payload<be_i32>(buf, len)) != 0)
            WL_LOG(3, "Client TS Connection Error Logs did not initialize correctly");
        break;
    case VRE_CLIENT_TS_CONN_ERR_LOG_DUMP: {
        const auto request = read_payload<vre_client_ts_conn_err_log_dump>(buf, len);
        if (wl_client_ts_dump(&request) != 0)
            WL_LOG(6, "Client TS Connection Error Logs dump error!");
        break;
    }
    case VRE_INTER_AP_SYNCH_CONF:
        if (has_record(__func__, e, len, sizeof(vre_inter_ap_param)))
            handle_inter_ap_params(buf);
        break;
    case VRE_WL_CLR_IFACE_TABLE_CACHE:
        iface_table_clear_cache();
        break;
    default:
        break;
    }
}
