"""VAPs: found by the first event that names them, with a wireless driver of any manners."""

import pytest

from sim.background import wait_until
from sim.events import SUBINFO_VALUE, VAP_INDEX, VAP_NAME, coded, header, item, text_item, u32
from sim.profiles import write_profile
from sim.wireless import Vap

LOBBY = Vap("ath0", "Lobby", "02:00:00:00:01:00", proto=3)


def name_vap(ap, index):
    """Sends an event that names a VAP, and waits until it is dealt with."""
    ap.send_event("VRE.smart_steering", header() + item(VAP_INDEX, u32(index)))
    ap.settle()


def assign_profile(ap, name, profile_id):
    ap.send_event(
        "VRE.bw.vap_profile_id", header(profile_id=profile_id) + text_item(VAP_NAME, name) + item(SUBINFO_VALUE, u32(1))
    )


def told(ap, function):
    return [record.message for record in ap.log() if record.function == function]


def description(name, ssid, bssid, profile_id=0, flags=(0, 0, 0, 0, 0), rest=(0, 0, 0)):
    return (
        f"COMMON INFORMATION: interface {name} ssid {ssid} bssid {bssid} profile_id {profile_id} "
        "dot1x_enabled {} portal_enabled {} secured_vap {} samog_enabled {} gauth_enabled {}\n".format(*flags)
        + ", ssid_vlan {}, tunneled vap {} NAT vap {}".format(*rest)
    )


def test_the_first_event_finds_a_vap_and_the_next_ones_know_it(start_with_vaps):
    ap, wireless = start_with_vaps(LOBBY)
    for _ in range(3):
        name_vap(ap, wireless["ath0"].index)
    assert told(ap, "dump_vapinfo") == [description("ath0", "Lobby", "02:00:00:00:01:00")]
    assert len(wireless.calls("get_vaps")) == 1
    assert told(ap, "add_vapinfo") == ["Created profile_id 0 for vap ath0\n"]


def test_an_index_that_the_kernel_does_not_know_ends_decoding(start_with_vaps):
    ap, _ = start_with_vaps(LOBBY)
    ap.send_event("VRE.bw.events", header() + item(VAP_INDEX, u32(77)) + coded(1, b"\0\1")[10:])
    ap.settle()
    log = [(record.function, record.message) for record in ap.log()]
    failures = [n for n, line in enumerate(log) if line == ("add_or_lookup_vapinfo", "VAP add failed for index 77")]
    assert failures
    assert {log[n + 1] for n in failures} == {("wl_get_evt_info", "Vap lookup failed ")}
    assert len(told(ap, "add_or_lookup_vapinfo")) == len(failures)
    assert told(ap, "handle_bw_events") == []


def test_a_vap_that_is_not_up_yet_is_asked_for_again(start_with_vaps):
    ap, wireless = start_with_vaps(Vap("ath0", "Lobby", "00:00:00:00:00:00", up=False))
    name_vap(ap, wireless["ath0"].index)
    assert f"VAP add failed for index {wireless['ath0'].index}" in told(ap, "add_or_lookup_vapinfo")
    wireless["ath0"].bssid = "02:00:00:00:01:00"
    wireless["ath0"].up = True
    wireless.write()
    name_vap(ap, wireless["ath0"].index)
    assert told(ap, "dump_vapinfo") == [description("ath0", "Lobby", "02:00:00:00:01:00")]


def test_a_profile_s_file_describes_its_vap(start_with_vaps):
    write_profile(
        7,
        {
            "SSID_PROFILE_ID": 1,
            "AP_SECFILE": "EAP",
            "SAMOG_MAB_ENABLED": 257,
            "GAUTH_ENABLED": 2,
            "VLAN_ID": 65636,
            "NETWORK_PROFILE_ID": 0,
        },
    )
    for name in ("portal.conf", "nat.conf"):
        with open(f"/tmp/profile7/{name}", "w", encoding="ascii"):
            pass
    ap, wireless = start_with_vaps(LOBBY)
    assign_profile(ap, "ath0", 7)
    name_vap(ap, wireless["ath0"].index)
    assert told(ap, "dump_vapinfo") == [
        description("ath0", "Lobby", "02:00:00:00:01:00", 7, (1, 1, 1, 1, 2), (100, 0, 1))
    ]
    assert told(ap, "update_other_vap_information") == [
        "update_other_vap_information: updating information for profile_id 7\n"
    ]


