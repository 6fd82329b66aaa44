"""An agent that cuts its words, falls silent, talks without end, or goes away at any moment."""

import random
import socket
import struct
import threading
from contextlib import closing, suppress

import pytest
from synch_bytes import ADD, DELETE, registration, request, told, update

from sim import links
from sim.agent import packets
from sim.agent.agent import Agent
from sim.agent.connection import Connection, accept, listen
from sim.agent.packets import Packet
from sim.background import wait_until
from sim.clients import ADD_KEY, KEY, client_info, key_value, whereabouts
from sim.events import u16
from sim.profiles import shared, write_daemon_configuration, write_profile

LOBBY = 7
TEST_KEY = bytes(range(0xA0, 0xC0))
ALICE = "02:00:00:00:00:0a"
ACCEPTED = Packet(packets.REGISTERED, appid=b"Lobby")
REFUSED = Packet(packets.REFUSED, appid=b"Lobby")
LOBBY_REGISTRATION = registration(32, b"Lobby")
BY_HAND = [packets.REGISTER, packets.CLIENT_INFO]


@pytest.fixture
def listener():
    """The agent's port, served by hand: each connection is one that the test accepts."""
    with listen() as listener:
        yield listener


@pytest.fixture
def lobby(start):
    """Starts a daemon that shares the clients of "Lobby" and of the profiles given."""

    def start_it(*more, **keys):
        profiles = (shared(LOBBY, "Lobby", **keys), *more)
        for profile in profiles:
            write_profile(profile["SSID_PROFILE_ID"], profile)
        write_daemon_configuration({profile["SSID_PROFILE_ID"]: profile["WL_PROFILE_SSID"] for profile in profiles})
        return start()

    return start_it


def accept_registration(listener, answer=ACCEPTED):
    """Accepts the daemon, takes its registration and answers it."""
    connection = accept(listener)
    assert connection.receive().type == packets.REGISTER
    if answer is not None:
        connection.send(answer)
    return connection


def add_clients(ap, count=1):
    for number in range(count):
        mac = f"02:00:00:00:{number >> 8:02x}:{number & 255:02x}"
        key = key_value(TEST_KEY, mac.encode(), interim=0)
        ap.send_event("VRE.cl_info", client_info(KEY, ADD_KEY, key, mac, LOBBY))
        ap.send_event("VRE.node_authorize", whereabouts("Lobby", mac=mac))
    ap.settle()


def reset(connection):
    """Closes a connection as a crashed machine does."""
    connection.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def served(ap):
    """The daemon serves its bus and its reload channel."""
    ap.settle()
    return ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"


def received(ap, kind):
    return [r for r in ap.log() if r.message.startswith(f"Received synch agent packet type : {kind} ")]


def ends(listener, connection):
    """Ends a test: the daemon still talks to its agent, on the connection given or on a new one."""
    if connection is None:
        connection = accept_registration(listener)
    connection.send(Packet(packets.NEIGHBOURS_CHANGED))
    while connection.receive().payload != b"\x1e\x01\x00":
        pass
    connection.close()


# Packets in pieces


def test_a_packet_that_comes_byte_by_byte_counts_once(lobby, listener):
    ap = lobby()
    connection = accept_registration(listener, answer=None)
    connection.send_byte_by_byte(ACCEPTED)
    assert connection.receive().type == packets.CLIENT_INFO
    add_clients(ap)
    connection.send_byte_by_byte(packets.request("Lobby"))
    (record,) = packets.decode_clients(connection.receive().payload)
    assert record.pmk == TEST_KEY
    assert (len(received(ap, 33)), len(received(ap, 10))) == (1, 1)
    ends(listener, connection)


def test_packets_in_pieces_of_any_size_count_once(lobby, listener):
    ap = lobby()
    connection = accept_registration(listener)
    stream = b"".join(Packet(40 + n, 0, bytes(n), bytes(n * 20)).encode() for n in range(100))
    pieces = random.Random(5)
    while stream:
        size = pieces.choice((1, 2, 13, 14, 15, 100, 5000))
        connection.send(stream[:size])
        stream = stream[size:]
        if pieces.random() < 0.3:
            wait_until(lambda: connection.unread() == 0, "a piece to be read")
    ends(listener, connection)
    assert [len(received(ap, 40 + n)) for n in range(100)] == [1] * 100


