#!/usr/bin/python3
"""Hands rights over to an installer as no controller does: rights-sender.py TEXTS KIND IDENTIFIER.

TEXTS are those of the protocol, by name, in JSON: this program may run as somebody who cannot read the project's folder. IDENTIFIER is
the installer's. The installer gets its rights when it listens; start it when this program has printed "ready". KIND is
  wrong   32 bytes that stand for nothing
  empty   a session that was never given the right
  twice   a session with the right, in two notifications
The program goes on until it is killed: the session ends with it.
"""
import json
import os
import sys

from gi.repository import Gio, GLib

TEXTS, KIND, IDENTIFIER = json.loads(sys.argv[1]), sys.argv[2], sys.argv[3]
PREAUTHORIZE = 1 | 2 | 16  # a person may be asked; the session keeps the right
BUS = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")


def connections():
    """The bus of the broker, and the session bus."""
    session_bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    try:
        return Gio.bus_get_sync(Gio.BusType.SYSTEM), session_bus
    except GLib.Error:
        return session_bus, session_bus


def ask(bus, method, arguments=None, descriptors=None):
    answer, _ = bus.call_with_unix_fd_list_sync(TEXTS["brokerBusName"], TEXTS["brokerObjectPath"], TEXTS["brokerInterface"],
                                                TEXTS[f"{method}Method"], arguments, None, 0, -1, descriptors)
    return answer.unpack()[0]


def session_of(bus):
    handle = ask(bus, "create")
    if KIND == "twice" and ask(bus, "copyRights", GLib.Variant("(tsu)", (handle, TEXTS["adminRight"], PREAUTHORIZE))) != 0:
        raise PermissionError("the right was not given")
    return handle


def form_for(bus, handle, process):
    if KIND == "wrong":
        return b"\x5a" * 32
    descriptors = Gio.UnixFDList.new_from_array([os.pidfd_open(process)])
    return bytes(ask(bus, "makeExternalFormFor", GLib.Variant("(th)", (handle, 0)), descriptors))


def send(bus, connection, form):
    information = {TEXTS["credentialsKey"]: GLib.Variant("ay", form)}
    bus.emit_signal(connection, TEXTS["notificationsPath"], TEXTS["notificationsInterface"], TEXTS["notificationSignal"],
                    GLib.Variant("(ssa{sv})", (TEXTS["credentialsNotification"], "", information)))


def main():
    broker_bus, session_bus = connections()
    handle = session_of(broker_bus)

    def listens(_bus, _name, connection):
        process = session_bus.call_sync(*BUS, "GetConnectionUnixProcessID", GLib.Variant("(s)", (connection,)), None, 0, -1, None)
        for form in [form_for(broker_bus, handle, *process.unpack()) for _ in range(2 if KIND == "twice" else 1)]:
            send(session_bus, connection, form)
    Gio.bus_watch_name_on_connection(session_bus, IDENTIFIER, 0, listens, None)
    session_bus.flush_sync()
    print("ready", flush=True)
    GLib.MainLoop().run()


main()
