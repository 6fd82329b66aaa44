/// What the tests of the socket library share.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "debug_log.h"
#include "log_capture.h"

/// Expects that `action` logs exactly `line` ("<function>: <message>") at the given level and nothing below it.
template <class Action> void expect_line(int level, const std::string &line, Action action) {
    log_capture log;
    debug = level - 1;
    action();
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
    debug = level;
    action();
    EXPECT_EQ(log.lines(), std::vector<std::string>{line});
}

/// Expects that `action` logs nothing at any level.
template <class Action> void expect_no_line(Action action) {
    log_capture log;
    action();
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
}
