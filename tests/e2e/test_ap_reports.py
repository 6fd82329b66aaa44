"""Reports of the access point's own events: from the event on the bus to the report, through restarts."""

import os

import pytest

from sim import ap_reports
from sim.ap_reports import BAND_2_GHZ, BAND_5_GHZ, CACHE, CONFIGURATION, CONNECTED, OFFLINE, RECONFIGURING, Report
from sim.background import wait_until
from sim.events import INFO_CODE, SUBINFO_VALUE, item, u32
from sim.profiles import mark_as_running, usable, write_profile

CHANNEL = "VRE.evt_chan_debug_info"
POWER_CHANGED = "VRE.evt_tx_power_change"
POWER_UNCHANGED = "VRE.evt_tx_power_not_changed"
DOWN = Report(ap_reports.VAP, b"RADIO,1,Lobby (5 Ghz),DOWN")
UP = Report(ap_reports.VAP, b"RADIO,1,Lobby (5 Ghz),UP")
THROTTLED = "Throttiling evt : "


@pytest.fixture
def ap(start):
    write_profile(7, usable(7, "Lobby", "ath0,ath1.100"), {"WL_PROFILE_SSID": "Lobby"})
    mark_as_running(7)
    ap_reports.connect()
    return start()


def configure(text):
    os.makedirs(os.path.dirname(CONFIGURATION), exist_ok=True)
    with open(CONFIGURATION, "w", encoding="ascii") as file:
        file.write(text)


def restart(ap):
    ap.stop()
    ap.start()


def send(ap, event, payload):
    ap.send_event(event, payload)
    ap.settle()


def vap(ap, up, name="ath0", band=BAND_5_GHZ):
    send(ap, "VRE.vap_down", ap_reports.vap_event(name, up=up, band=band))


def user_space(ap, code, value):
    send(ap, "VRE.userspace_event", item(INFO_CODE, u32(code)) + item(SUBINFO_VALUE, value))


def reports(ap, count):
    """What has been reported, of which there must be so many."""
    ap.wait_for_published(ap_reports.REPORT, count=count)
    found = [ap_reports.decode(payload) for payload in ap.published(ap_reports.REPORT)]
    assert len(found) == count
    return found


def said(ap, function="wl_ap_ts"):
    return [record.message for record in ap.log() if record.function == function]


def text_of(path):
    if not os.path.exists(path):
        return None
    with open(path, encoding="ascii") as file:
        return file.read()


def mark(path, there):
    if there:
        with open(path, "w", encoding="ascii"):
            pass
    elif os.path.exists(path):
        os.unlink(path)


def test_a_vap_that_goes_down_and_up_is_reported(ap):
    vap(ap, False)
    vap(ap, True)
    vap(ap, True, "ath1", BAND_2_GHZ)
    assert reports(ap, 3) == [DOWN, UP, Report(ap_reports.VAP, b"RADIO,1,Lobby (2.4 Ghz),UP")]


def test_a_report_reaches_every_process_byte_by_byte(ap):
    vap(ap, False)
    text = b"RADIO,1,Lobby (5 Ghz),DOWN"
    expected = bytes.fromhex("0006 00000001 0001 0004 00000000 0002 001a") + text
    for peer in ("/sensord", "/wl_evt_proxy"):
        assert ap.wait_for_published(ap_reports.REPORT, peer) == [expected]


def test_a_vap_of_no_running_profile_is_not_reported(ap):
    vap(ap, False, "ath2")
    os.unlink("/tmp/profile7/running")
    vap(ap, False)
    send(ap, "VRE.vap_down", ap_reports.vap_event("ath0", up=False, band=2))
    mark_as_running(7)
    vap(ap, True)
    assert reports(ap, 1) == [UP]
    assert said(ap, "handle_vre_vap_down")[0] == "VAP ath0 Band not sane. Dropping this event"


def test_channels_are_reported_and_their_statistics_are_not(ap):
    send(ap, CHANNEL, ap_reports.channel_statistics(36, non_wifi=40, busy=-3))
    send(ap, CHANNEL, ap_reports.channel_changed(ap_reports.DFS))
    send(ap, CHANNEL, ap_reports.channel_selected(100, 19))
    send(ap, CHANNEL, ap_reports.channel_unchanged(6, 8))
    assert reports(ap, 3) == [
        Report(ap_reports.CHANNEL_CHANGED, b"RADIO,1,DFS"),
        Report(ap_reports.CHANNEL_SELECTED, b"RADIO,1,100,11AC VHT80"),
        Report(ap_reports.CHANNEL_UNCHANGED, b"RADIO,1,6,11NG HT20"),
    ]


