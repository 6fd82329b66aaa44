/// The traffic test of a client. Main thread only.
#pragma once

#include "wl_events.h"

/// "VRE.Target.AP.Traffic.details" and "VRE.Target.AP.Traffic.PID".
void wl_handle_traffic_test_details(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.node_authorize": starts an armed test.
void vre_handle_traffic_authorized_event(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.node_leave": stops the test.
void vre_handle_traffic_leave_event(vre_iw_cmd_t e, void *buf, int len);
