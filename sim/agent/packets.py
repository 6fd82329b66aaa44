"""The packets between the daemon and its synchronisation agent, byte by byte; all integers are big-endian.

A packet is a header of 14 bytes, an application id (the SSID, where there is one) and a payload of items, each a type,
a length and a value. What breaks a rule of the protocol is refused with Malformed, so that whatever is decoded here is
also well-formed.
"""

from __future__ import annotations

import re
import struct
from collections.abc import Iterator
from dataclasses import dataclass

HEADER = struct.Struct(">BBBBBBH6s")
LARGEST = 4395
BROADCAST = b"\xff" * 6

PORTAL_LOGIN = 3
CLIENT_INFO = 10
INTER_AP = 12
VLAN_GATEWAY = 16
REGISTER = 32
REGISTERED = 33
REFUSED = 34
UNREGISTER = 35
NEIGHBOURS_CHANGED = 36
NAMES = {
    (PORTAL_LOGIN, 1): "portal login",
    (CLIENT_INFO, 1): "request for clients",
    (CLIENT_INFO, 2): "clients",
    (INTER_AP, 2): "steering attempts",
    (INTER_AP, 3): "inter-AP parameters",
    (VLAN_GATEWAY, 1): "VLAN gateway",
    (REGISTER, 0): "registration",
    (REGISTERED, 0): "registration accepted",
    (REFUSED, 0): "registration refused",
    (UNREGISTER, 0): "withdrawal",
    (NEIGHBOURS_CHANGED, 0): "neighbours changed",
}
REQUEST_FLAG = 30
_REGISTRATION_ITEMS = {10: "interface", 11: "number", 12: "application"}
ITEM_NAMES = {
    REGISTER: _REGISTRATION_ITEMS,
    UNREGISTER: _REGISTRATION_ITEMS,
    CLIENT_INFO: {REQUEST_FLAG: "flag"},
    INTER_AP: {5: "client", 6: "attempts", 9: "flag", 10: "period"},
}
_TEXT = None
_REGISTRATION_LAYOUT = ((10, _TEXT), (11, 4), (12, _TEXT))
# What the daemon sends, but for clients' records: the items in their order, each with its length.
_LAYOUTS: dict[tuple[int, int], tuple[tuple[int, int | None], ...]] = {
    (CLIENT_INFO, 1): ((REQUEST_FLAG, 1),),
    (INTER_AP, 2): ((5, 6), (6, 1)),
    (INTER_AP, 3): ((9, 1), (10, 1)),
    (VLAN_GATEWAY, 1): ((16, 27),),
    (REGISTER, 0): _REGISTRATION_LAYOUT,
    (UNREGISTER, 0): _REGISTRATION_LAYOUT,
}
PMK_RECORD, PORTAL_RECORD = 1, 2


class Malformed(ValueError):
    """Bytes that are no packet, no items or no record of a client."""


@dataclass(frozen=True)
class Packet:
    type: int
    subtype: int = 0
    appid: bytes = b""
    payload: bytes = b""
    path: int = 0
    mac: bytes = BROADCAST

    def encode(self) -> bytes:
        return (
            HEADER.pack(1, self.type, self.path, 0, self.subtype, len(self.appid), len(self.payload), self.mac)
            + self.appid
            + self.payload
        )

    @property
    def ssid(self) -> str:
        return self.appid.decode(errors="replace")


def request(ssid: str, asker: bytes = BROADCAST, flag: int = 1) -> Packet:
    """A neighbour's request for the clients of an SSID."""
    return Packet(CLIENT_INFO, 1, ssid.encode(), item(REQUEST_FLAG, bytes([flag])), path=2, mac=asker)


def size_of(beginning: bytes) -> int | None:
    """The size of the packet that begins so; None before its header is complete."""
    if len(beginning) < HEADER.size:
        return None
    *_, appid_length, payload_length, _ = HEADER.unpack_from(beginning)
    return HEADER.size + appid_length + payload_length


def decode(raw: bytes) -> Packet:
    """Takes exactly one packet apart."""
    if size_of(raw) != len(raw):
        raise Malformed(f"{len(raw)} bytes, where the header says {size_of(raw)}")
    version, kind, path, flag, subtype, appid_length, _, mac = HEADER.unpack_from(raw)
    if version != 1 or flag != 0:
        raise Malformed(f"version {version}, flag {flag}")
    payload_at = HEADER.size + appid_length
    return Packet(kind, subtype, raw[HEADER.size : payload_at], raw[payload_at:], path, mac)


