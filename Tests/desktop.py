#!/usr/bin/python3
"""The desktop's side of the session bus, as a process of its own so that it answers while a test
blocks: a notification server that shows nothing, and a panel's StatusNotifierWatcher with its
host. It prints one JSON line per event: {"notice": [summary, body], "app": …, "hints": {…}},
{"capabilities": true} when asked for them, {"registered": service}. A line "panel" on standard
input starts the panel, or replaces the running one with a new connection (a restarted panel);
with --no-panel there is none until then; "notifications" likewise starts the notification server
held back by --no-notifications. With --late-host a panel's watcher reports no host until "host". The notification server can be another:
--capabilities=a,b (default "body"), --refuse=MESSAGE (every notice fails), --stall (it takes the
capability question and never answers).
"""
import argparse
import json
import os
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

WATCHER = "org.kde.StatusNotifierWatcher"


def say(event):
    print(json.dumps(event), flush=True)


class Notifications(dbus.service.Object):
    """By default it parses no body markup: the bodies it is sent must be the texts as typed."""

    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/Notifications")
        self.count = 0

    @dbus.service.method("org.freedesktop.Notifications", out_signature="as", async_callbacks=("reply", "error"))
    def GetCapabilities(self, reply, error):
        say({"capabilities": True})
        if not options.stall:
            reply(options.capabilities.split(","))

    @dbus.service.method("org.freedesktop.Notifications", in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        say({"notice": [str(summary), str(body)], "app": str(app), "replaces": int(replaces),
             "hints": {str(k): str(v) for k, v in hints.items()}})
        if options.refuse:
            raise dbus.exceptions.DBusException(options.refuse, name="org.freedesktop.DBus.Error.AccessDenied")
        self.count += 1
        return self.count


class Watcher(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/StatusNotifierWatcher")
        self.host = not options.late_host

    @dbus.service.signal(WATCHER)
    def StatusNotifierHostRegistered(self):
        self.host = True

    @dbus.service.method(WATCHER, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        say({"registered": str(service), "sender": str(sender)})

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return {"IsStatusNotifierHostRegistered": self.host, "ProtocolVersion": dbus.Int32(0)}[name]


arguments = argparse.ArgumentParser()
arguments.add_argument("--no-panel", action="store_true")
arguments.add_argument("--no-notifications", action="store_true")
arguments.add_argument("--late-host", action="store_true")
arguments.add_argument("--capabilities", default="body")
arguments.add_argument("--refuse")
arguments.add_argument("--stall", action="store_true")
options = arguments.parse_args()
DBusGMainLoop(set_as_default=True)
address = os.environ["DBUS_SESSION_BUS_ADDRESS"]
panel = {}


def start_notifications():
    bus = dbus.bus.BusConnection(address)
    panel["notifications"] = Notifications(bus)
    bus.request_name("org.freedesktop.Notifications", dbus.bus.NAME_FLAG_DO_NOT_QUEUE)


def start_panel():
    if "bus" in panel:
        panel["watcher"].remove_from_connection()
        panel["bus"].close()
    panel["bus"] = dbus.bus.BusConnection(address)
    panel["watcher"] = Watcher(panel["bus"])
    panel["bus"].request_name(WATCHER, dbus.bus.NAME_FLAG_DO_NOT_QUEUE)


def command(source, _):
    line = source.readline().strip()
    if line in ("panel", "notifications", "host"):
        {"panel": start_panel, "notifications": start_notifications,
         "host": lambda: panel["watcher"].StatusNotifierHostRegistered()}[line]()
        say({line: True})
    return bool(line)


if not options.no_notifications:
    start_notifications()
if not options.no_panel:
    start_panel()
GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, command)
say({"ready": True})
GLib.MainLoop().run()
