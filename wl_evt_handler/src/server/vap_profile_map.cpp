#include "vap_profile_map.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>

#include "debug_log.h"
#include "payload.h"
#include "wl_utils.h"

profile_vap_info profile_id_for_vap[SAVED_VAP_PROFILES + 1];

namespace {

constexpr char MAP_FILE[] = "/tmp/.wl.vap_to_profile";
constexpr int NO_NUMBER = -1;

/// The number in an interface name, whose first digit is among its first `limit` characters. Never reads beyond 16
/// characters: a name that fills its field has no NUL.
int vap_number(const char *name, int limit) {
    const char *first = get_first_num_in_str(name, std::min(limit, IFNAMSIZ));
    if (first == nullptr)
        return NO_NUMBER;
    char digits[IFNAMSIZ + 1] = {};
    std::memcpy(digits, first, strnlen(first, static_cast<size_t>(IFNAMSIZ - (first - name))));
    return to_number(digits);
}

profile_vap_info entry_of(const char *name) {
    const int number = vap_number(name, IFNAMSIZ);
    return number >= 0 && number <= SAVED_VAP_PROFILES ? profile_id_for_vap[number] : profile_vap_info{};
}

/// The map must never differ from its saved copy, so the daemon does not go on without one.
[[noreturn]] void end_without_file(const char *function) {
    WL_LOG_AS(function, 2, "FATAL: Could not create file %s", MAP_FILE);
    std::exit(1);
}

}  // namespace

const char *get_first_num_in_str(const char *str, int limit) {
    for (int at = 0; str != nullptr && at < limit && str[at] != 0; at++) {
        if (str[at] >= '0' && str[at] <= '9')
            return str + at;
    }
    return nullptr;
}

void handle_bw_vap_profile_id(vre_iw_cmd_t event, void *msg, int len) {
    wl_evt_info_t info;
    wl_get_spl_evt_info(event, &info, msg, len);
    bw_update_vap_profile_id(event, &info);
}

void bw_update_vap_profile_id(vre_iw_cmd_t, const wl_evt_info *info) {
    const int number = vap_number(info->name, info->name_len);
    if (number == NO_NUMBER) {
        WL_LOG(2, "Invalid VAP name");
        return;
    }
    // Number 16 is deliberately let through although the file has no place for it: its VAP is served until a restart.
    if (number > SAVED_VAP_PROFILES) {
        WL_LOG(2, "Invalid vap_index.");
        return;
    }
    profile_vap_info &entry = profile_id_for_vap[number];
    entry.profile_id = info->profile_id;
    entry.profile_data = read_payload<be_u32>(info->subinfo_value, info->subinfo_value_len);

    FILE *file = std::fopen(MAP_FILE, "w+e");
    if (file == nullptr)
        end_without_file(__func__);
    const auto profile_id = static_cast<int>(entry.profile_id);
    WL_LOG(2, "VAP ath%d : profile id %d profile data %d", number, profile_id, static_cast<int>(entry.profile_data));
    if (entry.profile_data == 1)
        WL_LOG(2, "WL.bw: Enabling bandwidth control feature for profile ID %d.", profile_id);
    const size_t written = std::fwrite(profile_id_for_vap, sizeof entry, SAVED_VAP_PROFILES, file);
    if (std::fclose(file) != 0 || written != SAVED_VAP_PROFILES)
        end_without_file(__func__);
}

void restore_profile_vap_cache() {
    FILE *file = std::fopen(MAP_FILE, "re");
    if (file == nullptr)
        return;
    // Read aside: of an entry that the file holds only in part nothing may reach the map.
    profile_vap_info saved[SAVED_VAP_PROFILES];
    const size_t count = std::fread(saved, sizeof *saved, SAVED_VAP_PROFILES, file);
    std::fclose(file);
    std::copy_n(saved, count, profile_id_for_vap);
}

uint32_t bw_lookup_vap_profile_id(const char *name) {
    const profile_vap_info entry = entry_of(name);
    return entry.profile_data == 1 ? entry.profile_id : 0;
}

uint32_t lookup_vap_profile_id(const char *name) {
    return entry_of(name).profile_id;
}
