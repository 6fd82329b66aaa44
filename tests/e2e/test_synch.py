"""Synchronisation with the neighbours: what the daemon tells its agent, byte by byte, and how it answers."""

import os
import time
from contextlib import closing

import pytest
from synch_bytes import ADD, DELETE, SEND_REQUEST, registration, request, update, wire

from sim import links
from sim.agent import neighbour, packets
from sim.agent.agent import ACCEPT, IGNORE, REFUSE
from sim.agent.packets import Packet
from sim.background import wait_until
from sim.clients import (
    ADD_KEY,
    ADD_LOGIN,
    ADD_OKC_KEY,
    DELETE_KEY,
    DELETE_LOGIN,
    KEY,
    LOGIN,
    client_info,
    key_value,
    login_value,
    whereabouts,
)
from sim.events import coded, u16, u32
from sim.profiles import remove_profile, shared, write_daemon_configuration, write_profile

ALICE = "02:00:00:00:00:0a"
ASKER = bytes.fromhex("020000000a02")
TEST_KEY = bytes(range(0xA0, 0xC0))
KEY_LIFETIME = 3600
LOBBY = 7


def configure(*profiles):
    """Writes the profiles that the daemon shall find when it starts."""
    for keys in profiles:
        write_profile(keys["SSID_PROFILE_ID"], keys)
    write_daemon_configuration({keys["SSID_PROFILE_ID"]: keys["WL_PROFILE_SSID"] for keys in profiles})


def start_registered(start, agent, **keys):
    """Starts the daemon with the SSID "Lobby" and waits until it has been accepted."""
    configure(shared(LOBBY, "Lobby", **keys))
    ap = start()
    agent.wait_for(packets.CLIENT_INFO, 1)
    agent.received.clear()
    return ap


def log_everything(ap):
    ap.send_event("VRE.bw.events", coded(0, u16(7)))
    ap.settle()


def let_in(ap, mac, ssid="Lobby"):
    ap.send_event("VRE.node_authorize", whereabouts(ssid, mac=mac))
    ap.settle()


def tell(ap, mac, code, sub_code, value=None):
    ap.send_event("VRE.cl_info", client_info(code, sub_code, value, mac, LOBBY))
    ap.settle()


def add_key(ap, mac, identity=b"alice", *, sub_code=ADD_KEY, key=TEST_KEY, **more):
    expiration = int(time.monotonic()) + KEY_LIFETIME
    tell(ap, mac, KEY, sub_code, key_value(key, identity, **{"expiration": expiration, "interim": 0, **more}))


def answers(ap, agent, ssid="Lobby"):
    """The daemon's answers to one request; a type that it does not know marks their end in its log."""
    agent.received.clear()
    agent.ask_for_clients(ssid)
    wanted = f"Received synch agent packet type : 200 subtype : 0 for appid(ssid) : [end {time.monotonic_ns()}]"
    agent.send(Packet(200, appid=wanted.rpartition("[")[2][:-1].encode()))
    ap.wait_for_log(wanted)
    barrier(ap, agent)
    return agent.of_type(packets.CLIENT_INFO, 2)


def barrier(ap, agent):
    """Everything that the daemon has sent until now has been read when this returns."""
    count = len(agent.of_type(packets.INTER_AP, 3))
    ap.send_event("VRE.inter_ap_synch", bytes(2))
    agent.wait_for(packets.INTER_AP, 3, count=count + 1)


def sent(agent):
    return [packet.encode() for packet in agent.received]


# Registration


def test_an_ssid_is_registered_and_the_neighbours_are_asked_for_its_clients(start, agent):
    configure(shared(LOBBY, "Lobby"))
    start()
    agent.wait_for(packets.CLIENT_INFO)
    assert sent(agent) == [registration(32, b"Lobby"), request(b"Lobby", 1)]


@pytest.mark.parametrize("path", [0, 1, 3])
def test_an_ssid_of_another_path_is_not_registered(start, agent, path):
    configure(shared(LOBBY, "Lobby", IAPC_ENABLE=path), shared(8, "Hall"))
    ap = start()
    agent.wait_for(packets.CLIENT_INFO)
    barrier(ap, agent)
    assert {packet.ssid for packet in agent.of_type(packets.REGISTER)} == {"Hall"}


