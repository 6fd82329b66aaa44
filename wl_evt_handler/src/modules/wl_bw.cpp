#include "wl_bw.h"

#include "vap_profile_map.h"

void vre_bw_set_limit(vre_iw_cmd_t, void *, int) {}

void vre_bw_clr_limit(vre_iw_cmd_t, void *, int) {}

void bw_status(vre_iw_cmd_t, void *, int) {}

void bw_set_limit_node_authorized(vre_iw_cmd_t, void *, int) {}

void vre_bw_clr_limit_disassoc(vre_iw_cmd_t, void *, int) {}

int bw_init() {
    restore_profile_vap_cache();
    return 0;
}

void bw_deinit() {}
