#include "wl_vap_helpers.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "debug_log.h"
#include "wl_utils.h"

namespace {

constexpr int MAC_SIZE = 6;
constexpr int MAC_TEXT_SIZE = 18;

/// Right for digits and upper-case letters only.
int digit_value(char digit) {
    return digit < ':' ? digit - '0' : digit - '7';
}

bool is_blank(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

bool is_key_character(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '-' || character == '_' ||
           character == ':';
}

void cut_line_end(char *text) {
    size_t length = std::strlen(text);
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r'))
        text[--length] = '\0';
}

/// Splits a line in place.
///
/// @return whether it has a key and a value
bool split_line(char *line, char *&key, char *&value) {
    key = line;
    while (is_blank(*key))
        key++;
    char *at = key;
    while (is_key_character(*at))
        at++;
    if (at == key || *at == '\0')
        return false;
    *at++ = '\0';
    while (is_blank(*at) || *at == '=')
        at++;
    value = at;
    cut_line_end(value);
    return *value != '\0';
}

}  // namespace

char *macaddr_ntoa_r(const uint8_t mac[6], char *out) {
    std::snprintf(out, MAC_TEXT_SIZE, "%.2hhX:%.2hhX:%.2hhX:%.2hhX:%.2hhX:%.2hhX", mac[0], mac[1], mac[2], mac[3],
                  mac[4], mac[5]);
    return out;
}

uint8_t *macaddr_aton_r(uint8_t *out, int out_len, const char *text, int text_len) {
    if (out_len < MAC_SIZE) {
        std::printf("Insufficient mac_addr_len [%d]", out_len);
        return nullptr;
    }
    std::memset(out, 0, static_cast<size_t>(out_len));
    for (int i = 0; i < MAC_SIZE; i++) {
        if (3 * i + 1 >= text_len) {
            std::printf("str_mac_addr_len[%d] is too short", text_len);
            return nullptr;
        }
        out[i] = static_cast<uint8_t>(digit_value(text[3 * i]) * 16 + digit_value(text[3 * i + 1]));
    }
    return out;
}

char *parse_config(FILE *file, char **key, char **value) {
    static char line[1024];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        char *line_key;
        char *line_value;
        if (!split_line(line, line_key, line_value))
            continue;
        if (key != nullptr)
            *key = line_key;
        if (value != nullptr)
            *value = line_value;
        return line_key;
    }
    return nullptr;
}

void create_and_add_vap(list_t **list, char *name, uint16_t *count) {
    name[std::strcspn(name, ".")] = '\0';
    auto *const vap = static_cast<vapinfo *>(std::calloc(1, sizeof(vapinfo)));
    if (vap == nullptr)
        return;
    std::memcpy(vap->name, name, strnlen(name, sizeof vap->name - 1));
    if (list_insert_head(list, vap) == nullptr) {
        std::free(vap);
        return;
    }
    ++*count;
}

void create_and_add_extra_vlan(list_t **list, int vlan_id, uint16_t *count) {
    WL_LOG(6, "vlan_id : %d\n", vlan_id);
    auto *const vlan = static_cast<int32_t *>(std::malloc(sizeof(int32_t)));
    if (vlan == nullptr) {
        WL_LOG(3, "Cannot allocate memory for vlan data");
        return;
    }
    *vlan = vlan_id;
    const int length_before = list_length(*list);
    // A duplicate is deliberately not freed, for compatibility. It costs an int for each VLAN that a profile names
    // twice, each time the profile is loaded.
    if (list_insert_without_duplication(list, lt_compare_extra_vlan, vlan, nullptr) != 0)
        return;
    // The list also reports success when it had no memory for a node.
    if (list_length(*list) == length_before) {
        std::free(vlan);
        return;
    }
    ++*count;
}

void add_ssid_extra_vlan_list(list_t **list, char *text, uint16_t *count) {
    while (const char *piece = strsep(&text, ","))
        create_and_add_extra_vlan(list, to_number(piece), count);
}

int lt_compare_extra_vlan(const void *vlan_id, const void *other_vlan_id) {
    const auto first = *static_cast<const uint32_t *>(vlan_id);
    const auto second = *static_cast<const uint32_t *>(other_vlan_id);
    return static_cast<int16_t>(first - second);
}
