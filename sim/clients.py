"""Clients of the access point: what the authenticator, the portal and the drivers tell the daemon about them."""

from __future__ import annotations

import struct

from sim.events import (
    CLIENT,
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

KEY, LOGIN = 100, 101  # information codes of "VRE.cl_info"
ADD_KEY, ADD_OKC_KEY, DELETE_KEY, DELETE_OKC_KEY = 1, 2, 3, 4
ADD_LOGIN, DELETE_LOGIN = 1, 2
EVERY_CLIENT = "ff:ff:ff:ff:ff:ff"
CACHE, ROLES = 0, 1  # what a dump is asked for

_KEY = struct.Struct(">32sIIBiii46siI")
_LOGIN = struct.Struct(">16siiIii64s")


def client_info(code: int, sub_code: int, value: bytes | None = None, mac: str = CLIENT, profile_id: int = 1) -> bytes:
    """The payload of "VRE.cl_info"."""
    items = item(INFO_CODE, u32(code)) + item(SUBINFO_CODE, u16(sub_code))
    return header(mac, profile_id) + items + (b"" if value is None else item(SUBINFO_VALUE, value))


def key_value(
    key: bytes,
    identity: bytes = b"",
    *,
    expiration: int = 3600,
    eap_type: int = 25,
    interim: int = 60,
    limits: tuple[int, int] = (-1, -1),
    vlan: int = -1,
    length: int = 32,
) -> bytes:
    """A pairwise master key with what the authentication server said; it expires at a time of the monotonic clock.
    Limits are download and upload; -1 is none, also of VLANs."""
    return _KEY.pack(key, length, expiration, eap_type, interim, *limits, bytes(46), vlan, len(identity)) + identity


def login_value(
    address: str,
    user: str,
    *,
    expire: int = 0,
    blackout: int = 0,
    login: int = 0,
    limits: tuple[int, int] = (-1, -1),
) -> bytes:
    """A login at the captive portal; times are seconds of the wall clock, limits download and upload."""
    return _LOGIN.pack(address.encode(), expire, blackout, login, *limits, user.encode())


def whereabouts(ssid: str, vap: str = "ath0", mac: str = CLIENT) -> bytes:
    """The payload of an event that says where a client is, such as "VRE.node_authorize"."""
    bssid = mac_bytes("02:00:00:00:01:00")
    return header(mac) + text_item(VAP_SSID, ssid) + item(VAP_BSSID, bssid) + text_item(VAP_NAME, vap)


def dump_request(path: str, mac: str = EVERY_CLIENT, what: int = CACHE) -> bytes:
    """The payload of "VRE.wl_client_info_dump"."""
    return struct.pack(">6s32sB", mac_bytes(mac), path.encode(), what)
