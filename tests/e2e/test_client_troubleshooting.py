"""Client troubleshooting: attempts to connect, what is reported and forwarded of them, what is written and kept.

The daemon's clock stands still but for the time that a test lets pass, so the times in reports are exact.
"""

from __future__ import annotations

import fcntl
import os
import socket
import struct
import time
from dataclasses import dataclass

import pytest

from sim import reports
from sim.access_point import AccessPoint
from sim.attempts import ATTEMPTS
from sim.background import wait_until
from sim.clients import ADD_KEY, ADD_LOGIN, KEY, LOGIN, key_value, login_value
from sim.clock import Clock
from sim.events import NAMES, coded, u16, u32, vlan_information
from sim.preload import preloaded
from sim.reports import BAND_2_GHZ, BAND_5_GHZ, FORWARDED, REPORT, address, item
from sim.station import (
    ACKNOWLEDGE,
    ACCESS_REQUEST,
    ANSWERED,
    AP_FULL,
    ASKED,
    DISCOVER,
    GUEST,
    HOME,
    NETWORKS,
    OFFICE,
    OPEN,
    REQUEST,
    WRONG_KEY,
    Network,
    Station,
    announce,
    dump_request,
)
from sim.wireless import Wireless

ALICE = "02:00:00:00:00:0a"
BOB = "02:00:00:00:00:bb"
DUMP = "/tmp/wl_errors.txt"
TIMEOUT, PORTAL_TIMEOUT, SWEEP = 120, 300, 30
DECIDED = TIMEOUT + SWEEP + 5  # by then a sweep has found an attempt that stands still, with seconds to spare
TEN_MINUTES = 600
SIOCGIFHWADDR = 0x8927


@dataclass
class Cell:
    """An access point with its four networks, and the clock of its daemon."""

    ap: AccessPoint
    clock: Clock
    wireless: Wireless

    def send(self, event: str, payload: bytes) -> None:
        """Sends an event, and the next one not before everybody has taken what this one published: a queue is short."""
        self.ap.send_event(event, payload)
        self.ap.settle()
        queues = [peer.queue for peer in self.ap.peers.values()]
        wait_until(lambda: not any(queue.waiting for queue in queues), "peers that have read everything")

    def station(self, mac=ALICE, network: Network = OPEN) -> Station:
        return Station(mac, network, self.send)

    def pause(self, milliseconds: int) -> None:
        self.clock.let_pass(milliseconds / 1000)

    def play(self, name: str, mac=ALICE) -> None:
        attempt = ATTEMPTS[name]
        attempt.play(self.station(mac, attempt.network), self.pause)

    def reports(self, count: int) -> list[bytes]:
        """Waits for so many reports; there must not be more."""
        self.ap.wait_for_published(REPORT, count=count)
        self.ap.settle()
        found = self.ap.published(REPORT)
        assert len(found) == count, [str(reports.decode(report)) for report in found]
        return found

    def report(self) -> bytes:
        return self.reports(1)[0]

    def sweeps(self) -> int:
        return sum("CTS: Conn InProg Count" in record.message for record in self.ap.log())

    def let_pass(self, seconds: int) -> None:
        """Lets time pass for the daemon, with the timer's sweeps at their times."""
        self.ap.settle()
        while seconds >= SWEEP:
            before = self.sweeps()
            self.clock.let_pass(SWEEP)
            seconds -= SWEEP
            while not self.has_swept(before) and seconds > 0:  # it began its sleep late, when time passed already
                self.clock.let_pass(1)
                seconds -= 1
            self.ap.settle()
        self.clock.let_pass(seconds)

    def has_swept(self, before: int) -> bool:
        """Whether the timer sweeps now that its time has come."""
        try:
            wait_until(lambda: self.sweeps() > before, "a sweep", limit=0.5)
        except TimeoutError:
            return False
        return True

    def accounts(self) -> list[int]:
        """The last line of the timer: attempts in progress, error records, then what is allocated, bytes last."""
        lines = [r.message for r in self.ap.log() if "CTS: Conn InProg Count" in r.message]
        words = lines[-1].replace(";", " ").replace("/", " ").split()
        return [int(word) for word in words if word.isdigit()]

    def dump(self, mac="ff:ff:ff:ff:ff:ff") -> str:
        if os.path.exists(DUMP):
            os.unlink(DUMP)
        self.ap.send_event("VRE.client_ts_conn_err_log_dump", dump_request(DUMP, mac))
        self.ap.settle()
        with open(DUMP, encoding="ascii") as file:
            return file.read()

    def told(self, text: str) -> bool:
        return any(text in record.message for record in self.ap.log())


