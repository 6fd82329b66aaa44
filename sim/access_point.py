"""A whole access point around one daemon, to be used inside the sandbox.

    with AccessPoint(["build/release/wl_evt_handler"]) as ap:
        ap.send_event("VRE.bw.events", coded(0, u16(7)))
        ap.wait_for_log("Setting debug level to WL_DBG_DEBUG")

Whatever is waited for is waited for until it is there, with a limit. What the daemon leaves behind is removed at the
end of the `with` block; files that it shall find are written before.
"""

from __future__ import annotations

import os
import re
import shutil
import signal
import subprocess
from collections.abc import Callable, Iterable, Iterator, Sequence
from contextlib import contextmanager, suppress
from typing import NamedTuple

from sim import bus, fixed_paths, processes, reload
from sim.background import DEFAULT_LIMIT, wait_until
from sim.syslog_collector import SyslogCollector, SyslogLine

ROOT_FILES = os.path.join(os.path.dirname(__file__), "rootfs")
PROGRAMS = "/opt/ap/bin"  # of sim/rootfs, which the daemon shall find before the machine's own
LOG = "/tmp/wl.log"
CRASH_RECORD = "/opt/sensor/stacktrace_wl_evt_handler"
APP_VISIBILITY = "/dev/app_visibility"
SANITIZER_REPORTS = "/tmp/wl_sanitizer"
_SANITIZER_OPTIONS = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS")
_LOG_PREFIX = re.compile(r"^(\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d) pid\[(\d+)\] (\w+): ", re.MULTILINE)


class LogRecord(NamedTuple):
    time: str
    pid: int
    function: str
    message: str


def parse_log(text: str) -> list[LogRecord]:
    """Takes the debug log apart; a message may span lines."""
    starts = list(_LOG_PREFIX.finditer(text))
    ends = [start.start() for start in starts[1:]] + [len(text)]
    return [
        LogRecord(start[1], int(start[2]), start[3], text[start.end() : end].removesuffix("\n"))
        for start, end in zip(starts, ends)
    ]


def install_root_files() -> None:
    """Puts the files of sim/rootfs where an access point has them; what is there already stays."""
    for folder, _, names in os.walk(ROOT_FILES):
        place = os.path.join("/", os.path.relpath(folder, ROOT_FILES))
        os.makedirs(place, exist_ok=True)
        for name in names:
            if not os.path.exists(os.path.join(place, name)):
                shutil.copy(os.path.join(folder, name), place)


def make_app_visibility() -> None:
    """Makes the device of the kernel's traffic module, for which the daemon waits for ever. The simulated driver
    answers the requests on it, without the driver they fail."""
    with open(APP_VISIBILITY, "wb"):
        pass


def _sanitizers_report_to_files() -> dict[str, str]:
    """The daemon's standard error is /dev/null, where a report would be lost."""
    report = f"log_path={SANITIZER_REPORTS}"
    return {name: ":".join(filter(None, (os.environ.get(name), report))) for name in _SANITIZER_OPTIONS}


