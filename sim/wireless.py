"""The wireless side of the access point: VAPs, their interfaces, and what the simulated driver says about them.

The driver is a library in the daemon's own process (sim/driver/driver.cpp tells its files and their lines); this is the
hand that writes its configuration, makes its calls fail, and reads the record of what was asked of it.
"""

from __future__ import annotations

import json
import os
import socket
import subprocess
from dataclasses import dataclass
from typing import Any

CONFIGURATION = "/tmp/sim/driver.conf"
FAULTS = "/tmp/sim/driver.faults"
RECORD = "/tmp/sim/driver.jsonl"
FIRST_OWN_INDEX = 1000


@dataclass
class Vap:
    name: str
    ssid: str
    bssid: str
    proto: int = 0
    up: bool = True
    index: int = 0  # known once the VAP is part of a Wireless
    real: bool = False  # the kernel has the interface

    def line(self) -> str:
        ssid = "".join(chr(b) if bytes([b]).isalnum() else f"%{b:02X}" for b in self.ssid.encode()) or "-"
        index = "-" if self.real else str(self.index)
        return f"{index} {self.name} {ssid} {self.bssid} {self.proto} {'up' if self.up else 'down'}"


class Wireless:
    """The VAPs of one access point. A change is in force after write()."""

    def __init__(self, *vaps: Vap):
        os.makedirs(os.path.dirname(CONFIGURATION), exist_ok=True)
        self.vaps: dict[str, Vap] = {}
        self.clients: dict[str, str] = {}  # MAC address of each client that the driver knows, and the name of its VAP
        self.switches: list[str] = []  # further lines of the driver's configuration
        for vap in vaps:
            self.add(vap)
        self.write()

    def add(self, vap: Vap) -> Vap:
        """Adds a VAP on a real interface, one end of a veth pair, where the kernel allows."""
        pair = ["ip", "link", "add", vap.name, "type", "veth", "peer", "name", f"peer-{vap.name}"]
        try:
            vap.real = subprocess.run(pair, capture_output=True, check=False).returncode == 0
        except FileNotFoundError:
            vap.real = False
        vap.index = socket.if_nametoindex(vap.name) if vap.real else FIRST_OWN_INDEX + len(self.vaps)
        self.vaps[vap.name] = vap
        return vap

    def __getitem__(self, name: str) -> Vap:
        return self.vaps[name]

    def write(self) -> None:
        clients = (f"client {mac} {vap} 0" for mac, vap in self.clients.items())
        _write(CONFIGURATION, [*(vap.line() for vap in self.vaps.values()), *clients, *self.switches])

    def fail(self, *lines: str) -> None:
        """Makes calls fail: lines such as "get_vaps 1 EIO"; none makes all of them work again."""
        _write(FAULTS, list(lines))

    def calls(self, name: str) -> list[dict[str, Any]]:
        """The calls of a command or request so far, oldest first."""
        try:
            with open(RECORD, encoding="utf-8") as file:
                return [call for call in map(json.loads, file) if call["call"] == name]
        except FileNotFoundError:
            return []

    def close(self) -> None:
        for vap in self.vaps.values():
            if vap.real:
                subprocess.run(["ip", "link", "delete", vap.name], capture_output=True, check=False)


def _write(path: str, lines: list[str]) -> None:
    """Replaces a file in one step: the driver reads it at any time."""
    with open(path + ".new", "w", encoding="ascii") as file:
        file.writelines(f"{line}\n" for line in lines)
    os.replace(path + ".new", path)
