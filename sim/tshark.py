"""What tshark, with the dissector of tools/, makes of packets between the daemon and the synch agent.

The packets are captured while they travel, or written to a capture file without ever having done so.
"""

from __future__ import annotations

import os
import signal
import struct
import subprocess
from collections.abc import Iterable, Iterator, Sequence
from contextlib import contextmanager

from sim.background import DEFAULT_LIMIT, wait_until

AGENT_PORT = 12345
DISSECTOR = os.path.join(os.path.dirname(__file__), "..", "tools", "synch_agent.lua")

_LINKTYPE_ETHERNET = 1
_BETWEEN_VALUES = "\x1f"


def write_capture(
    path: str, conversations: Iterable[Iterable[bytes]], *, from_agent: bool = False, snapshot: int = 65535
) -> None:
    """Writes a capture file of TCP conversations, each given as the contents of its segments in one direction.

    snapshot  how many bytes of a frame are kept
    """
    with open(path, "wb") as file:
        file.write(struct.pack(">IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, snapshot, _LINKTYPE_ETHERNET))
        time = 0
        for port, segments in enumerate(conversations, start=40000):
            sequence = 1
            for segment in segments:
                ports = (AGENT_PORT, port) if from_agent else (port, AGENT_PORT)
                frame = _frame(ports, sequence, segment)
                file.write(struct.pack(">IIII", time, 0, min(len(frame), snapshot), len(frame)) + frame[:snapshot])
                sequence += len(segment)
                time += 1


def _frame(ports: tuple[int, int], sequence: int, segment: bytes) -> bytes:
    loopback = bytes([127, 0, 0, 1])
    push_and_acknowledge, no_checksum = 0x18, 0
    tcp = struct.pack(">HHIIBBHHH", *ports, sequence, 1, 5 << 4, push_and_acknowledge, 8192, no_checksum, 0)
    length = 20 + len(tcp) + len(segment)
    ip = struct.pack(">BBHHHBBH", 0x45, 0, length, 0, 0, 64, 6, no_checksum) + loopback * 2
    return bytes(12) + b"\x08\x00" + ip + tcp + segment


def fields(
    path: str, *names: str, only: str = "synch_agent", options: Sequence[str] = ()
) -> list[tuple[list[str], ...]]:
    """The values of some fields, for each frame that has a packet: for each field a list of its values in the frame.

    only     a display filter: which frames
    options  more of tshark's
    """
    wanted = [word for name in ("frame.number", *names) for word in ("-e", name)]
    layout = ("-T", "fields", "-E", f"aggregator={_BETWEEN_VALUES}", "-Y", only)
    rows = [line.split("\t")[1:] for line in run(path, *layout, *options, *wanted).split("\n")[:-1]]
    return [tuple(value.split(_BETWEEN_VALUES) if value else [] for value in row) for row in rows]


def run(path: str, *options: str) -> str:
    """Runs tshark on a capture file and gives what it prints. A dissector that does not load or fails is an error."""
    command = ["tshark", "-X", f"lua_script:{DISSECTOR}", "-r", path, *options]
    # Nobody's own preferences and scripts.
    environment = {**os.environ, "WIRESHARK_CONFIG_DIR": "/tmp/wireshark", "LC_ALL": "C.UTF-8"}
    done = subprocess.run(command, capture_output=True, check=False, timeout=60, env=environment)
    complaints, printed = done.stderr.decode(), done.stdout.decode()
    if done.returncode != 0 or "Lua" in complaints or "Lua Error" in printed:
        raise RuntimeError(f"tshark exited with {done.returncode}: {complaints}{printed}")
    return printed


@contextmanager
def capturing(
    path: str, device: str = "lo", only: str = f"tcp port {AGENT_PORT}", count: int | None = None
) -> Iterator[None]:
    """Captures what travels between the daemon and the agent, from now until the end of the `with` block.

    device, only  another place to listen at, and a capture filter: what there
    count         how many frames; the end of the `with` block waits for them
    """
    command = ["dumpcap", "-q", "-i", device, "-f", only, "-w", path, *(["-c", str(count)] if count else [])]
    messages = f"{path}.messages"
    with open(messages, "wb") as file:
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=file)

    def captures() -> bool:
        if process.poll() is not None:
            raise RuntimeError(f"dumpcap ended: {_read(messages)}")
        return "File: " in _read(messages)

    try:
        wait_until(captures, "a capture that has begun")
        yield
        if count:
            process.wait(DEFAULT_LIMIT)
    finally:
        process.send_signal(signal.SIGINT)
        process.wait(DEFAULT_LIMIT)


def _read(path: str) -> str:
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()
