"""A prompt to talk to the daemon with, once the scenarios are over."""

from __future__ import annotations

import cmd
import pty
import struct
import subprocess
import sys
import time

from sim import ap_reports, bandwidth, bus, reload
from sim.access_point import CRASH_RECORD, LOG
from sim.agent.agent import ACCEPT, IGNORE, REFUSE
from sim.events import BW_APPLY_RULE, INDICES, NAMES, coded, describe, item, typical, u16, vlan_information
from sim.stage import Stage, show

HELP = """\
  level N             set the debug level over the bus (2 to 7)
  steer CODE          send a smart-steering event with this code
  vlans V,V,...       report VLANs as the sensor does (0 is untagged traffic)
  vap NAME up|down    tell that a VAP went up or down: "vap ath0 down"; the same is reported once a minute at most
  send EVENT [HEX]    send any event; without HEX with a typical payload ("events" lists the names)
  limit WHO UP DOWN   limit a client (its MAC) or the "ssid", kbit/s: "limit 02:00:00:00:00:01 500 1000"
  clear WHO           clear that limit: "clear 02:00:00:00:00:01"
  fail TIMES HOW      make the traffic-control script fail: "fail 2 exit 7", "fail 1 hang", "fail always signal KILL"
  tc                  the script's runs so far, the kernel's classes and filters; a run may take five seconds to come
  flood N             send N authorisations of a client
  reload TEXT         send a reload command as it is, trailing blank too: "reload APPL_SANITY_TEST "
  agent WORD [SSID]   the synch agent: ask, accept, refuse or ignore SSID; changed (neighbours); stop, start, restart
  log [N]             the last N lines of the debug log (20)
  bus                 the queues, and what the daemon has published
  syslog              the system log
  restart             end the daemon and start it again
  shell               a shell inside the access point
  quit                end everything"""

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
PROFILE = 7


def _address(who: str) -> str:
    """The MAC of a request for a client or for the whole SSID."""
    return "00:00:00:00:00:00" if who == SSID else who


class Prompt(cmd.Cmd):
    prompt = "access point> "

    def __init__(self, stage: Stage):
        super().__init__()
        self.stage = stage
        self.use_rawinput = sys.stdin.isatty()
        self.input_ended = False

    def onecmd(self, line: str) -> bool:
        try:
            return bool(super().onecmd(line))
        except (IndexError, ValueError, struct.error):
            usage = next(entry for entry in HELP.splitlines() if entry.split()[0] == line.split()[0])
            print(f"  usage:{usage}")
        except OSError as failure:
            print(f"  that failed: {failure}")
        return False

    def postcmd(self, stop: bool, line: str) -> bool:
        if not stop:
            self.stage.show_news()
            if not self.stage.ap.alive:
                print(f'  the daemon has ended; its crash record: {CRASH_RECORD}; "restart" starts it')
        return stop

    def emptyline(self) -> bool:
        return False

    def default(self, line: str) -> None:
        print(f'  no command "{line.split()[0]}"; "help" lists them')

    def do_help(self, arg: str) -> None:
        print(f"{HELP}\n\n{OTHER_TERMINAL}")

    def do_level(self, arg: str) -> None:
        self.stage.send("VRE.bw.events", coded(0, u16(int(arg))))

    def do_steer(self, arg: str) -> None:
        self.stage.send("VRE.smart_steering", coded(int(arg), bytes(25)))

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

    def do_fail(self, arg: str) -> None:
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
        for record in self.stage.ap.log()[-int(arg or 20) :]:
            show("log", f"{record.time} {record.function}: {record.message}")

    def do_bus(self, arg: str) -> None:
        for name in bus.existing_queues():
            with bus.Queue(name) as queue:
                print(f"  {name}: {queue.waiting} of {queue.depth} messages wait")
        for name, peer in self.stage.ap.peers.items():
            for message in peer.messages:
                show("bus", f"{name} got {describe(*message)}")

    def do_syslog(self, arg: str) -> None:
        for line in self.stage.ap.syslog:
            show("log", f"{line.tag}: {line.text}")

    def do_restart(self, arg: str) -> None:
        self.stage.ap.stop()
        self.stage.ap.start()

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
    """Takes commands until told to quit. When they do not come from a terminal, their end ends nothing: the daemon's
    doings are shown until this process is ended."""
    print(f"\nThe access point stays up. Commands:\n{HELP}\n\n{OTHER_TERMINAL}\n", flush=True)
    prompt = Prompt(stage)
    try:
        prompt.cmdloop()
        while prompt.input_ended and not sys.stdin.isatty():
            stage.show_news()
            time.sleep(0.2)
    except KeyboardInterrupt:
        print()
