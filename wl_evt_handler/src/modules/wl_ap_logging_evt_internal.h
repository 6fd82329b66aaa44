/// What the sources of the access point's reports share: the throttling (wl_ap_logging_evt_throttle.cpp), the file that
/// remembers it (wl_ap_logging_evt_cache.cpp) and the events (wl_ap_logging_evt.cpp). Main thread only.
#pragma once

#include <cstdint>
#include <cstdio>

#include "big_endian.h"
#include "lists.h"
#include "vre_hash_table.h"
#include "wl_common.h"

struct dirent;

constexpr char AP_LOGGING_CACHE_FILE[] = "/tmp/ap_logging_evt_cache";
constexpr int CACHE_APPEND = 1;  // modes of perform_file_edit
constexpr int CACHE_EDIT = 2;

/// A text that was reported.
struct ap_logging_evt_node {
    uint32_t time;  // seconds of os_get_reltime
    char buf[255];  // NUL-terminated, cut where needed
};
static_assert(sizeof(ap_logging_evt_node) == 260);

/// How one event of the server is throttled, and what was reported. It is its own key in the table.
struct ap_logging_evt_data {
    uint32_t evt_id;
    uint8_t throttle_disabled;  // not 0: every occurrence is reported
    uint8_t logging_file;       // not 0: occurrences are not written to the cache file
    int32_t throttle_delta;     // seconds between two reports of one text
    list_t *evt_node_list;      // ap_logging_evt_node
};

/// A record of the cache file.
struct [[gnu::packed]] file_ap_logging_evt_node {
    be_u32 evt_id;
    be_u32 time;
    char buf[255];
    uint8_t pad;
};
static_assert(sizeof(file_ap_logging_evt_node) == 264);

/// ap_logging_evt_data by evt_id.
extern hash_table_t ap_logging_hash_t;

/// Reads the configuration.
///
/// @return 0; -1 when it cannot be opened or memory is short
[[nodiscard]] int init_ap_logging_config();

/// Reads what an earlier run has reported.
///
/// @return 0; -1 when the file cannot be opened; 1 when memory is short
int init_ap_logging_cache(const char *path);

/// @return the entry of an event, the table's; null when there is none
[[nodiscard]] ap_logging_evt_data *find_evt_data(uint32_t evt_id);

/// Adds an entry with the defaults: 12 hours between two reports of one text, kept in the cache file.
///
/// @return the entry, the table's; null when memory is short
[[nodiscard]] ap_logging_evt_data *add_default_evt_data(uint32_t evt_id);

/// Adds a text as the last of an entry.
///
/// @param text  at most 254 characters of it are kept
/// @return the node, the entry's; null when memory is short
[[nodiscard]] ap_logging_evt_node *add_evt_node(ap_logging_evt_data *data, uint32_t time, const char *text);

/// @return the server's code of an event; 0 for one that is not reported
[[nodiscard]] uint32_t wl_translate_info_code_for_server(uint32_t info_code);

/// Writes a text that was reported to the cache file.
///
/// @param rec   holds the record that CACHE_APPEND writes
/// @param mode  CACHE_APPEND for a new text; else the time of the text changes
/// @return 0; 1 when the node is null or the file cannot be opened
int perform_file_edit(const char *path, uint32_t evt_id, const ap_logging_evt_node *node, file_ap_logging_evt_node *rec,
                      int mode);

/// Writes the record of a text again with the node's time. The file is open for appending, so the new record lands at
/// the end and the old one deliberately stays: a restart finds both.
void edit_log_timestamp(FILE *file, uint32_t evt_id, const ap_logging_evt_node *node);

/// Posts a report on the bus.
///
/// @param info  its info code is the server's
/// @return 0; -1 when memory is short
int send_ap_ts_info(vre_iw_cmd_t event, const wl_evt_info_t *info);

/// Finds the SSID that a VAP serves in the files of the active SSID profiles.
///
/// @param ssid_out  34 bytes
/// @return 0 found, 1 not found
[[nodiscard]] int translater_vap_to_ssid(const char *vap_name, char *ssid_out);

/// @return 1 for the directory of an active SSID profile that is no role, else 0
int profile_dir_selector(const dirent *entry);

/// @param dir       name of a directory in "/tmp"
/// @param ssid_out  34 bytes
/// @return 0 when the SSID was read, else 1
[[nodiscard]] int read_ssid_from_wl_conf(const char *dir, char *ssid_out);