@pytest.fixture
def cell(daemon):
    wireless = Wireless(*(network.as_vap() for network in NETWORKS))
    clock = Clock()
    clock.stop()
    command = preloaded(daemon, [os.environ["WL_SIM_CLOCK"], os.environ["WL_SIM_DRIVER"]])
    with AccessPoint(command) as ap:
        for network in NETWORKS:
            announce(network, wireless, ap.send_event)
        ap.send_event("VRE.bw.events", coded(0, u16(7)))
        ap.settle()
        yield Cell(ap, clock, wireless)
    wireless.close()


def head(network, success, band=BAND_2_GHZ, mac=ALICE):
    return reports.report_head(mac, network.bssid, band, success)


def failure(code, sub):
    return item(1, bytes([code])) + item(2, u16(sub))


def latencies(radius, dhcp, dns):
    return item(3, u32(radius)) + item(4, u32(dhcp)) + item(5, u32(dns))


def journey(associated, authorised, address, last_stage):
    """When the report leaves: microseconds since the first three, milliseconds since the last."""
    return item(7, u32(associated)) + item(8, u32(authorised)) + item(9, u32(address)) + item(10, u32(last_stage))


DHCP_AND_DNS = item(36, address("192.168.1.1")) + item(35, address("8.8.8.8"))


# Successes


def test_a_client_of_an_open_network_is_reported_as_connected(cell):
    cell.play("open")
    assert cell.report() == head(OPEN, True) + latencies(0, 40, 12) + DHCP_AND_DNS + journey(52000, 52000, 12000, 12)


def test_a_client_with_a_passphrase_on_5_ghz_is_reported_as_connected(cell):
    cell.play("passphrase")
    assert cell.report() == (
        head(HOME, True, BAND_5_GHZ) + latencies(0, 40, 12) + DHCP_AND_DNS + journey(52000, 52000, 12000, 12)
    )


def test_a_client_with_8021x_is_reported_with_the_time_of_its_server(cell):
    cell.play("802.1X")
    servers = DHCP_AND_DNS + item(38, address("10.0.0.5"))
    assert cell.report() == head(OFFICE, True) + latencies(30, 40, 12) + servers + journey(82000, 52000, 12000, 12)


def test_a_client_that_logs_in_at_the_portal_is_reported_as_connected(cell):
    cell.play("portal")
    server = item(36, address("192.168.1.1"))
    assert cell.report() == (
        head(GUEST, True) + latencies(0, 40, 0) + server + journey(20040000, 20040000, 20000000, 20000)
    )


def test_an_answer_from_dns_within_the_millisecond_reports_nothing_until_the_attempt_is_over(cell):
    station = cell.station()
    station.join()
    station.dns(ASKED)
    station.dns(ANSWERED, 0)
    cell.ap.settle()
    assert cell.ap.published(REPORT) == []


def test_a_client_with_an_ipv6_address_is_assumed_to_be_connected_when_it_falls_silent(cell):
    station = cell.station()
    station.join()
    station.authorize()
    station.ipv6_address("2001:db8::20")
    cell.let_pass(DECIDED)
    assert cell.report()[: 15 + 24] == head(OPEN, True) + latencies(0, 0, 0)
    assert cell.told(f"CTS: Client {ALICE.upper()} assumed to connect successfuly!")


def test_an_authorised_client_with_an_address_of_its_own_is_reported_as_connected_when_it_falls_silent(cell):
    station = cell.station()
    station.join()
    station.authorize()
    cell.let_pass(DECIDED)
    assert cell.report()[: 15 + 24] == head(OPEN, True) + latencies(0, 0, 0)


# Failures