def test_a_changed_power_is_reported_and_written(ap):
    send(ap, POWER_CHANGED, ap_reports.power(20, 17, "5 GHz"))
    assert (text_of(ap_reports.POWER_5G), text_of(ap_reports.POWER_2G)) == ("17", None)
    send(ap, POWER_CHANGED, ap_reports.power(20, -1, "2.4 GHz"))
    assert (text_of(ap_reports.POWER_5G), text_of(ap_reports.POWER_2G)) == ("17", "-1")
    send(ap, POWER_UNCHANGED, ap_reports.power(12, 12, "5 GHz"))
    assert (text_of(ap_reports.POWER_5G), text_of(ap_reports.POWER_2G)) == ("17", "-1")
    assert reports(ap, 3) == [
        Report(ap_reports.POWER_CHANGED, b"RADIO,3,20,17,5 GHz"),
        Report(ap_reports.POWER_CHANGED, b"RADIO,3,20,-1,2.4 GHz"),
        Report(ap_reports.POWER_UNCHANGED, b"RADIO,3,12,12,5 GHz"),
    ]


def test_a_power_is_written_while_nothing_is_reported(ap):
    os.unlink(CONNECTED)
    send(ap, POWER_CHANGED, ap_reports.power(20, 17, "5 GHz"))
    assert text_of(ap_reports.POWER_5G) == "17"
    assert ap.published(ap_reports.REPORT) == []


def test_a_text_of_user_space_is_reported_under_its_own_code(ap):
    user_space(ap, 68, ap_reports.user_space_text(b"WAN, eth0"))
    user_space(ap, 67, ap_reports.user_space_text(b"a service has crashed"))
    assert reports(ap, 1) == [Report(ap_reports.INTERNET_DOWN, b"WAN, eth0")]
    assert said(ap)[-1] == "No info code mapping to server found... Skipping event "


def test_texts_of_user_space_are_bounded(ap):
    for length, value in ((255, bytes(255)), (0xFFFFFFFF, b"text")):
        user_space(ap, 68, ap_reports.user_space_text(value, length))
    user_space(ap, 68, b"\0\0\0")
    user_space(ap, 68, ap_reports.user_space_text(b"u" * 254))
    user_space(ap, 68, ap_reports.user_space_text(b"short", 254))
    assert reports(ap, 2) == [Report(ap_reports.INTERNET_DOWN, text) for text in (b"u" * 254, b"short")]
    assert said(ap, "handle_vre_userspace_event")[:3] == [
        "Unable to send greter length[255] packet to server limit[255]",
        "Unable to send greter length[-1] packet to server limit[255]",
        " subinfo value null",
    ]


def test_a_text_is_throttled_within_its_interval(ap):
    ap.reload_without_reply("7 SET_DEBUG_LEVEL")
    for _ in range(3):
        vap(ap, False)
    assert reports(ap, 1) == [DOWN]
    assert len([message for message in said(ap) if message.startswith(f"{THROTTLED}1 since time : ")]) == 2


def test_a_text_is_reported_again_after_its_interval(start):
    configure("1|0|1|0\n")
    write_profile(7, usable(7, "Lobby", "ath0"), {"WL_PROFILE_SSID": "Lobby"})
    mark_as_running(7)
    ap_reports.connect()
    ap = start()

    def reported_twice():
        vap(ap, False)
        return len(ap.published(ap_reports.REPORT)) == 2

    wait_until(reported_twice, "the report after a second")
    assert reports(ap, 2) == [DOWN, DOWN]
    first, second = ap_reports.remembered()
    assert first.text == second.text == DOWN.text
    assert second.time > first.time


def test_with_throttling_disabled_every_occurrence_is_reported(start):
    configure("1|1|60|0\n")
    write_profile(7, usable(7, "Lobby", "ath0"), {"WL_PROFILE_SSID": "Lobby"})
    mark_as_running(7)
    ap_reports.connect()
    ap = start()
    vap(ap, False)
    vap(ap, False)
    assert reports(ap, 2) == [DOWN, DOWN]
    assert not os.path.exists(CACHE)


