#!/usr/bin/python3
"""An authentication agent that acts by script, around one command.

    authentication-agent.py right|wrong|cancel|leave PASSWORD -- COMMAND...

Starts the command, becomes its agent, and then gives it a line on standard input. When the policy service asks:
    right   gives the password
    wrong   gives another password
    cancel  dismisses the question
    leave   does not answer; runs KELTO_MEANWHILE, ends the command and waits until the question is withdrawn
Says what happens on standard output and ends with the command, or with the withdrawal.
"""
import os
import subprocess
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

AGENT = "/com/kelto/TestAgent"
HELPER = "/usr/lib/polkit-1/polkit-agent-helper-1"


def say(line):
    print("agent:", line, flush=True)


class Cancelled(dbus.DBusException):
    _dbus_error_name = "org.freedesktop.PolicyKit1.Error.Cancelled"


class Agent(dbus.service.Object):
    def __init__(self, bus, mode, password, loop):
        super().__init__(bus, AGENT)
        self.mode, self.password, self.loop = mode, password, loop
        self.command = None

    @dbus.service.method("org.freedesktop.PolicyKit1.AuthenticationAgent", in_signature="sssa{ss}sa(sa{sv})",
                         async_callbacks=("done", "failed"))
    def BeginAuthentication(self, action, message, icon, details, cookie, identities, done, failed):
        say("asked for %s: %s" % (action, message))
        if self.mode == "cancel":
            failed(Cancelled("dismissed"))
        elif self.mode == "leave":
            subprocess.run(os.environ["KELTO_MEANWHILE"], shell=True, check=False)
            self.command.kill()
        else:
            GLib.idle_add(self.authenticate, cookie, done, failed)

    @dbus.service.method("org.freedesktop.PolicyKit1.AuthenticationAgent", in_signature="s")
    def CancelAuthentication(self, cookie):
        say("the question is withdrawn")
        self.loop.quit()

    def authenticate(self, cookie, done, failed):
        helper = subprocess.Popen([HELPER, "root"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)
        helper.stdin.write(cookie + "\n")
        for line in helper.stdout:
            say("helper: " + line.strip())
            if line.startswith("PAM_PROMPT_ECHO_OFF"):
                helper.stdin.write((self.password if self.mode == "right" else "not " + self.password) + "\n")
            if line.startswith(("SUCCESS", "FAILURE")):
                break
        helper.wait()
        done()
        return False


def subject_of(process):
    start = open("/proc/%d/stat" % process).read().rpartition(")")[2].split()[19]
    return ("unix-process", {"pid": dbus.UInt32(process), "start-time": dbus.UInt64(int(start)),
                             "uid": dbus.Int32(os.getuid())})


def main():
    mode, password, command = sys.argv[1], sys.argv[2], sys.argv[4:]
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SystemBus()
    loop = GLib.MainLoop()
    agent = Agent(bus, mode, password, loop)
    agent.command = subprocess.Popen(command, stdin=subprocess.PIPE)
    authority = dbus.Interface(bus.get_object("org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority"),
                               "org.freedesktop.PolicyKit1.Authority")
    authority.RegisterAuthenticationAgent(subject_of(agent.command.pid), "C.UTF-8", AGENT)
    agent.command.stdin.write(b"\n")
    agent.command.stdin.flush()
    if mode != "leave":
        GLib.child_watch_add(GLib.PRIORITY_DEFAULT, agent.command.pid, lambda *_: loop.quit())
    GLib.timeout_add_seconds(60, lambda: (say("nothing happened"), loop.quit()))
    loop.run()


main()
