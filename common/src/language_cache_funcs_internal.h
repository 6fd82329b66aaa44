/// What the sources of the label catalogue share: the text under construction and the bounded view of an event's value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "language_cache_funcs.h"

constexpr int INFOCODE_RADIUS = 15;
constexpr int SUBINFO_RADIUS_FIRST_PACKET = 800;  // plus the packet's code

/// A text that grows with what is appended; all zero to begin with. A failure sticks: later appends do nothing, and the
/// owner hands nothing out, so that no line is ever cut.
struct growing_text {
    char *text;  // heap
    size_t length;
    size_t capacity;
    bool failed;
};

/// Makes room for `more` characters and a NUL.
void reserve(growing_text *line, size_t more);

void append(growing_text *line, std::string_view more);

void append_format(growing_text *line, const char *format, ...) __attribute__((format(printf, 2, 3)));

using value_bytes = std::span<const uint8_t>;

/// The value of an event; empty without one.
[[nodiscard]] value_bytes value_of(const cl_debug_record_params *params);

/// @return the big-endian number of `width` bytes at `offset`; bytes beyond the value count as 0
[[nodiscard]] uint32_t number_at(value_bytes value, size_t offset, size_t width);

struct dotted_address {
    char text[16];
};

/// @return the IPv4 address at `offset` in dotted decimal; bytes beyond the value count as 0
[[nodiscard]] dotted_address address_at(value_bytes value, size_t offset);

constexpr size_t NAME_SIZE = 33;

struct short_name {
    char text[NAME_SIZE + 1];
};

/// @return the name in the field of 33 bytes, which may lack its NUL, that the value begins with
[[nodiscard]] short_name name_at_start(value_bytes value);

/// @return the value up to its first NUL, if any
[[nodiscard]] std::string_view text_of(value_bytes value);
