"""The dissector of the synch agent's protocol, on what travels between the daemon and the agent."""

import time

from sim import clients, tshark
from sim.agent import packets
from sim.agent.agent import Agent
from sim.background import wait_until
from sim.profiles import usable, write_daemon_configuration, write_profile

CAPTURE = "/tmp/live.pcap"
ALICE, BOB = "02:00:00:00:00:0a", "02:00:00:00:00:0b"
LOBBY = 7
TEST_KEY = bytes(range(32))


def bring_clients(ap):
    """Alice with a key and a portal login, Bob with a key that has no identity."""
    now = int(time.time())
    alice = clients.key_value(TEST_KEY, b"alice", vlan=12)
    login = clients.login_value("10.0.0.7", "alice", expire=now + 1800, blackout=now + 1860)
    for mac, code, sub_code, value in (
        (ALICE, clients.KEY, clients.ADD_KEY, alice),
        (ALICE, clients.LOGIN, clients.ADD_LOGIN, login),
        (BOB, clients.KEY, clients.ADD_KEY, clients.key_value(TEST_KEY)),
    ):
        ap.send_event("VRE.cl_info", clients.client_info(code, sub_code, value, mac, LOBBY))
    for mac in (ALICE, BOB):
        ap.send_event("VRE.node_authorize", clients.whereabouts("Lobby", mac=mac))
    ap.settle()


def captured(*packets_sent):
    with open(CAPTURE, "rb") as file:
        frames = file.read()
    return all(packet.encode() in frames for packet in packets_sent)


def test_what_the_daemon_and_the_agent_tell_each_other_is_shown(start):
    write_profile(LOBBY, usable(LOBBY, "Lobby", "ath0", AP_SECFILE="EAP", IAPC_ENABLE=2, ExternalDevice="lo"))
    write_daemon_configuration({LOBBY: "Lobby"})
    with Agent() as agent, tshark.capturing(CAPTURE):
        ap = start()
        agent.wait_for(packets.CLIENT_INFO, 1)
        bring_clients(ap)
        agent.ask_for_clients("Lobby")
        (answer,) = agent.wait_for(packets.CLIENT_INFO, 2)
        wait_until(lambda: captured(*agent.received), "the captured answer")

    seen = tshark.fields(CAPTURE, "tcp.dstport", "synch_agent.type", "synch_agent.subtype", "synch_agent.appid")
    to_agent = [heads for port, *heads in seen if port == [str(tshark.AGENT_PORT)]]
    heads = [head for frame in to_agent for head in zip(*frame)]
    assert heads == [(str(packet.type), str(packet.subtype), packet.ssid) for packet in agent.received]
    to_daemon = [kinds for port, kinds, *_ in seen if port != [str(tshark.AGENT_PORT)]]
    assert to_daemon == [[str(packets.REGISTERED)], [str(packets.CLIENT_INFO)]]

    names = ("record.kind", "client_mac", "portal.client_mac", "pmk", "pmk.identity", "pmk.vlan_id", "portal.ip")
    *_, shown = tshark.fields(CAPTURE, *(f"synch_agent.{name}" for name in names), "_ws.expert.message")
    assert sorted(shown[0]) == ["1", "1", "2"]
    assert shown[1:7] == (
        [ALICE],
        [ALICE.upper()],
        [TEST_KEY.hex()],
        ["alice"],
        ["12"],
        ["10.0.0.7"],
    )
    assert "PMK without identity: its items are counted but not there" in shown[7]
    assert b"alice" in answer.payload
    (interface,) = [row[0] for row in tshark.fields(CAPTURE, "synch_agent.interface") if row[0]]
    assert interface == ["lo"]
