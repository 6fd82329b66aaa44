"""One end of a connection that carries packets, used by hand: nothing is sent or received unless it is asked for."""

from __future__ import annotations

import socket
import struct
import time
from types import TracebackType

from sim.agent.packets import Packet, Stream, check
from sim.background import DEFAULT_LIMIT, wait_until

ADDRESS = ("127.0.0.1", 12345)


def listen(address: tuple[str, int] = ADDRESS) -> socket.socket:
    """A socket that daemons can connect to."""
    return socket.create_server(address)


def accept(listener: socket.socket, limit: float = DEFAULT_LIMIT) -> Connection:
    """Waits for the next daemon to connect. TimeoutError when none does."""
    listener.settimeout(limit)
    return Connection(listener.accept()[0])


def _kernel_s(address: tuple[str, int]) -> str:
    """An IPv4 address as /proc/net/tcp writes it: the number as this machine holds it in memory."""
    (number,) = struct.unpack("=I", socket.inet_aton(address[0]))
    return f"{number:08X}:{address[1]:04X}"


class Connection:
    def __init__(self, stream: socket.socket):
        self.socket = stream
        self.socket.settimeout(DEFAULT_LIMIT)
        if stream.family == socket.AF_INET:
            stream.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._stream = Stream()
        self._received: list[Packet] = []

    def __enter__(self) -> Connection:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, at: TracebackType | None) -> None:
        self.close()

    def fileno(self) -> int:
        return self.socket.fileno()

    def send(self, data: Packet | bytes) -> None:
        self.socket.sendall(data if isinstance(data, bytes) else data.encode())

    def send_byte_by_byte(self, data: Packet | bytes) -> None:
        """Sends each byte only when the other side has read the one before."""
        for byte in data if isinstance(data, bytes) else data.encode():
            self.socket.sendall(bytes([byte]))
            wait_until(lambda: self.unread() == 0, "a byte to be read")

    def unread(self) -> int:
        """Bytes that have arrived at the other side and that it has not read; 0 also when it is gone."""
        ours, theirs = _kernel_s(self.socket.getsockname()), _kernel_s(self.socket.getpeername())
        with open("/proc/net/tcp", encoding="ascii") as table:
            for fields in map(str.split, table):
                if fields[1:3] == [theirs, ours]:
                    return int(fields[4].partition(":")[2], 16)
        return 0

    def read(self) -> list[Packet]:
        """Reads what is there, waiting until something is, and gives the packets that are complete now. EOFError when
        the other side has closed the connection."""
        data = self.socket.recv(65536)
        if not data:
            raise EOFError("the connection is closed")
        return list(self._stream.feed(data))

    def receive(self, limit: float = DEFAULT_LIMIT) -> Packet:
        """Waits for the daemon's next packet. TimeoutError when none comes, Malformed when it may not send such."""
        self.socket.settimeout(limit)
        while not self._received:
            self._received = self.read()
        packet = self._received.pop(0)
        check(packet)
        return packet

    def is_dropped(self, limit: float = DEFAULT_LIMIT) -> bool:
        """Waits until the other side has closed the connection, reading what still comes; false when it has not."""
        deadline = time.monotonic() + limit
        try:
            while (left := deadline - time.monotonic()) > 0:
                self.receive(left)
        except (EOFError, ConnectionError):
            return True
        except TimeoutError:
            pass
        return False

    def close(self) -> None:
        self.socket.close()
