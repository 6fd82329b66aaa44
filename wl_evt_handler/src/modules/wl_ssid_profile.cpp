#include "wl_ssid_profile.h"

#include <cstdio>
#include <cstdlib>

#include "debug_log.h"
#include "payload.h"
#include "wl_cl_info.h"
#include "wl_client_role.h"
#include "wl_evt_payloads.h"
#include "wl_server.h"
#include "wl_synch.h"

hash_table_t *ssid_profile_list;
pthread_mutex_t g_ssid_profile_list_mutex = PTHREAD_MUTEX_INITIALIZER;
const char *const g_discovery_conf_file = "/opt/sensor/discovery.conf";

namespace {

// What vre_profile_update_evt_info::evt_flags asks for.
constexpr uint8_t UPDATE_ADD = 1;
constexpr uint8_t UPDATE_DELETE = 2;
constexpr uint8_t UPDATE_SEND_CL_INFO_REQ = 3;

constexpr size_t PATH_SIZE = 64;

unsigned long hash_ssid_info(const void *key, void *) {
    return *static_cast<const uint32_t *>(key) % SSID_PROFILE_BUCKETS;
}

// Deliberately wraps at 32 bits: ids of one bucket that lie 2^31 or more apart have no order, so one may not be found.
int compare_ssid_info(const void *stored_key, const void *key, void *) {
    return static_cast<int>(*static_cast<const uint32_t *>(stored_key) - *static_cast<const uint32_t *>(key));
}

void free_ssid_info(void *profile, void *) {
    free_ssid_profile_info(static_cast<ssid_profile_info *>(profile));
}

ssid_profile_info *find_profile(uint32_t profile_id) {
    return static_cast<ssid_profile_info *>(hash_table_lookup(ssid_profile_list, &profile_id));
}

int add_profile(ssid_profile_info *profile) {
    pthread_mutex_lock(&g_ssid_profile_list_mutex);
    const int result = hash_table_add(ssid_profile_list, &profile->profile_id, profile);
    pthread_mutex_unlock(&g_ssid_profile_list_mutex);
    return result;
}

/// Takes the role away from the clients of a profile that still point to it.
void forget_role(const ssid_profile_info *profile, const ssid_profile_info *role) {
    hash_table_iter_t clients;
    hash_table_iter_init(&profile->cl_info_hash, &clients);
    while (hash_table_iter_next(&clients) != 0) {
        auto *const client = static_cast<wl_client_info *>(clients.entry->value);
        if (client->role_ssid == role)
            client->role_ssid = nullptr;
    }
}

/// Deletes a profile from the table, with all that refers to it elsewhere.
void delete_profile(ssid_profile_info *profile) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0)
        forget_role(static_cast<const ssid_profile_info *>(profiles.entry->value), profile);
    if (profile->nack != 0 && g_synch_nack_count != 0)
        g_synch_nack_count--;

    pthread_mutex_lock(&g_ssid_profile_list_mutex);
    hash_table_delete(ssid_profile_list, &profile->profile_id);
    pthread_mutex_unlock(&g_ssid_profile_list_mutex);
}

/// Deletes a profile of the same id first: replacing it in the table would free the very key that stays there.
void publish(ssid_profile_info *profile) {
    if (ssid_profile_info *const old = find_profile(profile->profile_id))
        delete_profile(old);
    if (add_profile(profile) < 0) {
        free_ssid_profile_info(profile);
        return;
    }
    profile->send_cl_info_req = 1;
    (void)register_ssid_with_synch_agent(profile);
}

void request_client_information(ssid_profile_info *profile) {
    if (profile->iapc_path != IAPC_PATH_SYNCH_AGENT)
        return;
    if (g_synch_sock > 0 && profile->nack == 0 && profile->synch_registered == 1)
        (void)send_cl_info_req_packet(profile, 1);
    else
        profile->send_cl_info_req = 1;
}

}  // namespace

const hash_table_funcs_t ssid_cache_hash_fn = {hash_ssid_info, compare_ssid_info, nullptr, free_ssid_info};

void handle_wl_ssid_profile_update(vre_iw_cmd_t, void *buf, int len) {
    if (len < static_cast<int>(sizeof(vre_profile_update_evt_info))) {
        WL_LOG(3, "Insufficient data len [%d] received for event[%d]", len, VRE_WL_SSID_PROFILE_UPDATE);
        return;
    }
    handle_ssid_profile_update(buf);
}

