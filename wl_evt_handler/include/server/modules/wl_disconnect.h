/// Client disconnect: when the management side wants a client off an SSID, the driver's private command kicks it off,
/// run through the shell. The event bus calls it on the main thread; it waits for the shell, not for the command.
#pragma once

#include "wl_events.h"

/// "VRE.client.disconnect": kicks the client off every open VAP of its SSID; one with 802.1X, a pre-shared key, SAMOG
/// or GAUTH is left alone. Any other event is ignored.
void handle_vre_disconnect_event(vre_iw_cmd_t e, void *buf, int len);
