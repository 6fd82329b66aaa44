/// Client troubleshooting: why a client could not connect. Handlers run on the main thread.
#pragma once

#include <cstdint>

#include "wl_events.h"

/// A client's connection record: what is known of the VAP that it joins.
struct [[gnu::packed]] cl_conn_evt_rec {
    uint8_t is_dot1x;
    uint8_t is_portal_enabled;
    uint16_t vlan;
    uint8_t is_tunnel_enabled;
    uint8_t is_nat_enabled;
};

/// Every event: adds it to the client's connection record.
void wl_client_ts(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.client_ts_conn_err_log_enable".
void vre_wl_client_ts_enable(vre_iw_cmd_t e, void *buf, int len);

/// "VRE.client_ts_conn_err_log_dump".
void vre_wl_client_ts_dump(vre_iw_cmd_t e, void *buf, int len);

/// Switches the tracking on or off.
int wl_client_ts_enable(int enable);

/// Dumps error records as the 38-byte request asks.
int wl_client_ts_dump(const void *request);

/// Starts the module.
int wl_client_ts_init();

/// Starts the detailed log.
int wl_detailed_client_ts_init();

/// Stops the module.
void wl_client_ts_deinit();
