#!/usr/bin/python3
"""The app writes no files and creates none.

Runs the installed app under strace against the simulated daemon, through a session of polls,
commands (disconnect, connect) and the peers window, then quits from the menu; every call that
could write, create, rename or remove a file must have failed, if it was made at all. (Qt's start-up
asks to make the runtime directory, which a session always has: the call fails and changes
nothing.) XDG_RUNTIME_DIR is set, as every desktop session sets it: without it Qt makes a
fallback directory of its own.

Usage: tst_nofiles.py PREFIX SIMULATOR, under xvfb-run and dbus-run-session.
"""
import os
import re
import sys
import tempfile
import time

from appsession import AppSession, until

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
CHANGING = ("creat,mkdir,mkdirat,rename,renameat,renameat2,unlink,unlinkat,rmdir,link,linkat,symlink,"
            "symlinkat,truncate,ftruncate,chmod,fchmodat,mknod,mknodat")
WRITABLE_OPEN = re.compile(r"\bopen(at2?)?\(.*\b(O_WRONLY|O_RDWR|O_CREAT|O_TRUNC)\b")


def main():
    trace = os.path.join(tempfile.mkdtemp(), "trace")
    runtime = tempfile.mkdtemp()
    wrapper = ["strace", "-f", "-qq", "-o", trace, "-e", "trace=open,openat,openat2," + CHANGING]
    with AppSession(PREFIX, SIMULATOR, wrapper=wrapper, environment={"XDG_RUNTIME_DIR": runtime}) as session:
        session.click("Peers\u2026")
        session.click("Disconnect")
        until(lambda: session.row("Connect"))
        session.click("Connect")
        until(lambda: session.row("Disconnect"))
        time.sleep(3.5)  # a poll with everything shown
        session.click("Quit Veltrane")
        status = session.app.wait(timeout=20)
    with open(trace) as lines:
        calls = lines.read().splitlines()
    attempts = [c for c in calls if WRITABLE_OPEN.search(c) or re.search(r"\b(%s)\(" % CHANGING.replace(",", "|"), c)]
    writes = [c for c in attempts if not re.search(r"= -1 E", c)]
    for call in attempts:
        print("FAIL: the app changed a file:" if call in writes else "note: tried, changing nothing:", call)
    ok = status == 0 and len(calls) > 0 and not writes
    print(f"{len(calls)} file calls traced, quit with status {status}")
    print(f"{1 if ok else 0} passed, {0 if ok else 1} failed")
    return 0 if ok else 1


sys.exit(main())
