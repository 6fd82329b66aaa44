"""Roles and VLANs: from what the authenticator says of a client to driver, device, bandwidth control and bus."""

import os
import struct
from dataclasses import replace

import pytest

from sim import bandwidth, commands, processes, roles
from sim.access_point import APP_VISIBILITY, make_app_visibility
from sim.background import wait_until
from sim.events import VAP_SSID, header, item, mac_bytes, text_item, u32
from sim.profiles import remove_profile, write_daemon_configuration
from sim.reports import FORWARDED, decode_forwarded
from sim.roles import (
    ADD,
    CLEAR,
    CLIENT_ROLE,
    CONTAINS,
    DELETE,
    EQUALS,
    EVENT,
    EXACT,
    FIREWALL,
    GOOGLE_OU,
    LIMITS,
    PORTAL,
    RADIUS,
    Authenticator,
    Rule,
    VlanRequest,
)
from sim.station import Network, Station, announce

ALICE = "02:00:00:00:0d:0a"
BOB = "02:00:00:00:0d:0b"
STRANGER = "02:00:00:00:0d:ff"  # nobody the driver knows
STAFF, STUDENTS, GUESTS, PLAIN = 31, 32, 33, 34
VENDOR, ATTRIBUTE = 14179, 1
CAMPUS = Network(
    "Campus",
    "ath6",
    "02:00:00:00:01:06",
    16,
    keys={
        "VLAN_ID": 100,
        "ALL_EXTRA_SSID_VLAN_LIST": "10,20,30",
        "ROLE_PROFILE_ENABLED": 1,
        "PER_USER_BANDWIDTH_ENABLED": 1,
        "PER_USER_BANDWIDTH_UPLOAD_LIMIT": 400,
        "PER_USER_BANDWIDTH_DOWNLOAD_LIMIT": 500,
        "CONTENT_ANALYTICS_ENABLED": 0,
    },
)
OF_STAFF = {
    "VLAN_ID": 20,
    "AP_VLAN_ENABLED": 1,
    "INHERIT_FROM_SSID": 1,
    "PER_USER_BANDWIDTH_ENABLED": 1,
    "PER_USER_BANDWIDTH_UPLOAD_LIMIT": 1000,
    "PER_USER_BANDWIDTH_DOWNLOAD_LIMIT": 2000,
}
RULES = (
    Rule(RADIUS, EXACT, (STAFF, STUDENTS), vendor=VENDOR, attribute=ATTRIBUTE),
    Rule(RADIUS, EQUALS, (PLAIN,), "plain", vendor=VENDOR, attribute=ATTRIBUTE),
    Rule(GOOGLE_OU, CONTAINS, (STUDENTS,), "/School/*/Class"),
)


class Campus:
    """The access point with the network, and what its neighbours were told."""

    def __init__(self, ap, wireless):
        self.ap = ap
        self.wireless = wireless
        announce(CAMPUS, wireless, ap.send_event)
        ap.settle()

    def __getitem__(self, mac):
        return Authenticator(Station(mac, CAMPUS, self.ap.send_event))

    def devices(self):
        self.ap.settle()
        return roles.device_requests(self.wireless)

    def vlans(self):
        self.ap.settle()
        return roles.vlan_requests(self.wireless)

    def said(self, function="handle_client_role_set"):
        self.ap.settle()
        return [record.message for record in self.ap.log() if record.function == function]


@pytest.fixture
def start_campus(start_with_vaps):
    """Starts the access point with the network and its roles, where two clients are."""

    def start(**keys):
        replace(CAMPUS, keys={**CAMPUS.keys, **keys}).write()
        roles.write_rules(CAMPUS.profile, *RULES)
        roles.write_role(STAFF, "Staff", CAMPUS.vap, **OF_STAFF)
        roles.write_role(STUDENTS, "Students", CAMPUS.vap, INHERIT_FROM_SSID=1, WEBQ_ENABLED=1, FIREWALL_ENABLED=1)
        roles.write_role(GUESTS, "Guests", CAMPUS.vap, AP_VLAN_ENABLED=1, VLAN_ID=30)
        roles.write_role(PLAIN, "Plain", CAMPUS.vap, IS_ROLE_PROFILE=0)
        profiles = {CAMPUS.profile: "Campus", STAFF: "Staff", STUDENTS: "Students", GUESTS: "Guests", PLAIN: "Plain"}
        write_daemon_configuration(profiles)
        ap, wireless = start_with_vaps(CAMPUS.as_vap())
        wireless.clients.update({ALICE: CAMPUS.vap, BOB: CAMPUS.vap})
        wireless.write()
        return Campus(ap, wireless)

    return start


