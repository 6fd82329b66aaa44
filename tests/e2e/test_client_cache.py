"""The cache of clients: filled and emptied by events, shown by a dump."""

import os
import struct

import pytest

from sim import clients
from sim.clients import (
    ADD_KEY,
    ADD_LOGIN,
    ADD_OKC_KEY,
    DELETE_KEY,
    DELETE_LOGIN,
    DELETE_OKC_KEY,
    KEY,
    LOGIN,
    ROLES,
    client_info,
    key_value,
    login_value,
    whereabouts,
)
from sim.events import (
    INFO_CODE,
    SUBINFO_CODE,
    SUBINFO_VALUE,
    VAP_BSSID,
    VAP_SSID,
    header,
    item,
    mac_bytes,
    text_item,
    u16,
    u32,
)
from sim.profiles import usable, write_daemon_configuration, write_profile

ALICE = "02:00:00:00:00:0a"
BOB = "02:00:00:00:00:bb"
SECRET = bytes(range(0xA0, 0xC0))
DUMP = "/tmp/wl_clients.txt"
AUTH_REQUEST, ASSOC_REQUEST, STEERING = 2, 4, 20  # information codes
BELOW_ASSOCIATION_RSSI = 4


@pytest.fixture
def ap(start):
    """An access point with an SSID of 802.1X and portal, an open one and a role."""
    write_daemon_configuration({1: "Lobby", 2: "Open", 3: "staff"})
    write_profile(1, usable(1, "Lobby", "ath0,ath1", AP_SECFILE="EAP", AP_IS_PORTAL_CONFIGURED=1, VLAN_ID=100))
    write_profile(2, usable(2, "Open", "ath2"))
    write_profile(3, usable(3, "staff", "ath0", IS_ROLE_PROFILE=1))
    return start()


def send(ap, code, sub_code, value=None, mac=ALICE):
    ap.send_event("VRE.cl_info", client_info(code, sub_code, value, mac))


def add_key(ap, sub_code=ADD_KEY, identity=b"alice@example", mac=ALICE, **more):
    send(ap, KEY, sub_code, key_value(SECRET, identity, **more), mac)


def dump(ap, mac=clients.EVERY_CLIENT, what=clients.CACHE):
    if os.path.exists(DUMP):
        os.unlink(DUMP)
    ap.send_event("VRE.wl_client_info_dump", clients.dump_request(DUMP, mac, what))
    ap.settle()
    with open(DUMP, encoding="ascii") as file:
        return file.read()


def fields(text):
    """The lines of a dump, as "name : value" pairs."""
    return dict(line.lstrip().split(" : ", 1) for line in text.splitlines() if " : " in line)


def present(ap):
    """The addresses of the clients that are in the cache."""
    lines = dump(ap).splitlines()
    return [line.split("[")[1].rstrip("]").lower() for line in lines if line.startswith("----------- Client MAC : ")]


PROFILE = """
=========== SSID Profile : [1]
SSID : Lobby
Role profile : 0
Role profiles enabled : 0
802.1X configured : 1
Portal configured : 1
Vlan : 100
External interface : br0
Inter AP path : 0
Registered with synch agent : 0
Refused by synch agent : 0
Number of VAPs : 2
  VAP : ath1
  VAP : ath0
Number of clients : 1
"""
CLIENT = """
----------- Client MAC : [02:00:00:00:00:0A]
Is Active on this SSID : 1
Connected to VAP : ath1
PMK of full authentication : present
  Length : 32
  Expiration : 3600
  EAP type : 25
  Accounting interval : 60
  Download limit : -1
  Upload limit : -1
  Vlan : 20
  Identity length : 13
  Identity : alice@example
PMK of OKC : none
802.11r data : none
Portal login : present
  IP address : 192.168.1.20
  Expiration : 2000
  Blackout expiration : 2100
  Login time : 1900
  Download limit : -1
  Upload limit : -1
  User name : guest
Role : 
  Role id : 0
  Vendor id : 0
  Attribute id : 0
  Method : Unknown
  SSID firewall applied : 0
  SSID portal or web filter applied : 0
  SSID bandwidth limit applied : 0
  Google OU : 
Vlan applied to the client: [0] 
Vlan received : 0
Vlan priority : 0
Bandwidth down : 0
Bandwidth up : 0
Bandwidth priority : 0
"""


