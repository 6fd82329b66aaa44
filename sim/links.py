"""Pairs of interfaces, which the kernel may or may not let this access point make."""

from __future__ import annotations

import subprocess

_CAP_NET_ADMIN = 12
LACKING = "this process has no CAP_NET_ADMIN over its network, so it can make no interfaces"


def permitted() -> bool:
    """Whether this process has the right to make interfaces; see LACKING."""
    with open("/proc/self/status", encoding="ascii") as status:
        (capabilities,) = (line.split()[1] for line in status if line.startswith("CapEff:"))
    return bool(int(capabilities, 16) >> _CAP_NET_ADMIN & 1)


def ip(*words: str) -> bool:
    """Runs one command of ip. Result: whether it went well."""
    try:
        return subprocess.run(["ip", *words], capture_output=True, check=False).returncode == 0
    except FileNotFoundError:
        return False


def add_pair(name: str, peer: str) -> bool:
    """Makes a pair of interfaces, both down; what goes into one comes out of the other."""
    return ip("link", "add", name, "type", "veth", "peer", "name", peer)


def set_up(name: str) -> bool:
    return ip("link", "set", name, "up")


def set_down(name: str) -> bool:
    return ip("link", "set", name, "down")


def remove(name: str) -> None:
    """Removes an interface, and with it the other of its pair."""
    ip("link", "delete", name)
