// Reading numbers from texts and fixed-size records from payloads.
#include "wl_utils.h"

#include <gtest/gtest.h>

#include "big_endian.h"
#include "payload.h"

TEST(ToNumber, ReadsADecimalNumber) {
    EXPECT_EQ(to_number("0"), 0);
    EXPECT_EQ(to_number("42"), 42);
    EXPECT_EQ(to_number("-17"), -17);
    EXPECT_EQ(to_number("+8"), 8);
    EXPECT_EQ(to_number("007"), 7);
}

TEST(ToNumber, SkipsLeadingBlanks) {
    EXPECT_EQ(to_number("  \t\n12"), 12);
}

TEST(ToNumber, StopsAtTheFirstOtherCharacter) {
    EXPECT_EQ(to_number("12abc"), 12);
    EXPECT_EQ(to_number("3.9"), 3);
    EXPECT_EQ(to_number("0x10"), 0);
    EXPECT_EQ(to_number("5 6"), 5);
}

TEST(ToNumber, IsZeroWithoutANumber) {
    for (const char *text : {"", "   ", "abc", "-", "+", "--5", "- 5"})
        EXPECT_EQ(to_number(text), 0) << text;
}

TEST(ToNumber, SaturatesTo32Bits) {
    EXPECT_EQ(to_number("2147483647"), INT32_MAX);
    EXPECT_EQ(to_number("2147483648"), INT32_MAX);
    EXPECT_EQ(to_number("4294967295"), INT32_MAX);
    EXPECT_EQ(to_number("99999999999999999999999"), INT32_MAX);
    EXPECT_EQ(to_number("-2147483648"), INT32_MIN);
    EXPECT_EQ(to_number("-2147483649"), INT32_MIN);
    EXPECT_EQ(to_number("-99999999999999999999999"), INT32_MIN);
}

TEST(ReadPayload, CopiesTheRecord) {
    const uint8_t bytes[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(read_payload<be_u32>(bytes, 5), 0x01020304U);
    EXPECT_EQ(read_payload<be_u32>(bytes, 4), 0x01020304U);
}

TEST(ReadPayload, MissingBytesReadAsZero) {
    const uint8_t bytes[] = {1, 2, 3, 4};
    EXPECT_EQ(read_payload<be_u32>(bytes, 3), 0x01020300U);
    EXPECT_EQ(read_payload<be_u32>(bytes, 1), 0x01000000U);
    EXPECT_EQ(read_payload<be_u32>(bytes, 0), 0U);
}

TEST(ReadPayload, NegativeAvailabilityCountsAsZero) {
    const uint8_t bytes[] = {1, 2, 3, 4};
    EXPECT_EQ(read_payload<be_u32>(bytes, -1), 0U);
    EXPECT_EQ(read_payload<be_u32>(bytes, INT64_MIN), 0U);
}

TEST(ReadPayload, NullIsFineWhenNothingIsAvailable) {
    EXPECT_EQ(read_payload<be_u32>(nullptr, 0), 0U);
}

TEST(ReadPayload, AvailabilityBeyond32BitsIsWhole) {
    const uint8_t bytes[] = {1, 2, 3, 4};
    EXPECT_EQ(read_payload<be_u32>(bytes, int64_t{1} << 32), 0x01020304U);
}

TEST(BigEndian, HoldsItsBytesMostSignificantFirst) {
    be_u32 word;
    word = 0x01020304;
    EXPECT_EQ(word.bytes[0], 1);
    EXPECT_EQ(word.bytes[3], 4);
    EXPECT_EQ(word, 0x01020304U);
    be_u16 half;
    half = 0xFEDC;
    EXPECT_EQ(half.bytes[0], 0xFE);
    EXPECT_EQ(half.bytes[1], 0xDC);
    EXPECT_EQ(half, 0xFEDC);
}

TEST(BigEndian, SignedValuesKeepTheirSign) {
    be_i32 word;
    for (const int32_t value : {-1, INT32_MIN, INT32_MAX, -255}) {
        word = value;
        EXPECT_EQ(word, value);
    }
}
