#!/usr/bin/python3
"""The installed app through every way a daemon can misbehave, one after another: the state its
answers call for, exactly the notices they call for, polls at the interval, then the
app alive with a good daemon and no more descriptors; last, daemon texts shown as written.
Usage: tst_faults.py PREFIX SIMULATOR, under xvfb-run and a bare session bus."""
import json
import os
import sys
import time

from harness import GREEN, ask, RED, SLATE, Session, check, finish, replying, until, within

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
BLUE = (59, 130, 246)
POLL_INTERVAL = 3.0
# Root opens any socket; without these capabilities it is refused as a user is.
CAPABILITIES = "-dac_override,-dac_read_search"
WRAPPER = ["setpriv", f"--bounding-set={CAPABILITIES}", f"--inh-caps={CAPABILITIES}"] if os.getuid() == 0 else []


def main():
    with Session(PREFIX, SIMULATOR, options=(), wrapper=WRAPPER) as session:
        app, notices = session.app, session.desktop.notices
        clicks = []
        until(lambda: app.dot() == GREEN)
        # Left alone, the app polls at the interval: a tick may come half a second late, no later.
        calm = time.monotonic()
        polls = until(lambda: session.polls_since(calm)[3:] and session.polls_since(calm)[:4], 20)
        gaps = [round(b - a, 2) for a, b in zip(polls, polls[1:])]
        check(all(POLL_INTERVAL - 0.5 <= gap <= POLL_INTERVAL + 0.5 for gap in gaps),
              f"polls come every {POLL_INTERVAL:.0f} seconds: {gaps}")
        baseline = app.descriptors()

        def recover(name):
            """A good daemon again: the app applies its answers, alive and without extra descriptors."""
            session.replace_daemon(session.simulator)
            check(within(lambda: app.dot() == GREEN, 15) and app.process.poll() is None,
                  f"{name}: with a good daemon back the app applies its answers")
            check(app.descriptors() <= baseline + 1, f"{name}: {app.descriptors()} descriptors, {baseline} before")

        def unreachable(name, start):
            heard = len(notices)
            session.replace_daemon(start)
            check(within(lambda: app.dot() == RED, 20), f"{name}: the daemon-not-running state")
            check(notices[heard:] == [], f"{name}: no notice")
            recover(name)

        # Daemons whose every answer fails: the unreachable state, no notice, polling on schedule.
        for fault in ["silent", "close-before-read", "close-mid-line", "empty", "garbage", "wrong-types",
                      "endless-stream", "refuse", "refuse-without-error"]:
            unreachable(fault, lambda: session.simulator("--fault", fault))

        # Daemons that answer well in an odd way: the state they report, which differs from the last.
        for fault, state, dot in [("slow-reply", "--no-network", BLUE), ("trailing-bytes", "--stopped", SLATE)]:
            heard = len(notices)
            session.replace_daemon(lambda: session.simulator(state, "--fault", fault))
            check(within(lambda: app.dot() == dot, 15) and notices[heard:] == [], f"{fault}: applied, no notice")
        unreachable("missing socket", lambda: None)

        def forbidden():
            daemon = session.simulator()
            os.chmod(session.socket, 0)
            return daemon
        unreachable("socket without permission", forbidden)
        unreachable("accepts and never reads", lambda: session.fake(None, reads=False))
        unreachable("5 MiB without a line feed", lambda: session.fake(lambda c, _: c.sendall(b"x" * (5 << 20))))

        # Restarted into another state: the new daemon's state; its commands work.
        heard = len(notices)
        session.replace_daemon(lambda: session.simulator("--stopped"))
        check(within(lambda: app.dot() == SLATE, 10), "restarted mid-run: the new daemon's stopped state")
        clicks.append(time.monotonic())
        app.click("Connect")
        check(within(lambda: app.dot() == GREEN, 10) and notices[heard:] == [],
              "restarted mid-run: Connect reaches the new daemon, no notice")

        # Answers a command, then dies: no notice for the stop it answered, then the unreachable state.
        upstream = os.path.join(session.work, "upstream.sock")
        backend = session.simulator(path=upstream)

        def answer_then_die(connection, line):
            connection.sendall(ask(upstream, line))
            if line == '{"command":"stop"}':
                session.daemon.stop()
        heard = len(notices)
        session.replace_daemon(lambda: session.fake(answer_then_die))
        until(lambda: app.dot() == GREEN)
        clicks.append(time.monotonic())
        app.click("Disconnect")
        check(within(lambda: app.dot() == RED, 10), "answers a command and dies: then the daemon-not-running state")
        time.sleep(POLL_INTERVAL)
        check(notices[heard:] == [], "answers a command and dies: no notice for the stop it answered")
        backend.stop()
        recover("answers a command and dies")

        # Nothing is asked again early: polls come at the interval, or at once after a command.
        polls = session.polls_since(0)
        early = [round(b - a, 2) for a, b in zip(polls, polls[1:])
                 if b - a < POLL_INTERVAL - 0.5 and not any(0 <= b - c < 2 for c in clicks)]
        check(len(polls) > 20 and not early, f"{len(polls)} polls, none sooner than the interval allows: {early}")

        verbatim_texts(session)
        check(app.quit() == 0, '"Quit Veltrane" ends the app after all of it')
    finish()


MARKUP = "<b>bold</b> &amp; <i>it</i>_x.corp.example"
CONTROL_RTL = "\u05e9\u05dc\u05d5\u05dd \u202eabc\u202c \u0001\u0007\u001b[31m\tend"
LONG = "".join(chr(0x61 + i % 26) for i in range(9990)) + "\u05e2\u05d1\u05e8\u05d9\u05ea<b>&z"


def verbatim_texts(session):
    """Daemon texts reach menu rows and notices as written: never markup, never trimmed of odd
    characters; in a row, "_" is DBusMenu's "__"."""
    app, notices = session.app, session.desktop.notices
    status = {"membershipState": "membership_active", "wantRunning": True, "isDataPlaneActive": True,
              "selfFqdn": MARKUP, "assignedIp": "100.64.0.1", "userEmail": CONTROL_RTL, "connectableDevices": []}
    replies = {"stop": {"success": False, "error": MARKUP + " " + CONTROL_RTL},
               "logout": {"success": True, "message": LONG}}
    session.replace_daemon(lambda: session.fake(replying(
        lambda command: {"success": True, "status": status} if command == "get_status" else replies[command])))

    def shows(text):
        """A row that shows `text` as written: whole, or shortened in the middle to the row's width."""
        text = text.replace("_", "__")
        for label in app.rows():
            head, _, tail = label.removeprefix("(off) ").partition("\u2026")
            if head == text or (tail and text.startswith(head) and text.endswith(tail) and len(head) > 4):
                return label
        return None

    check(within(lambda: shows(MARKUP), 10), f"menu row: the DNS name as written, {shows(MARKUP)!r}")
    owner_row = "100.64.0.1 \u00b7 " + CONTROL_RTL
    check(within(lambda: shows(owner_row), 10), f"menu row: the address and owner as written, {shows(owner_row)!r}")
    for row, expected in [("Disconnect", ("Disconnect failed", MARKUP + " " + CONTROL_RTL)),
                          ("Log out", ("Signed out", LONG))]:
        heard = len(notices)
        app.click(row)
        check(within(lambda: notices[heard:] == [expected], 10), f"notice: the daemon's text as written after {row}")
    status["selfFqdn"] = LONG
    shortened = within(lambda: shows(LONG), 10)
    check(shortened and len(shortened) < 200, f"menu row: a 10,000-character name keeps its beginning and end")


main()
