"""Client disconnect: from the event to the command that kicks the client off."""

import os

from sim import commands
from sim.background import wait_until
from sim.events import SUBINFO_VALUE, VAP_INDEX, VAP_NAME, VAP_SSID, header, item, text_item, u32
from sim.profiles import write_profile
from sim.wireless import Vap

CLIENT = "02:ab:00:9c:de:0f"
CLIENT_IN_COMMANDS = "02:AB:00:9C:DE:0F"
LOBBY = Vap("ath0", "Lobby", "02:00:00:00:01:00")
HALL = Vap("ath1", "Hall", "02:00:00:00:01:01")
SECOND_LOBBY = Vap("ath2", "Lobby", "02:00:00:00:01:02")


def name_all(ap, wireless):
    for vap in wireless.vaps.values():
        ap.send_event("VRE.smart_steering", header() + item(VAP_INDEX, u32(vap.index)))
    ap.settle()


def disconnect(ap, ssid):
    ap.send_event("VRE.client.disconnect", header(CLIENT) + text_item(VAP_SSID, ssid))
    ap.settle()


def said(ap):
    return [record.message for record in ap.log() if record.function == "handle_vre_disconnect_event"]


def request(ssid):
    return f"ZEL DISCONNECT: Recived disconnect event for mac {CLIENT_IN_COMMANDS} ssid={ssid} ssid_len={len(ssid)}"


def command(vap):
    return f"ZEL DISCONNECT: command iwpriv {vap} kickmac {CLIENT_IN_COMMANDS} &"


def test_a_client_is_kicked_off_every_open_vap_of_its_ssid(start_with_vaps):
    ap, wireless = start_with_vaps(LOBBY, HALL, SECOND_LOBBY)
    name_all(ap, wireless)
    disconnect(ap, "Lobby")
    wait_until(lambda: len(commands.kicks()) == 2, "both commands")
    assert sorted(commands.kicks()) == [f"{vap} kickmac {CLIENT_IN_COMMANDS}" for vap in ("ath0", "ath2")]
    assert said(ap) == [request("Lobby"), command("ath0"), command("ath2")]


def test_a_secured_vap_keeps_its_clients(start_with_vaps):
    write_profile(7, {"AP_SECFILE": "PSK"})
    ap, wireless = start_with_vaps(LOBBY, SECOND_LOBBY)
    assign = header(profile_id=7) + text_item(VAP_NAME, "ath0") + item(SUBINFO_VALUE, u32(1))
    ap.send_event("VRE.bw.vap_profile_id", assign)
    name_all(ap, wireless)
    disconnect(ap, "Lobby")
    wait_until(commands.kicks, "the open VAP's command")
    assert said(ap) == [request("Lobby"), command("ath2")]
    assert commands.kicks() == [f"ath2 kickmac {CLIENT_IN_COMMANDS}"]


def test_other_ssids_are_left_alone(start_with_vaps):
    ap, wireless = start_with_vaps(LOBBY, HALL)
    name_all(ap, wireless)
    for ssid in ("Lobb", "Lobby2", "lobby"):
        disconnect(ap, ssid)
    disconnect(ap, "Hall")  # commands start in order, so the last one's record ends the wait
    wait_until(commands.kicks, "the command for Hall")
    assert commands.kicks() == [f"ath1 kickmac {CLIENT_IN_COMMANDS}"]
    assert said(ap) == [request("Lobb"), request("Lobby2"), request("lobby"), request("Hall"), command("ath1")]


def test_a_vap_that_no_event_has_named_yet_is_not_known(start_with_vaps):
    ap, wireless = start_with_vaps(LOBBY)
    disconnect(ap, "Lobby")
    assert said(ap) == [request("Lobby")]
    named = header(CLIENT) + item(VAP_INDEX, u32(wireless["ath0"].index)) + text_item(VAP_SSID, "Lobby")
    ap.send_event("VRE.client.disconnect", named)
    wait_until(commands.kicks, "the command once the event itself names the VAP")
    assert said(ap) == [request("Lobby"), request("Lobby"), command("ath0")]


def test_a_hanging_command_holds_nothing_up(start_with_vaps):
    ap, wireless = start_with_vaps(LOBBY)
    name_all(ap, wireless)
    with open(commands.IWPRIV, "w", encoding="ascii") as script:
        script.write(f'#!/bin/sh\necho "$*" >>{commands.IWPRIV_RECORD}\nexec sleep 1000\n')
    for _ in range(3):
        disconnect(ap, "Lobby")
    wait_until(lambda: len(commands.kicks()) == 3, "all commands")
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"


def test_a_missing_command_is_survived(start_with_vaps):
    ap, wireless = start_with_vaps(LOBBY)
    name_all(ap, wireless)
    os.unlink(commands.IWPRIV)
    disconnect(ap, "Lobby")
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
    assert said(ap) == [request("Lobby"), command("ath0")]