@pytest.fixture
def campus(start_campus):
    return start_campus()


def device_record(action, mac, role_id, *, vendor=0, attribute=0, method, name, flags):
    return (
        bytes([action])
        + mac_bytes(mac)
        + u32(CAMPUS.profile)
        + u32(role_id)
        + u32(vendor)
        + u32(attribute)
        + bytes([method])
        + name.encode().ljust(33, b"\0")
        + bytes([flags])
    )


def applied_record(mac, role_id, name, *why):
    """`why`: method, whether rules were looked at, how one matched, whether it is the SSID itself."""
    return (
        header(mac, CAMPUS.profile)
        + text_item(VAP_SSID, CAMPUS.ssid)
        + item(2, mac_bytes(CAMPUS.bssid))
        + item(5, u32(104))
        + item(6, b"\0\x2c")
        + item(7, name.encode().ljust(33, b"\0") + u32(role_id) + bytes(why))
    )


def client_role_record(mac, name, ssid_portal):
    return mac.upper().encode().ljust(20, b"\0") + name.encode().ljust(40, b"\0") + u32(16) + bytes([ssid_portal])


def raw_device_requests(campus):
    campus.ap.settle()
    return [bytes.fromhex(call["data"]) for call in campus.wireless.calls("app_visibility")]


def published(campus, event):
    return campus.ap.wait_for_published(event)


# Roles


def test_a_radius_role_reaches_every_neighbour(campus):
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    assert published(campus, EVENT) == [applied_record(ALICE, STAFF, "Staff", 1, 1, 1, 0)]
    assert published(campus, CLIENT_ROLE) == [client_role_record(ALICE, "Staff", 1)]
    assert raw_device_requests(campus) == [
        device_record(
            1, ALICE, STAFF, vendor=VENDOR, attribute=ATTRIBUTE, method=1, name="Staff", flags=FIREWALL | PORTAL
        )
    ]
    (vlan,) = campus.wireless.calls("set_user_vlan")
    assert (vlan["interface"], vlan["data"]) == (CAMPUS.vap, "020000000d0a0014")
    (command,) = wait_until(bandwidth.commands, "the role's limits")
    assert command.startswith(f"limit profile 16 sta {ALICE} classid ")
    assert " up 1000 down 2000 " in command
    (limits,) = bandwidth.cache()
    mac, priority, event, up, down, profile, _, vap, flags = struct.unpack(">6sBIiiII17sB", limits)
    assert (mac, priority, event, up, down, profile) == (mac_bytes(ALICE), 1, 24, 1000, 2000, 16)
    assert (vap.rstrip(b"\0"), flags) == (b"ath6", 0x60)
    assert campus.said()[-1] == (
        "Role found for client :31 with Role { vlan[20] apply_ssid_firewall[1] apply_ssid_portal_or_webq[1] "
        "apply_ssid_bw_limit[0] }"
    )


def test_an_applied_role_that_comes_back_is_told_once(campus):
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    (applied,) = published(campus, EVENT)
    campus.ap.settle()  # the bus brings the daemon its own events, too
    forwarded = [decode_forwarded(payload) for payload in campus.ap.wait_for_published(FORWARDED, count=2)]
    assert [(found.mac, found.info, found.items[0]) for found in forwarded] == [
        (ALICE, 104, (1, u32(sub))) for sub in (roles.ROLE, roles.ROLE_APPLIED)
    ]
    campus.ap.wait_for_syslog("Role: ")
    sender = f"[{ALICE.upper()}]=>[{CAMPUS.ssid}({CAMPUS.bssid.upper()})]"
    assert [line.text for line in campus.ap.syslog if ALICE.upper() in line.text] == [
        f"{sender} Role named by the authenticator: [Staff] applied",
        f"{sender} Role: [Staff] applied, match type[Exact]",
    ]
    assert campus.ap.published(EVENT) == [applied], "it does not lead to another one"
    assert len(campus.devices()) == 1


