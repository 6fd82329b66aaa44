/// The APC feature of SSID profiles: whether it is on for a BSSID, and the identifier that its connection reports
/// carry. Runs on the main thread and on the timer thread.
#pragma once

#include <cstdint>

/// Reads a VAP's address again where it is not known yet.
///
/// @param bssid  6 bytes; may be null
/// @return 1 when a profile with the feature has a VAP of that BSSID, else 0
[[nodiscard]] int apc_check_bssid_is_feature_enabled(const uint8_t *bssid);

/// Builds the identifier from the last three bytes of both addresses and the time.
///
/// @param apc_id_buf  receives at most `apc_id_len` - 1 characters and a NUL
/// @return 0
[[nodiscard]] int apc_generate_id(const uint8_t *clmac, const uint8_t *bssid, char *apc_id_buf, int apc_id_len);
