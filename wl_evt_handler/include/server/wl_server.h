/// Start-up and the main loop: three descriptors (event bus, synch agent, reload channel) served from one select, the
/// list of modules and the label catalogue. main() calls start_server() once and serve_once() for ever; everything here
/// belongs to the main thread.
#pragma once

#include <cstdint>
#include <sys/select.h>

#include "hashTable.h"

extern fd_set g_readfds;                 // every open descriptor of the loop
extern int g_maxfd;                      // highest of them, or more
extern int g_synch_sock;                 // TCP socket to the synch agent; -1 when not connected
extern uint8_t g_synch_nack_count;       // SSID profiles that were refused or whose interface was down; non-zero: retry
extern hashTable_t *wl_debug_log_cache;  // label catalogue; null when it could not be loaded

extern int n_clients;  // peers of wl_unix_init's socket

/// Adds an open descriptor to those that the loop serves. One that select cannot hold is closed.
///
/// @return the descriptor, or -1 when it was closed (`errno` EMFILE)
[[nodiscard]] int watch_descriptor(int descriptor);

/// Detaches from the terminal with two forks; standard input, output and error become "/dev/null".
///
/// @return 0 in the detached process (also when "/dev/null" cannot be opened); -1 when the first fork or setsid failed.
///         The parents leave with status 0
[[nodiscard]] int daemonize();

/// Starts every module, in order.
void wl_modules_init();

/// Stops the modules that hold something outside the process. The daemon never calls it.
void wl_modules_deinit();

/// @return 1 when the file exists, else 0
[[nodiscard]] int ispresent_file(const char *path);

/// Loads both files of the label catalogue.
///
/// @return 0; -1 when a file is missing
[[nodiscard]] int wl_debug_log_load_cache(hashTable_t *cache);

/// Connects to the synch agent when not connected and registers the SSIDs when that is due.
///
/// @return -1 when the socket cannot be created or connected; else the result of the registration, or 0 when none was
///         due
int init_synch_sock();

/// Recomputes g_maxfd from the three descriptors of the loop.
void set_new_maxfd();

/// Opens a listening sequenced-packet socket at "/tmp/wl_unix_socket" for peers.
///
/// @return the socket, owned by the caller; -1 on failure
[[nodiscard]] int wl_unix_init();

/// Starts the detached daemon: reload channel, modules, synch agent, configuration, label catalogue, event bus.
/// Whatever fails is logged and tried again by the loop, or done without.
///
/// @param configuration  path of the daemon configuration file
void start_server(const char *configuration);

/// One turn of the main loop: reopens what is closed, waits at most 5 s, then serves what is ready in the order event
/// bus, synch agent, reload channel.
void serve_once();
