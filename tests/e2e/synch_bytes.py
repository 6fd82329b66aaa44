"""Packets between the daemon and its agent, written by hand, and what makes the daemon send them."""

import struct

from sim.agent import packets
from sim.background import wait_until
from sim.events import u16

EVERYBODY = bytes.fromhex("ffffffffffff")
ADD, DELETE, SEND_REQUEST = 1, 2, 3


def wire(kind, subtype, path, appid, payload, mac=EVERYBODY):
    return bytes([1, kind, path, 0, subtype, len(appid)]) + u16(len(payload)) + mac + appid + payload


def registration(kind, ssid, interface=b"lo"):
    name = bytes([10, len(interface)]) + interface
    return wire(kind, 0, 0, ssid, name + b"\x0b\x04\x00\x00\x04\x08" + b"\x0c\x0ewl_evt_handler")


def request(ssid, flag):
    return wire(10, 1, 2, ssid, b"\x1e\x01" + bytes([flag]))


def update(ap, flags, profile_id):
    """Tells the daemon of a profile that is new or gone, or whose clients the neighbours shall be asked for."""
    ap.send_event("VRE.ssid_profile_update", struct.pack(">IB", profile_id, flags))


def told(ap, connection):
    """What the daemon has sent when it has dealt with all that it was told; parameters for the neighbours mark the end
    of it."""
    wait_until(lambda: connection.unread() == 0, "everything to be read")
    ap.settle()
    ap.send_event("VRE.inter_ap_synch", bytes(2))
    found = []
    while (packet := connection.receive()).type != packets.INTER_AP:
        found.append(packet.encode())
    return found
