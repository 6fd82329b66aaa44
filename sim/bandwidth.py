"""The bandwidth side of the access point: what the traffic-control script was asked to do, and how to make it fail."""

from __future__ import annotations

import os
import subprocess
from collections.abc import Iterator
from contextlib import contextmanager, suppress

from sim.events import (
    BW_DOWNLOAD_LIMIT,
    BW_IS_PER_BSS_RULE,
    BW_PRIORITY,
    BW_UPLOAD_LIMIT,
    VAP_NAME,
    header,
    item,
    text_item,
    u32,
)

RECORD = "/tmp/sim/tc_wrapper.record"
FAULT = "/tmp/sim/tc_wrapper.fault"
CACHE = "/tmp/.wl.bw_cache"
STATUS = "/tmp/.wl.bw_hash.dmp"
RECORD_SIZE = 45
PAIR = ("bwdown", "bwup")


def limit(
    mac: str, profile_id: int, up: int, down: int, *, priority: int = 1, vap: str = "ath0", bss: bool = False
) -> bytes:
    """The payload that sets a client's or (bss) an SSID's limits, in kbit/s."""
    return (
        header(mac, profile_id)
        + text_item(VAP_NAME, vap)
        + item(BW_PRIORITY, bytes([priority]))
        + item(BW_UPLOAD_LIMIT, u32(up & 0xFFFFFFFF))
        + item(BW_DOWNLOAD_LIMIT, u32(down & 0xFFFFFFFF))
        + (item(BW_IS_PER_BSS_RULE) if bss else b"")
    )


def clear(mac: str, profile_id: int, *, priority: int = 1, vap: str = "ath0", bss: bool = False) -> bytes:
    """The payload that clears a client's or an SSID's limits."""
    return (
        header(mac, profile_id)
        + text_item(VAP_NAME, vap)
        + item(BW_PRIORITY, bytes([priority]))
        + (item(BW_IS_PER_BSS_RULE) if bss else b"")
    )


def commands() -> list[str]:
    """The arguments of each run of the script so far."""
    try:
        with open(RECORD, encoding="utf-8") as file:
            return file.read().splitlines()
    except FileNotFoundError:
        return []


def fail(line: str) -> None:
    """Makes the next runs fail: "2 exit 7", "1 signal KILL", "1 hang", "always exit 1"."""
    os.makedirs(os.path.dirname(FAULT), exist_ok=True)
    with open(FAULT, "w", encoding="ascii") as file:
        file.write(line + "\n")


def fail_no_more() -> None:
    with suppress(FileNotFoundError):
        os.unlink(FAULT)


def cache() -> list[bytes]:
    """The records of the transaction log."""
    with open(CACHE, "rb") as file:
        content = file.read()
    return [content[at : at + RECORD_SIZE] for at in range(0, len(content), RECORD_SIZE)]


@contextmanager
def interface_pair() -> Iterator[None]:
    """Makes the interfaces on which the script drives the kernel's traffic control, where the kernel allows it."""
    _ip("add", PAIR[0], "type", "veth", "peer", "name", PAIR[1])
    try:
        yield
    finally:
        _ip("delete", PAIR[0])


def _ip(*arguments: str) -> None:
    with suppress(FileNotFoundError):
        subprocess.run(["ip", "link", *arguments], capture_output=True, check=False)


def in_kernel() -> bool:
    """Whether limits reach the kernel's traffic control: it may offer none, or the interface pair may be missing."""
    return classes(PAIR[0]) is not None


def classes(interface: str) -> str | None:
    """What the kernel says of an interface's classes; None without traffic control."""
    return _tc("-s", "class", "show", "dev", interface)


def filters(interface: str) -> str | None:
    """What the kernel says of an interface's filters; None without traffic control."""
    return _tc("filter", "show", "dev", interface)


def _tc(*arguments: str) -> str | None:
    try:
        shown = subprocess.run(["tc", *arguments], capture_output=True, text=True, check=False)
    except FileNotFoundError:
        return None
    return shown.stdout if shown.returncode == 0 else None
