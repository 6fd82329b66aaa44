"""Reading in the background, and waiting for things to happen."""

from __future__ import annotations

import os
import select
import threading
import time
from typing import Callable, Generic, Protocol, TypeVar

T = TypeVar("T")

POLL_INTERVAL = 0.01
DEFAULT_LIMIT = 30.0


class HasDescriptor(Protocol):
    def fileno(self) -> int: ...


class Drain(Generic[T]):
    """Reads a descriptor on a thread of its own until stopped and keeps what came, oldest first.

    `read` is called when there is something to read; it never blocks, and gives None when there was nothing after all.
    """

    def __init__(self, source: HasDescriptor, read: Callable[[], T | None]):
        self.items: list[T] = []
        self._source = source
        self._read = read
        self._woken, self._wake = os.pipe()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self) -> None:
        while self._woken not in select.select([self._source, self._woken], [], [])[0]:
            item = self._read()
            if item is not None:
                self.items.append(item)

    def stop(self) -> None:
        os.close(self._wake)
        self._thread.join()
        os.close(self._woken)


def wait_until(condition: Callable[[], T], what: str, limit: float = DEFAULT_LIMIT) -> T:
    """Waits until the condition gives something true and returns that. TimeoutError after `limit` seconds."""
    deadline = time.monotonic() + limit
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise TimeoutError(f"not within {limit:g} s: {what}")
        time.sleep(POLL_INTERVAL)
