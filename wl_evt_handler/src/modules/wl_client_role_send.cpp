// What client roles post on the bus.
#include <cstring>

#include "debug_log.h"
#include "libwl.h"
#include "valtrix_socklib.h"
#include "wl_cl_info.h"
#include "wl_client_role_internal.h"
#include "wl_evt_payloads.h"
#include "wl_info_codes.h"
#include "wl_ssid_profile.h"

namespace {

constexpr size_t PAYLOAD_SIZE = 2048;
constexpr uint16_t SUBINFO_ROLE_APPLIED = 44;  // none that the relay or the troubleshooting acts upon

/// A payload under construction. It stays below PAYLOAD_SIZE: what does not fit is left out.
struct payload {
    uint8_t bytes[PAYLOAD_SIZE];
    size_t length;
};

void begin(payload &out, const uint8_t *mac, uint32_t profile_id) {
    wl_header head{};
    if (mac != nullptr)
        std::memcpy(head.mac, mac, sizeof head.mac);
    head.profile_id = profile_id;
    std::memcpy(out.bytes, &head, sizeof head);
    out.length = sizeof head;
}

void put_item(payload &out, wl_tag_t tag, const void *value, size_t length) {
    wl_item_header head;
    if (out.length + sizeof head + length >= PAYLOAD_SIZE)
        return;
    head.tag = tag;
    head.length = static_cast<uint32_t>(length);
    std::memcpy(out.bytes + out.length, &head, sizeof head);
    std::memcpy(out.bytes + out.length + sizeof head, value, length);
    out.length += sizeof head + length;
}

void put_number(payload &out, wl_tag_t tag, uint32_t number) {
    be_u32 value;
    value = number;
    put_item(out, tag, &value, sizeof value);
}

void put_short_number(payload &out, wl_tag_t tag, uint16_t number) {
    be_u16 value;
    value = number;
    put_item(out, tag, &value, sizeof value);
}

int post(vre_iw_cmd_t event, const payload &out) {
    return wl_send_evt(event, out.bytes, static_cast<int>(out.length));
}

}  // namespace

void wl_send_cl_role(const uint8_t *mac, const char *role, uint32_t profile_id, uint8_t is_inherit_ssid_portal) {
    vre_cl_role event{};
    (void)socklib_mac_ntoa(mac, 6, event.macaddr, sizeof event.macaddr);
    std::memcpy(event.role, role, strnlen(role, CLIENT_ROLE_SIZE));
    event.profile_id = profile_id;
    event.is_inherit_ssid_portal = is_inherit_ssid_portal;
    if (wl_send_evt(VRE_CL_ROLE, &event, sizeof event) < 1)
        WL_LOG(3, "FAILED: Sending client Role info for mac: - %s, role: - %s", event.macaddr, event.role);
    else
        WL_LOG(7, "Sending client Role info for mac: - %s, role: - %s", event.macaddr, event.role);
}

void wl_send_applied_role(const wl_client_info *client, const wl_evt_info_t *info, role_debug_info *dbg) {
    const ssid_profile_info &ssid = *client->ssid;
    dbg->role_id = client->role_info.role_id;
    dbg->rdp_method = client->role_info.rdp_method;
    std::memcpy(dbg->client_role, client->role_ssid->ssid, sizeof dbg->client_role);
    dbg->mapped_to_ssid = client->role_ssid == client->ssid ? 1 : 0;

    payload event;
    begin(event, client->mac_addr, ssid.profile_id);
    const char *const name = info->ssid != nullptr ? info->ssid : ssid.ssid;
    put_item(event, WL_VAP_SSID, name, std::strlen(name) + 1);
    if (info->bssid != nullptr)
        put_item(event, WL_VAP_BSSID, info->bssid, 6);
    put_number(event, WL_INFO_CODE, INFO_ROLE);
    put_short_number(event, WL_SUBINFO_CODE, SUBINFO_ROLE_APPLIED);
    put_item(event, WL_SUBINFO_VALUE, dbg, sizeof *dbg);
    if (post(VRE_HOSTAPD_EVENT, event) > 0)
        WL_LOG(7, "Sending Role applied event successful");
    else
        WL_LOG(7, "Sending Role applied event failed");
}

void send_client_disconnect(const wl_evt_info_t *info) {
    payload event;
    begin(event, info->cl_mac, info->profile_id);
    if (info->ssid != nullptr)
        put_item(event, WL_VAP_SSID, info->ssid, static_cast<size_t>(info->ssid_len) + 1);
    (void)post(VRE_CLIENT_DISCONNECT, event);
}
