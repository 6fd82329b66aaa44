#include <cstdlib>
#include <cstring>

#include "debug_log.h"
#include "payload.h"
#include "wl_cl_info_internal.h"
#include "wl_evt_payloads.h"
#include "wl_info_codes.h"
#include "wl_ssid_profile.h"
#include "wl_utils.h"

namespace {

// Subinfo codes of INFO_CLIENT_PMK.
constexpr uint16_t PMK_ADD_FULLAUTH = 1;
constexpr uint16_t PMK_ADD_OKC = 2;
constexpr uint16_t PMK_DEL_FULLAUTH = 3;
constexpr uint16_t PMK_DEL_OKC = 4;

// Subinfo codes of INFO_CLIENT_PORTAL_LOGIN.
constexpr uint16_t PORTAL_ADD = 1;
constexpr uint16_t PORTAL_DEL = 2;

// Support tools search for the texts below as they stand. Odd ones are meant to be so: the two about invalid codes
// differ in a blank, "Error  copying" has two, "[clmac]" is no conversion, and a portal login without memory is told as
// a key's.

bool check_add_codes(const char *function, const wl_evt_info_t *info, bool good) {
    if (!good)
        WL_LOG_AS(function, 3, "Invalid info code [%d] or subinfocode[%d] for event type VRE_CL_INFO",
                  static_cast<int>(info->info_code), info->subinfo_code);
    return good;
}

bool check_del_codes(const char *function, const wl_evt_info_t *info, bool good) {
    if (!good)
        WL_LOG_AS(function, 3, "Invalid info code[%d] or subinfocode [%d] for event type VRE_CL_INFO",
                  static_cast<int>(info->info_code), info->subinfo_code);
    return good;
}

bool has_value(const char *function, const wl_evt_info_t *info) {
    if (info->subinfo_value != nullptr)
        return true;
    WL_LOG_AS(function, 3, "Subinfo value NULL in event VRE_CL_INFO for info code[%d]subinfo code[%d] for client",
              static_cast<int>(info->info_code), info->subinfo_code);
    return false;
}

ssid_profile_info *find_profile(const char *function, uint32_t profile_id) {
    auto *const profile = static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &profile_id));
    if (profile == nullptr)
        WL_LOG_AS(function, 3, "SSID profile structure not found for profile id[%d]", static_cast<int>(profile_id));
    return profile;
}

wl_client_info *find_or_add_client(const char *function, ssid_profile_info *profile, const uint8_t *mac) {
    if (wl_client_info *const known = find_cached_client(profile, mac))
        return known;
    WL_LOG_AS(function, 3,
              "client [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X] entry not found in ssid profile [%d] creating new one",
              MAC_ARGS(mac), static_cast<int>(profile->profile_id));
    return add_cached_client(profile, mac);
}

std::span<const uint8_t> payload_of(const wl_evt_info_t *info) {
    return {info->subinfo_value, info->subinfo_value_len};
}

int store_pmk(const char *function, const wl_evt_info_t *info, wl_client_info *client) {
    if (client->hapd_cl_info == nullptr)
        client->hapd_cl_info = get_new_hapd_cl_info();
    if (client->hapd_cl_info == nullptr) {
        WL_LOG_AS(function, 3, "could not allocate memory for hapd cl info");
        return -1;
    }
    dot1x_pmk_cl_data *const pmk = get_new_dot1x_pmk_cl_data();
    if (pmk == nullptr) {
        WL_LOG_AS(function, 3, "Could not allocate memory for pmk cl info");
        return -1;
    }
    if (fill_cl_pmk_info_from_evt(payload_of(info), pmk) < 0) {
        WL_LOG_AS(function, 3, "Error  copying the client info");
        free_dot1x_pmk_cl_data(pmk);
        return -1;
    }
    hapd_cl_info *const hapd = client->hapd_cl_info;
    dot1x_pmk_cl_data *&held = info->subinfo_code == PMK_ADD_FULLAUTH ? hapd->pmk_fullauth : hapd->pmk_okc;
    free_dot1x_pmk_cl_data(held);
    held = pmk;
    return 0;
}

/// Gives a holder a new login. The one that it had is deliberately not freed, for compatibility.
///
/// @return the login, the holder's; null when memory is short, and then it keeps the one that it had
portal_cl_auth_info *renew_portal_login(portal_cl_info *portal) {
    portal_cl_auth_info *const auth = get_new_portal_cl_auth_info();
    if (auth != nullptr)
        portal->portal_cl_auth_info = auth;
    return auth;
}

int store_portal_login(const char *function, const wl_evt_info_t *info, wl_client_info *client) {
    if (client->portal_cl_info == nullptr)
        client->portal_cl_info = get_new_portal_cl_info();
    portal_cl_info *const portal = client->portal_cl_info;
    if (portal == nullptr) {
        WL_LOG_AS(function, 3, "could not allocate memory for portal cl info");
        return -1;
    }
    portal_cl_auth_info *const auth = renew_portal_login(portal);
    if (auth == nullptr) {
        WL_LOG_AS(function, 3, "Could not allocate memory for pmk cl info");
        return -1;
    }
    if (fill_cl_portal_login_info_from_evt(payload_of(info), auth) < 0) {
        WL_LOG_AS(function, 3, "Error  copying the client info");
        std::free(auth);
        portal->portal_cl_auth_info = nullptr;
        return -1;
    }
    return 0;
}

