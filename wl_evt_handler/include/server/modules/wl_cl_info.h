/// The per-SSID cache of clients: the keys of their 802.1X authentication, their captive-portal login, role, VLAN and
/// bandwidth. "VRE.cl_info" brings and takes keys and logins, "VRE.node_authorize" and "VRE.node_leave" say who is
/// here. A record lives as long as it holds a key or a login or its client is active. Key material is wiped before its
/// memory is released and never logged. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lists.h"
#include "vre_hash_table.h"
#include "wl_client_role.h"
#include "wl_events.h"
#include "wl_vap_helpers.h"

struct ssid_profile_info;

constexpr size_t CLIENT_CACHE_BUCKETS = 43;
constexpr size_t PMK_LEN = 32;        // bytes of a pairwise master key
constexpr int32_t VLAN_ID_NONE = -1;  // of dot1x_pmk_cl_data::vlan_id

/// -1 means no limit.
struct bw_data_t {
    int32_t bw_download_limit;
    int32_t bw_upload_limit;
};

/// A pairwise master key and what the authentication server said with it.
struct dot1x_pmk_cl_data {
    uint8_t pmk[PMK_LEN];
    size_t pmk_len;       // bytes in use, at most PMK_LEN
    uint32_t expiration;  // seconds of os_get_reltime
    uint8_t eap_type_authsrv;
    int32_t acct_interim_interval;  // seconds; 0: none
    bw_data_t bw_data;
    int32_t vlan_id;  // VLAN_ID_NONE: none
    size_t identity_len;
    uint8_t *identity;  // heap, identity_len bytes and a NUL; null without an identity
};

/// 802.11r data. Nothing fills it yet.
struct ft_80211r_cl_data {
    uint32_t expiration;
    int32_t acct_interim_interval;
    uint8_t pmk_r1[PMK_LEN];
    uint8_t pmk_r1_name[16];
    uint16_t pairwise;
    bw_data_t bw_data;
    int32_t vlan_id;
    size_t identity_len;
    uint8_t *identity;  // heap
};

struct hapd_cl_info {
    dot1x_pmk_cl_data *pmk_fullauth;  // of a full 802.1X authentication, or null
    dot1x_pmk_cl_data *pmk_okc;       // for opportunistic key caching, or null
    ft_80211r_cl_data *ft_data;       // or null
};

/// Times are seconds of the wall clock.
struct portal_cl_auth_info {
    char ip_addr[16];  // dotted text; may lack its NUL
    int32_t expire;
    int32_t blackout_expire;
    uint32_t login_time;
    int32_t bw_download_limit;  // -1: none
    int32_t bw_upload_limit;    // -1: none
    char username[64];          // may lack its NUL
};

struct portal_cl_info {
    struct portal_cl_auth_info *portal_cl_auth_info;  // or null
};

struct vlan_info_t {
    uint32_t vlan_id;
    uint32_t recv_vlan_id;
    uint8_t priority;
};

struct cl_bw_info_t {
    uint32_t down;
    uint32_t up;
    uint8_t pri;
};

/// A client of an SSID; owned by the cache of its SSID profile.
struct wl_client_info {
    uint8_t mac_addr[6];     // first, because the record is its own key in the cache
    uint8_t is_active;       // 1: authorized on a VAP of the SSID
    vapinfo *connected_vap;  // of the profile's vap_data_list, or null
    struct hapd_cl_info *hapd_cl_info;
    struct portal_cl_info *portal_cl_info;
    role_client_t role_info;
    char *google_ou;  // heap; organisational unit, or null
    vlan_info_t vlan_info;
    cl_bw_info_t cl_bw_info;
    ssid_profile_info *ssid;       // the profile whose cache holds the record
    ssid_profile_info *role_ssid;  // the role profile in force, or null
};

/// Functions of a cache of clients: look one up with a 6-byte MAC address.
extern const hash_table_funcs_t cl_cache_hash_fn;

/// "VRE.node_authorize": marks the client active and announces its portal login.
void vre_cl_authorized_updates(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.node_leave": marks the client inactive unless it has moved to another VAP of the SSID.
void vre_cl_leave_updates(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.cl_info": stores or drops a key or a portal login of a client.
void handle_client_info(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.wl_client_info_dump": dumps the cache.
void handle_wl_client_info_dump_req(vre_iw_cmd_t e, void *buf, int len);

/// Dumps the cache, or the roles of all clients, to the file that the request names.
///
/// @param request  the 39 bytes of a vre_client_info_dump_req_evt; may be null
/// @return 0; -1 without a request, or when neither the file nor standard output can be opened
int handle_client_info_dump_req(const void *request);

/// @param profile  may be null
/// @return a new record in no cache, freed with free_cl_info_node; null when `mac` is null or memory is short
[[nodiscard]] wl_client_info *get_new_wl_client_info(const uint8_t *mac, ssid_profile_info *profile);

/// The constructors below return zeroed heap blocks, null when memory is short.
[[nodiscard]] hapd_cl_info *get_new_hapd_cl_info();
[[nodiscard]] portal_cl_info *get_new_portal_cl_info();
[[nodiscard]] portal_cl_auth_info *get_new_portal_cl_auth_info();

/// @return a new block that is zero but for its `vlan_id`, VLAN_ID_NONE; null when memory is short
[[nodiscard]] dot1x_pmk_cl_data *get_new_dot1x_pmk_cl_data();

/// @return the client of a profile's cache, still the cache's; null when it is not there
[[nodiscard]] wl_client_info *find_cached_client(const ssid_profile_info *profile, const uint8_t *mac);

/// Adds a new client to a profile's cache; it must not be there.
///
/// @return the client, the cache's; null when memory is short or the profile has no cache
[[nodiscard]] wl_client_info *add_cached_client(ssid_profile_info *profile, const uint8_t *mac);

/// @return the name of a vre_rdp_method, "Unknown" for any other number
[[nodiscard]] const char *get_rdp_method_str(uint8_t method);

/// Deletes a client that holds neither key nor login and is not active from the cache of its profile.
///
/// @param profile  may be null: nothing is deleted then
/// @param client   may be null; not to be used any more when it is deleted
/// @return 0 when it is deleted and freed; -1 when it stays
int decide_and_delete_client(ssid_profile_info *profile, wl_client_info *client);

/// @return the vapinfo of that name in a list of them; null when there is none
[[nodiscard]] vapinfo *get_vap_from_list_by_name(const list_t *list, const char *name);

/// Free what is in no record any more; key material is wiped first. Null is let pass.
void free_dot1x_pmk_cl_data(dot1x_pmk_cl_data *pmk);
void free_ft_80211r_cl_data(ft_80211r_cl_data *ft);
void free_portal_cl_info(portal_cl_info *portal);

/// Frees a client that is in no cache, with everything it owns.
///
/// @param client  may be null
void free_cl_info_node(wl_client_info *client);

/// Starts the module: makes the table of SSID profiles, whose members the caches are. Without it nothing can run, so
/// the process ends with status 1 when memory is short.
void wl_init_cl_cache_info();