def test_a_wrong_key_is_reported(cell):
    cell.play("wrong-key")
    assert cell.report() == head(HOME, False) + failure(7, 14) + journey(5000, 0, 0, 5)


def test_a_wrong_key_where_8021x_is_used_is_a_failed_handshake(cell):
    station = cell.station(network=OFFICE)
    station.join()
    station.handshake(WRONG_KEY)
    assert cell.report() == head(OFFICE, False) + failure(8, 14) + journey(0, 0, 0, 0)


def test_a_client_that_radius_refuses_is_reported(cell):
    cell.play("radius-reject")
    server = item(38, address("10.0.0.5"))
    assert cell.report() == head(OFFICE, False) + failure(4, 803) + server + journey(30000, 0, 0, 30)


def test_a_client_that_finds_the_access_point_full_is_reported(cell):
    cell.play("full")
    assert cell.report() == head(OPEN, False) + failure(1, 17) + journey(0, 0, 0, 0)


@pytest.mark.parametrize("status, code", [(10, 2), (1, 3), (12, 3), (37, 3)])
def test_other_refusals_of_an_association_are_reported(cell, status, code):
    station = cell.station()
    station.authenticate()
    station.associate(status=status)
    assert cell.report() == head(OPEN, False) + failure(code, status) + journey(0, 0, 0, 0)


def test_a_refused_authentication_is_reported(cell):
    cell.station().authenticate(status=15)
    assert cell.report() == head(OPEN, False) + failure(16, 15) + journey(0, 0, 0, 0)


def test_statuses_of_a_fast_transition_are_no_failures(cell):
    station = cell.station()
    for status in (53, 54, 55):
        station.authenticate(status=status)
        station.associate(status=status)
    cell.ap.settle()
    assert cell.ap.published(REPORT) == []


def test_a_client_that_steering_refuses_has_not_failed(cell):
    station = cell.station()
    station.authenticate()
    station.request_association()
    station.tell("VRE.smart_steering", 20, 26, bytes(25))
    station.tell("VRE.assoc.failure", 5, AP_FULL)
    cell.let_pass(DECIDED)
    assert cell.ap.published(REPORT) == []
    assert cell.told(f"CTS: Client {ALICE.upper()} ignore sending assoc failure to server")


def late_report(cell, expected_head, servers=b""):
    """Checks a report that a sweep has sent: between the time-out and one sweep later."""
    found = reports.decode(cell.report())
    stage, associated = found.number(10), found.number(7)
    assert TIMEOUT * 1000 < stage <= DECIDED * 1000
    assert cell.report() == expected_head + servers + journey(associated, found.number(8), found.number(9), stage)
    return found


def test_a_client_that_dhcp_does_not_answer_is_reported_after_two_minutes(cell):
    cell.play("no-dhcp")
    cell.let_pass(TIMEOUT - 4 - 1)
    assert cell.ap.published(REPORT) == []
    cell.let_pass(SWEEP + 6)
    found = late_report(cell, head(OPEN, False) + failure(13, 1) + item(15, u16(0)))
    # It asked for an address as soon as it was associated and authorised; a millisecond is cut off in the last item.
    assert found.number(7) == found.number(8)
    assert 0 <= found.number(10) - found.number(7) // 1000 <= 1
    assert found.number(9) == 0


def test_a_vlan_that_was_seen_is_not_to_blame(cell):
    cell.ap.send_event("VRE.vlan.detector", vlan_information({0}))
    cell.play("no-dhcp")
    cell.let_pass(DECIDED)
    late_report(cell, head(OPEN, False) + failure(13, 0))


def test_the_vlan_that_was_not_seen_is_named(cell):
    station = cell.station()
    station.join()
    station.vlan(700)
    station.dhcp(DISCOVER)
    cell.let_pass(DECIDED)
    late_report(cell, head(OPEN, False) + failure(13, 1) + item(15, u16(700)))


def test_a_link_local_address_is_a_failure_of_dhcp(cell):
    station = cell.station()
    station.join()
    station.address("169.254.7.7")
    cell.let_pass(DECIDED)
    late_report(cell, head(OPEN, False) + failure(13, 1) + item(15, u16(0)))
    assert cell.told(f"CTS: Client {ALICE.upper()} still has link local IP. Sending DHCP failure")


