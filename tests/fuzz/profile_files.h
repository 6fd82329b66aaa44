/// Files of SSID profiles, served from memory to the targets that load profiles: a target links with --wrap=fopen and
/// --wrap=_Z11is_iface_upPKc. A profile's number decides what its file says; the daemon configuration is the input. The
/// kernel is not asked for interfaces, which takes it milliseconds. Log lines are formatted and dropped.
#pragma once

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "wl_cl_info.h"
#include "wl_log.h"
#include "wl_ssid_profile.h"

constexpr char INPUT_PATH[] = "/tmp/input";

inline const uint8_t *input_bytes;
inline size_t input_size;
inline bool interfaces_are_up;

extern "C" FILE *__real_fopen(const char *path, const char *mode);

/// A profile of every kind: the first makes a role, the second lacks its VAPs, the third says it is the one 43 below.
inline FILE *open_profile_file(int number) {
    static char text[256];
    const int kind = number & 3;
    std::snprintf(text, sizeof text,
                  "SSID_PROFILE_ID=%d\nWL_PROFILE_SSID=net\nExternalDevice=eth0\nIAPC_ENABLE=%d\n"
                  "ALL_EXTRA_SSID_VLAN_LIST=1,2\nIS_ROLE_PROFILE=%d\nROLE_PROFILE_ENABLED=%d\n%s=ath0,ath1.2\n",
                  kind == 2 && number > 43 ? number - 43 : number, kind, kind == 0, kind == 3,
                  kind == 1 ? "NO_LIST" : "VAP_LIST");
    return fmemopen(text, std::strlen(text), "r");
}

extern "C" inline __attribute__((used)) FILE *__wrap_fopen(const char *path, const char *mode) {
    int number;
    char name[16];
    if (std::strcmp(path, INPUT_PATH) == 0)
        return fmemopen(const_cast<uint8_t *>(input_bytes), input_size, "r");
    if (std::sscanf(path, "/tmp/profile%d/%15s", &number, name) == 2 && std::strcmp(name, "profile.conf") == 0)
        return open_profile_file(number);
    errno = ENOENT;
    return std::strcmp(path, "/dev/null") == 0 ? __real_fopen(path, mode) : nullptr;
}

extern "C" inline __attribute__((used)) int __wrap__Z11is_iface_upPKc(const char *) {
    return interfaces_are_up ? 0 : -1;
}

inline void drop_log_lines() {
    if (g_logfile_fd != nullptr)
        return;
    g_logfile_fd = std::fopen("/dev/null", "w");
    g_max_logfile_size = INT_MAX;
    debug = 7;
}

inline void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

/// Every profile of the table is a usable one. Then the table goes.
inline void check_and_drop_profiles() {
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0) {
        const auto *const profile = static_cast<const ssid_profile_info *>(profiles.entry->value);
        require(profiles.entry->key == &profile->profile_id && profile->profile_id != PROFILE_ID_NOT_SET);
        require(profile->num_vaps == 2 && profile->external_interface != nullptr && profile->send_cl_info_req == 1);
    }
    hash_table_destroy(ssid_profile_list);
    std::free(ssid_profile_list);
}
