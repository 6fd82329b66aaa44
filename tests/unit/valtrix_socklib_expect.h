/// What the tests of the socket library share.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <unistd.h>
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

/// Expects that `action`, which runs once for each of several levels, logs exactly `lines` ("<function>: <message>"),
/// all of them at the given level.
template <class Action> void expect_lines(int level, const std::vector<std::string> &lines, Action action) {
    for (const int at : {level - 1, level, 7}) {
        log_capture log(at);
        action();
        EXPECT_EQ(log.lines(), at < level ? std::vector<std::string>{} : lines) << "at level " << at;
    }
}

/// Expects that `action` logs nothing at any level.
template <class Action> void expect_no_line(Action action) {
    log_capture log;
    action();
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

inline size_t open_descriptors() {
    size_t count = 0;
    DIR *directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr)
        ++count;
    closedir(directory);
    return count;
}

/// A descriptor that is closed with its scope.
class descriptor {
public:
    explicit descriptor(int fd = -1) : fd_(fd) {}
    ~descriptor() {
        reset();
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;

    void reset(int fd = -1) {
        if (fd_ >= 0)
            close(fd_);
        fd_ = fd;
    }
    operator int() const {
        return fd_;
    }

private:
    int fd_;
};

/// Waits for something to read. @return false when nothing came for long
inline bool something_comes(int fd) {
    pollfd wanted{fd, POLLIN, 0};
    return poll(&wanted, 1, 10000) == 1;
}
