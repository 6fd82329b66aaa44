#include "error_text.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

TEST(ErrorText, NamesAKnownError) {
    EXPECT_STREQ(error_text(ENOENT), "No such file or directory");
}

TEST(ErrorText, NumbersAnUnknownError) {
    EXPECT_STREQ(error_text(9999), "Unknown error 9999");
}

TEST(ErrorText, SurvivesAnotherThreadsCall) {
    const char *const text = error_text(9999);
    std::thread([] { EXPECT_STREQ(error_text(8888), "Unknown error 8888"); }).join();
    EXPECT_STREQ(text, "Unknown error 9999");
}

}  // namespace
