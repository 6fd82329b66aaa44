"""Clients get roles and VLANs: by a RADIUS attribute, an organisational unit, a failed authentication, or their own."""

from __future__ import annotations

import struct
from collections.abc import Callable

from sim import bandwidth, commands
from sim.background import wait_until
from sim.profiles import folder
from sim.roles import (
    CONTAINS,
    EVENT,
    EXACT,
    GOOGLE_OU,
    RADIUS,
    AppliedRole,
    Authenticator,
    DeviceRequest,
    Rule,
    applied_roles,
    device_requests,
    vlan_requests,
    write_role,
    write_rules,
)
from sim.scenarios.clients import show_lines
from sim.scenarios.vaps import ADD
from sim.stage import LIMIT, Stage, show
from sim.station import Network, Station, announce

STAFF, STUDENTS, VISITORS, NOBODY = 31, 32, 33, 39
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
    },
)
TEACHER, PUPIL, VISITOR, INTRUDER, ENGINEER = (f"02:00:00:00:0d:0{number}" for number in range(1, 6))


def play(stage: Stage) -> None:
    network(stage)
    radius_role(stage)
    unit_role(stage)
    failed_authentication(stage)
    disconnected(stage)
    per_user_vlan(stage)


def network(stage: Stage) -> None:
    stage.scene("A network whose clients get roles: staff, students, visitors; its own VLAN is 100")
    stage.wireless.add(CAMPUS.as_vap())
    stage.wireless.clients.update((mac, CAMPUS.vap) for mac in (TEACHER, PUPIL, VISITOR, INTRUDER, ENGINEER))
    stage.wireless.write()
    announce(CAMPUS, stage.wireless, stage.send_quietly)
    write_rules(
        CAMPUS.profile,
        Rule(RADIUS, EXACT, (STAFF,), vendor=VENDOR, attribute=ATTRIBUTE),
        Rule(GOOGLE_OU, CONTAINS, (STUDENTS,), "/School/*/Class"),
    )
    limits = {"PER_USER_BANDWIDTH_UPLOAD_LIMIT": 1000, "PER_USER_BANDWIDTH_DOWNLOAD_LIMIT": 2000}
    write_role(STAFF, "Staff", CAMPUS.vap, VLAN_ID=20, AP_VLAN_ENABLED=1, PER_USER_BANDWIDTH_ENABLED=1, **limits)
    write_role(STUDENTS, "Students", CAMPUS.vap, INHERIT_FROM_SSID=1)
    write_role(VISITORS, "Visitors", CAMPUS.vap, VLAN_ID=30, AP_VLAN_ENABLED=1)
    stage.show_file(f"{folder(CAMPUS.profile)}/role_derivation.conf")
    stage.expect_log(f"interface {CAMPUS.vap} ssid {CAMPUS.ssid} ")
    profiles = (CAMPUS.profile, STAFF, STUDENTS, VISITORS)
    for profile in profiles:
        stage.send_quietly("VRE.ssid_profile_update", struct.pack(">IB", profile, ADD))
    stage.ap.settle(LIMIT)
    stage.skip_log()  # which has every setting of each
    said = stage.ap.log_text()
    loaded = all(f"profile_id [{profile}] " in said for profile in profiles)
    stage.expect(loaded, "the daemon has read the profiles of the network and of its three roles")


def say(stage: Stage, mac: str, meaning: str, word: Callable[[Authenticator], None]) -> None:
    """Lets the authenticator say something of a client and shows what the driver and the device were asked for."""
    vlans, requests = len(vlan_requests(stage.wireless)), len(device_requests(stage.wireless))
    show("send", f"{EVENT}: {mac} {meaning}")
    word(Authenticator(Station(mac, CAMPUS, stage.send_quietly)))
    stage.ap.settle(LIMIT)
    stage.show_news()
    for vlan in vlan_requests(stage.wireless)[vlans:]:
        show("driver", str(vlan))
    for request in device_requests(stage.wireless)[requests:]:
        show("device", str(request))


def vlans_of(stage: Stage, mac: str) -> list[int]:
    return [request.vlan for request in vlan_requests(stage.wireless) if request.mac == mac]


