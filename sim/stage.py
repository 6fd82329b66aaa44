"""What a scenario plays on: it acts on the access point, shows what the daemon does and counts what is as expected."""

from __future__ import annotations

import os
import sys
from collections.abc import Callable, Sequence
from typing import TypeVar

from sim import reload, reports, roles
from sim.access_point import AccessPoint, LogRecord
from sim.agent.agent import Agent
from sim.agent.neighbour import Neighbour
from sim.agent.packets import describe as describe_packet
from sim.background import wait_until
from sim.bus import Message
from sim.clock import Clock
from sim.events import describe
from sim.wireless import Wireless

T = TypeVar("T")

LIMIT = 10.0
_SANITY_TEST = "APPL_SANITY_TEST "

_COLOURS = {
    "send": "36",
    "bus": "35",
    "reply": "35",
    "file": "35",
    "agent": "34",
    "AP 2": "33",
    "driver": "33",
    "device": "33",
    "log": "2",
    "syslog": "2",
    "clock": "36",
    "ok": "32",
    "FAILED": "1;31",
}


def _worth_showing(record: LogRecord) -> bool:
    """Leaves out what is said at every turn while there is no synchronisation agent, and our own waiting."""
    return record.function != "init_synch_sock" and f"[{_SANITY_TEST}]" not in record.message


# Every peer gets these: they are shown once, decoded.
_DECODERS: dict[str, Callable[[bytes], object]] = {
    reports.REPORT: reports.decode,
    roles.CLIENT_ROLE: roles.decode_client_role,
    roles.EVENT: roles.decode_applied_role,
}


def _description(name: str, message: Message) -> str | None:
    """What to show of a message that a peer got. Forwarded events are not shown: they say what the event has said."""
    if message.event == reports.FORWARDED:
        return None
    if message.event not in _DECODERS:
        return f"{name} gets {describe(*message)}"
    if name != "/wl_evt_proxy":
        return None
    content = _DECODERS[message.event](message.payload)
    return f"every peer gets {message.event}, {len(message.payload)} bytes:\n{content}"


def show(label: str, text: str) -> None:
    """Prints one line; further lines of the text are indented."""
    shown = f"{label:>6}"
    if sys.stdout.isatty():
        shown = f"\033[{_COLOURS[label]}m{shown}\033[0m"
    body = text.rstrip("\n").replace("\n", "\n" + " " * 10)
    print(f"  {shown}  {body}", flush=True)


class Stage:
    """`daemon` is the command of the daemon alone; agent and neighbour are there once a scenario has started them."""

    def __init__(self, access_point: AccessPoint, wireless: Wireless, clock: Clock, daemon: Sequence[str]):
        self.ap = access_point
        self.wireless = wireless
        self.clock = clock
        self.daemon = daemon
        self.agent: Agent | None = None
        self.neighbour: Neighbour | None = None
        self.met = 0
        self.failed = 0
        self.sent = 0
        self._scenes = 0
        self._scene_start = 0
        self._shown = 0
        self._shown_of: dict[str, int] = {}

    def scene(self, title: str) -> None:
        self._scenes += 1
        self._scene_start = self._shown
        print(f"\n{self._scenes}. {title}", flush=True)

    def send(self, event: str, payload: bytes, meaning: str = "") -> None:
        show("send", f"{event}, {len(payload)} bytes{': ' if meaning else ''}{meaning}")
        self.send_quietly(event, payload)
        self.ap.settle(LIMIT)
        self.show_news()

    def send_quietly(self, event: str, payload: bytes) -> None:
        self.ap.send_event(event, payload)
        self.sent += 1

    def ask(self, command: str) -> str | None:
        """Sends a reload command that is answered."""
        show("send", f'reload command "{command}"')
        reply = self.ap.reload(command, LIMIT)
        text = None if reply is None else reload.text(reply)
        show("reply", "none" if text is None else f'"{text}"')
        return text

    def tell(self, command: str) -> None:
        """Sends a reload command that is not answered."""
        show("send", f'reload command "{command}"')
        self.ap.reload_without_reply(command)

    def expect(self, good: bool, text: str) -> None:
        if good:
            self.met += 1
        else:
            self.failed += 1
        show("ok" if good else "FAILED", text)

    def expect_log(self, *messages: str) -> None:
        """Waits for records of this scene that contain the texts and shows the log up to now; all must come."""
        missing = []
        for message in messages:
            try:
                self.ap.wait_for_log(message, since=self._scene_start, limit=LIMIT)
                self.met += 1
            except TimeoutError:
                missing.append(message)
        self.show_news()
        for message in missing:
            self.expect(False, f'the log should say "{message}"')

    def expect_soon(self, condition: Callable[[], object], text: str) -> None:
        """Waits until the condition gives something true, and shows what has happened up to then."""
        try:
            wait_until(condition, text, LIMIT)
            good = True
        except TimeoutError:
            good = False
        self.show_news()
        self.expect(good, text)

    def show_news(self) -> None:
        """Shows what the daemon has logged and published since the last time."""
        records = self.ap.log()
        if self._shown > len(records):  # the log was rotated out of reach
            self._shown = 0
        for record in records[self._shown :]:
            if _worth_showing(record):
                show("log", f"{record.function}: {record.message}")
        self._shown = len(records)
        for name, peer in self.ap.peers.items():
            for message in self._new_of(name, peer.messages):
                if description := _description(name, message):
                    show("bus", description)
        if self.agent is not None:
            for packet in self._new_of("agent", self.agent.received):
                show("agent", f"gets {describe_packet(packet)}")
        if self.neighbour is not None:
            for line in self._new_of("neighbour", self.neighbour.lines):
                show("AP 2", line.replace("; ", "\n"))

    def skip_log(self) -> None:
        """Leaves out of the news what has been logged up to now."""
        self._shown = len(self.ap.log())

    def _new_of(self, name: str, things: Sequence[T]) -> Sequence[T]:
        """What has been added to a list since the last time; the list may grow meanwhile."""
        count = len(things)
        new = things[self._shown_of.get(name, 0) : count]
        self._shown_of[name] = count
        return new

    def close(self) -> None:
        """Ends what scenarios have started."""
        if self.neighbour is not None:
            self.neighbour.close()
        if self.agent is not None:
            self.agent.close()

    def show_file(self, path: str) -> None:
        if os.path.exists(path):
            with open(path, encoding="utf-8", errors="replace") as file:
                show("file", f"{path}\n{file.read()}")
        else:
            show("file", f"{path} does not exist")

    def summary(self) -> str:
        outcome = "all as expected" if self.failed == 0 else f"{self.failed} NOT AS EXPECTED"
        return f"{self._scenes} scenes, {self.sent} events sent, {self.met + self.failed} expectations: {outcome}"