int copy_identity(const char *function, std::span<const uint8_t> payload, size_t length, dot1x_pmk_cl_data *pmk) {
    constexpr size_t OFFSET = offsetof(vre_dot1x_pmk_evt_data, identity);
    if (length == 0)
        return 0;
    uint8_t *const identity = payload.size() >= OFFSET && length <= payload.size() - OFFSET
                                  ? static_cast<uint8_t *>(std::malloc(length + 1))
                                  : nullptr;
    if (identity == nullptr) {
        WL_LOG_AS(function, 3, "could not allocate memmory..");
        return -1;
    }
    std::memcpy(identity, payload.data() + OFFSET, length);
    identity[length] = '\0';
    pmk->identity = identity;
    pmk->identity_len = length;
    return 0;
}

int copy_pmk(const char *function, const vre_dot1x_pmk_evt_data &event, dot1x_pmk_cl_data *pmk) {
    if (event.pmk_len > PMK_LEN) {
        WL_LOG_AS(function, 3, "Memory overwrite avoided as pmk_evt->pmk_len[%d] > PMK_LEN ",
                  static_cast<int>(event.pmk_len));
        return -1;
    }
    std::memcpy(pmk->pmk, event.pmk, event.pmk_len);
    pmk->pmk_len = event.pmk_len;
    pmk->expiration = event.expiration;
    pmk->eap_type_authsrv = event.eap_type_authsrv;
    pmk->acct_interim_interval = event.acct_interim_interval;
    pmk->bw_data = {event.bw_data.bw_download_limit, event.bw_data.bw_upload_limit};
    pmk->vlan_id = event.vlan_id;
    return 0;
}

void log_invalid_subinfo_code(const char *function, vre_iw_cmd_t e, const wl_evt_info_t &info) {
    WL_LOG_AS(function, 3, "Invalid subinfo code[%d] for info code[%d] in event[%d]", info.subinfo_code,
              static_cast<int>(info.info_code), e);
}

/// @return whether the subinfo code is one of a key
bool handle_pmk_event(const wl_evt_info_t *info) {
    switch (info->subinfo_code) {
    case PMK_ADD_FULLAUTH:
    case PMK_ADD_OKC:
        handle_cl_pmk_add_evt(info);
        return true;
    case PMK_DEL_FULLAUTH:
    case PMK_DEL_OKC:
        handle_cl_pmk_del_evt(info);
        return true;
    default:
        return false;
    }
}

/// @return whether the subinfo code is one of a portal login
bool handle_portal_event(const wl_evt_info_t *info) {
    switch (info->subinfo_code) {
    case PORTAL_ADD:
        handle_portal_cl_auth_add(info);
        return true;
    case PORTAL_DEL:
        handle_portal_cl_auth_del(info);
        return true;
    default:
        return false;
    }
}

}  // namespace

void handle_client_info(vre_iw_cmd_t e, void *buf, int len) {
    if (e != VRE_CL_INFO) {
        WL_LOG(3, "Invalid event recevied[%d] instead of VRE_CL_INFO", e);
        return;
    }
    if (buf == nullptr) {
        WL_LOG(3, "Event data is NULL for event[%d]", e);
        return;
    }
    wl_evt_info_t info;
    wl_get_evt_info(e, &info, buf, len);
    const auto info_code = static_cast<int>(info.info_code);
    if (info.cl_mac == nullptr) {
        WL_LOG(3, "Client mac null in event[%d] for infocode[%d] subinfo code[%d]", e, info_code, info.subinfo_code);
        return;
    }
    WL_LOG(2,
           "[VRE_CL_INFO] : Received VRE_CL_INFO event with infocode : %d subinfocode : %d for "
           "client[%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]",
           info_code, info.subinfo_code, MAC_ARGS(info.cl_mac));
    if (info.info_code != INFO_CLIENT_PMK && info.info_code != INFO_CLIENT_PORTAL_LOGIN)
        WL_LOG(3, "Invalid info code in event VRE_CL_INFO");
    else if (!(info.info_code == INFO_CLIENT_PMK ? handle_pmk_event(&info) : handle_portal_event(&info)))
        log_invalid_subinfo_code(__func__, e, info);
}

void handle_cl_pmk_add_evt(const wl_evt_info_t *info) {
    const uint16_t code = info->subinfo_code;
    if (!check_add_codes(__func__, info,
                         info->info_code == INFO_CLIENT_PMK && (code == PMK_ADD_FULLAUTH || code == PMK_ADD_OKC)) ||
        !has_value(__func__, info))
        return;
    ssid_profile_info *const profile = find_profile(__func__, info->profile_id);
    if (profile == nullptr)
        return;
    wl_client_info *const client = find_or_add_client(__func__, profile, info->cl_mac);
    if (client == nullptr)
        WL_LOG(3, "Could not create client info record for [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]", MAC_ARGS(info->cl_mac));
    else if (store_pmk(__func__, info, client) < 0)
        (void)decide_and_delete_client(profile, client);
}

