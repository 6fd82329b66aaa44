#include "wl_cl_info.h"

#include <cstdlib>
#include <cstring>

#include "debug_log.h"
#include "wl_cl_info_internal.h"
#include "wl_client_role.h"
#include "wl_ssid_profile.h"
#include "wl_synch.h"
#include "wl_utils.h"

namespace {

constexpr size_t MAC_TEXT_SIZE = 18;

unsigned long hash_cl_info_mac(const void *key, void *) {
    unsigned long sum = 0;
    for (size_t i = 0; i < sizeof wl_client_info::mac_addr; i++)
        sum += static_cast<const uint8_t *>(key)[i];
    return sum % CLIENT_CACHE_BUCKETS;
}

int compare_cl_info_mac(const void *stored_key, const void *key, void *) {
    return std::memcmp(stored_key, key, sizeof wl_client_info::mac_addr);
}

void free_cl_info(void *client, void *) {
    free_cl_info_node(static_cast<wl_client_info *>(client));
}

template <class Record> Record *new_record() {
    return static_cast<Record *>(std::calloc(1, sizeof(Record)));
}

/// Decodes an event that says where a client is.
///
/// @return whether it names the client, its VAP and its SSID
bool decode_whereabouts(vre_iw_cmd_t e, wl_evt_info_t *info, void *buf, int len) {
    wl_get_evt_info(e, info, buf, len);
    return info->cl_mac != nullptr && info->name != nullptr && info->bssid != nullptr && info->ssid != nullptr;
}

bool carries_ssid(const ssid_profile_info *profile, const wl_evt_info_t &info) {
    return profile->flags.is_role_profile == 0 && std::strlen(profile->ssid) == static_cast<size_t>(info.ssid_len) &&
           std::strcmp(profile->ssid, info.ssid) == 0;
}

bool is_secured(const ssid_profile_info *profile) {
    return profile->is_1x_configured != 0 || profile->is_portal_configured != 0;
}

/// The first profile of an event's SSID in the order of the table: the event's profile id does not count.
///
/// @param secured_only  whether profiles with neither 802.1X nor a portal are passed over
ssid_profile_info *find_profile_by_ssid(const wl_evt_info_t &info, bool secured_only) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0) {
        auto *const profile = static_cast<ssid_profile_info *>(profiles.entry->value);
        if (carries_ssid(profile, info) && (!secured_only || is_secured(profile)))
            return profile;
    }
    return nullptr;
}

wl_client_info *find_or_add_authorized(const char *function, ssid_profile_info *profile, const uint8_t *mac) {
    if (wl_client_info *const known = find_cached_client(profile, mac))
        return known;
    WL_LOG_AS(function, 3,
              "client [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X] entry not found in ssid profile [%s] creating new one",
              MAC_ARGS(mac), profile->ssid);
    wl_client_info *const client = add_cached_client(profile, mac);
    if (client == nullptr)
        WL_LOG_AS(function, 3, "Could not allocate memory client info record for [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]",
                  MAC_ARGS(mac));
    return client;
}

bool is_needed(const wl_client_info *client) {
    const hapd_cl_info *const hapd = client->hapd_cl_info;
    const portal_cl_info *const portal = client->portal_cl_info;
    return (hapd != nullptr && (hapd->pmk_fullauth != nullptr || hapd->pmk_okc != nullptr)) ||
           (portal != nullptr && portal->portal_cl_auth_info != nullptr) || client->is_active != 0;
}

void free_identity(uint8_t *identity, size_t length) {
    if (identity != nullptr)
        wipe(identity, length);
    std::free(identity);
}

void free_hapd_cl_info(hapd_cl_info *hapd) {
    if (hapd == nullptr)
        return;
    free_dot1x_pmk_cl_data(hapd->pmk_fullauth);
    free_dot1x_pmk_cl_data(hapd->pmk_okc);
    free_ft_80211r_cl_data(hapd->ft_data);
    std::free(hapd);
}

}  // namespace

const hash_table_funcs_t cl_cache_hash_fn = {hash_cl_info_mac, compare_cl_info_mac, nullptr, free_cl_info};

void vre_cl_authorized_updates(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t info;
    if (!decode_whereabouts(e, &info, buf, len))
        return;
    char bssid[MAC_TEXT_SIZE];
    WL_LOG(
        7,
        "[VRE_CL_INFO] : Received node authorizd for client[%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]connected to SSID [%s] with "
        "bssid [%s] vapname [%s]",
        MAC_ARGS(info.cl_mac), info.ssid, macaddr_ntoa_r(info.bssid, bssid), info.name);
    ssid_profile_info *const profile = find_profile_by_ssid(info, true);
    if (profile == nullptr)
        return;
    wl_client_info *const client = find_or_add_authorized(__func__, profile, info.cl_mac);
    if (client == nullptr)
        return;
    WL_LOG(7, "[VRE_CL_INFO] Setting client active status for [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]", MAC_ARGS(info.cl_mac));
    client->is_active = 1;
    client->connected_vap = get_vap_from_list_by_name(profile->vap_data_list, info.name);
    send_cl_portal_login_packet(profile, client);
}