def test_the_role_is_posted_before_what_led_to_it(campus):
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    published(campus, EVENT)
    events = [message.event for message in campus.ap.peers["/wl_evt_proxy"].messages]
    assert [event for event in events if event in (EVENT, CLIENT_ROLE)] == [CLIENT_ROLE, EVENT]


def test_an_organisational_unit_leads_to_a_role(campus):
    campus[ALICE].unit("/School/Science/Class 7")
    assert published(campus, EVENT) == [applied_record(ALICE, STUDENTS, "Students", 2, 1, 2, 0)]
    assert published(campus, CLIENT_ROLE) == [client_role_record(ALICE, "Students", 0)]
    # The event's own role name, which is empty, is what the device gets.
    assert raw_device_requests(campus) == [device_record(1, ALICE, STUDENTS, method=2, name="", flags=LIMITS)]
    assert campus.vlans() == [VlanRequest(CAMPUS.vap, ALICE, 100)]
    (command,) = wait_until(bandwidth.commands, "the SSID's limits")
    assert " up 400 down 500 " in command
    assert "GAUTH: Google OU [/School/Science/Class 7] received" in campus.said()


@pytest.mark.parametrize("unit", ["x", "", "/Office"])
def test_a_unit_that_is_too_short_or_leads_nowhere_means_the_ssid(campus, unit):
    campus[ALICE].unit(unit)
    looked_up = 1 if len(unit) > 1 else 0
    assert published(campus, EVENT) == [applied_record(ALICE, 16, "Campus", 2, looked_up, 0, 1)]
    assert published(campus, CLIENT_ROLE) == [client_role_record(ALICE, "--", 0)]
    assert raw_device_requests(campus) == [device_record(1, ALICE, 16, method=2, name="", flags=0)]
    assert campus.vlans() == [VlanRequest(CAMPUS.vap, ALICE, 100)]
    assert "Role Not found for client :16" in campus.said()
    assert ("OU not received, set SSID role" in campus.said()) == (looked_up == 0)


def test_a_failed_authentication_leads_to_the_role_of_that_id(campus):
    campus[ALICE].failed(GUESTS)
    assert published(campus, EVENT) == [applied_record(ALICE, GUESTS, "Guests", 3, 0, 0, 0)]
    assert published(campus, CLIENT_ROLE) == [client_role_record(ALICE, "Guests", 0)]
    assert raw_device_requests(campus) == [device_record(1, ALICE, GUESTS, method=3, name="Guests", flags=0)]
    assert campus.vlans() == [VlanRequest(CAMPUS.vap, ALICE, 30)]


def test_a_role_s_name_is_all_that_is_told_of_it(campus):
    # The role's name takes the place of a longer one.
    roles.write_role(40, "Lab", CAMPUS.vap)
    with open("/tmp/profile40/profile.conf", "r+", encoding="ascii") as file:
        keys = file.read()
        file.seek(0)
        file.write("WL_PROFILE_SSID=Laboratories\n" + keys)
    campus.ap.send_event("VRE.ssid_profile_update", struct.pack(">IB", 40, 1))
    campus[ALICE].failed(40)
    assert published(campus, EVENT) == [applied_record(ALICE, 40, "Lab", 3, 0, 0, 0)]
    assert raw_device_requests(campus) == [device_record(1, ALICE, 40, method=3, name="Lab", flags=0)]


def test_a_failed_authentication_without_id_means_the_ssid(campus):
    campus[ALICE].failed(0)
    assert published(campus, EVENT) == [applied_record(ALICE, 16, "Campus", 3, 0, 0, 1)]
    assert "Role ID received 0, set SSID role" in campus.said()


def test_a_failed_authentication_with_an_unknown_id_disconnects_the_client(campus):
    campus[ALICE].failed(99)
    expected = header(ALICE, CAMPUS.profile) + text_item(VAP_SSID, CAMPUS.ssid)
    assert published(campus, "VRE.client.disconnect") == [expected]
    wait_until(commands.kicks, "the client kicked off")
    assert commands.kicks() == [f"{CAMPUS.vap} kickmac {ALICE.upper()}"]
    assert campus.said() == [
        f"client {ALICE.upper()} entry not found in ssid profile [16] creating new one",
        "Role profile not found for role id: 99, deauthenticating client",
    ]
    assert campus.said("get_ssid_profile_by_role_id") == ["Role profile structure not found for profile id[99]"]
    assert campus.devices() == []
    assert campus.vlans() == []
    assert campus.ap.published(EVENT) == []
    assert campus.ap.published(CLIENT_ROLE) == []