void handle_cl_pmk_del_evt(const wl_evt_info_t *info) {
    const uint16_t code = info->subinfo_code;
    if (!check_del_codes(__func__, info,
                         info->info_code == INFO_CLIENT_PMK && (code == PMK_DEL_FULLAUTH || code == PMK_DEL_OKC)))
        return;
    ssid_profile_info *const profile = find_profile(__func__, info->profile_id);
    if (profile == nullptr)
        return;
    wl_client_info *const client = find_cached_client(profile, info->cl_mac);
    hapd_cl_info *const hapd = client != nullptr ? client->hapd_cl_info : nullptr;
    if (hapd == nullptr) {
        WL_LOG(
            3,
            "client [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X] entry not found [cl:%p] in ssid profile [%d] or hapd info[%p] is "
            "null while deleting the client",
            MAC_ARGS(info->cl_mac), static_cast<void *>(client), static_cast<int>(profile->profile_id),
            static_cast<void *>(hapd));
        return;
    }
    dot1x_pmk_cl_data *&held = code == PMK_DEL_FULLAUTH ? hapd->pmk_fullauth : hapd->pmk_okc;
    if (held == nullptr) {
        WL_LOG(3, "pmk info already null eap type [%p] okc[%p]. Event came for type [%d]",
               static_cast<void *>(hapd->pmk_fullauth), static_cast<void *>(hapd->pmk_okc), code);
        return;
    }
    free_dot1x_pmk_cl_data(held);
    held = nullptr;
    (void)decide_and_delete_client(profile, client);
}

void handle_portal_cl_auth_add(const wl_evt_info_t *info) {
    if (!check_add_codes(__func__, info,
                         info->info_code == INFO_CLIENT_PORTAL_LOGIN && info->subinfo_code == PORTAL_ADD) ||
        !has_value(__func__, info))
        return;
    ssid_profile_info *const profile = find_profile(__func__, info->profile_id);
    if (profile == nullptr)
        return;
    wl_client_info *const client = find_or_add_client(__func__, profile, info->cl_mac);
    if (client == nullptr)
        WL_LOG(3, "Could not create client info record for [clmac]");
    else if (store_portal_login(__func__, info, client) < 0)
        // A record lives only as long as it holds something: a new one goes, one with an earlier login stays.
        (void)decide_and_delete_client(profile, client);
}

void handle_portal_cl_auth_del(const wl_evt_info_t *info) {
    if (!check_del_codes(__func__, info,
                         info->info_code == INFO_CLIENT_PORTAL_LOGIN && info->subinfo_code == PORTAL_DEL))
        return;
    ssid_profile_info *const profile = find_profile(__func__, info->profile_id);
    if (profile == nullptr)
        return;
    wl_client_info *const client = find_cached_client(profile, info->cl_mac);
    if (client == nullptr || client->portal_cl_info == nullptr) {
        WL_LOG(3,
               "client entry for [%.2X:%.2X:%.2X:%.2X:%.2X:%.2X]not found in ssid profile [%d] or portal info is null "
               "while deleting the client",
               MAC_ARGS(info->cl_mac), static_cast<int>(profile->profile_id));
        WL_LOG(7, "subinfovalue : %p", static_cast<void *>(info->subinfo_value));
        return;
    }
    portal_cl_auth_info *&held = client->portal_cl_info->portal_cl_auth_info;
    if (held == nullptr) {
        WL_LOG(3, "client portal info already null . Event came for type [%d]", info->subinfo_code);
        return;
    }
    std::free(held);
    held = nullptr;
    (void)decide_and_delete_client(profile, client);
}

int fill_cl_pmk_info_from_evt(std::span<const uint8_t> payload, dot1x_pmk_cl_data *pmk) {
    if (payload.data() == nullptr)
        return -1;
    auto event = read_payload<vre_dot1x_pmk_evt_data>(payload.data(), static_cast<int64_t>(payload.size()));
    int result = copy_pmk(__func__, event, pmk);
    if (result == 0)
        result = copy_identity(__func__, payload, event.identity_len, pmk);
    wipe(&event, sizeof event);
    return result;
}

int fill_cl_portal_login_info_from_evt(std::span<const uint8_t> payload, portal_cl_auth_info *auth) {
    if (payload.data() == nullptr)
        return -1;
    const auto event = read_payload<vre_portal_cl_auth_evt_info>(payload.data(), static_cast<int64_t>(payload.size()));
    std::memcpy(auth->ip_addr, event.ip_addr, sizeof auth->ip_addr);
    auth->expire = event.expire;
    auth->blackout_expire = event.blackout_expire;
    auth->login_time = event.login_time;
    auth->bw_download_limit = event.bw_download_limit;
    auth->bw_upload_limit = event.bw_upload_limit;
    std::memcpy(auth->username, event.username, sizeof auth->username);
    return 0;
}
