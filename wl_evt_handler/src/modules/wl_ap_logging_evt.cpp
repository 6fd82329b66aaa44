#include "wl_ap_logging_evt.h"

void handle_vre_vap_down(vre_iw_cmd_t, void *, int) {}

void handle_vre_evt_txpow_change(vre_iw_cmd_t, void *, int) {}

void handle_vre_evt_txpow_not_changed(vre_iw_cmd_t, void *, int) {}

void handle_vre_userspace_event(vre_iw_cmd_t, void *, int) {}

void handle_vre_evt_chan_info(vre_iw_cmd_t, void *, int) {}

int wl_ap_ts(vre_iw_cmd_t, const wl_evt_info_t *, int) {
    return 1;
}

int wl_ap_ts_init() {
    return 0;
}
