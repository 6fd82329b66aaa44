"""The dissector of the synch agent's protocol, on capture files written byte by byte."""

import random
import struct

import pytest

from sim import tshark

CAPTURE = "/tmp/synch.pcap"
CLIENT = bytes([0x02, 0xAB, 0, 0, 0, 1])
CLIENT_TEXT = "02:ab:00:00:00:01"
NOBODY = b"\xff" * 6
PMK = bytes(range(0xE0, 0x100))


def packet(kind, subtype, appid=b"", payload=b"", *, version=1, path=2, flag=0, mac=NOBODY):
    header = bytes([version, kind, path, flag, subtype, len(appid)]) + struct.pack(">H", len(payload)) + mac
    return header + appid + payload


def item(kind, value):
    return bytes([kind, len(value) & 0xFF]) + value


def number(value):
    return struct.pack(">I", value & 0xFFFFFFFF)


def record(kind, items, length=None):
    return struct.pack(">HH", kind, len(items) if length is None else length) + items


def pmk_items(identity=b"alice", *, lifetime=3600, options=b""):
    return (
        item(10, CLIENT)
        + item(1, PMK)
        + item(2, number(lifetime))
        + item(3, identity)
        + item(4, b"\x19")
        + options
    )


PORTAL_ITEMS = (
    item(8, b"02:AB:00:00:00:01".ljust(20, b"\0"))
    + item(7, b"10.0.0.7")
    + item(6, number(1800))
    + item(16, number(60))
    + item(14, b"guest")
    + item(15, number(1700000000))
    + item(17, number(512))
    + item(18, number(-1))
)
REGISTRATION = item(10, b"br0") + item(11, number(1032)) + item(12, b"wl_evt_handler")
REQUEST = packet(10, 1, b"Lobby", item(30, b"\x01"))
REGISTER = packet(32, 0, b"Lobby", REGISTRATION, path=0)


def shown(packets, *names, **options):
    """The values of the named fields (without "synch_agent.") in each frame of a conversation."""
    tshark.write_capture(CAPTURE, [packets], **options)
    return tshark.fields(CAPTURE, *(f"synch_agent.{name}" for name in names))


def values(one_packet, *names):
    (row,) = shown([one_packet], *names)
    return row


def complaints(one_packet):
    tshark.write_capture(CAPTURE, [[one_packet]])
    ((texts,),) = tshark.fields(CAPTURE, "_ws.expert.message")
    return texts


def listed(conversations):
    """The lines of the list of packets: protocol and text."""
    tshark.write_capture(CAPTURE, conversations)
    lines = tshark.run(CAPTURE, "-T", "fields", "-e", "_ws.col.Protocol", "-e", "_ws.col.Info").splitlines()
    return [tuple(line.split("\t")) for line in lines]


def test_every_field_of_the_header_is_shown():
    names = ("version", "type", "path", "flag", "subtype", "appid_len", "payload_len", "mac", "appid")
    assert values(packet(10, 1, b"Lobby", item(30, b"\0"), mac=CLIENT), *names) == (
        ["1"], ["10"], ["2"], ["0"], ["1"], ["5"], ["3"], [CLIENT_TEXT], ["Lobby"],
    )  # fmt: skip


def test_every_packet_type_has_its_name():
    named = {
        (10, 1): "Client information request",
        (10, 2): "Client information",
        (3, 1): "Portal login",
        (12, 2): "Steering attempts",
        (12, 3): "Inter-AP parameters",
        (16, 1): "VLAN gateway",
        (32, 0): "Register",
        (33, 0): "Registration accepted",
        (33, 9): "Registration accepted",
        (34, 255): "Registration refused",
        (35, 0): "Unregister",
        (36, 1): "RF neighbours changed",
    }
    packets = [packet(*kind, b"Lobby") for kind in named]
    assert listed([packets]) == [("SYNCH", f'{name} "Lobby"') for name in named.values()]
    assert shown(packets, "expert.unknown_packet") == [([],)] * len(named)


def test_packets_of_the_agent_are_shown_too():
    assert shown([packet(33, 0, b"Lobby")], "type", "appid", from_agent=True) == [(["33"], ["Lobby"])]


def test_a_packet_without_application_id_is_listed_by_its_name_alone():
    assert listed([[packet(36, 0)]]) == [("SYNCH", "RF neighbours changed")]


def test_an_application_id_may_be_any_bytes():
    ids = [b"Caf\xc3\xa9", b" two  blanks ", b"a\0b", b"a\xffb", bytes(255)]
    assert [appid for (appid,) in shown([packet(33, 0, name) for name in ids], "appid")] == [
        ["Café"], [" two  blanks "], [r"a\x00b"], [r"a\xffb"], [r"\x00" * 255],
    ]  # fmt: skip


