#!/usr/bin/python3
"""The peers window as a screen reader finds it, through AT-SPI.

Runs the installed app against the simulated daemon, opens "Peers…" from the app's exported menu
as a panel would, and reads the window's accessibility tree with pyatspi, a real AT-SPI client:
the window and every widget are named, the columns have their titles, and each row reads as the
cells of the device it shows.

Usage: tst_accessibility.py PREFIX SIMULATOR, under xvfb-run and dbus-run-session.
"""
import json
import socket
import sys

import pyatspi

from appsession import AppSession, until

PREFIX, SIMULATOR = sys.argv[1], sys.argv[2]
COLUMNS = ["Device", "IP", "Status", "Path", "RTT"]
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL:", what)


def daemon_devices(path):
    """The simulated daemon's devices, as (display name, address) pairs."""
    with socket.socket(socket.AF_UNIX) as connection:
        connection.connect(path)
        connection.sendall(b'{"command":"get_status"}\n')
        reply = b""
        while not reply.endswith(b"\n"):
            reply += connection.recv(65536)
    devices = json.loads(reply)["status"]["connectableDevices"]
    name = lambda d: d.get("computerName") or d.get("hostName") or d.get("fqdn") or ""
    return {(name(d), d.get("assignedIp", "")) for d in devices}


def find(node, predicate):
    if predicate(node):
        return node
    for i in range(node.childCount):
        found = find(node.getChildAtIndex(i), predicate)
        if found:
            return found
    return None


def descendants(node):
    for i in range(node.childCount):
        child = node.getChildAtIndex(i)
        yield child
        yield from descendants(child)


def main():
    with AppSession(PREFIX, SIMULATOR, ["--peers", "6"], environment={"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}) as session:
        session.click("Peers\u2026")
        desktop = pyatspi.Registry.getDesktop(0)
        window = until(lambda: find(desktop, lambda n: n.name == "Veltrane \u2014 Peers"))
        check(window.getRole() == pyatspi.ROLE_FRAME, f"the window is a frame, not a {window.getRoleName()}")
        search = find(window, lambda n: n.getRole() == pyatspi.ROLE_TEXT)
        check(search is not None and search.name == "Search devices", "the search field is named")
        table = find(window, lambda n: n.getRole() == pyatspi.ROLE_TABLE)
        check(table.name == "Peers", "the table is named")
        footer = find(window, lambda n: n.getRole() == pyatspi.ROLE_LABEL)
        check(footer is not None and footer.name == "Control plane: connected", "the footer reads its text")

        # Every widget has a name, but for empty cells and the unlabelled containers that screen
        # readers pass through.
        for node in descendants(window):
            if node.getRole() not in (pyatspi.ROLE_TABLE_CELL, pyatspi.ROLE_PANEL, pyatspi.ROLE_FILLER):
                check(node.name != "", f"a {node.getRoleName()} without a name")

        grid = table.queryTable()
        check([grid.getColumnDescription(c) for c in range(grid.nColumns)] == COLUMNS, "the column titles")
        expected = daemon_devices(session.socket)
        shown = set()
        for row in range(grid.nRows):
            cells = [grid.getAccessibleAt(row, column).name for column in range(grid.nColumns)]
            check(grid.getRowDescription(row) == cells[0], f"row {row} is named by its device")
            shown.add((cells[0], cells[1]))
        check(shown == expected, f"the rows read as the daemon's devices: {sorted(shown)} != {sorted(expected)}")
    print(f"{0 if failures else 1} passed, {1 if failures else 0} failed")
    return 1 if failures else 0


sys.exit(main())
