#include "hostapd_event.h"

void handle_vre_hostapd_event(vre_iw_cmd_t, void *, int) {}