int handle_ssid_profile_update(const void *update) {
    if (update == nullptr) {
        WL_LOG(3, "Event info NULL passed for SSID profile update event.");
        return -1;
    }
    const auto event = read_payload<vre_profile_update_evt_info>(update, sizeof(vre_profile_update_evt_info));
    const uint32_t id = event.profile_id;
    const auto printed_id = static_cast<int>(id);
    WL_LOG(2, "SSID Profile update event received. Event details profileid : [%d] Add/Del/SENDCLReq : [%d]", printed_id,
           event.evt_flags);
    ssid_profile_info *const profile = find_profile(id);
    switch (event.evt_flags) {
    case UPDATE_ADD:
        if (profile != nullptr) {
            WL_LOG(3, "SSID profile already present [%d]", printed_id);
            return -1;
        }
        init_ssid_config(id);
        return 0;
    case UPDATE_DELETE:
        return destroy_ssid_profile_data(printed_id, update);
    case UPDATE_SEND_CL_INFO_REQ:
        if (profile == nullptr) {
            WL_LOG(3, "SSID profile not present for sending CL info Req packet[%d]", printed_id);
            return -1;
        }
        request_client_information(profile);
        return 0;
    default:
        WL_LOG(3, "Invalid event data. Evt flag : %d for event [%d]", event.evt_flags, VRE_WL_SSID_PROFILE_UPDATE);
        return -1;
    }
}

void init_ssid_config(uint32_t profile_id) {
    ssid_profile_info *const profile = create_ssid_profile_data();
    if (profile == nullptr)
        return;
    char path[PATH_SIZE];
    // The second file's values override the first's; its lists add to them, and no mark is cleared.
    for (const char *const name : {"profile.conf", "wl.conf"}) {
        std::snprintf(path, sizeof path, "/tmp/profile%d/%s", static_cast<int>(profile_id), name);
        read_ssid_config_file(path, profile);
    }
    print_ssid_profile_data_config(profile);
    if (check_needed_ssid_config_present(profile) != 0) {
        WL_LOG(3, "Required config not present in %s", path);
        free_ssid_profile_info(profile);
        return;
    }
    publish(profile);
}

int check_needed_ssid_config_present(ssid_profile_info *profile) {
    if (profile->profile_id == PROFILE_ID_NOT_SET || profile->num_vaps == 0 || profile->external_interface == nullptr)
        return 1;
    const bool is_role = profile->flags.is_role_profile != 0;
    if (profile->ssid[0] == '\0' && !is_role)
        return 1;
    // A cache that finds no memory stays all zero and takes no clients; the profile serves all the same.
    if (!is_role)
        (void)hash_table_init(&profile->cl_info_hash, CLIENT_CACHE_BUCKETS, &cl_cache_hash_fn, nullptr);
    if (profile->flags.role_profile_enabled != 0)
        (void)save_role_derivation_rules(profile);
    return 0;
}

ssid_profile_info *create_ssid_profile_data() {
    auto *const profile = static_cast<ssid_profile_info *>(std::calloc(1, sizeof(ssid_profile_info)));
    if (profile == nullptr) {
        WL_LOG(3, "Cannot allocate memory for SSID profile data");
        return nullptr;
    }
    set_ssid_profile_data_defaults(profile);
    return profile;
}

void set_ssid_profile_data_defaults(ssid_profile_info *profile) {
    if (profile == nullptr) {
        WL_LOG(3, "NULL SSID data struct passed");
        return;
    }
    profile->profile_id = PROFILE_ID_NOT_SET;
}

int destroy_ssid_profile_data(int profile_id, const void *) {
    // Deliberate, for compatibility: a profile with such an id can be added but not deleted.
    if (profile_id < 0)
        return 0;
    ssid_profile_info *const profile = find_profile(static_cast<uint32_t>(profile_id));
    if (profile == nullptr) {
        WL_LOG(3, "No ssid data present for ssid profile id [%d]", profile_id);
        return -1;
    }
    (void)unregister_ssid_with_synch_agent(profile);
    delete_profile(profile);
    return 0;
}

void free_portal_ssid_info(ssid_profile_info *profile) {
    if (profile->portal_ssid_info == nullptr)
        return;
    if (asr_info_t *const asr = profile->portal_ssid_info->asr_info) {
        for (char *const text : asr->texts)
            std::free(text);
        std::free(asr);
    }
    profile->portal_ssid_info = nullptr;
}

void free_ssid_profile_info(ssid_profile_info *profile) {
    std::free(profile->external_interface);
    free_portal_ssid_info(profile);
    // By the lists themselves: their 16-bit counts come back to 0 after 65536 entries.
    list_free(&profile->vap_data_list);
    list_free(&profile->extra_vlan_list);
    hash_table_destroy(&profile->cl_info_hash);
    list_free_with_free_func(&profile->role_derivation_rules, free_role_derivation_rule);
    std::free(profile);
}
