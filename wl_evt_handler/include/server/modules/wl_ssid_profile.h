/// SSID profiles: what the access point's configuration says about each SSID it serves. Profiles are loaded at
/// start-up, added and deleted by "VRE.ssid_profile_update", and never changed in place: a changed profile is deleted
/// and added again. Each carries its client cache and its registration with the synch agent.
///
/// The main thread owns the table and the records. The timer thread walks the table with g_ssid_profile_list_mutex
/// held, so the main thread takes it around adding and deleting; its own walks need no lock.
#pragma once

#include <cstdint>
#include <pthread.h>

#include "big_endian.h"
#include "lists.h"
#include "vre_hash_table.h"
#include "wl_events.h"

constexpr uint32_t PROFILE_ID_NOT_SET = 0xFFFFFFFF;
constexpr uint8_t IAPC_PATH_SYNCH_AGENT = 2;  // of ssid_profile_info::iapc_path
constexpr size_t SSID_PROFILE_BUCKETS = 43;

/// Portal settings of an SSID: six heap strings.
struct asr_info_t {
    char *texts[6];
};

struct portal_ssid_info {
    asr_info_t *asr_info;
};

/// 0x80 is the first flag.
struct ssid_profile_flags {
    FLAG_BYTE_8(firewall_enabled, app_firewall_enabled, role_profile_enabled, is_role_profile, webq_enabled,
                content_analytics_enabled, apc_enabled, is_mesh_enabled);
};
static_assert(sizeof(ssid_profile_flags) == 1);

/// 0x80 is the first flag.
struct ssid_role_flags {
    FLAG_BYTE_2(ap_vlan_enabled, inherit_ssid_settings_enabled);
};
static_assert(sizeof(ssid_role_flags) == 1);

/// One SSID, or one role that clients of an SSID may be given.
struct ssid_profile_info {
    uint32_t profile_id;    // first, because the record is its own key in the table
    list_t *vap_data_list;  // vapinfo records
    uint16_t num_vaps;
    list_t *extra_vlan_list;  // heap int32_t VLAN ids
    uint16_t num_extra_vlans;
    char ssid[33];  // NUL-terminated; of a role profile the name of the role
    uint32_t ap_vlan;
    uint8_t ena_remote_bridging;
    uint8_t portal_enabled;  // 1: the profile has a portal.conf
    uint8_t dot1x_enabled;
    uint8_t portal_radius_acc_enabled;
    uint8_t per_user_bw_enable;
    uint32_t per_user_bw_down_limit;
    uint32_t per_user_bw_up_limit;
    uint8_t iapc_path;  // how the access points talk to each other: IAPC_PATH_SYNCH_AGENT or another way
    uint8_t remote_iapc_enabled;
    char *external_interface;  // heap text, name of the uplink device
    uint8_t is_1x_configured;
    uint8_t is_portal_configured;
    struct portal_ssid_info *portal_ssid_info;  // may be null; belongs to whoever filled it
    ssid_profile_flags flags;
    ssid_role_flags role_flags;
    list_t *role_derivation_rules;  // role_derivation_rule records
    uint8_t nack;                   // 1: refused by the synch agent, or interface down; counted in g_synch_nack_count
    uint8_t send_cl_info_req;       // 1: ask for client information as soon as the synch agent has registered the SSID
    uint8_t synch_registered;       // 1: the synch agent has registered the SSID
    hash_table_t cl_info_hash;      // wl_client_info records by MAC; all zero for a role profile
};

/// Profiles by id: look one up with the address of a uint32_t. Lives for the whole run.
extern hash_table_t *ssid_profile_list;

/// Held around every change of ssid_profile_list, and around another thread's walk of it. Only the log's mutex may be
/// taken while it is held.
extern pthread_mutex_t g_ssid_profile_list_mutex;

/// Functions of ssid_profile_list.
extern const hash_table_funcs_t ssid_cache_hash_fn;

/// The sensor's configuration file, which names the communication VLAN.
extern const char *const g_discovery_conf_file;

/// "VRE.ssid_profile_update".
void handle_wl_ssid_profile_update(vre_iw_cmd_t e, void *buf, int len);

/// Adds, deletes or refreshes a profile.
///
/// @param update  the 5 bytes of a vre_profile_update_evt_info; may be null
/// @return 0 when the request was carried out, also when the files of a new profile do not make a usable one; -1 when
///         it was refused
int handle_ssid_profile_update(const void *update);

/// Reads the daemon configuration file and loads every profile it lists. A line that is not "PROFILE <id> <name>" loads
/// the profile of the line before once more.
///
/// @param conf_file  may be null
void read_wl_conf(const char *conf_file);

/// Loads a profile from its files, adds it to the table in place of one with the same id and registers it with the
/// synch agent. A profile that is not usable is dropped.
///
/// @param profile_id  the number in the files' paths; the profile's own id is what its files say
void init_ssid_config(uint32_t profile_id);

/// Applies one file of "key=value" lines to a profile; nothing is trimmed. A file that cannot be opened is logged.
void read_ssid_config_file(const char *path, ssid_profile_info *profile);

/// Applies one key to a profile; an unknown key changes nothing. Lists grow with every key that feeds them.
///
/// @param value  cut up in place
/// @param line   number of the line; not used
void fill_ssid_profile_data_config(ssid_profile_info *profile, char *value, const char *key, int line);

/// Decides whether a loaded profile can be used and completes one that can with its client cache and its role
/// derivation rules. Called once for each profile.
///
/// @return 0 usable, 1 not
[[nodiscard]] int check_needed_ssid_config_present(ssid_profile_info *profile);

/// @return a new profile with its defaults, freed with free_ssid_profile_info; null when memory is short
[[nodiscard]] ssid_profile_info *create_ssid_profile_data();

/// Marks the id of a zeroed profile as not set.
///
/// @param profile  may be null, which is logged
void set_ssid_profile_data_defaults(ssid_profile_info *profile);

/// Unregisters a profile from the synch agent and deletes it.
///
/// @param profile_id  a negative one is ignored
/// @return 0; -1 when there is no such profile
int destroy_ssid_profile_data(int profile_id, const void *unused);

/// Frees a profile that is in no table, with everything it owns. It may be partly filled.
void free_ssid_profile_info(ssid_profile_info *profile);

/// Frees the portal settings of a profile. The holder is deliberately not freed: it belongs to whoever filled it.
void free_portal_ssid_info(ssid_profile_info *profile);

/// Logs every field of a profile.
void print_ssid_profile_data_config(const ssid_profile_info *profile);

/// Logs every profile of the table.
void print_all_ssid_config();
