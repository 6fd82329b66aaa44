"""The socket library as another program uses it, tools/socklib_program.c, with peers that are not ours: the kernel in a
second network, tshark, and a syslog daemon.

The program's command is in WL_SOCKLIB_PROGRAM; what is preloaded into it, if anything, is in WL_SOCKLIB_PRELOADED.
"""

from __future__ import annotations

import calendar
import ctypes
import json
import os
import random
import re
import shlex
import shutil
import socket
import struct
import subprocess
import tempfile
import threading
import time
from collections.abc import Callable, Iterator, Sequence
from contextlib import ExitStack, contextmanager

import pytest

from sim import links, tshark
from sim.background import wait_until
from sim.preload import preloaded

# The devices of the two networks that a pair joins. What shall not be used leads nowhere.
NEAR, FAR, NOWHERE = "near0", "far0", "nowhere0"
NEAR_MAC, FAR_MAC = "02:00:00:00:00:01", "02:00:00:00:00:02"
NEAR_IP, FAR_IP = "192.0.2.1", "192.0.2.2"
GROUP, GROUP_MAC = "239.1.2.3", "01:00:5e:01:02:03"
BROADCAST_MAC = "ff:ff:ff:ff:ff:ff"
PORT, SYSLOG_PORT, TCP_PORT = 5000, 514, 5001
PRIORITY = 134  # LOG_LOCAL0 | LOG_INFO
CAPTURE = "/tmp/frames.pcapng"

# tshark's verdicts on a checksum
BAD, GOOD, NOT_PRESENT = "0", "1", "3"
VALIDATED = ("-o", "ip.check_checksum:TRUE", "-o", "udp.check_checksum:TRUE")


@pytest.fixture
def program() -> list[str]:
    command = shlex.split(os.environ["WL_SOCKLIB_PROGRAM"])
    substitutes = os.environ["WL_SOCKLIB_PRELOADED"]
    return preloaded(command, [substitutes]) if substitutes else command


def needs_own_network() -> None:
    if os.environ["WL_IN_SANDBOX"] == "in-place":
        pytest.skip("the network here is the machine's own, with routes that are not ours")


@pytest.fixture
def far() -> Iterator[links.Network]:
    """A second network, joined with this one by a pair of devices. Its routes send groups elsewhere."""
    needs_own_network()
    if not links.permitted():
        pytest.skip(links.LACKING)
    with ExitStack() as stack:
        try:
            network = stack.enter_context(links.Network())
        except OSError as reason:
            pytest.skip(str(reason))
        assert links.add_pair(NEAR, FAR)
        stack.callback(links.remove, NEAR)
        assert network.move(FAR)
        for ip, device, mac, address in ((links.ip, NEAR, NEAR_MAC, NEAR_IP), (network.ip, FAR, FAR_MAC, FAR_IP)):
            assert ip("link", "set", device, "address", mac, "up")
            assert ip("address", "add", f"{address}/24", "dev", device)
            assert ip("link", "add", NOWHERE, "type", "veth") and ip("link", "set", NOWHERE, "up")
            assert ip("route", "add", "224.0.0.0/4", "dev", NOWHERE)
        wait_for_link([], NEAR)
        wait_for_link(network.inside(), FAR)
        yield network
        links.remove(NOWHERE)


def wait_for_link(where: list[str], device: str) -> None:
    """Waits until what a device sends is no longer dropped."""

    def leads_on() -> bool:
        shown = subprocess.run([*where, "ip", "link", "show", device], capture_output=True, text=True, check=True)
        return "qdisc noop " not in shown.stdout and " state UP " in shown.stdout

    wait_until(leads_on, f"a link at {device}")


def run(command: Sequence[str], *words: str, data: bytes = b"", status: int = 0) -> tuple[bytes, str]:
    """Runs the program to its end. Result: what it printed and what the library logged."""
    done = subprocess.run([*command, *words], input=data, capture_output=True, check=False, timeout=60)
    assert done.returncode == status, done.stderr.decode()
    return done.stdout, done.stderr.decode()


