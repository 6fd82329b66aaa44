"""The traffic test: from the events to the script that is started, tells its process id, and is terminated."""

import os

import pytest

from sim import commands
from sim.background import wait_until
from sim.events import (
    TRAFFIC_TEST_CLIENT,
    TRAFFIC_TEST_SERVER,
    VAP_NAME,
    header,
    text_item,
    traffic_test_details,
    traffic_test_pid,
)
from sim.profiles import usable, write_daemon_configuration, write_profile

SERVER = "02:5E:00:00:FA:01"
CLIENT = "02:AB:00:9C:DE:0F"
STRANGER = "02:AB:00:9C:DE:10"
PROFILE = 7
ARGUMENTS = f"192.168.1.20 {SERVER} 10.0.200.3 {CLIENT} {PROFILE} 5001"
START = f"wl_traffic_test: Start the Target AP script (/opt/ap/cl_test_target.sh {ARGUMENTS} > /tmp/target_ap_log &)"


@pytest.fixture
def ap(start):
    """An access point with the profile that the test is for."""
    write_profile(PROFILE, usable(PROFILE, "Lobby", "ath0"))
    write_daemon_configuration({PROFILE: "Lobby"})
    return start(arguments=("-l", "/tmp/wl.log", "-c", "/tmp/wl_evt_handler.conf"))


def tell_client(ap, mac=CLIENT):
    ap.send_event("VRE.Target.AP.Traffic.details", traffic_test_details(TRAFFIC_TEST_CLIENT, mac, "10.0.200.3"))


def tell_server(ap, profile_id=PROFILE, vap="ath0"):
    details = traffic_test_details(
        TRAFFIC_TEST_SERVER, SERVER, "192.168.1.20", port=5001, profile_id=profile_id, vap=vap
    )
    ap.send_event("VRE.Target.AP.Traffic.details", details)


def arm(ap):
    tell_client(ap)
    tell_server(ap)


def authorize(ap, mac=CLIENT, vap="ath0"):
    ap.send_event("VRE.node_authorize", header(mac, PROFILE) + text_item(VAP_NAME, vap))


def leave(ap, mac=CLIENT, vap="ath0"):
    ap.send_event("VRE.node_leave", header(mac, PROFILE) + text_item(VAP_NAME, vap))
    ap.settle()


def run_script(ap, count=1):
    """Authorises the client and waits until the daemon knows the script's process id."""
    authorize(ap)
    known = wait_until(lambda: len(commands.targets()) == count and commands.targets()[-1], f"{count} scripts")
    ap.wait_for_log(f"Updated PID info, Target script pid {known.pid}")
    return known


def wait_for_end(target):
    wait_until(lambda: not target.runs, "the end of the script")
    assert any(run.pid == target.pid and run.terminated for run in commands.targets())


def said(ap):
    return [record.message for record in ap.log() if record.message.startswith("wl_traffic_test:")]


def test_a_test_starts_with_its_client_and_ends_with_it(ap):
    arm(ap)
    target = run_script(ap)
    assert target.arguments == ARGUMENTS
    assert os.path.exists(commands.TARGET_LOG)
    assert START in said(ap)
    leave(ap)
    wait_for_end(target)
    assert said(ap)[-3:] == [
        "wl_traffic_test: Received Leave event for 02:ab:00:9c:de:0f vap ath0",
        "wl_traffic_test: Got leave event from client, 02:ab:00:9c:de:0f",
        "wl_traffic_test: Killing the Target AP script ",
    ]
    authorize(ap)
    ap.settle()
    assert len(commands.targets()) == 1, "the test is disarmed"


