/// A decoder of the packets that the daemon sends to the synch agent, for the targets that have it send some. A packet
/// is as long as its header says, and the records and items of its payload add up to it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "profile_files.h"

using byte_view = std::span<const uint8_t>;

inline size_t number_of(byte_view bytes) {
    return bytes[0] * size_t{256} + bytes[1];
}

/// Takes an item off the front.
///
/// @return false, with nothing taken, when another one stands there
inline bool take_item(byte_view &items, uint8_t type, size_t length) {
    if (items.size() < 2 + length || items[0] != type || items[1] != (length & 0xFF))
        return false;
    items = items.subspan(2 + length);
    return true;
}

/// Takes an item of up to `longest` bytes off the front, likewise.
inline bool take_text(byte_view &items, uint8_t type, size_t longest) {
    return items.size() >= 2 && items[1] <= longest && take_item(items, type, items[1]);
}

inline bool is_end_of_key(byte_view items) {
    if (!take_item(items, 4, 1))
        return false;
    constexpr uint8_t VLAN_0[] = {6, 4, 0, 0, 0, 0};
    const bool is_vlan_0 = items.size() >= sizeof VLAN_0 && std::equal(VLAN_0, VLAN_0 + sizeof VLAN_0, items.begin());
    (void)take_item(items, 6, 4);
    (void)take_item(items, 7, 8);
    (void)take_item(items, 9, 4);
    return take_item(items, 8, 1) == is_vlan_0 && items.empty();
}

/// An identity may be longer than its length byte says, by multiples of 256: one of them makes the rest fit.
inline bool is_key(byte_view items) {
    if (!take_item(items, 10, 6) || !take_item(items, 1, 32) || !take_item(items, 2, 4) || items.size() < 2)
        return false;
    for (size_t length = items[1]; length + 2 <= items.size(); length += 256) {
        if (items[0] == 3 && is_end_of_key(items.subspan(2 + length)))
            return true;
    }
    return false;
}

inline bool is_login(byte_view items) {
    if (!take_item(items, 8, 20) || !take_text(items, 7, 16) || !take_item(items, 6, 4) || !take_item(items, 16, 4))
        return false;
    if (take_text(items, 14, 64) && !take_item(items, 15, 4))
        return false;
    if (take_item(items, 17, 4) && !take_item(items, 18, 4))
        return false;
    return items.empty();
}

inline bool is_registration(byte_view items) {
    constexpr uint8_t NUMBER[] = {11, 4, 0, 0, 4, 8};
    if (!take_text(items, 10, 255) || items.size() < sizeof NUMBER)
        return false;
    return std::equal(NUMBER, NUMBER + sizeof NUMBER, items.begin()) && take_item(items, 11, 4) &&
           take_item(items, 12, 14) && items.empty();
}

inline bool is_request(byte_view items) {
    return items.size() == 3 && items[0] == 30 && items[1] == 1 && items[2] <= 1;
}

/// Records one after the other. The items of a key without an identity are not there: as many zeros stand at the end.
/// Only what holds a single client has 1200 bytes and more.
inline bool is_answer(byte_view payload) {
    const size_t size = payload.size();
    size_t records = 0;
    size_t left_out = 0;
    while (payload.size() > left_out) {
        if (payload.size() < 4)
            return false;
        const size_t kind = number_of(payload);
        const size_t length = number_of(payload.subspan(2));
        payload = payload.subspan(4);
        records++;
        if (kind == 1 && !payload.empty() && payload[0] == 0) {
            left_out += length;
            continue;
        }
        if (length > payload.size())
            return false;
        if (kind == 1 ? !is_key(payload.first(length)) : kind != 2 || !is_login(payload.first(length)))
            return false;
        payload = payload.subspan(length);
    }
    return records != 0 && (size < 1200 || records <= 2) && payload.size() == left_out &&
           std::all_of(payload.begin(), payload.end(), [](uint8_t byte) { return byte == 0; });
}

inline bool is_payload_of(uint8_t type, uint8_t subtype, byte_view payload) {
    switch (type) {
    case 3:
        return subtype == 1 && is_login(payload);
    case 10:
        return subtype == 1 ? is_request(payload) : subtype == 2 && is_answer(payload);
    case 32:
    case 35:
        return subtype == 0 && is_registration(payload);
    default:
        return false;
    }
}

inline void check_sent(byte_view packet) {
    require(packet.size() >= 14 && packet[0] == 1 && packet[3] == 0);
    require(packet.size() == 14 + packet[5] + number_of(packet.subspan(6)));
    require(is_payload_of(packet[1], packet[4], packet.subspan(14U + packet[5])));
}
