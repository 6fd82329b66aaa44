#include "wl_bw.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "debug_log.h"
#include "vap_profile_map.h"
#include "vap_table.h"
#include "wl_bw_internal.h"
#include "wl_ssid_profile.h"

namespace {

/// Copies an interface name: up to its NUL, or the 16 characters of a full field.
void set_interface(bw_rule_info &bw, const char *name) {
    std::fill_n(bw.interface, sizeof bw.interface, '\0');
    std::memcpy(bw.interface, name, strnlen(name, sizeof bw.interface - 1));
}

/// Names the interface of an event by the VAP that has its BSSID.
///
/// @return 1; -1 when the event has no BSSID or no VAP has it
int get_iface_frm_bssid(wl_evt_info_t *info) {
    if (info == nullptr || info->bssid == nullptr)
        return -1;
    for (const vap_info &vap : std::span(vap_array, static_cast<size_t>(vap_count))) {
        if (std::memcmp(vap.bssid, info->bssid, sizeof vap.bssid) == 0) {
            set_interface(info->bw, vap.name);
            return 1;
        }
    }
    return -1;
}

/// Completes the request that an event carries with its station, its profile and its interface. Without an interface
/// it goes on all the same.
void fill_request(const char *function, wl_evt_info_t *info) {
    bw_rule_info &bw = info->bw;
    if (info->cl_mac != nullptr)
        std::memcpy(bw.mac, info->cl_mac, sizeof bw.mac);
    bw.profile_id = info->profile_id;
    if (info->name != nullptr)
        set_interface(bw, info->name);
    else if (get_iface_frm_bssid(info) < 0)
        WL_LOG_AS(function, 3,
                  "could not able to find interface name for BW event for client %.2X:%.2X:%.2X:%.2X:%.2X:%.2X",
                  MAC_ARGS(bw.mac));
}

void bw_create_info(wl_evt_info_t *info) {
    fill_request(__func__, info);
}

/// The request of a station that came or left. The profile of an event that names its VAP is that VAP's, and none when
/// the VAP's stations are not to be limited.
void fill_sta_request(const char *function, wl_evt_info_t *info, vre_iw_cmd_t e, uint8_t to_state) {
    fill_request(function, info);
    bw_rule_info &bw = info->bw;
    if (info->name != nullptr)
        bw.profile_id = bw_lookup_vap_profile_id(info->name);
    bw.e = e;
    bw.bss_rule = 0;
    bw.state_transition = 1;
    bw.to_state = to_state & 1;
}

void bw_clr_limit(vre_iw_cmd_t event, wl_evt_info_t *info, int) {
    info->bw.e = event;
    bw_create_info(info);
    __bw_clr_limit(&info->bw);
}

void bw_clr_limit_disassoc(vre_iw_cmd_t, wl_evt_info_t *info, int) {
    fill_sta_request(__func__, info, VRE_BW_CLR, BW_HELD);
    __bw_set_limit(&info->bw);
    if (info->bw.profile_id == 0)
        return;
    const queue_lock lock;
    clear_bw_rules_for_sta(info->cl_mac, info->bw.profile_id, info->name);
}

/// Whether an SSID is configured to leave its stations without a limit.
bool leaves_stations_alone(const ssid_profile_info *ssid) {
    return ssid->per_user_bw_enable == 0 ||
           (ssid->per_user_bw_enable == 1 && ssid->per_user_bw_down_limit == 0 && ssid->per_user_bw_up_limit == 0);
}

}  // namespace

void bw_set_limit(vre_iw_cmd_t event, wl_evt_info_t *info, int) {
    info->bw.e = event;
    bw_create_info(info);
    __bw_set_limit(&info->bw);
}

void vre_bw_set_limit(vre_iw_cmd_t event, void *msg, int len) {
    wl_evt_info_t info;
    wl_get_evt_info(event, &info, msg, len);
    bw_set_limit(event, &info, len);
}

void vre_bw_clr_limit(vre_iw_cmd_t event, void *msg, int len) {
    wl_evt_info_t info;
    wl_get_evt_info(event, &info, msg, len);
    bw_clr_limit(event, &info, len);
}

void bw_set_limit_node_authorized(vre_iw_cmd_t event, void *msg, int len) {
    wl_evt_info_t info;
    wl_get_evt_info(event, &info, msg, len);
    fill_sta_request(__func__, &info, VRE_BW_SET, BW_APPLIED);
    const uint32_t profile_id = info.bw.profile_id;
    const auto *ssid = static_cast<const ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &profile_id));
    if (ssid != nullptr && leaves_stations_alone(ssid))
        return;
    info.bw.up = BW_NO_LIMIT;
    info.bw.down = BW_NO_LIMIT;
    if (ssid != nullptr && ssid->flags.role_profile_enabled != 0 && ssid->flags.is_role_profile == 0) {
        WL_LOG(3, "Role profile is enabled for this client, do not apply default BW limit");
        return;
    }
    __bw_set_limit(&info.bw);
}

void vre_bw_clr_limit_disassoc(vre_iw_cmd_t event, void *msg, int len) {
    wl_evt_info_t info;
    wl_get_evt_info(event, &info, msg, len);
    bw_clr_limit_disassoc(event, &info, len);
}
