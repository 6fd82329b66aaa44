"""The places outside a process that the daemon and its peers know by name.

The sandbox has its own of each; without a sandbox they must be free before a run.
"""

from __future__ import annotations

import glob
import os
import shutil

PATTERNS = (
    "/tmp/wl_*",
    "/tmp/wl.log*",
    "/tmp/.wl.*",
    "/tmp/reload_cli_rx_socket",
    "/tmp/sim",
    "/tmp/profile*",
    "/tmp/network*",
    "/tmp/ap.conf.diff",
    "/tmp/ap_logging_evt_cache",
    "/tmp/conn_status",
    "/tmp/offline",
    "/tmp/target_ap_log",
    "/tmp/time.offset",
    "/opt/ap",
    "/opt/sensor",
    "/opt/last_tx_power_*",
    "/sbin/tc_wrapper.sh",
    "/dev/app_visibility",
    "/dev/log",
)


def present() -> list[str]:
    """The fixed paths that exist at the moment."""
    return [path for pattern in PATTERNS for path in glob.glob(pattern)]


def remove_all() -> None:
    """Removes every fixed path, directories with all they hold."""
    for path in present():
        if os.path.isdir(path) and not os.path.islink(path):
            shutil.rmtree(path)
        else:
            os.unlink(path)
