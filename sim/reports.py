"""What client troubleshooting publishes, byte by byte; all integers are big-endian.

A report ("VRE.debug.client_info") is the verdict on an attempt to connect: a head of 15 bytes and items. A forwarded event
("VRE.debug.client_ts") is one event of a client: a head of 52 bytes and items. An item is a type and a length of two bytes
each and the value. What does not keep to that is refused with Malformed, so whatever is decoded here is well-formed.
"""

from __future__ import annotations

import socket
import struct
from dataclasses import dataclass, field

from sim import ap_reports, events
from sim.events import mac_bytes, mac_text

REPORT = "VRE.debug.client_info"
FORWARDED = "VRE.debug.client_ts"

_REPORT_HEAD = struct.Struct(">6s6sHB")
_FORWARDED_HEAD = struct.Struct(">6sHI18sI18s")
_ITEM = struct.Struct(">HH")
_FORWARDED_KIND = 5

BAND_5_GHZ, BAND_2_GHZ = 1, 6
_BANDS = {BAND_5_GHZ: "5 GHz", BAND_2_GHZ: "2.4 GHz"}

# Items of a report.
FAILURE, SUB, AAA_LATENCY, DHCP_LATENCY, DNS_LATENCY = 1, 2, 3, 4, 5
SINCE_ASSOC, SINCE_AUTH, SINCE_NETWORK, SINCE_STAGE = 7, 8, 9, 10
APC_ID, VLAN, CLIENT_IP, DNS_SERVER, DHCP_SERVER, CONFLICT_MAC, AAA_SERVER = 11, 15, 16, 35, 36, 37, 38

# Items of a forwarded event.
EVENT_SUB, EVENT_VALUE, EVENT_SSID, EVENT_VLAN, EVENT_SERVER, EVENT_CONFLICT_MAC = 1, 2, 3, 4, 5, 6
_EVENT_ITEMS = {
    EVENT_SUB: "sub-code",
    EVENT_VALUE: "value",
    EVENT_SSID: "network",
    EVENT_VLAN: "VLAN",
    EVENT_SERVER: "server",
    EVENT_CONFLICT_MAC: "other station",
}

FAILURES = {
    1: "association refused, the access point is full",
    2: "association refused, capabilities not supported",
    3: "association failed",
    4: "RADIUS refused the client",
    6: "RADIUS server cannot be reached",
    7: "wrong passphrase",
    8: "key handshake failed",
    9: "roaming failed",
    10: "captive-portal login failed",
    11: "captive-portal login failed",
    12: "captive-portal login failed",
    13: "no answer from DHCP",
    14: "no answer from DNS",
    16: "authentication refused",
    17: "Google authentication failed",
    18: "IP address not usable",
}


class Malformed(ValueError):
    """What was published breaks a rule of its format."""


def _ip(value: bytes) -> str:
    return socket.inet_ntoa(value)


def _number(value: bytes) -> str:
    return str(int.from_bytes(value, "big"))


def _ms(value: bytes) -> str:
    return _number(value) + " ms"


def _ms_ago(value: bytes) -> str:
    return _duration(int.from_bytes(value, "big")) + " ago"


