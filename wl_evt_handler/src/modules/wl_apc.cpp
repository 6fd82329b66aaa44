#include "wl_apc.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "debug_log.h"
#include "valtrix_socklib.h"
#include "wl_ssid_profile.h"
#include "wl_utils.h"
#include "wl_vap_helpers.h"

namespace {

constexpr char TIME_OFFSET_FILE[] = "/tmp/time.offset";
constexpr int APC_MODULUS = 1000000;  // the identifier ends in six digits

void refresh_bssid(vapinfo &vap) {
    constexpr uint8_t unknown[sizeof vap.bssid] = {};
    if (std::memcmp(vap.bssid, unknown, sizeof vap.bssid) != 0)
        return;
    if (socklib_get_hwaddr(vap.name, vap.bssid) < 0)
        WL_LOG_AS("apc_check_bssid_is_feature_enabled", 6, "APC: Zero bssid, generation failed " MAC_FMT,
                  MAC_ARGS(vap.bssid));
    else
        WL_LOG_AS("apc_check_bssid_is_feature_enabled", 6, "APC: Zero bssid, generated again " MAC_FMT,
                  MAC_ARGS(vap.bssid));
}

bool has_vap(const ssid_profile_info *profile, const uint8_t *bssid) {
    for (list_t *node = profile->vap_data_list; node != nullptr; node = node->next) {
        auto &vap = *static_cast<vapinfo *>(node->value);
        refresh_bssid(vap);
        if (std::memcmp(vap.bssid, bssid, sizeof vap.bssid) == 0)
            return true;
    }
    return false;
}

bool any_profile_has_vap(const uint8_t *bssid) {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0) {
        const auto *const profile = static_cast<const ssid_profile_info *>(profiles.entry->value);
        if (profile->flags.apc_enabled != 0 && has_vap(profile, bssid))
            return true;
    }
    return false;
}

/// @return what another process of the access point wants added to the time, in seconds; 0 when it says nothing
int32_t time_offset() {
    // Both threads come here, and neither may wait for the other end of a FIFO.
    const int fd = open(TIME_OFFSET_FILE, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        WL_LOG_AS("apc_generate_id", 6, "Open timestamp file failed");
        return 0;
    }
    char text[16] = {};
    const ssize_t length = read(fd, text, sizeof text - 1);
    close(fd);
    if (length < 0) {
        WL_LOG_AS("apc_generate_id", 6, "Read timestamp failed");
        return 0;
    }
    WL_LOG_AS("apc_generate_id", 6, "Read timestamp %s from file", text);
    return to_number(text);
}

}  // namespace

int apc_check_bssid_is_feature_enabled(const uint8_t *bssid) {
    if (bssid == nullptr)
        return 0;
    // Held while addresses are refreshed too: both threads may be here.
    pthread_mutex_lock(&g_ssid_profile_list_mutex);
    const bool enabled = any_profile_has_vap(bssid);
    pthread_mutex_unlock(&g_ssid_profile_list_mutex);
    if (!enabled) {
        WL_LOG(6, "APC: Disabled on bssid " MAC_FMT, MAC_ARGS(bssid));
        return 0;
    }
    WL_LOG(6, "APC: Enabled on bssid " MAC_FMT, MAC_ARGS(bssid));
    return 1;
}

int apc_generate_id(const uint8_t *clmac, const uint8_t *bssid, char *apc_id_buf, int apc_id_len) {
    WL_LOG(6, "Received clmac: " MAC_FMT ", bssid:  " MAC_FMT, MAC_ARGS(clmac), MAC_ARGS(bssid));
    // The sum wraps at 32 bits on every machine.
    const uint32_t sum = static_cast<uint32_t>(time_offset()) + static_cast<uint32_t>(time(nullptr));
    const int value = static_cast<int32_t>(sum) % APC_MODULUS;
    if (apc_id_len <= 0)
        return 0;
    std::snprintf(apc_id_buf, static_cast<size_t>(apc_id_len), "%.2X%.2X%.2X-%.2X%.2X%.2X-%6.6d", clmac[3], clmac[4],
                  clmac[5], bssid[3], bssid[4], bssid[5], value);
    WL_LOG(6, "Generated id: %s", apc_id_buf);
    return 0;
}
