/// Synchronisation of client data with the other access points through the synch agent. Main thread only.
#pragma once

#include <cstdint>

#include "wl_events.h"

struct ssid_profile_info;

/// "VRE.inter_ap_synch".
void handle_inter_ap_synch_params(vre_iw_cmd_t e, void *buf, int len);

/// Sends the 2-byte parameters to the synch agent.
int handle_inter_ap_params(const void *parameters);

/// Registers the SSIDs with the synch agent: all on a new connection, else those it refused.
int check_and_register_ssids(int new_connection);

/// Registers the SSID of a profile with the synch agent.
///
/// @return 0 when the request was sent or need not be; else -1
int register_ssid_with_synch_agent(ssid_profile_info *profile);

/// Withdraws the SSID of a profile from the synch agent.
///
/// @return 0 when the request was sent; else -1
int unregister_ssid_with_synch_agent(ssid_profile_info *profile);

/// Asks the neighbours for the clients of an SSID.
///
/// @param flag  1 after a registration or on request; 0 after a change of the neighbours
int send_cl_info_req_packet(ssid_profile_info *profile, uint8_t flag);

/// Reads from the synch agent's socket and acts on it.
void receive_synch_data();

/// Finds the interface of the communication VLAN.
void set_comm_vlan_iface_name();

/// Sends a client's steering attempts to the neighbours.
int send_client_steering_attempts_packet(const uint8_t *value, uint16_t code, uint8_t attempts);
