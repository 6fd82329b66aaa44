/// Bandwidth control: one limit for each SSID's BSS and one for each of its stations, turned into command lines of the
/// traffic-control script. A station's limit is held until the station is authorized, applied while it is connected,
/// and removed when it leaves. A worker thread runs the commands and writes the changes that must outlive a restart to
/// "/tmp/.wl.bw_cache". The handlers run on the main thread and never wait for a script.
#pragma once

#include "wl_common.h"
#include "wl_events.h"

/// "VRE.bw.set": sets a BSS's or a station's limit.
void vre_bw_set_limit(vre_iw_cmd_t event, void *msg, int len);

/// Carries out the set request of a decoded event: `bw` with its limits, priority and flags.
///
/// @param info  its `bw` is completed with the station, the profile and the interface
void bw_set_limit(vre_iw_cmd_t event, wl_evt_info_t *info, int len);

/// "VRE.bw.clr": clears a BSS's limit with everything its profile holds, or a station's limit.
void vre_bw_clr_limit(vre_iw_cmd_t event, void *msg, int len);

/// "VRE.bw.getstatus": writes the rules to "/tmp/.wl.bw_hash.dmp" and the cache's records to "/tmp/.wl.bw_cache.dmp".
void bw_status(vre_iw_cmd_t event, void *msg, int len);

/// "VRE.node_authorize": applies the station's limit; one that has none gets a rule without limits.
void bw_set_limit_node_authorized(vre_iw_cmd_t event, void *msg, int len);

/// "VRE.node_leave": deletes the station's rule and drops its commands that still wait to be run.
void vre_bw_clr_limit_disassoc(vre_iw_cmd_t event, void *msg, int len);

/// Prepares the tables, replays the cache and opens it for writing. Called once, before any event.
///
/// @return 1; negative when the mutex, the table or the cache file could not be had: the rules then still work as far
///         as they can
int bw_init();

/// Stops the worker; the commands that wait are dropped.
void bw_deinit();
