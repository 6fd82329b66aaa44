/// What the sources of client roles share: rules and their match (wl_client_role_rules.cpp), the wildcard search
/// (wl_client_role_match.cpp), roles set and cleared (wl_client_role.cpp), what is posted on the bus
/// (wl_client_role_send.cpp). Main thread only.
#pragma once

#include <cstdint>

#include "wl_client_role.h"
#include "wl_common.h"

struct role_debug_info;

/// Request to the device of the traffic module.
struct [[gnu::packed]] client_role_ioctl_data {
    uint8_t action;  // role_ioctl_action
    uint8_t mac[6];
    be_u32 profile_id;
    struct role_client role_client;
};
static_assert(sizeof(client_role_ioctl_data) == 58);

/// Appends a copy of a rule to a profile's rules.
///
/// @return the copy, the profile's; null when memory is short
[[nodiscard]] role_derivation_rule *add_role_derivation_rule(ssid_profile_info *profile,
                                                             const role_derivation_rule *rule);

/// Searches a text for the pieces of a pattern in their order; "*" stands for anything, "\*" for itself. Neither end is
/// anchored.
///
/// @return 1 matched, 0 not; deliberately 1 when memory is short
[[nodiscard]] int is_matchstr_found_in_str(const char *str, const char *match_text);

/// Copies the piece of a pattern that begins at an index, up to the next "*".
///
/// @param index  moves behind that "*", or to the end of the pattern
/// @param out    room for the rest of the pattern and a NUL
void get_next_substring(const char *str, int *index, char *out);

/// Finds the role that the rules of an SSID give to a name.
///
/// @param name   may be null
/// @param role   says which rules count
/// @param dbg  its match type is set when a rule matches
/// @return the role profile; null for none
[[nodiscard]] ssid_profile_info *get_role_id_by_role_name(const char *name, const ssid_profile_info *profile,
                                                          const struct role_info *role, role_debug_info *dbg);

/// @return the profile; null when there is none
[[nodiscard]] ssid_profile_info *get_ssid_profile_by_role_id(uint32_t role_id);

/// Posts the role of a client (event 44).
void wl_send_cl_role(const uint8_t *mac, const char *role, uint32_t profile_id, uint8_t is_inherit_ssid_portal);

/// Posts why a client has its role (event 59).
///
/// @param dbg  completed with what the client has now
void wl_send_applied_role(const wl_client_info *client, const wl_evt_info_t *info, role_debug_info *dbg);

/// Asks for the disconnection of an event's client (event 50).
void send_client_disconnect(const wl_evt_info_t *info);
