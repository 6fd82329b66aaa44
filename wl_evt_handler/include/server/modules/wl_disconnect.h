/// Client disconnect on request. Main thread only.
#pragma once

#include "wl_events.h"

/// "VRE.client.disconnect": kicks the client off every VAP of its SSID.
void handle_vre_disconnect_event(vre_iw_cmd_t e, void *buf, int len);
