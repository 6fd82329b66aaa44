#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "debug_log.h"
#include "language_cache_funcs_internal.h"
#include "valtrix_socklib.h"

namespace {

// Info codes whose values the tokens know; a value's layout is named below where it is read.
constexpr int INFOCODE_AUTH_REQUEST = 2;
constexpr int INFOCODE_ASSOC_REQUEST = 4;
constexpr int INFOCODE_IPV6_ADDRESS = 9;
constexpr int INFOCODE_DHCP = 14;
constexpr int INFOCODE_BANDWIDTH = 19;
constexpr int INFOCODE_STEERING = 20;
constexpr int INFOCODE_DNS = 21;
constexpr int INFOCODE_INVALID_IP = 25;
constexpr int INFOCODE_IP_CONFLICT = 26;
constexpr int INFOCODE_VLAN = 27;

// Subinfo codes of the authenticator; the value of the first is a VLAN, with any info code.
constexpr int SUBINFO_VLAN = 39;
constexpr int SUBINFO_ROLE_SET = 42;
constexpr int SUBINFO_ROLE_CLEAR = 43;
constexpr int SUBINFO_OU_SET = 46;
constexpr int SUBINFO_OU_CLEAR = 47;
constexpr int SUBINFO_8021X_2001 = 501;
constexpr int SUBINFO_8021X_2004 = 502;

constexpr size_t SHORT_PIECE = 64;  // characters: what fits is formatted only once

constexpr int32_t NO_VLAN = -1;
constexpr uint32_t LAST_VLAN = 4095;

// Frames of a client: channel, signal.
constexpr size_t CHANNEL_OFFSET = 0;
constexpr size_t FRAME_SIGNAL_OFFSET = 2;
constexpr size_t STEERING_SIGNAL_OFFSET = 6;

// Addresses.
constexpr size_t ADDRESS_SIZE = 4;
constexpr size_t DNS_SERVER_OFFSET = 4;
constexpr size_t INVALID_IP_SERVER_OFFSET = 4;
constexpr size_t MAC_SIZE = 6;
constexpr size_t CONFLICT_IP_OFFSET = 6;

// Bandwidth: priority, upload limit, download limit, profile id.
constexpr size_t UP_OFFSET = 1;
constexpr size_t DOWN_OFFSET = 5;
constexpr size_t PROFILE_ID_OFFSET = 9;

// The applied role: name, role id, method, whether rules were looked up, match type, whether it is the SSID's own.
constexpr size_t ROLE_METHOD_OFFSET = 37;
constexpr size_t ROLE_LOOKUP_OFFSET = 38;
constexpr size_t ROLE_MATCH_OFFSET = 39;
constexpr size_t ROLE_MAPPED_OFFSET = 40;
constexpr size_t APPLIED_ROLE_SIZE = 41;
constexpr size_t REQUESTED_ROLE_SIZE = 46;

enum role_method : uint8_t { METHOD_RADIUS = 1, METHOD_GOOGLE_OU = 2, METHOD_AUTH_FAIL = 3 };

bool is_ipv6_or_dhcp(const cl_debug_record_params *params) {
    return params->info_code == INFOCODE_IPV6_ADDRESS || params->info_code == INFOCODE_DHCP;
}

bool is_printable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

void append_address(growing_text *line, value_bytes value, size_t offset) {
    append(line, address_at(value, offset).text);
}

void append_mac(growing_text *line, const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    if (params->info_code == INFOCODE_IP_CONFLICT && value.size() >= MAC_SIZE)
        append_format(line, "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X", value[0], value[1], value[2], value[3], value[4],
                      value[5]);
    else
        append(line, {params->cl_mac, strnlen(params->cl_mac, sizeof params->cl_mac)});
}

void append_bssid(growing_text *line, const cl_debug_record_params *params) {
    append(line, {params->bssid, strnlen(params->bssid, sizeof params->bssid)});
}

void append_ssid(growing_text *line, const cl_debug_record_params *params) {
    append(line, {params->ssid, strnlen(params->ssid, sizeof params->ssid)});
}

/// A VLAN that the authenticator has assigned.
void append_vlan_outcome(growing_text *line, value_bytes value) {
    const auto vlan = static_cast<int32_t>(number_at(value, 0, 4));
    if (value.size() < 4)
        append(line, "from unkwown method");
    else if (vlan == NO_VLAN)
        append_format(line, "%s %s", "SSID VLAN", "from Radius");
    else
        append_format(line, "%d %s", vlan, "from Radius");
}

const char *text_of_own_role(value_bytes role) {
    const bool looked_up = role[ROLE_LOOKUP_OFFSET] != 0;
    switch (role[ROLE_METHOD_OFFSET]) {
    case METHOD_RADIUS:
        return looked_up ? "mapped to SSID, no rule matched" : "mapped to SSID";
    case METHOD_GOOGLE_OU:
        return looked_up ? "mapped to SSID, no rule matched" : "mapped to SSID, no OU received";
    case METHOD_AUTH_FAIL:
        return "mapped to SSID";
    default:
        return "mapped to SSID, unknown method";
    }
}

void append_applied_role(growing_text *line, value_bytes role) {
    const short_name name = name_at_start(role);
    const int match_type = role[ROLE_MATCH_OFFSET];
    if (role[ROLE_MAPPED_OFFSET] != 0)
        append(line, text_of_own_role(role));
    else if (role[ROLE_LOOKUP_OFFSET] != 0 && match_type >= 1 && match_type <= 3)
        append_format(line, "[%s] applied, match type[%s]", name.text, get_rule_match_type(match_type));
    else
        append_format(line, "[%s] applied", name.text);
}

void append_role(growing_text *line, const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    switch (params->subinfo_code) {
    case SUBINFO_VLAN:
        return append_vlan_outcome(line, value);
    case SUBINFO_ROLE_SET:
        if (value.size() >= REQUESTED_ROLE_SIZE)
            append_format(line, "[%s] applied", name_at_start(value).text);
        return;
    case SUBINFO_ROLE_CLEAR:
    case SUBINFO_OU_SET:
    case SUBINFO_OU_CLEAR:
        return;
    default:
        if (value.size() >= APPLIED_ROLE_SIZE)
            append_applied_role(line, value);
    }
}

void append_ou(growing_text *line, const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    append(line, value.size() >= 2 ? text_of(value) : "(Nil)");
}

void append_ip(growing_text *line, const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    if (value.empty())
        return;
    if (is_ipv6_or_dhcp(params))
        return append(line, text_of(value));
    if (params->info_code == INFOCODE_INVALID_IP)
        return append_address(line, value, 0);
    if (params->info_code == INFOCODE_IP_CONFLICT)
        return append_address(line, value, CONFLICT_IP_OFFSET);
    if (value.size() == ADDRESS_SIZE)
        return append_address(line, value, 0);
    if (params->info_code == INFOCODE_DNS)
        return append_address(line, value, DNS_SERVER_OFFSET);
    if (is_printable(text_of(value)))
        append(line, text_of(value));
}

void append_dhcp_server(growing_text *line, const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    if (value.empty())
        return;
    if (params->info_code == INFOCODE_INVALID_IP)
        append_address(line, value, INVALID_IP_SERVER_OFFSET);
    else if (params->info_code == INFOCODE_DHCP)
        append(line, text_of(value));
}

/// The VLAN of a VLAN event, when it can be one.
uint32_t learned_vlan(const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    if (params->info_code != INFOCODE_VLAN || value.size() < 2)
        return 0;
    const uint32_t vlan = number_at(value, 0, value.size() >= 4 ? 4 : 2);
    return vlan <= LAST_VLAN ? vlan : 0;
}

void append_vlan(growing_text *line, const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    uint32_t vlan = learned_vlan(params);
    if (vlan == 0 && params->subinfo_code == SUBINFO_VLAN && value.size() >= 4)
        vlan = number_at(value, 0, 4);
    append_format(line, "%d", static_cast<int32_t>(vlan));
}

void append_rssi(growing_text *line, const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    uint32_t signal = 0;
    if (params->info_code == INFOCODE_AUTH_REQUEST || params->info_code == INFOCODE_ASSOC_REQUEST)
        signal = number_at(value, FRAME_SIGNAL_OFFSET, 1);
    else if (params->info_code == INFOCODE_STEERING)
        signal = number_at(value, STEERING_SIGNAL_OFFSET, 1);
    append_format(line, "%d", static_cast<int8_t>(signal));
}

void append_channel(growing_text *line, const cl_debug_record_params *params) {
    const value_bytes value = value_of(params);
    append_format(line, "%u", value.size() >= 2 ? number_at(value, CHANNEL_OFFSET, 2) : 0);
}

void append_version(growing_text *line, const cl_debug_record_params *params) {
    const bool radius = params->info_code == INFOCODE_RADIUS;
    if (radius && params->subinfo_code == SUBINFO_8021X_2001)
        append(line, "8021X_2001");
    else if (radius && params->subinfo_code == SUBINFO_8021X_2004)
        append(line, "8021X_2004");
    else
        append(line, "Unknown");
}

value_bytes bandwidth_of(const cl_debug_record_params *params) {
    return params->info_code == INFOCODE_BANDWIDTH ? value_of(params) : value_bytes{};
}

void append_profile_id(growing_text *line, const cl_debug_record_params *params) {
    append_format(line, "%u", number_at(bandwidth_of(params), PROFILE_ID_OFFSET, 4));
}

void append_upload(growing_text *line, const cl_debug_record_params *params) {
    append_format(line, "%d", static_cast<int32_t>(number_at(bandwidth_of(params), UP_OFFSET, 4)));
}

void append_download(growing_text *line, const cl_debug_record_params *params) {
    append_format(line, "%d", static_cast<int32_t>(number_at(bandwidth_of(params), DOWN_OFFSET, 4)));
}

void append_priority(growing_text *line, const cl_debug_record_params *params) {
    append_format(line, "%d", static_cast<int>(number_at(bandwidth_of(params), 0, 1)));
}

struct token {
    std::string_view name;
    void (*append)(growing_text *line, const cl_debug_record_params *params);
};

// No name begins another, so the order does not matter.
constexpr token TOKENS[] = {
    {"MAC", append_mac},   {"BSSID", append_bssid},   {"SSID", append_ssid},    {"ROLE", append_role},
    {"OU", append_ou},     {"IP", append_ip},         {"VLAN", append_vlan},    {"DHCPSERVERIP", append_dhcp_server},
    {"RSSI", append_rssi}, {"CHAN", append_channel},  {"VER", append_version},  {"ID", append_profile_id},
    {"UP", append_upload}, {"DOWN", append_download}, {"PRI", append_priority},
};

/// Copies a sentence, its tokens replaced. A "$" without a token stays.
void append_sentence(growing_text *line, std::string_view sentence, const cl_debug_record_params *params) {
    for (size_t dollar = sentence.find('$'); dollar != sentence.npos; dollar = sentence.find('$')) {
        append(line, sentence.substr(0, dollar));
        sentence.remove_prefix(dollar + 1);
        const auto *const found = std::find_if(std::begin(TOKENS), std::end(TOKENS),
                                               [=](const token &each) { return sentence.starts_with(each.name); });
        if (found == std::end(TOKENS)) {
            append(line, "$");
            continue;
        }
        found->append(line, params);
        sentence.remove_prefix(found->name.size());
    }
    append(line, sentence);
}

/// Looks a label up.
///
/// @return its value; null when it is missing, which is logged, or when memory was too short for the key
const char *find_label(const hashTable_t *cache, const growing_text &key) {
    if (key.failed)
        return nullptr;
    const char *value = lang_localize_cl_debug_label(cache, key.text);
    if (value == nullptr)
        WL_LOG_AS("fill_cl_debug_log_params", 3, "Could not find value for label[%s]", key.text);
    return value;
}

/// Looks up the sentence of an event.
///
/// @param key  scratch text
/// @return the sentence; null when a label is missing or memory is short: `key` has then failed
const char *find_sentence(const hashTable_t *cache, const cl_debug_record_params *params, growing_text *key) {
    append_format(key, "INFOCODE_%d", params->info_code);
    const char *word = find_label(cache, *key);
    if (word == nullptr)
        return nullptr;
    key->length = 0;
    append_format(key, "%s_%d", word, params->subinfo_code);
    return find_label(cache, *key);
}

}  // namespace

