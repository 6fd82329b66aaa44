"""Events over the real queue."""

import socket

from sim import bus, processes
from sim.access_point import AccessPoint
from sim.background import wait_until
from sim.events import (
    INFO_CODE,
    SUBINFO_CODE,
    SUBINFO_VALUE,
    VAP_SSID,
    coded,
    header,
    item,
    u16,
    u32,
    vlan_information,
)
from sim.reports import FORWARDED


def set_level(ap, level):
    ap.send_event("VRE.bw.events", coded(0, u16(level)))
    ap.settle()


def counters(ap):
    since = len(ap.log())
    ap.reload_without_reply("mq_fail_stats ")
    message = ap.wait_for_log("mq_fail_stats.recv_failure_count", since=since).message
    return [int(part.split("]")[0]) for part in message.split("[")[1:]]


def test_an_event_sets_the_debug_level(start):
    ap = start()
    ap.send_event("VRE.bw.events", coded(0, u16(9)))
    record = ap.wait_for_log("Setting debug level to ")
    assert record.message == "Setting debug level to WL_DBG_DEBUG"
    assert record.function == "set_debug_level"


def test_an_event_sets_the_simulator_switch(start):
    ap = start()
    ap.send_event("VRE.bw.events", coded(1, u16(515)))
    assert ap.wait_for_log("g_enable_simulator").message == "g_enable_simulator [515]"


def test_steering_codes_are_told_apart(start):
    ap = start()
    set_level(ap, 7)
    for code in range(30):
        ap.send_event("VRE.smart_steering", coded(code, bytes(25)))
    ap.settle()
    told = [r.message for r in ap.log() if r.function == "handle_vre_ss"]
    assert told == [f"Subinfo code {code} match , send steering packet" for code in (2, 4, 7, 8, 9, 25, 26, 27)]


def test_short_records_are_refused(start):
    ap = start()
    ap.send_event("VRE.vlan.detector", vlan_information({5})[:-1])
    ap.send_event("VRE.vlan.gateway.info", bytes(25))
    ap.settle()
    told = [(r.function, r.message) for r in ap.log() if "Insufficient" in r.message]
    assert told == [
        ("vre_handle_vlan_detected_info", "Insufficient data len [517] received for event[43]"),
        ("handle_vlan_gateway_info", "Insufficient data len [25] received for event[102]"),
    ]


def test_an_endless_ssid_is_cut_and_reported(start):
    ap = start()
    payload = header() + item(VAP_SSID, b"L" * 40) + item(SUBINFO_CODE, u16(1)) + item(SUBINFO_VALUE, u16(1))
    ap.send_event("VRE.bw.events", payload)
    ap.settle()
    told = [r.message for r in ap.log() if r.function in ("wl_get_evt_info", "handle_bw_events")]
    assert told[-2:] == [
        "Invalid SSID len received for event VRE.bw.events",
        "g_enable_simulator [1]",
    ]


def test_messages_that_are_no_events_are_counted(start):
    ap = start()
    before = counters(ap)
    with bus.Queue(bus.DAEMON) as queue:
        for message in (b"", b"VRE.node_leave", b"VRE.unheard_of\0", b"VRE.max_evt\0", b"\0"):
            queue.send(message, limit=10)
    ap.settle()
    assert counters(ap) == [before[0] + 5, before[1]]


def test_every_event_with_any_payload_is_survived(start):
    from sim.events import NAMES

    ap = start()
    pid = ap.pid
    odd = [
        b"",
        b"\xff",
        b"\xff" * 2000,
        bytes(2000),
        header() + u32(7) + u32(0xFFFFFFF8) + b"x" * 100,
        header() + u32(1) + u32(0xFFFFFFFF) + b"x" * 1900,
        header() + b"".join(u32(tag) + u32(3) + b"abc" for tag in range(1, 15)),
        b"".join(u32(tag) + u32(0) for tag in range(1, 15)),
    ]
    for name in NAMES.values():
        for payload in odd:
            with bus.Queue(bus.DAEMON) as queue:
                queue.send(bus.encode(name, payload[: queue.message_size - len(name) - 1]), limit=10)
    ap.settle()
    assert ap.pid == pid