def test_the_request_shows_its_flag():
    assert values(REQUEST, "item.type", "item.length", "request_flag") == (["30"], ["1"], ["1"])


@pytest.mark.parametrize("kind", [32, 35])
def test_registration_shows_interface_number_and_application(kind):
    names = ("interface", "number", "application")
    assert values(packet(kind, 0, b"Lobby", REGISTRATION), *names) == (["br0"], ["1032"], ["wl_evt_handler"])


def test_steering_attempts_show_the_client():
    steering = packet(12, 2, b"", item(5, CLIENT) + item(6, b"\x04"))
    assert values(steering, "client_mac", "steering_attempts") == ([CLIENT_TEXT], ["4"])


def test_inter_ap_parameters():
    parameters = packet(12, 3, b"", item(9, b"\x01") + item(10, b"\x1e"))
    assert values(parameters, "inter_ap_flag", "synch_period", "interface") == (["1"], ["30"], [])


def test_the_vlan_gateway_has_27_bytes():
    address, mask, server = bytes([10, 0, 0, 1]), bytes([255, 255, 255, 0]), bytes([10, 0, 0, 2])
    gateway = struct.pack(">HH4s6sB4s4sHBB", 7, 12, address, CLIENT, 3, mask, server, 9, 1, 0)
    names = (
        "profile_id", "vlan_id", "ip", "mac", "protocol", "subnet_mask", "dhcp_server", "tunnel_profile_id",
        "is_nat_profile", "unused",
    )  # fmt: skip
    vlan = packet(16, 1, b"", item(16, gateway), path=0)
    assert values(vlan, *(f"gateway.{name}" for name in names)) == (
        ["7"], ["12"], ["10.0.0.1"], [CLIENT_TEXT], ["3"], ["255.255.255.0"], ["10.0.0.2"], ["9"], ["1"], ["0"],
    )  # fmt: skip
    assert complaints(vlan) == []
    assert complaints(packet(16, 1, b"", item(16, gateway[:26]))) == [
        "The item has not the length that its type calls for"
    ]


PORTAL_FIELDS = (
    "portal.client_mac", "portal.ip", "portal.remaining", "portal.blackout", "portal.username", "portal.login_time",
    "bw_download_limit", "bw_upload_limit",
)  # fmt: skip
PORTAL_VALUES = (
    ["02:AB:00:00:00:01"], ["10.0.0.7"], ["1800"], ["60"], ["guest"], ["1700000000"], ["512"], ["-1"],
)  # fmt: skip


def test_a_portal_login_shows_its_items():
    assert values(packet(3, 1, b"Lobby", PORTAL_ITEMS), *PORTAL_FIELDS, "record") == (*PORTAL_VALUES, [])


def test_client_information_shows_a_pmk_with_every_option():
    options = (
        item(6, number(0))
        + item(7, number(1000) + number(-1))
        + item(9, number(300))
        + item(8, b"\0")
    )
    info = packet(10, 2, b"Lobby", record(1, pmk_items(options=options)), mac=CLIENT)
    pmk = ("", ".lifetime", ".identity", ".eap_type", ".vlan_id", ".interim_interval", ".vlan_0")
    names = ("record.kind", "record.length", "client_mac", *(f"pmk{name}" for name in pmk))
    assert values(info, *names, "bw_download_limit", "bw_upload_limit") == (
        ["1"], ["83"], [CLIENT_TEXT], [PMK.hex()], ["3600"], ["alice"], ["25"], ["0"], ["300"], ["0"],
        ["1000"], ["-1"],
    )  # fmt: skip
    assert complaints(info) == []


def test_client_information_shows_the_records_of_several_clients():
    records = record(1, pmk_items()) + record(2, PORTAL_ITEMS) + record(1, pmk_items(b"bob"))
    info = packet(10, 2, b"Lobby", records)
    names = ("record.kind", "pmk.identity", *PORTAL_FIELDS)
    assert values(info, *names) == (["1", "2", "1"], ["alice", "bob"], *PORTAL_VALUES)
    assert complaints(info) == []


def test_an_expired_pmk_is_noted():
    info = packet(10, 2, b"Lobby", record(1, pmk_items(lifetime=-2)))
    assert values(info, "pmk.lifetime") == (["4294967294"],)
    assert complaints(info) == ["The PMK has expired: the lifetime is a negative number"]


NO_ITEMS = "PMK without identity: its items are counted but not there"
WRONG_PADDING = "The zeros at the end are not as long as the items that are not there"


