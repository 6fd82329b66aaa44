"""The agent's own judgement of what the daemon sends: it is the verdict of other tests, so it must be right itself."""

import socket

import pytest
from synch_bytes import registration, request, wire

from sim.agent import packets
from sim.agent.agent import Agent
from sim.agent.connection import ADDRESS, Connection
from sim.agent.packets import Hole, Login, Malformed, Packet, Pmk
from sim.events import u16

PMK = (
    b"\x0a\x06\x02\x00\x00\x00\x00\x0a" + b"\x01\x20" + bytes(32) + b"\x02\x04\x00\x00\x0e\x10"
    + b"\x03\x05alice" + b"\x04\x01\x19"
)  # fmt: skip
LOGIN = b"\x08\x1402:00:00:00:00:0A\0\0\0" + b"\x07\x0810.1.2.3" + b"\x06\x04\0\0\0\1" + b"\x10\x04\0\0\0\2"
PMK_RECORD = b"\x00\x01" + u16(len(PMK)) + PMK
LOGIN_RECORD = b"\x00\x02" + u16(len(LOGIN)) + LOGIN
HOLE = b"\x00\x01\x00\x35"


@pytest.mark.parametrize(
    "payload, kinds",
    [
        (PMK_RECORD, [Pmk]),
        (PMK_RECORD + LOGIN_RECORD, [Pmk, Login]),
        (HOLE + bytes(53), [Hole]),
        (HOLE + LOGIN_RECORD + bytes(53), [Hole, Login]),
        (HOLE + PMK_RECORD + HOLE + HOLE + LOGIN_RECORD + bytes(3 * 53), [Hole, Pmk, Hole, Hole, Login]),
        (PMK_RECORD + b"\x00\x01\x00\x4e" + bytes(78), [Pmk, Hole]),
    ],
)
def test_records_and_holes_are_told_apart(payload, kinds):
    assert [type(record) for record in packets.decode_clients(payload)] == kinds


@pytest.mark.parametrize(
    "payload",
    [
        PMK_RECORD[:-1],
        PMK_RECORD + b"\0",
        b"\0",
        LOGIN_RECORD[:3],
        b"\x00\x03" + LOGIN_RECORD[2:],
        HOLE,
        HOLE + bytes(52),
        HOLE + bytes(54),
        HOLE + LOGIN_RECORD,
        HOLE + bytes(53) + LOGIN_RECORD,
        b"\x00\x01\x00\x36" + bytes(54),
        b"\x00\x02\x00\x35" + bytes(53),
        LOGIN_RECORD.replace(b"0A\0", b"0a\0"),
        LOGIN_RECORD.replace(b"0A\0", b"0A\1"),
    ],
)
def test_records_that_break_the_rules_are_refused(payload):
    with pytest.raises(Malformed):
        packets.decode_clients(payload)


@pytest.mark.parametrize(
    "raw",
    [
        registration(32, b"Lobby"),
        registration(35, b"Lobby"),
        request(b"Lobby", 1),
        wire(10, 2, 2, b"Lobby", PMK_RECORD),
        wire(3, 1, 2, b"Lobby", LOGIN),
        wire(12, 2, 2, b"", b"\x05\x06" + bytes(6) + b"\x06\x01\x05"),
        wire(12, 3, 2, b"", b"\x09\x01\x01\x0a\x01\x1e"),
        wire(16, 1, 0, b"", b"\x10\x1b" + bytes(27)),
    ],
)
def test_what_the_daemon_may_send_is_well_formed(raw):
    packets.check(packets.decode(raw))


@pytest.mark.parametrize(
    "packet",
    [
        Packet(200),
        Packet(packets.REGISTERED, appid=b"Lobby"),
        Packet(packets.REGISTER, appid=b"Lobby", payload=b"\x0a\x02lo\x0b\x04\0\0\4\x08"),
        Packet(packets.REGISTER, appid=b"Lobby", payload=b"\x0a\x02lo\x0b\x02\4\x08\x0c\x0ewl_evt_handler"),
        Packet(packets.CLIENT_INFO, 1, b"Lobby", b"\x1e\x01"),
        Packet(packets.CLIENT_INFO, 1, b"Lobby", b"\x1e\x02\1\1"),
        Packet(packets.CLIENT_INFO, 2, b"Lobby", PMK),
        Packet(packets.PORTAL_LOGIN, 1, b"Lobby", LOGIN_RECORD),
        Packet(packets.INTER_AP, 3, b"", b"\x0a\x01\x1e\x09\x01\x01"),
        Packet(packets.VLAN_GATEWAY, 1, b"", b"\x10\x1a" + bytes(26)),
        Packet(packets.CLIENT_INFO, 2, b"Lobby", LOGIN_RECORD * 100),
    ],
)
def test_what_the_daemon_may_not_send_is_refused(packet):
    with pytest.raises(Malformed):
        packets.check(packet)


def test_an_agent_remembers_what_was_malformed_and_keeps_the_connection():
    with Agent() as agent, Connection(socket.create_connection(ADDRESS)) as daemon:
        daemon.send(request(b"Lobby", 1))
        agent.wait_for(packets.CLIENT_INFO)
        assert agent.malformed == []
        daemon.send(wire(10, 2, 2, b"Lobby", HOLE))
        daemon.send(registration(32, b"Lobby"))
        agent.wait_for(packets.REGISTER)
        assert agent.malformed == ["0 bytes of zeros, where 53 have been left out"]
        assert agent.connections == 1
