"""The reload tool: sends the daemon a command and waits for the reply.

As a command: python3 -m sim.reload [--limit SECONDS] TEXT
"""

from __future__ import annotations

import argparse
import os
import socket
import sys

DAEMON_PATH = "/tmp/wl_evt_handler_reload_cli_socket"
REPLY_PATH = "/tmp/reload_cli_rx_socket"


class ReloadTool:
    """Owns the socket that replies come to; one at a time."""

    def __init__(self) -> None:
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(REPLY_PATH)

    def send(self, command: bytes) -> None:
        self._socket.sendto(command, DAEMON_PATH)

    def reply(self, limit: float) -> bytes | None:
        """The next reply, or None when none came within `limit` seconds."""
        self._socket.settimeout(limit)
        try:
            return self._socket.recv(256)
        except (TimeoutError, BlockingIOError):
            return None

    def close(self) -> None:
        self._socket.close()
        os.unlink(REPLY_PATH)

    def __enter__(self) -> ReloadTool:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def ask(command: str, limit: float) -> bytes | None:
    """Sends a command and gives the reply, or None when none came within `limit` seconds."""
    with ReloadTool() as tool:
        tool.send(command.encode())
        return tool.reply(limit)


def text(reply: bytes) -> str:
    """A reply for people, without its NUL."""
    return reply.rstrip(b"\0").decode(errors="replace")


def send(command: bytes) -> None:
    """Sends a command that has no reply."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.sendto(command, DAEMON_PATH)


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m sim.reload", description="Sends the daemon a reload command.")
    parser.add_argument("command", help='for example "APPL_SANITY_TEST " or "7 SET_DEBUG_LEVEL"')
    parser.add_argument("--limit", type=float, default=1, help="seconds to wait for a reply (1)")
    arguments = parser.parse_args()
    reply = ask(arguments.command, arguments.limit)
    print("no reply" if reply is None else f'"{text(reply)}"')
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except OSError as failure:
        sys.exit(f"cannot send the command: {failure.strerror}")
