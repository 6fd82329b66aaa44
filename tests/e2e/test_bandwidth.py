"""Bandwidth limits: from the event to the script's command line, the kernel's traffic control and the log of them."""

import os
import random
import signal
import struct

import pytest

from sim import bandwidth
from sim.background import wait_until
from sim.bandwidth import clear, limit
from sim.events import BW_APPLY_RULE, SUBINFO_VALUE, VAP_NAME, header, item, mac_bytes, text_item, u32

ALICE = "02:00:00:00:00:0a"
SET, CLEAR = 24, 25


def record(mac, command, up, down, profile_id, classid, flags, *, priority=1, vap=b"ath0"):
    return struct.pack(
        ">6sBIiiII17sB", mac_bytes(mac), priority, command, up, down, profile_id, classid, vap, flags
    )


def run_count(count, limit=20):
    wait_until(lambda: len(bandwidth.commands()) >= count, f"{count} runs of the script", limit)
    return bandwidth.commands()


def set_bss(ap, profile_id=7, up=1000, down=2000, **more):
    ap.send_event("VRE.bw.set", limit("00:00:00:00:00:00", profile_id, up, down, bss=True, **more))


def test_an_ssid_s_limit_becomes_a_command_and_a_record(start):
    ap = start()
    set_bss(ap)
    assert run_count(1) == ["limit profile 7 bss up 1000 down 2000 priority 1"]
    assert bandwidth.cache() == [record("00:00:00:00:00:00", SET, 1000, 2000, 7, 1, 0x80)]
    ap.send_event("VRE.bw.clr", clear("00:00:00:00:00:00", 7, bss=True))
    assert run_count(2)[1] == "clear profile 7 bss priority 1"


def test_a_client_s_limit_is_held_until_it_is_applied(start):
    ap = start()
    ap.send_event("VRE.bw.set", limit(ALICE, 7, 100, 200))
    ap.settle()
    assert bandwidth.commands() == []
    ap.send_event("VRE.bw.set", limit(ALICE, 7, 100, 200) + item(BW_APPLY_RULE))
    (command,) = run_count(1)
    assert command.startswith(f"limit profile 7 sta {ALICE} classid ")
    assert " up 100 down 200 " in command


def test_a_failing_script_is_tried_five_times_and_the_record_taken_back(start):
    ap = start()
    bandwidth.fail("always exit 3")
    set_bss(ap)
    assert run_count(5, limit=30) == ["limit profile 7 bss up 1000 down 2000 priority 1"] * 5
    assert ap.wait_for_log("Rule NOT Applied. Failed. try_and_execute returned [3].").function == "bw_queue_process"
    wait_until(lambda: os.path.getsize(bandwidth.CACHE) == 0, "the record taken back")


@pytest.mark.parametrize(
    "fault, text",
    [
        ("1 exit 3", "BW: BW rules script returned with error 3"),
        ("1 signal KILL", "BW: BW rules script returned with error 137"),  # the shell that ran it tells so
    ],
)
def test_a_script_that_fails_once_is_run_again(start, fault, text):
    ap = start()
    bandwidth.fail(fault)
    set_bss(ap)
    run_count(2)
    assert ap.wait_for_log("BW: ").message == text
    ap.settle()
    assert len(bandwidth.cache()) == 1


def test_a_missing_script_is_reported(start):
    ap = start()
    os.unlink("/sbin/tc_wrapper.sh")
    set_bss(ap)
    assert ap.wait_for_log("BW: Could not execute BW Rules script").function == "try_and_execute"


def test_a_hanging_script_does_not_hold_up_events(start):
    ap = start()
    bandwidth.fail("1 hang")
    set_bss(ap)
    run_count(1)
    for profile_id in range(8, 40):
        set_bss(ap, profile_id)
    ap.settle()
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"


