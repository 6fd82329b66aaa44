#include "wl_common.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "debug_log.h"
#include "payload.h"
#include "vap_table.h"

int g_enable_simulator;

namespace {

constexpr int SSID_CHARACTERS = 32;
constexpr int NAME_CHARACTERS = 15;

/// A payload on its way through a decoder.
struct received {
    const char *decoder;  // the function that speaks in the log
    vre_iw_cmd_t event;
    bool has_header;
    bool adds_vaps;
    uint8_t *data;
    int64_t window = 0;  // bytes of data that may be read; those beyond read as 0
};

/// A value that begins `at` bytes into the payload. An item has a tag other than 0 only when the last byte of its tag
/// lies in the window, so a value begins at most 4 bytes beyond it: inside the zero bytes that follow every payload.
template <class Value> Value value_at(const received &payload, int64_t at) {
    return read_payload<Value>(payload.data + at, payload.window - at);
}

/// Measures a text and cuts it in the payload when it has more than `limit` characters. The item's own length is
/// deliberately not looked at: a text ends at its NUL, or with the first byte of the next item's tag, which is 0.
///
/// @return whether the text was cut
bool cut_text(const received &payload, int64_t at, int limit, int16_t &length) {
    const int64_t readable = std::clamp<int64_t>(payload.window - at, 0, limit + 1);
    const char *text = reinterpret_cast<const char *>(payload.data + at);
    const auto characters = static_cast<int>(strnlen(text, static_cast<size_t>(readable)));
    length = static_cast<int16_t>(std::min(characters, limit));
    if (characters <= limit)
        return false;
    payload.data[at + limit] = 0;
    return true;
}

void decode_ssid(const received &payload, int64_t at, wl_evt_info &info) {
    info.ssid = reinterpret_cast<char *>(payload.data + at);
    if (cut_text(payload, at, SSID_CHARACTERS, info.ssid_len))
        WL_LOG_AS(payload.decoder, 3, "Invalid SSID len received for event %s", event_name(payload.event));
}

void decode_name(const received &payload, int64_t at, wl_evt_info &info) {
    info.name = reinterpret_cast<char *>(payload.data + at);
    if (cut_text(payload, at, NAME_CHARACTERS, info.name_len))
        WL_LOG_AS(payload.decoder, 3, "Invalid interface name len received for event %s", event_name(payload.event));
}

void decode_subinfo_value(const received &payload, int64_t at, uint32_t length, wl_evt_info &info) {
    info.subinfo_value = payload.data + at;
    const auto readable = std::max<int64_t>(payload.window - at, 0);
    info.subinfo_value_len = static_cast<uint16_t>(std::min<int64_t>(length & 0xFFFF, readable));
}

/// @return whether the VAP is known or could be added
bool decode_vap_index(const received &payload, int64_t at) {
    if (add_or_lookup_vapinfo(static_cast<int>(value_at<be_u32>(payload, at))) != nullptr)
        return true;
    WL_LOG_AS(payload.decoder, 3, "Vap lookup failed ");
    return false;
}

/// Applies one item, whose value begins at `at`. An item that does not fit in the payload still has its effect.
///
/// @return false when decoding ends here
bool apply_item(const received &payload, const wl_item_header &item, int64_t at, wl_evt_info &info) {
    switch (item.tag) {
    case WL_VAP_SSID:
        decode_ssid(payload, at, info);
        break;
    case WL_VAP_BSSID:
        info.bssid = payload.data + at;
        break;
    case WL_VAP_NAME:
        decode_name(payload, at, info);
        break;
    case WL_VAP_INDEX:
        return !payload.adds_vaps || decode_vap_index(payload, at);
    case WL_INFO_CODE:
        info.info_code = value_at<be_u32>(payload, at);
        break;
    case WL_SUBINFO_CODE:
        info.subinfo_code = value_at<be_u16>(payload, at);
        break;
    case WL_SUBINFO_VALUE:
        decode_subinfo_value(payload, at, item.length, info);
        break;
    case WL_BW_PRIORITY:
        info.bw.pri = value_at<uint8_t>(payload, at);
        break;
    case WL_BW_UPLOAD_LIMIT:
        info.bw.up = value_at<be_i32>(payload, at);
        break;
    case WL_BW_DOWNLOAD_LIMIT:
        info.bw.down = value_at<be_i32>(payload, at);
        break;
    case WL_BW_IS_PER_BSS_RULE:
        info.bw.bss_rule = 1;
        break;
    case WL_BW_APPLY_RULE:
        info.bw.state_transition = 1;
        info.bw.to_state = 1;
        break;
    default:  // requests and replies between peers
        break;
    }
    return true;
}

/// Walks the items from offset `at` on. `remaining` is deliberately the length of the whole payload even where a header
/// precedes the items: the last item of a payload whose length leaves out the header is still read.
void decode_items(const received &payload, int64_t at, int64_t remaining, wl_evt_info &info) {
    while (remaining > 0) {
        const auto item = value_at<wl_item_header>(payload, at);
        if (item.tag == WL_INVALID_TAG || item.tag >= WL_TAG_MAX)
            return;
        if (!apply_item(payload, item, at + int64_t{sizeof item}, info))
            return;
        const int64_t size = int64_t{sizeof item} + item.length;
        if (remaining < size)
            return;
        remaining -= size;
        at += size;
    }
}

void decode(received payload, int len, wl_evt_info &info) {
    info = {};
    if (payload.data == nullptr)
        return;
    const int64_t length = std::max(len, 0);
    const int64_t header_size = payload.has_header ? sizeof(wl_header) : 0;
    payload.window = length + header_size;
    if (payload.has_header) {
        info.cl_mac = payload.data;
        info.profile_id = value_at<wl_header>(payload, 0).profile_id;
    }
    decode_items(payload, header_size, length, info);
}

}  // namespace

