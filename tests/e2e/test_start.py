"""Arguments, exit statuses, detaching, and what start-up does without."""

import os
import signal
import socket
import subprocess

import pytest

from sim import bus, processes
from sim.access_point import LOG
from sim.background import wait_until
from sim.events import vlan_information

DEFAULT_ARGUMENTS = ["-l", "/tmp/wl.log"]
INFO_LABELS = "/opt/ap/cl_debug_info_code_en.properties"


def run(command, *arguments):
    done = subprocess.run([*command, *arguments], capture_output=True, check=False, timeout=30)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


@pytest.mark.parametrize(
    "arguments, complaint",
    [
        (["-l"], "ERROR: Invalid argument. pass log file with -l option"),
        (["-c"], "ERROR: Invalid argument. pass conf file with -c option"),
        (["-l", "/tmp/log", "-c"], "ERROR: Invalid argument. pass conf file with -c option"),
        (["-l", "-c"], "ERROR: Invalid argument. pass conf file with -c option"),
        (["unknown", "-log"], "ERROR: Invalid argument. pass log file with -l option"),
        (["-conf"], "ERROR: Invalid argument. pass conf file with -c option"),
    ],
)
def test_an_option_without_its_value_ends_with_status_1(daemon, arguments, complaint):
    assert run(daemon, *arguments) == (1, complaint, "")


def test_a_log_file_that_cannot_be_opened_ends_with_status_1(daemon):
    status, out, err = run(daemon, "-l", "/absent/log")
    assert (status, out) == (1, "")
    assert err.endswith(
        " main: [main]ERROR: Unable to open log file [/absent/log] err[No such file or directory] \n"
    )
    assert err.count("\n") == 1


def test_a_failed_fork_ends_with_status_0(with_faults):
    command = with_faults("fork:1:EAGAIN")
    assert run(command) == (0, "", "Failed to daemonize, exitting.: Resource temporarily unavailable\n")


def test_a_failed_second_fork_ends_with_status_0(with_faults):
    assert run(with_faults("fork:2:EAGAIN"), *DEFAULT_ARGUMENTS) == (0, "", "")
    assert not bus.exists(bus.DAEMON)


def test_an_unknown_argument_is_ignored(start):
    ap = start(arguments=["--verbose", "-x", "-l", "/tmp/wl.log", "more"])
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"


def configuration(log_path):
    """The configuration file that the daemon has looked for, which none of these tests provides."""
    with open(log_path, encoding="ascii") as file:
        (line,) = (line for line in file if "Unable to open conf file" in line)
    return line.split(" : ")[1].removesuffix(" errno")


@pytest.mark.parametrize(
    "arguments, log_path, configuration_path",
    [
        ([*DEFAULT_ARGUMENTS], "/tmp/wl.log", "/tmp/wl_evt_handler.conf"),
        ([*DEFAULT_ARGUMENTS, "-c", "/tmp/x"], "/tmp/wl.log", "/tmp/x"),
        (["-configuration", "/tmp/x", "-logfile", "/tmp/wl.log"], "/tmp/wl.log", "/tmp/x"),
        (["-l", "-c", "/tmp/x"], "/tmp/-c", "/tmp/x"),
        (["-l", "-c.log", "/tmp/x"], "/tmp/-c.log", "/tmp/x"),
        ([*DEFAULT_ARGUMENTS, "-c", "-l"], "/tmp/wl.log", "-l"),
    ],
)
def test_options_take_effect(start, arguments, log_path, configuration_path):
    os.chdir("/tmp")
    start(arguments=arguments)
    assert configuration(log_path) == configuration_path
    os.unlink(log_path)


def test_a_broken_pipe_is_survived(start):
    ap = start()
    with open(f"/proc/{ap.pid}/status", encoding="ascii") as file:
        ignored = next(int(line.split()[1], 16) for line in file if line.startswith("SigIgn:"))
    assert ignored & 1 << (signal.SIGPIPE - 1)