void vre_cl_leave_updates(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t info;
    if (!decode_whereabouts(e, &info, buf, len))
        return;
    char bssid[MAC_TEXT_SIZE];
    WL_LOG(
        7,
        "[VRE_CL_INFO] : Received node leave for client[%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]disconnected from SSID [%s] with "
        "bssid [%s] vapname [%s]",
        MAC_ARGS(info.cl_mac), info.ssid, macaddr_ntoa_r(info.bssid, bssid), info.name);
    ssid_profile_info *const profile = find_profile_by_ssid(info, false);
    if (profile == nullptr)
        return;
    wl_client_info *const client = find_cached_client(profile, info.cl_mac);
    if (client == nullptr) {
        WL_LOG(7, "[VRE_CL_INFO] client entry not found for [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X] in event %s",
               MAC_ARGS(info.cl_mac), event_name(e));
        return;
    }
    // It has moved to another VAP of the SSID, whose authorisation came before this leave.
    if (client->connected_vap != nullptr && std::strcmp(client->connected_vap->name, info.name) != 0)
        return;
    WL_LOG(7, "[VRE_CL_INFO] reseting client active status for [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]", MAC_ARGS(info.cl_mac));
    client->is_active = 0;
    client->connected_vap = nullptr;
    if (client->ssid != nullptr && client->ssid->flags.role_profile_enabled != 0)
        (void)send_role_ioctl(profile, client, DELETE_CLIENT_ROLE);
    (void)decide_and_delete_client(profile, client);
}

wl_client_info *find_cached_client(const ssid_profile_info *profile, const uint8_t *mac) {
    return static_cast<wl_client_info *>(hash_table_lookup(&profile->cl_info_hash, mac));
}

wl_client_info *add_cached_client(ssid_profile_info *profile, const uint8_t *mac) {
    wl_client_info *const client = get_new_wl_client_info(mac, profile);
    if (client == nullptr || hash_table_add(&profile->cl_info_hash, client->mac_addr, client) == 0)
        return client;
    free_cl_info_node(client);
    return nullptr;
}

wl_client_info *get_new_wl_client_info(const uint8_t *mac, ssid_profile_info *profile) {
    if (mac == nullptr) {
        WL_LOG(3, "NULL mac passed in fn for creating new client record");
        return nullptr;
    }
    auto *const client = new_record<wl_client_info>();
    if (client == nullptr) {
        WL_LOG(3, "could not alloc mem for client. Malloc error");
        return nullptr;
    }
    std::memcpy(client->mac_addr, mac, sizeof client->mac_addr);
    client->ssid = profile;
    return client;
}

hapd_cl_info *get_new_hapd_cl_info() {
    return new_record<hapd_cl_info>();
}

portal_cl_info *get_new_portal_cl_info() {
    return new_record<portal_cl_info>();
}

portal_cl_auth_info *get_new_portal_cl_auth_info() {
    return new_record<portal_cl_auth_info>();
}

dot1x_pmk_cl_data *get_new_dot1x_pmk_cl_data() {
    auto *const pmk = new_record<dot1x_pmk_cl_data>();
    if (pmk != nullptr)
        pmk->vlan_id = VLAN_ID_NONE;
    return pmk;
}

int decide_and_delete_client(ssid_profile_info *profile, wl_client_info *client) {
    if (profile == nullptr || client == nullptr || is_needed(client))
        return -1;
    WL_LOG(2, "Deleting client record for [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]", MAC_ARGS(client->mac_addr));
    if (hash_table_delete(&profile->cl_info_hash, client->mac_addr) == 0)
        return 0;
    WL_LOG(3, "Could not delete client record for [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]", MAC_ARGS(client->mac_addr));
    return -1;
}

vapinfo *get_vap_from_list_by_name(const list_t *list, const char *name) {
    for (const list_t *node = list; node != nullptr; node = node->next) {
        auto *const vap = static_cast<vapinfo *>(node->value);
        if (std::strcmp(vap->name, name) == 0)
            return vap;
    }
    return nullptr;
}

void free_dot1x_pmk_cl_data(dot1x_pmk_cl_data *pmk) {
    if (pmk == nullptr)
        return;
    free_identity(pmk->identity, pmk->identity_len);
    wipe(pmk, sizeof *pmk);
    std::free(pmk);
}

void free_ft_80211r_cl_data(ft_80211r_cl_data *ft) {
    if (ft == nullptr)
        return;
    free_identity(ft->identity, ft->identity_len);
    wipe(ft, sizeof *ft);
    std::free(ft);
}

void free_portal_cl_info(portal_cl_info *portal) {
    if (portal == nullptr)
        return;
    std::free(portal->portal_cl_auth_info);
    std::free(portal);
}

void free_cl_info_node(wl_client_info *client) {
    if (client == nullptr)
        return;
    free_hapd_cl_info(client->hapd_cl_info);
    free_portal_cl_info(client->portal_cl_info);
    std::free(client->google_ou);
    std::free(client);
}

void wl_init_cl_cache_info() {
    ssid_profile_list = hash_table_init(nullptr, SSID_PROFILE_BUCKETS, &ssid_cache_hash_fn, nullptr);
    if (ssid_profile_list != nullptr)
        return;
    WL_LOG(3, "Error creating the ssid profile hash table");
    std::exit(1);
}
