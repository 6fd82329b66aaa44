/// Synchronisation of client data with the other access points through the synch agent: registers the SSIDs, answers
/// requests for clients, asks the neighbours for theirs, announces portal logins. Framing is common_synch's. Main
/// thread only.
#pragma once

#include <cstdint>

#include "common_synch.h"
#include "wl_events.h"

struct ssid_profile_info;
struct wl_client_info;
struct vre_vg_evt_data;

/// "VRE.inter_ap_synch".
void handle_inter_ap_synch_params(vre_iw_cmd_t e, void *buf, int len);

/// Sends the parameters of the synchronisation to the agent.
///
/// @param parameters  the 2 bytes of a vre_inter_ap_param; may be null, which is logged
/// @return 0 or -1
int handle_inter_ap_params(const void *parameters);

/// Registers SSIDs with the synch agent.
///
/// @param all  1: every profile (a new connection); 0: those that were refused or whose interface was down
/// @return 0
int check_and_register_ssids(int all);

/// Registers the SSID of a profile with the synch agent. Only the agent's answer makes it registered.
///
/// @param profile  may be null, which is logged
/// @return 0 when the interface is up, whether the send succeeds, fails or lacks memory, and also when nothing is sent
///         because the profile is a mesh; else -1
[[nodiscard]] int register_ssid_with_synch_agent(ssid_profile_info *profile);

/// Withdraws the SSID of a profile from the synch agent.
///
/// @param profile  may be null, which is logged
/// @return 0 when the profile uses the agent, whether the send succeeds or not; else -1
[[nodiscard]] int unregister_ssid_with_synch_agent(ssid_profile_info *profile);

/// Marks every profile as not registered: the connection is gone.
void synch_disconn_update_ssid_profiles();

/// Acts on a packet of type 10, 33 or 34 for every profile whose SSID is the packet's application id.
void process_synch_packet(const uint8_t *payload, const app_header *header);

/// The neighbours have changed: asks them for the clients of every SSID.
void handle_rf_neighbor_list_update();

/// Asks the neighbours for the clients of an SSID.
///
/// @param flag  1 after a registration or on request; 0 after a change of the neighbours
/// @return 0 or -1
[[nodiscard]] int send_cl_info_req_packet(ssid_profile_info *profile, uint8_t flag);

/// Sends the active clients of a profile, in as many packets as it takes. A packet that cannot be sent at once drops
/// the connection, and the rest of the answer with it; one that there is no memory for is left out.
void send_all_cl_info_for_ssid(ssid_profile_info *profile, const app_header *request);

/// Announces the portal login of a client that has become active, also for a profile that does not use the agent. A
/// client without a login, or past its blackout, is logged.
void send_cl_portal_login_packet(ssid_profile_info *profile, wl_client_info *client);

/// Reads the name of the communication VLAN's interface, g_comm_vlan_iface_name, from the sensor's configuration.
/// Without that file the name stays as it is.
void set_comm_vlan_iface_name();

/// @param name  the kernel is asked for its first 15 characters; may be null
/// @return 0 when the interface is up and running, else -1
[[nodiscard]] int is_iface_up(const char *name);

/// Sends a client's steering attempts to the neighbours.
///
/// @param mac   6 bytes; may be null, which is logged
/// @param code  subinfo code of the steering event; not sent
/// @return 0 or -1
int send_client_steering_attempts_packet(const uint8_t *mac, uint16_t code, uint8_t attempts);

/// Sends the gateway of a VLAN to the agent, unless the VLAN is behind NAT or a tunnel of this access point. Nothing of
/// the daemon calls it.
///
/// @param gateway  may be null, which is logged
/// @return 0, also when nothing is to be sent; -1
int send_vlan_gateway_info_packet(const vre_vg_evt_data *gateway);