void reserve(growing_text *line, size_t more) {
    const size_t needed = line->length + more + 1;
    if (line->failed || needed <= line->capacity)
        return;
    const size_t capacity = std::max(needed, 2 * line->capacity);
    auto *grown = static_cast<char *>(std::realloc(line->text, capacity));
    if (grown == nullptr) {
        line->failed = true;
        return;
    }
    line->text = grown;
    line->capacity = capacity;
}

void append(growing_text *line, std::string_view more) {
    reserve(line, more.size());
    if (line->failed)
        return;
    std::copy(more.begin(), more.end(), line->text + line->length);
    line->length += more.size();
    line->text[line->length] = '\0';
}

void append_format(growing_text *line, const char *format, ...) {
    reserve(line, SHORT_PIECE);
    const size_t room = line->failed ? 0 : line->capacity - line->length;
    va_list arguments;
    va_list again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int formatted = std::vsnprintf(room != 0 ? line->text + line->length : nullptr, room, format, arguments);
    const auto length = static_cast<size_t>(std::max(formatted, 0));
    if (formatted < 0)
        line->failed = true;
    else if (length >= room)
        reserve(line, length);
    if (!line->failed && length >= room)
        (void)std::vsnprintf(line->text + line->length, length + 1, format, again);
    if (!line->failed)
        line->length += length;
    va_end(again);
    va_end(arguments);
}