def test_an_association_that_nobody_answers_is_reported_after_two_minutes(cell):
    station = cell.station()
    station.authenticate()
    station.request_association()
    cell.let_pass(DECIDED)
    late_report(cell, head(OPEN, False) + failure(3, 41))


def test_dns_that_answers_nothing_is_reported_after_two_minutes(cell):
    station = cell.station()
    station.join()
    station.ipv6_address("2001:db8::20")
    station.dns(ASKED)
    cell.let_pass(DECIDED)
    late_report(cell, head(OPEN, False) + failure(14, 3), item(35, address("8.8.8.8")))


def test_a_rogue_dhcp_server_is_named_beside_the_server_that_answered(cell):
    cell.play("rogue-dhcp")
    details = item(16, address("192.168.66.20")) + item(36, address("192.168.66.6"))
    server = item(36, address("192.168.66.6"))
    assert cell.report() == head(OPEN, False) + failure(18, 2) + details + server + journey(8000, 8000, 0, 0)


def test_an_address_that_another_station_has_is_reported_with_it(cell):
    station = cell.station()
    station.join()
    station.ip_conflict(BOB, "192.168.1.20")
    details = item(16, address("192.168.1.20")) + item(37, bytes.fromhex(BOB.replace(":", "")))
    assert cell.report() == head(OPEN, False) + failure(18, 3) + details + journey(0, 0, 0, 0)


def test_a_failed_portal_login_is_reported(cell):
    cell.play("portal-failure")
    server = item(36, address("192.168.1.1"))
    assert cell.report() == head(GUEST, False) + failure(10, 1) + server + journey(20040000, 20040000, 20000000, 0)


def test_a_portal_s_client_is_given_five_minutes(cell):
    station = cell.station(network=GUEST)
    station.join()
    station.dhcp(DISCOVER)
    cell.let_pass(PORTAL_TIMEOUT - 1)
    assert cell.ap.published(REPORT) == []
    cell.let_pass(SWEEP + 6)
    found = reports.decode(cell.report())
    assert found.items[:3] == [(1, b"\x0d"), (2, b"\0\1"), (15, b"\0\0")]
    assert PORTAL_TIMEOUT * 1000 < found.number(10) <= (PORTAL_TIMEOUT + DECIDED - TIMEOUT) * 1000


def hardware_address(vap):
    """The address of a VAP's interface, which is the kernel's where the kernel has the interface."""
    if not vap.real:
        return vap.bssid
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        request = struct.pack("16s24x", vap.name.encode())
        return fcntl.ioctl(probe, SIOCGIFHWADDR, request)[18:24].hex(":")


def test_an_apc_identifier_names_client_vap_and_time(cell):
    network = Network("Apc", "ath6", "02:00:00:00:01:06", 16, keys={"APC_ENABLED": 1})
    vap = cell.wireless.add(network.as_vap())
    cell.wireless.write()
    network.bssid = hardware_address(vap)
    announce(network, cell.wireless, cell.ap.send_event)
    cell.ap.send_event("VRE.ssid_profile_update", u32(network.profile) + b"\1")
    with open("/tmp/time.offset", "w", encoding="ascii") as file:
        file.write("1000")
    cell.station(network=network).authenticate(status=1)
    vap_part = network.bssid.replace(":", "").upper()[6:]
    identifier = f"00000A-{vap_part}-{(int(cell.clock.now()) + 1000) % 1000000:06d}"
    assert cell.report() == (
        head(network, False) + failure(16, 1) + item(11, identifier.encode()) + journey(0, 0, 0, 0)
    )


# What is not reported


def test_a_failure_is_reported_once_in_an_attempt(cell):
    station = cell.station(network=HOME)
    station.join()
    station.handshake(WRONG_KEY, WRONG_KEY, WRONG_KEY)
    cell.report()
    assert cell.told("CONN INFO: Not sending to server, already sent within 120 secs interval\n")


