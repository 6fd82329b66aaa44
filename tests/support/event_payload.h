/// Builds event payloads byte by byte, apart from the product's own records, and lays them out as the bus hands them to
/// a handler.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using byte_string = std::vector<uint8_t>;

/// `value` in `width` bytes, most significant first.
inline byte_string big_endian_bytes(uint64_t value, int width) {
    byte_string bytes;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    return bytes;
}

inline byte_string text_bytes(const std::string &text) {
    return byte_string(text.begin(), text.end());
}

/// A payload under construction; every call appends and returns the payload.
class event_payload {
public:
    event_payload &bytes(const byte_string &more) {
        bytes_.insert(bytes_.end(), more.begin(), more.end());
        return *this;
    }

    event_payload &header(const byte_string &mac, uint32_t profile_id) {
        return bytes(mac).bytes(big_endian_bytes(profile_id, 4));
    }

    /// An item whose stated length is `length`, whatever the value's is.
    event_payload &item_claiming(uint32_t tag, uint32_t length, const byte_string &value = {}) {
        return bytes(big_endian_bytes(tag, 4)).bytes(big_endian_bytes(length, 4)).bytes(value);
    }

    event_payload &item(uint32_t tag, const byte_string &value = {}) {
        return item_claiming(tag, static_cast<uint32_t>(value.size()), value);
    }

    /// A text with its NUL.
    event_payload &text(uint32_t tag, const std::string &value) {
        return item(tag, text_bytes(value + '\0'));
    }

    event_payload &u32(uint32_t tag, uint32_t value) {
        return item(tag, big_endian_bytes(value, 4));
    }

    event_payload &u16(uint32_t tag, uint16_t value) {
        return item(tag, big_endian_bytes(value, 2));
    }

    const byte_string &bytes() const {
        return bytes_;
    }

private:
    byte_string bytes_;
};

/// A received payload: its bytes and the 64 that follow, in a block of just that size so that a sanitizer sees every
/// step beyond.
class received_payload {
public:
    explicit received_payload(const event_payload &payload, uint8_t filler = 0)
        : received_payload(payload.bytes(), filler) {}

    explicit received_payload(const byte_string &bytes, uint8_t filler = 0)
        : data_(new uint8_t[bytes.size() + 64]), length_(static_cast<int>(bytes.size())) {
        std::memset(data_.get(), filler, bytes.size() + 64);
        std::copy(bytes.begin(), bytes.end(), data_.get());
    }

    uint8_t *data() {
        return data_.get();
    }

    int length() const {
        return length_;
    }

private:
    std::unique_ptr<uint8_t[]> data_;
    int length_;
};