class Running:
    """The program while it runs. Ends at the end of the `with` block, with its input."""

    def __init__(self, command: Sequence[str], *words: str, status: int = 0):
        self._status = status
        self._process = subprocess.Popen(
            [*command, *words], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
        )
        self.pid = self._process.pid
        self.lines: list[str] = []
        self.log: list[str] = []
        streams = ((self._process.stdout, self.lines), (self._process.stderr, self.log))
        self._readers = [threading.Thread(target=self._read, args=each, daemon=True) for each in streams]
        for reader in self._readers:
            reader.start()

    @staticmethod
    def _read(stream, lines: list[str]) -> None:
        for line in stream:
            lines.append(line.rstrip("\n"))

    def say(self, line: str) -> None:
        assert self._process.stdin is not None
        print(line, file=self._process.stdin, flush=True)

    def wait_for(self, line: str) -> None:
        output_goes_on = self._readers[0].is_alive
        wait_until(lambda: line in self.lines or not output_goes_on(), f"the line {line!r}")
        assert line in self.lines, self.log

    def __enter__(self) -> Running:
        return self

    def __exit__(self, kind: object, *_: object) -> None:
        if kind is not None:
            self._process.kill()
        assert self._process.stdin is not None
        self._process.stdin.close()
        status = self._process.wait(60)
        for reader in self._readers:
            reader.join()
        assert kind is not None or status == self._status, self.log


# Groups


def members(proc_net: str, device: str) -> set[str]:
    """The groups that a device is a member of."""
    found, current = set(), ""
    with open(f"{proc_net}/igmp", encoding="ascii") as table:
        for line in table.read().splitlines()[1:]:
            words = line.split()
            if not line.startswith("\t"):
                current = words[1]
            elif current == device:
                found.add(socket.inet_ntoa(struct.pack("=I", int(words[0], 16))))
    return found


def in_group(command: Sequence[str], device: str, own: str) -> Running:
    member = Running(command, "group", device, GROUP, str(PORT))
    member.wait_for(f"member as {own}")
    return member


def test_members_of_a_group_hear_each_other_and_not_themselves(program, far):
    with in_group(program, NEAR, NEAR_IP) as here, in_group(far.inside(*program), FAR, FAR_IP) as there:
        there.say("from the far side")
        here.wait_for(f"{FAR_IP}: from the far side")
        here.say("from the near side")
        there.wait_for(f"{NEAR_IP}: from the near side")
        # What one says comes before the answer, so it would have heard itself before.
        assert there.lines == [f"member as {FAR_IP}", f"{NEAR_IP}: from the near side"]
        there.say("once more")
        here.wait_for(f"{FAR_IP}: once more")
        assert here.lines == [f"member as {NEAR_IP}", f"{FAR_IP}: from the far side", f"{FAR_IP}: once more"]


def test_what_goes_to_a_group_has_its_mac_and_64_hops_to_live(program, far):
    with captured(1) as frames, in_group(far.inside(*program), FAR, FAR_IP) as there:
        there.say("hello")
    (frame,) = frames("eth.src", "eth.dst", "ip.src", "ip.dst", "ip.ttl", "udp.dstport", "udp.payload")
    assert frame == (FAR_MAC, GROUP_MAC, FAR_IP, GROUP, "64", str(PORT), b"hello".hex())


def test_members_of_other_groups_on_the_same_port_hear_nothing(program, far):
    with Running(program, "group", NEAR, "239.1.2.4", str(PORT)) as other, in_group(program, NEAR, NEAR_IP) as here:
        other.wait_for(f"member as {NEAR_IP}")
        with in_group(far.inside(*program), FAR, FAR_IP) as there:
            there.say("hello")
            here.wait_for(f"{FAR_IP}: hello")
        with Running(far.inside(*program), "group", FAR, "239.1.2.4", str(PORT)) as there:
            there.say("hello, others")
            other.wait_for(f"{FAR_IP}: hello, others")
        assert other.lines == [f"member as {NEAR_IP}", f"{FAR_IP}: hello, others"]


