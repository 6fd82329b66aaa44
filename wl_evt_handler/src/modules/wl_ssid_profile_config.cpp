#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <unistd.h>

#include "debug_log.h"
#include "error_text.h"
#include "wl_ssid_profile.h"
#include "wl_utils.h"
#include "wl_vap_helpers.h"

namespace {

constexpr size_t LINE_SIZE = 512;
constexpr size_t PORTAL_PATH_SIZE = 100;

/// What a key of a profile file does with its value, which it may cut up.
struct config_key {
    const char *name;
    void (*apply)(ssid_profile_info *profile, char *value);
};

bool is_odd(const char *number) {
    return to_number(number) % 2 != 0;
}

void set_profile_id(ssid_profile_info *profile, char *value) {
    const int id = to_number(value);
    profile->profile_id = static_cast<uint32_t>(id);
    if (id == 0)
        return;
    char path[PORTAL_PATH_SIZE];
    std::snprintf(path, sizeof path, "/tmp/profile%d/portal.conf", id);
    if (access(path, F_OK) == 0)
        profile->portal_enabled = 1;
}

void add_extra_vlans(ssid_profile_info *profile, char *value) {
    add_ssid_extra_vlan_list(&profile->extra_vlan_list, value, &profile->num_extra_vlans);
}

void add_vaps(ssid_profile_info *profile, char *value) {
    char *rest;
    for (char *name = strtok_r(value, ",", &rest); name != nullptr; name = strtok_r(nullptr, ",", &rest))
        create_and_add_vap(&profile->vap_data_list, name, &profile->num_vaps);
}

void set_ssid(ssid_profile_info *profile, char *value) {
    // The whole field goes into records of roles, where nothing of a longer name before this one may be left.
    std::memset(profile->ssid, 0, sizeof profile->ssid);
    std::snprintf(profile->ssid, sizeof profile->ssid, "%s", value);
}

void set_external_interface(ssid_profile_info *profile, char *value) {
    char *const copy = strdup(value);
    if (copy == nullptr)
        return;
    std::free(profile->external_interface);
    profile->external_interface = copy;
}

void set_security(ssid_profile_info *profile, char *value) {
    if (std::strcmp(value, "EAP") != 0)
        return;
    profile->dot1x_enabled = 1;
    profile->is_1x_configured = 1;
}

/// Only the low bits of a number that is too wide for its field are kept.
template <auto member> void set_number(ssid_profile_info *profile, char *value) {
    using field_type = std::remove_reference_t<decltype(profile->*member)>;
    profile->*member = static_cast<field_type>(to_number(value));
}

// Flags are bit-fields, which no pointer to a member can name.
#define SET_FLAG(flag) [](ssid_profile_info *profile, char *value) { profile->flag = is_odd(value); }

constexpr config_key KEYS[] = {
    {"SSID_PROFILE_ID", set_profile_id},
    {"ALL_EXTRA_SSID_VLAN_LIST", add_extra_vlans},
    {"VAP_LIST", add_vaps},
    {"WL_PROFILE_SSID", set_ssid},
    {"ROLE_VALUE", set_ssid},
    {"REMOTE_BRIDGING_ENABLED", set_number<&ssid_profile_info::ena_remote_bridging>},
    {"ExternalDevice", set_external_interface},
    {"IAPC_ENABLE", set_number<&ssid_profile_info::iapc_path>},
    {"REMOTE_IAPC_ENABLED", set_number<&ssid_profile_info::remote_iapc_enabled>},
    {"PORTAL_RADIUS_ACCT_ENABLED", set_number<&ssid_profile_info::portal_radius_acc_enabled>},
    {"VLAN_ID", set_number<&ssid_profile_info::ap_vlan>},
    {"PER_USER_BANDWIDTH_ENABLED", set_number<&ssid_profile_info::per_user_bw_enable>},
    {"PER_USER_BANDWIDTH_DOWNLOAD_LIMIT", set_number<&ssid_profile_info::per_user_bw_down_limit>},
    {"PER_USER_BANDWIDTH_UPLOAD_LIMIT", set_number<&ssid_profile_info::per_user_bw_up_limit>},
    {"AP_IS_PORTAL_CONFIGURED", set_number<&ssid_profile_info::is_portal_configured>},
    {"AP_SECFILE", set_security},
    {"ROLE_PROFILE_ENABLED", SET_FLAG(flags.role_profile_enabled)},
    {"INHERIT_FROM_SSID", SET_FLAG(role_flags.inherit_ssid_settings_enabled)},
    {"IS_ROLE_PROFILE", SET_FLAG(flags.is_role_profile)},
    {"WEBQ_ENABLED", SET_FLAG(flags.webq_enabled)},
    {"FIREWALL_ENABLED", SET_FLAG(flags.firewall_enabled)},
    {"APP_FIREWALL_ENABLED", SET_FLAG(flags.app_firewall_enabled)},
    {"AP_VLAN_ENABLED", SET_FLAG(role_flags.ap_vlan_enabled)},
    {"CONTENT_ANALYTICS_ENABLED", SET_FLAG(flags.content_analytics_enabled)},
    {"APC_ENABLED", SET_FLAG(flags.apc_enabled)},
    {"MESH_ENABLED", SET_FLAG(flags.is_mesh_enabled)},
};

#undef SET_FLAG

/// Reads the id out of a line "PROFILE <id> <name>"; the name is not needed.
///
/// @return the id; `id_before` when the line is another one
int profile_id_of_line(const char *line, int id_before) {
    constexpr char WORD[] = "PROFILE";
    constexpr size_t WORD_LENGTH = sizeof WORD - 1;
    if (std::strncmp(line, WORD, WORD_LENGTH) != 0)
        return id_before;
    const char *const number = line + WORD_LENGTH;
    char *end;
    (void)std::strtol(number, &end, 10);
    return end == number ? id_before : to_number(number);
}

}  // namespace

