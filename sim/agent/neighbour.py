"""A second access point beside the first: a sandbox, a daemon and an agent of its own, linked to the first one's agent.

The two are joined by a pair of interfaces, one end in each network. Where the machine does not allow that, the
neighbour is no more than a far end of the link, over a Unix socket pair.

    python3 -m sim.agent.neighbour SSID COMMAND...     the second access point itself, started by SecondAccessPoint
"""

from __future__ import annotations

import json
import os
import select
import socket
import subprocess
import sys
import threading
from collections.abc import Iterable, Sequence
from typing import Protocol

from sim import links
from sim.access_point import LOG, AccessPoint
from sim.agent import packets
from sim.agent.agent import Agent
from sim.agent.connection import Connection, accept, listen
from sim.background import Drain, wait_until
from sim.profiles import DAEMON_CONFIGURATION, shared, write_daemon_configuration, write_profile

SANDBOX = os.path.join(os.path.dirname(__file__), "..", "sandbox")
STATUS = "/tmp/sim/neighbour.json"
NEAR, FAR = "synch0", "synch1"
NEAR_ADDRESS, FAR_ADDRESS = "192.0.2.1", "192.0.2.2"
PORT = 12346
PROFILE = 3
LIMIT = 10.0
READY, JOIN, CHANGED = "ready", "join", "changed"


class Neighbour(Protocol):
    """What an agent is linked to; `lines` is what it has heard, oldest first."""

    @property
    def lines(self) -> list[str]: ...

    def change_neighbours(self) -> None: ...

    def close(self) -> None: ...


def next_to(agent: Agent, ssid: str, command: Sequence[str]) -> tuple[Neighbour, str]:
    """Links an agent to a neighbour that asks it for the clients of an SSID. The second result says why the neighbour
    is not a whole access point; it is empty when it is."""
    try:
        return SecondAccessPoint(agent, ssid, command), ""
    except OSError as reason:
        return FarEnd(agent, ssid), str(reason)


class SecondAccessPoint:
    """A whole access point with the same daemon. OSError where it cannot be."""

    def __init__(self, agent: Agent, ssid: str, command: Sequence[str]):
        os.makedirs(os.path.dirname(STATUS), exist_ok=True)
        self._process = subprocess.Popen(
            [SANDBOX, sys.executable, "-m", "sim.agent.neighbour", ssid, *command],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            env={**os.environ, "WL_SANDBOX_STATUS": STATUS},
            text=True,
        )
        assert self._process.stdin is not None and self._process.stdout is not None
        self._say, self._hear = self._process.stdin, self._process.stdout
        self.lines: list[str] = []
        self._listening = threading.Thread(target=self._listen, daemon=True)
        try:
            self._join(agent)
        except BaseException:
            self._end()
            raise

    def _join(self, agent: Agent) -> None:
        """Lays the link: one of a pair of interfaces stays here, the other goes there."""
        word = self._hear.readline().strip()
        if word != READY:
            raise OSError(word)
        with open(STATUS, encoding="ascii") as status:
            there = str(json.load(status)["child-pid"])
        if not (links.add_pair(NEAR, FAR) and links.ip("link", "set", FAR, "netns", there)):
            raise OSError("the kernel allows no pair of interfaces between two networks")
        links.ip("address", "add", f"{NEAR_ADDRESS}/30", "dev", NEAR)
        links.set_up(NEAR)
        self._listening.start()
        with listen((NEAR_ADDRESS, PORT)) as listener:
            self._tell(JOIN)
            agent.link(accept(listener, LIMIT))

    def _listen(self) -> None:
        for line in self._hear:
            self.lines.append(line.rstrip("\n"))

    def _tell(self, word: str) -> None:
        print(word, file=self._say, flush=True)

    def change_neighbours(self) -> None:
        self._tell(CHANGED)

    def close(self) -> None:
        """Ends it. AssertionError when it has not gone well, such as when a sanitizer had something to report."""
        if self._end() != 0:
            raise AssertionError("\n".join(self.lines))

    def _end(self) -> int:
        self._say.close()  # the end of its input is its own end
        try:
            return self._process.wait(LIMIT)
        except subprocess.TimeoutExpired:
            self._process.kill()
            return self._process.wait()
        finally:
            links.remove(NEAR)


class FarEnd:
    """The far end of a link alone."""

    def __init__(self, agent: Agent, ssid: str):
        near, far = socket.socketpair()
        agent.link(Connection(near))
        self._ssid = ssid
        self._link = Connection(far)
        self._heard = Drain(self._link, self._read)
        self._link.send(packets.request(ssid, flag=1))

    def _read(self) -> list[packets.Packet] | None:
        try:
            return self._link.read()
        except EOFError:
            return None

    @property
    def lines(self) -> list[str]:
        return [f"from AP 1: {packets.describe(packet)}" for heard in self._heard.items for packet in heard]

    def change_neighbours(self) -> None:
        self._link.send(packets.request(self._ssid, flag=0))

    def close(self) -> None:
        self._heard.stop()
        self._link.close()


def _tell(origin: str, heard: Iterable[packets.Packet]) -> None:
    for packet in heard:
        print(f"{origin}: {packets.describe(packet)}".replace("\n", "; "), flush=True)


def main() -> int:
    ssid, *command = sys.argv[1:]
    write_profile(PROFILE, shared(PROFILE, ssid, ExternalDevice=FAR))
    write_daemon_configuration({PROFILE: ssid})
    print(READY, flush=True)
    if sys.stdin.readline().strip() != JOIN:
        return 1
    wait_until(lambda: links.ip("address", "add", f"{FAR_ADDRESS}/30", "dev", FAR), f"interface {FAR}", LIMIT)
    links.set_up(FAR)
    stream = wait_until(_connect, "a link to the first access point", LIMIT)
    # The configuration file is named only so that this daemon's command differs from the first one's.
    arguments = ("-l", LOG, "-c", DAEMON_CONFIGURATION)
    with Agent("02:00:00:00:0a:02") as agent:
        agent.link(Connection(stream))
        with AccessPoint(command, arguments=arguments, peers=()):
            _serve(agent)
    for fault in agent.malformed:
        print(f"from its daemon, malformed: {fault}", flush=True)
    return 1 if agent.malformed else 0


def _connect() -> socket.socket | None:
    try:
        return socket.create_connection((NEAR_ADDRESS, PORT), 0.2)
    except OSError:
        return None


def _serve(agent: Agent) -> None:
    """Tells what the agent hears and does what it is told, until there is nobody to tell it."""
    own = theirs = 0
    while True:
        heard, own = agent.received[own:], len(agent.received)
        _tell("from its daemon", heard)
        heard, theirs = agent.from_neighbour[theirs:], len(agent.from_neighbour)
        _tell("from AP 1", heard)
        if select.select([sys.stdin], [], [], 0.02)[0]:
            words = os.read(sys.stdin.fileno(), 1024)
            if not words:
                return
            for _ in words.splitlines():
                agent.report_neighbours_changed()


if __name__ == "__main__":
    sys.exit(main())
