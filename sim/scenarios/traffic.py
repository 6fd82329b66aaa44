"""What the daemon does to single clients: it kicks them off on request, and is the target of one's traffic test."""

from __future__ import annotations

from sim import commands
from sim.background import wait_until
from sim.events import (
    CLIENT,
    TRAFFIC_TEST_CLIENT,
    TRAFFIC_TEST_SERVER,
    VAP_NAME,
    VAP_SSID,
    header,
    text_item,
    traffic_test_details,
)
from sim.scenarios.vaps import ADD, name_vap, update
from sim.stage import LIMIT, Stage, show

SERVER = "02:00:00:00:00:FE"
PROFILE = 7


def play(stage: Stage) -> None:
    disconnect(stage)
    start(stage)
    stop(stage)


def disconnect(stage: Stage) -> None:
    stage.scene("A client is kicked off the open VAPs of an SSID")
    name_vap(stage, "ath0", "Lobby, secured")
    name_vap(stage, "ath1", "Hall, open")
    stage.send("VRE.client.disconnect", header() + text_item(VAP_SSID, "Lobby"), "off Lobby")
    stage.send("VRE.client.disconnect", header() + text_item(VAP_SSID, "Hall"), "off Hall")
    wait_until(commands.kicks, "a run of iwpriv", LIMIT)
    show("file", f"iwpriv {commands.kicks()[0]}")
    stage.expect(commands.kicks() == [f"ath1 kickmac {CLIENT}"], "the client is kicked off Hall, and not off Lobby")


def start(stage: Stage) -> None:
    stage.scene("A traffic test starts when its client comes to its VAP")
    update(stage, PROFILE, ADD, "add profile 7, which the test is for")
    client = traffic_test_details(TRAFFIC_TEST_CLIENT, CLIENT, "192.168.1.30")
    stage.send("VRE.Target.AP.Traffic.details", client, "the client")
    server = traffic_test_details(
        TRAFFIC_TEST_SERVER, SERVER, "192.168.1.20", port=5001, profile_id=PROFILE, vap="ath0"
    )
    stage.send("VRE.Target.AP.Traffic.details", server, "the server, for a client on ath0")
    stage.send("VRE.node_authorize", header(CLIENT, PROFILE) + text_item(VAP_NAME, "ath0"), "the client, on ath0")
    stage.expect_log("Updated PID info, Target script pid")
    (target,) = commands.targets()
    show("file", f"cl_test_target.sh {target.arguments}")
    stage.expect(
        target.runs and target.arguments == f"192.168.1.20 {SERVER} 192.168.1.30 {CLIENT} {PROFILE} 5001",
        "the script runs and has told its process id",
    )


def stop(stage: Stage) -> None:
    stage.scene("It ends when its client leaves")
    stage.send("VRE.node_leave", header(CLIENT, PROFILE) + text_item(VAP_NAME, "ath0"), "the client, from ath0")
    stage.expect_log("Killing the Target AP script ")
    wait_until(lambda: not commands.targets()[0].runs, "the end of the script", LIMIT)
    stage.expect(commands.targets()[0].terminated, "the script was terminated")
