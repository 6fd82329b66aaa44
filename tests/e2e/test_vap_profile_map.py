"""The map from VAPs to SSID profiles, and its file."""

import os
import struct

from sim.events import SUBINFO_VALUE, VAP_INDEX, VAP_NAME, header, item, text_item, u32
from sim.wireless import Vap

MAP = "/tmp/.wl.vap_to_profile"


def assign(ap, name, profile_id, data=b"\0\0\0\1"):
    ap.send_event(
        "VRE.bw.vap_profile_id", header(profile_id=profile_id) + text_item(VAP_NAME, name) + item(SUBINFO_VALUE, data)
    )
    ap.settle()


def entries():
    with open(MAP, "rb") as file:
        content = file.read()
    assert len(content) == 128
    return {n: pair for n, pair in enumerate(struct.iter_unpack(">II", content)) if pair != (0, 0)}


def told(ap):
    return [r.message for r in ap.log() if r.function == "bw_update_vap_profile_id"]


def test_an_event_fills_the_file(start):
    ap = start()
    assign(ap, "ath0", 7)
    assign(ap, "wlan12", 0x01020304, b"\0\0\0\2")
    assert entries() == {0: (7, 1), 12: (0x01020304, 2)}
    assert told(ap) == [
        "VAP ath0 : profile id 7 profile data 1",
        "WL.bw: Enabling bandwidth control feature for profile ID 7.",
        "VAP ath12 : profile id 16909060 profile data 2",
    ]


def test_names_and_numbers_that_do_not_fit_are_refused(start):
    ap = start()
    for name in ("lan", "ath17", "ath99999999999"):
        assign(ap, name, 7)
    assert told(ap) == ["Invalid VAP name", "Invalid vap_index.", "Invalid vap_index."]


def test_number_sixteen_is_taken_but_not_saved(start):
    ap = start()
    assign(ap, "ath16", 7)
    assert told(ap)[0] == "VAP ath16 : profile id 7 profile data 1"
    assert entries() == {}


def test_a_new_vap_takes_its_profile_from_the_map_also_after_a_restart(start_with_vaps):
    ap, wireless = start_with_vaps(Vap("ath3", "Lobby", "02:00:00:00:01:03"))
    assign(ap, "ath3", 9, b"\0\0\0\0")
    for _ in range(2):
        ap.send_event("VRE.smart_steering", header() + item(VAP_INDEX, u32(wireless["ath3"].index)))
        ap.settle()
        assert [r.message for r in ap.log() if r.function == "add_vapinfo"][-1] == (
            "Created profile_id 9 for vap ath3\n"
        )
        ap.stop()
        ap.start()
    assert len([r for r in ap.log() if r.function == "add_vapinfo"]) == 2


def test_a_map_that_cannot_be_written_ends_the_daemon(start):
    ap = start()
    os.mkdir(MAP)
    ap.send_event(
        "VRE.bw.vap_profile_id", header(profile_id=7) + text_item(VAP_NAME, "ath0") + item(SUBINFO_VALUE, u32(1))
    )
    ap.wait_until_gone()
    assert told(ap) == [f"FATAL: Could not create file {MAP}"]