def test_clearing_the_table_asks_the_driver_anew(start_with_vaps):
    ap, wireless = start_with_vaps(LOBBY)
    name_vap(ap, wireless["ath0"].index)
    wireless["ath0"].ssid = "Café 2"
    wireless.write()
    name_vap(ap, wireless["ath0"].index)
    ap.send_event("VRE.clr.iface")
    line = ap.wait_for_syslog("Reboot avoidance path triggered. Reinitializing interface cache.")
    assert (line.facility, line.severity) == (16, 6)
    name_vap(ap, wireless["ath0"].index)
    assert told(ap, "dump_vapinfo") == [
        description("ath0", "Lobby", "02:00:00:00:01:00"),
        description("ath0", "Café 2", "02:00:00:00:01:00"),
    ]


def test_an_edited_profile_file_counts_once_the_table_is_cleared(start_with_vaps):
    write_profile(7, {"AP_SECFILE": "PSK", "VLAN_ID": 100})
    ap, wireless = start_with_vaps(LOBBY)
    assign_profile(ap, "ath0", 7)
    name_vap(ap, wireless["ath0"].index)
    before = description("ath0", "Lobby", "02:00:00:00:01:00", 7, (0, 0, 1, 0, 0), (100, 0, 0))
    write_profile(7, {"AP_SECFILE": "EAP", "SAMOG_MAB_ENABLED": 1, "VLAN_ID": 200})
    name_vap(ap, wireless["ath0"].index)
    assert told(ap, "dump_vapinfo") == [before]
    assert len(told(ap, "update_other_vap_information")) == 1
    ap.send_event("VRE.clr.iface")
    name_vap(ap, wireless["ath0"].index)
    after = description("ath0", "Lobby", "02:00:00:00:01:00", 7, (1, 0, 1, 1, 0), (200, 0, 0))
    assert told(ap, "dump_vapinfo") == [before, after]


def test_a_seventeenth_vap_is_answered_with_the_sixteenth(start_with_vaps):
    vaps = [Vap(f"ath{n}", f"Net{n}", f"02:00:00:00:01:{n:02X}") for n in range(17)]
    ap, wireless = start_with_vaps(*vaps)
    for vap in wireless.vaps.values():
        name_vap(ap, vap.index)
    dumps = told(ap, "dump_vapinfo")
    assert dumps[:16] == [description(f"ath{n}", f"Net{n}", f"02:00:00:00:01:{n:02X}") for n in range(16)]
    assert set(dumps[16:]) == {dumps[15]}


@pytest.mark.parametrize(
    "switches",
    [
        ["subcommands 1"],
        ["names_without_nul 1"],
        ["table_count 4000"],
        ["table_claims 65535"],
        ["reply_size 512", "reply_claims 65535"],
        ["args get_vaps 0 0x2FFF", "reply_size 512"],
        ["args get_vaps 0x27FF 0x21FF", "reply_size 512"],
        ["args get_vaps 0x1804 0x106E"],
        ["reply_size 0", "reply_claims 0"],
    ],
)
def test_a_driver_of_any_manners_is_survived(start_with_vaps, switches):
    ap, wireless = start_with_vaps(LOBBY)
    pid = ap.pid
    wireless.switches = switches
    wireless.write()
    for _ in range(3):
        name_vap(ap, wireless["ath0"].index)
    wireless.switches = []
    wireless.write()
    ap.send_event("VRE.clr.iface")
    name_vap(ap, wireless["ath0"].index)
    assert ap.pid == pid
    assert told(ap, "dump_vapinfo")[-1] == description("ath0", "Lobby", "02:00:00:00:01:00")


@pytest.mark.parametrize("call", ["SIOCGIFNAME", "SIOCGIWPRIV", "get_vaps"])
def test_a_failed_call_adds_nothing(start_with_vaps, call):
    ap, wireless = start_with_vaps(LOBBY)
    wireless.fail(f"{call} * EIO")
    name_vap(ap, wireless["ath0"].index)
    assert {answer["error"] for answer in wireless.calls(call)} == {"EIO"}
    assert told(ap, "dump_vapinfo") == []
    wireless.fail()
    name_vap(ap, wireless["ath0"].index)
    assert told(ap, "dump_vapinfo") == [description("ath0", "Lobby", "02:00:00:00:01:00")]


def test_commands_arranged_as_sub_commands_work(start_with_vaps):
    ap, wireless = start_with_vaps(LOBBY)
    wireless.switches = ["subcommands 1"]
    wireless.write()
    name_vap(ap, wireless["ath0"].index)
    assert wait_until(lambda: told(ap, "dump_vapinfo"), "the VAP") == [
        description("ath0", "Lobby", "02:00:00:00:01:00")
    ]
    assert wireless.calls("get_vaps")[0]["sub_command"] != 0
