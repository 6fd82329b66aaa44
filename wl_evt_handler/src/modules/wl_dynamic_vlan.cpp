#include "wl_dynamic_vlan.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "debug_log.h"
#include "error_text.h"
#include "payload.h"
#include "wl_cl_info.h"
#include "wl_evt_payloads.h"
#include "wl_ssid_profile.h"
#include "wl_utils.h"
#include "wl_vap_helpers.h"
#include "wlan_ioctl.h"

namespace {

constexpr char SET_VLAN[] = "set_user_vlan";

using request_data = uint8_t[VAP_IOCTL_DATA_SIZE];

const char *source_name(uint8_t source) {
    switch (source) {
    case CLIENT_SSID_VLAN:
        return "SSID VLAN";
    case CLIENT_ROLE_VLAN:
        return "Role Vlan";
    case CLIENT_PER_USER_VLAN:
        return "Radius";
    default:
        return "";
    }
}

struct conf_path {
    char text[64];
};

conf_path path_of_profile_conf(uint32_t profile_id) {
    conf_path path;
    std::snprintf(path.text, sizeof path.text, "/tmp/profile%u/profile.conf", profile_id);
    return path;
}

/// @return an open file; null, which is logged
FILE *open_profile_conf(const char *function, const char *path) {
    FILE *const file = std::fopen(path, "re");
    if (file == nullptr) {
        const int error = errno;
        WL_LOG_AS(function, 3, "Cannot open %s for reading (%s)", path, error_text(error));
    }
    return file;
}

/// @param ids  numbers with commas between; cut up in place
bool lists_vlan(char *ids, uint32_t vlan) {
    char *rest = nullptr;
    for (const char *id = strtok_r(ids, ",", &rest); id != nullptr; id = strtok_r(nullptr, ",", &rest)) {
        if (static_cast<uint32_t>(to_number(id)) == vlan)
            return true;
    }
    return false;
}

void add_vaps(list_t **vaps, char *names) {
    uint16_t count = 0;
    char *rest = nullptr;
    for (char *name = strtok_r(names, ",", &rest); name != nullptr; name = strtok_r(nullptr, ",", &rest))
        create_and_add_vap(vaps, name, &count);
}

/// Decides on a VLAN by the file of a profile that is not loaded.
int32_t check_in_file(uint32_t profile_id, uint32_t vlan, list_t **vaps, uint8_t *list_created) {
    const conf_path path = path_of_profile_conf(profile_id);
    WL_LOG_AS("check_is_valid_vlan", 6, "SSID not configured so Reading %s", path.text);
    FILE *const file = open_profile_conf("check_is_valid_vlan", path.text);
    if (file == nullptr)
        return -1;
    int32_t ssid_vlan = -1;
    bool accepted = false;
    char *key = nullptr;
    char *value = nullptr;
    while (parse_config(file, &key, &value) != nullptr) {
        if (strcasecmp(key, "VAP_LIST") == 0) {
            WL_LOG_AS("check_is_valid_vlan", 6, "VAP_LIST=%s", value);
            *list_created = 1;
            add_vaps(vaps, value);
        } else if (strcasecmp(key, "VLAN_ID") == 0) {
            WL_LOG_AS("check_is_valid_vlan", 6, "VLAN_ID=%s", value);
            ssid_vlan = to_number(value);
        } else if (strcasecmp(key, "DYNAMIC_VLAN") == 0) {
            WL_LOG_AS("check_is_valid_vlan", 6, "DYNAMIC_VLAN=%s", value);
            accepted = lists_vlan(value, vlan) || accepted;
        }
    }
    std::fclose(file);
    return accepted ? static_cast<int32_t>(vlan) : ssid_vlan;
}

/// Tells the driver of the interface itself or, without one, of every VAP.
void set_driver_vlan(request_data &request, const char *ifname, const list_t *vaps) {
    if (ifname != nullptr) {
        if (do_wlan_priv_ioctl(SET_VLAN, request, 0, ifname) < 0)
            WL_LOG_AS("call_handle_dynamimc_vlan_sh", 3, "set_user_vlan : failed to perform IOCTL\n");
        return;
    }
    for (const list_t *node = vaps; node != nullptr; node = node->next) {
        const char *const name = static_cast<const vapinfo *>(node->value)->name;
        WL_LOG_AS("call_handle_dynamimc_vlan_sh", 2, "vap name : %s", name);
        if (do_wlan_priv_ioctl(SET_VLAN, request, 0, name) < 0)
            WL_LOG_AS("call_handle_dynamimc_vlan_sh", 3, "set_user_vlan : failed to perform IOCTL athname[%s]\n", name);
    }
}

}  // namespace

void handle_vre_dynamic_vlan(vre_iw_cmd_t, wl_evt_info_t *info, int) {
    if (info == nullptr) {
        WL_LOG(3, "Payload is NULL.\n");
        return;
    }
    const auto is_zero = [](uint8_t byte) { return byte == 0; };
    if (info->profile_id == 0 || info->cl_mac == nullptr || std::all_of(info->cl_mac, info->cl_mac + 6, is_zero)) {
        WL_LOG(3, "some tags are missing in message sent to wl event handler \n");
        return;
    }
    if (info->subinfo_value == nullptr || info->subinfo_value_len < sizeof(be_u32)) {
        WL_LOG(3, "vlan id is  NULL\n");
        return;
    }
    const uint32_t vlan = read_payload<be_u32>(info->subinfo_value, info->subinfo_value_len);
    call_handle_dynamimc_vlan_sh(info->profile_id, info->cl_mac, vlan, CLIENT_PER_USER_VLAN, nullptr, info->name);
}

