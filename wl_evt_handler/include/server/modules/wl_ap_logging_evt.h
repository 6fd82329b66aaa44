/// Reports of the access point's own events. Main thread only.
#pragma once

#include "wl_common.h"
#include "wl_events.h"

/// "VRE.vap_down".
void handle_vre_vap_down(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.evt_tx_power_change".
void handle_vre_evt_txpow_change(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.evt_tx_power_not_changed".
void handle_vre_evt_txpow_not_changed(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.userspace_event".
void handle_vre_userspace_event(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.evt_chan_debug_info".
void handle_vre_evt_chan_info(vre_iw_cmd_t e, void *buf, int len);

/// Reports an event of the access point, unless the same was reported a short while ago.
///
/// @param info  its value is the text that is compared
/// @return 0 sent, 1 skipped or failed, 3 throttled
int wl_ap_ts(vre_iw_cmd_t event, const wl_evt_info_t *info, int len);

/// Starts the module.
int wl_ap_ts_init();