def test_a_client_that_gets_another_role_keeps_nothing_of_the_first(campus):
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    campus[ALICE].failed(GUESTS)
    first, second = campus.devices()
    assert (first.flags, second.flags) == (FIREWALL | PORTAL, 0)
    assert (second.role_id, second.vendor, second.attribute) == (GUESTS, 0, 0)
    assert [request.vlan for request in campus.vlans()] == [20, 30]


def test_a_role_whose_profile_is_not_a_role_profile_is_not_posted(campus):
    campus[ALICE].role("plain", vendor=VENDOR, attribute=ATTRIBUTE)
    assert published(campus, EVENT) == [applied_record(ALICE, PLAIN, "Plain", 1, 1, 3, 0)]
    campus.ap.settle()
    assert campus.ap.published(CLIENT_ROLE) == []


def test_a_name_that_no_rule_knows_means_the_ssid(campus):
    campus[ALICE].role("staff", vendor=VENDOR, attribute=ATTRIBUTE)
    campus[BOB].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE + 1)
    assert [request.role_id for request in campus.devices()] == [16, 16]
    assert published(campus, CLIENT_ROLE)[0] == client_role_record(ALICE, "--", 0)


def test_a_cleared_role_is_taken_from_the_device(campus):
    for clear in ("cleared", "unit_cleared"):
        campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
        getattr(campus[ALICE], clear)()
        getattr(campus[ALICE], clear)()  # there is no such client any more
    assert [request.action for request in campus.devices()] == [ADD, DELETE] * 2
    assert raw_device_requests(campus)[1] == device_record(
        2, ALICE, STAFF, vendor=VENDOR, attribute=ATTRIBUTE, method=1, name="Staff", flags=FIREWALL | PORTAL
    )


def test_with_content_analytics_a_role_is_cleared_instead(start_campus):
    campus = start_campus(CONTENT_ANALYTICS_ENABLED=1)
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    campus[ALICE].cleared()
    assert [request.action for request in campus.devices()] == [ADD, CLEAR]


def test_a_client_that_leaves_loses_its_role(campus):
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    Station(ALICE, CAMPUS, campus.ap.send_event).leave()
    assert [request.action for request in campus.devices()] == [ADD, DELETE]
    campus[ALICE].cleared()
    assert len(campus.devices()) == 2, "it is forgotten"


def test_a_client_that_the_driver_does_not_know_gets_no_role(campus):
    campus[STRANGER].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    assert campus.said() == [f"Client {STRANGER.upper()} entry not found in driver, not applying role"]
    campus[STRANGER].cleared()
    assert campus.devices() == []


def test_a_role_of_an_unknown_ssid_is_reported(campus):
    stray = Network("Stray", CAMPUS.vap, CAMPUS.bssid, 77)
    Authenticator(Station(ALICE, stray, campus.ap.send_event)).role("Staff")
    assert campus.said() == ["SSID profile structure not found for profile id[77]"]


def test_values_of_every_length_are_survived(campus):
    value = struct.pack(">33sIIBI", b"N" * 33, VENDOR, ATTRIBUTE, 1, 0xFFFFFFFF)
    station = Station(ALICE, CAMPUS, campus.ap.send_event)
    for sub in (39, 42, 43, 46, 47):
        station.tell(EVENT, 104, sub)
        for length in (0, 1, 3, 4, 33, 41, 42, 45, 46):
            station.tell(EVENT, 104, sub, value[:length])
        campus.ap.settle()
    assert campus.ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"


# VLANs


def test_a_per_user_vlan_is_not_displaced_by_a_weaker_source(campus):
    campus[ALICE].vlan(10)
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)  # brings VLAN 20
    campus[ALICE].unit("/Office")  # brings the SSID's
    campus[ALICE].vlan(-1)
    assert campus.vlans() == [VlanRequest(CAMPUS.vap, ALICE, 10)]
    assert len(campus.devices()) == 2, "the roles themselves are applied"
    campus[ALICE].vlan(30)
    assert campus.vlans()[1:] == [VlanRequest(CAMPUS.vap, ALICE, 30)]


