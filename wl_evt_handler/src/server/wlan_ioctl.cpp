#include "wlan_ioctl.h"

#include <cerrno>
#include <cstdio>

#include "error_text.h"

namespace {

/// Callers hand over data without its size: it is what the driver declares. More than they must have ready is refused
/// before it is read.
size_t data_size(const void *data, const wl_priv_command &command) {
    return data != nullptr ? wl_priv_data_size(command.set_args) : 0;
}

void report_failed_set(const char *command, const char *ifname, int error) {
    std::fprintf(stderr, "[%s]: set priv ioctl (command: %s) failed: %s\n", ifname, command, error_text(error));
}

/// The type of a command's arguments that made it unsupported.
int unsupported_type(const wl_priv_command &command) {
    return (wl_priv_is_supported(command.set_args) ? command.get_args : command.set_args) & IW_PRIV_TYPE_MASK;
}

/// Tells why a command could not be set; `error` is the failure's `errno`.
void report_failure(wl_priv_result result, const char *command, const char *ifname, int error,
                    const wl_priv_command &driver_command) {
    switch (result) {
    case WL_PRIV_OK:
        break;
    case WL_PRIV_NO_SOCKET:
        std::fprintf(stderr, "Could not create socket: %s\n", ifname);
        break;
    case WL_PRIV_NO_TABLE:
        std::fprintf(stderr, "[%s]: get priv ioctl list failed: %s\n", ifname, error_text(error));
        break;
    case WL_PRIV_UNKNOWN_COMMAND:
        std::fprintf(stderr, "[%s]: Invalid command: %s\n", ifname, command);
        break;
    case WL_PRIV_NO_IOCTL:
        std::fprintf(stderr, "[%s]: Invalid IOCTL: %s\n", ifname, command);
        break;
    case WL_PRIV_UNSUPPORTED_TYPE:
        std::fprintf(stderr, "[%s]: Unsupported argument type (%d) for command %s\n", ifname,
                     unsupported_type(driver_command), command);
        break;
    case WL_PRIV_TOO_LARGE:
        report_failed_set(command, ifname, E2BIG);
        break;
    case WL_PRIV_FAILED:
        report_failed_set(command, ifname, error);
        break;
    }
}

}  // namespace

int do_ioctl_on_vap(void *buffer, const void *args, const char *vap_name, const char *ioctl_cmd) {
    wl_priv_command command;
    if (wl_priv_open(&command, vap_name, ioctl_cmd) != WL_PRIV_OK)
        return -1;
    const wl_priv_result result =
        wl_priv_call(&command, args, data_size(args, command), buffer, wl_priv_data_size(command.get_args));
    wl_priv_close(&command);
    return result == WL_PRIV_OK ? 0 : -1;
}

int do_wlan_priv_ioctl(const char *command, void *data, int, const char *ifname) {
    wl_priv_command driver_command;
    wl_priv_result result = wl_priv_open(&driver_command, ifname, command);
    if (result == WL_PRIV_OK) {
        result = wl_priv_call(&driver_command, data, data_size(data, driver_command), nullptr, 0);
        wl_priv_close(&driver_command);
    }
    report_failure(result, command, ifname, errno, driver_command);
    return result == WL_PRIV_OK ? 0 : -1;
}
