"""The processes of this access point, as /proc shows them."""

from __future__ import annotations

import os


def running() -> list[int]:
    return [int(entry) for entry in os.listdir("/proc") if entry.isdigit()]


def _read(pid: int, name: str) -> str:
    try:
        with open(f"/proc/{pid}/{name}", encoding="utf-8", errors="replace") as file:
            return file.read()
    except (FileNotFoundError, ProcessLookupError):
        return ""


def parent_of(pid: int) -> int:
    """The parent's id; 0 when the process is gone."""
    fields = _read(pid, "stat").rpartition(")")[2].split()
    return int(fields[1]) if fields else 0


def session_of(pid: int) -> int:
    """The session's id; 0 when the process is gone."""
    fields = _read(pid, "stat").rpartition(")")[2].split()
    return int(fields[3]) if fields else 0


def command_line(pid: int) -> list[str]:
    """The words of the command; empty when the process is gone or has ended."""
    return _read(pid, "cmdline").split("\0")[:-1]


def open_files(pid: int) -> list[str]:
    """What the descriptors of a process lead to; a message queue is named by its bare name."""
    found = []
    try:
        for descriptor in os.listdir(f"/proc/{pid}/fd"):
            found.append(os.readlink(f"/proc/{pid}/fd/{descriptor}"))
    except (FileNotFoundError, ProcessLookupError):
        pass
    return found


def is_stopped(pid: int) -> bool:
    """Whether every thread of a process has been stopped by a signal."""
    threads = os.listdir(f"/proc/{pid}/task")
    return all(_read(pid, f"task/{thread}/stat").rpartition(")")[2].split()[:1] == ["T"] for thread in threads)