def test_a_refused_registration_is_tried_again_until_it_is_accepted(start, agent):
    agent.answers.extend([REFUSE, REFUSE, REFUSE, ACCEPT])
    configure(shared(LOBBY, "Lobby"))
    ap = start()
    log_everything(ap)
    for count in (2, 3, 4):
        agent.wait_for(packets.REGISTER, count=count)
        ap.settle()
    agent.wait_for(packets.CLIENT_INFO)
    barrier(ap, agent)
    assert sent(agent)[:5] == [registration(32, b"Lobby")] * 4 + [request(b"Lobby", 1)]
    assert len(agent.of_type(packets.REGISTER)) == 4, "no further try"
    assert agent.connections == 1
    messages = [record.message for record in ap.log() if record.function == "process_synch_packet"]
    assert messages[-1] == "Registration with synch-agent successful for [Lobby]"


def test_a_registration_without_an_answer_is_not_repeated(start, agent):
    agent.answers.append(IGNORE)
    configure(shared(LOBBY, "Lobby"))
    ap = start()
    barrier(ap, agent)
    barrier(ap, agent)
    assert [packet.type for packet in agent.received] == [32, 12, 12]
    agent.send(Packet(packets.REGISTERED, appid=b"Lobby"))
    agent.wait_for(packets.CLIENT_INFO)


def test_only_the_refused_ssids_are_tried_again(start, agent):
    agent.answer_for["Hall"] = REFUSE
    configure(shared(LOBBY, "Lobby"), shared(8, "Hall"), shared(9, "Yard"))
    ap = start()
    agent.wait_for(packets.REGISTER, count=5)
    del agent.answer_for["Hall"]
    agent.wait_for(packets.CLIENT_INFO, count=3)
    barrier(ap, agent)
    registered = [packet.ssid for packet in agent.of_type(packets.REGISTER)]
    assert (registered.count("Lobby"), registered.count("Yard")) == (1, 1)
    assert registered.count("Hall") >= 3


def test_an_answer_registers_every_profile_of_the_ssid(start, agent):
    configure(shared(LOBBY, "Lobby"), shared(8, "Lobby"), shared(9, "Lobby2"))
    agent.answer_for.update({"Lobby": IGNORE, "Lobby2": IGNORE})
    ap = start()
    agent.wait_for(packets.REGISTER, count=3)
    agent.send(Packet(packets.REGISTERED, appid=b"Lobby"))
    agent.wait_for(packets.CLIENT_INFO, count=2)
    barrier(ap, agent)
    assert [packet.ssid for packet in agent.of_type(packets.CLIENT_INFO, 1)] == ["Lobby", "Lobby"]


def test_a_mesh_profile_is_not_registered(start, agent):
    configure(shared(LOBBY, "Lobby", MESH_ENABLED=1))
    ap = start()
    update(ap, SEND_REQUEST, LOBBY)
    ap.settle()
    barrier(ap, agent)
    assert [packet.type for packet in agent.received] == [packets.INTER_AP]


@pytest.mark.parametrize(
    "keys, interface",
    [
        ({"REMOTE_BRIDGING_ENABLED": 1}, b"br0.12"),
        ({"REMOTE_BRIDGING_ENABLED": 1, "REMOTE_IAPC_ENABLED": 1}, b"lo"),
        ({"REMOTE_BRIDGING_ENABLED": 0}, b"lo"),
    ],
)
def test_a_remote_bridge_registers_its_communication_vlan(start, agent, keys, interface):
    if not links.permitted():
        pytest.skip(links.LACKING)
    assert links.add_pair("br0.12", "far12") and links.set_up("br0.12") and links.set_up("far12")
    write_discovery("communication_vlan = 12\n")
    configure(shared(LOBBY, "Lobby", **keys))
    start()
    agent.wait_for(packets.REGISTER)
    assert sent(agent)[0] == registration(32, b"Lobby", interface)
    links.remove("br0.12")


def write_discovery(text):
    os.makedirs("/opt/sensor", exist_ok=True)
    with open("/opt/sensor/discovery.conf", "w", encoding="ascii") as file:
        file.write(text)


