"""The end-to-end tests: the real daemon in the simulated access point, one sandbox for each test.

The daemon's command is in WL_DAEMON; the libraries that are preloaded into it are in WL_FAULTS (system calls that fail),
WL_SIM_DRIVER (the wireless driver) and WL_SIM_CLOCK (its clock).
"""

from __future__ import annotations

import os
import shlex
import sys
from collections.abc import Callable, Iterator
from contextlib import ExitStack
from typing import Any

import pytest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", ".."))

from sim.access_point import AccessPoint  # noqa: E402
from sim.agent.agent import Agent  # noqa: E402
from sim.preload import preloaded  # noqa: E402
from sim.wireless import Vap, Wireless  # noqa: E402


@pytest.fixture
def daemon() -> list[str]:
    return shlex.split(os.environ["WL_DAEMON"])


@pytest.fixture
def start(daemon: list[str]) -> Iterator[Callable[..., AccessPoint]]:
    """Starts an access point that is taken down at the end of the test."""
    with ExitStack() as stack:
        yield lambda **options: stack.enter_context(AccessPoint(daemon, **options))


@pytest.fixture
def with_faults(daemon: list[str]) -> Callable[[str], list[str]]:
    """The daemon's command with system calls that fail, such as "mq_receive:1:EBADF" for the first mq_receive."""

    return lambda faults: preloaded(daemon, [os.environ["WL_FAULTS"]], {"WL_FAULTS": faults})


@pytest.fixture
def agent() -> Iterator[Agent]:
    """A synchronisation agent, there before the daemon; whatever the daemon sends it must be well-formed."""
    with Agent() as agent:
        yield agent
        assert agent.malformed == []


@pytest.fixture
def start_with_vaps(daemon: list[str]) -> Iterator[Callable[..., tuple[AccessPoint, Wireless]]]:
    """Starts an access point whose wireless driver has the given VAPs."""
    with ExitStack() as stack:

        def start_both(*vaps: Vap, **options: Any) -> tuple[AccessPoint, Wireless]:
            wireless = Wireless(*vaps)
            stack.callback(wireless.close)
            command = preloaded(daemon, [os.environ["WL_SIM_DRIVER"]])
            return stack.enter_context(AccessPoint(command, **options)), wireless

        yield start_both
