"""Pairs of interfaces, and a second network to lead one of them to, which the kernel may or may not let us make."""

from __future__ import annotations

import subprocess

_CAP_NET_ADMIN = 12
LACKING = "this process has no CAP_NET_ADMIN over its network, so it can make no interfaces"


def permitted() -> bool:
    """Whether this process has the right to make interfaces; see LACKING."""
    with open("/proc/self/status", encoding="ascii") as status:
        (capabilities,) = (line.split()[1] for line in status if line.startswith("CapEff:"))
    return bool(int(capabilities, 16) >> _CAP_NET_ADMIN & 1)


def ip(*words: str) -> bool:
    """Runs one command of ip. Result: whether it went well."""
    try:
        return subprocess.run(["ip", *words], capture_output=True, check=False).returncode == 0
    except FileNotFoundError:
        return False


def add_pair(name: str, peer: str) -> bool:
    """Makes a pair of interfaces, both down; what goes into one comes out of the other."""
    return ip("link", "add", name, "type", "veth", "peer", "name", peer)


def set_up(name: str) -> bool:
    return ip("link", "set", name, "up")


def set_down(name: str) -> bool:
    return ip("link", "set", name, "down")


def remove(name: str) -> None:
    """Removes an interface, and with it the other of its pair."""
    ip("link", "delete", name)


class Network:
    """A network beside this one, with nothing in it but what is moved there, during a `with` block. OSError where the
    kernel allows none."""

    def __enter__(self) -> Network:
        self._holder = subprocess.Popen(
            ["unshare", "--net", "sh", "-c", "echo here; exec cat"], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )
        assert self._holder.stdout is not None
        if self._holder.stdout.readline() != b"here\n":
            self.__exit__()
            raise OSError("the kernel allows no second network")
        self.proc = f"/proc/{self._holder.pid}/net"
        return self

    def __exit__(self, *_: object) -> None:
        self._holder.communicate()  # the end of its input is its own end

    def inside(self, *command: str) -> list[str]:
        """A command that is to run there."""
        return ["nsenter", f"--net=/proc/{self._holder.pid}/ns/net", *command]

    def move(self, device: str) -> bool:
        return ip("link", "set", device, "netns", str(self._holder.pid))

    def ip(self, *words: str) -> bool:
        return subprocess.run(self.inside("ip", *words), capture_output=True, check=False).returncode == 0