def test_an_interface_that_is_down_is_tried_until_it_is_up(start, agent):
    if not links.permitted():
        pytest.skip(links.LACKING)
    assert links.add_pair("uplink", "far") and links.set_up("far")
    configure(shared(LOBBY, "Lobby", ExternalDevice="uplink"))
    ap = start()
    complaint = "Interface [uplink] is not UP/Running, not sending register request, try again."
    ap.wait_for_log(complaint)
    since = len(ap.log())
    ap.settle()
    ap.settle()
    ap.wait_for_log(complaint, since=since)
    barrier(ap, agent)
    assert agent.of_type(packets.REGISTER) == []
    links.set_up("uplink")
    ap.settle()
    agent.wait_for(packets.CLIENT_INFO)
    assert agent.of_type(packets.REGISTER)[0].encode() == registration(32, b"Lobby", b"uplink")
    links.remove("uplink")


def test_a_profile_added_later_is_registered_and_a_deleted_one_withdrawn(start, agent):
    ap = start()
    write_profile(LOBBY, shared(LOBBY, "Lobby"))
    update(ap, ADD, LOBBY)
    ap.settle()
    agent.wait_for(packets.CLIENT_INFO)
    update(ap, DELETE, LOBBY)
    ap.settle()
    agent.wait_for(packets.UNREGISTER)
    assert sent(agent) == [
        registration(32, b"Lobby"),
        request(b"Lobby", 1),
        registration(35, b"Lobby"),
    ]
    agent.ask_for_clients("Lobby")
    barrier(ap, agent)
    assert agent.received[-1].type == packets.INTER_AP
    remove_profile(LOBBY)


# Requests to the neighbours


def test_the_neighbours_are_asked_on_demand(start, agent):
    ap = start_registered(start, agent)
    update(ap, SEND_REQUEST, LOBBY)
    ap.settle()
    agent.wait_for(packets.CLIENT_INFO)
    assert sent(agent) == [request(b"Lobby", 1)]


def test_a_request_on_demand_waits_for_the_registration(start, agent):
    configure(shared(LOBBY, "Lobby"))
    agent.answers.append(IGNORE)
    ap = start()
    update(ap, SEND_REQUEST, LOBBY)
    ap.settle()
    barrier(ap, agent)
    assert agent.of_type(packets.CLIENT_INFO) == []
    for _ in range(2):
        agent.send(Packet(packets.REGISTERED, appid=b"Lobby"))
    agent.wait_for(packets.CLIENT_INFO)
    barrier(ap, agent)
    assert len(agent.of_type(packets.CLIENT_INFO)) == 1


def test_a_request_on_demand_waits_for_the_registration_with_a_new_agent(start, agent):
    ap = start_registered(start, agent)
    agent.answer_for["Lobby"] = IGNORE
    agent.restart()
    for _ in range(2):  # one turn to notice, one to connect
        ap.settle()
    agent.wait_for(packets.REGISTER)
    update(ap, SEND_REQUEST, LOBBY)
    ap.settle()
    barrier(ap, agent)
    assert agent.of_type(packets.CLIENT_INFO) == []
    agent.send(Packet(packets.REGISTERED, appid=b"Lobby"))
    agent.wait_for(packets.CLIENT_INFO)


def test_changed_neighbours_are_asked_for_the_clients_of_every_ssid(start, agent):
    agent.answer_for["Hall"] = IGNORE
    configure(shared(LOBBY, "Lobby"), shared(8, "Hall"), shared(9, "Yard", IAPC_ENABLE=1))
    ap = start()
    agent.wait_for(packets.CLIENT_INFO)
    agent.received.clear()
    agent.report_neighbours_changed()
    agent.wait_for(packets.CLIENT_INFO, count=2)
    barrier(ap, agent)
    requests = {request(ssid, 0) for ssid in (b"Lobby", b"Hall")}
    assert {packet.encode() for packet in agent.of_type(packets.CLIENT_INFO)} == requests


# Keys


