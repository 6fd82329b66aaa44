"""The reload channel: every command with its reply."""

import os
import time

import pytest

from sim.access_point import CRASH_RECORD
from sim.background import wait_until
from sim.reload import ReloadTool


def tell(ap, command):
    """Sends a command and gives what the daemon logged about it, the receipt included."""
    since = len(ap.log())
    ap.reload_without_reply(command)
    receipt = ap.wait_for_log("LOG_INFO: Received [", since=since)
    at = ap.log().index(receipt)
    return lambda: [r.message for r in ap.log()[at:] if r.function != "init_synch_sock"]


@pytest.mark.parametrize(
    "command, number, name",
    [
        ("7 SET_DEBUG_LEVEL", "7", "WL_DBG_DEBUG"),
        ("12 SET_DEBUG_LEVEL", "12", "WL_DBG_DEBUG"),
        ("-1 SET_DEBUG_LEVEL", "4294967295", "WL_DBG_CRIT"),
        ("abc\tSET_DEBUG_LEVEL more\n", "0", "WL_DBG_CRIT"),
        ("6\nSET_DEBUG_LEVEL", "6", "WL_DBG_INFO"),
        ("4 SET_DEBUG_LEVEL", "4", "(null)"),
        ("99999999999 SET_DEBUG_LEVEL", "2147483647", "WL_DBG_DEBUG"),
    ],
)
def test_the_debug_level_is_set(start, command, number, name):
    ap = start()
    told = tell(ap, command)
    wait_until(lambda: f"Setting debug level to {name}" in told(), "the level")
    assert told()[:3] == [
        f"LOG_INFO: Received [{command}] from reload_cli",
        f"Received SET_DEBUG_LEVEL : {number}",
        f"Setting debug level to {name}",
    ]


def test_the_sanity_test_is_answered(start):
    ap = start()
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
    assert ap.reload("APPL_SANITY_TEST and more") == b"SUCCESS\0"


def test_a_reply_that_nobody_waits_for_is_logged(start):
    ap = start()
    told = tell(ap, "APPL_SANITY_TEST ")
    wait_until(lambda: len(told()) > 1, "the failure")
    assert told()[1] == "Unable to send reply to reload cli : No such file or directory"


def test_the_failure_counters_are_logged(start):
    ap = start()
    told = tell(ap, "mq_fail_stats ")
    wait_until(lambda: len(told()) > 1, "the counters")
    assert told()[1] == " mq_fail_stats.recv_failure_count [0]\n mq_fail_stats.send_failure_count [0]\n"


def test_a_daemon_that_plays_hung_refuses_until_it_is_recovered(start):
    ap = start()
    told = tell(ap, "RECOVERABLE_APPL_HANG ")
    refused = (
        "APPL_HANG_DEBUG : Returning without processing command. "
        "Send command RECOVER_APPL_HANG to start processing commands!!\n"
    )
    wait_until(lambda: refused in told(), "the refusal")
    assert told()[1:3] == [
        "APPL_HANG_DEBUG : Received RECOVERABLE_APPL_HANG command. "
        "Will not process & respond to commands other than RECOVER_APPL_HANG!!\n",
        refused,
    ]
    with ReloadTool() as tool:
        tool.send(b"APPL_SANITY_TEST ")
        wait_until(lambda: told().count(refused) == 2, "the refusal of the sanity test")
        assert tool.reply(0) is None
    told = tell(ap, "RECOVER_APPL_HANG ")
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
    assert told()[1] == (
        "APPL_HANG_DEBUG : Received RECOVER_APPL_HANG command. "
        "Will start processing & responding to commands other than RECOVER_APPL_HANG!!\n"
    )


def test_a_daemon_that_hangs_for_good_spins(start):
    ap = start()
    told = tell(ap, "UNRECOVERABLE_APPL_HANG ")
    wait_until(lambda: len(told()) > 1, "the message")
    assert told()[1] == "APPL_HANG_DEBUG : Received UNRECOVERABLE_APPL_HANG command. Going in infinite loop!!\n"

    def ticks():
        with open(f"/proc/{ap.pid}/stat", encoding="ascii") as file:
            return int(file.read().rpartition(")")[2].split()[11])

    before, began = ticks(), time.monotonic()
    wait_until(lambda: ticks() >= before + 10, "a tenth of a second of processor time")
    assert time.monotonic() - began < 20
    with ReloadTool() as tool:
        tool.send(b"APPL_SANITY_TEST ")
        before = ticks()
        wait_until(lambda: ticks() >= before + 10, "another tenth of a second")
        assert tool.reply(0) is None


@pytest.mark.parametrize("command", ["\n", " \t\n", "\0", "two words", "7 set_debug_level"])
def test_other_commands_do_nothing(start, command):
    ap = start()
    pid = ap.pid
    told = tell(ap, command)
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
    assert told()[1] == "LOG_INFO: Received [APPL_SANITY_TEST ] from reload_cli"
    assert ap.pid == pid


def test_an_empty_datagram_closes_and_reopens_the_socket(start):
    ap = start()
    path = "/tmp/wl_evt_handler_reload_cli_socket"
    before = os.stat(path).st_ctime_ns
    ap.reload_without_reply(b"")
    assert ap.wait_for_log("recv error: ").message == "recv error: Success."
    wait_until(lambda: os.path.exists(path) and os.stat(path).st_ctime_ns != before, "a new socket")
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"


def test_a_command_of_one_word_crashes(start):
    os.makedirs("/opt/sensor")
    ap = start()
    pid = ap.pid
    ap.reload_without_reply("APPL_SANITY_TEST")
    ap.wait_until_gone()
    with open(CRASH_RECORD, encoding="ascii") as file:
        record = file.read()
    assert record.startswith(f"  signal 11 from pid {pid} thread id {pid} \n")
    assert record.endswith("[addr:(nil)]\n")
