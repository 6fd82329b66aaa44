"""Starts the access point around a daemon, plays every scenario and sums up; what script/run shows.

Inside the sandbox: python3 -m sim.run [--stay] --driver LIBRARY --clock LIBRARY COMMAND...
"""

from __future__ import annotations

import argparse
import sys
import time
from contextlib import closing

from sim.access_point import AccessPoint
from sim.bandwidth import interface_pair
from sim.clock import Clock
from sim.preload import preloaded
from sim.prompt import stay
from sim.scenarios import SCENARIOS
from sim.stage import Stage
from sim.wireless import Vap, Wireless

VAPS = (Vap("ath0", "Lobby", "02:00:00:00:01:00", proto=3), Vap("ath1", "Hall", "00:00:00:00:00:00", up=False))


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m sim.run")
    parser.add_argument("--stay", action="store_true", help="keep the access point up afterwards")
    parser.add_argument("--driver", required=True, metavar="LIBRARY", help="the simulated wireless driver")
    parser.add_argument("--clock", required=True, metavar="LIBRARY", help="the daemon's clock")
    parser.add_argument("command", nargs=argparse.REMAINDER, help="the daemon, with whatever runs it")
    arguments = parser.parse_args()

    began = time.monotonic()
    wireless = Wireless(*VAPS)
    clock = Clock()
    command = preloaded(arguments.command, [arguments.driver, arguments.clock])
    with closing(wireless), interface_pair(), AccessPoint(command) as access_point:
        with closing(Stage(access_point, wireless, clock, arguments.command)) as stage:
            try:
                for play in SCENARIOS:
                    play(stage)
            except (TimeoutError, OSError) as failure:
                stage.show_news()
                stage.expect(False, str(failure))
            print(f"\nSummary: {stage.summary()} ({time.monotonic() - began:.1f} s).", flush=True)
            if arguments.stay:
                stay(stage)
    return 1 if stage.failed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
