"""What a scenario plays on: it acts on the access point, shows what the daemon does and counts what is as expected."""

from __future__ import annotations

import os
import sys
from collections.abc import Callable, Iterable, Iterator, Sequence
from typing import TypeVar

from sim import ap_reports, reload, reports, roles
from sim.access_point import AccessPoint, LogRecord
from sim.agent.agent import Agent
from sim.agent.neighbour import Neighbour
from sim.agent.packets import describe as describe_packet
from sim.background import wait_until
from sim.bus import Message
from sim.clock import Clock
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


_ROLE_DECODERS: dict[str, Callable[[bytes], object]] = {
    roles.CLIENT_ROLE: roles.decode_client_role,
    roles.EVENT: roles.decode_applied_role,
}


def _description(name: str, message: Message) -> str | None:
    """What to show of a message that a peer got. Every peer gets what is for all of them: it is shown once; forwarded
    events not at all, which say what the event has said."""
    decode_role = _ROLE_DECODERS.get(message.event)
    for_all = decode_role is not None or message.event in (reports.REPORT, ap_reports.REPORT)
    if message.event == reports.FORWARDED or (for_all and name != "/wl_evt_proxy"):
        return None
    receiver = "every peer" if for_all else name
    if decode_role is not None:
        return f"{receiver} gets {message.event}, {len(message.payload)} bytes:\n{decode_role(message.payload)}"
    return f"{receiver} gets {reports.describe(*message)}"


def _folded(lines: Sequence[str]) -> Iterator[str]:
    """Shows once what follows three times or more, also where it is some lines that do."""
    at = 0
    while at < len(lines):
        for length in range(1, 9):
            block = lines[at : at + length]
            times = 1
            while lines[at + times * length : at + (times + 1) * length] == block:
                times += 1
            if times > 2:
                break
        else:
            block, times = lines[at : at + 1], 1
        yield from block
        if times > 1:
            yield f"... {times - 1} more like " + ("it" if len(block) == 1 else f"these {len(block)}")
        at += times * len(block)


def show_all(label: str, texts: Iterable[str | None]) -> None:
    for line in _folded([text for text in texts if text]):
        show(label, line)


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
        news = filter(_worth_showing, records[self._shown :])
        show_all("log", [f"{record.function}: {record.message}" for record in news])
        self._shown = len(records)
        for name, peer in self.ap.peers.items():
            show_all("bus", [_description(name, message) for message in self._new_of(name, peer.messages)])
        if self.agent is not None:
            packets = self._new_of("agent", self.agent.received)
            show_all("agent", [f"gets {describe_packet(packet)}" for packet in packets])
        if self.neighbour is not None:
            lines = self._new_of("neighbour", self.neighbour.lines)
            show_all("AP 2", [line.replace("; ", "\n") for line in lines])

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
