"""A prompt to talk to the daemon with, once the scenarios are over."""

from __future__ import annotations

import cmd
import os
import pty
import struct
import subprocess
import sys
import time
from collections.abc import Sequence
from contextlib import suppress
from typing import TypeVar

from sim import ap_reports, bandwidth, bus, commands, profiles, reload
from sim.access_point import CRASH_RECORD, LOG
from sim.agent.agent import ACCEPT, IGNORE, REFUSE
from sim.attempts import ATTEMPTS
from sim.background import wait_until
from sim.clients import EVERY_CLIENT, dump_request
from sim.events import (
    BW_APPLY_RULE,
    CLIENT,
    INDICES,
    NAMES,
    VAP_SSID,
    coded,
    header,
    item,
    mac_bytes,
    text_item,
    typical,
    u16,
    vlan_information,
)
from sim.reports import describe
from sim.scenarios import clients, synch, vaps
from sim.stage import Stage, show, show_all

_LONGEST_PASS = 86400  # seconds

HELP = f"""\
  (an empty line)     what has happened since the last command
  level N             set the debug level over the bus (2 to 7)
  steer CODE          send a smart-steering event with this code
  vlans V,V,...       report VLANs as the sensor does (0 is untagged traffic)
  vap NAME up|down    tell that a VAP went up or down: "vap ath0 down"; the same is reported once a minute at most
  send EVENT [HEX]    send any event; without HEX with a typical payload
  events              the names of the events
  profile add [ID]    load an SSID profile from its files ({synch.PROFILE}: {synch.SSID})
  profile delete [ID] forget it
  client MAC          let a client be let in on {synch.SSID}: its key, its portal login, its authorisation
  kick MAC SSID       ask for a client to be kicked off: "kick 02:00:00:00:0c:01 Hall"; it works on open VAPs only
  dump [MAC]          the clients that the daemon knows, or one of them
  limit WHO UP DOWN   limit a client (its MAC) or the "ssid", kbit/s: "limit 02:00:00:00:00:01 500 1000"
  clear WHO           clear that limit: "clear 02:00:00:00:00:01"
  limits              the limits in force, as the daemon tells them
  fail TIMES HOW      make the traffic-control script fail: "fail 2 exit 7", "fail 1 hang", "fail always signal KILL"
  fail off            let it work again
  tc                  the script's runs so far, the kernel's classes and filters; a run may take five seconds to come
  join HOW [MAC]      let a client try to connect, for instance "join wrong-key"; HOW is one of
                      {" ".join(ATTEMPTS)}
  pass SECONDS        let so much time pass for the daemon; attempts end after 120 s, at a portal after 300 s, and are
                      looked at every 30 s: "pass 151", "pass 331"
  errors [MAC]        the failed attempts of a client, or all, that are over: by "pass 151", or by its next "join"
  flood N             send N authorisations of a client
  reload TEXT         send a reload command as it is, trailing blank too: "reload APPL_SANITY_TEST "
  agent ask SSID      let the synch agent ask for the clients of an SSID, as a neighbour would
  agent accept SSID   let it accept the registrations of an SSID from now on; so, too: agent refuse, agent ignore
  agent changed       let it report that the neighbours have changed
  agent stop          end it as a crash would; "agent start" starts it, "agent restart" does both
  log [N]             the last N records of the debug log (20)
  bus [N]             the queues, and for each peer the last N messages that the daemon has published (20)
  syslog              the system log
  kill                end the daemon as "kill -9" would
  restart             end the daemon and start it again
  shell               a shell inside the access point
  quit                end everything"""

T = TypeVar("T")

OTHER_TERMINAL = f"""\
From another terminal, in the project's directory:
  sim/enter tail -f {LOG}
  sim/enter python3 -m sim.reload "APPL_SANITY_TEST "
  sim/enter python3 -m sim.reload "7 SET_DEBUG_LEVEL"
  sim/enter python3 -m sim.bus send VRE.bw.events {coded(0, u16(7)).hex()}
  sim/enter python3 -m sim.bus listen /hostapd
  sim/enter tail -f {bandwidth.RECORD}    (the arguments of each run of the traffic-control script)
  sim/enter tc -s class show dev {bandwidth.PAIR[0]}
  sim/enter                                    (a shell)"""


SSID = "ssid"
PROFILE = synch.PROFILE
NEWCOMER = "02:00:00:00:0c:01"
CLIENT_DUMP = "/tmp/wl_clients"
PROMPT = "access point> "


def _address(who: str) -> str:
    """The MAC of a request for a client or for the whole SSID."""
    return "00:00:00:00:00:00" if who == SSID else who


def _last(number: str, things: Sequence[T]) -> Sequence[T]:
    """The last ones of a list, 20 unless a number is given."""
    count = int(number or 20)
    if count < 0:
        raise ValueError
    return things[max(0, len(things) - count) :]


def _crash_time() -> int:
    """When the last crash record was written, 0 when there is none."""
    try:
        return os.stat(CRASH_RECORD).st_mtime_ns
    except FileNotFoundError:
        return 0