def test_all_that_a_test_says(ap):
    arm(ap)
    target = run_script(ap)
    assert said(ap) == [
        "wl_traffic_test: Traffic test event of len 31",
        "wl_traffic_test: traffic_test subinfo = 1 MAC = 02:ab:00:9c:de:0f Ip=0xa00c803 Port=0 ",
        "wl_traffic_test: Traffic test event of len 31",
        "wl_traffic_test: traffic_test subinfo = 2 MAC = 02:5e:00:00:fa:01 Ip=0xc0a80114 Port=5001 ",
        f"wl_traffic_test: setting active flag for profile id {PROFILE} vap ath0",
        "wl_traffic_test: Got authorized event from client, 02:ab:00:9c:de:0f",
        START,
        "wl_traffic_test: Traffic test event of len 10",
        "wl_traffic_test: Received PID info of Target Ap script",
        f"wl_traffic_test: Updated PID info, Target script pid {target.pid}",
    ]


@pytest.mark.parametrize("tell", [tell_server, tell_client])
def test_new_details_end_a_running_script(ap, tell):
    arm(ap)
    target = run_script(ap)
    tell(ap)
    wait_for_end(target)
    assert (
        f"wl_traffic_test: Killing the Target AP script as client connecting again -> {target.pid}" in said(ap)
    )
    assert run_script(ap, 2).runs, "the test is still armed"


def test_a_second_script_ends_the_first(ap):
    arm(ap)
    first = run_script(ap)
    second = run_script(ap, 2)
    wait_for_end(first)
    assert second.runs
    assert "wl_traffic_test: Killing the Target AP script as already script is running" in said(ap)
    leave(ap)
    wait_for_end(second)


def test_a_leave_on_another_vap_keeps_the_script(ap):
    arm(ap)
    target = run_script(ap)
    leave(ap, vap="ath1")
    leave(ap, mac=STRANGER)
    assert said(ap)[-2:] == [
        "wl_traffic_test: Received Leave event for Invalid interface name(ath1 ath0) for client  02:ab:00:9c:de:0f",
        "wl_traffic_test: Received Leave event for 02:ab:00:9c:de:10 vap ath0",
    ]
    assert target.runs
    leave(ap)
    wait_for_end(target)


def test_a_process_id_from_a_stranger_changes_nothing(ap):
    arm(ap)
    target = run_script(ap)
    ap.send_event("VRE.Target.AP.Traffic.PID", traffic_test_pid(STRANGER, os.getpid()))
    ap.send_event("VRE.Target.AP.Traffic.PID", traffic_test_pid(CLIENT, 0))
    ap.send_event("VRE.Target.AP.Traffic.PID", traffic_test_pid(CLIENT, os.getpid())[:9])
    leave(ap)
    wait_for_end(target)


def test_only_the_client_on_its_vap_starts_the_script(ap):
    authorize(ap)
    arm(ap)
    authorize(ap, mac=STRANGER)
    authorize(ap, vap="ath1")
    ap.settle()
    assert said(ap)[-1] == (
        "wl_traffic_test: Received authorize event for  Invalid interface name(ath1 ath0) for client  "
        "02:ab:00:9c:de:0f"
    )
    run_script(ap)
    assert len(commands.targets()) == 1


def test_without_its_profile_no_script_is_started(ap):
    tell_client(ap)
    tell_server(ap, profile_id=8)
    authorize(ap)
    ap.settle()
    assert said(ap)[-1] == "wl_traffic_test: No matching ssid profile found"
    assert not any("Start the Target AP script" in message for message in said(ap))


def test_the_event_of_the_group_itself_says_nothing_about_a_test(ap):
    ap.send_event("VRE.Target.AP.Traffic.test", traffic_test_details(TRAFFIC_TEST_SERVER, SERVER, "1.2.3.4"))
    ap.settle()
    assert said(ap) == ["wl_traffic_test: Traffic test event of len 31"]


def test_details_and_process_ids_of_any_length_are_survived(ap):
    pid = ap.pid
    for length in range(64):
        ap.send_event("VRE.Target.AP.Traffic.details", b"\2" * length)
        ap.send_event("VRE.Target.AP.Traffic.PID", bytes(length))
    ap.settle()
    assert ap.pid == pid
    assert said(ap).count("wl_traffic_test:Invalid PID data length Actual 9 Expected 10") == 1