@pytest.mark.parametrize("held", [1, 7, 13, 14, 16, 21], ids=lambda held: f"{held} of 22 bytes")
def test_an_agent_that_stalls_within_a_packet_keeps_nothing_from_being_served(lobby, listener, held):
    ap = lobby()
    connection = accept_registration(listener)
    add_clients(ap)
    assert told(ap, connection) == [request(b"Lobby", 1)]
    whole = packets.request("Lobby").encode()
    connection.send(whole[:held])
    for _ in range(3):
        assert told(ap, connection) == [], "the bus is served, and the agent told what comes from there"
        assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
    connection.send(whole[held:])
    (answer,) = told(ap, connection)
    (record,) = packets.decode_clients(packets.decode(answer).payload)
    assert record.pmk == TEST_KEY
    connection.close()


def test_an_agent_that_leaves_off_anywhere_in_a_packet_is_registered_with_anew(lobby, listener):
    ap = lobby()
    whole = Packet(packets.REGISTERED, appid=b"Lobby", payload=b"\1\2\3\4").encode()
    for leave in (lambda connection: connection.close(), reset):
        for size in range(len(whole)):
            connection = accept_registration(listener, answer=None)
            connection.send(whole[:size])
            wait_until(lambda: connection.unread() == 0, "what there is to be read")
            leave(connection)
    assert received(ap, 33) == []
    ends(listener, None)
    assert len(received(ap, 33)) == 1, "nothing is left of the pieces"


def test_a_piece_is_forgotten_when_sending_finds_the_agent_gone(lobby, listener):
    ap = lobby()
    connection = accept_registration(listener)
    assert connection.receive().type == packets.CLIENT_INFO
    connection.send(ACCEPTED.encode()[:16])
    wait_until(lambda: connection.unread() == 0, "the piece to be read")
    with ap.held():
        reset(connection)
        ap.send_event("VRE.inter_ap_synch", bytes(2))  # which is served before the agent's connection
    ap.wait_for_log("error in sending packet to sunch agent. send() failed [")
    ends(listener, None)
    assert len(received(ap, 33)) == 2


# An agent that is restarted


class Port:
    """The agent's port, which a restart closes and opens again."""

    def __init__(self):
        self.listener = listen()

    def restart(self, ap):
        self.listener.close()
        self.listener = listen()
        for _ in range(2):  # the daemon notices in one turn and looks for its agent in the next
            ap.settle()

    def close(self):
        self.listener.close()


@pytest.fixture
def port():
    with closing(Port()) as port:
        yield port


def connected(ap, connection):
    pass


def registration_received(ap, connection):
    assert told(ap, connection) == [LOBBY_REGISTRATION]


def accepted(ap, connection):
    registration_received(ap, connection)
    connection.send(ACCEPTED)


def refused(ap, connection):
    registration_received(ap, connection)
    connection.send(REFUSED)


def refused_and_tried_again(ap, connection):
    for _ in range(3):
        refused(ap, connection)  # and with that registered once
    registration_received(ap, connection)


def asked(ap, connection):
    accepted(ap, connection)
    connection.send(Packet(packets.NEIGHBOURS_CHANGED))
    assert told(ap, connection) == [request(b"Lobby", 0)]


def while_asking(ap, connection):
    asked(ap, connection)
    connection.send(packets.request("Lobby").encode()[:16])


def while_answered(ap, connection):
    asked(ap, connection)
    for _ in range(50):
        connection.send(packets.request("Lobby"))


def after_an_answer(ap, connection):
    asked(ap, connection)
    connection.send(packets.request("Lobby"))
    answers = [packets.decode(answer) for answer in told(ap, connection)]
    assert [len(packets.decode_clients(answer.payload)) for answer in answers] == [16, 16, 8]


