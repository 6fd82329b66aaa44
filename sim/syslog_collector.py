"""The system log of the access point: takes the lines that processes send to /dev/log."""

from __future__ import annotations

import os
import re
import select
import socket
import time
from typing import NamedTuple

from sim.background import Drain

PATH = "/dev/log"
_LINE = re.compile(
    r"<(?P<priority>\d+)>(?P<time>\w{3} [ \d]\d \d\d:\d\d:\d\d) "
    r"(?:(?P<tag>[^:\[]*?)(?:\[(?P<pid>\d+)\])?: )?(?P<text>.*)",
    re.DOTALL,
)


class SyslogLine(NamedTuple):
    facility: int
    severity: int
    tag: str
    pid: int | None
    text: str


def parse(datagram: bytes) -> SyslogLine:
    """Takes apart what syslog() sends; a datagram of another form is all text, of facility and severity -1."""
    line = datagram.rstrip(b"\0\n").decode(errors="replace")
    match = _LINE.fullmatch(line)
    if match is None:
        return SyslogLine(-1, -1, "", None, line)
    facility, severity = divmod(int(match["priority"]), 8)
    pid = int(match["pid"]) if match["pid"] else None
    return SyslogLine(facility, severity, match["tag"] or "", pid, match["text"])


class SyslogCollector:
    def __init__(self) -> None:
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.setblocking(False)
        self._socket.bind(PATH)
        os.chmod(PATH, 0o666)
        self._drain = Drain(self._socket, self._next)

    def _next(self) -> SyslogLine | None:
        try:
            return parse(self._socket.recv(65536))
        except BlockingIOError:
            return None

    @property
    def lines(self) -> list[SyslogLine]:
        """Everything logged so far, oldest first."""
        while select.select([self._socket], [], [], 0)[0]:  # the thread that reads is late
            time.sleep(0.001)
        return self._drain.items

    def close(self) -> None:
        self._drain.stop()
        self._socket.close()
        os.unlink(PATH)