def test_a_client_s_whole_record_is_dumped(ap):
    add_key(ap, vlan=20)
    send(ap, LOGIN, ADD_LOGIN, login_value("192.168.1.20", "guest", expire=2000, blackout=2100, login=1900))
    ap.send_event("VRE.node_authorize", whereabouts("Lobby", "ath1", ALICE))
    found = "Client info found for following SSID Profile\n"
    assert dump(ap, ALICE) == found + PROFILE + "Client Info : \n" + CLIENT


def test_a_dump_of_everything_lists_every_profile(ap):
    add_key(ap)
    text = dump(ap)
    assert [line for line in text.splitlines() if line.startswith("SSID : ")] == [
        "SSID : Lobby",
        "SSID : Open",
        "SSID : staff",
    ]
    assert text.count("Client MAC") == 1


def test_a_key_and_its_delete_leave_no_record(ap):
    for add, delete in ((ADD_KEY, DELETE_KEY), (ADD_OKC_KEY, DELETE_OKC_KEY)):
        add_key(ap, add)
        assert present(ap) == [ALICE]
        send(ap, KEY, delete)
        assert present(ap) == []


def test_a_login_and_its_delete_leave_no_record(ap):
    send(ap, LOGIN, ADD_LOGIN, login_value("192.168.1.20", "guest"))
    assert present(ap) == [ALICE]
    send(ap, LOGIN, DELETE_LOGIN)
    assert present(ap) == []


def test_a_second_okc_key_replaces_the_first(ap):
    add_key(ap, ADD_OKC_KEY, b"first")
    add_key(ap, ADD_OKC_KEY, b"second")
    text = dump(ap)
    assert "Identity : second" in text
    assert "first" not in text


def test_a_key_of_33_bytes_is_refused(ap):
    add_key(ap, length=33)
    ap.settle()
    record = ap.wait_for_log("Memory overwrite avoided")
    assert record[2:] == ("fill_cl_pmk_info_from_evt", "Memory overwrite avoided as pmk_evt->pmk_len[33] > PMK_LEN ")
    assert present(ap) == []


def test_a_client_that_moves_between_vaps_stays_active(ap):
    ap.send_event("VRE.node_authorize", whereabouts("Lobby", "ath0", ALICE))
    ap.send_event("VRE.node_authorize", whereabouts("Lobby", "ath1", ALICE))
    ap.send_event("VRE.node_leave", whereabouts("Lobby", "ath0", ALICE))
    client = fields(dump(ap, ALICE))
    assert (client["Is Active on this SSID"], client["Connected to VAP"]) == ("1", "ath1")
    ap.send_event("VRE.node_leave", whereabouts("Lobby", "ath1", ALICE))
    assert present(ap) == []


def test_a_client_with_a_key_outlives_its_leave(ap):
    add_key(ap)
    ap.send_event("VRE.node_authorize", whereabouts("Lobby", "ath0", ALICE))
    ap.send_event("VRE.node_leave", whereabouts("Lobby", "ath0", ALICE))
    client = fields(dump(ap, ALICE))
    assert (client["Is Active on this SSID"], client["Connected to VAP"]) == ("0", "(null)")


def test_an_open_ssid_keeps_no_clients(ap):
    ap.send_event("VRE.node_authorize", whereabouts("Open", "ath2", ALICE))
    assert present(ap) == []


def test_roles_are_dumped_in_brief(ap):
    add_key(ap)
    add_key(ap, mac=BOB)
    assert dump(ap, what=ROLES) == "".join(
        f"\n----------- Client MAC : [{mac.upper()}]\nSSID : Lobby\nRole : \n  Role id : 0\n  Method : Unknown\n"
        for mac in (ALICE, BOB)
    )