def test_different_failures_of_an_attempt_are_reported_up_to_four(cell):
    station = cell.station(network=GUEST)
    station.join()
    station.handshake(WRONG_KEY, 15, 45)
    station.portal(1)
    station.portal(4)
    codes = [reports.decode(report).number(1) for report in cell.reports(4)]
    assert codes == [7, 8, 17, 10]
    assert cell.told("CONN INFO: No space to store new failure info")


def test_a_failure_of_an_earlier_attempt_is_reported_again_after_ten_minutes_only(cell):
    cell.play("wrong-key")
    cell.play("wrong-key")
    cell.report()
    assert cell.told(
        f"CONN INFO: Not sending to server for client {ALICE.upper()}, already sent in 600000 ms interval\n"
    )
    cell.let_pass(TEN_MINUTES - 1)
    cell.play("wrong-key")
    cell.report()
    cell.let_pass(TEN_MINUTES + DECIDED)
    cell.play("wrong-key")
    cell.reports(2)


def test_the_same_failure_on_another_vap_or_of_another_client_is_reported(cell):
    cell.play("full")
    cell.play("full", BOB)
    station = cell.station(network=HOME)
    station.authenticate()
    station.associate(status=AP_FULL)
    cell.reports(3)


def test_an_attempt_without_an_association_request_is_not_reported(cell):
    cell.station().authenticate()
    cell.let_pass(DECIDED)
    assert cell.ap.published(REPORT) == []
    assert cell.told(f"CTS: Supressing CL_CONN_NO_ASSOC_RCVD failure for client{ALICE.upper()}")


def test_a_client_that_has_left_is_not_assumed_to_be_connected(cell):
    station = cell.station()
    station.join()
    station.ipv6_address("2001:db8::20")
    station.leave()
    cell.let_pass(DECIDED)
    assert cell.ap.published(REPORT) == []
    assert cell.told(
        f"CTS: Not sending success log for client {ALICE.upper()} since it is no longer connected to AP"
    )


def test_switched_off_nothing_is_followed_but_events_are_forwarded(cell):
    cell.ap.send_event("VRE.client_ts_conn_err_log_enable", u32(0))
    cell.play("wrong-key")
    assert cell.ap.published(REPORT) == []
    assert len(cell.ap.published(FORWARDED)) == 7
    cell.ap.send_event("VRE.client_ts_conn_err_log_enable", u32(1))
    cell.play("wrong-key")
    cell.report()


def test_a_switch_of_three_bytes_changes_nothing(cell):
    cell.ap.send_event("VRE.client_ts_conn_err_log_enable", bytes(3))
    cell.play("wrong-key")
    cell.report()


def test_events_are_followed_while_the_timer_sweeps_all_the_time(cell):
    cell.clock.run(3000)  # a sweep every 10 ms; an attempt stands still after 40
    for number in range(300):
        station = Station(mac_of(number % 50), NETWORKS[number % 4], cell.ap.send_event)
        station.join()
        station.handshake(WRONG_KEY)
        station.dhcp(DISCOVER)
        if number % 20 == 0:
            cell.dump()
    cell.ap.settle()
    assert cell.sweeps() > 3
    assert cell.ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
    assert cell.dump().startswith("AP has ")


# Forwarded events


def forwarded(info, sub, *items, network=OPEN):
    """A forwarded event of Alice: sub-code and SSID, then the items of its value."""
    start = reports.forwarded_head(ALICE, network.bssid, info)
    return start + item(1, u32(sub)) + item(3, network.ssid.encode()) + b"".join(items)


def test_the_events_of_a_client_are_forwarded(cell):
    cell.play("802.1X")
    server = item(2, b"192.168.1.1")
    expected = [
        (2, 0, item(2, b"\0\x06\xc9")),
        (3, 0),
        (4, 0, item(2, b"\0\x06\xc9")),
        (5, 0),
        (15, 801, item(2, b""), item(5, b"10.0.0.5")),
        (15, 802),
        (15, 11),
        *((1, step) for step in (1, 2, 3, 4)),
        (16, 0),
        *((14, sub, server) for sub in (1, 2, 3, 5)),
    ]
    assert cell.ap.wait_for_published(FORWARDED, count=len(expected)) == [
        forwarded(*event, network=OFFICE) for event in expected
    ]


