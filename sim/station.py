"""Clients that try to connect: the events by which drivers, authenticator, portal and DNS watcher tell the daemon of it.

A station says one step after another, each with its own event; the usual attempts are in sim/attempts.py.
"""

from __future__ import annotations

import socket
from collections.abc import Callable
from dataclasses import dataclass, field

from sim.events import (
    INFO_CODE,
    SUBINFO_CODE,
    SUBINFO_VALUE,
    VAP_BSSID,
    VAP_INDEX,
    VAP_NAME,
    VAP_SSID,
    header,
    item,
    mac_bytes,
    text_item,
    u16,
    u32,
)
from sim.profiles import folder, write_profile
from sim.wireless import Vap, Wireless

# Information codes.
KEY_HANDSHAKE, AUTH_REQUEST, AUTH_RESPONSE, ASSOC_REQUEST, ASSOC_RESPONSE = 1, 2, 3, 4, 5
PORTAL, IPV6, DHCP, RADIUS, AUTHORIZED, LEFT = 8, 9, 14, 15, 16, 17
STEERING, DNS, ROAMING, IPV4, INVALID_IP, IP_CONFLICT, CLIENT_VLAN = 20, 21, 22, 23, 25, 26, 27

# Subinformation codes.
WRONG_KEY = 14  # of the key handshake
DISCOVER, OFFER, REQUEST, ACKNOWLEDGE = 1, 2, 3, 5  # of DHCP
ACCESS_REQUEST, ACCESS_ACCEPT, ACCESS_REJECT, RADIUS_SUCCEEDED = 801, 802, 803, 11  # of RADIUS
ASKED, ANSWERED = 0, 1  # of DNS
LOGGED_IN, LOGIN_FAILED = 0, 1  # of the portal
AP_FULL = 17  # status of a refused association
ROGUE_SERVER = 2  # of an invalid address

RADIUS_SERVER, DHCP_SERVER, DNS_SERVER, ROGUE = "10.0.0.5", "192.168.1.1", "8.8.8.8", "192.168.66.6"


@dataclass
class Network:
    """An SSID on a VAP. `security` is as the profile's key AP_SECFILE has it; empty is open."""

    ssid: str
    vap: str
    bssid: str
    profile: int
    security: str = ""
    portal: bool = False
    keys: dict[str, object] = field(default_factory=dict)  # further ones of the profile

    def write(self) -> None:
        """Writes the profile's files."""
        security = {"AP_SECFILE": self.security} if self.security else {}
        keys = {"SSID_PROFILE_ID": self.profile, "VAP_LIST": self.vap, "WL_PROFILE_SSID": self.ssid}
        write_profile(self.profile, {**keys, "ExternalDevice": "br0", **security, **self.keys})
        if self.portal:
            with open(f"{folder(self.profile)}/portal.conf", "w", encoding="ascii"):
                pass

    def as_vap(self) -> Vap:
        return Vap(self.vap, self.ssid, self.bssid)


OPEN = Network("Cafe", "ath2", "02:00:00:00:01:02", 12)
HOME = Network("Home", "ath3", "02:00:00:00:01:03", 13, security="PSK")
OFFICE = Network("Office", "ath4", "02:00:00:00:01:04", 14, security="EAP")
GUEST = Network("Guest", "ath5", "02:00:00:00:01:05", 15, portal=True)
NETWORKS = (OPEN, HOME, OFFICE, GUEST)


def announce(network: Network, wireless: Wireless, send: Callable[[str, bytes], object]) -> None:
    """Lets the daemon find the network's VAP and the profile that it serves; the driver must know the VAP."""
    network.write()
    profile = header(profile_id=network.profile) + text_item(VAP_NAME, network.vap) + item(SUBINFO_VALUE, u32(0))
    send("VRE.bw.vap_profile_id", profile)
    send("VRE.smart_steering", header() + item(VAP_INDEX, u32(wireless[network.vap].index)))


def dump_request(path: str, mac: str = "ff:ff:ff:ff:ff:ff") -> bytes:
    """The payload of "VRE.client_ts_conn_err_log_dump": the failed attempts of one client or of all."""
    return mac_bytes(mac) + path.encode().ljust(32, b"\0")