def test_a_full_peer_queue_is_counted_and_does_not_block(start):
    full = bus.Peer("/sensord", drain=False)
    with bus.Queue("/sensord") as queue:
        while queue.waiting < queue.depth:
            queue.send(b"filler")
    ap = start(peers=())
    assert counters(ap) == [0, 1]
    full.close()


def test_bus_sync_and_reload_are_served_in_this_order(start):
    with socket.create_server(("127.0.0.1", 12345)) as agent:
        ap = start()
        agent.settimeout(10)
        connection, _ = agent.accept()
        set_level(ap, 7)
        since = len(ap.log())
        with ap.held():
            connection.sendall(b"x")
            ap.reload_without_reply("mq_fail_stats ")
            ap.send_event("VRE.bw.events", coded(1, u16(1)))
        wanted = {
            "g_enable_simulator [1]": "bus",
            "packet from synch agent": "synch",
            "LOG_INFO: Received [mq_fail_stats ] from reload_cli": "reload",
        }

        def served():
            found = [wanted[r.message] for r in ap.log()[since:] if r.message in wanted]
            return found if "reload" in found else None

        assert wait_until(served, "all three served")[:3] == ["bus", "synch", "reload"]
        ap.stop()
        connection.close()


def test_a_gone_bus_is_registered_again_but_not_served(with_faults):
    # The first message is the daemon's own: its request for the VLANs seen reaches its own queue, too.
    with AccessPoint(with_faults("mq_receive:2:EBADF")) as ap:
        ap.settle()
        before = processes.open_files(ap.pid).count(bus.DAEMON)
        ap.send_event("VRE.bw.events", coded(1, u16(1)))
        assert ap.wait_for_log("wl event handler disconnected").function == "main"
        wait_until(lambda: processes.open_files(ap.pid).count(bus.DAEMON) == before + 1, "a new descriptor")
        with bus.Queue(bus.DAEMON) as queue:
            waiting = queue.waiting
            queue.send(bus.encode("VRE.bw.events", coded(1, u16(1))))
            assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
            assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
            assert queue.waiting == waiting + 1
        assert sum(r.message == "wl event handler disconnected" for r in ap.log()) == 1


def send_for_record_of(ap, size):
    """Sends an event whose forwarded record has so many bytes: a head of 52, the item of its sub-code, that of its value."""
    value = bytes(size - 52 - 8 - 4)
    ap.send_event("VRE.portal", header() + item(INFO_CODE, u32(8)) + item(SUBINFO_VALUE, value))
    ap.settle()


def test_a_forwarded_record_reaches_the_queues_whose_messages_are_long_enough(start):
    ap = start(peers=("/wl_evt_proxy",))  # whose messages have 2056 bytes, 20 of them for the event's name
    set_level(ap, 3)
    overwrite = "CRASH_DEBUG[423]: Memory overwrite detected."
    with bus.Queue("/splashd", create=True, message_size=4096) as wide:
        for size, refused, marked in ((2036, 0, 0), (2037, 1, 0), (2048, 2, 0), (2049, 3, 1)):
            send_for_record_of(ap, size)
            event, record = bus.decode(wide.receive())
            assert (event, len(record)) == (FORWARDED, size)
            assert counters(ap) == [0, refused]
            assert sum(entry.message == overwrite for entry in ap.log()) == marked
    bus.unlink("/splashd")
    assert [len(record) for record in ap.wait_for_published(FORWARDED)] == [2036]


def test_a_forwarded_record_that_no_queue_takes_is_lost_and_counted(start):
    ap = start()  # the sensor's messages have 2048 bytes
    send_for_record_of(ap, 2028)
    assert counters(ap) == [0, 0]
    for refused in (2, 4):
        send_for_record_of(ap, 2060)
        assert counters(ap) == [0, refused]
    send_for_record_of(ap, 2028)
    assert [len(record) for record in ap.wait_for_published(FORWARDED, count=2)] == [2028] * 2
    assert len(ap.wait_for_published(FORWARDED, "/sensord", count=2)) == 2