def pmk_record(lifetime, identity, *more, mac=ALICE, key=TEST_KEY, eap_type=25):
    items = (
        b"\x0a\x06" + bytes.fromhex(mac.replace(":", "")) + b"\x01\x20" + key + b"\x02\x04" + u32(lifetime)
        + bytes([3, len(identity)]) + identity + bytes([4, 1, eap_type]) + b"".join(more)
    )  # fmt: skip
    return b"\x00\x01" + u16(len(items)) + items


def lifetime(answer):
    """The lifetime of the payload's first record, a key; it depends on the moment. Before it there are the record's
    kind and length, the client, the key, and the lifetime's own type and length."""
    at = 4 + 8 + 34 + 2
    return int.from_bytes(answer.payload[at : at + 4], "big")


def test_an_active_client_s_key_is_the_answer_to_a_request(start, agent):
    ap = start_registered(start, agent)
    add_key(ap, ALICE)
    let_in(ap, ALICE)
    agent.received.clear()
    agent.send(packets.request("Lobby", ASKER))
    (answer,) = agent.wait_for(packets.CLIENT_INFO)
    assert KEY_LIFETIME - 60 < lifetime(answer) <= KEY_LIFETIME
    assert answer.encode() == wire(10, 2, 2, b"Lobby", pmk_record(lifetime(answer), b"alice"), ASKER)


@pytest.mark.parametrize(
    "more, items",
    [
        ({"vlan": 100}, [b"\x06\x04\x00\x00\x00\x64"]),
        ({"vlan": 0}, [b"\x06\x04\x00\x00\x00\x00", b"\x08\x01\x00"]),
        ({"limits": (1000, -1)}, [b"\x07\x08\x00\x00\x03\xe8\xff\xff\xff\xff"]),
        ({"limits": (-1, 500)}, [b"\x07\x08\xff\xff\xff\xff\x00\x00\x01\xf4"]),
        ({"interim": 600}, [b"\x09\x04\x00\x00\x02\x58"]),
        (
            {"vlan": 0, "limits": (1, 2), "interim": 3},
            [b"\6\4\0\0\0\0", b"\7\x08\0\0\0\1\0\0\0\2", b"\x09\4\0\0\0\3", b"\x08\1\0"],
        ),
        ({"eap_type": 255, "key": bytes(32)}, []),
    ],
)
def test_what_came_with_the_key_is_sent_with_it(start, agent, more, items):
    ap = start_registered(start, agent)
    add_key(ap, ALICE, b"x" * 255, **more)
    let_in(ap, ALICE)
    (answer,) = answers(ap, agent)
    fixed = {name: more[name] for name in ("key", "eap_type") if name in more}
    assert answer.payload == pmk_record(lifetime(answer), b"x" * 255, *items, **fixed)


def test_the_key_of_a_full_authentication_is_preferred(start, agent):
    ap = start_registered(start, agent)
    add_key(ap, ALICE, b"cached", sub_code=ADD_OKC_KEY)
    let_in(ap, ALICE)
    assert [packets.decode_clients(answer.payload)[0].identity for answer in answers(ap, agent)] == [b"cached"]
    add_key(ap, ALICE, b"full")
    assert [packets.decode_clients(answer.payload)[0].identity for answer in answers(ap, agent)] == [b"full"]
    tell(ap, ALICE, KEY, DELETE_KEY)
    assert [packets.decode_clients(answer.payload)[0].identity for answer in answers(ap, agent)] == [b"cached"]


def test_an_expired_key_is_sent_all_the_same(start, agent):
    ap = start_registered(start, agent)
    add_key(ap, ALICE, expiration=1)
    let_in(ap, ALICE)
    (answer,) = answers(ap, agent)
    assert 2**32 - time.monotonic() - 60 < lifetime(answer) < 2**32


def test_only_active_clients_are_sent(start, agent):
    ap = start_registered(start, agent)
    add_key(ap, ALICE)
    assert answers(ap, agent) == []
    let_in(ap, ALICE)
    assert len(answers(ap, agent)) == 1
    ap.send_event("VRE.node_leave", whereabouts("Lobby", "ath1", ALICE))
    ap.settle()
    assert len(answers(ap, agent)) == 1, "it has moved to another VAP"
    ap.send_event("VRE.node_leave", whereabouts("Lobby", mac=ALICE))
    ap.settle()
    assert answers(ap, agent) == []
    let_in(ap, ALICE)
    assert len(answers(ap, agent)) == 1, "the key was kept"