@contextmanager
def held_socket(pid: int) -> Iterator[None]:
    """Keeps the only socket of a process from being closed when the process closes it."""
    pidfd_getfd = 438
    (number,) = (
        each for each in os.listdir(f"/proc/{pid}/fd") if os.readlink(f"/proc/{pid}/fd/{each}").startswith("socket:")
    )
    process = os.pidfd_open(pid)
    held = ctypes.CDLL(None, use_errno=True).syscall(pidfd_getfd, process, int(number), 0)
    os.close(process)
    assert held >= 0, os.strerror(ctypes.get_errno())
    yield
    os.close(held)


def test_a_member_leaves_its_group_before_the_socket_is_closed(program, far):
    before = members(far.proc, FAR)
    with in_group(far.inside(*program), FAR, FAR_IP) as there:
        assert members(far.proc, FAR) == before | {GROUP}
        with held_socket(there.pid):
            there.say("")
            there.wait_for("left")
            assert members(far.proc, FAR) == before


# Frames


@contextmanager
def captured(count: int) -> Iterator[Callable[..., list[tuple[str, ...]]]]:
    """Captures so many UDP packets that arrive here. Gives a function that fetches fields of them afterwards; a field
    that a packet does not have is empty."""
    with tshark.capturing(CAPTURE, NEAR, "udp", count):
        yield lambda *names: [
            tuple("".join(values) for values in row)
            for row in tshark.fields(CAPTURE, *names, only="udp", options=VALIDATED)
        ]


def random_lines(lengths: Sequence[int]) -> list[bytes]:
    """Data of each length, of any bytes but that which ends a line."""
    source = random.Random(1)
    return [bytes(source.choice([byte for byte in range(256) if byte != 0x0A]) for _ in range(n)) for n in lengths]


def send_frames(program: list[str], far: links.Network, lines: Sequence[bytes], ip: str, mac: str = "-") -> None:
    command = ("send-frames", FAR, mac, ip, "4000", str(PORT))
    run(far.inside(*program), *command, data=b"".join(line + b"\n" for line in lines))


def test_frames_of_every_length_have_good_checksums(program, far):
    lines = random_lines([*range(0, 100), 511, 512, 1471, 1472])
    with captured(len(lines)) as frames:
        send_frames(program, far, lines, NEAR_IP, NEAR_MAC)
    checked = frames("frame.len", "ip.len", "udp.length", "ip.checksum.status", "udp.checksum.status", "udp.payload")
    lengths = [(str(len(line) + 42), str(len(line) + 28), str(len(line) + 8)) for line in lines]
    assert checked == [(*each, GOOD, GOOD, line.hex()) for each, line in zip(lengths, lines)]


# Where a frame is told to go, and where it goes.
DESTINATIONS = [
    (NEAR_MAC, NEAR_IP, NEAR_MAC, NEAR_IP),
    ("-", NEAR_IP, BROADCAST_MAC, NEAR_IP),
    ("-", "-", BROADCAST_MAC, "255.255.255.255"),
    (NEAR_MAC, GROUP, GROUP_MAC, GROUP),
    ("-", "239.129.2.3", GROUP_MAC, "239.129.2.3"),
]


