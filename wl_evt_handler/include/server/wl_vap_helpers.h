/// Helpers of the modules that deal with VAPs and with simple configuration files: MAC addresses as texts, a reader of
/// key and value lines, and builders of the lists of VAPs and of extra VLANs. Main thread only, because the reader has
/// one buffer; the others keep no state.
#pragma once

#include <cstdint>
#include <cstdio>

#include "lists.h"

/// A VAP that carries an SSID; the value of an SSID profile's list of VAPs.
struct vapinfo {
    char name[16];     // interface name, NUL-terminated
    uint8_t bssid[6];  // all zero while it is not known
};
static_assert(sizeof(vapinfo) == 22);

/// Writes a MAC address as "00:1A:2B:3C:4D:5E".
///
/// @param out  18 bytes, the NUL included
/// @return `out`
char *macaddr_ntoa_r(const uint8_t mac[6], char *out);

/// Reads a MAC address of six digit pairs with one character, whatever it is, between them. Only digits and upper-case
/// letters are understood: any other character deliberately gives a wrong byte, not a failure.
///
/// @param out       cleared as a whole when it has room for an address
/// @param out_len   bytes of `out`, at least 6
/// @param text_len  characters of `text`
/// @return `out`; null, with a line on standard output, when `out` or the text is too short. The bytes before the end
///         of a short text are then in `out`
[[nodiscard]] uint8_t *macaddr_aton_r(uint8_t *out, int out_len, const char *text, int text_len);

/// Reads on to the next line that has a key and a value. A line is "key = value" with any run of blanks and "=" between
/// the two; a key is a run of letters, digits, "-", "_" and ":". Lines that are anything else are skipped, so "#" makes
/// a comment. A line of more than 1023 characters counts as several.
///
/// @param key    receives the key; may be null
/// @param value  receives the value, with its trailing blanks but without the end of the line; may be null
/// @return the key; null at the end of the file. Both texts live until the next call
[[nodiscard]] char *parse_config(FILE *file, char **key, char **value);

/// Adds a VAP at the head of a list, unless memory is short.
///
/// @param name   cut in place at its first "."; at most 15 characters of it are kept
/// @param count  increased when the VAP was added
void create_and_add_vap(list_t **list, char *name, uint16_t *count);

/// Appends a VLAN id, held as an int32_t of its own, to a list unless it is there or memory is short.
///
/// @param count  increased when the VLAN was added
void create_and_add_extra_vlan(list_t **list, int vlan_id, uint16_t *count);

/// Adds the VLAN ids of a comma-separated text. Each piece is a VLAN, an empty one is VLAN 0.
///
/// @param text   cut up in place
/// @param count  increased by the number of VLANs added
void add_ssid_extra_vlan_list(list_t **list, char *text, uint16_t *count);

/// Orders two VLAN ids (int32_t) for a list, looking at their low 16 bits only.
///
/// @return their difference as a signed 16-bit number; 0 when equal
int lt_compare_extra_vlan(const void *vlan_id, const void *other_vlan_id);
