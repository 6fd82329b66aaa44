"""Clients try to connect, with and without success: lines in the system log, the verdicts, the dump of what failed."""

from __future__ import annotations

from sim import reports
from sim.attempts import ATTEMPTS, Attempt
from sim.background import wait_until
from sim.events import coded, u16
from sim.reports import FORWARDED, REPORT, Report
from sim.stage import LIMIT, Stage, show
from sim.station import NETWORKS, OPEN, Station, announce, dump_request

DUMP = "/tmp/wl_connection_errors"
WITHOUT_VERDICT = 151  # seconds after which an attempt that stands still is decided, at a sweep every 30 s
ALL_DECIDED = 331  # the same where the client has to log in at a portal
SETTLE_EVERY = 3  # events: a peer's queue is short, and everybody shall keep up


def play(stage: Stage) -> None:
    networks(stage)
    for number, name in enumerate(ATTEMPTS):
        attempt(stage, ATTEMPTS[name], f"02:00:00:00:0a:{number:02x}")
    forwarded(stage)
    dump(stage)


def networks(stage: Stage) -> None:
    stage.scene("Four networks: open, with a passphrase, with 802.1X, with a captive portal")
    stage.send("VRE.bw.events", coded(0, u16(3)), "debug level 3, the default")
    make_known(stage)
    stage.show_news()
    stage.expect_log(*(f"interface {network.vap} ssid {network.ssid} " for network in NETWORKS))


def make_known(stage: Stage) -> None:
    """Adds the VAPs of the networks that the driver does not have yet, and lets the daemon find them."""
    for network in NETWORKS:
        if network.vap not in stage.wireless.vaps:
            stage.wireless.add(network.as_vap())
    stage.wireless.write()
    for network in NETWORKS:
        announce(network, stage.wireless, stage.send_quietly)
    stage.ap.settle(LIMIT)


def attempt(stage: Stage, attempt: Attempt, mac: str) -> None:
    stage.scene(attempt.title)
    before = stage.sent
    perform(stage, attempt, mac)
    show("send", f"{stage.sent - before} events of {mac} on {attempt.network.ssid}")
    show_lines(stage, mac)
    if not verdicts(stage, mac):
        let_pass(stage, WITHOUT_VERDICT)
    wait_until(lambda: verdicts(stage, mac), f"a verdict on {mac}", LIMIT)
    stage.show_news()
    (report,) = verdicts(stage, mac)
    code = report.number(reports.FAILURE)
    stage.expect(
        code == attempt.failure,
        "the client is reported as connected" if code is None else f"reported: {reports.FAILURES[code]}",
    )


def perform(stage: Stage, attempt: Attempt, mac: str) -> None:
    """Plays an attempt of a client up to its end."""
    sent = 0

    def send(event: str, payload: bytes) -> None:
        nonlocal sent
        stage.send_quietly(event, payload)
        sent += 1
        if sent % SETTLE_EVERY == 0:
            stage.ap.settle(LIMIT)

    def pause(milliseconds: int) -> None:
        stage.ap.settle(LIMIT)
        stage.clock.let_pass(milliseconds / 1000)

    attempt.play(Station(mac, attempt.network, send), pause)
    stage.ap.settle(LIMIT)


def let_pass(stage: Stage, seconds: int) -> None:
    show("clock", f"{seconds} seconds pass for the daemon")
    stage.clock.let_pass(seconds)


def show_lines(stage: Stage, mac: str, since: int = 0) -> None:
    """Shows what the system log tells of a client, leaving out the first `since` lines."""
    for line in stage.ap.syslog[since:]:
        if mac.upper() in line.text:
            show("syslog", line.text)


def verdicts(stage: Stage, mac: str) -> list[Report]:
    found = map(reports.decode, stage.ap.published(REPORT))
    return [report for report in found if report.mac == mac]


def forwarded(stage: Stage) -> None:
    stage.scene("Every event of a client is forwarded as it comes; values that are keys or passwords stay here")
    station = Station("02:00:00:00:0b:01", OPEN, stage.send_quietly)
    station.ip_conflict("02:00:00:00:0b:02", "192.168.1.20")
    show("send", "an address conflict of 02:00:00:00:0b:01 with 02:00:00:00:0b:02")

    def events() -> list[reports.Forwarded]:
        found = map(reports.decode_forwarded, stage.ap.published(FORWARDED))
        return [event for event in found if event.mac == station.mac]

    (event,) = wait_until(events, "the forwarded event", LIMIT)
    show("bus", f"every peer gets {FORWARDED}: {event}")
    stage.expect(event.values(reports.EVENT_CONFLICT_MAC) == [b"02:00:00:00:0B:02"], "it names the other station")


def dump(stage: Stage) -> None:
    stage.scene("When the last attempt is over, those that failed can be dumped")
    let_pass(stage, ALL_DECIDED)
    failed = sum(attempt.failure is not None for attempt in ATTEMPTS.values())
    wait_until(lambda: f"AP has {failed} Error Records" in errors(stage), f"{failed} failed attempts", LIMIT)
    stage.show_news()
    stage.show_file(DUMP)
    stage.expect("wrong passphrase" in errors(stage), f"all {failed} are there, event by event")


def errors(stage: Stage, mac: str = "ff:ff:ff:ff:ff:ff") -> str:
    """The dump of the failed attempts, of one client or of all."""
    stage.send_quietly("VRE.client_ts_conn_err_log_dump", dump_request(DUMP, mac))
    stage.ap.settle(LIMIT)
    with open(DUMP, encoding="utf-8", errors="replace") as file:
        return file.read()
