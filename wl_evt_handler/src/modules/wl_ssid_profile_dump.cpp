#include "debug_log.h"
#include "wl_ssid_profile.h"
#include "wl_vap_helpers.h"

void print_ssid_profile_data_config(const ssid_profile_info *profile) {
    WL_LOG(2, "profile_id [%d] ssid [%s] ap_vlan [%u] external_interface [%s]", static_cast<int>(profile->profile_id),
           profile->ssid, profile->ap_vlan, text_or_null(profile->external_interface));
    WL_LOG(2, "num_vaps [%u] num_extra_vlans [%u]", profile->num_vaps, profile->num_extra_vlans);
    for (const list_t *node = profile->vap_data_list; node != nullptr; node = node->next) {
        const auto *const vap = static_cast<const vapinfo *>(node->value);
        char bssid[18];
        WL_LOG(2, "vap [%s] bssid [%s]", vap->name, macaddr_ntoa_r(vap->bssid, bssid));
    }
    for (const list_t *node = profile->extra_vlan_list; node != nullptr; node = node->next)
        WL_LOG(2, "extra vlan [%d]", *static_cast<const int32_t *>(node->value));
    WL_LOG(2, "ena_remote_bridging [%u] iapc_path [%u] remote_iapc_enabled [%u]", profile->ena_remote_bridging,
           profile->iapc_path, profile->remote_iapc_enabled);
    WL_LOG(2, "dot1x_enabled [%u] is_1x_configured [%u]", profile->dot1x_enabled, profile->is_1x_configured);
    WL_LOG(2, "portal_enabled [%u] is_portal_configured [%u] portal_radius_acc_enabled [%u] portal_ssid_info [%s]",
           profile->portal_enabled, profile->is_portal_configured, profile->portal_radius_acc_enabled,
           profile->portal_ssid_info != nullptr ? "present" : "absent");
    WL_LOG(2, "per_user_bw_enable [%u] per_user_bw_down_limit [%u] per_user_bw_up_limit [%u]",
           profile->per_user_bw_enable, profile->per_user_bw_down_limit, profile->per_user_bw_up_limit);
    WL_LOG(2, "firewall_enabled [%u] app_firewall_enabled [%u] webq_enabled [%u] content_analytics_enabled [%u]",
           profile->flags.firewall_enabled, profile->flags.app_firewall_enabled, profile->flags.webq_enabled,
           profile->flags.content_analytics_enabled);
    WL_LOG(2, "apc_enabled [%u] is_mesh_enabled [%u]", profile->flags.apc_enabled, profile->flags.is_mesh_enabled);
    WL_LOG(2, "role_profile_enabled [%u] is_role_profile [%u] ap_vlan_enabled [%u] inherit_ssid_settings_enabled [%u]",
           profile->flags.role_profile_enabled, profile->flags.is_role_profile, profile->role_flags.ap_vlan_enabled,
           profile->role_flags.inherit_ssid_settings_enabled);
    WL_LOG(2, "role_derivation_rules [%d]", list_length(profile->role_derivation_rules));
    WL_LOG(2, "nack [%u] send_cl_info_req [%u] synch_registered [%u] clients [%zu]", profile->nack,
           profile->send_cl_info_req, profile->synch_registered, profile->cl_info_hash.entry_count);
}

void print_all_ssid_config() {
    WL_LOG(2, "+++++++++++++ Dumping all ssid configs START ++++++++++++++");
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    while (hash_table_iter_next(&profiles) != 0)
        print_ssid_profile_data_config(static_cast<const ssid_profile_info *>(profiles.entry->value));
    WL_LOG(2, "+++++++++++++ Dumping all ssid configs END ++++++++++++++");
}
