"""Starts the access point around a daemon, plays every scenario and sums up; what script/run shows.

Inside the sandbox: python3 -m sim.run [--stay] COMMAND...
"""

from __future__ import annotations

import argparse
import sys
import time

from sim.access_point import AccessPoint
from sim.prompt import stay
from sim.scenarios import SCENARIOS
from sim.stage import Stage


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m sim.run")
    parser.add_argument("--stay", action="store_true", help="keep the access point up afterwards")
    parser.add_argument("command", nargs=argparse.REMAINDER, help="the daemon, with whatever runs it")
    arguments = parser.parse_args()

    began = time.monotonic()
    with AccessPoint(arguments.command) as access_point:
        stage = Stage(access_point)
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
