/// Private commands of the wireless driver, called by name on a VAP's interface. Main thread only.
#pragma once

#include "wl_priv_ioctl.h"

/// Bytes that a driver can take or give in one call. How many it does is the driver's word, not the caller's: callers
/// build what they set in a zeroed block of this size.
constexpr size_t VAP_IOCTL_DATA_SIZE = WL_PRIV_DATA_SIZE;

/// Calls a command and fetches its reply.
///
/// @param buffer     receives the reply, as many bytes as the driver declares for the command: VAP_IOCTL_DATA_SIZE at
///                   most; unchanged on failure
/// @param args       what the command sets, VAP_IOCTL_DATA_SIZE readable bytes; null for a command that sets nothing
/// @param vap_name   interface name
/// @param ioctl_cmd  name of the command
/// @return 0, or -1
[[nodiscard]] int do_ioctl_on_vap(void *buffer, const void *args, const char *vap_name, const char *ioctl_cmd);

/// Calls a command that sets something. Failures are told on standard error.
///
/// @param data   what the command sets, VAP_IOCTL_DATA_SIZE readable bytes; null sets zeros
/// @param flags  callers pass 0
/// @return 0, or -1
[[nodiscard]] int do_wlan_priv_ioctl(const char *command, void *data, int flags, const char *ifname);
