"""Roles and VLANs of clients: what the authenticator says of a client, the rules of an SSID, and the records by which
the daemon tells the neighbours; all integers are big-endian.

A record that has not its size, or whose texts are not terminated and filled up with zeros, is refused with Malformed,
so whatever is decoded here is well-formed.
"""

from __future__ import annotations

import struct
from collections.abc import Callable
from dataclasses import dataclass
from typing import NamedTuple

from sim.events import (
    INFO_CODE,
    SUBINFO_CODE,
    SUBINFO_VALUE,
    VAP_BSSID,
    VAP_SSID,
    mac_text,
    u32,
)
from sim.profiles import folder, write_profile
from sim.station import Station
from sim.wireless import Wireless

EVENT = "VRE.hostapd_event"
CLIENT_ROLE = "VRE.debug.cl_role"
ROLE_INFO = 104

# Sub-information codes of EVENT. The last is what the daemon says itself.
VLAN_ASSIGNED, ROLE, ROLE_CLEARED, ORGANISATIONAL_UNIT, UNIT_CLEARED = 39, 42, 43, 46, 47
ROLE_APPLIED = 44

RADIUS, GOOGLE_OU, AUTH_FAIL = 1, 2, 3
METHODS = {RADIUS: "RADIUS", GOOGLE_OU: "Google organisational unit", AUTH_FAIL: "failed authentication"}
EXACT, CONTAINS, EQUALS = 1, 2, 3
ADD, DELETE, CLEAR = 1, 2, 3
ACTIONS = {ADD: "add", DELETE: "delete", CLEAR: "clear"}
FIREWALL, PORTAL, LIMITS = 0x80, 0x40, 0x20  # of the SSID, which apply beside the role

_REQUEST = struct.Struct(">33sIIBI")
_DEVICE = struct.Struct(">B6sIIIIB33sB")
_CLIENT_ROLE = struct.Struct(">20s40sIB")
_APPLIED = struct.Struct(">33sIBBBB")
_VLAN = struct.Struct(">6sH")


class Malformed(ValueError):
    """A record breaks a rule of its format."""


def _unpack(record: struct.Struct, data: bytes) -> tuple:
    if len(data) != record.size:
        raise Malformed(f"{len(data)} bytes instead of {record.size}")
    return record.unpack(data)


def _text(field: bytes) -> str:
    text, _, rest = field.partition(b"\0")
    if any(rest):
        raise Malformed(f"bytes behind the text in {field!r}")
    return text.decode()


# What the authenticator says


class Authenticator:
    """The authenticator's word on one client."""

    def __init__(self, station: Station):
        self._station = station

    def _say(self, sub: int, value: bytes | None = None) -> None:
        self._station.tell(EVENT, ROLE_INFO, sub, value)

    def role(self, name: str, *, vendor: int = 0, attribute: int = 0) -> None:
        """A RADIUS attribute that is a role's name, or leads to one."""
        self._say(ROLE, _REQUEST.pack(name.encode(), vendor, attribute, RADIUS, 0))

    def failed(self, role_id: int) -> None:
        """The client could not be authenticated and shall have this role."""
        self._say(ROLE, _REQUEST.pack(b"", 0, 0, AUTH_FAIL, role_id))

    def unit(self, name: str) -> None:
        self._say(ORGANISATIONAL_UNIT, name.encode())

    def vlan(self, vlan: int) -> None:
        self._say(VLAN_ASSIGNED, u32(vlan & 0xFFFFFFFF))

    def cleared(self) -> None:
        self._say(ROLE_CLEARED)

    def unit_cleared(self) -> None:
        self._say(UNIT_CLEARED)


# Configuration


class Rule(NamedTuple):
    """Which roles a client gets; vendor and attribute are those of a RADIUS attribute, EXACT needs no text."""

    method: int
    match: int
    roles: tuple[int, ...]
    text: str = ""
    vendor: int = 0
    attribute: int = 0

    def lines(self, number: int) -> list[str]:
        pairs = {
            "RDP_RULE_START": number,
            "RDP_METHOD": self.method,
            "VENDOR_ID": self.vendor,
            "ATTRIBUTE_ID": self.attribute,
            "MATCH_TYPE": self.match,
            "MATCH_TEXT": self.text,
            "ROLE_IDS": ",".join(map(str, self.roles)),
            "RDP_RULE_END": number,
        }
        return [f"{key}={value}\n" for key, value in pairs.items() if value]


def write_rules(profile_id: int, *rules: Rule) -> None:
    with open(f"{folder(profile_id)}/role_derivation.conf", "w", encoding="utf-8") as file:
        for number, rule in enumerate(rules, 1):
            file.writelines(rule.lines(number))


def write_role(profile_id: int, name: str, vap: str, **more: object) -> None:
    """Writes the files of a role profile; like every profile it needs a VAP, though nobody joins it there."""
    keys = {"SSID_PROFILE_ID": profile_id, "VAP_LIST": vap, "ExternalDevice": "br0"}
    write_profile(profile_id, {**keys, "ROLE_VALUE": name, "IS_ROLE_PROFILE": 1, **more})


