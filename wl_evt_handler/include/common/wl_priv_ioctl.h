/// Private commands of a wireless driver, called by name as the wireless extensions arrange it: a driver lists its
/// commands with their numbers and argument descriptors, and each is an ioctl of its own or a sub-command of a nameless
/// one. No state and no log; any thread may use commands of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <net/if.h>

#include <linux/wireless.h>  // needs the C library's net/if.h first

enum wl_priv_result : int {
    WL_PRIV_OK = 0,
    WL_PRIV_NO_SOCKET = -1,         // `errno` says why
    WL_PRIV_NO_TABLE = -2,          // the table could not be fetched; `errno` says why
    WL_PRIV_UNKNOWN_COMMAND = -3,   // the table does not have the name
    WL_PRIV_NO_IOCTL = -4,          // a sub-command whose ioctl is not in the table
    WL_PRIV_UNSUPPORTED_TYPE = -5,  // arguments other than none, bytes, characters and 32-bit integers
    WL_PRIV_TOO_LARGE = -6,         // more data than WL_PRIV_DATA_SIZE
    WL_PRIV_FAILED = -7,            // the ioctl itself; `errno` says why
};

constexpr size_t WL_PRIV_DATA_SIZE = 512;  // bytes of data that a call can carry in either direction

/// A command of one interface, ready to be called.
struct wl_priv_command {
    int socket;
    char interface[IFNAMSIZ];
    uint32_t request;      // number of the ioctl
    bool is_sub_command;   // of that ioctl
    uint32_t sub_command;  // then its number, which goes into the request
    uint16_t set_args;     // IW_PRIV_TYPE_..., perhaps IW_PRIV_SIZE_FIXED, and the number of arguments
    uint16_t get_args;
};

/// Whether the arguments of a descriptor are none, bytes, characters or 32-bit integers.
[[nodiscard]] bool wl_priv_is_supported(uint16_t args);

/// Bytes of data that an argument descriptor speaks of; 0 for an unsupported type.
size_t wl_priv_data_size(uint16_t args);

/// Opens a socket, fetches an interface's table of private commands and finds a command in it.
///
/// @param interface  at most 15 characters of it are looked at
/// @param name       at most 16 characters
/// @return WL_PRIV_OK: the caller ends with wl_priv_close(). WL_PRIV_NO_SOCKET, WL_PRIV_NO_TABLE,
///         WL_PRIV_UNKNOWN_COMMAND, WL_PRIV_NO_IOCTL: nothing is open
[[nodiscard]] wl_priv_result wl_priv_open(wl_priv_command *command, const char *interface, const char *name);

/// Calls a command.
///
/// @param data        what the command sets; a fixed size that is longer than `data_size` is filled up with 0
/// @param data_size   bytes of data; those beyond the descriptor's number are left out
/// @param reply       takes what the command gets, and 0 beyond it; may be `data`. A reply of fixed size counts as
///                    whole: where the driver wrote nothing it is 0, or what the command set when that went by pointer
/// @param reply_size  bytes that fit in reply; further ones are left out
/// @return WL_PRIV_OK, WL_PRIV_UNSUPPORTED_TYPE, WL_PRIV_TOO_LARGE or WL_PRIV_FAILED; reply is touched only on success
[[nodiscard]] wl_priv_result wl_priv_call(const wl_priv_command *command, const void *data, size_t data_size,
                                          void *reply, size_t reply_size);

/// Closes a command's socket. `errno` stays as it is, so that the caller can report a failed call afterwards.
void wl_priv_close(wl_priv_command *command);
