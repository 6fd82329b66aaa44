#include "valtrix_socklib.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <net/ethernet.h>

#include "debug_log.h"

namespace {

constexpr int MAC_TEXT_CHARACTERS = 17;
constexpr int MAC_TEXT_SIZE = MAC_TEXT_CHARACTERS + 1;

std::array<uint8_t, 4> octets_of(uint32_t address) {
    return std::bit_cast<std::array<uint8_t, 4>>(address);
}

/// Reads the pair of digits at `text`. @return its value, or -1 when it is none
int read_pair(const char *text) {
    const int high = convert_strhex_to_int(text[0]);
    const int low = convert_strhex_to_int(text[1]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

}  // namespace

uint16_t socklib_htons(uint16_t value) {
    return htons(value);
}

uint16_t socklib_ntohs(uint16_t value) {
    return ntohs(value);
}

uint32_t socklib_htonl(uint32_t value) {
    return htonl(value);
}

uint32_t socklib_ntohl(uint32_t value) {
    return ntohl(value);
}

uint64_t socklib_htonll(uint64_t value) {
    return value;
}

uint64_t socklib_ntohll(uint64_t value) {
    return value;
}

char *socklib_mac_ntoa(const uint8_t *mac_addr, int mac_addr_len, char *str_mac_addr, int str_mac_addr_len) {
    if (mac_addr == nullptr || str_mac_addr == nullptr)
        return nullptr;
    if (mac_addr_len != ETH_ALEN) {
        WL_LOG(3, "Invalid mac_addr_len [%d]", mac_addr_len);
        return nullptr;
    }
    if (str_mac_addr_len < MAC_TEXT_SIZE) {
        WL_LOG(3, "Buffer length [%d] is insufficient. Minimum is [%d].", str_mac_addr_len, MAC_TEXT_SIZE);
        return nullptr;
    }
    // "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X" by hand: every event of a client has four addresses to write.
    constexpr char DIGITS[] = "0123456789ABCDEF";
    for (int i = 0; i < ETH_ALEN; i++) {
        char *const at = str_mac_addr + 3 * i;
        at[0] = DIGITS[mac_addr[i] >> 4];
        at[1] = DIGITS[mac_addr[i] & 0x0F];
        at[2] = ':';
    }
    str_mac_addr[MAC_TEXT_SIZE - 1] = '\0';
    return str_mac_addr;
}

uint8_t *socklib_mac_aton(uint8_t *mac_addr, int mac_addr_len, const char *str_mac_addr, int str_mac_addr_len) {
    if (mac_addr == nullptr || str_mac_addr == nullptr)
        return nullptr;
    if (mac_addr_len < ETH_ALEN) {
        WL_LOG(3, "Insufficient mac_addr_len [%d]", mac_addr_len);
        return nullptr;
    }
    if (str_mac_addr_len < MAC_TEXT_CHARACTERS ||
        strnlen(str_mac_addr, MAC_TEXT_CHARACTERS) < size_t{MAC_TEXT_CHARACTERS}) {
        WL_LOG(3, "str_mac_addr_len[%d] is too short", str_mac_addr_len);
        return nullptr;
    }

    std::array<uint8_t, ETH_ALEN> parsed{};
    for (size_t at = 0; at < parsed.size(); ++at) {
        const int value = read_pair(str_mac_addr + 3 * at);
        if (value < 0 || (at > 0 && str_mac_addr[3 * at - 1] != ':'))
            return nullptr;
        parsed[at] = static_cast<uint8_t>(value);
    }
    std::copy(parsed.begin(), parsed.end(), mac_addr);
    return mac_addr;
}

char *socklib_inet_ntoa(uint32_t inet_addr, char *sin, int length) {
    if (sin == nullptr || length <= 0)
        return sin;
    const auto octets = octets_of(inet_addr);
    (void)snprintf(sin, static_cast<size_t>(length), "%u.%u.%u.%u", octets[0], octets[1], octets[2], octets[3]);
    return sin;
}

int socklib_inet_aton(const char *text, uint32_t *out) {
    in_addr address;
    if (text == nullptr || out == nullptr || inet_pton(AF_INET, text, &address) != 1)
        return -1;
    *out = address.s_addr;
    return 0;
}

int socklib_inet_pton(const char *text, struct socklib_inet_addr *out) {
    if (text == nullptr || out == nullptr)
        return -1;
    for (const int family : {AF_INET, AF_INET6}) {
        socklib_inet_addr parsed{};
        parsed.family = family;
        if (inet_pton(family, text, &parsed.address) == 1) {
            *out = parsed;
            return 0;
        }
    }
    return -1;
}

int socklib_ip_mcast_to_eth_mcast(uint32_t ip, uint8_t *mac, int len) {
    if (mac == nullptr || len < ETH_ALEN)
        return -1;
    const auto octets = octets_of(ip);
    const uint8_t group[ETH_ALEN] = {0x01, 0x00, 0x5e, static_cast<uint8_t>(octets[1] & 0x7f), octets[2], octets[3]};
    std::memcpy(mac, group, sizeof group);
    return 0;
}

int socklib_is_group_ip(uint32_t ip) {
    const auto octets = octets_of(ip);
    const bool multicast = octets[0] >= 224 && octets[0] <= 239;
    return multicast || std::find(octets.begin(), octets.end(), 255) != octets.end() ? 1 : 0;
}

int convert_strhex_to_int(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}