def test_limits_survive_a_killed_daemon(start):
    ap = start()
    set_bss(ap)
    ap.send_event("VRE.bw.set", limit(ALICE, 7, 100, 200) + item(BW_APPLY_RULE))
    run_count(2)
    before = bandwidth.cache()
    os.kill(ap.pid, signal.SIGKILL)
    ap.wait_until_gone()
    ap.start()
    assert bandwidth.cache() == before
    ap.send_event("VRE.bw.getstatus")
    ap.settle()
    wait_until(lambda: os.path.exists("/tmp/.wl.bw_hash.dmp"), "the dump")
    with open("/tmp/.wl.bw_hash.dmp", encoding="ascii") as file:
        dump = file.read()
    assert dump == (
        "Profile 7 [#1] (up = 1000, down = 2000):\n"
        + "-" * 75
        + "\n\t[#1] 02:00:00:00:00:0A\t(up = 100,down = 200)\t(classid = 0x2)\tAPPLIED\n"
    )
    assert len(bandwidth.commands()) == 2, "nothing is run again"


def test_a_cache_of_any_bytes_is_survived(start):
    ap = start()
    for content in (b"\xff" * 1000, bytes(4500), random.Random(45).randbytes(4510)):
        ap.stop()
        with open(bandwidth.CACHE, "wb") as file:
            file.write(content)
        ap.start()
        assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
        set_bss(ap, 9)
        ap.send_event("VRE.bw.getstatus")
        ap.settle()
        assert ap.alive


@pytest.fixture
def kernel():
    with bandwidth.interface_pair():
        if not bandwidth.in_kernel():
            pytest.skip("the kernel offers no traffic control on a pair of interfaces here")
        yield


def wait_for_kernel(show, interface, *texts):
    wait_until(lambda: all(text in (show(interface) or "") for text in texts), f"{texts} on {interface}")


def wait_for_no(show, interface, text):
    wait_until(lambda: text not in (show(interface) or ""), f"no {text} on {interface}")


def test_an_ssid_s_limit_is_in_the_kernel(start, kernel):
    ap = start()
    set_bss(ap)
    wait_for_kernel(bandwidth.classes, "bwdown", "class htb 1:701 root", "rate 2Mbit")
    wait_for_kernel(bandwidth.classes, "bwup", "class htb 1:701 root", "rate 1Mbit")
    ap.send_event("VRE.bw.clr", clear("00:00:00:00:00:00", 7, bss=True))
    run_count(2)
    for interface in bandwidth.PAIR:
        wait_for_no(bandwidth.classes, interface, "htb")


def test_a_client_s_limit_is_in_the_kernel_for_its_address(start, kernel):
    ap = start()
    ap.send_event("VRE.bw.set", limit(ALICE, 7, 3000, 4000, priority=0) + item(BW_APPLY_RULE))
    wait_for_kernel(bandwidth.classes, "bwdown", "class htb 1:702 parent 1:701", "rate 4Mbit")
    wait_for_kernel(bandwidth.classes, "bwup", "class htb 1:702 parent 1:701", "rate 3Mbit")
    # The address in the words of u32, by distance from the network header: the destination is at -14, the source at -8.
    to_alice = ("match 00000200/0000ffff at -16", "match 0000000a/ffffffff at -12")
    from_alice = ("match 02000000/ffffffff at -8", "match 000a0000/ffff0000 at -4")
    wait_for_kernel(bandwidth.filters, "bwdown", "flowid 1:702 ", *to_alice)
    wait_for_kernel(bandwidth.filters, "bwup", "flowid 1:702 ", *from_alice)
    ap.send_event("VRE.bw.clr", clear(ALICE, 7, priority=0))
    run_count(2)
    for interface in bandwidth.PAIR:
        wait_for_no(bandwidth.classes, interface, "1:702")
        wait_for_no(bandwidth.filters, interface, "1:702")


def test_an_authorised_client_gets_its_limit_and_loses_it_when_it_leaves(start):
    ap = start()
    assign = header(profile_id=7) + text_item(VAP_NAME, "ath0") + item(SUBINFO_VALUE, u32(1))
    ap.send_event("VRE.bw.vap_profile_id", assign)
    ap.send_event("VRE.node_authorize", limit(ALICE, 7, 100, 200, priority=0))
    (command,) = run_count(1)
    assert command.startswith(f"limit profile 7 sta {ALICE} classid ")
    ap.send_event("VRE.node_leave", header(ALICE, 7) + text_item(VAP_NAME, "ath0"))
    assert run_count(2)[1].startswith(f"clear profile 7 sta {ALICE} classid ")
