#include "wl_client_role.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "debug_log.h"
#include "libwl.h"
#include "wl_bw.h"
#include "wl_cl_info.h"
#include "wl_client_role_internal.h"
#include "wl_dynamic_vlan.h"
#include "wl_evt_payloads.h"
#include "wl_ssid_profile.h"

namespace {

constexpr char DEVICE[] = "/dev/app_visibility";
constexpr unsigned long DEVICE_REQUEST = 0x40046401;  // the same on every machine, unlike what the macro makes
constexpr size_t SHORTEST_OU = 2;                     // bytes

// The handler's lines carry its name whichever helper writes them.
constexpr char HANDLER[] = "handle_client_role_set";

/// What the authenticator's word on a client comes to.
enum class lookup { done, disconnect };

wl_client_info *find_or_add_client(ssid_profile_info *ssid, const wl_evt_info_t &info) {
    if (wl_client_info *const client = find_cached_client(ssid, info.cl_mac))
        return client;
    WL_LOG_AS(HANDLER, 3, "client " MAC_FMT " entry not found in ssid profile [%d] creating new one",
              MAC_ARGS(info.cl_mac), static_cast<int>(ssid->profile_id));
    return add_cached_client(ssid, info.cl_mac);
}

/// @return the organisational unit as a text, now the client's; null without memory
const char *keep_google_ou(wl_client_info *client, const wl_evt_info_t &info) {
    const size_t length = info.subinfo_value_len;
    auto *const ou = static_cast<char *>(std::calloc(1, length + 1));
    if (ou == nullptr)
        return nullptr;
    std::memcpy(ou, info.subinfo_value, length);
    std::free(client->google_ou);
    client->google_ou = ou;
    return ou;
}

ssid_profile_info *find_role_by_ou(wl_client_info *client, const ssid_profile_info *ssid, const wl_evt_info_t &info,
                                   const struct role_info *role, role_debug_info *dbg) {
    if (info.subinfo_value == nullptr || info.subinfo_value_len < SHORTEST_OU) {
        WL_LOG_AS(HANDLER, 3, "OU not received, set SSID role");
        return nullptr;
    }
    const char *const ou = keep_google_ou(client, info);
    WL_LOG_AS(HANDLER, 3, "GAUTH: Google OU [%s] received", text_or_null(ou));
    dbg->rule_lookup_performed = 1;
    return get_role_id_by_role_name(ou, ssid, role, dbg);
}

/// A role that is given by its id, after a failed authentication.
lookup find_role_by_id(const wl_evt_info_t &info, struct role_info *role, ssid_profile_info **found) {
    const uint32_t id = role->role_id;
    if (id == 0) {
        WL_LOG_AS(HANDLER, 3, "Role ID received 0, set SSID role");
        return lookup::done;
    }
    *found = get_ssid_profile_by_role_id(id);
    if (*found != nullptr) {
        std::memcpy(role->client_role, (*found)->ssid, sizeof role->client_role);
        return lookup::done;
    }
    WL_LOG_AS(HANDLER, 3, "Role profile not found for role id: %u, deauthenticating client", id);
    send_client_disconnect(&info);
    return lookup::disconnect;
}

lookup find_role(wl_client_info *client, const ssid_profile_info *ssid, const wl_evt_info_t &info,
                 struct role_info *role, role_debug_info *dbg, ssid_profile_info **found) {
    switch (role->rdp_method) {
    case RDP_METHOD_RADIUS:
        dbg->rule_lookup_performed = 1;
        *found = get_role_id_by_role_name(role->client_role, ssid, role, dbg);
        return lookup::done;
    case RDP_METHOD_GOOGLE_OU:
        *found = find_role_by_ou(client, ssid, info, role, dbg);
        return lookup::done;
    case RDP_METHOD_AUTH_FAIL:
        return find_role_by_id(info, role, found);
    default:
        return lookup::done;
    }
}

/// Requests the per-user limits of a profile for the event's client.
///
/// @param origin  1 when they are a role's, 0 when they are the SSID's
void limit_bandwidth(wl_client_info *client, wl_evt_info_t *info, int len, const ssid_profile_info &limits,
                     uint8_t priority, uint8_t origin) {
    info->bw.up = static_cast<int32_t>(limits.per_user_bw_up_limit);
    info->bw.down = static_cast<int32_t>(limits.per_user_bw_down_limit);
    info->bw.pri = priority;
    info->bw.state_transition = 1;
    info->bw.to_state = 1;
    bw_set_limit(VRE_BW_SET, info, len);
    client->cl_bw_info = {limits.per_user_bw_down_limit, limits.per_user_bw_up_limit, origin};
}

void clear_inheritance(role_client_t &role) {
    role.apply_ssid_firewall = 0;
    role.apply_ssid_portal_or_webq = 0;
    role.apply_ssid_bw_limit = 0;
}

void inherit(role_client_t &client, const ssid_profile_info &role) {
    clear_inheritance(client);
    if (role.role_flags.inherit_ssid_settings_enabled == 0)
        return;
    client.apply_ssid_firewall = role.flags.firewall_enabled == 0 && role.flags.app_firewall_enabled == 0;
    client.apply_ssid_portal_or_webq = role.flags.webq_enabled == 0;
    client.apply_ssid_bw_limit = role.per_user_bw_enable == 0;
}

/// The VLAN that a role brings, and how strong it is.
struct role_vlan {
    uint32_t id;
    vlan_source source;
};

role_vlan apply_role(wl_client_info *client, ssid_profile_info *role, const ssid_profile_info &ssid,
                     wl_evt_info_t *info, int len, const char *name) {
    role_client_t &mine = client->role_info;
    std::memcpy(mine.client_role, name, sizeof mine.client_role);
    mine.role_id = role->profile_id;
    client->role_ssid = role;
    const bool own_vlan = role->role_flags.ap_vlan_enabled != 0;
    const role_vlan vlan =
        own_vlan ? role_vlan{role->ap_vlan, CLIENT_ROLE_VLAN} : role_vlan{ssid.ap_vlan, CLIENT_SSID_VLAN};
    inherit(mine, *role);
    if (ssid.per_user_bw_enable != 0 && role->per_user_bw_enable != 0)
        limit_bandwidth(client, info, len, *role, 1, 1);
    else if (ssid.per_user_bw_enable != 0 && role->role_flags.inherit_ssid_settings_enabled != 0)
        limit_bandwidth(client, info, len, ssid, 1, 0);
    WL_LOG_AS(HANDLER, 2,
              "Role found for client :%d with Role { vlan[%d] apply_ssid_firewall[%d] apply_ssid_portal_or_webq[%d] "
              "apply_ssid_bw_limit[%d] }",
              static_cast<int>(mine.role_id), static_cast<int>(vlan.id), mine.apply_ssid_firewall,
              mine.apply_ssid_portal_or_webq, mine.apply_ssid_bw_limit);
    return vlan;
}

role_vlan apply_ssid(wl_client_info *client, ssid_profile_info *ssid, wl_evt_info_t *info, int len,
                     role_debug_info *dbg) {
    client->role_info.role_id = ssid->profile_id;
    client->role_ssid = ssid;
    clear_inheritance(client->role_info);
    if (ssid->per_user_bw_enable != 0)
        limit_bandwidth(client, info, len, *ssid, 0, 0);
    dbg->mapped_to_ssid = 1;
    WL_LOG_AS(HANDLER, 2, "Role Not found for client :%d", static_cast<int>(client->role_info.role_id));
    return {ssid->ap_vlan, CLIENT_SSID_VLAN};
}

void post_role(const wl_client_info *client, const ssid_profile_info *role, const ssid_profile_info &ssid) {
    const uint8_t inherits_portal = client->role_info.apply_ssid_portal_or_webq;
    if (role == nullptr)
        wl_send_cl_role(client->mac_addr, "--", ssid.profile_id, inherits_portal);
    else if (role->flags.is_role_profile != 0)
        wl_send_cl_role(client->mac_addr, role->ssid, ssid.profile_id, inherits_portal);
}

}  // namespace

