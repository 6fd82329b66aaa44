"""Sharing clients with a second access point: registration, keys and logins, the neighbour's requests, a new agent."""

from __future__ import annotations

import struct
import time

from sim.agent import neighbour, packets
from sim.agent.agent import REFUSE, Agent
from sim.clients import ADD_KEY, ADD_LOGIN, KEY, LOGIN, client_info, key_value, login_value, whereabouts
from sim.events import CLIENT, coded, mac_bytes
from sim.profiles import shared, write_profile
from sim.stage import LIMIT, Stage, show

SSID = "Lobby"
PROFILE = 7
ADD, DELETE = 1, 2
TEST_KEY = bytes(range(0xA0, 0xC0))


def play(stage: Stage) -> None:
    agent = Agent()
    stage.agent = agent
    registration(stage, agent)
    withdrawal(stage, agent)
    client(stage, agent)
    second_access_point(stage, agent)
    changed_neighbours(stage)
    other_news(stage, agent)
    restart(stage, agent)
    stage.expect(not agent.malformed, "every packet was well-formed")


def update(stage: Stage, flags: int, meaning: str) -> None:
    stage.send("VRE.ssid_profile_update", struct.pack(">IB", PROFILE, flags), meaning)


def registration(stage: Stage, agent: Agent) -> None:
    stage.scene("A synch agent starts; it refuses the SSID first, then accepts it; the daemon asks for clients")
    stage.ap.settle()
    stage.expect_soon(lambda: agent.connections == 1, "the daemon has connected")
    agent.answers.append(REFUSE)
    write_profile(PROFILE, shared(PROFILE, SSID, AP_IS_PORTAL_CONFIGURED=1))
    update(stage, DELETE, "delete profile 7, which has been kept to ourselves")
    update(stage, ADD, "add it again, to be shared")
    stage.ap.settle()
    stage.expect_soon(lambda: len(agent.of_type(packets.REGISTER)) == 2, "the refused registration was tried again")
    stage.expect_soon(lambda: agent.of_type(packets.CLIENT_INFO, 1), "accepted, the daemon asks for clients")


def withdrawal(stage: Stage, agent: Agent) -> None:
    stage.scene("The profile is deleted and its SSID withdrawn; added again, it is registered again")
    update(stage, DELETE, "delete profile 7")
    stage.expect_soon(lambda: agent.of_type(packets.UNREGISTER), "the agent knows")
    update(stage, ADD, "add it again")
    stage.expect_soon(lambda: len(agent.of_type(packets.CLIENT_INFO, 1)) == 2, "the daemon asks for clients again")


def client(stage: Stage, agent: Agent) -> None:
    stage.scene("A client with a key and a portal login is let in; the neighbours hear of the login")
    let_in(stage, CLIENT)
    stage.expect_soon(lambda: agent.of_type(packets.PORTAL_LOGIN), "the login is announced")


def let_in(stage: Stage, mac: str) -> None:
    key = key_value(TEST_KEY, b"alice@example.com", expiration=int(time.monotonic()) + 3600, vlan=100)
    stage.send("VRE.cl_info", client_info(KEY, ADD_KEY, key, mac, PROFILE), "the authenticator has a key of it")
    now = int(time.time())
    login = login_value("10.1.2.3", "alice", expire=now + 1800, blackout=now + 3600)
    stage.send("VRE.cl_info", client_info(LOGIN, ADD_LOGIN, login, mac, PROFILE), "it has logged in at the portal")
    stage.send("VRE.node_authorize", whereabouts(SSID, mac=mac), "it is let in")


def second_access_point(stage: Stage, agent: Agent) -> None:
    stage.scene("A second access point starts and asks for the clients of its SSID, which is ours")
    stage.neighbour, missing = neighbour.next_to(agent, SSID, stage.daemon)
    if missing:
        show("AP 2", f"is a far end of the link alone, over a socket pair: {missing}")
    stage.expect_soon(lambda: heard(stage, f"PMK of {CLIENT}: {TEST_KEY[:4].hex()}"), "the key has arrived there")
    stage.expect_soon(lambda: heard(stage, f"portal login of {CLIENT}"), "so has the login")


def heard(stage: Stage, text: str) -> int:
    """In how many lines the neighbour has told of the text."""
    assert stage.neighbour is not None
    return sum(text in line for line in stage.neighbour.lines)


def changed_neighbours(stage: Stage) -> None:
    stage.scene("The neighbours of the second access point change; it asks again")
    assert stage.neighbour is not None
    stage.neighbour.change_neighbours()
    stage.expect_soon(lambda: heard(stage, f"PMK of {CLIENT}") == 2, "the key has arrived once more")


def other_news(stage: Stage, agent: Agent) -> None:
    stage.scene("Parameters and steering attempts go to the neighbours, too")
    stage.send("VRE.inter_ap_synch", bytes([1, 30]), "flag 1, period 30")
    stage.send("VRE.smart_steering", coded(7, mac_bytes(CLIENT) + bytes(18) + b"\5"), "code 7, 5 attempts")
    stage.expect_soon(lambda: heard(stage, "steering attempts"), "the second access point has heard of both")


def restart(stage: Stage, agent: Agent) -> None:
    stage.scene("The agent is started anew; the daemon connects and registers again")
    before = len(agent.of_type(packets.REGISTER))
    agent.restart()
    for _ in range(2):  # the daemon notices in one turn and looks for its agent in the next
        stage.ap.settle(LIMIT)
    stage.expect_soon(lambda: len(agent.of_type(packets.REGISTER)) > before, "the SSID is registered again")