def test_a_frame_goes_where_it_is_addressed_to_and_no_further(program, far):
    with captured(len(DESTINATIONS)) as frames:
        for mac, ip, _, _ in DESTINATIONS:
            send_frames(program, far, [b"hello"], ip, mac)
    addresses = frames("eth.src", "eth.dst", "eth.type", "ip.src", "ip.dst", "udp.srcport", "udp.dstport")
    assert addresses == [(FAR_MAC, mac, "0x0800", FAR_IP, ip, "4000", str(PORT)) for _, _, mac, ip in DESTINATIONS]
    header = ("ip.version", "ip.hdr_len", "ip.dsfield", "ip.id", "ip.flags", "ip.frag_offset", "ip.ttl", "ip.proto")
    expected = ("4", "20", "0x00", "0x0000", "0x00", "0", "1", "17", GOOD, GOOD)
    assert frames(*header, "ip.checksum.status", "udp.checksum.status") == [expected] * len(DESTINATIONS)


def test_a_device_without_an_address_sends_from_0_0_0_0(program, far):
    assert far.ip("address", "flush", "dev", FAR)
    with captured(1) as frames:
        send_frames(program, far, [b"hello"], "-")
    (frame,) = frames("eth.src", "ip.src", "ip.dst", "ip.checksum.status", "udp.checksum.status")
    assert frame == (FAR_MAC, "0.0.0.0", "255.255.255.255", GOOD, GOOD)


def two_bytes(fits: Callable[[int], bool]) -> bytes:
    """Data of two bytes for which the sum of what a UDP checksum covers has a property."""
    addresses = socket.inet_aton(FAR_IP) + socket.inet_aton(NEAR_IP)
    length = 10
    covered = struct.unpack(">10H", addresses + struct.pack(">HHHHHH", 17, length, 4000, PORT, length, 0))
    found = (word.to_bytes(2, "big") for word in range(65536) if fits(sum(covered) + word))
    return next(data for data in found if b"\n" not in data)


def test_a_carry_that_carries_again_makes_a_checksum_that_receivers_refuse(program, far):
    bad = two_bytes(lambda total: (total & 0xFFFF) + (total >> 16) > 0xFFFF)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver, captured(2) as frames:
        receiver.settimeout(30)
        receiver.bind((NEAR_IP, PORT))
        send_frames(program, far, [bad, b"good"], NEAR_IP, NEAR_MAC)
        assert receiver.recvfrom(16) == (b"good", (FAR_IP, 4000))
    assert frames("ip.checksum.status", "udp.checksum.status") == [(GOOD, BAD), (GOOD, GOOD)]


def test_a_udp_checksum_of_0_counts_as_none(program, far):
    unchecked = two_bytes(lambda total: (total & 0xFFFF) + (total >> 16) == 0xFFFF)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver, captured(1) as frames:
        receiver.settimeout(30)
        receiver.bind((NEAR_IP, PORT))
        send_frames(program, far, [unchecked], NEAR_IP, NEAR_MAC)
        assert receiver.recvfrom(16) == (unchecked, (FAR_IP, 4000))
    assert frames("udp.checksum", "udp.checksum.status") == [("0x0000", NOT_PRESENT)]


def frame_to(mac: str, ethernet_type: int, data: bytes) -> bytes:
    addresses = bytes.fromhex((mac + NEAR_MAC).replace(":", ""))
    return addresses + struct.pack(">H", ethernet_type) + data.ljust(46, b"\0")


def test_a_raw_socket_receives_frames_of_its_type_on_its_device_only(program, far):
    frames = [frame_to(FAR_MAC, 0x88B5, b"one"), frame_to(BROADCAST_MAC, 0x88B5, bytes(1486))]
    others = [frame_to(FAR_MAC, 0x88B6, b"other type"), frame_to(FAR_MAC, 0x0800, b"other type")]
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender, ExitStack() as stack:
        sender.bind((NEAR, 0))
        # Of two devices in one network, each with a receiver of its own.
        assert links.add_pair("near1", "far1") and far.move("far1")
        stack.callback(links.remove, "near1")
        assert links.set_up("near1") and far.ip("link", "set", "far1", "up")
        wait_for_link([], "near1")
        receive = far.inside(*program, "receive-frames")
        first = stack.enter_context(Running(receive, FAR, "88b5", "2"))
        second = stack.enter_context(Running(receive, "far1", "88b5", "1"))
        for receiver in (first, second):
            receiver.wait_for("ready")
        for frame in (others[0], frames[0], others[1], frames[1]):
            sender.send(frame)
        sender.bind(("near1", 0))
        sender.send(frame_to(BROADCAST_MAC, 0x88B5, b"on the other device"))
    assert first.lines == ["ready", frames[0].hex(), frames[1].hex()]
    assert second.lines == ["ready", frame_to(BROADCAST_MAC, 0x88B5, b"on the other device").hex()]


