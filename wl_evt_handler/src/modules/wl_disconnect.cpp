#include "wl_disconnect.h"

void handle_vre_disconnect_event(vre_iw_cmd_t, void *, int) {}
