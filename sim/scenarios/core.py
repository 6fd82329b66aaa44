"""The daemon's core: start-up, events in and out, the debug log, the reload channel, a crash."""

from __future__ import annotations

import os

from sim.access_point import CRASH_RECORD
from sim.events import (
    NAMES,
    SUBINFO_CODE,
    VAP_SSID,
    coded,
    header,
    item,
    typical,
    u16,
    vlan_information,
)
from sim.stage import LIMIT, Stage


def play(stage: Stage) -> None:
    start_up(stage)
    debug_level(stage)
    steering(stage)
    vlans(stage)
    malformed_payload(stage)
    reload_commands(stage)
    refusing_state(stage)
    every_event(stage)
    crash(stage)


def start_up(stage: Stage) -> None:
    stage.scene(
        "Start-up: the daemon detaches, opens its sockets and asks the sensor which VLANs it has seen\n"
        '   (where the log says "mq_open error", this machine\'s queues are limited: the daemon makes its own less deep)'
    )
    stage.expect_log("LOG_INFO UNIX socket created for communicating with reload_cli")
    stage.ap.wait_for_published("VRE.vlan.detector", "/sensord", limit=LIMIT)
    stage.show_news()
    stage.expect(
        stage.ap.published("VRE.vlan.detector", "/sensord") == [vlan_information(set(), 0, message=1)],
        "the sensor's queue holds exactly the request",
    )


def debug_level(stage: Stage) -> None:
    stage.scene("An event on the bus sets the debug level")
    stage.send("VRE.bw.events", coded(0, u16(9)), "code 0, value 9, which is more than the highest level")
    stage.expect_log("Setting debug level to WL_DBG_DEBUG")


def steering(stage: Stage) -> None:
    stage.scene(
        "Smart steering: codes for the other access points are passed on, others are not\n"
        '   (where the log says "error in sending packet", no synch agent runs yet: it starts in a later scene)'
    )
    stage.send("VRE.smart_steering", coded(7, bytes(24) + b"\1"), "code 7")
    stage.expect_log("Subinfo code 7 match , send steering packet")
    stage.send("VRE.smart_steering", coded(3, bytes(25)), "code 3")
    stage.expect(
        not any("Subinfo code 3 match" in record.message for record in stage.ap.log()),
        "code 3 is left alone",
    )


def vlans(stage: Stage) -> None:
    stage.scene("VLANs: the sensor reports; records that are too short are refused")
    stage.send("VRE.vlan.detector", vlan_information({0, 5, 100}), "the VLANs seen are 5, 100 and untagged traffic")
    stage.send("VRE.vlan.detector", vlan_information({5})[:-1], "the last byte is missing")
    stage.expect_log("Insufficient data len [517] received for event[43]")
    stage.send("VRE.vlan.gateway.info", bytes(25), "one byte short of its 26")
    stage.expect_log("Insufficient data len [25] received for event[102]")


def malformed_payload(stage: Stage) -> None:
    stage.scene("A network name that is too long is cut and reported, the rest of the event still counts")
    endless = header() + item(VAP_SSID, b"L" * 40) + item(SUBINFO_CODE, u16(8)) + coded(8, bytes(25))[len(header()) :]
    stage.send("VRE.smart_steering", endless, "an SSID of 40 characters, code 8")
    stage.expect_log(
        "Invalid SSID len received for event VRE.smart_steering", "Subinfo code 8 match , send steering packet"
    )


def reload_commands(stage: Stage) -> None:
    stage.scene("The reload channel: is it alive, what level shall it log")
    stage.expect(stage.ask("APPL_SANITY_TEST ") == "SUCCESS", "the daemon answers")
    stage.tell("3 SET_DEBUG_LEVEL")
    stage.expect_log("Setting debug level to WL_DBG_ERROR")


def refusing_state(stage: Stage) -> None:
    stage.scene("A daemon that plays dead, for watchdog tests, and comes back")
    stage.tell("RECOVERABLE_APPL_HANG ")
    stage.expect_log("Returning without processing command")
    stage.tell("RECOVER_APPL_HANG ")
    stage.expect_log("Received RECOVER_APPL_HANG command")
    stage.expect(stage.ask("APPL_SANITY_TEST ") == "SUCCESS", "the daemon answers again")


def every_event(stage: Stage) -> None:
    stage.scene(f"One of each of the {len(NAMES)} events, and one that nobody knows")
    for event in NAMES.values():
        stage.send_quietly(event, typical(event))
    stage.send("VRE.unheard_of", b"")
    stage.show_news()
    stage.tell("mq_fail_stats ")
    stage.expect_log("mq_fail_stats.recv_failure_count [1]")


def crash(stage: Stage) -> None:
    stage.scene("A crash leaves a record; a new daemon takes over the queue")
    os.makedirs(os.path.dirname(CRASH_RECORD), exist_ok=True)
    before = stage.ap.pid
    stage.tell("crash")  # a command of one word crashes
    stage.ap.wait_until_gone(LIMIT)
    stage.show_news()
    stage.show_file(CRASH_RECORD)
    with open(CRASH_RECORD, encoding="ascii") as record:
        stage.expect(f"signal 11 from pid {before} " in record.read(), "the record names the signal and the process")
    stage.ap.start()
    stage.ap.wait_for_published("VRE.vlan.detector", "/sensord", count=2, limit=LIMIT)
    stage.show_news()
    stage.expect(stage.ask("APPL_SANITY_TEST ") == "SUCCESS", "a new daemon answers")
