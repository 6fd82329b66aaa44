/// The debug log: timestamped lines in a file rotated by size, or on standard error without one.
///
/// Call sites decide by level (WL_LOG in debug_log.h); the writer filters nothing. Every write and rotation holds the
/// recursive g_logger_mutex, which is always the last lock taken, so any thread may log at any point.
#pragma once

#include <cstdio>
#include <pthread.h>

#include "debug_log.h"

extern char *g_logfile_path;    // null: no log file
extern FILE *g_logfile_fd;      // null: lines go to standard error
extern int g_logfile_size;      // bytes written to the current file; saturates
extern int g_max_logfile_size;  // a file larger than this is rotated
extern int g_num_logfile;       // generations, the current file included
extern pthread_mutex_t g_logger_mutex;

/// Opens g_logfile_path for appending.
///
/// @return 0; 1 when it cannot be opened or examined, with `errno` set
[[nodiscard]] int init_server_log();

/// Renames each generation to the next and opens a fresh file; does nothing without a log file. Called with
/// g_logger_mutex held.
void do_logrotate();

/// Sets the verbosity, clamped to 2..7, and logs its name.
void set_debug_level(int level);
