#!/usr/bin/python3
"""A desktop notification server on the session bus that shows nothing: it prints each notice it
receives as one JSON line {"summary": …, "body": …} on standard output. It parses no body
markup, so the bodies it is sent must be the texts as typed.
"""
import json
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

INTERFACE = "org.freedesktop.Notifications"


class Server(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/Notifications")
        self.last_id = 0

    @dbus.service.method(INTERFACE, out_signature="as")
    def GetCapabilities(self):
        return ["body"]

    @dbus.service.method(INTERFACE, out_signature="ssss")
    def GetServerInformation(self):
        return "test", "test", "1", "1.2"

    @dbus.service.method(INTERFACE, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app_name, replaces_id, icon, summary, body, actions, hints, timeout):
        print(json.dumps({"summary": str(summary), "body": str(body)}), flush=True)
        self.last_id += 1
        return self.last_id

    @dbus.service.method(INTERFACE, in_signature="u")
    def CloseNotification(self, notification_id):
        pass


DBusGMainLoop(set_as_default=True)
session = dbus.SessionBus()
name = dbus.service.BusName(INTERFACE, session, do_not_queue=True)
server = Server(session)
print("ready", flush=True)
GLib.MainLoop().run()
