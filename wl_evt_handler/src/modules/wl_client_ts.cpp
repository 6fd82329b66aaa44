#include "wl_client_ts.h"

void wl_client_ts(vre_iw_cmd_t, void *, int) {}

void vre_wl_client_ts_enable(vre_iw_cmd_t, void *, int) {}

void vre_wl_client_ts_dump(vre_iw_cmd_t, void *, int) {}

int wl_client_ts_enable(int) {
    return 0;
}

int wl_client_ts_dump(const void *) {
    return 0;
}

int wl_client_ts_init() {
    return 0;
}

int wl_detailed_client_ts_init() {
    return 0;
}

void wl_client_ts_deinit() {}