CLOSED_OR_RESET = pytest.mark.parametrize("leave", [Connection.close, reset], ids=["closed", "reset"])


@CLOSED_OR_RESET
@pytest.mark.parametrize(
    "until",
    [
        connected,
        registration_received,
        accepted,
        refused,
        refused_and_tried_again,
        asked,
        while_asking,
        while_answered,
        after_an_answer,
    ],
)
def test_an_agent_restarted_in_any_state_is_registered_with_anew(lobby, port, until, leave):
    ap = lobby()
    connection = accept_registration(port.listener)
    add_clients(ap, 40)
    assert told(ap, connection) == [request(b"Lobby", 1)]
    for _ in range(3):
        connection.close()
        port.restart(ap)
        connection = accept(port.listener)
        until(ap, connection)
        leave(connection)
    port.restart(ap)
    connection = accept(port.listener)
    after_an_answer(ap, connection)
    assert told(ap, connection) == []
    assert served(ap)
    connection.close()


@CLOSED_OR_RESET
def test_an_agent_restarted_when_some_ssids_are_accepted_is_told_each_of_them_once(lobby, port, leave):
    ap = lobby(shared(8, "Hall"), shared(9, "Yard"))
    all_of_them = sorted(registration(32, ssid) for ssid in (b"Lobby", b"Hall", b"Yard"))
    connection = accept(port.listener)
    assert sorted(told(ap, connection)) == all_of_them
    connection.send(ACCEPTED)
    assert told(ap, connection) == [request(b"Lobby", 1)]
    for _ in range(3):
        connection.send(Packet(packets.REFUSED, appid=b"Hall"))
        assert told(ap, connection) == [registration(32, b"Hall")]
        connection.send(Packet(packets.REFUSED, appid=b"Hall"))
        leave(connection)
        port.restart(ap)
        connection = accept(port.listener)
        assert sorted(told(ap, connection)) == all_of_them
        connection.send(ACCEPTED)
        assert told(ap, connection) == [], "its clients have been asked for"
    for ssid in (b"Hall", b"Yard"):
        connection.send(Packet(packets.REGISTERED, appid=ssid))
        assert told(ap, connection) == [request(ssid, 1)]
    connection.close()


@CLOSED_OR_RESET
def test_an_agent_restarted_while_the_interface_is_down_is_told_the_ssid_when_it_is_up(lobby, port, leave):
    if not links.permitted():
        pytest.skip(links.LACKING)
    assert links.add_pair("uplink", "far") and links.set_up("far")
    ap = lobby(ExternalDevice="uplink")
    over_uplink = [registration(32, b"Lobby", b"uplink")]
    connection = accept(port.listener)

    def restart():
        leave(connection)
        port.restart(ap)
        return accept(port.listener)

    for _ in range(3):
        assert told(ap, connection) == []
        connection = restart()
    for _ in range(2):
        assert told(ap, connection) == []
        assert links.set_up("uplink")
        assert wait_until(lambda: told(ap, connection), "a registration") == over_uplink
        connection.send(REFUSED)
        assert told(ap, connection) == over_uplink
        assert links.set_down("uplink")
        connection.send(REFUSED)
        assert told(ap, connection) == [], "refused, and not to be tried yet"
        connection = restart()
    update(ap, DELETE, LOBBY)
    assert told(ap, connection) == [registration(35, b"Lobby", b"uplink")]
    assert links.set_up("uplink")
    connection = restart()
    assert told(ap, connection) == [], "a profile that is gone is not tried again"
    links.remove("uplink")
    connection.close()


