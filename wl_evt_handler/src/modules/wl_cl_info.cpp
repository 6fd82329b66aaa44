#include "wl_cl_info.h"

#include <cstdlib>
#include <cstring>

#include "debug_log.h"
#include "wl_ssid_profile.h"

namespace {

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

}  // namespace

const hash_table_funcs_t cl_cache_hash_fn = {hash_cl_info_mac, compare_cl_info_mac, nullptr, free_cl_info};

void vre_cl_authorized_updates(vre_iw_cmd_t, void *, int) {}

void vre_cl_leave_updates(vre_iw_cmd_t, void *, int) {}

void handle_client_info(vre_iw_cmd_t, void *, int) {}

void handle_wl_client_info_dump_req(vre_iw_cmd_t, void *, int) {}

int handle_client_info_dump_req(const void *) {
    return 0;
}

void free_cl_info_node(wl_client_info *client) {
    std::free(client);
}

void wl_init_cl_cache_info() {
    ssid_profile_list = hash_table_init(nullptr, SSID_PROFILE_BUCKETS, &ssid_cache_hash_fn, nullptr);
    if (ssid_profile_list != nullptr)
        return;
    WL_LOG(3, "Error creating the ssid profile hash table");
    std::exit(1);
}
