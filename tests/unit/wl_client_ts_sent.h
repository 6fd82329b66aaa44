/// Watches what client troubleshooting posts on the bus, and builds what it should post, apart from the product's own
/// records. The test executable links with --wrap=wl_send_evt.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "event_payload.h"
#include "libwl.h"

struct sent_event {
    int event;
    byte_string payload;
};

inline std::vector<sent_event> sent;
inline std::vector<int> send_results;  // of the first calls; each one after them gets 1
inline std::function<void()> on_send = [] {};

extern "C" [[gnu::used]] inline int __wrap_wl_send_evt(vre_iw_cmd_t event, const void *payload, int length) {
    const auto *const bytes = static_cast<const uint8_t *>(payload);
    sent.push_back({event, byte_string(bytes, bytes + length)});
    on_send();
    return sent.size() <= send_results.size() ? send_results[sent.size() - 1] : 1;
}

/// A packet under construction; every call appends and returns the packet.
class expected_packet {
public:
    expected_packet &bytes(const byte_string &more) {
        bytes_.insert(bytes_.end(), more.begin(), more.end());
        return *this;
    }

    expected_packet &number(uint64_t value, int width) {
        return bytes(big_endian_bytes(value, width));
    }

    expected_packet &item(unsigned type, const byte_string &value) {
        return number(type, 2).number(value.size(), 2).bytes(value);
    }

    expected_packet &u16(unsigned type, unsigned value) {
        return item(type, big_endian_bytes(value, 2));
    }

    expected_packet &u32(unsigned type, uint32_t value) {
        return item(type, big_endian_bytes(value, 4));
    }

    expected_packet &text(unsigned type, const std::string &value) {
        return item(type, text_bytes(value));
    }

    const byte_string &bytes() const {
        return bytes_;
    }

private:
    byte_string bytes_;
};