def test_a_raw_socket_on_a_device_that_is_not_there_is_refused(program):
    _, log = run(program, "receive-frames", "missing0", "88b5", "1", status=1)
    assert log == "socklib_open_socket_raw: bind failed to device missing0\n"


# Syslog


def _read(path: str) -> str:
    if not os.path.exists(path):
        return ""
    with open(path, encoding="utf-8") as file:
        return file.read()


@contextmanager
def syslog_daemon(address: str, port: int) -> Iterator[Callable[[], dict[str, str]]]:
    """A syslog daemon. Gives a function that waits for the next line and tells what the daemon has made of it."""
    command = shutil.which("rsyslogd", path="/usr/sbin:/sbin")
    if command is None:
        pytest.skip("Debian package rsyslog is not installed; another syslog daemon is in its place")
    properties = {
        "priority": "pri",
        "facility": "syslogfacility",
        "severity": "syslogseverity",
        "version": "protocol-version",
        "time": "timereported",
        "host": "hostname",
        "id": "msgid",
        "text": "msg",
        "line": "rawmsg",
    }
    outputs = [f'property(outname="{out}" name="{name}" format="jsonf")' for out, name in properties.items()]
    directory = tempfile.mkdtemp()
    with open(f"{directory}/configuration", "w", encoding="ascii") as file:
        file.write(
            f'global(workDirectory="{directory}" net.enableDNS="off")\n'
            'module(load="imudp")\n'
            f'template(name="fields" type="list" option.jsonf="on") {{ {" ".join(outputs)} }}\n'
            f'ruleset(name="all") {{ action(type="omfile" file="{directory}/lines" template="fields") }}\n'
            f'input(type="imudp" address="{address}" port="{port}" ruleset="all")\n'
        )
    log = f"{directory}/log"
    with open(log, "wb") as file:
        daemon = subprocess.Popen([command, "-n", "-i", "NONE", "-f", f"{directory}/configuration"], stderr=file)

    def listens() -> bool:
        assert daemon.poll() is None, _read(log)
        return f":{port:04X} " in _read("/proc/net/udp")

    received = 0

    def next_line() -> dict[str, str]:
        nonlocal received
        lines = wait_until(lambda: _read(f"{directory}/lines").split("\n")[received:-1], "a line of syslog")
        received += 1
        return json.loads(lines[0])

    try:
        wait_until(listens, "a syslog daemon that listens")
        yield next_line
    finally:
        daemon.terminate()
        daemon.wait(60)


COLLECTOR = ("127.0.0.1", "5514")
TEXT = "client refused: 50 % of \"keys\" wrong; code=%s"


def test_a_syslog_daemon_takes_a_line_without_header(program):
    with syslog_daemon(COLLECTOR[0], int(COLLECTOR[1])) as next_line:
        _, log = run(program, "syslog", "plain", TEXT, *COLLECTOR)
        line = next_line()
    assert "socklib_syslog_network: Successfully sent syslog message to 127.0.0.1\n" in log
    assert (line["priority"], line["facility"], line["severity"]) == ("134", "16", "6")
    assert line["line"] == f"<{PRIORITY}>{TEXT}"