@CLOSED_OR_RESET
def test_an_agent_restarted_after_an_ssid_is_withdrawn_is_not_told_it(lobby, port, leave):
    ap = lobby(shared(8, "Hall"))
    connection = accept(port.listener)
    both = sorted((LOBBY_REGISTRATION, registration(32, b"Hall")))
    assert sorted(told(ap, connection)) == both
    connection.send(ACCEPTED)
    assert told(ap, connection) == [request(b"Lobby", 1)]
    update(ap, DELETE, LOBBY)
    assert told(ap, connection) == [registration(35, b"Lobby")]
    for _ in range(2):
        leave(connection)
        port.restart(ap)
        connection = accept(port.listener)
        assert told(ap, connection) == [registration(32, b"Hall")]
        connection.send(ACCEPTED)  # late, and of nothing that is there
        assert told(ap, connection) == []
    update(ap, ADD, LOBBY)
    assert told(ap, connection) == [LOBBY_REGISTRATION]
    leave(connection)
    port.restart(ap)
    connection = accept(port.listener)
    assert sorted(told(ap, connection)) == both
    connection.close()


@CLOSED_OR_RESET
def test_an_agent_that_leaves_while_an_ssid_is_withdrawn_is_not_told_it_again(lobby, port, leave):
    ap = lobby(shared(8, "Hall"))
    connection = accept(port.listener)
    assert len(told(ap, connection)) == 2
    with ap.held():
        leave(connection)
        update(ap, DELETE, LOBBY)  # which is served before the agent's connection
    if leave is reset:
        ap.wait_for_log("error in sending packet to sunch agent. send() failed [")
    port.restart(ap)
    connection = accept(port.listener)
    assert told(ap, connection) == [registration(32, b"Hall")]
    connection.close()


def test_an_agent_restarted_before_it_accepts_is_registered_with_anew(lobby, port):
    ap = lobby()
    for _ in range(3):
        port.restart(ap)
    connection = accept_registration(port.listener)
    assert connection.receive().type == packets.CLIENT_INFO
    ends(port.listener, connection)


def test_a_restarted_daemon_is_a_new_connection(lobby, agent):
    ap = lobby()
    agent.wait_for(packets.CLIENT_INFO)
    ap.stop()
    ap.start()
    agent.wait_for(packets.CLIENT_INFO, count=2)
    assert [packet.type for packet in agent.received] == BY_HAND * 2
    assert agent.connections == 2


def test_an_agent_that_comes_later_is_told_all_ssids(start):
    for profile_id, ssid in ((7, "Lobby"), (8, "Hall")):
        write_profile(profile_id, shared(profile_id, ssid))
    write_daemon_configuration({7: "Lobby", 8: "Hall"})
    ap = start()
    with Agent() as agent:
        ap.settle()
        agent.wait_for(packets.CLIENT_INFO, count=2)
        assert sorted(packet.ssid for packet in agent.of_type(packets.REGISTER)) == ["Hall", "Lobby"]
        agent.restart()
        agent.wait_for(packets.REGISTER, count=4)
        assert len(agent.of_type(packets.CLIENT_INFO)) == 2, "the clients are asked for once"


# An agent that does not read, and one that does not stop


def test_an_agent_that_does_not_read_is_dropped_and_the_bus_is_served(lobby, agent):
    ap = lobby()
    agent.wait_for(packets.CLIENT_INFO)
    add_clients(ap, 300)
    agent.read_nothing()
    failed = "error in sending packet to sunch agent. send() failed ["

    def dropped():
        with suppress(OSError):  # the daemon may be gone before the last of them
            for _ in range(20):
                agent.ask_for_clients("Lobby")
        assert served(ap)
        return [r.message for r in ap.log() if r.message.startswith(failed)]

    reason, *_ = wait_until(dropped, "a packet that cannot be sent")
    assert reason == failed + "Resource temporarily unavailable]"
    agent.read_again()
    agent.wait_for(packets.REGISTER, count=2)
    agent.ask_for_clients("Lobby")
    wait_until(lambda: len(clients_of_the_last_connection(agent)) == 300, "all clients over the new connection")


def clients_of_the_last_connection(agent):
    """The clients that the daemon has sent since it last registered, whatever the number of requests."""
    since = max(n for n, packet in enumerate(agent.received) if packet.type == packets.REGISTER)
    answers = [p for p in agent.received[since:] if (p.type, p.subtype) == (packets.CLIENT_INFO, 2)]
    return {record.mac for answer in answers for record in packets.decode_clients(answer.payload)}


