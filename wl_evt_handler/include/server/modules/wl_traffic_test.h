/// Traffic test: this access point as the target of one client's test. Events announce the test server and the client;
/// when the client is authorised on the announced VAP a script is started, and it is stopped when the client leaves or
/// the next test begins. One test at a time. The event bus calls the handlers on the main thread; they wait for the
/// shell, not for what it runs.
#pragma once

#include "wl_events.h"

struct ssid_profile_info;

/// "VRE.Target.AP.Traffic.details" says who takes part, and a server arms the test; "VRE.Target.AP.Traffic.PID" is the
/// running script telling its process id. Other events of the group change nothing.
///
/// @param buf  a vre_traffic_test_evt_data, whose missing bytes are 0, or a vre_traffic_test_pid
void wl_handle_traffic_test_details(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.node_authorize": starts the script of an armed test when its client has come to its VAP.
void vre_handle_traffic_authorized_event(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.node_leave": stops the script and disarms the test when its client leaves its VAP.
void vre_handle_traffic_leave_event(vre_iw_cmd_t e, void *buf, int len);

/// @return the SSID profile of a test, the table's; null when there is none
[[nodiscard]] ssid_profile_info *vre_traffic_fetch_vap_info(int profile_id);