class Stream:
    """Finds the packets in a stream of bytes."""

    def __init__(self) -> None:
        self.held = b""

    def feed(self, data: bytes) -> Iterator[Packet]:
        self.held += data
        while (size := size_of(self.held)) is not None and size <= len(self.held):
            raw, self.held = self.held[:size], self.held[size:]
            yield decode(raw)


def item(kind: int, value: bytes) -> bytes:
    return bytes([kind, len(value)]) + value


def items(data: bytes) -> list[tuple[int, bytes]]:
    """Takes a sequence of items apart."""
    found = []
    while data:
        if len(data) < 2 or len(data) < 2 + data[1]:
            raise Malformed(f"an item is cut short: {data.hex()}")
        found.append((data[0], data[2 : 2 + data[1]]))
        data = data[2 + data[1] :]
    return found


def number(value: bytes) -> int:
    if len(value) != 4:
        raise Malformed(f"a number of {len(value)} bytes")
    return int.from_bytes(value, "big")


def signed(value: bytes) -> int:
    return number(value) - (number(value) >> 31 << 32)


def in_order(data: bytes, kinds: tuple[int, ...], always: int) -> dict[int, bytes]:
    """Takes items apart that come in a given order: the first `always` kinds must be there, each of the rest may."""
    found = items(data)
    order = tuple(kind for kind, _ in found)
    values = dict(found)
    if order[:always] != kinds[:always] or order != tuple(kind for kind in kinds if kind in values):
        raise Malformed(f"items {order}")
    return values


@dataclass(frozen=True)
class Pmk:
    """A client's pairwise master key."""

    mac: str
    pmk: bytes
    lifetime: int  # seconds left
    identity: bytes
    eap_type: int
    vlan_id: int | None = None
    limits: tuple[int, int] | None = None  # download, upload
    interim_interval: int = 0
    untagged: bool = False

    def __str__(self) -> str:
        who = self.identity.decode(errors="replace")
        key = self.pmk[:4].hex()
        return f'PMK of {self.mac}: {key}... of {len(self.pmk)} bytes, identity "{who}", {self.lifetime} s left'


_PMK_ITEMS = (10, 1, 2, 3, 4, 6, 7, 9, 8)


def decode_pmk(data: bytes) -> Pmk:
    values = in_order(data, _PMK_ITEMS, always=5)
    if [len(values[kind]) for kind in (10, 1, 4)] != [6, 32, 1] or values.get(8, b"\0") != b"\0":
        raise Malformed(f"PMK record {data.hex()}")
    vlan = signed(values[6]) if 6 in values else None
    if (8 in values) != (vlan == 0):
        raise Malformed(f"VLAN {vlan} and item 8 do not agree")
    return Pmk(
        values[10].hex(":"),
        values[1],
        number(values[2]),
        values[3],
        values[4][0],
        vlan,
        (signed(values[7][:4]), signed(values[7][4:])) if 7 in values else None,
        signed(values[9]) if 9 in values else 0,
        8 in values,
    )


@dataclass(frozen=True)
class Login:
    """A client's login at the captive portal."""

    mac: str
    ip: str
    lifetime: int  # seconds left
    blackout: int  # seconds after that
    username: bytes | None = None
    login_time: int | None = None
    limits: tuple[int, int] | None = None  # download, upload

    def __str__(self) -> str:
        who = f', user "{self.username.decode(errors="replace")}"' if self.username is not None else ""
        return f"portal login of {self.mac} at {self.ip}: {self.lifetime} s left{who}"


_LOGIN_MAC = re.compile(rb"[0-9A-F]{2}(:[0-9A-F]{2}){5}\0{3}")
_LOGIN_ITEMS = (8, 7, 6, 16, 14, 15, 17, 18)


def decode_login(data: bytes) -> Login:
    values = in_order(data, _LOGIN_ITEMS, always=4)
    mac = values[8].rstrip(b"\0").decode("ascii", errors="replace")
    if not _LOGIN_MAC.fullmatch(values[8]):
        raise Malformed(f"client {values[8]!r}")
    if (14 in values) != (15 in values) or (17 in values) != (18 in values):
        raise Malformed("half a pair of items")
    return Login(
        mac.lower(),
        values[7].decode("ascii", errors="replace"),
        signed(values[6]),
        signed(values[16]),
        values.get(14),
        number(values[15]) if 15 in values else None,
        (signed(values[17]), signed(values[18])) if 17 in values else None,
    )


