// What a VAP's record takes from the configuration file of its SSID profile. The profile module reads the same file by
// rules of its own: here a key tells what the VAP is used for, there what the profile is.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "debug_log.h"
#include "error_text.h"
#include "vap_table.h"
#include "wl_utils.h"

namespace {

constexpr size_t PATH_SIZE = 100;
constexpr size_t LINE_SIZE = 512;

using profile_path = char[PATH_SIZE];

/// @return whether "/tmp/<kind><id>/<file>" exists
bool profile_has_file(const char *kind, int id, const char *file) {
    profile_path path;
    std::snprintf(path, sizeof path, "/tmp/%s%d/%s", kind, id, file);
    return access(path, F_OK) == 0;
}

/// The key only says when to look at the files: they are those of the VAP's own profile, whatever the value is.
void apply_profile_files(vap_info &vap, const char *) {
    const int id = vap.profile_id;
    if (id == 0)
        return;
    if (profile_has_file("profile", id, "portal.conf"))
        vap.portal_enabled = 1;
    if (profile_has_file("profile", id, "network.conf"))
        vap.tunneled_vap = 1;
    if (profile_has_file("profile", id, "nat.conf"))
        vap.nat_vap = 1;
}

void apply_security(vap_info &vap, const char *value) {
    if (std::strcmp(value, "EAP") == 0) {
        vap.dot1x_enabled = 1;
        vap.secured_vap = 1;
    } else if (std::strcmp(value, "PSK") == 0) {
        vap.secured_vap = 1;
    }
}

void apply_samog(vap_info &vap, const char *value) {
    vap.samog_enabled = static_cast<uint8_t>(to_number(value));
}

void apply_gauth(vap_info &vap, const char *value) {
    vap.gauth_enabled = static_cast<uint8_t>(to_number(value));
}

void apply_vlan(vap_info &vap, const char *value) {
    vap.ssid_vlan = static_cast<uint16_t>(to_number(value));
}

void apply_network(vap_info &vap, const char *value) {
    const int id = to_number(value);
    if (id != 0 && profile_has_file("network", id, "network.conf"))
        vap.tunneled_vap = 1;
}

struct config_key {
    const char *name;
    void (*apply)(vap_info &vap, const char *value);
};

constexpr config_key CONFIG_KEYS[] = {
    {"SSID_PROFILE_ID", apply_profile_files}, {"AP_SECFILE", apply_security}, {"SAMOG_MAB_ENABLED", apply_samog},
    {"GAUTH_ENABLED", apply_gauth},           {"VLAN_ID", apply_vlan},        {"NETWORK_PROFILE_ID", apply_network},
};

}  // namespace

void update_vap_config(vap_info *record, const char *value, const char *key, int) {
    for (const config_key &known : CONFIG_KEYS) {
        if (std::strcmp(known.name, key) == 0)
            known.apply(*record, value);
    }
}

void update_other_vap_information(vap_info *record) {
    const int profile_id = record->profile_id;
    WL_LOG(2, "%s: updating information for profile_id %d\n", __func__, profile_id);
    profile_path path;
    std::snprintf(path, sizeof path, "/tmp/profile%d/profile.conf", profile_id);
    FILE *file = std::fopen(path, "re");
    if (file == nullptr) {
        const int error = errno;
        WL_LOG(3, "Could not open SSID profile conf file : %s, error : %s", path, error_text(error));
        return;
    }
    char line[LINE_SIZE];
    for (int number = 1; std::fgets(line, sizeof line, file) != nullptr; number++) {
        line[std::strcspn(line, "\n")] = 0;
        if (line[0] == 0)
            continue;
        char *separator = std::strchr(line, '=');
        if (separator == nullptr) {
            WL_LOG(3, "Invalid config line [%s] at line# [%d]", line, number);
            continue;
        }
        *separator = 0;
        update_vap_config(record, separator + 1, line, number);
    }
    std::fclose(file);
}
