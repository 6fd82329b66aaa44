/// Bandwidth control: limits for clients and SSIDs. Handlers run on the main thread.
#pragma once

#include "wl_events.h"

/// "VRE.bw.set": sets a limit.
void vre_bw_set_limit(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.bw.clr": clears a limit.
void vre_bw_clr_limit(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.bw.getstatus": writes the status dumps.
void bw_status(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.node_authorize": applies the SSID's limit to the client.
void bw_set_limit_node_authorized(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.node_leave": clears the client's limits.
void vre_bw_clr_limit_disassoc(vre_iw_cmd_t e, void *buf, int len);

/// Starts the module.
int bw_init();

/// Stops the module.
void bw_deinit();
