// A key file of an SSID profile, of any bytes.
#include "profile_files.h"
#include "wl_vap_helpers.h"

namespace {

void check_vaps(const ssid_profile_info *profile) {
    require(static_cast<uint16_t>(list_length(profile->vap_data_list)) == profile->num_vaps);
    for (const list_t *node = profile->vap_data_list; node != nullptr; node = node->next) {
        const auto *const vap = static_cast<const vapinfo *>(node->value);
        require(std::memchr(vap->name, '\0', sizeof vap->name) != nullptr);
        require(std::strpbrk(vap->name, ".,\n") == nullptr);
    }
}

void check_vlans(const ssid_profile_info *profile) {
    require(list_length(profile->extra_vlan_list) == profile->num_extra_vlans);
    for (list_t *node = profile->extra_vlan_list; node != nullptr; node = node->next)
        require(list_search_element(&node->next, lt_compare_extra_vlan, node->value) == LIST_NOT_FOUND);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    input_bytes = data;
    input_size = size;
    ssid_profile_info *const profile = create_ssid_profile_data();
    read_ssid_config_file(INPUT_PATH, profile);
    check_vaps(profile);
    check_vlans(profile);
    require(std::memchr(profile->ssid, '\0', sizeof profile->ssid) != nullptr);
    print_ssid_profile_data_config(profile);
    if (check_needed_ssid_config_present(profile) == 0)
        require(profile->num_vaps != 0 && profile->external_interface != nullptr);
    free_ssid_profile_info(profile);
    return 0;
}