def test_the_daemon_detaches(start):
    os.chdir("/opt")
    os.umask(0o027)
    ap = start()
    with open(f"/proc/{ap.pid}/stat", encoding="ascii") as file:
        session = int(file.read().rpartition(")")[2].split()[3])
    assert session not in (0, ap.pid, os.getsid(0)), "a session of its own, which it does not lead"
    for descriptor in (0, 1, 2):
        assert os.readlink(f"/proc/{ap.pid}/fd/{descriptor}") == "/dev/null"
    assert os.readlink(f"/proc/{ap.pid}/cwd") == "/opt"
    with open(f"/proc/{ap.pid}/status", encoding="ascii") as file:
        assert "Umask:\t0027" in file.read()


def test_start_up_goes_in_order(start):
    ap = start()
    ap.stop()
    os.remove(INFO_LABELS)  # so that the place of the catalogue shows
    os.remove(LOG)
    ap.start()
    functions = [record.function for record in ap.log()]
    messages = [record.message for record in ap.log()]
    assert messages.index("LOG_INFO UNIX socket created for communicating with reload_cli") == 0
    agent = messages.index("Error connecting to synch agent : Connection refused")
    profiles = messages.index(
        "Unable to open conf file : /tmp/wl_evt_handler.conf errno : No such file or directory"
    )
    labels = messages.index(f"Current wl info file[{INFO_LABELS}] not present")
    given_up = messages.index("Error in populating wl debugging cache from properties files")
    assert agent < profiles < labels < given_up
    assert functions[given_up] == "main"


def test_the_label_catalogue_loads_without_a_complaint(start):
    ap = start()
    assert os.path.exists(INFO_LABELS)
    assert not [record for record in ap.log() if "label" in record.message or "propert" in record.message]


def test_the_sensor_is_asked_for_its_vlans(start):
    ap = start()
    assert ap.wait_for_published("VRE.vlan.detector", "/sensord") == [vlan_information(set(), 0, message=1)]


def test_without_an_agent_the_daemon_tries_again_each_turn(start):
    ap = start()
    refused = "Error connecting to synch agent : Connection refused"

    def tries():
        return sum(record.message == refused for record in ap.log())

    before = tries()
    ap.reload("APPL_SANITY_TEST ")
    ap.reload("APPL_SANITY_TEST ")
    wait_until(lambda: tries() >= before + 2, "a try in each of two turns", limit=4)


def test_an_agent_that_appears_later_is_connected_within_five_seconds(start):
    ap = start()
    with socket.create_server(("127.0.0.1", 12345)) as agent:
        agent.settimeout(5.5)
        connection, _ = agent.accept()
        connection.close()
    assert ap.alive


def test_a_queue_that_cannot_be_opened_is_tried_again_each_turn(daemon, with_faults):
    from sim.access_point import AccessPoint

    ap = AccessPoint(with_faults("mq_open:0:EACCES"))
    try:
        wanted = "mq_open error_msg Permission denied key[1240]"
        ap.start(until=lambda: sum(record.message == wanted for record in ap.log()) >= 1)
        assert [r.message for r in ap.log() if r.function == "create_posix_mq"][0] == "mq_open error: Permission denied"
        ap.reload("APPL_SANITY_TEST ")
        wait_until(lambda: sum(record.message == wanted for record in ap.log()) >= 2, "a second try")
    finally:
        ap.stop()


def test_the_queue_is_as_deep_as_the_machine_allows(start):
    ap = start()
    with open("/proc/sys/fs/mqueue/msg_max", encoding="ascii") as file:
        deepest = int(file.read())
    with bus.Queue(bus.DAEMON) as queue:
        assert queue.depth == next(depth for depth in (512, 256, 128, 64, 32, 16, 8) if depth <= deepest)
        assert queue.message_size == 2048
    assert bus.DAEMON in processes.open_files(ap.pid)


def test_descriptors_are_not_inherited(start):
    with socket.create_server(("127.0.0.1", 12345)) as agent:
        ap = start()
        agent.settimeout(10)
        connection, _ = agent.accept()
        inherited = []
        for descriptor in os.listdir(f"/proc/{ap.pid}/fd"):
            with open(f"/proc/{ap.pid}/fdinfo/{descriptor}", encoding="ascii") as file:
                flags = int(next(line for line in file if line.startswith("flags:")).split()[1], 8)
            if int(descriptor) > 2 and not flags & os.O_CLOEXEC:
                inherited.append(os.readlink(f"/proc/{ap.pid}/fd/{descriptor}"))
        assert inherited == []
        connection.close()
