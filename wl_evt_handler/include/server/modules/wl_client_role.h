/// Roles of clients. A role is an SSID profile of its own whose VLAN, limits and policies replace or complement those
/// of the SSID that a client has joined. The authenticator says who a client is; the rules of the SSID profile say
/// which role that means; the driver, bandwidth control and the bus are told. Main thread only.
#pragma once

#include <cstdint>

#include "big_endian.h"
#include "lists.h"
#include "wl_common.h"

struct role_info;
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

/// How the text of a rule is compared with what the authenticator says.
enum role_match_type : uint8_t {
    MATCH_EXACT = 1,     // with the names of the roles themselves
    MATCH_CONTAINS = 2,  // "*" stands for anything
    MATCH_EQUALS = 3,
};

/// A rule of an SSID profile; the value of its list of rules.
struct role_derivation_rule {
    uint32_t rule_id;
    uint8_t rdp_method;       // vre_rdp_method
    uint8_t rdp_method_type;  // kept, not used
    uint32_t vendor_id;
    uint32_t attribute_id;
    uint8_t match_type;  // role_match_type
    char *match_text;    // heap, or null
    list_t *role_ids;    // ids of role profiles, held as the list's values themselves
};

/// Reads the role derivation rules of a profile and appends them to those it has.
///
/// @return 0; -1 when their file cannot be opened
[[nodiscard]] int save_role_derivation_rules(ssid_profile_info *profile);

/// Frees a role_derivation_rule, as the list of rules needs it.
void free_role_derivation_rule(void *rule);

/// Finds the role of a client and applies it.
///
/// @param info  the decoded event; its bandwidth request is filled
/// @param role  what the authenticator says; the name of a role that was given by id is filled in
void handle_client_role_set(vre_iw_cmd_t event, wl_evt_info_t *info, int len, struct role_info *role);

/// Takes a client's role away in the driver and forgets the client.
void handle_client_role_clear(vre_iw_cmd_t event, wl_evt_info_t *info, int len);

/// Tells the kernel's traffic module of a client's role. Waits for its device, for ever if need be.
///
/// @return 0; -1 when the device refuses
[[nodiscard]] int send_role_ioctl(ssid_profile_info *profile, wl_client_info *client, role_ioctl_action action);
