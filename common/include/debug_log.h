/// The contract of the debug log between the shared library and the program that links it.
///
/// The library writes its diagnostics through these two names; every program of the product line that links the
/// library defines them, a C program too (the daemon does so in wl_log.cpp). Safe from any thread.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Current verbosity: a message of level N is written only while debug >= N. Levels are 2 critical, 3 error,
/// 6 information, 7 debug.
extern int debug;

/// Writes one line "<time> pid[<pid>] <function_name>: <message>" to the debug log.
///
/// @return the result of releasing the log's mutex (0 unless the mutex is broken)
int debug_log(const char *function_name, const char *format, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}

// What follows is for our own sources.

/// The level is read without the log's lock, from any thread, while the main thread may set it.
inline int current_debug_level() {
    return __atomic_load_n(&debug, __ATOMIC_RELAXED);
}

/// Logs under another function's name: for helpers that speak for the function a support engineer looks for.
#define WL_LOG_AS(function_name, level, ...)               \
    do {                                                   \
        if (current_debug_level() >= (level))              \
            (void)debug_log((function_name), __VA_ARGS__); \
    } while (0)

/// Logs a line of the given level under the calling function's name.
#define WL_LOG(level, ...) WL_LOG_AS(__func__, level, __VA_ARGS__)

/// The text that stands for an absent one in a line: C libraries differ in what "%s" makes of a null pointer.
inline const char *text_or_null(const char *text) {
    return text != nullptr ? text : "(null)";
}

/// A MAC address in a line: MAC_FMT in the format, MAC_ARGS of its 6 bytes among the arguments.
#define MAC_FMT "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X"
#define MAC_ARGS(mac) (mac)[0], (mac)[1], (mac)[2], (mac)[3], (mac)[4], (mac)[5]

#endif