def requests_of(stage: Stage, mac: str) -> list[DeviceRequest]:
    return [request for request in device_requests(stage.wireless) if request.mac == mac]


def expect_role(stage: Stage, mac: str, role: int, text: str) -> None:
    def applied() -> AppliedRole | None:
        return next((one for one in applied_roles(stage.ap.published) if one.mac == mac), None)

    def logged() -> bool:
        return any(mac.upper() in line.text and " Role: [" in line.text for line in stage.ap.syslog)

    stage.expect_soon(lambda: applied() and logged(), "the bus and the system log are told")
    show_lines(stage, mac)
    said = applied()
    known = [request.role_id for request in requests_of(stage, mac)]
    stage.expect(said is not None and said.role_id == role and known == [role], text)


def expect_limits(stage: Stage, mac: str, up: int, down: int, text: str) -> None:
    def command() -> str | None:
        return next((one for one in bandwidth.commands() if mac in one and f"up {up} down {down}" in one), None)

    show("file", f"tc_wrapper.sh {wait_until(command, text, LIMIT)}")
    stage.expect(True, text)


def radius_role(stage: Stage) -> None:
    stage.scene("The RADIUS server says that a client is of the staff: it gets the role, its VLAN and its limits")
    attribute = f"attribute {ATTRIBUTE} of vendor {VENDOR}"
    say(
        stage,
        TEACHER,
        f'has "Staff" as {attribute}',
        lambda authenticator: authenticator.role("Staff", vendor=VENDOR, attribute=ATTRIBUTE),
    )
    expect_role(stage, TEACHER, STAFF, "bus and device know the client as staff")
    stage.expect(vlans_of(stage, TEACHER) == [20], "the driver has put it into the role's VLAN")
    expect_limits(stage, TEACHER, 1000, 2000, "the role's limits are in force")


def unit_role(stage: Stage) -> None:
    stage.scene("A client's organisational unit matches a pattern; what its role leaves open is the network's")
    say(
        stage,
        PUPIL,
        'is of "/School/Science/Class 7"',
        lambda authenticator: authenticator.unit("/School/Science/Class 7"),
    )
    expect_role(stage, PUPIL, STUDENTS, "bus and device know the client as a student")
    stage.expect(vlans_of(stage, PUPIL) == [100], "the role has no VLAN: the driver gets the network's")
    expect_limits(stage, PUPIL, 400, 500, "so do the limits")


def failed_authentication(stage: Stage) -> None:
    stage.scene("A client that could not be authenticated is let in with a role for visitors")
    say(stage, VISITOR, f"failed, role {VISITORS}", lambda authenticator: authenticator.failed(VISITORS))
    expect_role(stage, VISITOR, VISITORS, "bus and device know the client as a visitor")
    stage.expect(vlans_of(stage, VISITOR) == [30], "it is in the visitors' VLAN")


def disconnected(stage: Stage) -> None:
    stage.scene("A role that there is not: the client is disconnected")
    say(stage, INTRUDER, f"failed, role {NOBODY}", lambda authenticator: authenticator.failed(NOBODY))
    stage.expect_log(f"Role profile not found for role id: {NOBODY}, deauthenticating client")
    kick = f"{CAMPUS.vap} kickmac {INTRUDER.upper()}"
    wait_until(lambda: kick in commands.kicks(), "a run of iwpriv", LIMIT)
    show("file", f"iwpriv {kick}")
    stage.expect(requests_of(stage, INTRUDER) == [], "it is kicked off, and the device is told nothing")


def per_user_vlan(stage: Stage) -> None:
    stage.scene("A VLAN of a client's own is stronger than that of a role")
    say(stage, ENGINEER, "gets VLAN 10", lambda authenticator: authenticator.vlan(10))
    say(
        stage,
        ENGINEER,
        'has "Staff", whose VLAN is 20',
        lambda authenticator: authenticator.role("Staff", vendor=VENDOR, attribute=ATTRIBUTE),
    )
    expect_role(stage, ENGINEER, STAFF, "the client is of the staff now")
    stage.expect(vlans_of(stage, ENGINEER) == [10], "the driver has heard of VLAN 10 only")