class Prompt(cmd.Cmd):
    def __init__(self, stage: Stage):
        super().__init__()
        self.stage = stage
        self.use_rawinput = sys.stdin.isatty()
        self.prompt = PROMPT if self.use_rawinput else ""
        self.crash_time = _crash_time()
        self.input_ended = False

    def precmd(self, line: str) -> str:
        if not self.use_rawinput and line != "EOF":
            print(f"{PROMPT}{line}", flush=True)
        return line

    def onecmd(self, line: str) -> bool:
        try:
            return bool(super().onecmd(line))
        except (IndexError, ValueError, struct.error):
            usage = [entry for entry in HELP.splitlines() if entry.split()[0] == line.split()[0]]
            print("  usage:" + "\n        ".join(usage))
        except OSError as failure:
            print(f"  that failed: {failure}")
        return False

    def postcmd(self, stop: bool, line: str) -> bool:
        if not stop:
            self.stage.show_news()
            if not self.stage.ap.alive:
                crashed = "" if _crash_time() == self.crash_time else f"; its crash record: {CRASH_RECORD}"
                print(f'  the daemon has ended{crashed}; "restart" starts it')
        return stop

    def emptyline(self) -> bool:
        return False

    def default(self, line: str) -> None:
        print(f'  no command "{line.split()[0]}"; "help" lists them')

    def do_help(self, arg: str) -> None:
        print(f"{HELP}\n\n{OTHER_TERMINAL}")

    def do_level(self, arg: str) -> None:
        if not 2 <= int(arg) <= 7:
            raise ValueError
        self.stage.send("VRE.bw.events", coded(0, u16(int(arg))))

    def do_steer(self, arg: str) -> None:
        self.stage.send("VRE.smart_steering", coded(int(arg), mac_bytes(CLIENT) + bytes(18) + b"\1"))

    def do_vlans(self, arg: str) -> None:
        self.stage.send("VRE.vlan.detector", vlan_information({int(vlan) for vlan in arg.split(",")}))

    def do_vap(self, arg: str) -> None:
        name, state = arg.split()
        if state not in ("up", "down"):
            raise ValueError
        self.stage.send("VRE.vap_down", ap_reports.vap_event(name, up=state == "up", band=ap_reports.BAND_5_GHZ))

    def do_send(self, arg: str) -> None:
        event, _, digits = arg.partition(" ")
        if not event:
            raise ValueError
        if event not in INDICES:
            print('  no event of that name; "events" lists them')
            return
        self.stage.send(event, bytes.fromhex(digits) if digits else typical(event))

    def do_limit(self, arg: str) -> None:
        who, up, down = arg.split()
        payload = bandwidth.limit(_address(who), PROFILE, int(up), int(down), bss=who == SSID)
        self.stage.send("VRE.bw.set", payload + (b"" if who == SSID else item(BW_APPLY_RULE)))

    def do_clear(self, arg: str) -> None:
        (who,) = arg.split()
        self.stage.send("VRE.bw.clr", bandwidth.clear(_address(who), PROFILE, bss=who == SSID))

    def do_profile(self, arg: str) -> None:
        action, *number = arg.split()
        flags = {"add": vaps.ADD, "delete": vaps.DELETE}.get(action)
        if flags is None:
            raise ValueError
        vaps.update(self.stage, int(number[0]) if number else PROFILE, flags, action)

    def do_client(self, arg: str) -> None:
        (mac,) = arg.split()
        synch.let_in(self.stage, mac)

    def do_kick(self, arg: str) -> None:
        mac, ssid = arg.split(" ", 1)
        before = len(commands.kicks())
        self.stage.send("VRE.client.disconnect", header(mac) + text_item(VAP_SSID, ssid))
        with suppress(TimeoutError):  # none comes where no open VAP serves the SSID
            wait_until(lambda: len(commands.kicks()) > before, "a run of iwpriv", 1)
        show_all("file", [f"iwpriv {kick}" for kick in commands.kicks()[before:]] or ["no run of iwpriv"])

    def do_dump(self, arg: str) -> None:
        self.stage.send("VRE.wl_client_info_dump", dump_request(CLIENT_DUMP, arg or EVERY_CLIENT))
        self.stage.show_file(CLIENT_DUMP)

    def do_limits(self, arg: str) -> None:
        self.stage.send("VRE.bw.getstatus", b"")
        self.stage.show_file(bandwidth.STATUS)

    def do_fail(self, arg: str) -> None:
        if arg == "off":
            bandwidth.fail_no_more()
            return
        times, kind, *detail = arg.split()
        if times != "always" and int(times) < 1:
            raise ValueError
        if {"exit": 1, "signal": 1, "hang": 0}.get(kind) != len(detail):
            raise ValueError
        bandwidth.fail(arg)

    def do_tc(self, arg: str) -> None:
        show("file", "\n".join([bandwidth.RECORD, *bandwidth.commands()]))
        if not bandwidth.in_kernel():
            print("  the kernel offers no traffic control here")
            return
        for interface in bandwidth.PAIR:
            shown = (bandwidth.classes(interface) or "") + (bandwidth.filters(interface) or "")
            show("file", f"tc -s class show dev {interface}; tc filter show dev {interface}\n{shown}")

    def do_join(self, arg: str) -> None:
        how, _, mac = arg.partition(" ")
        if how not in ATTEMPTS:
            print(f"  HOW is one of {' '.join(ATTEMPTS)}")
            return
        seen = len(self.stage.ap.syslog)
        clients.perform(self.stage, ATTEMPTS[how], mac or NEWCOMER)
        clients.show_lines(self.stage, mac or NEWCOMER, seen)

    def do_pass(self, arg: str) -> None:
        if not 0 <= float(arg) <= _LONGEST_PASS:
            raise ValueError(f"not 0 to {_LONGEST_PASS} seconds")
        self.stage.clock.let_pass(float(arg))
        self.stage.ap.settle()

    def do_errors(self, arg: str) -> None:
        show("file", clients.errors(self.stage, arg or EVERY_CLIENT))

    def do_flood(self, arg: str) -> None:
        count = int(arg)
        began = time.monotonic()
        for _ in range(count):
            self.stage.send_quietly("VRE.node_authorize", typical("VRE.node_authorize"))
        self.stage.ap.settle()
        print(f"  {count} events in {time.monotonic() - began:.2f} s")

    def do_events(self, arg: str) -> None:
        self.columnize(list(NAMES.values()), 110)

    def do_reload(self, arg: str) -> None:
        if not arg:
            raise ValueError
        reply = self.stage.ap.reload(arg, limit=1)
        show("reply", "none within a second" if reply is None else f'"{reload.text(reply)}"')

    def parseline(self, line: str) -> tuple[str | None, str | None, str]:
        """Keeps the trailing blank of a reload command, which is part of it."""
        command, arg, stripped = super().parseline(line)
        if command == "reload":
            arg = line.rstrip("\n").lstrip().partition(" ")[2]
        return command, arg, stripped

    def do_agent(self, arg: str) -> None:
        word, _, ssid = arg.partition(" ")
        agent = self.stage.agent
        if agent is None:
            print("  no agent: a scenario has failed before it could start one")
        elif word in (ACCEPT, REFUSE, IGNORE) and ssid:
            agent.answer_for[ssid] = word
        elif word == "ask" and ssid:
            agent.ask_for_clients(ssid)
        elif word == "changed":
            agent.report_neighbours_changed()
        elif word in ("start", "stop", "restart"):
            getattr(agent, word)()
        else:
            raise ValueError
        for _ in range(2):  # one turn of the daemon to notice, one to act
            self.stage.ap.settle()

    def do_log(self, arg: str) -> None:
        for record in _last(arg, self.stage.ap.log()):
            show("log", f"{record.time} {record.function}: {record.message}")

    def do_bus(self, arg: str) -> None:
        for name in bus.existing_queues():
            with bus.Queue(name) as queue:
                print(f"  {name}: {queue.waiting} of {queue.depth} messages wait")
        for name, peer in self.stage.ap.peers.items():
            for message in _last(arg, peer.messages):
                show("bus", f"{name} got {describe(*message)}")

    def do_syslog(self, arg: str) -> None:
        for line in self.stage.ap.syslog:
            show("log", f"{line.tag}: {line.text}")

    def do_kill(self, arg: str) -> None:
        self.stage.ap.stop()

    def do_restart(self, arg: str) -> None:
        self.stage.ap.stop()
        self.crash_time = _crash_time()
        self.stage.ap.start()
        clients.make_known(self.stage)
        for name in ("ath0", "ath1"):
            vaps.name_vap(self.stage, name, "known before")

    def do_shell(self, arg: str) -> None:
        if sys.stdin.isatty():
            pty.spawn("/bin/bash")  # a terminal of its own: the sandbox has not handed over ours
        else:
            subprocess.run(["/bin/bash"], check=False)

    def do_quit(self, arg: str) -> bool:
        return True

    def do_EOF(self, arg: str) -> bool:
        print(flush=True)
        self.input_ended = True
        return True


def stay(stage: Stage) -> None:
    """Takes commands until told to quit. The daemon is started again first, and then loads the profile that the
    scenarios share: whatever they have left behind, the prompt begins with VAPs and a profile that it knows.

    When commands do not come from a terminal, their end ends nothing: the daemon's doings are shown until this process
    is ended."""
    print(f"\nThe access point stays up. Commands:\n{HELP}\n\n{OTHER_TERMINAL}\n", flush=True)
    profiles.write_daemon_configuration({PROFILE: synch.SSID})
    prompt = Prompt(stage)
    prompt.do_restart("")
    try:
        prompt.cmdloop()
        while prompt.input_ended and not sys.stdin.isatty():
            stage.show_news()
            time.sleep(0.2)
    except KeyboardInterrupt:
        print()