void handle_client_role_set(vre_iw_cmd_t, wl_evt_info_t *info, int len, struct role_info *role) {
    const uint8_t *const mac = info->cl_mac;
    role->client_role[sizeof role->client_role - 1] = '\0';
    WL_LOG(7, "Profile ID %d Client Role %s mac " MAC_FMT, static_cast<int>(info->profile_id), role->client_role,
           MAC_ARGS(mac));
    auto *const ssid = static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &info->profile_id));
    if (ssid == nullptr) {
        WL_LOG(3, "SSID profile structure not found for profile id[%d]", static_cast<int>(info->profile_id));
        return;
    }
    if (get_wl_client_radio(mac) < 0) {
        WL_LOG(3, "Client " MAC_FMT " entry not found in driver, not applying role", MAC_ARGS(mac));
        return;
    }
    wl_client_info *const client = find_or_add_client(ssid, *info);
    if (client == nullptr)
        return;
    WL_LOG(7, "Client added successfully [%s]", get_rdp_method_str(role->rdp_method));
    client->role_info.rdp_method = role->rdp_method;
    client->role_info.vendor_id = role->vendor_id;
    client->role_info.attr_id = role->attr_id;
    std::memcpy(client->role_info.client_role, role->client_role, sizeof client->role_info.client_role);

    role_debug_info dbg{};
    ssid_profile_info *found = nullptr;
    if (find_role(client, ssid, *info, role, &dbg, &found) == lookup::disconnect)
        return;
    const role_vlan vlan = found != nullptr ? apply_role(client, found, *ssid, info, len, role->client_role)
                                            : apply_ssid(client, ssid, info, len, &dbg);
    call_handle_dynamimc_vlan_sh(ssid->profile_id, mac, vlan.id, vlan.source, client, info->name);
    (void)send_role_ioctl(ssid, client, ADD_CLIENT_ROLE);
    post_role(client, found, *ssid);
    wl_send_applied_role(client, info, &dbg);
}

void handle_client_role_clear(vre_iw_cmd_t, wl_evt_info_t *info, int) {
    auto *const ssid = static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &info->profile_id));
    wl_client_info *const client = ssid != nullptr ? find_cached_client(ssid, info->cl_mac) : nullptr;
    if (client == nullptr)
        return;
    (void)send_role_ioctl(ssid, client, DELETE_CLIENT_ROLE);
    hash_table_delete(&ssid->cl_info_hash, client->mac_addr);
    WL_LOG(7, "Client deleted successfully");
}

int send_role_ioctl(ssid_profile_info *profile, wl_client_info *client, role_ioctl_action action) {
    int device = -1;
    // Without the device nothing that is decided here would hold, so it is waited for, without a pause.
    while ((device = open(DEVICE, O_RDONLY | O_CLOEXEC)) < 0)
        WL_LOG(7, "Can't open device file: %s", DEVICE);
    client_role_ioctl_data request{};
    const bool clears = action == DELETE_CLIENT_ROLE && profile->flags.content_analytics_enabled != 0;
    request.action = clears ? CLEAR_ROLE_INFO : action;
    std::memcpy(request.mac, client->mac_addr, sizeof request.mac);
    request.profile_id = profile->profile_id;
    request.role_client = client->role_info;
    const int result = ioctl(device, DEVICE_REQUEST, &request);
    close(device);
    if (result >= 0)
        return 0;
    WL_LOG(3, "ioctl_get_msg failed:%d", result);
    return -1;
}
