/// Roles of clients, derived by the rules of their SSID profile. Main thread only.
#pragma once

#include "lists.h"

struct ssid_profile_info;

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