def test_a_client_without_key_and_login_is_not_sent(start, agent):
    ap = start_registered(start, agent)
    let_in(ap, ALICE)
    assert answers(ap, agent) == []


def test_a_request_for_another_ssid_is_not_answered(start, agent):
    ap = start_registered(start, agent)
    add_key(ap, ALICE)
    let_in(ap, ALICE)
    for ssid in ("Lobb", "Lobby2", "lobby", "", "Lobby\0"):
        assert answers(ap, agent, ssid) == []


@pytest.mark.parametrize(
    "more, length",
    [
        ({}, 53),
        ({"vlan": 100}, 59),
        ({"vlan": 0}, 62),
        ({"limits": (1, 2)}, 63),
        ({"vlan": 0, "limits": (1, 2), "interim": 3}, 78),
    ],
)
def test_a_key_without_identity_leaves_a_hole_in_the_payload(start, agent, more, length):
    ap = start_registered(start, agent)
    add_key(ap, ALICE, b"", **more)
    let_in(ap, ALICE)
    (answer,) = answers(ap, agent)
    assert answer.payload == b"\x00\x01" + u16(length) + bytes(length)
    assert packets.decode_clients(answer.payload) == [packets.Hole(length)]


def test_the_next_record_follows_a_hole_at_once(start, agent):
    ap = start_registered(start, agent)
    add_key(ap, ALICE, b"")
    add_login(ap)
    let_in(ap, ALICE)
    (answer,) = answers(ap, agent)
    login = login_items(b"10.1.2.3", login_left(answer.payload[8:]), 500)
    assert answer.payload == b"\x00\x01\x00\x35" + b"\x00\x02" + u16(len(login)) + login + bytes(53)
    assert [type(record).__name__ for record in packets.decode_clients(answer.payload)] == ["Hole", "Login"]


def test_the_next_client_s_record_follows_a_hole_at_once(start, agent):
    ap = start_registered(start, agent)
    nameless = [f"02:00:00:00:02:{number:02x}" for number in range(5)]
    named = [f"02:00:00:00:03:{number:02x}" for number in range(5)]
    for mac in nameless + named:
        add_key(ap, mac, b"" if mac in nameless else mac.encode())
        let_in(ap, mac)
    (answer,) = answers(ap, agent)
    assert len(answer.payload) == 5 * 57 + 5 * (57 + 17), "what is left out counts"
    records = packets.decode_clients(answer.payload)
    keys = [record for record in records if isinstance(record, packets.Pmk)]
    assert sorted((key.mac, key.identity) for key in keys) == [(mac, mac.encode()) for mac in named]
    assert [record for record in records if record not in keys] == [packets.Hole(53)] * 5


def test_a_hundred_clients_are_sent_fifteen_in_a_packet(start, agent):
    ap = start_registered(start, agent)
    macs = [f"02:00:00:00:01:{number:02x}" for number in range(100)]
    for mac in macs:
        add_key(ap, mac, mac.encode().ljust(20, b"-"))
        let_in(ap, mac)
    found = answers(ap, agent)
    records = [packets.decode_clients(answer.payload) for answer in found]
    assert [len(of_packet) for of_packet in records] == [15] * 6 + [10]
    assert [len(answer.payload) for answer in found] == [15 * 77] * 6 + [10 * 77]
    assert sorted(record.mac for of_packet in records for record in of_packet) == macs
    assert all(record.identity == record.mac.encode().ljust(20, b"-") for of in records for record in of)


# Portal logins


def login_items(ip, left, blackout, *more, mac=ALICE):
    return (
        b"\x08\x14" + mac.upper().encode() + b"\0\0\0"
        + bytes([7, len(ip)]) + ip + b"\x06\x04" + u32(left) + b"\x10\x04" + u32(blackout) + b"".join(more)
    )  # fmt: skip


def add_login(ap, *, left=1000, blackout=500, user="", **more):
    now = int(time.time())
    value = login_value("10.1.2.3", user, expire=now + left, blackout=now + left + blackout, **more)
    tell(ap, ALICE, LOGIN, ADD_LOGIN, value)