value_bytes value_of(const cl_debug_record_params *params) {
    if (params->subinfo_value == nullptr || params->subinfo_value_len <= 0)
        return {};
    return {reinterpret_cast<const uint8_t *>(params->subinfo_value), static_cast<size_t>(params->subinfo_value_len)};
}

uint32_t number_at(value_bytes value, size_t offset, size_t width) {
    uint32_t number = 0;
    for (size_t at = offset; at < offset + width; at++)
        number = number << 8 | (at < value.size() ? value[at] : 0u);
    return number;
}

dotted_address address_at(value_bytes value, size_t offset) {
    dotted_address dotted;
    (void)socklib_inet_ntoa(socklib_htonl(number_at(value, offset, 4)), dotted.text, sizeof dotted.text);
    return dotted;
}

short_name name_at_start(value_bytes value) {
    short_name name{};
    std::copy_n(value.begin(), std::min(value.size(), NAME_SIZE), name.text);
    return name;
}

std::string_view text_of(value_bytes value) {
    const auto *text = reinterpret_cast<const char *>(value.data());
    return {text, value.empty() ? 0 : strnlen(text, value.size())};
}

int fill_cl_debug_log_params(const hashTable_t *cache, const cl_debug_record_params *params, char **expanded_log,
                             int verbose) {
    *expanded_log = nullptr;
    if (cache == nullptr || params == nullptr) {
        WL_LOG(3, "NULL params passed.");
        return -1;
    }
    if (params->info_code == INFOCODE_RADIUS && params->subinfo_code >= SUBINFO_RADIUS_FIRST_PACKET) {
        parse_radius_attr(params, expanded_log, verbose);
        return 0;
    }
    growing_text line{};
    const char *sentence = find_sentence(cache, params, &line);
    if (sentence != nullptr) {
        line.length = 0;
        append_sentence(&line, sentence, params);
    }
    if (line.failed)
        WL_LOG(3, "Failed to alloc memory for expanded log.");
    if (line.failed || sentence == nullptr) {
        std::free(line.text);
        return -1;
    }
    *expanded_log = line.text;
    return 0;
}

const char *get_rule_match_type(int match_type) {
    switch (match_type) {
    case 1:
        return "Exact";
    case 2:
        return "Contains";
    case 3:
        return "Equals";
    default:
        return "Unknown";
    }
}
