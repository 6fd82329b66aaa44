"""What the access point reports about itself: VAPs, channels, and what is throttled."""

from __future__ import annotations

from sim import ap_reports
from sim.ap_reports import BAND_5_GHZ, CHANNEL_CHANGED, CHANNEL_SELECTED, PERIODIC, VAP, Report
from sim.events import coded, u16
from sim.profiles import mark_as_running, shared, write_profile
from sim.scenarios.clients import let_pass
from sim.stage import LIMIT, Stage

VAP_DOWN = b"RADIO,1,Lobby (5 Ghz),DOWN"


def play(stage: Stage) -> None:
    vap_down_and_up(stage)
    channel(stage)
    throttled(stage)
    throttled_after_a_restart(stage)
    reported_again(stage)


def reports(stage: Stage) -> list[Report]:
    return [ap_reports.decode(payload) for payload in stage.ap.published(ap_reports.REPORT)]


def expect_report(stage: Stage, event: str, payload: bytes, meaning: str, *expected: Report) -> None:
    """Sends an event and expects just these reports of it."""
    before = len(reports(stage))
    stage.send(event, payload, meaning)
    if expected:
        stage.ap.wait_for_published(ap_reports.REPORT, count=before + len(expected), limit=LIMIT)
        stage.show_news()
    shown = " and ".join(map(str, expected))
    stage.expect(
        reports(stage)[before:] == list(expected), f"the server is told {shown}" if expected else "nothing is reported"
    )


def vap(stage: Stage, up: bool, meaning: str, *expected: Report) -> None:
    expect_report(stage, "VRE.vap_down", ap_reports.vap_event("ath0", up=up, band=BAND_5_GHZ), meaning, *expected)


def vap_down_and_up(stage: Stage) -> None:
    stage.scene("A VAP goes down and comes up again: the server is told once there is a connection to it")
    write_profile(7, shared(7, "Lobby"), {"WL_PROFILE_SSID": "Lobby"})
    mark_as_running(7)
    vap(stage, False, "ath0 goes down, without a connection")
    stage.expect_log("SENSORD not connected with server... skipping event : VRE.vap_down")
    ap_reports.connect()
    vap(stage, False, "ath0 goes down, with one", Report(VAP, VAP_DOWN))
    vap(stage, True, "ath0 comes up", Report(VAP, b"RADIO,1,Lobby (5 Ghz),UP"))


def channel(stage: Stage) -> None:
    stage.scene("A radio moves to another channel; statistics of channels are not reported")
    event = "VRE.evt_chan_debug_info"
    expect_report(stage, event, ap_reports.channel_statistics(36, non_wifi=40), "channel 36: 40 % not Wi-Fi")
    expect_report(
        stage, event, ap_reports.channel_changed(PERIODIC), "look for one", Report(CHANNEL_CHANGED, b"RADIO,1,Periodic ACS")
    )
    chosen = ap_reports.channel_selected(149, 19)
    expect_report(stage, event, chosen, "149 it is", Report(CHANNEL_SELECTED, b"RADIO,1,149,11AC VHT80"))


def throttled(stage: Stage) -> None:
    stage.scene("What was reported a short while ago is not reported again")
    stage.send("VRE.bw.events", coded(0, u16(7)), "debug level 7")
    vap(stage, False, "ath0 goes down again")
    stage.expect_log("Throttiling evt : 1 since time : ")
    stage.send("VRE.bw.events", coded(0, u16(3)), "debug level 3")


def throttled_after_a_restart(stage: Stage) -> None:
    stage.scene("The daemon remembers that in a file, for its next start")
    stage.expect(
        [of.text for of in ap_reports.remembered() if of.code == VAP] == [VAP_DOWN, b"RADIO,1,Lobby (5 Ghz),UP"],
        f"{ap_reports.CACHE} holds both texts",
    )
    stage.ap.stop()
    stage.ap.start()
    vap(stage, False, "ath0 goes down, after a restart of the daemon")


def reported_again(stage: Stage) -> None:
    stage.scene("After a minute it may be told again")
    let_pass(stage, 61)
    vap(stage, False, "ath0 goes down once more", Report(VAP, VAP_DOWN))
