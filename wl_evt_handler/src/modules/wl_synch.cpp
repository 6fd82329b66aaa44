#include "wl_synch.h"

void handle_inter_ap_synch_params(vre_iw_cmd_t, void *, int) {}

int handle_inter_ap_params(const void *) {
    return 0;
}

int check_and_register_ssids(int) {
    return 0;
}

int register_ssid_with_synch_agent(ssid_profile_info *) {
    return 0;
}

int unregister_ssid_with_synch_agent(ssid_profile_info *) {
    return 0;
}

void synch_disconn_update_ssid_profiles() {}

void process_synch_packet(const uint8_t *, const app_header *) {}

void handle_rf_neighbor_list_update() {}

int send_cl_info_req_packet(ssid_profile_info *, uint8_t) {
    return 0;
}

void send_cl_portal_login_packet(ssid_profile_info *, wl_client_info *) {}

void set_comm_vlan_iface_name() {}

int send_client_steering_attempts_packet(const uint8_t *, uint16_t, uint8_t) {
    return 0;
}
