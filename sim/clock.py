"""The daemon's clock, where its library (sim/clock/clock.cpp, which tells the file's line) is preloaded.

It runs like the machine's until it is told otherwise; what would take the daemon minutes passes in a second then.

    clock.let_pass(151)    # seconds, for the daemon
"""

from __future__ import annotations

import os
import time

CONTROL = "/tmp/sim/clock"
FAST = 300  # times as fast as the machine's
_SECOND = 10**9
_FOR_EVER = 2**62


class Clock:
    def __init__(self) -> None:
        self._epoch = time.time_ns() - time.monotonic_ns()
        self._start = self._base = time.monotonic_ns()
        self._factor, self._limit, self._then = 1, _FOR_EVER, 1
        self._write()

    def _monotonic(self) -> int:
        passed = time.monotonic_ns() - self._start
        if passed * self._factor < self._limit:
            return self._base + passed * self._factor
        of_limit = self._limit // self._factor if self._factor else 0
        return self._base + self._limit + (passed - of_limit) * self._then

    def _write(self) -> None:
        os.makedirs(os.path.dirname(CONTROL), exist_ok=True)
        numbers = (self._start, self._base, self._factor, self._limit, self._then, self._epoch)
        with open(CONTROL + ".new", "w", encoding="ascii") as file:
            print(*numbers, file=file)
        os.replace(CONTROL + ".new", CONTROL)

    def _set(self, factor: int, limit: int, then: int) -> None:
        self._base, self._start = self._monotonic(), time.monotonic_ns()
        self._factor, self._limit, self._then = factor, limit, then
        self._write()

    def stop(self) -> None:
        """The daemon's time stands still from now on, except while it is made to pass."""
        self._set(0, _FOR_EVER, 0)

    def run(self, factor: int = 1) -> None:
        """The daemon's time passes, so many times as fast as the machine's."""
        self._set(factor, _FOR_EVER, factor)

    def let_pass(self, seconds: float, factor: int = FAST) -> None:
        """Lets exactly so much time pass for the daemon, fast, and then goes on as before; waits until it has passed."""
        before = self._factor if self._limit == _FOR_EVER else self._then
        limit = round(seconds * _SECOND)
        self._set(factor, limit, before)
        time.sleep(limit / factor / _SECOND)

    def now(self) -> float:
        """The daemon's wall clock: seconds since the epoch."""
        return (self._monotonic() + self._epoch) / _SECOND
