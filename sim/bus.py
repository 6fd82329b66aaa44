"""The event bus as a peer of the daemon sees it: POSIX message queues, one for each process of the access point.

A message is an event's name, a NUL and the payload. Nothing here is shared with the daemon's own code, so that the two
check each other.

As a command: python3 -m sim.bus list | send NAME [HEX] [--queue QUEUE] | listen QUEUE
"""

from __future__ import annotations

import argparse
import ctypes
import errno
import os
import select
import sys
import time
from typing import NamedTuple

from sim.background import Drain
from sim.events import INDICES
from sim.reports import describe

DAEMON = "/wl_evt_handler"
MESSAGE_SIZES = {
    "/wl_evt_proxy": 2056,
    "/example1": 2048,
    "/splashd": 2048,
    "/sensord": 2048,
    "/hostapd": 2048,
    "/wgd": 2048,
    DAEMON: 2048,
    "/wl_simulator": 2056,
}
# An ordinary machine allows 10 messages a queue and 819200 bytes for all queues of a user.
DEPTH = 8


class _Attributes(ctypes.Structure):
    _fields_ = [
        ("flags", ctypes.c_long),
        ("depth", ctypes.c_long),
        ("message_size", ctypes.c_long),
        ("messages", ctypes.c_long),
        ("reserved", ctypes.c_long * 4),
    ]


_libc = ctypes.CDLL(None, use_errno=True)
_libc.mq_open.argtypes = [ctypes.c_char_p, ctypes.c_int, ctypes.c_uint, ctypes.POINTER(_Attributes)]
_libc.mq_getattr.argtypes = [ctypes.c_int, ctypes.POINTER(_Attributes)]
_libc.mq_send.argtypes = [ctypes.c_int, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_uint]
_libc.mq_receive.argtypes = [ctypes.c_int, ctypes.c_char_p, ctypes.c_size_t, ctypes.POINTER(ctypes.c_uint)]
_libc.mq_receive.restype = ctypes.c_ssize_t
_libc.mq_unlink.argtypes = [ctypes.c_char_p]


def _checked(result: int, name: str) -> int:
    if result < 0:
        code = ctypes.get_errno()
        raise OSError(code, os.strerror(code), name)
    return result


class Queue:
    """An open message queue; never blocks by itself."""

    def __init__(self, name: str, *, create: bool = False, depth: int = DEPTH, message_size: int | None = None):
        self.name = name
        attributes = _Attributes(depth=depth, message_size=message_size or MESSAGE_SIZES.get(name, 2048))
        flags = os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC | (os.O_CREAT if create else 0)
        self._descriptor = _checked(_libc.mq_open(name.encode(), flags, 0o777, ctypes.byref(attributes)), name)
        self.depth = self._attributes().depth
        self.message_size = self._attributes().message_size

    def _attributes(self) -> _Attributes:
        attributes = _Attributes()
        _checked(_libc.mq_getattr(self._descriptor, ctypes.byref(attributes)), self.name)
        return attributes

    def fileno(self) -> int:
        return self._descriptor

    @property
    def waiting(self) -> int:
        """Number of messages that nobody has read yet."""
        return self._attributes().messages

    def send(self, message: bytes, limit: float = 0) -> None:
        """Sends, waiting up to `limit` seconds for room. BlockingIOError when there is none."""
        deadline = time.monotonic() + limit
        while True:
            try:
                _checked(_libc.mq_send(self._descriptor, message, len(message), 0), self.name)
                return
            except BlockingIOError:
                left = deadline - time.monotonic()
                if left <= 0:
                    raise
                select.select([], [self], [], left)

    def receive(self) -> bytes | None:
        """The next message, or None when there is none."""
        buffer = ctypes.create_string_buffer(self.message_size)
        try:
            size = _checked(_libc.mq_receive(self._descriptor, buffer, self.message_size, None), self.name)
        except BlockingIOError:
            return None
        return buffer.raw[:size]

    def close(self) -> None:
        os.close(self._descriptor)

    def __enter__(self) -> Queue:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def exists(name: str) -> bool:
    try:
        Queue(name).close()
    except FileNotFoundError:
        return False
    return True


def existing_queues() -> list[str]:
    return [name for name in MESSAGE_SIZES if exists(name)]


def unlink(name: str) -> None:
    """Removes a queue's name; no matter if there is none."""
    if _libc.mq_unlink(name.encode()) < 0 and ctypes.get_errno() != errno.ENOENT:
        _checked(-1, name)


def unlink_all() -> None:
    for name in MESSAGE_SIZES:
        unlink(name)


class Message(NamedTuple):
    event: str
    payload: bytes


def encode(event: str, payload: bytes = b"") -> bytes:
    return event.encode() + b"\0" + payload


def decode(message: bytes) -> Message:
    event, _, payload = message.partition(b"\0")
    return Message(event.decode(errors="replace"), payload)


def send_event(event: str, payload: bytes = b"", *, queue: str = DAEMON, limit: float = 10) -> None:
    """Sends an event to one process, waiting up to `limit` seconds for room in its queue."""
    with Queue(queue) as target:
        target.send(encode(event, payload), limit)


class Peer:
    """Plays another process of the access point: owns its queue and collects what reaches it.

    With `drain` false nothing is read, so that the queue fills up; `queue.receive` reads by hand.
    """

    def __init__(self, name: str, *, depth: int = DEPTH, drain: bool = True):
        self.name = name
        self.queue = Queue(name, create=True, depth=depth)
        self._drain = Drain(self.queue, self._next) if drain else None

    def _next(self) -> Message | None:
        message = self.queue.receive()
        return None if message is None else decode(message)

    @property
    def messages(self) -> list[Message]:
        """Everything received so far, oldest first."""
        return self._drain.items if self._drain else []

    def close(self) -> None:
        """Leaves the bus; the queue is removed."""
        if self._drain:
            self._drain.stop()
        self.queue.close()
        unlink(self.name)


def _listen(name: str) -> None:
    peer = Peer(name, drain=False)
    try:
        while True:
            select.select([peer.queue], [], [])
            message = peer.queue.receive()
            if message is not None:
                print(describe(*decode(message)), flush=True)
    finally:
        peer.close()


def _event(text: str) -> str:
    if text not in INDICES:
        raise argparse.ArgumentTypeError(f'no event of that name: "{text}"')
    return text


def _hexadecimal(text: str) -> bytes:
    try:
        return bytes.fromhex(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f'no pairs of hexadecimal digits: "{text}"') from None


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m sim.bus", description="Talks on the event bus.")
    commands = parser.add_subparsers(dest="command", required=True)
    commands.add_parser("list", help="the queues that exist, with the messages that wait in them")
    send = commands.add_parser("send", help="send an event to a process (the daemon)")
    send.add_argument("event", type=_event)
    send.add_argument("payload", nargs="?", type=_hexadecimal, default=b"", help="in hexadecimal digits")
    send.add_argument("--queue", default=DAEMON)
    listen = commands.add_parser("listen", help="create a process's queue and print what reaches it")
    listen.add_argument("queue", choices=[name for name in MESSAGE_SIZES if name != DAEMON])
    arguments = parser.parse_args()

    if arguments.command == "list":
        for name in existing_queues():
            with Queue(name) as queue:
                print(f"{name}: {queue.waiting} of {queue.depth} messages of up to {queue.message_size} bytes")
    elif arguments.command == "send":
        send_event(arguments.event, arguments.payload, queue=arguments.queue)
    else:
        _listen(arguments.queue)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except OSError as failure:
        sys.exit(f"{failure.filename}: {failure.strerror}")
    except KeyboardInterrupt:
        sys.exit(130)
