#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "crash_handler.h"
#include "error_text.h"
#include "wl_log.h"
#include "wl_server.h"

namespace {

bool begins_with(const char *text, const char (&prefix)[3]) {
    return std::strncmp(text, prefix, 2) == 0;
}

/// @return the argument after argv[at]; without one, the process ends with the given complaint
char *next_argument(int argc, char **argv, int at, const char *complaint) {
    if (at + 1 >= argc) {
        std::fputs(complaint, stdout);
        std::exit(1);
    }
    return argv[at + 1];
}

/// Reads -l and -c. The value that -l has consumed is deliberately looked at again, for compatibility: a log path that
/// begins with "-c" is also the option.
const char *parse_arguments(int argc, char **argv) {
    const char *configuration = "/tmp/wl_evt_handler.conf";
    for (int i = 1; i < argc; i++) {
        if (begins_with(argv[i], "-l")) {
            g_logfile_path = next_argument(argc, argv, i, "ERROR: Invalid argument. pass log file with -l option");
            i++;
        }
        if (begins_with(argv[i], "-c")) {
            configuration = next_argument(argc, argv, i, "ERROR: Invalid argument. pass conf file with -c option");
            i++;
        }
    }
    return configuration;
}

}  // namespace

int main(int argc, char **argv) {
    const char *configuration = parse_arguments(argc, argv);
    if (g_logfile_path != nullptr && init_server_log() != 0) {
        const int error = errno;
        WL_LOG(2, "[%s]ERROR: Unable to open log file [%s] err[%s] ", __func__, g_logfile_path, error_text(error));
        return 1;
    }
    register_crash_handler("wl_evt_handler");
    if (daemonize() < 0) {
        std::perror("Failed to daemonize, exitting.");
        return 0;
    }
    start_server(configuration);
    for (;;)
        serve_once();
}
