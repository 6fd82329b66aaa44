#include "wl_ap_logging_evt.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "debug_log.h"
#include "payload.h"
#include "wl_ap_logging_evt_internal.h"
#include "wl_evt_payloads.h"

namespace {

constexpr size_t LOG_BUFFER_SIZE = 255;  // bytes of a text, its NUL included

// The server's own codes of channel events.
constexpr uint32_t CODE_CHANNEL_CHANGED = 14;
constexpr uint32_t CODE_CHANNEL_SELECTED = 15;
constexpr uint32_t CODE_CHANNEL_UNCHANGED = 19;

// What a channel event tells.
constexpr uint8_t CHANNEL_STATISTICS = 1;
constexpr uint8_t CHANNEL_CHANGED = 2;
constexpr uint8_t CHANNEL_SELECTED = 3;
constexpr uint8_t CHANNEL_UNCHANGED = 4;

constexpr uint8_t VAP_UP = 1;
constexpr size_t SSID_SIZE = 34;  // bytes, the NUL included

constexpr const char *CHANGE_REASONS[] = {"DFS", "CCI", "ACI", "DCS", "Periodic ACS"};

constexpr const char *OPERATING_MODES[] = {
    "AUTO",
    "11A",
    "11B",
    "11G",
    "FH",
    "TURBO A",
    "TURBO G",
    "11NA HT20",
    "11NG HT20",
    "11NA HT40PLUS",
    "11NA HT40MINUS",
    "11NG HT40PLUS",
    "11NG HT40MINUS",
    nullptr,
    nullptr,
    "11AC VHT20",
    "11AC VHT40PLUS",
    "11AC VHT40MINUS",
    "11AC VHT40",
    "11AC VHT80",
    "11AC VHT160",
    "11AC VHT80 80",
};

/// @return a zeroed text of LOG_BUFFER_SIZE bytes, freed by the caller; null when memory is short
char *allocate_log_buffer() {
    return static_cast<char *>(std::calloc(1, LOG_BUFFER_SIZE));
}

struct freed_text {
    char *text;
    ~freed_text() {
        std::free(text);
    }
};

void report(vre_iw_cmd_t event, uint32_t code, char *text, int len) {
    wl_evt_info_t info{};
    info.info_code = code;
    info.subinfo_value = reinterpret_cast<uint8_t *>(text);
    info.subinfo_value_len = static_cast<uint16_t>(std::strlen(text));
    (void)wl_ap_ts(event, &info, len);
}

const char *translate_driver_chan_change_reason_code(uint8_t reason) {
    return reason < std::size(CHANGE_REASONS) ? CHANGE_REASONS[reason] : "Unknown";
}

const char *translate_driver_operating_mode(uint8_t mode) {
    if (mode < std::size(OPERATING_MODES) && OPERATING_MODES[mode] != nullptr)
        return OPERATING_MODES[mode];
    WL_LOG(3, "No matching operating mode found");
    return "";
}

void log_channel_statistics(const void *buf, int len) {
    const auto data = read_payload<vre_evt_ch_stats_data>(buf, len);
    WL_LOG_AS("handle_vre_evt_chan_info", 7, "acs chan : %d  and non wifi : %d%% \n", static_cast<int>(data.chan),
              data.nonwifi_per);
}

void report_channel_change(vre_iw_cmd_t e, const void *buf, int len, char *text) {
    const auto data = read_payload<vre_evt_ch_change_cause_data>(buf, len);
    const char *const cause = translate_driver_chan_change_reason_code(data.sub_event_id);
    WL_LOG_AS("handle_vre_evt_chan_info", 7, "chan cause : %d and str: %s\n", data.sub_event_id, cause);
    std::snprintf(text, LOG_BUFFER_SIZE, "RADIO,%d,%s", 1, cause);
    report(e, CODE_CHANNEL_CHANGED, text, len);
}

void report_channel(vre_iw_cmd_t e, const void *buf, int len, char *text) {
    const auto data = read_payload<vre_evt_ch_select_data>(buf, len);
    const char *const mode = translate_driver_operating_mode(data.operating_mode);
    const bool selected = data.sub_event_id == CHANNEL_SELECTED;
    if (selected)
        WL_LOG_AS("handle_vre_evt_chan_info", 7, "current chan set : %d and operating mode %s", data.cur_chan, mode);
    else
        WL_LOG_AS("handle_vre_evt_chan_info", 7, "channel remains same, current chan set : %d and operating mode %s",
                  data.cur_chan, mode);
    std::snprintf(text, LOG_BUFFER_SIZE, "RADIO,%d,%d,%s", 1, data.cur_chan, mode);
    report(e, selected ? CODE_CHANNEL_SELECTED : CODE_CHANNEL_UNCHANGED, text, len);
}

/// A radio's power, with the name as a text.
struct radio_power {
    int old_power;
    int new_power;
    char radio[sizeof vre_evt_txpow_change::radio + 1];
};

radio_power read_power(const void *buf, int len) {
    const auto data = read_payload<vre_evt_txpow_change>(buf, len);
    radio_power power{data.old_tx_power, data.new_tx_power, {}};
    std::memcpy(power.radio, data.radio, sizeof data.radio);
    return power;
}

void report_power(vre_iw_cmd_t e, uint32_t code, const radio_power &power, int len) {
    const freed_text buffer{allocate_log_buffer()};
    if (buffer.text == nullptr)
        return;
    std::snprintf(buffer.text, LOG_BUFFER_SIZE, "RADIO,%d,%d,%d,%s", 3, power.old_power, power.new_power, power.radio);
    report(e, code, buffer.text, len);
}

void write_last_power(const radio_power &power) {
    const char *const path =
        std::strchr(power.radio, '2') != nullptr ? "/opt/last_tx_power_2G" : "/opt/last_tx_power_5G";
    FILE *const file = std::fopen(path, "we");
    if (file == nullptr)
        return;
    std::fprintf(file, "%d", power.new_power);
    std::fclose(file);
}

/// @return null for a band that is none
const char *band_text(uint8_t band) {
    switch (band) {
    case 0:
        return "5 Ghz";
    case 1:
        return "2.4 Ghz";
    default:
        return nullptr;
    }
}

}  // namespace

