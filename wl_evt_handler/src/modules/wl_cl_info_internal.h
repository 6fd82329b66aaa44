/// What the sources of the client cache share: the records and who is here (wl_cl_info.cpp), the event that brings and
/// takes keys and portal logins (wl_cl_info_evt.cpp) and the dumps (wl_cl_info_dump.cpp). Main thread only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>

#include "wl_cl_info.h"
#include "wl_common.h"

/// The actions of "VRE.cl_info". Each checks that the event's codes are its own.
///
/// @param info  decoded event with a client address
void handle_cl_pmk_add_evt(const wl_evt_info_t *info);
void handle_cl_pmk_del_evt(const wl_evt_info_t *info);
void handle_portal_cl_auth_add(const wl_evt_info_t *info);
void handle_portal_cl_auth_del(const wl_evt_info_t *info);

/// Copies a key out of an event. What the payload lacks of the record reads as 0.
///
/// @param payload  a vre_dot1x_pmk_evt_data, whose identity goes on to the end
/// @param pmk      without an identity; partly filled after a failure
/// @return 0; -1 without a payload, when the key is too long, or when there is no memory for the identity or it is
/// longer
///         than the payload
[[nodiscard]] int fill_cl_pmk_info_from_evt(std::span<const uint8_t> payload, dot1x_pmk_cl_data *pmk);

/// Copies a portal login out of an event. What the payload lacks of the record reads as 0.
///
/// @param payload  a vre_portal_cl_auth_evt_info
/// @return 0; -1 without a payload
[[nodiscard]] int fill_cl_portal_login_info_from_evt(std::span<const uint8_t> payload, portal_cl_auth_info *auth);

/// The dumps write one field a line. Bytes of keys are never written. What cannot be printed of a client's own texts
/// (its identity, address, user name, role and organisational unit) is written as "?"; the names of SSIDs, interfaces
/// and VAPs are written as the access point has them.
void dump_client_role_info_for_all_ssid(FILE *out);

/// @param mac  client to look for; all ones: every client of every profile
void dump_client_for_all_ssid(FILE *out, const uint8_t mac[6]);
void dump_ssid_profile_info(FILE *out, const ssid_profile_info *profile);
void dump_vaps(FILE *out, const ssid_profile_info *profile);
void dump_client_info(FILE *out, const wl_client_info *client);

/// The parts of a client may be null: only their absence is written then.
///
/// @param kind  which key it is
void dump_pmk_info(FILE *out, const char *kind, const dot1x_pmk_cl_data *pmk);
void dump_cl_hapd_info(FILE *out, const hapd_cl_info *hapd);
void dump_cl_portal_info(FILE *out, const portal_cl_info *portal);
void dump_cl_role_info(FILE *out, const wl_client_info *client);
void dump_cl_role_info_brief(FILE *out, const wl_client_info *client);
