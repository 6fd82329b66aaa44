/// Readable system-log lines, one an event. Main thread only.
#pragma once

#include "wl_events.h"

/// Every event: writes its line.
void wl_logger(vre_iw_cmd_t e, void *buf, int len);

/// Opens the system log.
void init_logger();
