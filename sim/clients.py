"""What the authenticator and the captive portal tell the daemon about clients: keys, logins, arrivals and departures."""

from __future__ import annotations

import struct
import time

from sim.events import (
    INFO_CODE,
    SUBINFO_CODE,
    SUBINFO_VALUE,
    VAP_BSSID,
    VAP_NAME,
    VAP_SSID,
    header,
    item,
    mac_bytes,
    text_item,
    u16,
    u32,
)

FULL_AUTHENTICATION, KEY_CACHING = 1, 2
KEYS, LOGIN = 100, 101
KEY_LIFETIME = 3600
TEST_KEY = bytes(range(0xA0, 0xC0))
_PMK = struct.Struct(">32sIIBiii46siI")
_LOGIN = struct.Struct(">16siiIii64s")


def _about(mac: str, profile_id: int, code: int, subcode: int, value: bytes) -> bytes:
    return (
        header(mac, profile_id)
        + item(INFO_CODE, u32(code))
        + item(SUBINFO_CODE, u16(subcode))
        + item(SUBINFO_VALUE, value)
    )


def key(
    mac: str,
    profile_id: int,
    identity: bytes = b"",
    *,
    kind: int = FULL_AUTHENTICATION,
    pmk: bytes = TEST_KEY,
    expiration: int | None = None,
    eap_type: int = 25,
    interim_interval: int = 0,
    limits: tuple[int, int] = (-1, -1),
    vlan_id: int = -1,
) -> bytes:
    """The payload of "VRE.cl_info" that brings a key. `expiration` is a time of the monotonic clock, an hour from now
    unless given; limits are download and upload; -1 is none, also of VLANs."""
    if expiration is None:
        expiration = int(time.monotonic()) + KEY_LIFETIME
    fixed = _PMK.pack(
        pmk, len(pmk), expiration, eap_type, interim_interval, *limits, bytes(46), vlan_id, len(identity)
    )
    return _about(mac, profile_id, KEYS, kind, fixed + identity)


def key_gone(mac: str, profile_id: int, kind: int = FULL_AUTHENTICATION) -> bytes:
    return _about(mac, profile_id, KEYS, kind + 2, b"")


def login(
    mac: str,
    profile_id: int,
    ip: str,
    *,
    expire: int,
    blackout_expire: int,
    login_time: int = 0,
    limits: tuple[int, int] = (-1, -1),
    username: bytes = b"",
) -> bytes:
    """The payload of "VRE.cl_info" that brings a portal login; times are of the wall clock."""
    value = _LOGIN.pack(ip.encode(), expire, blackout_expire, login_time, *limits, username)
    return _about(mac, profile_id, LOGIN, 1, value)


def login_gone(mac: str, profile_id: int) -> bytes:
    return _about(mac, profile_id, LOGIN, 2, b"")


def on_vap(mac: str, profile_id: int, ssid: str, vap: str = "ath0", bssid: str = "02:00:00:00:01:00") -> bytes:
    """The payload of "VRE.node_authorize" and "VRE.node_leave"."""
    return (
        header(mac, profile_id)
        + text_item(VAP_SSID, ssid)
        + item(VAP_BSSID, mac_bytes(bssid))
        + text_item(VAP_NAME, vap)
    )
