"""The usual attempts of clients to connect, good and bad, as a support engineer knows them.

An attempt is played by a station up to its end; between its steps time passes for the daemon.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import NamedTuple

from sim.station import (
    ACCESS_ACCEPT,
    ACCESS_REJECT,
    ACKNOWLEDGE,
    ANSWERED,
    AP_FULL,
    ASKED,
    DISCOVER,
    GUEST,
    HOME,
    LOGGED_IN,
    LOGIN_FAILED,
    OFFER,
    OFFICE,
    OPEN,
    RADIUS_SUCCEEDED,
    REQUEST,
    ROGUE,
    ROGUE_SERVER,
    WRONG_KEY,
    Network,
    Station,
)

Pause = Callable[[int], object]  # lets so many milliseconds pass


def _gets_address(station: Station, pause: Pause) -> None:
    for step in (DISCOVER, OFFER, REQUEST):
        station.dhcp(step)
    pause(40)
    station.dhcp(ACKNOWLEDGE)
    station.address("192.168.1.20")


def _resolves(station: Station, pause: Pause) -> None:
    station.dns(ASKED)
    pause(12)
    station.dns(ANSWERED, 12)


def _does_8021x(station: Station, pause: Pause) -> None:
    station.ask_radius()
    pause(30)
    station.radius(ACCESS_ACCEPT)
    station.radius(RADIUS_SUCCEEDED)


def open_network(station: Station, pause: Pause) -> None:
    station.join()
    station.authorize()
    _gets_address(station, pause)
    _resolves(station, pause)


def passphrase(station: Station, pause: Pause) -> None:
    station.join(channel=36)
    station.handshake(1, 2, 3, 4)
    station.authorize()
    _gets_address(station, pause)
    _resolves(station, pause)


def enterprise(station: Station, pause: Pause) -> None:
    station.join()
    _does_8021x(station, pause)
    station.handshake(1, 2, 3, 4)
    station.authorize()
    _gets_address(station, pause)
    _resolves(station, pause)


def wrong_key(station: Station, pause: Pause) -> None:
    station.join()
    station.handshake(1)
    pause(5)
    station.handshake(WRONG_KEY)
    station.leave()


def radius_reject(station: Station, pause: Pause) -> None:
    station.join()
    station.ask_radius()
    pause(30)
    station.radius(ACCESS_REJECT)
    station.leave()


def full(station: Station, pause: Pause) -> None:
    station.authenticate()
    station.associate(status=AP_FULL)


def no_dhcp(station: Station, pause: Pause) -> None:
    station.join()
    station.authorize()
    station.dhcp(DISCOVER)
    pause(4000)
    station.dhcp(DISCOVER)


def rogue_dhcp(station: Station, pause: Pause) -> None:
    station.join()
    station.authorize()
    for step in (DISCOVER, REQUEST):
        station.dhcp(step, ROGUE)
    station.dhcp(ACKNOWLEDGE, ROGUE)
    pause(8)
    station.invalid_ip(ROGUE_SERVER, "192.168.66.20", ROGUE)


def portal_login(station: Station, pause: Pause) -> None:
    station.join()
    station.authorize()
    _gets_address(station, pause)
    pause(20000)  # a person types
    station.portal(LOGGED_IN)


def portal_failure(station: Station, pause: Pause) -> None:
    station.join()
    station.authorize()
    _gets_address(station, pause)
    pause(20000)
    station.portal(LOGIN_FAILED)


class Attempt(NamedTuple):
    title: str
    network: Network
    play: Callable[[Station, Pause], None]
    failure: int | None = None  # the code that is reported; None for a success


ATTEMPTS = {
    "open": Attempt("A client of an open network gets an address and resolves a name", OPEN, open_network),
    "passphrase": Attempt("A client with the right passphrase, with DHCP and DNS, on 5 GHz", HOME, passphrase),
    "802.1X": Attempt("A client that a RADIUS server lets in", OFFICE, enterprise),
    "wrong-key": Attempt("A client with a wrong passphrase", HOME, wrong_key, 7),
    "radius-reject": Attempt("A client that the RADIUS server refuses", OFFICE, radius_reject, 4),
    "full": Attempt("A client that finds the access point full", OPEN, full, 1),
    "no-dhcp": Attempt("A client that no DHCP server answers", OPEN, no_dhcp, 13),
    "rogue-dhcp": Attempt("A client that a rogue DHCP server gives an address", OPEN, rogue_dhcp, 18),
    "portal": Attempt("A client that logs in at the captive portal", GUEST, portal_login),
    "portal-failure": Attempt("A client whose login at the captive portal fails", GUEST, portal_failure, 10),
}
