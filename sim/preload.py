"""Starting the daemon with libraries in front of its own."""

from __future__ import annotations

from collections.abc import Mapping, Sequence


def preloaded(command: Sequence[str], libraries: Sequence[str], variables: Mapping[str, str] | None = None) -> list[str]:
    """The command with libraries preloaded into the daemon, and with variables in its environment.

    Under an emulator they are for the daemon only: they are made for its machine, not for the emulator's.
    """
    environment = {"LD_PRELOAD": ":".join(libraries), **(variables or {})}
    settings = [f"{name}={value}" for name, value in environment.items()]
    if "qemu" in command[0]:
        return [command[0], *(word for setting in settings for word in ("-E", setting)), *command[1:]]
    return ["env", *settings, *command]
