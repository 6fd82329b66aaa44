/// Relay of hostapd's events to roles and VLANs. Main thread only.
#pragma once

#include "wl_events.h"

/// "VRE.hostapd_event".
void handle_vre_hostapd_event(vre_iw_cmd_t e, void *buf, int len);