def login_left(payload):
    """The login's lifetime in its items, which depends on the moment."""
    at = 22 + 2 + len("10.1.2.3") + 2
    return int.from_bytes(payload[at : at + 4], "big")


@pytest.mark.parametrize("path", [2, 1, 0])
def test_a_portal_login_is_announced_when_its_client_becomes_active(start, agent, path):
    configure(shared(LOBBY, "Lobby", AP_IS_PORTAL_CONFIGURED=1, IAPC_ENABLE=path))
    ap = start()
    barrier(ap, agent)
    add_login(ap, user="alice", login=5, limits=(1, 2))
    let_in(ap, ALICE)
    (announced,) = agent.wait_for(packets.PORTAL_LOGIN)
    left = login_left(announced.payload)
    assert 940 < left <= 1000
    assert announced.encode() == wire(3, 1, path, b"Lobby", login_items(b"10.1.2.3", left, 500))


@pytest.mark.parametrize(
    "keys, login, items",
    [
        (
            {"PORTAL_RADIUS_ACCT_ENABLED": 1},
            {"user": "alice", "login": 0x01020304},
            [b"\x0e\x05alice", b"\x0f\x04\1\2\3\4"],
        ),
        ({"PORTAL_RADIUS_ACCT_ENABLED": 1}, {"user": ""}, []),
        ({"PORTAL_RADIUS_ACCT_ENABLED": 1}, {"user": "u" * 64}, [b"\x0e\x40" + b"u" * 64, b"\x0f\4\0\0\0\0"]),
        ({"PER_USER_BANDWIDTH_ENABLED": 1}, {"limits": (1000, -1)}, [b"\x11\4\0\0\3\xe8", b"\x12\4\xff\xff\xff\xff"]),
        ({"PER_USER_BANDWIDTH_ENABLED": 1}, {"limits": (-1, -1)}, []),
        (
            {"PORTAL_RADIUS_ACCT_ENABLED": 1, "PER_USER_BANDWIDTH_ENABLED": 1},
            {"user": "a", "login": 9, "limits": (1, 2)},
            [b"\x0e\1a", b"\x0f\4\0\0\0\x09", b"\x11\4\0\0\0\1", b"\x12\4\0\0\0\2"],
        ),
    ],
)
def test_what_came_with_the_login_is_sent_with_it(start, agent, keys, login, items):
    ap = start_registered(start, agent, **keys)
    add_login(ap, **login)
    let_in(ap, ALICE)
    (answer,) = answers(ap, agent)
    record = login_items(b"10.1.2.3", login_left(answer.payload[4:]), 500, *items)
    assert answer.payload == b"\x00\x02" + u16(len(record)) + record


def test_a_login_that_has_run_out_is_sent_with_what_is_left_of_its_blackout(start, agent):
    ap = start_registered(start, agent)
    add_login(ap, left=-100, blackout=1100)
    let_in(ap, ALICE)
    (answer,) = answers(ap, agent)
    (record,) = packets.decode_clients(answer.payload)
    assert record.lifetime == 1
    assert 940 < record.blackout <= 1000


def test_a_login_whose_blackout_is_over_is_neither_announced_nor_sent(start, agent):
    ap = start_registered(start, agent)
    add_login(ap, left=-100, blackout=50)
    let_in(ap, ALICE)
    over = "Completed with blaskout time. This entry should have been deleted. Not sending synch pakcet."
    assert [r.function for r in ap.log() if r.message == over] == ["send_cl_portal_login_packet"]
    assert answers(ap, agent) == []
    assert agent.of_type(packets.PORTAL_LOGIN) == []


def test_a_client_s_key_comes_before_its_login(start, agent):
    ap = start_registered(start, agent)
    add_login(ap)
    add_key(ap, ALICE)
    let_in(ap, ALICE)
    (answer,) = answers(ap, agent)
    assert [type(record).__name__ for record in packets.decode_clients(answer.payload)] == ["Pmk", "Login"]
    tell(ap, ALICE, LOGIN, DELETE_LOGIN)
    (answer,) = answers(ap, agent)
    assert [type(record).__name__ for record in packets.decode_clients(answer.payload)] == ["Pmk"]


# Two access points


