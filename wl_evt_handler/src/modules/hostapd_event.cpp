#include "hostapd_event.h"

#include "payload.h"
#include "wl_client_role.h"
#include "wl_common.h"
#include "wl_dynamic_vlan.h"
#include "wl_evt_payloads.h"
#include "wl_info_codes.h"

namespace {

// What the authenticator reports of a client.
constexpr uint16_t ROLE_BY_NAME_OR_ID = 42;
constexpr uint16_t ROLE_CLEARED = 43;
constexpr uint16_t ROLE_BY_GOOGLE_OU = 46;
constexpr uint16_t GOOGLE_OU_CLEARED = 47;

}  // namespace

void handle_vre_hostapd_event(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t info;
    wl_get_evt_info(e, &info, buf, len);
    struct role_info role {};
    switch (info.subinfo_code) {
    case SUBINFO_VLAN_ASSIGNED:
        handle_vre_dynamic_vlan(e, &info, len);
        break;
    case ROLE_BY_NAME_OR_ID:
        if (info.subinfo_value == nullptr)
            break;
        role = read_payload<struct role_info>(info.subinfo_value, info.subinfo_value_len);
        handle_client_role_set(e, &info, len, &role);
        break;
    case ROLE_BY_GOOGLE_OU:
        role.rdp_method = RDP_METHOD_GOOGLE_OU;
        handle_client_role_set(e, &info, len, &role);
        break;
    case ROLE_CLEARED:
    case GOOGLE_OU_CLEARED:
        handle_client_role_clear(e, &info, len);
        break;
    default:
        break;
    }
}
