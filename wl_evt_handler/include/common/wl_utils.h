/// Configuration helpers: numbers read from texts.
#pragma once

#include <cstdint>

/// Reads a decimal number as far as it goes (leading blanks and a sign allowed, 0 when there is none) and saturates
/// it to the 32-bit range, so that every machine reads the same value.
int32_t to_number(const char *text);
