/// The fuzz targets' own reading of the texts of addresses.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

inline int value_of_digit(char digit) {
    constexpr std::string_view DIGITS = "0123456789abcdefABCDEF";
    const size_t at = DIGITS.find(digit);
    return at == std::string_view::npos ? -1 : static_cast<int>(at < 16 ? at : at - 6);
}

/// Six pairs of hexadecimal digits, separated by colons; what follows does not matter.
inline std::optional<std::array<uint8_t, 6>> mac_in(std::string_view text) {
    if (text.size() < 17)
        return {};
    std::array<uint8_t, 6> mac{};
    for (size_t at = 0; at < 17; ++at) {
        const int digit = value_of_digit(text[at]);
        if (at % 3 == 2 ? text[at] != ':' : digit < 0)
            return {};
        if (at % 3 != 2)
            mac[at / 3] = static_cast<uint8_t>(mac[at / 3] * 16 + digit);
    }
    return mac;
}

/// Four decimal numbers of at most 255 without needless zeros, separated by dots, and nothing else.
inline std::optional<std::array<uint8_t, 4>> ipv4_in(std::string_view text) {
    std::array<uint8_t, 4> address{};
    for (size_t octet = 0; octet < 4; ++octet) {
        const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
        if (digits.empty() || digits.size() > 3 || (digits.size() > 1 && digits[0] == '0'))
            return {};
        int value = 0;
        for (const char digit : digits)
            value = value * 10 + value_of_digit(digit);
        text.remove_prefix(digits.size());
        if (value > 255 || text.empty() != (octet == 3) || (octet < 3 && text[0] != '.'))
            return {};
        address[octet] = static_cast<uint8_t>(value);
        text.remove_prefix(octet < 3 ? 1 : 0);
    }
    return address;
}

/// Groups of one to four hexadecimal digits separated by colons; the last two may be an IPv4 address; one run of zero
/// groups may be left out between two colons.
inline std::optional<std::array<uint8_t, 16>> ipv6_in(std::string_view text) {
    constexpr size_t NONE = 99;
    std::array<uint8_t, 16> address{};
    size_t size = 0;
    size_t gap = NONE;
    if (text.starts_with("::"))
        text.remove_prefix(1);
    else if (text.starts_with(":") || text.empty())
        return {};
    while (!text.empty()) {
        if (text[0] == ':') {  // the second of two
            if (gap != NONE)
                return {};
            gap = size;
            text.remove_prefix(1);
            continue;
        }
        const std::string_view group = text.substr(0, text.find(':'));
        if (const auto ipv4 = ipv4_in(group); ipv4 && group.size() == text.size() && size <= 12) {
            for (const uint8_t octet : *ipv4)
                address[size++] = octet;
            break;
        }
        if (group.size() > 4 || size > 14)
            return {};
        int value = 0;
        for (const char digit : group) {
            if (value_of_digit(digit) < 0)
                return {};
            value = value * 16 + value_of_digit(digit);
        }
        address[size++] = static_cast<uint8_t>(value >> 8);
        address[size++] = static_cast<uint8_t>(value);
        text.remove_prefix(group.size());
        if (text == ":")
            return {};
        text.remove_prefix(text.empty() ? 0 : 1);
    }
    if (size == 16 && gap == NONE)
        return address;
    if (size == 16 || gap == NONE)
        return {};
    std::array<uint8_t, 16> spread{};
    for (size_t at = 0; at < size; ++at)
        spread[at < gap ? at : at + 16 - size] = address[at];
    return spread;
}
