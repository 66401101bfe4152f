#!/usr/bin/python3
"""An application that links nothing: it speaks with the broker and with the installer over D-Bus alone.

dbus_editor.py [update NEW_BUNDLE INSTALLER]

Each step is a function of its own, in the order of an update; any language with a D-Bus library can do the same.
"""
import os
import pathlib
import plistlib
import subprocess
import sys

from gi.repository import Gio, GLib

IDENTIFIER = os.environ.get("EDITOR_IDENTIFIER", "com.example.Editor")
BUNDLE = pathlib.Path(__file__).resolve().parents[2]

BROKER = "com.kelto.Authorization1"
BROKER_PATH = "/com/kelto/Authorization1"
APPLICATION = """<node><interface name="org.freedesktop.Application"><method name="ActivateAction">
  <arg type="s" name="action" direction="in"/><arg type="av" name="parameters" direction="in"/>
  <arg type="a{sv}" name="platformData" direction="in"/></method></interface></node>"""
MINUTE = 60_000  # milliseconds
INTERACTION_EXTEND_PREAUTHORIZE = 1 | 2 | 16


def call(bus, name, path, interface, method, arguments=None, patience=MINUTE, descriptors=None):
    answer, _ = bus.call_with_unix_fd_list_sync(name, path, interface, method, arguments, None, 0, patience, descriptors)
    return answer.unpack()


def bus_call(bus, method, arguments):
    return call(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method, arguments)[0]


def broker_call(bus, method, arguments=None, **options):
    return call(bus, BROKER, BROKER_PATH, BROKER, method, arguments, **options)[0]


def bus_with_broker(session_bus):
    """The system bus when a broker can be started there, otherwise the session bus."""
    try:
        system_bus = Gio.bus_get_sync(Gio.BusType.SYSTEM)
        bus_call(system_bus, "StartServiceByName", GLib.Variant("(su)", (BROKER, 0)))
        return system_bus
    except GLib.Error:
        return session_bus


def obtain_right(bus):
    """A handle of a session that holds the right. The user may be asked, for up to ten minutes."""
    handle = broker_call(bus, "Create")
    right = GLib.Variant("(tsu)", (handle, "system.privilege.admin", INTERACTION_EXTEND_PREAUTHORIZE))
    if broker_call(bus, "CopyRights", right, patience=10 * MINUTE) != 0:
        raise PermissionError("the right was not given")
    return handle


def start_installer(installer, new_bundle):
    information = plistlib.loads((installer / "Contents/Info.plist").read_bytes())
    process = subprocess.Popen([installer / "Contents/Linux" / information["CFBundleExecutable"],
                                "-KMInstallToolSrcPath", new_bundle, "-KMInstallToolTrashPath", BUNDLE,
                                "-KMInstallToolIsUpdate", "YES"], cwd="/", start_new_session=True)
    return process, information["CFBundleIdentifier"]


def when_owned_by(bus, name, process, found):
    """Calls found(connection) once that process owns its name, the bundle identifier with its number: it listens then."""
    name = f"{name}.Process{process.pid}"

    def look(*_):
        try:
            owner = bus_call(bus, "GetNameOwner", GLib.Variant("(s)", (name,)))
            number = bus_call(bus, "GetConnectionUnixProcessID", GLib.Variant("(s)", (owner,)))
        except GLib.Error:
            return
        if number == process.pid:
            bus.signal_unsubscribe(subscription)
            found(owner)

    subscription = bus.signal_subscribe("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", None, name, 0, look)
    look()


def hand_over(broker_bus, session_bus, handle, process, connection):
    """The form is good once, and only for the process that the pidfd names; the signal goes to it alone."""
    descriptors = Gio.UnixFDList.new_from_array([os.pidfd_open(process.pid)])
    form = broker_call(broker_bus, "MakeExternalFormFor", GLib.Variant("(th)", (handle, 0)), descriptors=descriptors)
    information = {"KMInstallToolCredentials": GLib.Variant("ay", bytes(form))}
    session_bus.emit_signal(connection, "/com/kelto/DistributedNotifications", "com.kelto.DistributedNotifications", "Posted",
                            GLib.Variant("(ssa{sv})", ("KMInstallToolCredentialsNotification", "", information)))
    print("the rights were handed over (0)", flush=True)


def offer_quit(bus, loop):
    def called(_bus, _sender, _path, _interface, _method, parameters, invocation):
        invocation.return_value(None)
        if parameters.unpack()[0] == "quit":
            loop.quit()  # a real editor asks its user about unsaved work here
    interface = Gio.DBusNodeInfo.new_for_xml(APPLICATION).interfaces[0]
    bus.register_object("/" + IDENTIFIER.replace(".", "/").replace("-", "_"), interface, called)
    Gio.bus_own_name_on_connection(bus, IDENTIFIER, 0, None, None)


def update(session_bus, new_bundle, installer):
    broker_bus = bus_with_broker(session_bus)
    handle = obtain_right(broker_bus)
    process, name = start_installer(installer, new_bundle)
    when_owned_by(session_bus, name, process,
                  lambda connection: hand_over(broker_bus, session_bus, handle, process, connection))
    return broker_bus, process  # the session ends with the connection


def main():
    loop = GLib.MainLoop()
    session_bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    offer_quit(session_bus, loop)
    if sys.argv[1:3] == ["-KTResumeSelfUpdate", "YES"]:
        print("a new version runs", flush=True)
    if sys.argv[1:2] == ["update"]:
        kept = update(session_bus, sys.argv[2], pathlib.Path(sys.argv[3]))  # noqa: F841
    loop.run()


main()
