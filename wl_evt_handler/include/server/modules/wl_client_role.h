/// Roles of clients, derived by the rules of their SSID profile. Main thread only.
#pragma once

#include <cstdint>

#include "big_endian.h"
#include "lists.h"

struct ssid_profile_info;
struct wl_client_info;

/// How the role of a client was found.
enum vre_rdp_method : uint8_t {
    RDP_METHOD_RADIUS = 1,
    RDP_METHOD_GOOGLE_OU = 2,
    RDP_METHOD_AUTH_FAIL = 3,
};

/// What the driver is asked to do with a client's role.
enum role_ioctl_action : uint8_t {
    ADD_CLIENT_ROLE = 1,
    DELETE_CLIENT_ROLE = 2,
    CLEAR_ROLE_INFO = 3,
};

/// The role of a client, as the driver takes it.
struct [[gnu::packed]] role_client {
    be_u32 role_id;
    be_u32 vendor_id;
    be_u32 attr_id;
    uint8_t rdp_method;    // vre_rdp_method
    char client_role[33];  // may lack its NUL
    FLAG_BYTE_3(apply_ssid_firewall, apply_ssid_portal_or_webq, apply_ssid_bw_limit);
};
static_assert(sizeof(role_client) == 47);
using role_client_t = role_client;

/// A rule of an SSID profile; the value of its list of rules.
struct role_derivation_rule {
    char *match_text;  // heap
    list_t *role_ids;  // ids of role profiles, held as the list's values themselves
};

/// Reads the role derivation rules of a profile.
///
/// @return 0; -1 when their file cannot be opened
int save_role_derivation_rules(ssid_profile_info *profile);

/// Frees a role_derivation_rule, as the list of rules needs it.
void free_role_derivation_rule(void *rule);

/// Tells the driver of a client's role.
///
/// @return 0 or -1
int send_role_ioctl(ssid_profile_info *profile, wl_client_info *client, role_ioctl_action action);