def test_a_flood_from_the_agent_does_not_keep_the_bus_from_being_served(lobby, listener):
    ap = lobby()
    connection = accept_registration(listener)
    assert connection.receive().type == packets.CLIENT_INFO
    count = 5000
    flood = threading.Thread(target=lambda: [connection.send(Packet(200, 1)) for _ in range(count)])
    flood.start()
    for _ in range(20):
        assert served(ap)
    flood.join()
    connection.send(Packet(packets.NEIGHBOURS_CHANGED))
    assert connection.receive().payload == b"\x1e\x01\x00"
    assert served(ap)
    connection.close()


def test_a_flood_of_requests_is_answered(lobby, agent):
    ap = lobby()
    agent.wait_for(packets.CLIENT_INFO)
    add_clients(ap, 30)
    for _ in range(200):
        agent.ask_for_clients("Lobby")
    answers = agent.wait_for(packets.CLIENT_INFO, 2, count=400)
    assert [len(packets.decode_clients(answer.payload)) for answer in answers] == [16, 14] * 200
    assert agent.connections == 1


# Sizes


def test_a_header_that_announces_4396_bytes_drops_the_connection_at_once(lobby, listener):
    ap = lobby()
    for appid, payload_length in ((b"", 4382), (b"Lobby", 4377), (b"x" * 255, 65535)):
        connection = accept_registration(listener)
        header = Packet(packets.REGISTERED, appid=appid).encode()[:14]
        connection.send(header[:6] + u16(payload_length) + header[8:])
        assert connection.is_dropped(), (appid, payload_length)
    size = 14 + 255 + 65535
    wanted = f"Expected payload len[65535][{size}] for app msg type[33] will not fit in total pkt buffer limit 4395"
    assert ap.wait_for_log(f"Recv tcp stream failed, err[{wanted}]").function == "receive_synch_data"
    ends(listener, None)


def test_packets_of_every_size_up_to_4395_bytes_are_taken(lobby, listener):
    ap = lobby()
    connection = accept_registration(listener)
    for appid, payload in ((b"", b""), (b"", b"x" * 4381), (b"y" * 255, b"x" * 4126), (b"y" * 255, b"")):
        connection.send(Packet(201, 7, appid, payload))
    ends(listener, connection)
    assert [r.message for r in received(ap, 201)] == [
        f"Received synch agent packet type : 201 subtype : 7 for appid(ssid) : [{name}]"
        for name in ("", "", "y" * 255, "y" * 255)
    ]


@pytest.mark.parametrize("seed", range(5))
def test_any_bytes_are_survived(lobby, listener, seed):
    ap = lobby()
    add_clients(ap, 20)
    noise = random.Random(seed)
    connection = accept_registration(listener)
    for _ in range(200):
        kind = noise.choice((10, 33, 34, 36, noise.randrange(256)))
        appid = noise.choice((b"Lobby", b"Lobby\0", b"", noise.randbytes(noise.randrange(256))))
        packet = bytearray(Packet(kind, noise.randrange(4), appid, noise.randbytes(noise.randrange(64))).encode())
        if noise.random() < 0.2:
            packet[noise.randrange(14)] = noise.randrange(256)
        try:
            connection.send(bytes(packet))
        except ConnectionError:
            connection = accept_registration(listener)
    connection.close()
    while True:  # a connection that was made and dropped meanwhile may wait in front of the next
        ap.settle()
        try:
            ends(listener, None)
            break
        except (EOFError, ConnectionError):
            pass
    assert served(ap)


def test_an_application_id_is_compared_byte_by_byte(lobby, listener):
    ap = lobby()
    connection = accept_registration(listener, answer=None)
    for appid in (b"Lobby\0", b"Lobb", b"LOBBY", b"Lobby\0\0\0", b"\0Lobby", b"L" * 255):
        connection.send(Packet(packets.REGISTERED, appid=appid))
    connection.send(Packet(packets.NEIGHBOURS_CHANGED))
    assert connection.receive().payload == b"\x1e\x01\x00", "none of them has registered it"
    assert served(ap)
    connection.close()
