#include "log_capture.h"

#include <climits>
#include <cstdlib>
#include <sstream>

#include "wl_log.h"

namespace {

/// @return characters of time and process id at the start of a line; 0 when it goes on from the line before
size_t prefix_size(const std::string &line) {
    int size = 0;
    std::sscanf(line.c_str(), "%*4d.%*2d.%*2d %*2d:%*2d:%*2d pid[%*d] %n", &size);
    return static_cast<size_t>(size);
}

}  // namespace

log_capture::log_capture(int level) : before_(g_logfile_fd), level_before_(debug), limit_before_(g_max_logfile_size) {
    g_logfile_fd = open_memstream(&text_, &size_);
    g_max_logfile_size = INT_MAX;
    __atomic_store_n(&debug, level, __ATOMIC_RELAXED);
}

log_capture::~log_capture() {
    std::fclose(g_logfile_fd);
    std::free(text_);
    g_logfile_fd = before_;
    g_max_logfile_size = limit_before_;
    __atomic_store_n(&debug, level_before_, __ATOMIC_RELAXED);
}

std::vector<std::string> log_capture::lines() {
    pthread_mutex_lock(&g_logger_mutex);  // another thread's line would move the text
    std::fflush(g_logfile_fd);
    std::istringstream all(std::string(text_, size_));
    pthread_mutex_unlock(&g_logger_mutex);
    std::vector<std::string> found;
    for (std::string line; std::getline(all, line);)
        found.push_back(line.substr(prefix_size(line)));
    return found;
}
