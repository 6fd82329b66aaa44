#include "wl_client_role.h"

#include <cstdlib>

int save_role_derivation_rules(ssid_profile_info *) {
    return 0;
}

void free_role_derivation_rule(void *rule) {
    auto *const derivation = static_cast<role_derivation_rule *>(rule);
    std::free(derivation->match_text);
    list_free_without_payload_freeing(&derivation->role_ids);
    std::free(derivation);
}

int send_role_ioctl(ssid_profile_info *, wl_client_info *, role_ioctl_action) {
    return 0;
}
