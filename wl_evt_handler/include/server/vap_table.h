/// The table of VAPs: interface name, SSID, BSSID, profile and flags by interface index. Filled when an event first
/// names an index (kernel, wireless driver, VAP-to-profile map, "/tmp/profile%d/profile.conf"), and emptied only as a
/// whole. Main thread only.
#pragma once

#include <cstdint>

#include "big_endian.h"
#include "wl_common.h"

struct cl_conn_evt_rec;

/// One VAP.
struct [[gnu::packed]] vap_info {
    be_i32 index;   // interface index
    char name[16];  // interface name, NUL-terminated
    char ssid[33];  // NUL-terminated
    uint8_t bssid[6];
    be_i32 profile_id;
    uint8_t dot1x_enabled;
    uint8_t portal_enabled;
    uint8_t secured_vap;
    uint8_t samog_enabled;
    uint8_t gauth_enabled;
    uint8_t proto;
    be_u16 ssid_vlan;
    uint8_t tunneled_vap;
    uint8_t nat_vap;
};
static_assert(sizeof(vap_info) == 73);

constexpr int MAX_VAPS = 16;

extern vap_info vap_array[MAX_VAPS];  // in order of discovery
extern int vap_count;                 // records in use

/// Starts with an empty table.
void init_iface_table();

/// The VAP of an interface index when the table has it, else null.
[[nodiscard]] vap_info *lookup_vapinfo(int index);

/// Asks the kernel and the driver for the VAP of an interface index and appends it to the table.
///
/// @return the last record of the table: in a full table the new VAP is not stored and the sixteenth stands for it.
///         Null when the index has no interface, the driver does not know it, or it has no SSID or BSSID yet
[[nodiscard]] vap_info *add_vapinfo(int index);

/// The VAP of an interface index, asked of the driver when the table does not have it; null when there is none.
vap_info *add_or_lookup_vapinfo(int index);

/// Asks the driver for a VAP by its interface name.
///
/// @return a record with `ssid`, `bssid` and `proto`, freed by the caller with free(); null when the driver does not
///         answer or memory is short
[[nodiscard]] vap_info *get_vap_info(const char *vap_name);

/// Fills the flags and the VLAN of a record from the configuration file of its profile.
void update_other_vap_information(vap_info *record);

/// Applies one line of that file to a record; an unknown key is ignored. Flags are set, never cleared.
void update_vap_config(vap_info *record, const char *value, const char *key, int line);

/// Copies what the table knows of the VAP that an event names (`name`) into a client's connection record.
///
/// @return 1, or 0 when the table has no VAP of that name
[[nodiscard]] int get_config_from_vapinfo(cl_conn_evt_rec *record, const wl_evt_info_t *evt_info);

/// Logs a record at level 2; null logs nothing.
void dump_vapinfo(const vap_info *vap);

/// Empties the table and says so in the system log.
void iface_table_clear_cache();

/// "VRE.clr.iface": empties the table.
void wl_iface_table_clear_cache(vre_iw_cmd_t e, void *buf, int len);