def test_addresses_are_forwarded_as_text(cell):
    station = cell.station()
    station.ipv6_address("2001:db8::20")
    station.invalid_ip(2, "192.168.66.20", "192.168.66.6")
    station.ip_conflict(BOB, "192.168.1.20")
    station.vlan(700)
    assert cell.ap.wait_for_published(FORWARDED, count=4) == [
        forwarded(9, 0, item(2, b"2001:db8::20")),
        forwarded(25, 2, item(2, b"192.168.66.20"), item(5, b"192.168.66.6")),
        forwarded(26, 0, item(2, b"192.168.1.20"), item(6, BOB.upper().encode())),
        forwarded(27, 0, item(2, u32(700)), item(4, u32(700))),
    ]


def test_a_vlan_of_all_ones_is_not_forwarded(cell):
    station = cell.station()
    station.tell("VRE.eapol", 1, 39, u32(0xFFFFFFFF))
    station.tell("VRE.eapol", 1, 39, u32(30))
    assert cell.ap.wait_for_published(FORWARDED) == [forwarded(1, 39, item(2, u32(30)))]
    assert cell.told("CLIENT TS INFO: Invalid vlan -1 received, not sending it!")


def test_an_event_without_a_network_is_forwarded_without_one(cell):
    cell.ap.send_event("VRE.node_leave", bytes.fromhex("02000000000a00000001000000050000000400000011"))
    assert cell.ap.wait_for_published(FORWARDED) == [reports.forwarded_head(ALICE, "", 17) + item(1, u32(0))]


def test_dns_roaming_and_ipv4_addresses_are_not_forwarded(cell):
    station = cell.station()
    station.dns(ASKED)
    station.address("192.168.1.20")
    station.tell("VRE.roaming", 22, 1)
    cell.ap.settle()
    assert cell.ap.published(FORWARDED) == []


def test_no_event_of_any_name_brings_the_daemon_down(cell):
    for event in NAMES.values():
        for info in (1, 2, 14, 26, 100):
            Station(ALICE, OPEN, cell.ap.send_event).tell(event, info, 801, bytes(200))
    cell.ap.settle()
    assert cell.ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"


# Lines of the system log


def line(network, text):
    return f"[{ALICE.upper()}]=>[{network.ssid}({network.bssid.upper()})] {text}"


def test_the_system_log_tells_an_attempt_in_words(cell):
    cell.play("802.1X")
    cell.ap.wait_for_syslog("DNS: answer from server 8.8.8.8")
    lines = [found for found in cell.ap.syslog if ALICE.upper() in found.text]
    assert {found[:4] for found in lines} == {(16, 6, "wl_event_handler", None)}
    request = "requested on channel 6, signal -55 dBm"
    assert [found.text for found in lines] == [
        line(OFFICE, text)
        for text in (
            f"Authentication {request}",
            "Authentication accepted (status 0)",
            f"Association {request}",
            "Association accepted (status 0)",
            "Radius Pkt Type: Access-Request",
            "Radius Pkt Type: Access-Accept",
            "802.1X: authentication succeeded",
            "Key handshake: step 1",
            "Key handshake: step 2",
            "Key handshake: step 3",
            "Key handshake: step 4",
            "Client may use the network Office",
            "DHCP: client looks for a server",
            "DHCP: server 192.168.1.1 offers an address",
            "DHCP: client requests an address",
            "DHCP: server 192.168.1.1 confirms the address",
            "IPv4 address of the client: 192.168.1.20",
            "DNS: query to server 8.8.8.8",
            "DNS: answer from server 8.8.8.8",
        )
    ]


@pytest.mark.parametrize(
    "attempt, text",
    [
        (
            "wrong-key",
            "Key handshake failed: the client's integrity check is wrong; without 802.1X this means a wrong passphrase",
        ),
        ("radius-reject", "Radius Pkt Type: Access-Reject"),
        ("full", "Association refused: the access point is full (status 17)"),
        ("rogue-dhcp", "Address 192.168.66.20 was given by 192.168.66.6, which is not the network's DHCP server"),
        ("portal", "Captive portal: login succeeded"),
    ],
)
def test_the_system_log_names_what_went_wrong(cell, attempt, text):
    cell.play(attempt)
    cell.ap.wait_for_syslog(line(ATTEMPTS[attempt].network, text))