def test_a_syslog_daemon_takes_a_line_with_header_but_not_its_date(program):
    before = time.time()
    with syslog_daemon(COLLECTOR[0], int(COLLECTOR[1])) as next_line:
        run(program, "syslog", "rfc5424", TEXT, *COLLECTOR)
        line = next_line()
    form = rf"<{PRIORITY}>1 (\d{{4}}\.\d\d\.\d\dT\d\d:\d\d:\d\d)\.(\d{{3}})Z (\S+) - - CLIENT - (.*)"
    match = re.fullmatch(form, line["line"])
    assert match is not None, line
    assert (match[3], match[4]) == (socket.gethostname(), TEXT)
    sent = time.strptime(match[1] + " UTC", "%Y.%m.%dT%H:%M:%S %Z")
    assert int(before) <= calendar.timegm(sent) <= time.time()
    assert (line["priority"], line["facility"], line["severity"], line["version"]) == ("134", "16", "6", "1")
    # A date with dots is none to it: from there on all is text, and the sender's address stands for the host.
    assert (line["host"], line["id"], line["text"]) == ("127.0.0.1", "-", line["line"].removeprefix(f"<{PRIORITY}>1 "))


def test_a_syslog_daemon_takes_the_longest_line_whole(program):
    text = "".join(random.Random(1).choices("abcdefghijklmnopqrstuvwxyz", k=5000))
    with syslog_daemon(COLLECTOR[0], int(COLLECTOR[1])) as next_line:
        for form, before in (("plain", f"<{PRIORITY}>"), ("rfc5424", " - - CLIENT - ")):
            run(program, "syslog", form, text, *COLLECTOR)
            line = next_line()["line"]
            _, found, rest = line.partition(before)
            assert len(line) == 4095 and found and text.startswith(rest)


def test_a_line_goes_to_the_next_collector_when_the_first_cannot_be_reached(program):
    needs_own_network()
    nobody = ("192.0.2.99", "514")
    with syslog_daemon(COLLECTOR[0], int(COLLECTOR[1])) as next_line:
        # The third gets nothing: the second has taken the line.
        printed, log = run(program, "syslog", "plain", TEXT, *nobody, *COLLECTOR, *nobody, status=1)
        assert next_line()["line"] == f"<{PRIORITY}>{TEXT}"
        run(program, "syslog", "plain", "the next", *COLLECTOR)
        assert next_line()["line"] == f"<{PRIORITY}>the next"
    assert printed == b"a destination failed: Network is unreachable\n"
    assert re.fullmatch(
        r"socklib_syslog_network: 192\.0\.2\.99 send failed \d+ Unknown error\n"
        r"socklib_syslog_network: Successfully sent syslog message to 127\.0\.0\.1\n",
        log,
    )


def test_a_line_goes_to_the_first_collector_only(program):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as unused:
        unused.bind(("127.0.0.1", 0))
        unused.setblocking(False)
        with syslog_daemon(COLLECTOR[0], int(COLLECTOR[1])) as next_line:
            run(program, "syslog", "plain", TEXT, *COLLECTOR, "127.0.0.1", str(unused.getsockname()[1]))
            assert next_line()["line"] == f"<{PRIORITY}>{TEXT}"
        with pytest.raises(BlockingIOError):
            unused.recv(1)


def test_a_raw_line_is_one_of_syslog_to_others_too(program, far):
    lines = [(*each, text) for each in DESTINATIONS if each[1] != "-" for text in ("odd line", "even line")]
    with captured(len(lines)) as frames:
        for mac, ip, _, _, text in lines:
            run(far.inside(*program), "raw-syslog", FAR, mac, ip, "0", text)
    addresses = frames("eth.src", "eth.dst", "ip.src", "ip.dst", "ip.ttl", "udp.srcport", "udp.dstport")
    port = str(SYSLOG_PORT)
    assert addresses == [(FAR_MAC, mac, FAR_IP, ip, "1", port, port) for _, _, mac, ip, _ in lines]
    checked = frames("ip.checksum.status", "udp.checksum.status", "syslog.facility", "syslog.level", "syslog.msg")
    assert checked == [(GOOD, GOOD, "16", "6", f"<{FAR_MAC.upper()}>{text}") for *_, text in lines]


