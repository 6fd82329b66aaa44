"""The events of the bus and the bytes of their payloads; all integers are big-endian.

Events below 67 are about a client: their payload begins with the client's MAC address and the profile id. Items follow,
each a tag, a length and a value.
"""

from __future__ import annotations

import socket
import re
import struct

# Index of each event that has a name; the others of 0 to 107 have none.
NAMES = {
    0: "VRE.auth.recv",
    1: "VRE.auth.success",
    2: "VRE.auth.failure",
    3: "VRE.deauth.sent",
    4: "VRE.deauth.recv",
    5: "VRE.assoc.recv",
    6: "VRE.assoc.success",
    7: "VRE.assoc.failure",
    8: "VRE.reassoc.recv",
    9: "VRE.reassoc.success",
    10: "VRE.reassoc.failure",
    11: "VRE.disassoc.sent",
    12: "VRE.disassoc.recv",
    13: "VRE.node.timeout",
    14: "VRE.node_leave",
    15: "VRE.node_ip",
    16: "VRE.node_ipv6",
    17: "VRE.node_authorize",
    18: "VRE.node.dhcp",
    19: "VRE.node_dot1x",
    20: "VRE.hotspot20.gas_initial_request",
    21: "VRE.hotspot20.gas_comeback_request",
    22: "VRE.hotspot20.gas_initial_response",
    23: "VRE.hotspot20.gas_comeback_response",
    24: "VRE.bw.set",
    25: "VRE.bw.clr",
    26: "VRE.bw.getstatus",
    27: "VRE.bw.inform",
    28: "VRE.bw.update",
    29: "VRE.eapol",
    30: "VRE.dot1x",
    31: "VRE.portal",
    32: "VRE.smart_steering",
    33: "VRE.prevention",
    34: "VRE.dns.info",
    35: "VRE.roaming",
    36: "VRE.node_ip.pkt",
    37: "VRE.node.invalid.ip",
    38: "VRE.node.ip.conflict",
    39: "VRE.node.vlan",
    40: "VRE.bw.events",
    41: "VRE.debug.ap_ts",
    42: "VRE.debug.client_ts",
    43: "VRE.vlan.detector",
    44: "VRE.debug.cl_role",
    46: "VRE.debug.username",
    47: "VRE.debug.cl_poll",
    48: "VRE.tunnel.info",
    49: "VRE.debug.client_info",
    50: "VRE.client.disconnect",
    51: "VRE.deauth",
    52: "VRE.disassoc",
    53: "VRE.auth",
    54: "VRE.assoc",
    55: "VRE.reassoc",
    56: "VRE.node",
    57: "VRE.hotspot20",
    58: "VRE.bw",
    59: "VRE.hostapd_event",
    60: "VRE.debug",
    62: "VRE.paused_tid",
    63: "VRE.request_portal_peer_info",
    64: "VRE.reply_portal_peer_info",
    65: "VRE.cl_info",
    67: "VRE.system_service_crash_event",
    68: "VRE.internet_down_evt",
    69: "VRE.ap_upgrade_log_evt",
    70: "VRE.ap_upgrade_success_evt",
    71: "VRE.ap_leasefail_evt",
    72: "VRE.ap_ip_conflict_evt",
    73: "VRE.ap_config_changed_evt",
    74: "VRE.ap_tunnel_down",
    75: "VRE.evt_ethernet_up_down",
    76: "VRE.ap_memory_utilization_evt",
    77: "VRE.ap_reboot_evt",
    78: "VRE.userspace_event",
    81: "VRE.evt_tx_power_change",
    82: "VRE.evt_tx_power_not_changed",
    83: "VRE.evt_chan_debug_info",
    84: "VRE.vap_down",
    85: "VRE.evt_cl_count_exceeded",
    93: "VRE.Target.AP.Traffic.details",
    94: "VRE.Target.AP.Traffic.PID",
    95: "VRE.Target.AP.Traffic.test",
    96: "VRE.ssid_profile_update",
    97: "VRE.wl_client_info_dump",
    98: "VRE.client_ts_conn_err_log_enable",
    99: "VRE.client_ts_conn_err_log_dump",
    100: "VRE.spectrum_start",
    101: "VRE.inter_ap_synch",
    102: "VRE.vlan.gateway.info",
    103: "VRE.wl_regist",
    104: "VRE.wl_deregist",
    105: "VRE.bw.vap_profile_id",
    106: "VRE.clr.iface",
    107: "VRE.splbw.events",
}
INDICES = {name: index for index, name in NAMES.items()}
LAST_CLIENT_EVENT = 66