def test_a_dump_without_a_file_leaves_standard_output_open(ap):
    add_key(ap)
    ap.settle()
    before = os.listdir(f"/proc/{ap.pid}/fd")
    ap.send_event("VRE.wl_client_info_dump", clients.dump_request("/nowhere/file"))
    assert ap.wait_for_log("Could not open file for dumping").function == "handle_client_info_dump_req"
    ap.settle()
    assert os.listdir(f"/proc/{ap.pid}/fd") == before
    assert os.readlink(f"/proc/{ap.pid}/fd/1") == "/dev/null"


def test_a_deleted_profile_takes_its_clients_along(ap):
    add_key(ap)
    assert present(ap) == [ALICE]
    for flag in (2, 1):
        ap.send_event("VRE.ssid_profile_update", struct.pack(">IB", 1, flag))
    assert present(ap) == []


def holds(ap, wanted):
    """Whether the memory that the daemon may write holds the bytes."""
    with open(f"/proc/{ap.pid}/maps", encoding="ascii") as maps, open(f"/proc/{ap.pid}/mem", "rb", 0) as memory:
        for line in maps:
            area, rights = line.split()[:2]
            begin, end = (int(number, 16) for number in area.split("-"))
            if not rights.startswith("rw") or end - begin > 1 << 28:
                continue
            try:
                memory.seek(begin)
                if wanted in memory.read(end - begin):
                    return True
            except OSError:
                continue
    return False


def holds_key(ap):
    # The second half alone: what is released without being cleared loses its first bytes to the allocator.
    return holds(ap, SECRET[16:])


@pytest.fixture
def readable(ap):
    """The access point, where the machine lets its memory be read; the sandbox's own kind always does."""
    try:
        holds(ap, SECRET)
    except PermissionError:
        if os.environ["WL_IN_SANDBOX"] != "in-place":
            raise
        pytest.skip("the daemon's memory cannot be read here")
    return ap


def test_a_deleted_key_is_gone_from_memory_and_was_never_logged(readable):
    ap = readable
    ap.reload_without_reply("7 SET_DEBUG_LEVEL")
    # Many keys, as the last blocks to be released are soon taken and overwritten by something else.
    several = [f"02:00:00:00:01:{n:02x}" for n in range(20)]
    for mac in several:
        add_key(ap, mac=mac)
        add_key(ap, mac=mac)
    ap.settle()
    assert holds_key(ap), "the key is where the test looks"
    # The last messages are shorter than what stands before a key in a message: they overwrite none where it was read to.
    add_key(ap, length=33)
    for mac in several:
        send(ap, KEY, DELETE_KEY, mac=mac)
    ap.settle()
    assert not holds_key(ap)
    assert present(ap) == []
    assert SECRET not in ap.log_text().encode("latin-1", "replace")
    assert SECRET.hex() not in ap.log_text().lower()


def attempt_event(code, sub_code, value=None):
    """An event of Alice's attempt to connect to the SSID."""
    items = text_item(VAP_SSID, "Lobby") + item(VAP_BSSID, mac_bytes("02:00:00:00:01:00"))
    codes = item(INFO_CODE, u32(code)) + item(SUBINFO_CODE, u16(sub_code))
    return header(ALICE, 1) + items + codes + (b"" if value is None else item(SUBINFO_VALUE, value))


def test_a_key_of_an_attempt_to_connect_is_gone_with_the_attempt_s_record(readable):
    ap = readable
    ap.send_event("VRE.auth.recv", attempt_event(AUTH_REQUEST, 0, bytes(2)))
    ap.send_event("VRE.assoc.recv", attempt_event(ASSOC_REQUEST, 0, bytes(2)))
    ap.send_event("VRE.cl_info", attempt_event(KEY, ADD_KEY, key_value(SECRET)))
    # A refusal by smart steering is no failure: the attempt's record is freed when it ends, and not kept for a dump.
    ap.send_event("VRE.smart_steering", attempt_event(STEERING, BELOW_ASSOCIATION_RSSI))
    send(ap, KEY, DELETE_KEY)
    ap.settle()
    assert present(ap) == []
    assert holds_key(ap), "the record of the attempt has a copy of each of its events"
    ap.send_event("VRE.auth.recv", attempt_event(AUTH_REQUEST, 0, bytes(2)))  # ends the attempt and begins another
    ap.settle()
    assert not holds_key(ap)
