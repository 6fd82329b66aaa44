"""Runs a command as root on a machine without namespaces: sim/sandbox starts it where bubblewrap cannot work.

Nothing is private here, so the fixed paths, message queues and the synchronisation agent's port must be free, commands
take turns, and all that they leave, processes included, is removed when they end. A keeper process of its own session
does that, so that it is done also when this process is killed. The command runs with a group of its own, by which the
files that it has made are known from everybody else's.
"""

from __future__ import annotations

import ctypes
import fcntl
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
from typing import NoReturn

from sim import bus, fixed_paths, processes

PR_CAPBSET_DROP = 24
PR_SET_CHILD_SUBREAPER = 36
CAP_SYS_RESOURCE = 24
SYNCH_AGENT_PORT = 12345
GROUP = 49152
PRIVATE_IN_THE_SANDBOX = ("/tmp", "/opt", "/sbin", "/dev")

libc = ctypes.CDLL(None)


def in_use() -> list[str]:
    """Names of what is taken of the places that a run needs."""
    taken = fixed_paths.present() + [f"queue {name}" for name in bus.existing_queues()]
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("127.0.0.1", SYNCH_AGENT_PORT))
        except OSError:
            taken.append(f"port {SYNCH_AGENT_PORT}")
    return taken


def end_all_children() -> None:
    """Kills until nothing is left: the children of a process that ends become ours."""
    while True:
        for pid in processes.running():
            if processes.parent_of(pid) == os.getpid():
                os.kill(pid, signal.SIGKILL)
        try:
            os.wait()
        except ChildProcessError:
            return


def remove_files() -> None:
    for directory in PRIVATE_IN_THE_SANDBOX:
        with os.scandir(directory) as entries:
            made = [entry for entry in entries if entry.stat(follow_symlinks=False).st_gid == GROUP]
        for entry in made:
            if entry.is_dir(follow_symlinks=False):
                shutil.rmtree(entry.path)
            else:
                os.unlink(entry.path)


def prepare() -> None:
    """Marks the command, and gives it the same limits of message queues as in the sandbox."""
    libc.prctl(PR_CAPBSET_DROP, CAP_SYS_RESOURCE, 0, 0, 0)
    os.setgid(GROUP)


def run_until_end(command: list[str], launcher_lives: int) -> int:
    """Runs the command until it ends or the launcher does. Result: the exit status, as a shell gives it."""
    try:
        process = subprocess.Popen(command, preexec_fn=prepare)
    except OSError as error:
        print(f"sandbox: {command[0]}: {error.strerror}", file=sys.stderr)
        return 1
    while process.poll() is None:
        if select.select([launcher_lives], [], [], 0.01)[0]:
            return 128 + signal.SIGKILL
    return process.returncode if process.returncode >= 0 else 128 - process.returncode


def keeper(command: list[str], launcher_lives: int, result: int) -> NoReturn:
    status = 2
    try:
        os.setsid()
        libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
        status = run_until_end(command, launcher_lives)
    finally:
        end_all_children()
        bus.unlink_all()
        remove_files()
        try:
            os.write(result, bytes([status]))
        except BrokenPipeError:
            pass
        os._exit(0)


def main() -> int:
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    turn = os.open("/opt", os.O_RDONLY)
    fcntl.flock(turn, fcntl.LOCK_EX)
    taken = in_use()
    if taken:
        print(f"sandbox: cannot run in place, in use here: {', '.join(taken)}", file=sys.stderr)
        return 2
    launcher_lives, hold = os.pipe()
    result, report = os.pipe()
    helper = os.fork()
    if helper == 0:
        os.close(hold)
        os.close(result)
        if os.fork() == 0:
            keeper(sys.argv[1:], launcher_lives, report)
        os._exit(0)
    os.close(launcher_lives)
    os.close(report)
    os.waitpid(helper, 0)
    return (os.read(result, 1) or b"\2")[0]


if __name__ == "__main__":
    sys.exit(main())