void handle_vre_evt_chan_info(vre_iw_cmd_t e, void *buf, int len) {
    if (buf == nullptr)
        return;
    const freed_text buffer{allocate_log_buffer()};
    if (buffer.text == nullptr)
        return;
    switch (read_payload<uint8_t>(buf, len)) {
    case CHANNEL_STATISTICS:
        log_channel_statistics(buf, len);  // deliberately not reported
        break;
    case CHANNEL_CHANGED:
        report_channel_change(e, buf, len, buffer.text);
        break;
    case CHANNEL_SELECTED:
    case CHANNEL_UNCHANGED:
        report_channel(e, buf, len, buffer.text);
        break;
    default:
        report(e, 0, buffer.text, len);  // no code: dropped, but a support engineer sees why
    }
}

void handle_vre_evt_txpow_change(vre_iw_cmd_t e, void *buf, int len) {
    if (buf == nullptr)
        return;
    const radio_power power = read_power(buf, len);
    WL_LOG(7, "AP Transmit power is updated from %d dBm to %d dBm for %s radio", power.old_power, power.new_power,
           power.radio);
    report_power(e, VRE_EVT_TXPOW_CHANGE, power, len);
    write_last_power(power);
}

void handle_vre_evt_txpow_not_changed(vre_iw_cmd_t e, void *buf, int len) {
    if (buf == nullptr)
        return;
    const radio_power power = read_power(buf, len);
    WL_LOG(7, "AP Transmit power remains same from %d dBm to %d dBm for %s radio", power.old_power, power.new_power,
           power.radio);
    report_power(e, VRE_EVT_TXPOW_NOT_CHANGED, power, len);
}

void handle_vre_vap_down(vre_iw_cmd_t e, void *buf, int len) {
    if (buf == nullptr)
        return;
    const auto data = read_payload<vre_vap_down_data>(buf, len);
    char name[sizeof data.vap_name + 1] = {};
    std::memcpy(name, data.vap_name, sizeof data.vap_name);
    const char *const band = band_text(data.vap_cur_band);
    if (band == nullptr) {
        WL_LOG(3, "VAP %s Band not sane. Dropping this event", name);
        return;
    }
    char ssid[SSID_SIZE] = {};
    const freed_text buffer{allocate_log_buffer()};
    if (buffer.text == nullptr || translater_vap_to_ssid(name, ssid) != 0)
        return;
    std::snprintf(buffer.text, LOG_BUFFER_SIZE,
                  data.vap_up_or_down == VAP_UP ? "RADIO,%d,%s (%s),UP" : "RADIO,%d,%s (%s),DOWN", 1, ssid, band);
    WL_LOG(7, "Vap band : %d  and Vap down reason  : %d and Vap name : %s  SSID name : %s \n", data.vap_cur_band,
           data.vap_stop_reason, name, ssid);
    WL_LOG(3, "Event with LOG : %s and len %d", buffer.text, static_cast<int>(std::strlen(buffer.text)));
    report(e, VRE_VAP_DOWN, buffer.text, len);
}

void handle_vre_userspace_event(vre_iw_cmd_t e, void *buf, int len) {
    if (buf == nullptr) {
        WL_LOG(3, " Payload null");
        return;
    }
    wl_evt_info_t info;
    wl_get_evt_info(e, &info, buf, len);
    if (info.subinfo_value == nullptr || info.subinfo_value_len < sizeof(be_u32)) {
        WL_LOG(3, " subinfo value null");
        return;
    }
    const uint32_t claimed = read_payload<be_u32>(info.subinfo_value, info.subinfo_value_len);
    if (claimed >= LOG_BUFFER_SIZE) {
        WL_LOG(3, "Unable to send greter length[%d] packet to server limit[%d]", static_cast<int>(claimed),
               static_cast<int>(LOG_BUFFER_SIZE));
        return;
    }
    const freed_text buffer{allocate_log_buffer()};
    if (buffer.text == nullptr)
        return;
    const size_t there = info.subinfo_value_len - sizeof(be_u32);
    std::memcpy(buffer.text, info.subinfo_value + sizeof(be_u32), std::min<size_t>(claimed, there));
    WL_LOG(3, "Evt with LOG:%s and len %d and infocode : %d", buffer.text, static_cast<int>(std::strlen(buffer.text)),
           static_cast<int>(info.info_code));
    report(e, info.info_code, buffer.text, len);
}