def test_throttling_outlives_a_restart(ap):
    vap(ap, False)
    reports(ap, 1)
    assert [(of.code, of.text) for of in ap_reports.remembered()] == [(ap_reports.VAP, DOWN.text)]
    restart(ap)
    vap(ap, False)
    vap(ap, True)
    assert reports(ap, 2) == [DOWN, UP]
    assert [of.text for of in ap_reports.remembered()] == [DOWN.text, UP.text]
    assert said(ap, "init_ap_logging_cache") == ["File read complete"]


def test_a_restart_meets_the_old_record_of_a_text_before_the_new_one(start):
    configure("1|0|43200|0\n")
    write_profile(7, usable(7, "Lobby", "ath0"), {"WL_PROFILE_SSID": "Lobby"})
    mark_as_running(7)
    ap_reports.connect()
    ap = start()
    vap(ap, False)
    ap.stop()
    (reported,) = ap_reports.remembered()
    with open(CACHE, "rb") as file:
        record = file.read()
    long_ago = u32((reported.time - 43200) % 2**32)
    with open(CACHE, "wb") as file:
        file.write(record[:4] + long_ago + record[8:] + record)
    ap.start()
    vap(ap, False)
    assert reports(ap, 2) == [DOWN, DOWN]
    vap(ap, False)
    assert reports(ap, 2) == [DOWN, DOWN]
    assert [of.text for of in ap_reports.remembered()] == [DOWN.text] * 3


def test_without_its_configuration_the_defaults_hold(start):
    os.makedirs(CONFIGURATION)  # no file, and none is installed in its place
    ap_reports.connect()
    ap = start()
    for _ in range(2):
        send(ap, CHANNEL, ap_reports.channel_changed(ap_reports.CCI))
    assert reports(ap, 1) == [Report(ap_reports.CHANNEL_CHANGED, b"RADIO,1,CCI")]
    assert "No Event Throttling configuration found.. Adding 14 with default settings" in said(ap)
    assert not os.path.exists(CACHE)


def test_a_missing_configuration_is_logged_and_the_cache_file_is_not_read(ap):
    configure("1|0|43200|0\n")
    restart(ap)
    vap(ap, False)
    assert [of.text for of in ap_reports.remembered()] == [DOWN.text]
    os.unlink(CONFIGURATION)
    ap.stop()
    before = len(ap.log())
    ap.start()
    vap(ap, False)
    vap(ap, False)
    assert reports(ap, 2) == [DOWN, DOWN]
    since = [(record.function, record.message) for record in ap.log()[before:]]
    assert ("init_ap_logging_config", f"Cannot open {CONFIGURATION}") in since
    assert ("wl_ap_ts", "No Event Throttling configuration found.. Adding 1 with default settings") in since
    assert not any(function == "init_ap_logging_cache" for function, _ in since)
    assert [of.text for of in ap_reports.remembered()] == [DOWN.text]


def test_files_of_any_bytes_do_not_hinder_the_daemon(start):
    configure("1|0|60|0\n\n|||\n99|1\n" + "7" * 5000 + "\nx|y|z|w\n17|0|60|0")
    with open(CACHE, "wb") as file:
        file.write(bytes(range(256)) * 5)
    ap_reports.connect()
    ap = start()
    send(ap, POWER_UNCHANGED, ap_reports.power(1, 2, "5 GHz"))
    send(ap, CHANNEL, ap_reports.channel_changed(ap_reports.ACI))
    assert reports(ap, 2) == [
        Report(ap_reports.POWER_UNCHANGED, b"RADIO,3,1,2,5 GHz"),
        Report(ap_reports.CHANNEL_CHANGED, b"RADIO,1,ACI"),
    ]


@pytest.mark.parametrize("reconfiguring", [False, True])
@pytest.mark.parametrize("connected", [False, True])
@pytest.mark.parametrize("offline", [False, True])
def test_marker_files_switch_reporting_off(ap, reconfiguring, connected, offline):
    for path, there in ((RECONFIGURING, reconfiguring), (CONNECTED, connected), (OFFLINE, offline)):
        mark(path, there)
    vap(ap, False)
    if reconfiguring:
        expected = "MOD operation in progress... skipping event : VRE.vap_down"
    elif not connected:
        expected = "SENSORD not connected with server... skipping event : VRE.vap_down"
    elif offline:
        expected = "AP in offline mode... Skipping event : VRE.vap_down"
    else:
        expected = " AP TS Translated Event info code : 1"
    assert said(ap) == [expected]
    reporting = connected and not reconfiguring and not offline
    assert len(reports(ap, 1) if reporting else ap.published(ap_reports.REPORT)) == reporting
