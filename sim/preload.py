"""Starting the daemon with libraries in front of its own."""

from __future__ import annotations

import os
from collections.abc import Mapping, Sequence

DIRECTORY = "/tmp/sim"


def _linked(library: str) -> str:
    """A name of the library without blanks and colons, at which the loader splits its list."""
    link = f"{DIRECTORY}/{os.path.basename(library)}"
    os.makedirs(DIRECTORY, exist_ok=True)
    if not os.path.islink(link):
        os.symlink(library, link)
    return link


def preloaded(command: Sequence[str], libraries: Sequence[str], variables: Mapping[str, str] | None = None) -> list[str]:
    """The command with libraries preloaded into the daemon, and with variables in its environment.

    The command serves until the access point around it is closed. Under an emulator libraries and variables are for the
    daemon only: they are made for its machine, not for the emulator's.
    """
    environment = {"LD_PRELOAD": ":".join(map(_linked, libraries)), **(variables or {})}
    settings = [f"{name}={value}" for name, value in environment.items()]
    if "qemu" in command[0]:
        return [command[0], *(word for setting in settings for word in ("-E", setting)), *command[1:]]
    return ["env", *settings, *command]
