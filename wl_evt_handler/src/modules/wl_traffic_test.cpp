#include "wl_traffic_test.h"

void wl_handle_traffic_test_details(vre_iw_cmd_t, void *, int) {}

void vre_handle_traffic_authorized_event(vre_iw_cmd_t, void *, int) {}

void vre_handle_traffic_leave_event(vre_iw_cmd_t, void *, int) {}