def share_alice(start, agent):
    ap = start_registered(start, agent, AP_IS_PORTAL_CONFIGURED=1)
    add_key(ap, ALICE)
    add_login(ap)
    let_in(ap, ALICE)
    return ap


def expect_alice(ap, other):
    """She arrives at the neighbour when it asks, when its neighbours change, and when she is let in."""

    def arrived():
        return [line for line in other.lines if line.startswith("from AP 1: clients")]

    (line,) = wait_until(arrived, "the client")
    assert f"PMK of {ALICE}: {TEST_KEY[:4].hex()}... of 32 bytes, identity \"alice\", " in line
    assert f"portal login of {ALICE} at 10.1.2.3: " in line
    other.change_neighbours()
    wait_until(lambda: len(arrived()) == 2, "the client once more")
    let_in(ap, ALICE)
    announced = "from AP 1: portal login"
    wait_until(lambda: any(line.startswith(announced) for line in other.lines), "an announced login")


def test_a_client_s_key_and_login_arrive_at_a_second_access_point(start, agent, daemon):
    if os.environ["WL_IN_SANDBOX"] == "in-place":
        pytest.skip("there is no second access point where the first one runs in place")
    if not links.permitted():
        pytest.skip(links.LACKING)
    ap = share_alice(start, agent)
    with closing(neighbour.SecondAccessPoint(agent, "Lobby", daemon)) as other:
        expect_alice(ap, other)
        registered = [line for line in other.lines if line.startswith("from its daemon: registration")]
        assert len(registered) == 1, "there is a daemon"


def test_a_client_s_key_and_login_arrive_at_the_far_end_of_a_link(start, agent):
    ap = share_alice(start, agent)
    with closing(neighbour.FarEnd(agent, "Lobby")) as other:
        expect_alice(ap, other)


# What else goes to the neighbours


def test_inter_ap_parameters_are_forwarded(start, agent):
    ap = start()
    for parameters in (b"\x01\x1e", b"\x00\xff", b"\x02\x03rest"):
        ap.send_event("VRE.inter_ap_synch", parameters)
    agent.wait_for(packets.INTER_AP, count=3)
    assert sent(agent) == [
        wire(12, 3, 2, b"", b"\x09\x01" + parameters[:1] + b"\x0a\x01" + parameters[1:2])
        for parameters in (b"\x01\x1e", b"\x00\xff", b"\x02\x03")
    ]
    ap.send_event("VRE.inter_ap_synch", b"\x01")
    assert ap.wait_for_log("Insufficient data len [1] received for event[101]")


def test_steering_attempts_are_forwarded(start, agent):
    ap = start()
    for code in range(40):
        ap.send_event("VRE.smart_steering", coded(code, bytes.fromhex("02000000000a") + bytes(18) + bytes([code])))
    barrier(ap, agent)
    assert sent(agent)[:-1] == [
        wire(12, 2, 2, b"", b"\x05\x06" + bytes.fromhex("02000000000a") + b"\x06\x01" + bytes([code]))
        for code in (2, 4, 7, 8, 9, 25, 26, 27)
    ]


def test_vlan_gateways_stay_here(start, agent):
    ap = start()
    ap.send_event("VRE.vlan.gateway.info", bytes(26))
    barrier(ap, agent)
    assert [packet.type for packet in agent.received] == [packets.INTER_AP]


def test_packets_that_make_no_sense_leave_the_connection_open(start, agent):
    ap = start_registered(start, agent)
    log_everything(ap)
    for kind, subtype, appid, complaint in (
        (200, 3, b"Lobby", "Invalid message type[200] from synch-agent "),
        (0, 0, b"", "Invalid message type[0] from synch-agent "),
        (32, 0, b"Lobby", "Invalid message type[32] from synch-agent "),
        (10, 2, b"Lobby", "Packet subtype [2] recevied (which should not be received) for type [10]."),
        (10, 3, b"Lobby", "Invalid packet subtype [3] recevied for type [10]."),
    ):
        agent.send(Packet(kind, subtype, appid, b"\x01"))
        assert ap.wait_for_log(complaint).message == complaint
    barrier(ap, agent)
    assert agent.connections == 1
    assert [packet.type for packet in agent.received] == [packets.INTER_AP]
