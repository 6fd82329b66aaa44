"""The simulated clock: what the daemon takes for the time."""

import os
import time

import pytest

from sim.access_point import AccessPoint
from sim.clock import Clock
from sim.preload import preloaded


@pytest.fixture
def start_with_clock(daemon):
    """Starts an access point whose daemon has the clock's library."""
    running = []

    def start():
        ap = AccessPoint(preloaded(daemon, [os.environ["WL_SIM_CLOCK"]]))
        running.append(ap)
        return ap.__enter__()

    yield start
    for ap in running:
        ap.__exit__(None)


def seconds_of_log(ap):
    """The daemon's wall clock: seconds since the epoch, as the newest line of its log has them."""
    ap.settle()
    since = len(ap.log())
    ap.reload_without_reply("clock ?")
    record = ap.wait_for_log("Received [clock ?] from reload_cli", since=since)
    return time.mktime(time.strptime(record.time, "%Y.%m.%d %H:%M:%S"))


def test_without_settings_the_daemon_has_the_machine_s_time(start_with_clock):
    ap = start_with_clock()
    assert int(time.time()) - 1 <= seconds_of_log(ap) <= time.time()


def test_time_passes_for_the_daemon_as_it_is_told_to(start_with_clock):
    clock = Clock()
    ap = start_with_clock()
    assert int(time.time()) - 1 <= seconds_of_log(ap) <= time.time()
    clock.stop()
    stopped = seconds_of_log(ap)
    assert stopped == int(clock.now())
    clock.let_pass(300)
    assert seconds_of_log(ap) == stopped + 300
    clock.run(1000)
    assert seconds_of_log(ap) >= stopped + 300
    clock.stop()
    assert seconds_of_log(ap) == int(clock.now())


def test_waiting_ends_by_the_daemon_s_clock(start_with_clock):
    clock = Clock()
    clock.run(1000)  # the daemon looks for the synchronisation agent at least every 5 seconds
    ap = start_with_clock()
    lines = len(ap.log())
    ap.wait_for_log("Error connecting to synch agent", since=lines + 20)
