"""Pairs of interfaces, which the kernel may or may not let this access point make."""

from __future__ import annotations

import subprocess


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
