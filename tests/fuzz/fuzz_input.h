/// What targets share whose input is a sequence of things: taking it apart, what a finding is, and log lines that are
/// formatted and dropped.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>

#include "event_payload.h"
#include "wl_log.h"

/// Takes the input apart; beyond its end there are zeros.
class input_reader {
public:
    input_reader(const uint8_t *data, size_t size) : rest_(data, data + size) {}

    bool done() const {
        return at_ == rest_.size();
    }

    uint8_t byte() {
        return done() ? uint8_t{0} : rest_[at_++];
    }

    byte_string block(size_t length) {
        const size_t count = std::min(length, rest_.size() - at_);
        const auto begin = rest_.begin() + static_cast<std::ptrdiff_t>(at_);
        at_ += count;
        return {begin, begin + static_cast<std::ptrdiff_t>(count)};
    }

    /// A byte of length and its bytes.
    byte_string short_block() {
        return block(byte());
    }

    /// Two bytes of length and its bytes.
    byte_string file() {
        const size_t high = byte();
        return block(high << 8 | byte());
    }

private:
    byte_string rest_;
    size_t at_ = 0;
};

inline void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

inline void drop_log_lines() {
    if (g_logfile_fd != nullptr)
        return;
    g_logfile_fd = std::fopen("/dev/null", "w");
    g_max_logfile_size = INT_MAX;
    debug = 7;
}
