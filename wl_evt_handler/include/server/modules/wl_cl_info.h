/// The per-SSID cache of clients. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vre_hash_table.h"
#include "wl_events.h"

struct ssid_profile_info;

constexpr size_t CLIENT_CACHE_BUCKETS = 43;

/// A client of an SSID; owned by the cache of its SSID profile.
struct wl_client_info {
    uint8_t mac_addr[6];           // first, because the record is its own key in the cache
    ssid_profile_info *role_ssid;  // the role profile in force, or null
};

/// Functions of a cache of clients: look one up with a 6-byte MAC address.
extern const hash_table_funcs_t cl_cache_hash_fn;

/// "VRE.node_authorize": records the client.
void vre_cl_authorized_updates(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.node_leave": the client has gone.
void vre_cl_leave_updates(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.cl_info": key material, portal logins and roles of a client.
void handle_client_info(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.wl_client_info_dump": dumps the cache.
void handle_wl_client_info_dump_req(vre_iw_cmd_t e, void *buf, int len);

/// Dumps the cache as the 39-byte request asks.
int handle_client_info_dump_req(const void *request);

/// Frees a client that is in no cache.
void free_cl_info_node(wl_client_info *client);

/// Starts the module: makes the table of SSID profiles, whose members the caches are. Without it nothing can run, so
/// the process ends with status 1 when memory is short.
void wl_init_cl_cache_info();
