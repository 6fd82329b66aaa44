/// Binds the daemon's handlers to the events of the bus, and holds the handlers that belong to no module: the
/// bandwidth-events control channel, smart steering, VLAN detection and VLAN gateways. Everything here runs on the main
/// thread, except that vlan_detected() may be asked from any.
#pragma once

#include <cstdint>

#include "wl_events.h"
#include "wl_evt_payloads.h"

/// VLANs that the sensor has seen, laid out as in vre_vlan_detected_info; 0 stands for untagged traffic. Other threads
/// read it while the main thread writes, so every access is a relaxed atomic one of a single byte.
extern uint8_t g_bitmap_vlans_detected[VLAN_BITMAP_SIZE];

/// Room for the text of vlans_detected_text(), its NUL included.
constexpr int VLANS_DETECTED_TEXT_SIZE = 128;

/// Binds every handler, in the order in which they are to run; a binding that fails is logged and left out. The bus
/// library calls it during registration.
///
/// @return 0 always
int wl_evt_register_events();

/// "VRE.bw.events": sets the debug level, or switches the simulator flag.
void handle_bw_events(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.smart_steering": tells the neighbours of a client's steering attempts.
void handle_vre_ss(vre_iw_cmd_t e, void *buf, int len);

/// Asks the sensor for the VLANs that it has seen.
void vre_request_vlan_detected_info();

/// "VRE.vlan.detector": adds one VLAN to those seen, or replaces them all.
void vre_handle_vlan_detected_info(vre_iw_cmd_t e, void *buf, int len);

/// @param vlan  0 to 4095
/// @return whether the sensor has seen the VLAN
[[nodiscard]] bool vlan_detected(int vlan);

/// Writes the list of the VLANs seen, NUL-terminated; it ends before the first VLAN that does not fit.
void vlans_detected_text(char (&text)[VLANS_DETECTED_TEXT_SIZE]);

/// Builds that list and drops it: a place to look at it with a debugger.
void dump_vlan_detected_info();

/// "VRE.vlan.gateway.info": only its length is looked at.
void handle_vlan_gateway_info(vre_iw_cmd_t e, void *buf, int len);

/// Adds a VAP to the VAP table, by the interface index in a special payload. Bound to no event.
void handle_add_or_lookup_vapinfo(vre_iw_cmd_t e, void *buf, int len);

/// Carries out an event of 96 to 106. Bound to no event: the bindings reach the modules directly.
void wl_handle_special_evt(vre_iw_cmd_t e, void *buf, int len);
