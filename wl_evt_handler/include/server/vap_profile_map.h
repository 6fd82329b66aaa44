/// The map from a VAP's number to the SSID profile served on it, with the switch of per-client bandwidth control.
/// Filled by "VRE.bw.vap_profile_id" and kept in "/tmp/.wl.vap_to_profile", so that a restarted daemon finds it again
/// before it replays its bandwidth cache. Main thread only.
#pragma once

#include <cstdint>

#include "big_endian.h"
#include "wl_common.h"

/// One entry, as the file holds it.
struct [[gnu::packed]] profile_vap_info {
    be_u32 profile_id;
    be_u32 profile_data;  // 1: bandwidth control is enabled for this VAP
};
static_assert(sizeof(profile_vap_info) == 8);

constexpr int SAVED_VAP_PROFILES = 16;

/// Indexed by VAP number. Number 16 is accepted too, but has no place in the file.
extern profile_vap_info profile_id_for_vap[SAVED_VAP_PROFILES + 1];

/// "VRE.bw.vap_profile_id".
void handle_bw_vap_profile_id(vre_iw_cmd_t event, void *msg, int len);

/// Stores the entry that a decoded event names (interface name, profile id, 4-byte value) and rewrites the file. Ends
/// the process with status 1 when the file cannot be written.
void bw_update_vap_profile_id(vre_iw_cmd_t event, const wl_evt_info *info);

/// Loads the entries that the file holds, as far as it goes.
void restore_profile_vap_cache();

/// The profile served on a VAP whose bandwidth control is enabled.
///
/// @param name  interface name; 16 characters of it are looked at, and it may be null
/// @return the profile's id; 0 when bandwidth control is not enabled or the name has no number within the map
[[nodiscard]] uint32_t bw_lookup_vap_profile_id(const char *name);

/// The profile served on a VAP, whether its bandwidth control is enabled or not; else as bw_lookup_vap_profile_id.
[[nodiscard]] uint32_t lookup_vap_profile_id(const char *name);

/// @return the first decimal digit among the first `limit` characters of `str`, which may be null; null when none is
///         there
const char *get_first_num_in_str(const char *str, int limit);