void call_handle_dynamimc_vlan_sh(uint32_t profile_id, const uint8_t *mac, uint32_t vlan, uint8_t source,
                                  wl_client_info *client, const char *ifname) {
    if (vlan == VLAN_NOT_REQUESTED)
        source = CLIENT_SSID_VLAN;
    auto *const ssid = static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &profile_id));
    if (ssid != nullptr && set_client_vlan_with_priority(&client, vlan, source, profile_id, mac, ssid) == VLAN_REFUSED)
        return;
    uint32_t wanted = vlan;
    if (client != nullptr) {
        wanted = client->vlan_info.vlan_id;
        client->vlan_info.recv_vlan_id = vlan;
    }
    WL_LOG(7, "VLAN received from %s : %d", source_name(source), static_cast<int>(vlan));
    list_t *vaps = nullptr;
    uint8_t list_created = 0;
    const int32_t applied = check_is_valid_vlan(profile_id, wanted, ssid, &vaps, &list_created);
    if (client != nullptr) {
        client->vlan_info.vlan_id = static_cast<uint32_t>(applied);
        WL_LOG(7, "DYNAMIC_VLAN applied to the Client: %d Client MAC : " MAC_FMT, applied, MAC_ARGS(mac));
    }
    request_data request = {};
    be_u16 id;
    id = static_cast<uint16_t>(applied);
    std::memcpy(request, mac, 6);
    std::memcpy(request + 6, &id, sizeof id);
    char mac_text[18];
    WL_LOG(7, "Profile ID %d vlan %d mac %s vapname[%s]\n", static_cast<int>(profile_id), applied,
           macaddr_ntoa_r(mac, mac_text), ifname != nullptr ? ifname : "");
    set_driver_vlan(request, ifname, vaps);
    if (list_created != 0)
        list_free(&vaps);
}

int set_client_vlan_with_priority(wl_client_info **client, uint32_t vlan, uint8_t source, uint32_t profile_id,
                                  const uint8_t *mac, ssid_profile_info *ssid) {
    if (*client == nullptr && ssid == nullptr)
        return VLAN_NO_CLIENT;
    if (*client == nullptr)
        *client = find_cached_client(ssid, mac);
    if (*client == nullptr) {
        WL_LOG(3, "client " MAC_FMT " entry not found in ssid profile [%d] creating new one", MAC_ARGS(mac),
               static_cast<int>(profile_id));
        *client = add_cached_client(ssid, mac);
        if (*client == nullptr)
            return VLAN_REFUSED;
    }
    vlan_info_t &stored = (*client)->vlan_info;
    if (source < stored.priority)
        return VLAN_REFUSED;
    stored.vlan_id = vlan;
    stored.priority = source;
    return VLAN_STORED;
}

int32_t check_is_valid_vlan(uint32_t profile_id, uint32_t vlan, ssid_profile_info *ssid, list_t **vap_list_out,
                            uint8_t *list_created) {
    *list_created = 0;
    *vap_list_out = nullptr;
    if (ssid == nullptr)
        return check_in_file(profile_id, vlan, vap_list_out, list_created);
    *vap_list_out = ssid->vap_data_list;
    const auto ssid_vlan = static_cast<int32_t>(ssid->ap_vlan);
    if (vlan == VLAN_NOT_REQUESTED)
        return ssid_vlan;
    if (ssid->extra_vlan_list == nullptr)
        read_ssid_extra_vlan_list(profile_id, ssid);
    const auto id = static_cast<int32_t>(vlan);
    // Deliberately by the list's own rule, 16 bits: the driver takes no more, and 32 bits would refuse VLANs given now.
    if (list_search_element(&ssid->extra_vlan_list, lt_compare_extra_vlan, &id) == LIST_FOUND) {
        WL_LOG(6, "Vlan[%u] is configured on SSID so set for client", vlan);
        return id;
    }
    // Deliberately also for a role's own VLAN: else its client would be put into a VLAN that the SSID does not carry.
    WL_LOG(6, "Vlan[%u] not configured so setting SSID vlan to client", vlan);
    return ssid_vlan;
}

void read_ssid_extra_vlan_list(uint32_t profile_id, ssid_profile_info *ssid) {
    FILE *const file = open_profile_conf(__func__, path_of_profile_conf(profile_id).text);
    if (file == nullptr)
        return;
    char *key = nullptr;
    char *value = nullptr;
    while (parse_config(file, &key, &value) != nullptr) {
        if (strcasecmp(key, "ALL_EXTRA_SSID_VLAN_LIST") != 0)
            continue;
        WL_LOG(6, "ALL_EXTRA_SSID_VLAN_LIST=%s", value);
        add_ssid_extra_vlan_list(&ssid->extra_vlan_list, value, &ssid->num_extra_vlans);
    }
    std::fclose(file);
}
