"""What a scenario plays on: it acts on the access point, shows what the daemon does and counts what is as expected."""

from __future__ import annotations

import os
import sys

from sim import reload
from sim.access_point import AccessPoint, LogRecord
from sim.events import describe
from sim.wireless import Wireless

LIMIT = 10.0
_SANITY_TEST = "APPL_SANITY_TEST "

_COLOURS = {"send": "36", "bus": "35", "reply": "35", "file": "35", "log": "2", "ok": "32", "FAILED": "1;31"}


def _worth_showing(record: LogRecord) -> bool:
    """Leaves out what is said at every turn while there is no synchronisation agent, and our own waiting."""
    return record.function != "init_synch_sock" and f"[{_SANITY_TEST}]" not in record.message


def show(label: str, text: str) -> None:
    """Prints one line; further lines of the text are indented."""
    shown = f"{label:>6}"
    if sys.stdout.isatty():
        shown = f"\033[{_COLOURS[label]}m{shown}\033[0m"
    body = text.rstrip("\n").replace("\n", "\n" + " " * 10)
    print(f"  {shown}  {body}", flush=True)


class Stage:
    def __init__(self, access_point: AccessPoint, wireless: Wireless):
        self.ap = access_point
        self.wireless = wireless
        self.met = 0
        self.failed = 0
        self.sent = 0
        self._scenes = 0
        self._scene_start = 0
        self._shown = 0
        self._shown_messages: dict[str, int] = {}

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
            messages = list(peer.messages)
            for message in messages[self._shown_messages.get(name, 0) :]:
                show("bus", f"{name} gets {describe(*message)}")
            self._shown_messages[name] = len(messages)

    def show_file(self, path: str) -> None:
        if os.path.exists(path):
            with open(path, encoding="utf-8", errors="replace") as file:
                show("file", f"{path}\n{file.read()}")
        else:
            show("file", f"{path} does not exist")

    def summary(self) -> str:
        outcome = "all as expected" if self.failed == 0 else f"{self.failed} NOT AS EXPECTED"
        return f"{self._scenes} scenes, {self.sent} events sent, {self.met + self.failed} expectations: {outcome}"
