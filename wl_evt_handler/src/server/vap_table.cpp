#include "vap_table.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "debug_log.h"
#include "vap_profile_map.h"
#include "wl_client_ts.h"
#include "wlan_ioctl.h"

vap_info vap_array[MAX_VAPS];
int vap_count;

namespace {

/// What the driver answers to "get_vaps", as far as the table uses it.
struct [[gnu::packed]] _vapdata {
    uint8_t unused_before[1];
    char ssid[33];  // may lack its NUL
    uint8_t bssid[6];
    uint8_t unused_between[14];
    uint8_t proto;
    uint8_t unused_after[55];  // rates, channel, beacon interval, security and 802.11n settings
};
static_assert(sizeof(_vapdata) == 110);

void clear_table() {
    std::fill(std::begin(vap_array), std::end(vap_array), vap_info{});
    vap_count = 0;
}

/// @return 0 with the name of an interface index, NUL-terminated; -1 when the kernel does not know it
int interface_name(int index, char (&name)[IFNAMSIZ]) {
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        std::perror("Socket\n");
        return -1;
    }
    ifreq request{};
    request.ifr_ifindex = index;
    const int result = ioctl(sock, SIOCGIFNAME, &request);
    close(sock);
    if (result < 0)
        return -1;
    std::memcpy(name, request.ifr_name, IFNAMSIZ - 1);
    name[IFNAMSIZ - 1] = 0;
    return 0;
}

bool is_up(const vap_info &vap) {
    constexpr uint8_t NO_BSSID[sizeof vap.bssid] = {};
    return vap.ssid[0] != 0 && std::memcmp(vap.bssid, NO_BSSID, sizeof vap.bssid) != 0;
}

}  // namespace

void init_iface_table() {
    clear_table();
}

vap_info *lookup_vapinfo(int index) {
    for (int i = 0; i < vap_count; i++) {
        if (vap_array[i].index == index)
            return &vap_array[i];
    }
    return nullptr;
}

vap_info *add_vapinfo(int index) {
    char name[IFNAMSIZ];
    if (interface_name(index, name) < 0)
        return nullptr;
    vap_info *record = get_vap_info(name);
    if (record == nullptr)
        return nullptr;
    if (!is_up(*record)) {  // not stored, so that a later event asks again
        std::free(record);
        return nullptr;
    }
    record->profile_id = static_cast<int32_t>(lookup_vap_profile_id(name));
    WL_LOG(2, "Created profile_id %d for vap %s\n", static_cast<int>(record->profile_id), name);
    update_other_vap_information(record);
    record->index = index;
    std::memcpy(record->name, name, sizeof record->name);
    if (vap_count < MAX_VAPS)
        vap_array[vap_count++] = *record;
    std::free(record);
    // With a full table the sixteenth VAP deliberately stands for the new one: callers get some VAP rather than none.
    assert(vap_count > 0);
    return &vap_array[vap_count - 1];
}

vap_info *add_or_lookup_vapinfo(int index) {
    vap_info *vap = lookup_vapinfo(index);
    if (vap != nullptr)
        return vap;
    vap = add_vapinfo(index);
    if (vap == nullptr)
        WL_LOG(2, "VAP add failed for index %d", index);
    dump_vapinfo(vap);
    return vap;
}

vap_info *get_vap_info(const char *vap_name) {
    // The driver may answer with more than the record, and with less: what it leaves out is 0.
    uint8_t reply[VAP_IOCTL_DATA_SIZE] = {};
    if (do_ioctl_on_vap(reply, nullptr, vap_name, "get_vaps") < 0)
        return nullptr;
    auto *vap = static_cast<vap_info *>(std::calloc(1, sizeof(vap_info)));
    if (vap == nullptr)
        return nullptr;
    _vapdata data;
    std::memcpy(&data, reply, sizeof data);
    std::memcpy(vap->ssid, data.ssid, sizeof vap->ssid);
    if (std::memchr(vap->ssid, 0, sizeof vap->ssid) == nullptr)
        vap->ssid[sizeof vap->ssid - 1] = 0;
    std::memcpy(vap->bssid, data.bssid, sizeof vap->bssid);
    vap->proto = data.proto;
    return vap;
}

int get_config_from_vapinfo(cl_conn_evt_rec *record, const wl_evt_info_t *evt_info) {
    if (evt_info->name == nullptr) {
        WL_LOG(3, "VAP name is null for event info_code %d", static_cast<int>(evt_info->info_code));
        return 0;
    }
    for (int i = 0; i < vap_count; i++) {
        const vap_info &vap = vap_array[i];
        if (std::strncmp(vap.name, evt_info->name, sizeof vap.name) != 0)
            continue;
        record->is_portal_enabled = vap.portal_enabled;
        record->is_dot1x = vap.dot1x_enabled;
        record->is_tunnel_enabled = vap.tunneled_vap;
        record->vlan = vap.ssid_vlan;
        record->is_nat_enabled = vap.nat_vap;
        return 1;
    }
    return 0;
}

void dump_vapinfo(const vap_info *vap) {
    if (vap == nullptr)
        return;
    const uint8_t *bssid = vap->bssid;
    WL_LOG(2,
           "COMMON INFORMATION: interface %s ssid %s bssid %02X:%02X:%02X:%02X:%02X:%02X profile_id %d "
           "dot1x_enabled %d portal_enabled %d secured_vap %d samog_enabled %d gauth_enabled %d\n"
           ", ssid_vlan %d, tunneled vap %d NAT vap %d",
           vap->name, vap->ssid, bssid[0], bssid[1], bssid[2], bssid[3], bssid[4], bssid[5],
           static_cast<int>(vap->profile_id), vap->dot1x_enabled, vap->portal_enabled, vap->secured_vap,
           vap->samog_enabled, vap->gauth_enabled, static_cast<int>(vap->ssid_vlan), vap->tunneled_vap, vap->nat_vap);
}

void iface_table_clear_cache() {
    syslog(LOG_LOCAL0 | LOG_INFO, "Reboot avoidance path triggered. Reinitializing interface cache.");
    clear_table();
}

void wl_iface_table_clear_cache(vre_iw_cmd_t, void *, int) {
    iface_table_clear_cache();
}
