"""SSID profiles: read at start-up, added and deleted by events, from files edited while the daemon runs."""

import struct

import pytest

from sim.profiles import DAEMON_CONFIGURATION, remove_profile, usable, write_daemon_configuration, write_profile

ADD, DELETE, SEND_REQUEST = 1, 2, 3


def update_with(ap, payload):
    """Sends a profile update and gives what the daemon logs about it."""
    since = len(ap.log())
    ap.send_event("VRE.ssid_profile_update", payload)
    ap.settle()
    return [(r.function, r.message) for r in ap.log()[since:] if r.function not in ("main", "init_synch_sock")]


def update(ap, profile_id, flags):
    return update_with(ap, struct.pack(">IB", profile_id, flags))


def received(profile_id, flags):
    return (
        "handle_ssid_profile_update",
        f"SSID Profile update event received. Event details profileid : [{profile_id}] Add/Del/SENDCLReq : [{flags}]",
    )


def profiles(log):
    """The profile ids of the dumps."""
    return [m.split("[")[1].split("]")[0] for f, m in log if f == "print_ssid_profile_data_config" and "profile_id" in m]


def test_the_configuration_s_profiles_are_loaded_at_start(start):
    write_daemon_configuration({1: "Lobby", 44: "Hall"})
    write_profile(1, usable(1, "Lobby", "ath0"))
    write_profile(44, usable(44, "Hall", "ath1"))
    ap = start()
    log = [(r.function, r.message) for r in ap.log()]
    assert [m for f, m in log if f == "read_wl_conf"] == [
        "Initializing configuration for ProfileID : 1",
        "Initializing configuration for ProfileID : 44",
    ]
    begin = log.index(
        ("print_all_ssid_config", "+++++++++++++ Dumping all ssid configs START ++++++++++++++")
    )
    end = log.index(("print_all_ssid_config", "+++++++++++++ Dumping all ssid configs END ++++++++++++++"))
    assert sorted(profiles(log[begin:end])) == ["1", "44"], "ids that share a bucket"
    assert update(ap, 44, ADD)[1] == ("handle_ssid_profile_update", "SSID profile already present [44]")


def test_a_missing_configuration_is_reported(start):
    ap = start()
    records = [r for r in ap.log() if r.function == "read_wl_conf"]
    assert [r.message for r in records] == [
        f"Unable to open conf file : {DAEMON_CONFIGURATION} errno : No such file or directory"
    ]


def test_a_line_that_does_not_match_takes_the_id_of_the_line_before(start):
    with open(DAEMON_CONFIGURATION, "w", encoding="ascii") as file:
        file.write("nonsense\nPROFILE 7 Lobby\n\n  PROFILE 9 Hall\nPROFILE 8\n")
    ap = start()
    assert [r.message for r in ap.log() if "Initializing" in r.message and "Profile" in r.message] == [
        f"Initializing configuration for ProfileID : {profile_id}" for profile_id in (0, 7, 7, 7, 8)
    ]


def test_a_profile_is_added_and_deleted(start):
    ap = start()
    write_profile(5, usable(5, "Lobby", "ath0.1,ath1", ALL_EXTRA_SSID_VLAN_LIST="10,20,10"))
    log = update(ap, 5, ADD)
    assert log[0] == received(5, ADD)
    assert profiles(log) == ["5"]
    assert update(ap, 5, ADD) == [
        received(5, ADD),
        ("handle_ssid_profile_update", "SSID profile already present [5]"),
    ]
    assert received(5, DELETE) in update(ap, 5, DELETE)
    assert update(ap, 5, DELETE)[:2] == [
        received(5, DELETE),
        ("destroy_ssid_profile_data", "No ssid data present for ssid profile id [5]"),
    ]


def test_edited_files_count_when_the_profile_is_added_again(start):
    ap = start()
    write_profile(5, usable(5, "Lobby", "ath0"))
    assert any("ssid [Lobby]" in message for _, message in update(ap, 5, ADD))
    write_profile(5, usable(5, "Lobby", "ath0"), {"WL_PROFILE_SSID": "Hall"})
    update(ap, 5, DELETE)
    assert any("ssid [Hall]" in message for _, message in update(ap, 5, ADD))


@pytest.mark.parametrize("missing", ["SSID_PROFILE_ID", "VAP_LIST", "WL_PROFILE_SSID", "ExternalDevice"])
def test_a_profile_without_a_required_key_is_refused(start, missing):
    ap = start()
    keys = usable(5, "Lobby", "ath0")
    del keys[missing]
    write_profile(5, keys)
    assert ("init_ssid_config", "Required config not present in /tmp/profile5/wl.conf") in update(ap, 5, ADD)
    assert update(ap, 5, DELETE)[1][1] == "No ssid data present for ssid profile id [5]"
    remove_profile(5)


def test_a_role_profile_needs_no_ssid(start):
    ap = start()
    keys = usable(5, "", "ath0", IS_ROLE_PROFILE=1)
    del keys["WL_PROFILE_SSID"]
    write_profile(5, keys)
    update(ap, 5, ADD)
    assert update(ap, 5, ADD)[1][1] == "SSID profile already present [5]"


def test_events_that_make_no_sense_are_reported(start):
    ap = start()
    assert update(ap, 5, 4) == [
        received(5, 4),
        ("handle_ssid_profile_update", "Invalid event data. Evt flag : 4 for event [96]"),
    ]
    assert update(ap, 5, SEND_REQUEST) == [
        received(5, SEND_REQUEST),
        ("handle_ssid_profile_update", "SSID profile not present for sending CL info Req packet[5]"),
    ]
    assert update(ap, 0xFFFFFFFF, DELETE) == [received(-1, DELETE)]
    assert update_with(ap, b"\0\0\0\5") == [
        ("handle_wl_ssid_profile_update", "Insufficient data len [4] received for event[96]")
    ]


@pytest.mark.parametrize(
    "content", [b"", b"\0" * 600, b"=\n==\nVAP_LIST\n", b"\xff" * 3000, b"VLAN_ID=" + b"9" * 2000 + b"\n"]
)
def test_files_of_any_bytes_are_survived(start, content):
    write_profile(5, {})
    for name in ("profile.conf", "wl.conf"):
        with open(f"/tmp/profile5/{name}", "wb") as file:
            file.write(content)
    with open(DAEMON_CONFIGURATION, "wb") as file:
        file.write(content + b"\nPROFILE 5 x\nPROFILE 6 y\n")
    write_profile(6, usable(6, "Lobby", "ath0"))
    ap = start()
    pid = ap.pid
    assert update(ap, 6, ADD)[1] == ("handle_ssid_profile_update", "SSID profile already present [6]")
    assert ("init_ssid_config", "Required config not present in /tmp/profile5/wl.conf") in update(ap, 5, ADD)
    assert ap.pid == pid
