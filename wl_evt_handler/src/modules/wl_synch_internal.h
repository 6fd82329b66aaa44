/// What the sources of the synchronisation share: how the clients of an SSID become the records of a packet. Main
/// thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "wl_cl_info.h"
#include "wl_ssid_profile.h"
#include "wl_utils.h"

/// Subtypes of SYNCH_CLIENT_INFO.
constexpr uint8_t CLIENT_INFO_REQUEST = 1;
constexpr uint8_t CLIENT_INFO_ANSWER = 2;

/// @return seconds of the wall clock, the low 32 bits on every machine
int32_t wall_clock_seconds();

/// The key of a client that the neighbours get: that of the full authentication, else that of opportunistic key
/// caching. Only a key that expires this very second is left out: one that has expired is deliberately sent.
///
/// @return null when there is none
[[nodiscard]] const dot1x_pmk_cl_data *pmk_to_send(const wl_client_info *client, const os_reltime *now);

/// The portal login of a client whose blackout lies ahead, by the 32 bits of both times: also across their wrap.
///
/// @param cur_time  seconds of the wall clock
/// @return null when there is none
[[nodiscard]] const portal_cl_auth_info *portal_login_to_send(const wl_client_info *client, int32_t cur_time);

/// Bytes of a client's records; 0 when there is nothing to send of it.
size_t get_cl_data_len(const ssid_profile_info *profile, const wl_client_info *client, int32_t cur_time,
                       const os_reltime *now);

/// Bytes of a key's items.
size_t get_okc_info_len(const dot1x_pmk_cl_data *pmk);

/// Bytes of a portal login's items.
size_t get_portal_cl_auth_info_len(const ssid_profile_info *profile, const portal_cl_auth_info *auth);

/// Writes the records of a client.
///
/// @param buf  get_cl_data_len() bytes; a key without an identity leaves some of them unused
/// @return the position after the last byte written
uint8_t *fill_client_synch_info(const ssid_profile_info *profile, const wl_client_info *client, uint8_t *buf,
                                int32_t cur_time, const os_reltime *now);

/// Writes the items of a key; none when it has no identity.
///
/// @param buf  get_okc_info_len() bytes
/// @return the position after the last byte written
uint8_t *fill_cl_pmk_info(const wl_client_info *client, const dot1x_pmk_cl_data *pmk, uint8_t *buf,
                          const os_reltime *now);

/// Writes the items of a portal login.
///
/// @param buf  get_portal_cl_auth_info_len() bytes
/// @return the position after the last byte written
uint8_t *fill_portal_cl_auth_info(const ssid_profile_info *profile, const wl_client_info *client,
                                  const portal_cl_auth_info *auth, uint8_t *buf, int32_t cur_time);