def _us_ago(value: bytes) -> str:
    """Time since a step of the attempt; 0 is a step that was not made."""
    passed = int.from_bytes(value, "big")
    return _duration(passed // 1000) + " ago" if passed else "never"


def _duration(milliseconds: int) -> str:
    return f"{milliseconds} ms" if milliseconds < 10_000 else f"{milliseconds / 1000:.1f} s"


# Of each item of a report its name, the length of its value (None: any) and how it reads.
_ITEMS = {
    FAILURE: ("failure", 1, lambda value: f"{value[0]} ({FAILURES.get(value[0], 'unknown')})"),
    SUB: ("sub-code", 2, _number),
    AAA_LATENCY: ("RADIUS took", 4, _ms),
    DHCP_LATENCY: ("DHCP took", 4, _ms),
    DNS_LATENCY: ("DNS took", 4, _ms),
    SINCE_ASSOC: ("associated", 4, _us_ago),
    SINCE_AUTH: ("authorised", 4, _us_ago),
    SINCE_NETWORK: ("got an address", 4, _us_ago),
    SINCE_STAGE: ("last step", 4, _ms_ago),
    APC_ID: ("APC identifier", None, lambda value: value.decode("ascii")),
    VLAN: ("VLAN", 2, _number),
    CLIENT_IP: ("client address", 4, _ip),
    DNS_SERVER: ("DNS server", 4, _ip),
    DHCP_SERVER: ("DHCP server", 4, _ip),
    CONFLICT_MAC: ("address also of", 6, lambda value: mac_text(value)),
    AAA_SERVER: ("RADIUS server", 4, _ip),
}


def items_of(data: bytes) -> list[tuple[int, bytes]]:
    """Takes items apart, in their order."""
    items = []
    while data:
        if len(data) < _ITEM.size:
            raise Malformed(f"{len(data)} bytes behind the last item")
        kind, length = _ITEM.unpack_from(data)
        value = data[_ITEM.size : _ITEM.size + length]
        if len(value) < length:
            raise Malformed(f"item {kind} is said to have {length} bytes and has {len(value)}")
        items.append((kind, value))
        data = data[_ITEM.size + length :]
    return items


def item(kind: int, value: bytes) -> bytes:
    return _ITEM.pack(kind, len(value)) + value


def address(text: str) -> bytes:
    return socket.inet_aton(text)


@dataclass
class Report:
    mac: str
    bssid: str
    band: int
    success: bool
    items: list[tuple[int, bytes]] = field(default_factory=list)

    def values(self, kind: int) -> list[bytes]:
        """The values of an item, which may be there more than once."""
        return [value for found, value in self.items if found == kind]

    def number(self, kind: int) -> int | None:
        """The value of an item that is a number; None when the item is not there."""
        found = self.values(kind)
        return int.from_bytes(found[0], "big") if found else None

    def __str__(self) -> str:
        verdict = "connected" if self.success else "could not connect"
        lines = [f"{self.mac} {verdict} at {self.bssid}, {_BANDS[self.band]}"]
        lines += [f"  {_ITEMS[kind][0]}: {_ITEMS[kind][2](value)}" for kind, value in self.items]
        return "\n".join(lines)


def decode(payload: bytes) -> Report:
    """Takes the payload of a report apart."""
    if len(payload) < _REPORT_HEAD.size:
        raise Malformed(f"a report of {len(payload)} bytes")
    mac, bssid, band, success = _REPORT_HEAD.unpack_from(payload)
    if band not in _BANDS or success not in (0, 1):
        raise Malformed(f"band {band}, outcome {success}")
    items = items_of(payload[_REPORT_HEAD.size :])
    for kind, value in items:
        if kind not in _ITEMS or _ITEMS[kind][1] not in (None, len(value)):
            raise Malformed(f"item {kind} of {len(value)} bytes")
    return Report(mac_text(mac), mac_text(bssid), band, success == 1, items)


def report_head(mac: str, bssid: str, band: int, success: bool) -> bytes:
    return _REPORT_HEAD.pack(mac_bytes(mac), mac_bytes(bssid), band, success)


@dataclass
class Forwarded:
    mac: str
    bssid: str  # empty when the event has none
    info: int
    items: list[tuple[int, bytes]] = field(default_factory=list)

    def values(self, kind: int) -> list[bytes]:
        return [value for found, value in self.items if found == kind]

    def __str__(self) -> str:
        where = f" at {self.bssid}" if self.bssid else ""
        shown = ", ".join(f"{_EVENT_ITEMS.get(kind, kind)} {_readable(kind, value)}" for kind, value in self.items)
        return f"{self.mac}{where}, info {self.info}, {shown}"


def _readable(kind: int, value: bytes) -> str:
    if kind in (EVENT_SUB, EVENT_VLAN):
        return _number(value)
    text = value.decode("ascii", "replace")
    return f'"{text}"' if text.isprintable() and text.isascii() else value.hex(" ")


def _text(mac: str) -> bytes:
    return mac.upper().encode("ascii")


def forwarded_head(mac: str, bssid: str, info: int) -> bytes:
    """What a forwarded event begins with; `bssid` is empty when the event has none."""
    return _FORWARDED_HEAD.pack(mac_bytes(mac), _FORWARDED_KIND, 0, _text(mac), info, _text(bssid))


def decode_forwarded(payload: bytes) -> Forwarded:
    """Takes the payload of a forwarded event apart."""
    if len(payload) < _FORWARDED_HEAD.size:
        raise Malformed(f"a forwarded event of {len(payload)} bytes")
    mac, _, _, _, info, bssid = _FORWARDED_HEAD.unpack_from(payload)
    found = Forwarded(mac_text(mac), bssid.rstrip(b"\0").decode("ascii").lower(), info)
    if payload[: _FORWARDED_HEAD.size] != forwarded_head(found.mac, found.bssid, info):
        raise Malformed("the head of a forwarded event contradicts itself")
    found.items = items_of(payload[_FORWARDED_HEAD.size :])
    if [kind for kind, _ in found.items[:1]] != [EVENT_SUB] or len(found.items[0][1]) != 4:
        raise Malformed("a forwarded event begins with its sub-code")
    return found


def describe(event: str, payload: bytes) -> str:
    """A message of the bus, for people: reports and forwarded events are taken apart."""
    try:
        if event == REPORT:
            return f"{event}, {len(payload)} bytes:\n{decode(payload)}"
        if event == FORWARDED:
            return f"{event}, {len(payload)} bytes: {decode_forwarded(payload)}"
        if event == ap_reports.REPORT:
            return f"{event}, {len(payload)} bytes: {ap_reports.decode(payload)}"
    except (Malformed, ap_reports.Malformed):
        pass
    return events.describe(event, payload)
