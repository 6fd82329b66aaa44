/// Integers that live on disk, on the bus or on the wire. They hold their bytes in big-endian order, convert on read
/// and on assignment, and need no alignment, so a record made of them is the same on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

template <class Integer> struct big_endian {
    using unsigned_type = std::make_unsigned_t<Integer>;

    uint8_t bytes[sizeof(Integer)];

    operator Integer() const {
        unsigned_type value = 0;
        for (const uint8_t byte : bytes)
            value = static_cast<unsigned_type>((value << 8) | byte);
        return static_cast<Integer>(value);
    }

    big_endian &operator=(Integer value) {
        auto rest = static_cast<unsigned_type>(value);
        for (size_t at = sizeof bytes; at-- > 0;) {
            bytes[at] = static_cast<uint8_t>(rest);
            rest = static_cast<unsigned_type>(rest >> 8);
        }
        return *this;
    }
};

using be_u16 = big_endian<uint16_t>;
using be_u32 = big_endian<uint32_t>;
using be_i32 = big_endian<int32_t>;

static_assert(sizeof(be_u16) == 2 && alignof(be_u16) == 1);
static_assert(sizeof(be_u32) == 4 && alignof(be_u32) == 1);
static_assert(sizeof(be_i32) == 4 && alignof(be_i32) == 1);
static_assert(std::is_trivially_copyable_v<be_u32>);

/// One-bit flags in one stored byte: the first is 0x80, the second 0x40 and so on, on every machine.
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#define FLAG_BYTE_2(first, second) \
    uint8_t first : 1;             \
    uint8_t second : 1;            \
    uint8_t:                       \
    6
#define FLAG_BYTE_3(first, second, third) \
    uint8_t first : 1;                    \
    uint8_t second : 1;                   \
    uint8_t third : 1;                    \
    uint8_t:                              \
    5
#define FLAG_BYTE_8(first, second, third, fourth, fifth, sixth, seventh, eighth) \
    uint8_t first : 1;                                                           \
    uint8_t second : 1;                                                          \
    uint8_t third : 1;                                                           \
    uint8_t fourth : 1;                                                          \
    uint8_t fifth : 1;                                                           \
    uint8_t sixth : 1;                                                           \
    uint8_t seventh : 1;                                                         \
    uint8_t eighth : 1
#else
#define FLAG_BYTE_2(first, second) \
    uint8_t:                       \
    6;                             \
    uint8_t second : 1;            \
    uint8_t first : 1
#define FLAG_BYTE_3(first, second, third) \
    uint8_t:                              \
    5;                                    \
    uint8_t third : 1;                    \
    uint8_t second : 1;                   \
    uint8_t first : 1
#define FLAG_BYTE_8(first, second, third, fourth, fifth, sixth, seventh, eighth) \
    uint8_t eighth : 1;                                                          \
    uint8_t seventh : 1;                                                         \
    uint8_t sixth : 1;                                                           \
    uint8_t fifth : 1;                                                           \
    uint8_t fourth : 1;                                                          \
    uint8_t third : 1;                                                           \
    uint8_t second : 1;                                                          \
    uint8_t first : 1
#endif