void read_wl_conf(const char *conf_file) {
    if (conf_file == nullptr) {
        WL_LOG(3, "conf file name not passed");
        return;
    }
    FILE *const file = std::fopen(conf_file, "re");
    if (file == nullptr) {
        const int error = errno;
        WL_LOG(2, "Unable to open conf file : %s errno : %s", conf_file, error_text(error));
        return;
    }
    char *line = nullptr;
    size_t size = 0;
    int id = 0;
    while (getline(&line, &size, file) != -1) {
        // A line that does not match deliberately stands for the profile before it.
        id = profile_id_of_line(line, id);
        WL_LOG(2, "Initializing configuration for ProfileID : %d", id);
        init_ssid_config(static_cast<uint32_t>(id));
    }
    print_all_ssid_config();
    std::free(line);
    std::fclose(file);
}

void read_ssid_config_file(const char *path, ssid_profile_info *profile) {
    FILE *const file = std::fopen(path, "re");
    if (file == nullptr) {
        const int error = errno;
        WL_LOG(3, "Could not open SSID profile conf file : %s, error : %s", path, error_text(error));
        return;
    }
    char line[LINE_SIZE];
    for (int number = 1; std::fgets(line, sizeof line, file) != nullptr; number++) {
        line[std::strcspn(line, "\n")] = '\0';
        if (line[0] == '\0')
            continue;
        char *const separator = std::strchr(line, '=');
        if (separator == nullptr) {
            WL_LOG(3, "Invalid config line [%s] at line# [%d]", line, number);
            continue;
        }
        *separator = '\0';
        fill_ssid_profile_data_config(profile, separator + 1, line, number);
    }
    std::fclose(file);
}

void fill_ssid_profile_data_config(ssid_profile_info *profile, char *value, const char *key, int /*line*/) {
    for (const config_key &known : KEYS) {
        if (std::strcmp(known.name, key) == 0) {
            known.apply(profile, value);
            return;
        }
    }
}
