"""The files by which the access point's configuration system tells the daemon about SSID profiles."""

from __future__ import annotations

import os
import shutil
from collections.abc import Mapping

DAEMON_CONFIGURATION = "/tmp/wl_evt_handler.conf"


def folder(profile_id: int) -> str:
    return f"/tmp/profile{profile_id}"


def write_profile(profile_id: int, keys: Mapping[str, object], wl_keys: Mapping[str, object] | None = None) -> None:
    """Writes the two key files of a profile: "profile.conf" and "wl.conf", whose keys override those of the first."""
    os.makedirs(folder(profile_id), exist_ok=True)
    for name, pairs in (("profile.conf", keys), ("wl.conf", wl_keys or {})):
        with open(f"{folder(profile_id)}/{name}", "w", encoding="utf-8") as file:
            file.writelines(f"{key}={value}\n" for key, value in pairs.items())


def usable(profile_id: int, ssid: str, vaps: str, **more: object) -> dict[str, object]:
    """The keys without which the daemon refuses a profile, and more."""
    return {
        "SSID_PROFILE_ID": profile_id,
        "VAP_LIST": vaps,
        "WL_PROFILE_SSID": ssid,
        "ExternalDevice": "br0",
        **more,
    }


def shared(profile_id: int, ssid: str, vaps: str = "ath0", **more: object) -> dict[str, object]:
    """The keys of a profile with 802.1X whose clients are shared with the neighbours, over an interface that is up."""
    return usable(
        profile_id, ssid, vaps, **{"AP_SECFILE": "EAP", "IAPC_ENABLE": 2, "ExternalDevice": "lo", **more}
    )


def mark_as_running(profile_id: int) -> None:
    with open(f"{folder(profile_id)}/running", "w", encoding="ascii"):
        pass


def remove_profile(profile_id: int) -> None:
    shutil.rmtree(folder(profile_id))


def write_daemon_configuration(profiles: Mapping[int, str]) -> None:
    with open(DAEMON_CONFIGURATION, "w", encoding="utf-8") as file:
        file.writelines(f"PROFILE {profile_id} {name}\n" for profile_id, name in profiles.items())
