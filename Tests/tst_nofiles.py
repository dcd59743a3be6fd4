#!/usr/bin/python3
"""The app writes no files and creates none: the installed app under strace through polls,
commands and the peers window, then "Quit Veltrane". Every call that could write, create, rename
or remove a file must have failed, if it was made at all. (Qt's start-up asks to make the runtime
directory, which a session always has: the call fails and changes nothing.) XDG_RUNTIME_DIR is set,
as every desktop session sets it: without it Qt makes a fallback directory of its own.

Usage: tst_nofiles.py PREFIX SIMULATOR, under xvfb-run and a bare session bus.
"""
import os
import re
import sys
import tempfile
import time

from harness import Session, check, finish, until

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
CHANGING = ("creat,mkdir,mkdirat,rename,renameat,renameat2,unlink,unlinkat,rmdir,link,linkat,symlink,"
            "symlinkat,truncate,ftruncate,chmod,fchmodat,mknod,mknodat")
ATTEMPT = re.compile(r"\bopen(at2?)?\(.*\b(O_WRONLY|O_RDWR|O_CREAT|O_TRUNC)\b|\b(%s)\(" % CHANGING.replace(",", "|"))

trace = os.path.join(tempfile.mkdtemp(), "trace")
wrapper = ["strace", "-f", "-qq", "-o", trace, "-e", "trace=open,openat,openat2," + CHANGING]
with Session(PREFIX, SIMULATOR, wrapper=wrapper, environment={"XDG_RUNTIME_DIR": tempfile.mkdtemp()}) as session:
    app = session.app
    app.click("Peers\u2026")
    app.click("Disconnect")
    until(lambda: app.row("Connect"))
    app.click("Connect")
    until(lambda: app.row("Disconnect"))
    time.sleep(3.5)  # a poll with everything shown
    status = app.quit()
with open(trace) as lines:
    calls = lines.read().splitlines()
attempts = [call for call in calls if ATTEMPT.search(call)]
for call in attempts:
    print("note: tried, changing nothing:" if re.search(r"= -1 E", call) else "the app changed a file:", call)
check(status == 0 and len(calls) > 100, f"{len(calls)} file calls traced, quit with status {status}")
check(all(re.search(r"= -1 E", call) for call in attempts), "no call changed a file")
finish()
