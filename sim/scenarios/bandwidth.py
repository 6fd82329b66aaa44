"""Bandwidth limits: set, in force, cleared; run by the traffic-control script, remembered across a restart."""

from __future__ import annotations

import os

from sim import bandwidth
from sim.background import wait_until
from sim.bandwidth import clear, limit
from sim.events import BW_APPLY_RULE, CLIENT, item
from sim.stage import LIMIT, Stage, show

SSID = "00:00:00:00:00:00"
PROFILE = 7


def play(stage: Stage) -> None:
    ssid_limit(stage)
    client_limit(stage)
    restart(stage)
    cleared(stage)


def expect_command(stage: Stage, since: int, beginning: str) -> None:
    """Waits for a run of the script that begins like this, leaving out the first `since` runs."""

    def found() -> str | None:
        return next((command for command in bandwidth.commands()[since:] if command.startswith(beginning)), None)

    show("file", f"tc_wrapper.sh {wait_until(found, beginning, LIMIT)}")
    stage.expect(True, f"the script is run to {beginning.split()[0]} it")


def show_classes(stage: Stage, wanted: str) -> None:
    if not bandwidth.in_kernel():
        return
    wait_until(lambda: wanted in (bandwidth.classes("bwdown") or ""), f"{wanted} in the kernel", LIMIT)
    show("file", "tc -s class show dev bwdown\n" + (bandwidth.classes("bwdown") or ""))
    stage.expect(True, f"the kernel's traffic control says {wanted}")


def ssid_limit(stage: Stage) -> None:
    stage.scene("A limit for a whole SSID becomes a command line that the worker runs")
    stage.send("VRE.bw.set", limit(SSID, PROFILE, 4000, 8000, bss=True), "profile 7: 4000 kbit/s up, 8000 down")
    expect_command(stage, 0, f"limit profile {PROFILE} bss up 4000 down 8000")
    show_classes(stage, "rate 8Mbit")


def client_limit(stage: Stage) -> None:
    stage.scene("A client's limit, to be applied at once")
    stage.send("VRE.bw.set", limit(CLIENT, PROFILE, 500, 1000) + item(BW_APPLY_RULE), "500 kbit/s up, 1000 down")
    expect_command(stage, 1, f"limit profile {PROFILE} sta {CLIENT}")
    show_classes(stage, "rate 1Mbit")


def restart(stage: Stage) -> None:
    stage.scene("Killed and started again, the daemon remembers the limits and runs nothing twice")
    before = bandwidth.cache()
    stage.ap.stop()
    stage.ap.start()
    stage.expect(bandwidth.cache() == before, "the transaction log is as it was")
    stage.send("VRE.bw.getstatus", b"")
    wait_until(lambda: os.path.exists(bandwidth.STATUS), "the status", LIMIT)
    stage.show_file(bandwidth.STATUS)
    stage.expect(len(bandwidth.commands()) == 2, "no command is run again")
    stage.show_news()


def cleared(stage: Stage) -> None:
    stage.scene("The limits are cleared")
    stage.send("VRE.bw.clr", clear(CLIENT, PROFILE), "the client's")
    expect_command(stage, 2, f"clear profile {PROFILE} sta {CLIENT}")
    stage.send("VRE.bw.clr", clear(SSID, PROFILE, bss=True), "the SSID's")
    expect_command(stage, 3, f"clear profile {PROFILE} bss")
    if bandwidth.in_kernel():
        for interface in bandwidth.PAIR:  # the script deals with one after the other
            wait_until(lambda: "htb" not in (bandwidth.classes(interface) or ""), "no class in the kernel", LIMIT)
        stage.expect(True, "the kernel's traffic control has no class left")
