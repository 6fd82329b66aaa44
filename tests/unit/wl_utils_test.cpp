// Reading numbers from texts and fixed-size records from payloads, and the time that only passes.
#include "wl_utils.h"

#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

#include "big_endian.h"
#include "child.h"
#include "payload.h"

namespace {

bool clocks_are_ours;
bool monotonic_fails;
bool realtime_fails;
std::vector<clockid_t> clocks_read;

}  // namespace

extern "C" int __real_clock_gettime(clockid_t clock, timespec *time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *time) {
    if (!clocks_are_ours)
        return __real_clock_gettime(clock, time);
    clocks_read.push_back(clock);
    if (clock == CLOCK_MONOTONIC ? monotonic_fails : realtime_fails)
        return -1;
    *time = clock == CLOCK_MONOTONIC ? timespec{123, 456'789'999} : timespec{1'700'000'000, 999};
    return 0;
}

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

TEST(ToNumber, ReadsInAnotherBase) {
    EXPECT_EQ(to_number("0x10", 0), 16);
    EXPECT_EQ(to_number("010", 0), 8);
    EXPECT_EQ(to_number("10", 0), 10);
    EXPECT_EQ(to_number("ff", 16), 255);
    EXPECT_EQ(to_number("0xFFFFFFFF", 0), INT32_MAX);
    EXPECT_EQ(to_number("-0x80000001", 0), INT32_MIN);
}

TEST(ToNumber, IsDecimalWithoutABase) {
    EXPECT_EQ(to_number("010"), 10);
    EXPECT_EQ(to_number("0x10"), 0);
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

namespace {

/// Each test has a process of its own, because a clock that failed once is never read again.
void expect_in_child(const std::function<bool()> &body) {
    EXPECT_EQ(wait_for(start_child([&] {
                  clocks_are_ours = true;
                  if (!body())
                      _exit(1);
              })),
              0);
}

bool time_is(int32_t sec, int32_t usec) {
    os_reltime now;
    return os_get_reltime(&now) == 0 && now.sec == sec && now.usec == usec;
}

using clocks = std::vector<clockid_t>;

}  // namespace

TEST(OsGetReltime, ReadsTheMonotonicClock) {
    expect_in_child([] { return time_is(123, 456'789) && clocks_read == clocks{CLOCK_MONOTONIC}; });
}

TEST(OsGetReltime, ReadsTheRealTimeClockForGoodOnceTheMonotonicClockHasFailed) {
    expect_in_child([] {
        monotonic_fails = true;
        if (!time_is(1'700'000'000, 0) || clocks_read != clocks{CLOCK_MONOTONIC, CLOCK_REALTIME})
            return false;
        monotonic_fails = false;
        clocks_read.clear();
        return time_is(1'700'000'000, 0) && clocks_read == clocks{CLOCK_REALTIME};
    });
}

TEST(OsGetReltime, FailsWhenBothClocksFail) {
    expect_in_child([] {
        monotonic_fails = realtime_fails = true;
        os_reltime now{7, 8};
        return os_get_reltime(&now) == -1 && now.sec == 7 && now.usec == 8;
    });
}

TEST(OsGetReltime, RecoversOnTheRealTimeClockOnly) {
    expect_in_child([] {
        monotonic_fails = realtime_fails = true;
        os_reltime now;
        (void)os_get_reltime(&now);
        monotonic_fails = realtime_fails = false;
        return time_is(1'700'000'000, 0);
    });
}

TEST(OsGetReltime, NeverGoesBack) {
    os_reltime before;
    ASSERT_EQ(os_get_reltime(&before), 0);
    for (int i = 0; i < 1000; i++) {
        os_reltime now;
        ASSERT_EQ(os_get_reltime(&now), 0);
        ASSERT_TRUE(now.sec > before.sec || (now.sec == before.sec && now.usec >= before.usec));
        before = now;
    }
}
