/// Small helpers that every module may use, on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Reads a number as far as it goes (leading blanks and a sign allowed, 0 when there is none) and saturates it to the
/// 32-bit range, so that every machine reads the same value.
///
/// @param base  2 to 36; 0: decimal, hexadecimal or octal by the prefix, as C writes them
int32_t to_number(const char *text, int base = 10);

/// A time that only passes.
struct os_reltime {
    int32_t sec;
    int32_t usec;
};

/// Reads the monotonic clock; once that has failed, the real-time clock for good.
///
/// @return 0; -1 when the real-time clock failed too
[[nodiscard]] int os_get_reltime(os_reltime *now);

/// Writes an address of an event's value as text: 4 bytes as IPv4, anything else as the IPv6 address of its first 16
/// bytes, missing ones zero.
///
/// @param text  46 bytes
void ip_address_text(const void *address, int len, char *text);

/// Clears memory that held keys. The empty statement keeps the compiler from dropping the clearing of what is released
/// next; not every C library has explicit_bzero.
inline void wipe(void *bytes, size_t size) {
    std::memset(bytes, 0, size);
    asm volatile("" : : "r"(bytes) : "memory");
}
