/// VLANs of clients. A VLAN comes from the SSID, from the client's role or from the RADIUS server, the last being the
/// strongest; the strongest that is known is checked against what the SSID allows and told to the wireless driver. Main
/// thread only.
#pragma once

#include <cstdint>

#include "lists.h"
#include "wl_common.h"

struct ssid_profile_info;
struct wl_client_info;

/// Where a VLAN is from; the higher the stronger.
enum vlan_source : uint8_t {
    CLIENT_SSID_VLAN = 1,
    CLIENT_ROLE_VLAN = 2,
    CLIENT_PER_USER_VLAN = 3,
};

constexpr uint32_t VLAN_NOT_REQUESTED = 0xFFFFFFFF;

/// What set_client_vlan_with_priority did.
enum vlan_outcome : int {
    VLAN_REFUSED = 0,
    VLAN_STORED = 1,
    VLAN_NO_CLIENT = 2,
};

/// A VLAN that the RADIUS server has given to an event's client.
///
/// @param info  may be null
void handle_vre_dynamic_vlan(vre_iw_cmd_t event, wl_evt_info_t *info, int len);

/// Gives a client a VLAN, unless it has one from a stronger source.
///
/// @param client  its record; null when it is not known: it is then looked for, and added to the cache of its SSID
/// @param ifname  VAP interface to tell; null: every VAP of the SSID
void call_handle_dynamimc_vlan_sh(uint32_t profile_id, const uint8_t *mac, uint32_t vlan, uint8_t source,
                                  wl_client_info *client, const char *ifname);

/// Keeps the VLAN of a client if its source is at least as strong as that of the one it has.
///
/// @param client  receives the client's record when it is null
/// @param ssid    may be null
/// @return a vlan_outcome
[[nodiscard]] int set_client_vlan_with_priority(wl_client_info **client, uint32_t vlan, uint8_t source,
                                                uint32_t profile_id, const uint8_t *mac, ssid_profile_info *ssid);

/// Decides on a VLAN by what the SSID allows.
///
/// @param ssid          null when the profile is not loaded: its file is read
/// @param vap_list_out  receives the VAPs of the SSID (vapinfo records); null when it has none
/// @param list_created  receives 1 when that list is the caller's to free, else 0
/// @return the VLAN to apply, -1 for none
[[nodiscard]] int32_t check_is_valid_vlan(uint32_t profile_id, uint32_t vlan, ssid_profile_info *ssid,
                                          list_t **vap_list_out, uint8_t *list_created);

/// Reads the VLANs that clients of an SSID may be given into its profile.
void read_ssid_extra_vlan_list(uint32_t profile_id, ssid_profile_info *ssid);
