"""What one poll costs the installed app, at 20, 1,000 and 10,000 peers: with the menu closed and
with the peers window open and left alone (its search field's caret at rest), the status
unchanged and with round-trip times that change on every reply. Each figure stands beside a
baseline from the same run: CPU beside simdjson's parse of the same reply, wake-ups (voluntary
context switches of all threads) and resident memory beside an idle Qt app that wakes for a timer
at the poll interval.

Usage: bench_poll.py PREFIX SIMULATOR BASELINE [--polls N] [--peers 20,1000,10000],
under xvfb-run and a session bus (scripts/bench.sh runs it so)."""
import argparse
import os
import re
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "Tests"))
from harness import GET_STATUS, Session, ask, until  # noqa: E402

POLL_SECONDS = 3
CARET_REST_SECONDS = 10  # a window left alone: the search field's caret stops blinking
GOALS = {  # at 10,000 peers: CPU ms per poll, wake-ups per poll, resident MB
    (False, False): (3, 4, 40), (False, True): (4, 4, 40), (True, False): (10, None, 55), (True, True): (10, None, 55)}


class Counters:
    """CPU nanoseconds and voluntary context switches of all the process's threads since it was
    made. Read every 0.2 s: a thread that ends (Qt's pooled threads do after 30 idle seconds) takes
    its figures with it, so only what it did since the last reading goes uncounted."""

    def __init__(self, pid):
        self.pid = pid
        self.cpu = self.switches = 0
        self.last = self.read()
        self.done = threading.Event()
        self.reader = threading.Thread(target=self.keep_reading)
        self.reader.start()

    def read(self):
        figures = {}
        for task in os.listdir(f"/proc/{self.pid}/task"):
            try:
                with open(f"/proc/{self.pid}/task/{task}/schedstat") as schedstat:
                    cpu = int(schedstat.read().split()[0])
                with open(f"/proc/{self.pid}/task/{task}/status") as status:
                    switches = int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status.read(), re.M)[1])
                figures[task] = (cpu, switches)
            except FileNotFoundError:
                pass  # a thread that ended meanwhile
        return figures

    def update(self):
        now = self.read()
        for task, (cpu, switches) in now.items():
            cpu0, switches0 = self.last.get(task, (0, 0))  # a new thread from its start
            self.cpu += cpu - cpu0
            self.switches += switches - switches0
        self.last = now

    def keep_reading(self):
        while not self.done.wait(0.2):
            self.update()

    def stop(self):
        self.done.set()
        self.reader.join()
        self.update()
        return self.cpu, self.switches


def resident_kb(pid):
    with open(f"/proc/{pid}/status") as status:
        return int(re.search(r"^VmRSS:\s+(\d+)", status.read(), re.M)[1])


def per_tick(pid, wait_for_tick, ticks):
    """CPU ms and wake-ups per tick over `ticks` ticks, and resident MB at the end. Samples are
    taken half an interval after a tick, when its work is done."""
    wait_for_tick()
    counters = Counters(pid)
    for _ in range(ticks):
        wait_for_tick()
    cpu, switches = counters.stop()
    return cpu / 1e6 / ticks, switches / ticks, resident_kb(pid) / 1024


def idle_baseline(program, ticks):
    process = subprocess.Popen([program, "idle", str(POLL_SECONDS * 1000)])
    try:
        time.sleep(1)
        return per_tick(process.pid, lambda: time.sleep(POLL_SECONDS), ticks)
    finally:
        process.kill()
        process.wait()


def app_pid(app):
    bus = app.bus.get_object("org.freedesktop.DBus", "/org/freedesktop/DBus")
    return int(bus.GetConnectionUnixProcessID(app.owner, dbus_interface="org.freedesktop.DBus"))


def measure(arguments, peers, window, drifting):
    options = ("--peers", str(peers), *(("--drifting-round-trips",) if drifting else ()))
    with Session(arguments.prefix, arguments.simulator, options=options) as session:
        app = session.app
        until(lambda: app.tooltip() == "Veltrane \u2014 Connected", 60)
        if window:
            app.click("Peers\u2026")
            time.sleep(CARET_REST_SECONDS)
        reply = ask(session.socket, GET_STATUS) if not window and not drifting else None

        def next_poll():
            seen = len(session.polls_since(0))
            until(lambda: len(session.polls_since(0)) > seen, POLL_SECONDS * 3)
            time.sleep(POLL_SECONDS / 2)

        next_poll()  # the first polls after start-up and after opening the window are not counted
        figures = per_tick(app_pid(app), next_poll, arguments.polls)
    return figures, reply


def parse_baseline(program, reply):
    return float(subprocess.run([program, "parse"], input=reply, capture_output=True, check=True).stdout)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("prefix")
    parser.add_argument("simulator")
    parser.add_argument("baseline")
    parser.add_argument("--polls", type=int, default=8)
    parser.add_argument("--peers", default="20,1000,10000")
    arguments = parser.parse_args()

    idle_cpu, idle_wakeups, idle_resident = idle_baseline(arguments.baseline, arguments.polls)
    print(f"idle Qt app, a {POLL_SECONDS}-s timer: {idle_wakeups:.1f} wake-ups per tick, "
          f"{idle_resident:.1f} MB resident, {idle_cpu:.2f} ms CPU per tick\n")
    print(f"{'peers':>6}  {'window':<6}  {'round trips':<11}  {'CPU/poll':>9}  {'× parse':>7}  "
          f"{'wake-ups':>8}  {'× idle':>6}  {'resident':>9}  {'× idle':>6}  goal at 10,000")
    for peers in (int(count) for count in arguments.peers.split(",")):
        parse = None
        for window in (False, True):
            for drifting in (False, True):
                (cpu, wakeups, resident), reply = measure(arguments, peers, window, drifting)
                if reply:
                    parse = parse_baseline(arguments.baseline, reply)
                    print(f"{peers:>6}  simdjson's parse of the {len(reply) / 2**20:.2f} MiB reply: {parse:.2f} ms")
                goal = GOALS[(window, drifting)]
                print(f"{'':>6}  {'open' if window else 'closed':<6}  {'changing' if drifting else 'unchanged':<11}  "
                      f"{cpu:>6.2f} ms  {cpu / parse:>7.1f}  {wakeups:>8.1f}  {wakeups / idle_wakeups:>6.1f}  "
                      f"{resident:>6.1f} MB  {resident / idle_resident:>6.1f}  "
                      f"≤ {goal[0]} ms" + (f", ≤ {goal[1]} wake-ups" if goal[1] else "") + f", ≤ {goal[2]} MB",
                      flush=True)


if __name__ == "__main__":
    main()