def ip(text: str) -> bytes:
    return socket.inet_aton(text)


class Station:
    """One client on one network. `send` takes an event's name and payload."""

    def __init__(self, mac: str, network: Network, send: Callable[[str, bytes], object]):
        self.mac = mac
        self.network = network
        self._send = send

    def payload(self, info: int, sub: int, value: bytes | None = None) -> bytes:
        return (
            header(self.mac, self.network.profile)
            + text_item(VAP_SSID, self.network.ssid)
            + item(VAP_BSSID, mac_bytes(self.network.bssid))
            + text_item(VAP_NAME, self.network.vap)
            + item(INFO_CODE, u32(info))
            + item(SUBINFO_CODE, u16(sub))
            + (b"" if value is None else item(SUBINFO_VALUE, value))
        )

    def tell(self, event: str, info: int, sub: int, value: bytes | None = None) -> None:
        self._send(event, self.payload(info, sub, value))

    # Wi-Fi

    def authenticate(self, *, channel: int = 6, rssi: int = -55, status: int = 0) -> None:
        self.request_authentication(channel, rssi)
        outcome = "VRE.auth.success" if status == 0 else "VRE.auth.failure"
        self.tell(outcome, AUTH_RESPONSE, status)

    def request_authentication(self, channel: int = 6, rssi: int = -55) -> None:
        self.tell("VRE.auth.recv", AUTH_REQUEST, 0, u16(channel) + (rssi % 256).to_bytes(1, "big"))

    def request_association(self, channel: int = 6, rssi: int = -55) -> None:
        self.tell("VRE.assoc.recv", ASSOC_REQUEST, 0, u16(channel) + (rssi % 256).to_bytes(1, "big"))

    def associate(self, *, channel: int = 6, status: int = 0) -> None:
        self.request_association(channel)
        outcome = "VRE.assoc.success" if status == 0 else "VRE.assoc.failure"
        self.tell(outcome, ASSOC_RESPONSE, status)

    def join(self, channel: int = 6) -> None:
        """Authentication and association of 802.11, as every client begins."""
        self.authenticate(channel=channel)
        self.associate(channel=channel)

    def handshake(self, *steps: int) -> None:
        for step in steps:
            self.tell("VRE.eapol", KEY_HANDSHAKE, step)

    def authorize(self) -> None:
        self.tell("VRE.node_authorize", AUTHORIZED, 0)

    def leave(self) -> None:
        self.tell("VRE.node_leave", LEFT, 0)

    # The authentication server

    def ask_radius(self, server: str = RADIUS_SERVER) -> None:
        self.tell("VRE.dot1x", RADIUS, ACCESS_REQUEST, ip(server))

    def radius(self, sub: int) -> None:
        self.tell("VRE.dot1x", RADIUS, sub)

    # Addresses and names

    def dhcp(self, sub: int, server: str = DHCP_SERVER) -> None:
        self.tell("VRE.node.dhcp", DHCP, sub, ip(server))

    def address(self, address: str) -> None:
        self.tell("VRE.node_ip", IPV4, 0, ip(address))

    def ipv6_address(self, address: str) -> None:
        self.tell("VRE.node_ipv6", IPV6, 0, socket.inet_pton(socket.AF_INET6, address))

    def dns(self, sub: int, latency: int = 0, server: str = DNS_SERVER) -> None:
        self.tell("VRE.dns.info", DNS, sub, u32(latency) + ip(server))

    def invalid_ip(self, sub: int, address: str, server: str) -> None:
        self.tell("VRE.node.invalid.ip", INVALID_IP, sub, ip(address) + ip(server))

    def ip_conflict(self, other: str, address: str) -> None:
        self.tell("VRE.node.ip.conflict", IP_CONFLICT, 0, mac_bytes(other) + ip(address))

    def vlan(self, vlan: int) -> None:
        self.tell("VRE.node.vlan", CLIENT_VLAN, 0, u32(vlan))

    def portal(self, sub: int) -> None:
        self.tell("VRE.portal", PORTAL, sub)