void wl_get_evt_info(vre_iw_cmd_t e, wl_evt_info_t *evt_info, void *data, int len) {
    decode({.decoder = __func__,
            .event = e,
            .has_header = e <= VRE_ALL,
            .adds_vaps = true,
            .data = static_cast<uint8_t *>(data)},
           len, *evt_info);
}

void wl_get_spl_evt_info(vre_iw_cmd_t e, wl_evt_info_t *evt_info, void *data, int len) {
    decode(
        {.decoder = __func__, .event = e, .has_header = true, .adds_vaps = false, .data = static_cast<uint8_t *>(data)},
        len, *evt_info);
}

vre_iw_cmd_t wl_get_evt(const char *name) {
    // Looked up for every message: names begin alike, so the first character that tells them apart goes first.
    constexpr char PREFIX[] = "VRE.";
    constexpr size_t PREFIX_LENGTH = sizeof PREFIX - 1;
    if (name == nullptr || std::strncmp(name, PREFIX, PREFIX_LENGTH) != 0)
        return VRE_MAX_EVT;
    for (int e = 0; e < VRE_MAX_EVT; e++) {
        const char *candidate = wl_events[e];
        if (candidate != nullptr && candidate[PREFIX_LENGTH] == name[PREFIX_LENGTH] &&
            std::strcmp(candidate, name) == 0)
            return static_cast<vre_iw_cmd_t>(e);
    }
    return VRE_MAX_EVT;
}

void *alloc_evt_buf(vre_iw_cmd_t e, const void *data, int len) {
    if (e < 0 || e > VRE_MAX_EVT || wl_events[e] == nullptr)
        return nullptr;
    const size_t name_size = std::strlen(wl_events[e]) + 1;
    const auto payload_size = static_cast<size_t>(std::max(len, 0));
    auto *message = static_cast<char *>(std::malloc(name_size + payload_size));
    if (message == nullptr)
        return nullptr;
    std::memcpy(message, wl_events[e], name_size);
    if (payload_size > 0)
        std::memcpy(message + name_size, data, payload_size);
    return message;
}

void print_hex(const void *data, int len, FILE *out) {
    if (data == nullptr)
        return;
    const auto *bytes = static_cast<const uint8_t *>(data);
    for (int i = 0; i < len; i++)
        std::fprintf(out, "%.2X", bytes[i]);
    std::fputc('\n', out);
}
