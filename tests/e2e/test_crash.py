"""The crash record, for every fatal signal."""

import ctypes
import os
import re
import signal
import time

import pytest

from sim.access_point import CRASH_RECORD

SIGNALS = [signal.SIGSEGV, signal.SIGILL, signal.SIGFPE, signal.SIGBUS]
DETAILS = r"  Crash Details: program counter\[pc:0x[0-9a-f]+\]\[ra:(\(nil\)|0x[0-9a-f]+)\]\[addr:\S+\]\n"


def as_the_daemon_counts(number):
    """A signal's number on the daemon's machine: MIPS has a SIGBUS of its own."""
    on_mips = "qemu-mips" in os.environ["WL_DAEMON"]
    return 10 if on_mips and number == signal.SIGBUS else int(number)


def signal_main_thread(pid, number):
    """Any thread may take a signal that is sent to the whole process."""
    tgkill = 234  # number of the system call on x86-64
    if ctypes.CDLL(None, use_errno=True).syscall(tgkill, pid, pid, number) != 0:
        raise OSError(ctypes.get_errno(), "tgkill")


def crash(start, number):
    ap = start()
    pid = ap.pid
    signal_main_thread(pid, number)
    ap.wait_until_gone()
    return pid


def record():
    with open(CRASH_RECORD, encoding="ascii") as file:
        return file.read()


@pytest.mark.parametrize("number", SIGNALS)
def test_without_a_version_file_two_lines_are_written(start, number):
    os.makedirs("/opt/sensor")
    pid = crash(start, number)
    assert re.fullmatch(rf"  signal {as_the_daemon_counts(number)} from pid {pid} thread id {pid} \n" + DETAILS, record())


@pytest.mark.parametrize("number", SIGNALS)
def test_the_version_is_quoted(start, number):
    os.makedirs("/opt/sensor")
    with open("/opt/sensor/version", "w", encoding="ascii") as file:
        file.write("BUILD_NO: 1.2.3\nBUILD_DATE: 2020-01-01\n")
    before = time.strftime("%Y.%m.%d %H:%M:%S")
    pid = crash(start, number)
    match = re.fullmatch(
        r"(\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d) Build_ver: 1\.2\.3 Build_time: 2020-01-01\n"
        rf"  signal {as_the_daemon_counts(number)} from pid {pid} thread id {pid} \n" + DETAILS,
        record(),
    )
    assert match, record()
    assert before <= match[1] <= time.strftime("%Y.%m.%d %H:%M:%S")


def test_records_are_appended(start):
    os.makedirs("/opt/sensor")
    ap = start()
    pids = []
    for _ in range(2):
        pids.append(ap.pid)
        os.kill(ap.pid, signal.SIGSEGV)
        ap.wait_until_gone()
        ap.start()
    assert re.findall(r"from pid (\d+) ", record()) == [str(pid) for pid in pids]


def test_without_a_place_for_the_record_the_daemon_is_killed_all_the_same(start):
    crash(start, signal.SIGSEGV)
    assert not os.path.exists("/opt/sensor")