@pytest.mark.parametrize("after", [b"", record(2, PORTAL_ITEMS), record(1, pmk_items()) + record(2, PORTAL_ITEMS)])
def test_a_pmk_without_identity_is_a_record_without_items(after):
    info = packet(10, 2, b"Lobby", record(1, b"", 53) + after + bytes(53))
    kind, length, padding, identity, portal = values(
        info, "record.kind", "record.length", "record.padding", "pmk.identity", "portal.ip"
    )
    assert (kind[0], length[0], padding) == ("1", "53", ["00" * 53])
    assert (identity, portal) == (["alice"] * after.count(b"alice"), ["10.0.0.7"] * after.count(b"10.0.0.7"))
    assert complaints(info) == [NO_ITEMS]


def test_several_pmks_without_identity_add_up_their_zeros():
    info = packet(10, 2, b"Lobby", record(1, b"", 53) + record(1, pmk_items()) + record(1, b"", 59) + bytes(112))
    assert values(info, "record.kind", "record.padding") == (["1", "1", "1"], ["00" * 112])
    assert complaints(info) == [NO_ITEMS, NO_ITEMS]


@pytest.mark.parametrize(
    "records, expected",
    [
        (record(1, b"", 53) + bytes(52), [NO_ITEMS, WRONG_PADDING]),
        (record(1, b"", 53) + record(2, PORTAL_ITEMS), [NO_ITEMS, WRONG_PADDING]),
        (record(2, PORTAL_ITEMS) + bytes(1), [WRONG_PADDING]),
    ],
)
def test_zeros_that_no_record_explains_are_flagged(records, expected):
    assert sorted(complaints(packet(10, 2, b"Lobby", records))) == sorted(expected)


@pytest.mark.parametrize("length", [255, 256, 300, 511, 600])
@pytest.mark.parametrize("options", [b"", item(6, number(5)) + item(7, bytes(8)) + item(9, number(1)) + item(8, b"\0")])
def test_an_identity_may_be_longer_than_its_length_byte_can_tell(length, options):
    info = packet(10, 2, b"Lobby", record(1, pmk_items(b"x" * length, options=options)) + record(2, PORTAL_ITEMS))
    names = ("pmk.identity", "pmk.eap_type", "record.kind", "portal.ip")
    assert values(info, *names) == (["x" * length], ["25"], ["1", "2"], ["10.0.0.7"])
    assert complaints(info) == (["The identity is longer than its length byte can tell"] if length > 255 else [])


ITEM_OVERRUN = "The item runs past the end"
RECORD_OVERRUN = "The record runs past the end of the payload"
NO_SUCH_PACKET = "Unknown packet type or subtype"


@pytest.mark.parametrize(
    "broken, expected",
    [
        (packet(10, 1, b"Lobby", b"\x1e"), [ITEM_OVERRUN]),
        (packet(10, 1, b"Lobby", b"\x1e\x02\x01"), [ITEM_OVERRUN]),
        (packet(10, 1, b"Lobby", item(30, b"\1\0")), ["The item has not the length that its type calls for"]),
        (packet(10, 1, b"Lobby", item(31, b"\1")), ["Unknown item"]),
        (packet(10, 1, b"Lobby", version=2), ["The version is not 1"]),
        (packet(10, 1, b"Lobby", flag=1), ["The flag is not 0"]),
        (packet(10, 3, b"Lobby", b"\1\2"), [NO_SUCH_PACKET]),
        (packet(99, 0, b"Lobby", b"\1\2"), [NO_SUCH_PACKET]),
        (packet(32, 1, b"Lobby", REGISTRATION), [NO_SUCH_PACKET]),
        (packet(10, 2, b"Lobby", record(1, pmk_items())[:-1]), [ITEM_OVERRUN, RECORD_OVERRUN]),
        (packet(10, 2, b"Lobby", record(1, pmk_items(), 57)), [ITEM_OVERRUN, RECORD_OVERRUN]),
        (packet(10, 2, b"Lobby", record(2, PORTAL_ITEMS) + b"\0\1\0"), [RECORD_OVERRUN]),
        (packet(10, 2, b"Lobby", record(3, PORTAL_ITEMS)), ["Unknown kind of record"]),
        (packet(10, 2, b"Lobby", record(1, b"", 65535)), [RECORD_OVERRUN]),
        (packet(10, 2, b"Lobby", record(1, b"", 0)), []),
        (packet(33, 0, b"Lobby", b"\xff"), []),
        (packet(10, 2, b"Lobby"), []),
    ],
)
def test_what_is_not_as_it_should_be_is_flagged(broken, expected):
    assert sorted(complaints(broken)) == sorted(expected)


