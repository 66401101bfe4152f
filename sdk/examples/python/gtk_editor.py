#!/usr/bin/python3
"""A GTK application with a window that updates itself through the controller library.

gtk_editor.py [update NEW_BUNDLE [INSTALLER]]

GtkApplication owns the bundle identifier on the session bus and offers the action "quit" there, so the library need not.
"""
import os
import pathlib
import sys

import gi

import kelto_controller

gi.require_version("Gtk", "3.0")
from gi.repository import Gio, GLib, Gtk  # noqa: E402

IDENTIFIER = os.environ.get("EDITOR_IDENTIFIER", "com.example.Editor")
BUNDLE = pathlib.Path(__file__).resolve().parents[2]


class Editor(Gtk.Application):
    def __init__(self, resumed):
        super().__init__(application_id=IDENTIFIER)
        self._resumed = resumed
        quit_action = Gio.SimpleAction.new("quit", None)
        quit_action.connect("activate", lambda *_: self.quit())  # a real editor asks its user about unsaved work here
        self.add_action(quit_action)

    def do_activate(self):
        window = Gtk.ApplicationWindow(application=self, title="Editor", default_width=640, default_height=400)
        self._state = Gtk.Label(label="A new version runs" if self._resumed else "Ready")
        window.add(self._state)
        window.show_all()
        self._controller = kelto_controller.Controller(None, self._happened)
        GLib.unix_fd_add_full(GLib.PRIORITY_DEFAULT, self._controller.fileno(), GLib.IOCondition.IN, self._dispatch)
        mode, *paths = sys.argv[1:] or [None]
        if mode == "update":
            if len(paths) > 1:
                self._controller.set_installer(paths[1])
            self._controller.update(paths[0], BUNDLE)

    def _dispatch(self, *_):
        self._controller.dispatch()
        return GLib.SOURCE_CONTINUE

    def _happened(self, _event, number, text):
        print(f"{text} ({number})", flush=True)
        self._state.set_text(text)


Editor(kelto_controller.take_resume_argument()).run()