# Tags of items.
VAP_SSID = 1
VAP_BSSID = 2
VAP_NAME = 3
VAP_INDEX = 4
INFO_CODE = 5
SUBINFO_CODE = 6
SUBINFO_VALUE = 7
BW_PRIORITY = 8
BW_UPLOAD_LIMIT = 9
BW_DOWNLOAD_LIMIT = 10
BW_IS_PER_BSS_RULE = 11
BW_APPLY_RULE = 12
REQUEST_ATTR_PEER = 13
REPLY_ATTR_PEER = 14

CLIENT = "02:00:00:00:00:01"
VLAN_RECORD = struct.Struct(">H512si")
VLAN_REQUEST = 1
VLAN_INFORMATION = 2
VLAN_BITMAP_COMPLETE = -1
TRAFFIC_TEST_RECORD = struct.Struct(">BH16s6s4sH")
TRAFFIC_TEST_CLIENT = 1
TRAFFIC_TEST_SERVER = 2


def mac_bytes(text: str) -> bytes:
    if not re.fullmatch("([0-9A-Fa-f]{2}:){5}[0-9A-Fa-f]{2}", text):
        raise ValueError(f"no MAC address: {text}")
    return bytes.fromhex(text.replace(":", ""))


def mac_text(mac: bytes) -> str:
    return mac.hex(":")


def u16(value: int) -> bytes:
    return struct.pack(">H", value)


def u32(value: int) -> bytes:
    return struct.pack(">I", value)


def header(mac: str = CLIENT, profile_id: int = 1) -> bytes:
    """What the payload of a client event begins with."""
    return mac_bytes(mac) + u32(profile_id)


def item(tag: int, value: bytes = b"") -> bytes:
    return u32(tag) + u32(len(value)) + value


def text_item(tag: int, text: str) -> bytes:
    return item(tag, text.encode() + b"\0")


def coded(code: int, value: bytes) -> bytes:
    """A client event's payload of a sub-information code and its value."""
    return header() + item(SUBINFO_CODE, u16(code)) + item(SUBINFO_VALUE, value)


def typical(event: str) -> bytes:
    """A plausible payload with the usual items, for any event."""
    items = (
        text_item(VAP_SSID, "Lobby")
        + item(VAP_BSSID, mac_bytes("02:00:00:00:01:00"))
        + text_item(VAP_NAME, "ath0")
        + item(INFO_CODE, u32(1))
        + item(SUBINFO_CODE, u16(1))
    )
    return header() + items if INDICES[event] <= LAST_CLIENT_EVENT else items


def vlan_information(vlans: set[int], vlan: int = VLAN_BITMAP_COMPLETE, message: int = VLAN_INFORMATION) -> bytes:
    """The record of "VRE.vlan.detector": a bitmap of VLANs, or one `vlan` to add."""
    bitmap = bytearray(512)
    for seen in vlans:
        bitmap[seen // 8] |= 1 << seen % 8
    return VLAN_RECORD.pack(message, bytes(bitmap), vlan)


def traffic_test_details(
    party: int, mac: str, ip: str, *, port: int = 0, profile_id: int = 0, vap: str = ""
) -> bytes:
    """The record of "VRE.Target.AP.Traffic.details"; port, profile and VAP are the server's to tell."""
    return TRAFFIC_TEST_RECORD.pack(party, profile_id, vap.encode(), mac_bytes(mac), socket.inet_aton(ip), port)


def traffic_test_pid(mac: str, pid: int) -> bytes:
    """The record of "VRE.Target.AP.Traffic.PID"."""
    return mac_bytes(mac) + struct.pack(">i", pid)


def _describe_vlan_record(payload: bytes) -> str:
    message, bitmap, vlan = VLAN_RECORD.unpack(payload)
    if message == VLAN_REQUEST and not any(bitmap):
        return "request for the VLANs seen"
    vlans = [n for n in range(4096) if bitmap[n // 8] >> n % 8 & 1]
    return f"message {message}, VLANs {vlans}, vlan {vlan}"


def describe(event: str, payload: bytes) -> str:
    """One line about an event, for people."""
    if event == "VRE.vlan.detector" and len(payload) == VLAN_RECORD.size:
        content = _describe_vlan_record(payload)
    else:
        content = payload[:24].hex(" ") + (" ..." if len(payload) > 24 else "")
    return f"{event}, {len(payload)} bytes: {content}" if payload else f"{event}, no payload"
