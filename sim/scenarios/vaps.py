"""What the daemon knows about its own access point: VAPs from the driver, SSID profiles from files and events."""

from __future__ import annotations

import struct

from sim.events import SUBINFO_VALUE, VAP_INDEX, VAP_NAME, header, item, text_item, u32
from sim.profiles import usable, write_profile
from sim.stage import Stage

ADD, DELETE = 1, 2


def play(stage: Stage) -> None:
    map_to_profile(stage)
    discovery(stage)
    not_up_yet(stage)
    profiles(stage)
    cleared(stage)


def name_vap(stage: Stage, name: str, meaning: str) -> None:
    index = stage.wireless[name].index
    stage.send("VRE.smart_steering", header() + item(VAP_INDEX, u32(index)), f"names interface {index}; {meaning}")


def map_to_profile(stage: Stage) -> None:
    stage.scene("VAP ath0 is said to serve profile 7; the map is kept in a file for the next start")
    payload = header(profile_id=7) + text_item(VAP_NAME, "ath0") + item(SUBINFO_VALUE, u32(1))
    stage.send("VRE.bw.vap_profile_id", payload, "ath0, profile 7, bandwidth control on")
    stage.expect_log("Enabling bandwidth control feature for profile ID 7.")


def discovery(stage: Stage) -> None:
    stage.scene("The first event that names a VAP makes the daemon ask the driver about it")
    write_profile(7, usable(7, "Lobby", "ath0", AP_SECFILE="EAP", VLAN_ID=100))
    name_vap(stage, "ath0", "unknown so far")
    stage.expect_log("COMMON INFORMATION: interface ath0 ssid Lobby bssid 02:00:00:00:01:00 profile_id 7 dot1x_enabled 1")
    asked = len(stage.wireless.calls("get_vaps"))
    name_vap(stage, "ath0", "known now")
    stage.show_news()
    stage.expect(len(stage.wireless.calls("get_vaps")) == asked, "the driver is not asked again")


def not_up_yet(stage: Stage) -> None:
    stage.scene("A VAP that is not up yet is left for a later event")
    vap = stage.wireless["ath1"]
    name_vap(stage, "ath1", "the driver has no BSSID for it")
    stage.expect_log(f"VAP add failed for index {vap.index}")
    vap.bssid, vap.up = "02:00:00:00:01:01", True
    stage.wireless.write()
    name_vap(stage, "ath1", "it has come up")
    stage.expect_log("COMMON INFORMATION: interface ath1 ssid Hall")


def profiles(stage: Stage) -> None:
    stage.scene("SSID profiles are added and deleted while the daemon runs")
    update(stage, 7, ADD, "add profile 7")
    stage.expect_log("profile_id [7] ssid [Lobby]")
    update(stage, 7, ADD, "add it again")
    stage.expect_log("SSID profile already present [7]")
    update(stage, 7, DELETE, "delete it")
    update(stage, 7, DELETE, "delete it again")
    stage.expect_log("No ssid data present for ssid profile id [7]")


def update(stage: Stage, profile_id: int, flags: int, meaning: str) -> None:
    stage.send("VRE.ssid_profile_update", struct.pack(">IB", profile_id, flags), meaning)


def cleared(stage: Stage) -> None:
    stage.scene("The VAP table is cleared: the driver is asked anew")
    stage.send("VRE.clr.iface", b"")
    stage.ap.wait_for_syslog("Reinitializing interface cache.")
    name_vap(stage, "ath0", "unknown again")
    stage.expect_log("COMMON INFORMATION: interface ath0")
