/// Event records and message queues: the common module of the daemon and its peers.
///
/// A payload is a 10-byte header (client events only) followed by items of tag, length and value. The decoders fill a
/// wl_evt_info whose pointers lead into the payload: they allocate and copy nothing. Any thread may call these
/// functions on payloads of its own, except that tag 4 reaches the VAP table, which belongs to the main thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <mqueue.h>

#include "big_endian.h"
#include "wl_events.h"

/// Header of a client event (index below 67).
struct [[gnu::packed]] wl_header {
    uint8_t mac[6];
    be_u32 profile_id;
};
static_assert(sizeof(wl_header) == 10);

/// What precedes the value of every item.
struct [[gnu::packed]] wl_item_header {
    be_u32 tag;
    be_u32 length;  // bytes of value that follow
};
static_assert(sizeof(wl_item_header) == 8);

enum wl_tag_t : uint32_t {
    WL_INVALID_TAG = 0,
    WL_VAP_SSID = 1,
    WL_VAP_BSSID = 2,
    WL_VAP_NAME = 3,
    WL_VAP_INDEX = 4,
    WL_INFO_CODE = 5,
    WL_SUBINFO_CODE = 6,
    WL_SUBINFO_VALUE = 7,
    WL_BW_PRIORITY = 8,
    WL_BW_UPLOAD_LIMIT = 9,
    WL_BW_DOWNLOAD_LIMIT = 10,
    WL_BW_IS_PER_BSS_RULE = 11,
    WL_BW_APPLY_RULE = 12,
    WL_REQUEST_ATTR_PEER = 13,
    WL_REPLY_ATTR_PEER = 14,
    WL_TAG_MAX = 15,
};

/// A bandwidth request; also the record of the bandwidth cache file. The decoder fills pri, up, down and the flags.
struct [[gnu::packed]] bw_rule_info {
    uint8_t mac[6];
    uint8_t pri;
    be_i32 e;     // vre_iw_cmd_t
    be_i32 up;    // upload limit
    be_i32 down;  // download limit
    be_u32 profile_id;
    be_u32 classid;
    char interface[17];
    FLAG_BYTE_3(bss_rule, state_transition, to_state);
};
static_assert(sizeof(bw_rule_info) == 45);

/// A decoded event; everything no item has set is zero. The pointers lead into the payload, which must outlive them.
struct wl_evt_info {
    uint8_t *cl_mac;  // 6 bytes; null for events of the access point itself
    uint32_t profile_id;
    char *ssid;  // NUL-terminated
    int16_t ssid_len;
    uint8_t *bssid;  // 6 bytes
    char *name;      // VAP interface name, NUL-terminated
    int16_t name_len;
    uint32_t info_code;
    uint16_t subinfo_code;
    uint8_t *subinfo_value;
    uint16_t subinfo_value_len;
    bw_rule_info bw;
};
using wl_evt_info_t = wl_evt_info;

enum wl_message_queues {
    WL_MQ_START = 1233,
    WL_MQ_WL_KEY = 1234,
    WL_MQ_EXAMPLE1_KEY = 1235,
    WL_MQ_SPLASHD_KEY = 1236,
    WL_MQ_SENSORD_KEY = 1237,
    WL_MQ_HOSTAPD_KEY = 1238,
    WL_MQ_WGD_KEY = 1239,
    WL_MQ_WL_HANDLER_KEY = 1240,  // this daemon's own queue
    WL_MQ_SIMULATOR = 1241,
    WL_MQ_MAX = 1242,
};

constexpr int WL_MQ_SLOTS = 9;

/// Slot of a queue key in the three tables below.
constexpr unsigned wl_mq_slot(int key) {
    return static_cast<unsigned>(key) % WL_MQ_SLOTS;
}

extern const char p_mq_name[WL_MQ_SLOTS][64];
extern const int p_mq_maxmsg[WL_MQ_SLOTS];   // messages
extern const int p_mq_msgsize[WL_MQ_SLOTS];  // bytes a message

/// Set through the bandwidth-events channel; the daemon itself only stores and logs it.
extern int g_enable_simulator;

/// Decodes a payload; the header is expected when `e` is below 67. An SSID or interface name without NUL is cut in the
/// caller's buffer. Items are read within a window of `len` bytes, plus 10 where there is a header; beyond it they read
/// as 0.
///
/// @param data  `len` bytes, followed by at least 64 zero bytes that end texts and stand in for missing ones; may be
///              null, which clears the record
/// @param len   bytes of payload; negative counts as 0
void wl_get_evt_info(vre_iw_cmd_t e, wl_evt_info_t *evt_info, void *data, int len);

/// Decodes a "special" payload: the header is always expected, whatever `e` is, and a VAP index is skipped.
void wl_get_spl_evt_info(vre_iw_cmd_t e, wl_evt_info_t *evt_info, void *data, int len);

/// @return the index of the event whose name equals `name`; VRE_MAX_EVT when there is none or `name` is null
[[nodiscard]] vre_iw_cmd_t wl_get_evt(const char *name);

/// Builds a queue message: the event's name, its NUL, the payload.
///
/// @param data  `len` bytes; may be null when there are none
/// @param len   bytes of payload; negative counts as 0
/// @return a new buffer of strlen(name) + 1 + len bytes, freed by the caller with free(); null when memory is short or
///         the event has no name
[[nodiscard]] void *alloc_evt_buf(vre_iw_cmd_t e, const void *data, int len);

/// Writes `len` bytes as upper-case hexadecimal digits and one newline; nothing at all when `data` is null.
void print_hex(const void *data, int len, FILE *out);

/// Opens an existing queue by key, read-write and non-blocking.
///
/// @return a queue descriptor, or -1 with `errno` set
[[nodiscard]] mqd_t check_posix_mq(int key);

/// Opens a queue by key, creating it with the sizes of the tables when it does not exist.
///
/// @return a queue descriptor, or a negative `errno` value (plain -1 with `errno` set when the queue exists but cannot
///         be opened); `errno` is that of the failed call
[[nodiscard]] mqd_t create_posix_mq(int key);

/// Raises RLIMIT_MSGQUEUE (soft and hard) to what all queues of the tables need together.
///
/// @return the result of setrlimit; callers go on without it
int increse_rlimit_msgqueue();
