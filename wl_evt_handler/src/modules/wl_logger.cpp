#include "wl_logger.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <syslog.h>

#include "debug_log.h"
#include "language_cache_funcs.h"
#include "payload.h"
#include "valtrix_socklib.h"
#include "wl_evt_payloads.h"
#include "wl_info_codes.h"
#include "wl_server.h"
#include "wl_utils.h"

namespace {

constexpr int LEVEL_OF_DETAIL = 7;  // from this debug level on the lines show the attributes of RADIUS packets
constexpr int RADIUS_SERVER_SIZE = 4;
constexpr int MAC_SIZE = 6;
constexpr char RESERVED[] = "Reserved";

/// Events of the access point and of the daemon's own reports have no line.
bool has_line(vre_iw_cmd_t e) {
    switch (e) {
    case VRE_DEBUG_AP_TS:
    case VRE_PORTAL_CL_POLL:
    case VRE_CLIENT_DISCONNECT:
        return false;
    default:
        return e < VRE_SYSTEM_SERVICE_CRASH_EVT || e > VRE_TARGET_AP_TRAFFIC_TEST;
    }
}

void log_settings(vre_iw_cmd_t e, const wl_evt_info_t &info) {
    if (e == VRE_BW_GET_STATUS)
        WL_LOG_AS("wl_logger", 6, "WL.bw: BW status sent.");
    else if (e == VRE_BW_EVENTS && info.subinfo_code == 0 && info.subinfo_value_len >= sizeof(be_u16))
        WL_LOG_AS("wl_logger", 6, "Setting Debug level of wl_evt_handler module to %d.",
                  static_cast<int>(read_payload<be_u16>(info.subinfo_value, info.subinfo_value_len)));
    else if (e == VRE_BW_VAP_PROFILE_ID)  // the payload has no header, so this is deliberately 0
        WL_LOG_AS("wl_logger", 6, "WL.profile: Receiving profile ID %d.", static_cast<int>(info.profile_id));
}

/// The value of an event as the text generator takes it.
struct prepared_value {
    char *bytes;  // heap, `length` bytes and a NUL; null without a value or without memory
    int length;
    bool failed;  // memory is short
};

prepared_value copy_value(const void *bytes, int length) {
    auto *const copy = static_cast<char *>(std::malloc(static_cast<size_t>(length) + 1));
    if (copy == nullptr)
        return {nullptr, 0, true};
    std::memcpy(copy, bytes, static_cast<size_t>(length));
    copy[length] = '\0';
    return {copy, length, false};
}

prepared_value bandwidth_value(const wl_evt_info_t &event) {
    bw_info value;
    value.pri = event.bw.pri;
    value.up = event.bw.up;
    value.down = event.bw.down;
    value.profile_id = event.profile_id;
    return copy_value(&value, sizeof value);
}

prepared_value prepare_value(uint32_t info_code, uint16_t subinfo_code, const uint8_t *value, int length,
                             const wl_evt_info_t *event) {
    if (info_code == INFO_CLIENT_PMK || info_code == INFO_CLIENT_PORTAL_LOGIN)
        return {};  // whatever words the catalogue has for them, keys and logins stay out of the log
    if (value == nullptr)
        return info_code == INFO_BANDWIDTH && event != nullptr ? bandwidth_value(*event) : prepared_value{};
    if (info_code == INFO_IPV6_ADDRESS || info_code == INFO_DHCP) {
        char text[INET6_ADDRSTRLEN];
        ip_address_text(value, length, text);
        return copy_value(text, static_cast<int>(std::strlen(text)));
    }
    if (info_code == INFO_RADIUS && subinfo_code == SUBINFO_RADIUS_ACCESS_REQUEST) {
        const int server = std::min(length, RADIUS_SERVER_SIZE);
        return copy_value(value + server, length - server);
    }
    return copy_value(value, length);
}

void mac_text(const uint8_t *mac, MACADDR &text) {
    if (mac != nullptr)
        (void)socklib_mac_ntoa(mac, MAC_SIZE, text, sizeof text);
}

void write_line(FILE *fp, const cl_debug_record_params &params, const char *line, int timestamp) {
    if (fp != nullptr) {
        std::fprintf(fp, "%6d:%s\n", timestamp, line);
        return;
    }
    WL_LOG_AS("wl_log_evt", 6, "[%s]=>[%s(%s)] %s", params.cl_mac, params.ssid, params.bssid, line);
    syslog(LOG_LOCAL0 | LOG_INFO, "[%s]=>[%s(%s)] %s", params.cl_mac, params.ssid, params.bssid, line);
}

}  // namespace