def test_a_syslog_daemon_takes_a_raw_line(program, far):
    assert far.ip("address", "flush", "dev", FAR)
    with syslog_daemon("0.0.0.0", 5514) as next_line:
        run(far.inside(*program), "raw-syslog", FAR, "-", "255.255.255.255", "5514", TEXT)
        line = next_line()
    assert (line["facility"], line["severity"]) == ("16", "6")
    assert line["line"] == f"<{PRIORITY}><{FAR_MAC.upper()}>{TEXT}"


# TCP


@contextmanager
def reading(program: list[str], count: int, status: int = 0) -> Iterator[tuple[Running, socket.socket]]:
    """The program while it reads so many bytes, and a connection to it."""
    with Running(program, "read-tcp", str(TCP_PORT), str(count), status=status) as reader:
        reader.wait_for("ready")
        with socket.create_connection(("127.0.0.1", TCP_PORT), 30) as peer:
            peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            yield reader, peer


def all_taken(peer: socket.socket) -> bool:
    """Whether the other side has read everything that it got."""
    theirs, ours = f":{TCP_PORT:04X}", f":{peer.getsockname()[1]:04X}"
    with open("/proc/net/tcp", encoding="ascii") as table:
        rows = [line.split() for line in table]
    (waiting,) = (row[4] for row in rows if row[1].endswith(theirs) and row[2].endswith(ours))
    return waiting.endswith(":00000000")


def test_bytes_that_come_one_by_one_are_read_until_all_are_there(program):
    data = b"fed one byte at a time"
    with reading(program, len(data)) as (reader, peer):
        for at in range(len(data)):
            assert reader.lines == ["ready"]
            peer.sendall(data[at : at + 1])
            if at + 1 < len(data):
                wait_until(lambda: all_taken(peer), f"byte {at} to be read")
        reader.wait_for(data.decode())
        assert peer.recv(1) == b""
    assert reader.log == []


def test_no_more_than_the_wanted_bytes_are_read(program):
    with reading(program, 5) as (reader, peer):
        peer.sendall(b"fi")
        wait_until(lambda: all_taken(peer), "the beginning to be read")
        peer.sendall(b"rst, second")
        reader.wait_for("first")


def test_a_port_is_free_again_at_once(program):
    for _ in range(3):
        with reading(program, 1) as (reader, peer):
            peer.sendall(b"x")
            reader.wait_for("x")
            assert peer.recv(1) == b""  # the side that closes first keeps the port busy for a while


def test_a_peer_that_closes_in_the_middle_ends_the_reading(program):
    with reading(program, 10, status=1) as (reader, peer):
        peer.sendall(b"abc")
        peer.close()
    assert reader.lines == ["ready"]
    assert reader.log == [
        "socklib_receive_tcp: recv on tcp socket: closed by the peer, bytes_to_read=10, bytes_read=3"
    ]


def test_a_peer_that_breaks_the_connection_ends_the_reading(program):
    with reading(program, 10, status=1) as (reader, peer):
        peer.sendall(b"abc")
        wait_until(lambda: all_taken(peer), "the beginning to be read")
        peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        peer.close()
    assert reader.log == [
        "socklib_receive_tcp: recv on tcp socket: Connection reset by peer, bytes_to_read=10, bytes_read=3"
    ]


def test_a_peer_that_falls_silent_ends_the_reading_after_5_seconds(program):
    with reading(program, 10, status=1) as (reader, peer):
        begun = time.monotonic()
        peer.sendall(b"abc")
        assert peer.recv(1) == b""
        assert time.monotonic() - begun >= 5
    assert reader.log == [
        "socklib_receive_tcp: select failed or timed out[5 s.0 usec] on tcp socket, "
        "retval = 0, errno = 0bytes_to_read=10, bytes_read=3"
    ]
