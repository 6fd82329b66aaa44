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

int send_cl_info_req_packet(ssid_profile_info *, uint8_t) {
    return 0;
}

void receive_synch_data() {}

void set_comm_vlan_iface_name() {}

int send_client_steering_attempts_packet(const uint8_t *, uint16_t, uint8_t) {
    return 0;
}
