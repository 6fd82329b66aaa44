"""What the access point's own events carry and what is reported of them, byte by byte; all integers are big-endian.

A report ("VRE.debug.ap_ts") is the number 6, the server's code of the event and items, each a type and a length of two
bytes and the value: a sub-code and, where the event has one, a text. The cache file remembers which texts were reported
and when, in records of 264 bytes. What does not keep to that is refused with Malformed, so whatever is decoded here is
well-formed.
"""

from __future__ import annotations

import os
import struct
from typing import NamedTuple

REPORT = "VRE.debug.ap_ts"
CONFIGURATION = "/opt/ap/ap_logging_conf_evt"
CACHE = "/tmp/ap_logging_evt_cache"

# What switches reporting on and off.
RECONFIGURING, CONNECTED, OFFLINE = "/tmp/ap.conf.diff", "/tmp/conn_status", "/tmp/offline"
# Where the last transmit power is kept.
POWER_2G, POWER_5G = "/opt/last_tx_power_2G", "/opt/last_tx_power_5G"

BAND_5_GHZ, BAND_2_GHZ = 0, 1
DFS, CCI, ACI, DCS, PERIODIC = range(5)

VAP, CHANNEL_CHANGED, CHANNEL_SELECTED, CHANNEL_UNCHANGED, POWER_CHANGED, POWER_UNCHANGED = 1, 14, 15, 19, 17, 18
INTERNET_DOWN = 11
_EVENTS = {
    VAP: "VAP up or down",
    2: "too many clients",
    3: "reboot",
    4: "memory use",
    5: "Ethernet link",
    6: "tunnel down",
    7: "configuration changed",
    8: "IP conflict",
    9: "no DHCP lease",
    10: "upgrade log",
    INTERNET_DOWN: "internet down",
    CHANNEL_CHANGED: "channel changed",
    CHANNEL_SELECTED: "channel selected",
    16: "upgraded",
    POWER_CHANGED: "transmit power changed",
    POWER_UNCHANGED: "transmit power not changed",
    CHANNEL_UNCHANGED: "channel not changed",
}

_HEAD = struct.Struct(">HIHHI")
_ITEM = struct.Struct(">HH")
_KIND, _SUB_CODE, _TEXT = 6, 1, 2
_MAXIMUM = 2048
_CACHE_RECORD = struct.Struct(">II255sB")


class Malformed(ValueError):
    """What was published or written breaks a rule of its format."""


class Report(NamedTuple):
    code: int
    text: bytes | None
    sub_code: int = 0

    def __str__(self) -> str:
        text = "" if self.text is None else f': "{self.text.decode("utf-8", "replace")}"'
        return f"{self.code} ({_EVENTS.get(self.code, 'unknown')}){text}"


def decode(payload: bytes) -> Report:
    """Takes a report apart."""
    if not _HEAD.size <= len(payload) <= _MAXIMUM:
        raise Malformed(f"a report of {len(payload)} bytes")
    kind, code, item, length, sub_code = _HEAD.unpack_from(payload)
    if (kind, item, length) != (_KIND, _SUB_CODE, 4):
        raise Malformed(f"a report begins with {payload[:_HEAD.size].hex(' ')}")
    rest = payload[_HEAD.size :]
    if not rest:
        return Report(code, None, sub_code)
    if len(rest) < _ITEM.size or _ITEM.unpack_from(rest) != (_TEXT, len(rest) - _ITEM.size):
        raise Malformed(f"behind the sub-code stands {rest.hex(' ')}")
    return Report(code, rest[_ITEM.size :], sub_code)


class Remembered(NamedTuple):
    code: int
    time: int  # seconds of the monotonic clock
    text: bytes


def remembered() -> list[Remembered]:
    """Takes the cache file apart; without one nothing is remembered."""
    if not os.path.exists(CACHE):
        return []
    with open(CACHE, "rb") as file:
        data = file.read()
    if len(data) % _CACHE_RECORD.size:
        raise Malformed(f"a cache file of {len(data)} bytes")
    found = []
    for code, time, text, pad in _CACHE_RECORD.iter_unpack(data):
        shown, _, rest = text.partition(b"\0")
        if len(shown) == len(text) or any(rest) or pad:
            raise Malformed(f"the text of a record is {text!r}, its pad byte {pad}")
        found.append(Remembered(code, time, shown))
    return found


def connect() -> None:
    """Marks the access point as connected to the server, without which it reports nothing."""
    with open(CONNECTED, "w", encoding="ascii"):
        pass


def vap_event(name: str, *, up: bool, band: int, reason: int = 0) -> bytes:
    """The record of "VRE.vap_down"."""
    return struct.pack(">BBB33s", up, band, reason, name.encode())


def channel_statistics(channel: int, *, index: int = 0, score: int = 0, non_wifi: int = 0, busy: int = 0) -> bytes:
    """The first record of "VRE.evt_chan_debug_info"."""
    return struct.pack(">BIHIBb", 1, channel, index, score, non_wifi, busy)


def channel_changed(cause: int) -> bytes:
    return bytes((2, cause))


def channel_selected(channel: int, mode: int) -> bytes:
    return bytes((3, channel, mode))


def channel_unchanged(channel: int, mode: int) -> bytes:
    return bytes((4, channel, mode))


def power(before: int, now: int, radio: str) -> bytes:
    """The record of "VRE.evt_tx_power_change" and "VRE.evt_tx_power_not_changed"."""
    return struct.pack(">ii10s", before, now, radio.encode())


def user_space_text(text: bytes, length: int | None = None) -> bytes:
    """The value of "VRE.userspace_event"."""
    return struct.pack(">I", len(text) if length is None else length) + text