def radius_attribute(name, kind, word, text=b""):
    return name.ljust(33, b"\0") + u32(1) + u32(kind) + u32(word) + text


def test_at_the_highest_level_lines_of_radius_show_the_attributes(cell):
    attributes = radius_attribute(b"User-Name", 0, 5, b"alice") + radius_attribute(b"NAS-Port", 1, 7)
    cell.station(network=OFFICE).tell("VRE.dot1x", 15, ACCESS_REQUEST, address("10.0.0.5") + attributes)
    text = "Radius Pkt Type: Access-Request\n\t\t[User-Name: alice]\n\t\t[NAS-Port: 7]"
    assert cell.ap.wait_for_syslog("Access-Request").text == line(OFFICE, text)


# The error store and its dump


RULE_ABOVE, RULE_BELOW = "\n" + "=" * 81 + "\n", "\n" + "=" * 80 + "\n"


def record_text(network, created, count, error, lines, mac=ALICE):
    when = time.strftime("%Y.%m.%d %H:%M:%S", time.localtime(created))
    where = f"{mac.upper()} ==> [{network.ssid}({network.bssid.upper()})]"
    events = "".join(f"{offset:6d}:{text}\n" for offset, text in lines)
    return f"{RULE_ABOVE}{where} @ {when} Num Events:{count} Err Event:{error}\n{events}{RULE_BELOW}"


def test_a_failed_attempt_is_dumped_with_its_events(cell):
    created = cell.clock.now()
    cell.play("wrong-key")
    cell.let_pass(DECIDED)
    request = "requested on channel 6, signal -55 dBm"
    lines = [
        (0, f"Authentication {request}"),
        (0, "Authentication accepted (status 0)"),
        (0, f"Association {request}"),
        (0, "Association accepted (status 0)"),
        (0, "Key handshake: step 1"),
        (
            5,
            "Key handshake failed: the client's integrity check is wrong; without 802.1X this means a wrong passphrase",
        ),
    ]
    record = record_text(HOME, created, 6, 65536 + 14, lines)
    assert cell.dump() == "AP has 1 Error Records\n" + record
    assert cell.dump(ALICE) == f"Client {ALICE.upper()} has 1 Error Records\n" + record
    assert cell.dump(BOB) == f"Client {BOB.upper()} has 0 Error Records\n"


def test_a_dump_shows_the_attributes_of_radius_at_any_level(cell):
    cell.ap.send_event("VRE.bw.events", coded(0, u16(3)))
    attributes = radius_attribute(b"User-Name", 0, 5, b"alice")
    station = cell.station(network=OFFICE)
    station.join()
    station.tell("VRE.dot1x", 15, ACCESS_REQUEST, address("10.0.0.5") + attributes)
    station.radius(803)
    station.request_authentication()
    cell.report()
    assert "     0:Radius Pkt Type: Access-Request\n\t\t[User-Name: alice]\n" in cell.dump()


def test_no_more_than_32_events_of_an_attempt_are_kept(cell):
    station = cell.station()
    station.join()
    station.handshake(*[3] * 60)
    station.handshake(WRONG_KEY)
    station.request_authentication()
    cell.report()
    text = cell.dump()
    assert f" Num Events:32 Err Event:{65536 + 14}\n" in text
    assert text.count("Key handshake: step 3") == 28
    assert "wrong passphrase" not in text


def fail_in_ways(cell, count, mac=ALICE):
    """So many attempts of a client that fail each for a reason of its own, the last one decided as well."""
    station = cell.station(mac)
    reasons = [lambda sub=sub: station.portal(sub) for sub in (1, 2, 4)]
    reasons += [lambda sub=sub: station.handshake(sub) for sub in (14, 15, 45)]
    for reason in reasons[:count]:
        station.join()
        reason()
        cell.pause(10)
    station.request_authentication()
    cell.ap.settle()