def test_a_stronger_source_displaces_a_weaker_one(campus):
    campus[ALICE].unit("/Office")
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    campus[ALICE].vlan(10)
    assert [request.vlan for request in campus.vlans()] == [100, 20, 10]


def test_a_vlan_that_the_ssid_does_not_allow_becomes_the_ssid_s(campus):
    campus[ALICE].vlan(11)
    campus[BOB].vlan(-1)
    assert campus.vlans() == [VlanRequest(CAMPUS.vap, ALICE, 100), VlanRequest(CAMPUS.vap, BOB, 100)]


def test_a_forgotten_client_begins_anew(campus):
    campus[ALICE].vlan(10)
    campus[ALICE].cleared()
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    assert [request.vlan for request in campus.vlans()] == [10, 20]


def test_without_its_profile_loaded_the_ssid_s_file_decides(campus):
    stray = Network("Stray", CAMPUS.vap, CAMPUS.bssid, 77, keys={"VLAN_ID": 9, "DYNAMIC_VLAN": "40,50"})
    stray.write()
    authenticator = Authenticator(Station(ALICE, stray, campus.ap.send_event))
    authenticator.vlan(50)
    authenticator.vlan(60)
    campus.ap.settle()
    remove_profile(77)
    authenticator.vlan(50)
    assert [request.vlan for request in campus.vlans()] == [50, 9, 0xFFFF]
    assert campus.said("check_is_valid_vlan") == [
        "Cannot open /tmp/profile77/profile.conf for reading (No such file or directory)"
    ]


def test_a_driver_that_refuses_a_vlan_is_reported(campus):
    campus.wireless.fail("set_user_vlan * EBUSY")
    campus[ALICE].vlan(10)
    assert "set_user_vlan : failed to perform IOCTL\n" in campus.said("call_handle_dynamimc_vlan_sh")
    assert campus.ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"


# The device


def test_the_daemon_waits_for_a_missing_device_and_goes_on_when_it_appears(campus):
    os.unlink(APP_VISIBILITY)
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    campus[BOB].vlan(10)
    wait_until(lambda: roles.vlan_requests(campus.wireless), "the VLAN, which comes before the device")
    assert campus.ap.reload("APPL_SANITY_TEST ", limit=0.5) is None, "it serves nobody meanwhile"
    assert roles.device_requests(campus.wireless) == []
    assert campus.ap.published(EVENT) == []
    make_app_visibility()
    assert published(campus, EVENT) == [applied_record(ALICE, STAFF, "Staff", 1, 1, 1, 0)]
    assert [request.role_id for request in campus.devices()] == [STAFF]
    assert campus.vlans()[1:] == [VlanRequest(CAMPUS.vap, BOB, 10)], "what had come meanwhile is served"


def test_a_client_that_leaves_waits_for_the_device_too(campus):
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    assert [request.action for request in campus.devices()] == [ADD], "and what the daemon told itself is served too"
    os.unlink(APP_VISIBILITY)
    Station(ALICE, CAMPUS, campus.ap.send_event).leave()
    assert campus.ap.reload("APPL_SANITY_TEST ", limit=0.5) is None
    make_app_visibility()
    assert [request.action for request in campus.devices()] == [ADD, DELETE]


def test_a_device_that_cannot_be_opened_at_first_is_opened_again(campus):
    campus.wireless.fail(*(f"open_app_visibility {nth} EBUSY" for nth in range(1, 6)))
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    assert [request.role_id for request in campus.devices()] == [STAFF]
    errors = [call["error"] for call in campus.wireless.calls("open_app_visibility")]
    assert errors == ["EBUSY"] * 5 + [""]


def test_a_device_that_refuses_is_reported_and_the_role_holds(campus):
    campus.wireless.fail("app_visibility * EPERM")
    campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
    assert published(campus, EVENT) == [applied_record(ALICE, STAFF, "Staff", 1, 1, 1, 0)]
    assert campus.said("send_role_ioctl") == ["ioctl_get_msg failed:-1"]


def test_the_device_is_closed_again(campus):
    for nth in range(1, 4):
        campus[ALICE].role("Staff", vendor=VENDOR, attribute=ATTRIBUTE)
        assert len(campus.devices()) == nth
        assert APP_VISIBILITY not in processes.open_files(campus.ap.pid)
