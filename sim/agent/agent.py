"""The synchronisation agent of an access point: answers registrations, keeps what the daemon sends, and relays between
the daemon and the agent of a neighbour.

    with Agent() as agent:
        agent.answers.append(REFUSE)           # of the next registration
        agent.wait_for(packets.REGISTER)
        agent.ask_for_clients("Lobby")
        agent.wait_for(packets.CLIENT_INFO, 2)
"""

from __future__ import annotations

import os
import select
import socket
import threading
from collections import deque
from dataclasses import replace
from types import TracebackType

from sim.agent import packets
from sim.agent.connection import Connection, listen
from sim.agent.packets import Malformed, Packet
from sim.background import DEFAULT_LIMIT, wait_until
from sim.events import mac_bytes

ACCEPT, REFUSE, IGNORE = "accept", "refuse", "ignore"
_ANSWER_TYPE = {ACCEPT: packets.REGISTERED, REFUSE: packets.REFUSED}
_FOR_NEIGHBOURS = (packets.PORTAL_LOGIN, packets.CLIENT_INFO, packets.INTER_AP)


class Agent:
    """Everything the daemon sends is in `received`, what neighbours send in `from_neighbour`, oldest first.

    answers        of the next registrations, whatever their SSID; when it is empty, that of the SSID
    answer_for     of an SSID; others are accepted
    malformed      what the daemon has sent against the rules
    """

    def __init__(self, mac: str = "02:00:00:00:0a:01"):
        self.mac = mac_bytes(mac)
        self.answers: deque[str] = deque()
        self.answer_for: dict[str, str] = {}
        self.received: list[Packet] = []
        self.from_neighbour: list[Packet] = []
        self.malformed: list[str] = []
        self.registered: set[str] = set()
        self.connections = 0
        self._daemon: Connection | None = None
        self._neighbour: Connection | None = None
        self._listener: socket.socket | None = None
        self._reading = True
        self.start()

    def __enter__(self) -> Agent:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, at: TracebackType | None) -> None:
        self.close()

    # The agent's life

    def start(self) -> None:
        if self._listener is not None:
            return
        self._listener = listen()
        self._woken, self._wake = os.pipe()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def stop(self) -> None:
        """Ends the agent as a crash would: nobody is told. The link to the neighbour stays, for the next start."""
        if self._listener is None:
            return
        os.close(self._wake)
        self._thread.join()
        os.close(self._woken)
        self._listener.close()
        self._listener = None
        self._forget_daemon()

    def restart(self) -> None:
        self.stop()
        self.start()

    def close(self) -> None:
        self.stop()
        if self._neighbour is not None:
            self._neighbour.close()
            self._neighbour = None

    def link(self, neighbour: Connection) -> None:
        """Relays to and from another agent from now on."""
        self._neighbour = neighbour
        self._look_again()

    def read_nothing(self) -> None:
        """Keeps the connection and leaves alone what the daemon sends."""
        self._reading = False
        self._look_again()

    def read_again(self) -> None:
        self._reading = True
        self._look_again()

    def _look_again(self) -> None:
        os.write(self._wake, b".")

    # What the agent says

    def send(self, packet: Packet) -> None:
        """Sends to the daemon; nothing when none is connected."""
        if self._daemon is not None:
            self._daemon.send(packet)

    def ask_for_clients(self, ssid: str) -> None:
        """Asks the daemon as a neighbour would."""
        self.send(packets.request(ssid, self.mac))

    def report_neighbours_changed(self) -> None:
        self.send(Packet(packets.NEIGHBOURS_CHANGED))

    # What the agent hears

    def of_type(self, kind: int, subtype: int | None = None) -> list[Packet]:
        """What the daemon has sent of a type."""
        return [packet for packet in self.received if packet.type == kind and subtype in (None, packet.subtype)]

    def wait_for(
        self, kind: int, subtype: int | None = None, *, count: int = 1, limit: float = DEFAULT_LIMIT
    ) -> list[Packet]:
        """Waits until the daemon has sent `count` packets of a type and gives them."""

        def enough() -> list[Packet] | None:
            found = self.of_type(kind, subtype)
            return found if len(found) >= count else None

        return wait_until(enough, f"{count} packets of type {kind}", limit) or []

    def _run(self) -> None:
        while True:
            ready = select.select(self._sources(), [], [])[0]
            if self._woken in ready and not os.read(self._woken, 1):
                return
            if self._listener in ready:
                self._accept()
            elif self._daemon in ready:
                self._hear_daemon()
            elif self._neighbour in ready:
                self._hear_neighbour()

    def _sources(self) -> list[object]:
        daemon = self._daemon if self._reading else None
        return [source for source in (self._woken, self._listener, daemon, self._neighbour) if source is not None]

    def _accept(self) -> None:
        assert self._listener is not None
        self._forget_daemon()
        self._daemon = Connection(self._listener.accept()[0])
        self.connections += 1

    def _forget_daemon(self) -> None:
        self.registered.clear()
        if self._daemon is not None:
            self._daemon.close()
            self._daemon = None

    def _hear_daemon(self) -> None:
        assert self._daemon is not None
        try:
            for packet in self._daemon.read():
                self.received.append(packet)
                self._check(packet)
                self._act(packet)
        except Malformed as fault:
            self.malformed.append(str(fault))
            self._forget_daemon()
        except (EOFError, OSError):
            self._forget_daemon()

    def _check(self, packet: Packet) -> None:
        try:
            packets.check(packet)
        except Malformed as fault:
            self.malformed.append(str(fault))

    def _act(self, packet: Packet) -> None:
        if packet.type == packets.REGISTER:
            self._answer(packet)
        elif packet.type == packets.UNREGISTER:
            self.registered.discard(packet.ssid)
        elif packet.type in _FOR_NEIGHBOURS and self._neighbour is not None:
            is_request = (packet.type, packet.subtype) == (packets.CLIENT_INFO, 1)
            self._neighbour.send(replace(packet, mac=self.mac) if is_request else packet)

    def _answer(self, registration: Packet) -> None:
        ssid = registration.ssid
        answer = self.answers.popleft() if self.answers else self.answer_for.get(ssid, ACCEPT)
        if answer == ACCEPT:
            self.registered.add(ssid)
        if answer != IGNORE:
            self.send(Packet(_ANSWER_TYPE[answer], appid=registration.appid))

    def _hear_neighbour(self) -> None:
        assert self._neighbour is not None
        try:
            for packet in self._neighbour.read():
                self.from_neighbour.append(packet)
                if (packet.type, packet.subtype) == (packets.CLIENT_INFO, 1) and packet.ssid in self.registered:
                    self.send(packet)
        except (EOFError, OSError):
            self._neighbour.close()
            self._neighbour = None
