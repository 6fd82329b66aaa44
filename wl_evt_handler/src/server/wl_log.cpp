#include "wl_log.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

int debug = 3;

char *g_logfile_path;
FILE *g_logfile_fd;
int g_logfile_size;
int g_max_logfile_size = 102400;
int g_num_logfile = 4;
pthread_mutex_t g_logger_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

namespace {

constexpr int LOWEST_LEVEL = 2;
constexpr int HIGHEST_LEVEL = 7;
constexpr const char *LEVEL_NAMES[HIGHEST_LEVEL + 1] = {nullptr, nullptr, "WL_DBG_CRIT", "WL_DBG_ERROR",
                                                        nullptr, nullptr, "WL_DBG_INFO", "WL_DBG_DEBUG"};

using generation_path = char[1028];

/// The close-on-exec flag keeps the file out of the shell commands that the daemon starts.
FILE *open_logfile() {
    return std::fopen(g_logfile_path, "ae");
}

/// @return 0, or 1 with `errno` set and no log file open
int open_and_measure() {
    g_logfile_fd = open_logfile();
    if (g_logfile_fd == nullptr)
        return 1;
    struct stat on_disk;
    if (stat(g_logfile_path, &on_disk) != 0) {
        const int error = errno;
        std::fclose(g_logfile_fd);
        g_logfile_fd = nullptr;
        errno = error;
        return 1;
    }
    g_logfile_size = static_cast<int>(std::min<int64_t>(on_disk.st_size, INT_MAX));
    return 0;
}

/// Without a log file nothing ever resets the count, so it stops at the end of its range.
void add_to_size(int characters) {
    g_logfile_size = static_cast<int>(std::clamp<int64_t>(int64_t{g_logfile_size} + characters, INT_MIN, INT_MAX));
}

int write_prefix(FILE *stream, const char *function_name) {
    const time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    return std::fprintf(stream, "%04d.%02d.%02d %02d:%02d:%02d pid[%d] %s: ", local.tm_year + 1900, local.tm_mon + 1,
                        local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, getpid(), function_name);
}

void name_generation(generation_path &path, int generation) {
    if (generation == 0)
        std::snprintf(path, sizeof path, "%s", g_logfile_path);
    else
        std::snprintf(path, sizeof path, "%s.%d", g_logfile_path, generation);
}

}  // namespace

int init_server_log() {
    pthread_mutex_lock(&g_logger_mutex);
    const int result = open_and_measure();
    pthread_mutex_unlock(&g_logger_mutex);
    return result;
}

int debug_log(const char *function_name, const char *format, ...) {
    pthread_mutex_lock(&g_logger_mutex);
    FILE *const stream = g_logfile_fd != nullptr ? g_logfile_fd : stderr;

    add_to_size(write_prefix(stream, function_name));
    va_list arguments;
    va_start(arguments, format);
    add_to_size(std::vfprintf(stream, format, arguments));
    va_end(arguments);
    add_to_size(std::fprintf(stream, "\n"));
    std::fflush(stream);

    if (g_logfile_size > g_max_logfile_size)
        do_logrotate();
    return pthread_mutex_unlock(&g_logger_mutex);
}

void do_logrotate() {
    if (g_logfile_fd == nullptr)
        return;
    std::fclose(g_logfile_fd);
    for (int generation = g_num_logfile - 2; generation >= 0; --generation) {
        generation_path from;
        generation_path to;
        name_generation(from, generation);
        name_generation(to, generation + 1);
        std::rename(from, to);
    }
    g_logfile_fd = open_logfile();
    g_logfile_size = 0;
}

void set_debug_level(int level) {
    const int allowed = std::clamp(level, LOWEST_LEVEL, HIGHEST_LEVEL);
    __atomic_store_n(&debug, allowed, __ATOMIC_RELAXED);
    WL_LOG(2, "Setting debug level to %s", text_or_null(LEVEL_NAMES[allowed]));
}