# What the daemon tells


class DeviceRequest(NamedTuple):
    """A request to the kernel's traffic module."""

    action: int
    mac: str
    profile_id: int
    role_id: int
    vendor: int
    attribute: int
    method: int
    name: str
    flags: int

    def __str__(self) -> str:
        method = METHODS.get(self.method, "no method")
        inherited = [
            name
            for flag, name in ((FIREWALL, "firewall"), (PORTAL, "portal"), (LIMITS, "limits"))
            if self.flags & flag
        ]
        of_ssid = f", with the SSID's {' and '.join(inherited)}" if inherited else ""
        return (
            f"{ACTIONS[self.action]} {self.mac} of profile {self.profile_id}: "
            f'role {self.role_id} "{self.name}" by {method}{of_ssid}'
        )


def decode_device_request(data: bytes) -> DeviceRequest:
    action, mac, profile_id, role_id, vendor, attribute, method, name, flags = _unpack(_DEVICE, data)
    return DeviceRequest(action, mac_text(mac), profile_id, role_id, vendor, attribute, method, _text(name), flags)


def device_requests(wireless: Wireless) -> list[DeviceRequest]:
    """The requests to the device so far, oldest first."""
    return [decode_device_request(bytes.fromhex(call["data"])) for call in wireless.calls("app_visibility")]


class VlanRequest(NamedTuple):
    """A request to the wireless driver."""

    vap: str
    mac: str
    vlan: int

    def __str__(self) -> str:
        return f"set_user_vlan on {self.vap}: {self.mac} gets VLAN {self.vlan}"


def vlan_requests(wireless: Wireless) -> list[VlanRequest]:
    """The VLANs that the driver was told so far, oldest first."""
    found = []
    for call in wireless.calls("set_user_vlan"):
        mac, vlan = _unpack(_VLAN, bytes.fromhex(call["data"]))
        found.append(VlanRequest(call["interface"], mac_text(mac), vlan))
    return found


class ClientRole(NamedTuple):
    """The payload of CLIENT_ROLE."""

    mac: str
    role: str
    profile_id: int
    ssid_portal: int

    def __str__(self) -> str:
        portal = ", portal of the SSID" if self.ssid_portal else ""
        return f'{self.mac} of profile {self.profile_id} has the role "{self.role}"{portal}'


def decode_client_role(payload: bytes) -> ClientRole:
    mac, role, profile_id, ssid_portal = _unpack(_CLIENT_ROLE, payload)
    return ClientRole(_text(mac), _text(role), profile_id, ssid_portal)


@dataclass
class AppliedRole:
    """The payload of EVENT when the daemon sends it."""

    mac: str
    profile_id: int
    ssid: str
    bssid: str
    role: str
    role_id: int
    method: int
    looked_up: int
    match: int
    of_ssid: int

    def __str__(self) -> str:
        why = METHODS.get(self.method, "no method") + (", by a rule" if self.match else "")
        what = "the SSID's own settings" if self.of_ssid else f'role {self.role_id} "{self.role}"'
        return f"{self.mac} on {self.ssid}({self.bssid}) has {what}; {why}"


def _items(data: bytes) -> list[tuple[int, bytes]]:
    found = []
    while data:
        tag, length = _unpack(struct.Struct(">II"), data[:8])
        if length > len(data) - 8:
            raise Malformed(f"item {tag} of {length} bytes has {len(data) - 8}")
        found.append((tag, data[8 : 8 + length]))
        data = data[8 + length :]
    return found


def decode_applied_role(payload: bytes) -> AppliedRole:
    mac, profile_id = _unpack(struct.Struct(">6sI"), payload[:10])
    items = dict(_items(payload[10:]))
    if list(items) != [VAP_SSID, VAP_BSSID, INFO_CODE, SUBINFO_CODE, SUBINFO_VALUE]:
        raise Malformed(f"items {list(items)}")
    codes = (items[INFO_CODE], items[SUBINFO_CODE])
    if codes != (u32(ROLE_INFO), ROLE_APPLIED.to_bytes(2, "big")):
        raise Malformed(f"codes {codes}")
    ssid, bssid = items[VAP_SSID], items[VAP_BSSID]
    if ssid[-1:] != b"\0" or len(bssid) != 6:
        raise Malformed(f"SSID {ssid!r}, BSSID {bssid!r}")
    name, role_id, method, looked_up, match, of_ssid = _unpack(_APPLIED, items[SUBINFO_VALUE])
    return AppliedRole(
        mac_text(mac),
        profile_id,
        _text(ssid),
        mac_text(bssid),
        _text(name),
        role_id,
        method,
        looked_up,
        match,
        of_ssid,
    )


def applied_roles(published: Callable[[str], list[bytes]]) -> list[AppliedRole]:
    """What the daemon has said of applied roles so far."""
    return [decode_applied_role(payload) for payload in published(EVENT)]
