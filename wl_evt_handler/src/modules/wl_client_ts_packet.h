/// The packets in which client troubleshooting leaves on the bus: fixed fields, then items of type, length and value,
/// all numbers big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "big_endian.h"

constexpr size_t PACKET_SIZE = 2048;  // bytes; only an event with a long value takes more

struct [[gnu::packed]] item_head {
    be_u16 type;
    be_u16 length;
};
static_assert(sizeof(item_head) == 4);

/// A packet under construction. What does not fit any more is left out, an item as a whole.
struct packet {
    uint8_t *bytes;
    size_t capacity;
    size_t length;
};

inline bool has_room(const packet &out, size_t length) {
    return length <= out.capacity - out.length;
}

inline void put(packet &out, const void *bytes, size_t length) {
    if (!has_room(out, length))
        return;
    std::memcpy(out.bytes + out.length, bytes, length);
    out.length += length;
}

inline void put_item(packet &out, uint16_t type, const void *value, size_t length) {
    item_head head;
    if (!has_room(out, sizeof head + length))
        return;
    head.type = type;
    head.length = static_cast<uint16_t>(length);
    put(out, &head, sizeof head);
    put(out, value, length);
}

inline void put_item_u16(packet &out, uint16_t type, uint16_t number) {
    be_u16 value;
    value = number;
    put_item(out, type, &value, sizeof value);
}

inline void put_item_u32(packet &out, uint16_t type, uint32_t number) {
    be_u32 value;
    value = number;
    put_item(out, type, &value, sizeof value);
}

/// @param address  in network order
inline void put_item_ip(packet &out, uint16_t type, uint32_t address) {
    put_item(out, type, &address, sizeof address);
}

inline void put_item_text(packet &out, uint16_t type, const char *text) {
    put_item(out, type, text, std::strlen(text));
}