def test_of_a_client_five_failed_attempts_are_kept(cell):
    fail_in_ways(cell, 6)
    cell.reports(6)
    text = cell.dump(ALICE)
    assert text.startswith(f"Client {ALICE.upper()} has 5 Error Records\n")
    assert text.count("Num Events:") == 5
    # The sixth has taken the place of the oldest.
    assert [int(word.split(":")[1]) for word in text.split() if word.startswith("Event:")] == [
        65536 + 45,
        8 * 65536 + 2,
        8 * 65536 + 4,
        65536 + 14,
        65536 + 15,
    ]
    assert cell.told(
        f"CTS: Replace Err Conn Cache entry for {ALICE.upper()}; Client has MAX entries\n"
    )


def mac_of(number):
    return f"02:00:00:01:{number >> 8:02x}:{number & 255:02x}"


def test_of_all_clients_512_failed_attempts_are_kept(cell):
    for number in range(513):
        station = Station(mac_of(number), OPEN, cell.ap.send_event)
        station.authenticate(status=1)
        station.request_authentication()
    cell.ap.settle()
    text = cell.dump()
    assert text.startswith("AP has 512 Error Records\n")
    assert text.count("Num Events:2 ") == 512
    assert cell.dump(mac_of(0)).endswith(" has 0 Error Records\n")
    assert cell.dump(mac_of(1)).startswith(f"Client {mac_of(1).upper()} has 1 Error Records\n")
    assert cell.told(
        f"CTS: Replace Err Conn Cache entry for {mac_of(512).upper()}; Err List has MAX entries\n"
    )
    cell.let_pass(DECIDED + SWEEP)  # a sweep tells what it finds, the next what it has left
    assert cell.accounts()[:6] == [0, 512, 512, 512, 512, 512]


def test_what_is_decided_and_not_kept_leaves_nothing_allocated(cell):
    for name, attempt in ATTEMPTS.items():
        if attempt.failure is None:
            cell.play(name)
    cell.station().authenticate()
    cell.let_pass(DECIDED + SWEEP)  # a sweep tells what it finds, the next what it has left
    assert cell.accounts() == [0] * 8


@pytest.mark.parametrize("path", ["/nowhere/file", "/tmp/" + "x" * 27])
def test_a_dump_is_written_where_it_can_be(cell, path):
    cell.ap.send_event("VRE.client_ts_conn_err_log_dump", dump_request(path))
    cell.ap.settle()
    if path.startswith("/nowhere"):
        assert cell.told(f"CTS: Could not open file {path} for dumping connection records")
        assert cell.told("Client TS Connection Error Logs dump error!")
    else:
        with open(path, encoding="ascii") as file:
            assert file.read() == "AP has 0 Error Records\n"
        os.unlink(path)


def test_a_dump_request_of_37_bytes_is_refused(cell):
    cell.ap.send_event("VRE.client_ts_conn_err_log_dump", dump_request(DUMP)[:37])
    cell.ap.settle()
    assert cell.told("Client TS Connection Error Logs dump error!")
    assert not os.path.exists(DUMP)


# Keys


def test_keys_and_passwords_appear_nowhere(cell):
    secret = bytes(range(0xA0, 0xC0))
    station = cell.station(network=OFFICE)
    station.join()
    station.tell("VRE.cl_info", KEY, ADD_KEY, key_value(secret, b"alice@example"))
    station.tell("VRE.cl_info", LOGIN, ADD_LOGIN, login_value("192.168.1.20", "guest-of-alice"))
    station.radius(803)
    station.request_authentication()
    cell.report()
    dump = cell.dump()
    assert "Key of a full authentication is kept for roaming" in dump
    peers = [message.payload for peer in cell.ap.peers.values() for message in peer.messages]
    texts = [dump, cell.ap.log_text(), *(found.text for found in cell.ap.syslog)]
    everything = b"\n".join(peers) + "\n".join(texts).encode("utf-8", "surrogateescape")
    for forbidden in (secret[:8], b"alice@example", b"guest-of-alice"):
        assert forbidden not in everything
        assert forbidden.hex().encode() not in everything.lower().replace(b" ", b"").replace(b":", b"")
    kinds = [reports.decode_forwarded(payload) for payload in cell.ap.published(FORWARDED)]
    assert [found.items for found in kinds if found.info in (KEY, LOGIN)] == [[(1, u32(1)), (3, b"Office")]] * 2
