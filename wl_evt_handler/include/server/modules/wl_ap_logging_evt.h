/// Reports of the access point's own events.
///
/// The main thread alone calls all of this, so there is no lock: the start sets the module up, the queue of the bus
/// hands each event to its handler. A handler takes the event's index, its payload (null is none; it stays the
/// caller's) and the payload's bytes; what a short payload lacks counts as zeros.
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
/// @param event  the event as it came, whose name the log tells when it is skipped
/// @param info   its info code is the event's index or already the server's code, and becomes the server's code (0:
///               none) unless a file of another process stops all reports; its value is the text compared
/// @param len    bytes of the payload that the event came with; not looked at
/// @return 0 admitted, which counts as sent even without memory for the report; 1 skipped or failed; 3 throttled
int wl_ap_ts(vre_iw_cmd_t event, wl_evt_info_t *info, int len);

/// Starts the module: the table, the configuration, and what an earlier run has reported, before the first event.
///
/// @return 0, also when the cache file cannot be read; -1 when memory for the table is short, in which case nothing is
///     reported, or the configuration cannot be set up, in which case the defaults hold for what it lacks and the cache
///     file is not read
int wl_ap_ts_init();
