/// Collects the lines that debug_log writes while it lives, at a debug level.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

class log_capture {
public:
    explicit log_capture(int level = 7);
    ~log_capture();
    log_capture(const log_capture &) = delete;
    log_capture &operator=(const log_capture &) = delete;

    /// The lines so far, each as "<function>: <message>" (time and process id cut off).
    std::vector<std::string> lines();

private:
    char *text_ = nullptr;
    size_t size_ = 0;
    FILE *before_ = nullptr;
    int level_before_ = 0;
    int limit_before_ = 0;
};
