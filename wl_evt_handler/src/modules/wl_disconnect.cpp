#include "wl_disconnect.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "debug_log.h"
#include "valtrix_socklib.h"
#include "vap_table.h"

namespace {

bool serves_ssid(const vap_info &vap, const wl_evt_info_t &info) {
    const auto length = static_cast<size_t>(info.ssid_len);
    return info.ssid != nullptr && strnlen(vap.ssid, sizeof vap.ssid) == length &&
           std::memcmp(vap.ssid, info.ssid, length) == 0;
}

bool is_open(const vap_info &vap) {
    return vap.secured_vap == 0 && vap.samog_enabled == 0 && vap.gauth_enabled == 0;
}

}  // namespace

void handle_vre_disconnect_event(vre_iw_cmd_t e, void *buf, int len) {
    if (e != VRE_CLIENT_DISCONNECT)
        return;
    wl_evt_info_t info;
    wl_get_evt_info(e, &info, buf, len);
    if (info.cl_mac == nullptr)
        return;
    char mac[18];
    socklib_mac_ntoa(info.cl_mac, 6, mac, sizeof mac);
    WL_LOG(2, "ZEL DISCONNECT: Recived disconnect event for mac %s ssid=%s ssid_len=%d", mac, text_or_null(info.ssid),
           info.ssid_len);
    for (const vap_info &vap : std::span(vap_array, static_cast<size_t>(vap_count))) {
        if (!serves_ssid(vap, info) || !is_open(vap))
            continue;
        char command[2048];
        (void)snprintf(command, sizeof command, "iwpriv %s kickmac %s &", vap.name, mac);
        WL_LOG(2, "ZEL DISCONNECT: command %s", command);
        (void)std::system(command);  // in the background: its status would say nothing about the kick
    }
}
