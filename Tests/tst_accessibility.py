#!/usr/bin/python3
"""The peers window as a screen reader finds it through AT-SPI (pyatspi): everything named, the
columns titled, each row read as its device's cells; the open window follows the daemon.
Usage: tst_accessibility.py PREFIX SIMULATOR, under xvfb-run and a bare session bus."""
import json
import os
import signal
import subprocess
import sys

import dbus
import pyatspi

from harness import Session, ask, check, finish, until, within

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
COLUMNS = ["Device", "IP", "Status", "Path", "RTT"]


def find(node, predicate):
    if predicate(node):
        return node
    return next(filter(None, (find(node.getChildAtIndex(i), predicate) for i in range(node.childCount))), None)


def descendants(node):
    for i in range(node.childCount):
        yield node.getChildAtIndex(i)
        yield from descendants(node.getChildAtIndex(i))


launcher = subprocess.Popen(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"], start_new_session=True)
until(lambda: dbus.SessionBus().name_has_owner("org.a11y.Bus"))
with Session(PREFIX, SIMULATOR, options=["--peers", "6"],
             environment={"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}) as session:
    session.app.click("Peers\u2026")
    window = until(lambda: find(pyatspi.Registry.getDesktop(0), lambda n: n.name == "Veltrane \u2014 Peers"))
    check(window.getRole() == pyatspi.ROLE_FRAME, f"the window is a {window.getRoleName()}, as a frame should be")
    search = find(window, lambda n: n.getRole() == pyatspi.ROLE_TEXT)
    table = find(window, lambda n: n.getRole() == pyatspi.ROLE_TABLE)
    footer = find(window, lambda n: n.getRole() == pyatspi.ROLE_LABEL)
    check(search.name == "Search devices" and table.name == "Peers" and footer.name == "Control plane: connected",
          "the search field, the table and the footer are named")
    # Empty cells and the unlabelled containers that screen readers pass through have no name.
    unnamed = [n.getRoleName() for n in descendants(window) if n.name == ""
               and n.getRole() not in (pyatspi.ROLE_TABLE_CELL, pyatspi.ROLE_PANEL, pyatspi.ROLE_FILLER)]
    check(unnamed == [], f"every widget has a name: {unnamed}")
    grid = table.queryTable()
    check([grid.getColumnDescription(c) for c in range(grid.nColumns)] == COLUMNS, "the column titles")
    rows = [[grid.getAccessibleAt(r, c).name for c in range(grid.nColumns)] for r in range(grid.nRows)]
    check(all(grid.getRowDescription(r) == cells[0] for r, cells in enumerate(rows)), "each row is named by its device")
    devices = json.loads(ask(session.socket, '{"command":"get_status"}'))["status"]["connectableDevices"]
    expected = {(d.get("computerName") or d.get("hostName") or d.get("fqdn") or "", d.get("assignedIp", ""))
                for d in devices}
    check({(cells[0], cells[1]) for cells in rows} == expected, "the rows read as the daemon's devices")
    session.replace_daemon(lambda: None)  # the open window follows every status
    check(within(lambda: table.queryTable().nRows == 0 and footer.name == "Control plane: unreachable (daemon not running)", 15),
          "with the daemon gone, no rows and the footer says why")
os.killpg(launcher.pid, signal.SIGTERM)  # the launcher and the accessibility bus it started
finish()