@dataclass(frozen=True)
class Hole:
    """A key whose owner has no identity: its record is no more than kind and length. The next record follows these four
    bytes at once, and as many zeros as the length says are at the end of the payload instead."""

    length: int

    def __str__(self) -> str:
        return f"PMK without identity: {self.length} bytes left out"


# The items that are always there, and an interval (6 bytes), limits (10), a VLAN (6) or VLAN 0 (9).
_HOLES = {53 + interval + limits + vlan for interval in (0, 6) for limits in (0, 10) for vlan in (0, 6, 9)}


def _is_hole(record: bytes) -> bool:
    """Whether a record lacks its items: what follows is then another record's kind or the zeros, none of which can be
    the type of a PMK record's first item."""
    kind, length = struct.unpack_from(">HH", record)
    return kind == PMK_RECORD and length in _HOLES and record[4:5] in (b"", b"\0")


def decode_clients(payload: bytes) -> list[Pmk | Login | Hole]:
    """The records of a packet of clients."""
    found: list[Pmk | Login | Hole] = []
    left_out = 0
    while any(payload):
        if len(payload) < 4:
            raise Malformed(f"a record is cut short: {payload.hex()}")
        kind, length = struct.unpack_from(">HH", payload)
        if _is_hole(payload):
            found.append(Hole(length))
            left_out += length
            payload = payload[4:]
            continue
        data, payload = payload[4 : 4 + length], payload[4 + length :]
        if len(data) != length or kind not in (PMK_RECORD, PORTAL_RECORD):
            raise Malformed(f"a record of kind {kind} with {len(data)} of {length} bytes")
        found.append(decode_pmk(data) if kind == PMK_RECORD else decode_login(data))
    if len(payload) != left_out:
        raise Malformed(f"{len(payload)} bytes of zeros, where {left_out} have been left out")
    return found


def check(packet: Packet) -> None:
    """Malformed unless it is a packet that the daemon may send: of a known type, no larger than what another daemon
    takes, with the payload of its type."""
    kind = (packet.type, packet.subtype)
    if len(packet.encode()) > LARGEST:
        raise Malformed(f"{len(packet.encode())} bytes")
    if kind == (CLIENT_INFO, 2):
        decode_clients(packet.payload)
    elif kind == (PORTAL_LOGIN, 1):
        decode_login(packet.payload)
    elif kind not in _LAYOUTS:
        raise Malformed(f"type {packet.type}, subtype {packet.subtype}")
    else:
        _check_layout(packet, _LAYOUTS[kind])


def _check_layout(packet: Packet, layout: tuple[tuple[int, int | None], ...]) -> None:
    found = items(packet.payload)
    lengths = [length for _, length in layout]
    if [kind for kind, _ in found] != [kind for kind, _ in layout] or any(
        wanted not in (_TEXT, len(value)) for wanted, (_, value) in zip(lengths, found)
    ):
        raise Malformed(f"items {found} of type {packet.type}, subtype {packet.subtype}")


def _content(packet: Packet) -> str:
    if (packet.type, packet.subtype) == (CLIENT_INFO, 2):
        return "".join(f"\n{record}" for record in decode_clients(packet.payload))
    if (packet.type, packet.subtype) == (PORTAL_LOGIN, 1):
        return f"\n{decode_login(packet.payload)}"
    names = ITEM_NAMES.get(packet.type, {})
    return "".join(f", {names.get(kind, f'item {kind}')} {_readable(value)}" for kind, value in items(packet.payload))


def _readable(value: bytes) -> str:
    if len(value) == 1 or len(value) == 4:
        return str(int.from_bytes(value, "big"))
    return f'"{value.decode()}"' if value.isascii() and value.decode().isprintable() else value.hex(":")


def describe(packet: Packet) -> str:
    """What a packet says, for people; keys are cut short."""
    name = NAMES.get((packet.type, packet.subtype)) or f"unknown type {packet.type}, subtype {packet.subtype}"
    ssid = f' for "{packet.ssid}"' if packet.appid else ""
    try:
        content = _content(packet)
    except Malformed as fault:
        content = f", malformed: {fault}"
    return f"{name}{ssid}, {len(packet.encode())} bytes{content}"
