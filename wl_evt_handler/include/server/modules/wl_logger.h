/// Readable lines of the client events, in the words of the label catalogue: in the system log, one an event, and in
/// the dump files of stored connection records. Main thread only; wl_log_evt runs under the mutex of conn_cb when it
/// writes a dump.
#pragma once

#include <cstdint>
#include <cstdio>

#include "wl_common.h"
#include "wl_events.h"

/// Texts of the IEEE 802.11 status codes 0 to 38 and reason codes 0 to 13.
extern const char *const vre_status_strings[39];
extern const char *const vre_reason_strings[14];

/// Every event: writes its line, and what it changes of the settings.
///
/// @param e    index of the event
/// @param buf  payload, followed by at least 64 zero bytes; null: no payload
/// @param len  bytes of payload, without the zeros
void wl_logger(vre_iw_cmd_t e, void *buf, int len);

/// Opens the system log.
void init_logger();

/// Closes the system log.
void deinit_logger();

/// Formats one event and writes it. Reads no byte beyond the lengths given; keeps none of the pointers.
///
/// @param fp                 a dump file; null: the system log, and the debug log at level 6
/// @param cl_mac, bssid      6 bytes; null: an empty text
/// @param ssid               `ssid_len` bytes, which need no NUL; null: an empty text
/// @param ssid_len           cut to 0..32
/// @param info_code          0 to 2147483647 are shown as they are, the rest as negative numbers
/// @param subinfo_code       what the info code makes of it
/// @param subinfo_value      `subinfo_value_len` bytes, which need no NUL; null: no value
/// @param subinfo_value_len  0 or more; means nothing without a value
/// @param timestamp          number at the head of a line of a dump file, milliseconds; of no use without `fp`
/// @param evt_info           the decoded event, whose bandwidth rule stands for an absent value; may be null
void wl_log_evt(FILE *fp, const uint8_t *cl_mac, const uint8_t *bssid, const char *ssid, int ssid_len,
                uint32_t info_code, uint16_t subinfo_code, const uint8_t *subinfo_value, int subinfo_value_len,
                int timestamp, const wl_evt_info_t *evt_info);