def test_the_payload_of_an_unknown_packet_is_shown_as_bytes():
    assert values(packet(99, 7, b"Lobby", b"\x0a\xff"), "payload", "item.type") == (["0aff"], [])
    assert listed([[packet(99, 7, b"Lobby")]]) == [("SYNCH", 'Unknown packet 99/7 "Lobby"')]


def test_a_packet_may_be_split_anywhere():
    conversations = [[REGISTER[:cut], REGISTER[cut:]] for cut in range(1, len(REGISTER))]
    conversations.append([REGISTER[i : i + 1] for i in range(len(REGISTER))])
    tshark.write_capture(CAPTURE, conversations)
    assert tshark.fields(CAPTURE, "synch_agent.appid", "synch_agent.application") == [
        (["Lobby"], ["wl_evt_handler"])
    ] * len(conversations)


def test_a_segment_may_hold_several_packets_and_the_parts_of_others():
    stream = REQUEST + REGISTER + REQUEST + packet(36, 0)
    assert shown([REQUEST + REGISTER], "type") == [(["10", "32"],)]
    cuts = [0, 5, len(REQUEST) + 20, len(stream) - 3, len(stream)]
    segments = [stream[begin:end] for begin, end in zip(cuts, cuts[1:])]
    assert shown(segments, "type") == [(["10"],), (["32", "10"],), (["36"],)]
    assert [line for line in listed([segments]) if line[0] == "SYNCH"][1] == (
        "SYNCH",
        'Register "Lobby"; Client information request "Lobby"',
    )


def test_the_largest_packet_is_waited_for_and_a_larger_one_is_not():
    largest = packet(33, 0, b"", bytes(4381))
    assert shown([largest[:1400], largest[1400:]], "payload_len", "expert.too_large") == [(["4381"], [])]
    header = packet(33, 0, b"", bytes(4382))[:14]
    assert listed([[header + b"abc", REQUEST]]) == [
        ("SYNCH", "Registration accepted [too large]"),
        ("SYNCH", 'Client information request "Lobby"'),
    ]
    for too_large in (header, header + b"abc"):
        assert complaints(too_large) == ["Larger than 4395 bytes: the daemon drops the connection"]


def test_a_capture_that_keeps_only_the_beginning_of_each_frame_is_shown_as_far_as_it_goes():
    headers = 14 + 20 + 20
    for kept in (1, 13, 14, 15, 18, 19, 20, 26, len(REGISTER) - 1):
        tshark.write_capture(CAPTURE, [[REGISTER]], snapshot=headers + kept)
        (row,) = tshark.fields(CAPTURE, "synch_agent.type", "synch_agent.appid", "_ws.expert.message")
        assert row[0] == (["32"] if kept >= 14 else [])
        assert row[1] == (["Lobby"[: kept - 14]] if kept > 14 else [])
        assert row[2]


def some_bytes(source, base):
    """A packet with some of its bytes changed, or bytes without any sense."""
    if source.random() < 0.3:
        return source.randbytes(source.randrange(1, 120))
    changed = bytearray(base)
    for _ in range(source.randrange(1, 8)):
        changed[source.randrange(len(changed))] = source.choice([0, 1, 2, 3, 10, 127, 255, source.randrange(256)])
    return bytes(changed)


@pytest.mark.parametrize("reassembles", ["TRUE", "FALSE"])
def test_no_bytes_make_the_dissector_fail_or_hang(reassembles):
    source = random.Random(12345)
    bases = [
        REGISTER,
        packet(3, 1, b"Lobby", PORTAL_ITEMS),
        packet(16, 1, b"", item(16, bytes(27))),
        packet(10, 2, b"Lobby", record(1, pmk_items()) + record(1, b"", 53) + record(2, PORTAL_ITEMS) + bytes(53)),
    ]
    conversations = []
    for _ in range(1500):
        stream = b"".join(some_bytes(source, source.choice(bases)) for _ in range(3))
        cuts = sorted(source.sample(range(1, len(stream)), 2))
        conversations.append([stream[: cuts[0]], stream[cuts[0] : cuts[1]], stream[cuts[1] :]])
    # Every length that a payload can be cut to, with a header that tells it.
    conversations += [[packet(10, 2, b"", bases[3][19 : 19 + length])] for length in range(len(bases[3]) - 18)]
    tshark.write_capture(CAPTURE, conversations)
    printed = tshark.run(CAPTURE, "-V", "-o", f"tcp.desegment_tcp_streams:{reassembles}")
    assert "Dissector bug" not in printed
    assert printed.count("Synch Agent Protocol") > 1500
