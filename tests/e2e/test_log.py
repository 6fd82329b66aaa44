"""The debug log: its lines and its rotation, to the byte."""

import os
import re
import time

from sim.access_point import LOG
from sim.background import wait_until

LIMIT = 102400


def generation(number):
    path = LOG if number == 0 else f"{LOG}.{number}"
    with open(path, "rb") as file:
        return file.read()


def write_lines(ap, count, text="x" * 200):
    for _ in range(count):
        ap.reload_without_reply(f"{text} y")


def test_a_line_has_time_process_and_function(start):
    before = time.strftime("%Y.%m.%d %H:%M:%S")
    ap = start()
    ap.reload("APPL_SANITY_TEST ")
    after = time.strftime("%Y.%m.%d %H:%M:%S")
    lines = [line for line in ap.log_text().split("\n") if "from reload_cli" in line]
    match = re.fullmatch(
        r"(\d{4}\.\d\d\.\d\d \d\d:\d\d:\d\d) pid\[(\d+)\] main: LOG_INFO: Received \[APPL_SANITY_TEST \] from reload_cli",
        lines[0],
    )
    assert match
    assert before <= match[1] <= after
    assert int(match[2]) == ap.pid


def test_the_file_is_appended_to(start):
    with open(LOG, "w", encoding="ascii") as file:
        file.write("left by an earlier run\n")
    start()
    assert generation(0).startswith(b"left by an earlier run\n")


def test_a_file_is_rotated_by_the_line_that_takes_it_over_the_limit(start):
    ap = start()
    write_lines(ap, 600)
    wait_until(lambda: os.path.exists(f"{LOG}.1"), "a rotation")
    ap.settle()
    rotated = generation(1)
    assert len(rotated) > LIMIT
    assert len(rotated) - len(rotated.splitlines(keepends=True)[-1]) <= LIMIT
    assert rotated.endswith(b"\n")


def test_a_file_of_exactly_the_limit_is_rotated_by_the_next_line(start):
    with open(LOG, "wb") as file:
        file.write(b"x" * (LIMIT - 1) + b"\n")
    start()
    rotated = generation(1).splitlines(keepends=True)
    assert len(rotated) == 2
    assert b"LOG_INFO UNIX socket created" in rotated[1]


def test_a_line_that_ends_exactly_at_the_limit_rotates_nothing(start):
    with open(LOG, "wb") as file:
        file.write(b"x" * (LIMIT - 5000))
    ap = start()
    ap.reload_without_reply("2 SET_DEBUG_LEVEL")  # from here on only the receipts of commands are logged
    ap.wait_for_log("Setting debug level to WL_DBG_CRIT")
    empty_receipt = len("2024.03.07 14:05:09 ") + len(f"pid[{ap.pid}] main: LOG_INFO: Received [ y] from reload_cli\n")
    while (left := LIMIT - os.path.getsize(LOG)) > 0:
        size = left if left <= 240 else min(200, left - 100)
        ap.reload_without_reply("x" * (size - empty_receipt) + " y")
        wait_until(lambda: os.path.getsize(LOG) == LIMIT - left + size, "the receipt")
    assert os.path.getsize(LOG) == LIMIT
    assert not os.path.exists(f"{LOG}.1")
    ap.reload_without_reply("x y")
    wait_until(lambda: os.path.exists(f"{LOG}.1"), "a rotation")
    assert len(generation(1)) == LIMIT + empty_receipt + 1
    wait_until(lambda: os.path.exists(LOG), "a new file")
    assert generation(0) == b""


def test_without_a_log_file_the_daemon_serves_and_writes_nothing(start):
    os.chdir("/tmp")
    ap = start(arguments=[])
    before = set(os.listdir("/tmp"))
    write_lines(ap, 700)
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
    assert set(os.listdir("/tmp")) == before


def test_three_older_generations_are_kept(start):
    for number in (1, 2, 3):
        with open(f"{LOG}.{number}", "w", encoding="ascii") as file:
            file.write(f"generation {number}\n")
    with open(LOG, "wb") as file:
        file.write(b"x" * LIMIT)
    start()
    assert generation(3) == b"generation 2\n"
    assert generation(2) == b"generation 1\n"
    assert generation(1).startswith(b"x" * LIMIT)
    assert not os.path.exists(f"{LOG}.4")


def test_a_new_file_that_cannot_be_opened_silences_the_log(start):
    os.mkdir("/tmp/logs")
    path = "/tmp/logs/wl.log"
    with open(path, "wb") as file:
        file.write(b"x" * (LIMIT - 5000))
    ap = start(arguments=["-l", path])
    os.rename("/tmp/logs", "/tmp/moved")
    write_lines(ap, 60)
    ap.settle()
    assert ap.reload("APPL_SANITY_TEST ") == b"SUCCESS\0"
    assert not os.path.exists("/tmp/logs")
    assert os.path.getsize("/tmp/moved/wl.log") > LIMIT