const char *const vre_status_strings[39] = {
    "Successful",
    "Unspecified failure",
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    "Cannot support all requested capabilities in the Capability Information field",
    "Reassociation denied due to inability to confirm that association exists",
    "Association denied due to reason outside the scope of this standard",
    "Responding STA does not support the specified authentication algorithm",
    "Received an Authentication frame with authentication transaction sequence number out of expected sequence",
    "Authentication rejected because of challenge failure",
    "Authentication rejected due to timeout waiting for next frame in sequence",
    "Association denied because AP is unable to handle additional associated STAs",
    "Association denied due to requesting STA not supporting all of the data rates in the BSSBasicRateSet parameter",
    "Association denied due to requesting STA not supporting the short preamble option",
    "Association denied due to requesting STA not supporting the PBCC modulation option",
    "Association denied due to requesting STA not supporting the Channel Agility option",
    "Association request rejected because Spectrum Management capability is required",
    "Association denied due to mismatch in rates element",
    RESERVED,
    "Association denied due to requesting STA not supporting the Short Slot Time option",
    "Association denied due to requesting STA not supporting the DSSS-OFDM option",
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    RESERVED,
    "The request has been declined",
    "The request has not been successful as one or more parameters have invalid values",
};

const char *const vre_reason_strings[14] = {
    "Success",
    "Unspecified reason",
    "Previous authentication no longer valid",
    "Deauthenticated because sending STA is leaving (or has left) IBSS or ESS",
    "Disassociated beacuase association is expired",
    "Disassociated because AP is unable to handle all currently associated STAs",
    "Class 2 frame received from nonauthenticated STA",
    "Class 3 frame received from nonassociated STA",
    "Disassociated because sending STA is leaving (or has left) BSS",
    "STA requesting (re)association is not authenticated with responding STA",
    "Disassociated because RSN in required",
    "Disassociated because RSN is inconsistent",
    "Invalid information element, i.e., an information element defined in this standard for",
    "Message integrity code (MIC) failure",
};

void init_logger() {
    openlog("wl_event_handler", 0, LOG_DAEMON);
}

void deinit_logger() {
    closelog();
}

void wl_logger(vre_iw_cmd_t e, void *buf, int len) {
    wl_evt_info_t info;
    wl_get_evt_info(e, &info, buf, len);
    log_settings(e, info);
    if (has_line(e) && info.info_code != INFO_NONE)
        wl_log_evt(nullptr, info.cl_mac, info.bssid, info.ssid, info.ssid_len, info.info_code, info.subinfo_code,
                   info.subinfo_value, info.subinfo_value_len, 0, &info);
}

void wl_log_evt(FILE *fp, const uint8_t *cl_mac, const uint8_t *bssid, const char *ssid, int ssid_len,
                uint32_t info_code, uint16_t subinfo_code, const uint8_t *subinfo_value, int subinfo_value_len,
                int timestamp, const wl_evt_info_t *evt_info) {
    cl_debug_record_params params{};
    mac_text(cl_mac, params.cl_mac);
    mac_text(bssid, params.bssid);
    if (ssid != nullptr) {
        params.ssid_len = static_cast<short>(std::clamp<int>(ssid_len, 0, sizeof params.ssid - 1));
        std::memcpy(params.ssid, ssid, static_cast<size_t>(params.ssid_len));
    }
    params.info_code = static_cast<int>(info_code);
    params.subinfo_code = subinfo_code;
    const prepared_value value = prepare_value(info_code, subinfo_code, subinfo_value, subinfo_value_len, evt_info);
    if (value.failed) {
        WL_LOG(3, "%s Memory Alloc Error", __func__);
        return;
    }
    params.subinfo_value = value.bytes;
    params.subinfo_value_len = value.length;
    const int verbose = fp != nullptr || current_debug_level() >= LEVEL_OF_DETAIL ? 1 : 0;
    char *line = nullptr;
    if (fill_cl_debug_log_params(wl_debug_log_cache, &params, &line, verbose) != 0)
        WL_LOG(3, "Could not generate event log text %d:%d", params.info_code, params.subinfo_code);
    std::free(value.bytes);
    if (line == nullptr)
        return;
    write_line(fp, params, line, timestamp);
    std::free(line);
}
