/// The reload channel: a Unix datagram socket through which a local tool sets the debug level, reads the bus's failure
/// counters, tests that the daemon answers, and simulates a hung daemon. Main thread only.
#pragma once

#include <sys/un.h>

extern int g_reload_cli_fd;  // -1 when closed
extern sockaddr_un g_reload_cli_reply_addr;
extern int g_debug_appl_hanged;  // 1: every command but the hang commands is refused

/// Creates a datagram socket bound to `path` (cut at 107 characters), replacing any file there.
///
/// @return the socket, close-on-exec, owned by the caller; -1 on failure
[[nodiscard]] int create_file_socket(const char *path);

/// Opens the reload channel at `path` and adds it to the descriptors that the main loop serves.
///
/// @return the socket, or -1; the main loop tries again
int init_reload_cli(const char *path);

/// Carries out one command.
///
/// @param command  NUL-terminated text, cut up in place
/// @param length   bytes received; not used, the text ends at its NUL
/// @return 0 when the command was carried out or refused while the daemon plays hung; -1 for an unknown command or a
///         reply that could not be sent. A command of one word does not return: it crashes the process on purpose
int handle_reload_cli(char *command, int length);