class AccessPoint:
    """The daemon's surroundings and, between start() and stop(), the daemon.

    command     the daemon, with whatever runs it: ["qemu-mips", "-L", "/usr/mips-linux-gnu", ".../wl_evt_handler"]
    arguments   the daemon's own arguments; the default names the log file that the log methods read
    peers       queues of the processes that shall be there
    """

    def __init__(
        self,
        command: Sequence[str],
        *,
        arguments: Sequence[str] = ("-l", LOG),
        peers: Iterable[str] = ("/sensord", "/wl_evt_proxy"),
    ):
        if "WL_IN_SANDBOX" not in os.environ:
            raise RuntimeError("the access point runs inside sim/sandbox only")
        self.command = [*command, *arguments]
        self._peers_at_start = tuple(peers)
        self.peers: dict[str, bus.Peer] = {}
        self._sessions: set[int] = set()  # of the daemons so far

    def __enter__(self) -> AccessPoint:
        install_root_files()
        make_app_visibility()
        self._syslog = SyslogCollector()
        for name in self._peers_at_start:
            self.add_peer(name)
        try:
            self.start()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, kind: object, *_: object) -> None:
        if kind is not None:
            print(f"--- {LOG}\n{self.log_text()}---")
        reports = self.close()
        if reports and kind is None:
            raise AssertionError(reports)

    def close(self) -> str:
        """Ends everything and removes what is left of it. Result: what sanitizers had to report."""
        self.stop()
        self._end_commands()
        for peer in self.peers.values():
            peer.close()
        self.peers.clear()
        self._syslog.close()
        bus.unlink(bus.DAEMON)
        reports = self.sanitizer_reports()
        fixed_paths.remove_all()
        return reports

    # The daemon's process

    def start(self, *, until: Callable[[], object] | None = None, limit: float = DEFAULT_LIMIT) -> None:
        """Starts the daemon and waits until it has detached and serves its queue, or until the condition holds."""
        path = f"{PROGRAMS}:{os.environ.get('PATH', os.defpath)}"
        environment = {**os.environ, "PATH": path, **_sanitizers_report_to_files()}
        launched = subprocess.run(
            self.command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=limit, check=False
        )
        if launched.returncode != 0:
            raise RuntimeError(f"{self.command[0]} exited with {launched.returncode}: {launched.stdout.decode()}")
        wait_until(until or self.serves_queue, "a daemon that serves its queue", limit)
        self._sessions.update(processes.session_of(pid) for pid in self.processes())

    def serves_queue(self) -> bool:
        """Whether the daemon has opened its queue, which is the last thing that it opens when it starts."""
        found = self.processes()
        return len(found) == 1 and bus.DAEMON in processes.open_files(found[0])

    def processes(self) -> list[int]:
        """The daemon's processes: one, but for the instant of detaching or of starting a command."""
        found = []
        for pid in processes.running():
            words = processes.command_line(pid)
            # A program that only prepares and then becomes the daemon is gone from the front of the command.
            if words and words == self.command[-len(words) :]:
                found.append(pid)
        return found

    @property
    def alive(self) -> bool:
        return bool(self.processes())

    @property
    def pid(self) -> int:
        found = self.processes()
        (pid,) = (pid for pid in found if processes.parent_of(pid) not in found)
        return pid

    def stop(self, limit: float = DEFAULT_LIMIT) -> None:
        """Kills the daemon and waits until it is gone; nothing that it left is removed."""
        for pid in self.processes():
            os.kill(pid, signal.SIGKILL)
        self.wait_until_gone(limit)

    def _end_commands(self) -> None:
        """Ends the shell commands that a daemon has started: they outlive it and may write meanwhile."""
        sessions = self._sessions - {0, os.getsid(0)}  # 0: of another sandbox

        def all_ended() -> bool:
            commands = [pid for pid in processes.running() if processes.session_of(pid) in sessions]
            commands = [pid for pid in commands if processes.command_line(pid)]
            for pid in commands:
                with suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGKILL)
            return not commands

        wait_until(all_ended, "the end of the daemon's commands")

    @contextmanager
    def held(self, limit: float = DEFAULT_LIMIT) -> Iterator[None]:
        """Lets the daemon do nothing meanwhile; what comes to it then, comes at once for it afterwards."""
        pid = self.pid
        os.kill(pid, signal.SIGSTOP)
        try:
            wait_until(lambda: processes.is_stopped(pid), "a daemon that stands still", limit)
            yield
        finally:
            os.kill(pid, signal.SIGCONT)

    def wait_until_gone(self, limit: float = DEFAULT_LIMIT) -> None:
        wait_until(lambda: not self.processes(), "the end of the daemon", limit)

    def sanitizer_reports(self) -> str:
        reports = [path for path in fixed_paths.present() if path.startswith(SANITIZER_REPORTS)]
        return "\n".join(_read(path) for path in reports)

    # The event bus

    def add_peer(self, name: str, *, drain: bool = True) -> bus.Peer:
        """Lets another process of the access point join the bus."""
        self.peers[name] = bus.Peer(name, drain=drain)
        return self.peers[name]

    def send_event(self, event: str, payload: bytes = b"") -> None:
        bus.send_event(event, payload)

    def published(self, event: str, peer: str = "/wl_evt_proxy") -> list[bytes]:
        """The payloads of an event that reached a peer so far, oldest first."""
        return [message.payload for message in self.peers[peer].messages if message.event == event]

    def wait_for_published(
        self, event: str, peer: str = "/wl_evt_proxy", count: int = 1, limit: float = DEFAULT_LIMIT
    ) -> list[bytes]:
        """Waits until `count` of an event have reached a peer and gives the payloads."""

        def enough() -> list[bytes] | None:
            payloads = self.published(event, peer)
            return payloads if len(payloads) >= count else None

        return wait_until(enough, f"{count} of {event} at {peer}", limit) or []

    def settle(self, limit: float = DEFAULT_LIMIT) -> None:
        """Waits until the daemon has dealt with every event sent so far. ProcessLookupError when it has ended.

        The main loop serves the bus before the reload socket, so with an empty queue an answer there means that the
        last event is done.
        """

        def while_alive(result: object) -> object:
            if not result and not self.alive:
                raise ProcessLookupError("the daemon has ended")
            return result

        with bus.Queue(bus.DAEMON) as queue, reload.ReloadTool() as tool:
            wait_until(lambda: while_alive(queue.waiting == 0), "an empty queue", limit)
            tool.send(b"APPL_SANITY_TEST ")
            wait_until(lambda: while_alive(tool.reply(0.1)), "an answer to a sanity test", limit)

    # The reload channel

    def reload(self, command: str, limit: float = DEFAULT_LIMIT) -> bytes | None:
        """Sends a reload command and gives the reply, or None when none came within `limit` seconds."""
        return reload.ask(command, limit)

    def reload_without_reply(self, command: str | bytes) -> None:
        reload.send(command.encode() if isinstance(command, str) else command)

    # The logs

    def log_text(self) -> str:
        """The debug log with its older generations, oldest first."""
        return "".join(_read(path) for path in (f"{LOG}.3", f"{LOG}.2", f"{LOG}.1", LOG))

    def log(self) -> list[LogRecord]:
        return parse_log(self.log_text())

    def wait_for_log(self, message: str, *, since: int = 0, limit: float = DEFAULT_LIMIT) -> LogRecord:
        """Waits for a record whose message contains the text, leaving out the first `since` records."""
        return self.wait_for_record(lambda record: message in record.message, f'"{message}"', since=since, limit=limit)

    def wait_for_record(
        self, wanted: Callable[[LogRecord], bool], what: str, *, since: int = 0, limit: float = DEFAULT_LIMIT
    ) -> LogRecord:
        def found() -> LogRecord | None:
            return next(filter(wanted, self.log()[since:]), None)

        record = wait_until(found, f"log record {what}", limit)
        assert record is not None
        return record

    @property
    def syslog(self) -> list[SyslogLine]:
        return self._syslog.lines

    def wait_for_syslog(self, text: str, limit: float = DEFAULT_LIMIT) -> SyslogLine:
        """Waits for a line of the system log that contains the text."""

        def found() -> SyslogLine | None:
            return next((line for line in self.syslog if text in line.text), None)

        line = wait_until(found, f'system log "{text}"', limit)
        assert line is not None
        return line


def _read(path: str) -> str:
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except FileNotFoundError:
        return ""
