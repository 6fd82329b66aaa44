"""The programs that the daemon runs for its clients: what they were asked to do, and what became of them."""

from __future__ import annotations

from typing import NamedTuple

from sim import processes

IWPRIV = "/opt/ap/bin/iwpriv"
IWPRIV_RECORD = "/tmp/sim/iwpriv.record"
TARGET_RECORD = "/tmp/sim/cl_test_target.record"
TARGET_LOG = "/tmp/target_ap_log"


def _lines(path: str) -> list[str]:
    """The whole lines of a file that may be growing."""
    try:
        with open(path, encoding="utf-8") as file:
            return file.read().split("\n")[:-1]
    except FileNotFoundError:
        return []


def kicks() -> list[str]:
    """The arguments of each run of "iwpriv" so far."""
    return _lines(IWPRIV_RECORD)


class Target(NamedTuple):
    """A run of the traffic test's script."""

    pid: int
    arguments: str
    terminated: bool

    @property
    def runs(self) -> bool:
        return bool(processes.command_line(self.pid))


def targets() -> list[Target]:
    """The runs of the traffic test's script so far, oldest first."""
    lines = [line.split(" ", 2) for line in _lines(TARGET_RECORD)]
    ended = {words[1] for words in lines if words[0] == "end"}
    return [Target(int(words[1]), words[2], words[1] in ended) for words in lines if words[0] == "start"]
