#!/usr/bin/python3
"""Reads windows and presses buttons as assistive tools do. A helper of desktop.py.

Prints "ready", then answers each line of JSON on standard input with one.
"""
import json
import os
import sys

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402


def accessibility_bus():
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    answer = bus.call_sync("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", None, None,
                           Gio.DBusCallFlags.NONE, 10000, None)
    return answer.unpack()[0]


# The display may be announcing another desktop's bus.
os.environ["AT_SPI_BUS_ADDRESS"] = accessibility_bus()
os.environ.pop("DISPLAY", None)
gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402


def below(item):
    """The items inside one, in order, the deeper ones too."""
    for index in range(item.get_child_count()):
        child = item.get_child_at_index(index)
        if child is not None:
            yield child
            yield from below(child)


def windows_of(process):
    """Pairs of application and window: to ask a window that goes for its application ends this program."""
    desktop = Atspi.get_desktop(0)
    # Nobody here reads the news about what has come and gone.
    desktop.clear_cache()
    for index in range(desktop.get_child_count()):
        application = desktop.get_child_at_index(index)
        if application is None or application.get_process_id() != process:
            continue
        for place in range(application.get_child_count()):
            window = application.get_child_at_index(place)
            if window is not None and window.get_state_set().contains(Atspi.StateType.SHOWING):
                yield application, window


def names_with(items, state):
    return [item.get_name() for item in items if item.get_role() != Atspi.Role.FILLER and item.get_state_set().contains(state)]


def middle_of(item):
    place = item.get_extents(Atspi.CoordType.SCREEN)
    return place.x + place.width // 2, place.y + place.height // 2


def describe(application, window):
    items = list(below(window))
    return {"role": window.get_role_name(), "name": window.get_name(), "description": window.get_description(),
            "application": application.get_name(),
            "texts": [item.get_name() for item in items if item.get_role() == Atspi.Role.LABEL and item.get_name()],
            "buttons": [item.get_name() for item in items if item.get_role() == Atspi.Role.PUSH_BUTTON],
            "elements": [[item.get_role_name(), item.get_name()] for item in items if item.get_role() != Atspi.Role.FILLER],
            "focused": names_with(items, Atspi.StateType.FOCUSED),
            "focusable": names_with(items, Atspi.StateType.FOCUSABLE), "enabled": names_with(items, Atspi.StateType.ENABLED),
            "busy": names_with(items, Atspi.StateType.BUSY),
            "bars": [middle_of(item) for item in items if item.get_role() == Atspi.Role.PROGRESS_BAR]}


def press(process, title):
    for _, window in windows_of(process):
        for item in below(window):
            if item.get_role() == Atspi.Role.PUSH_BUTTON and item.get_name() == title:
                return item.do_action(0)
    return False


def answer(question):
    try:
        if question["do"] == "press":
            return press(question["process"], question["button"])
        return [describe(*found) for found in windows_of(question["process"])]
    except GLib.Error:
        # It went while it was looked at.
        return False if question["do"] == "press" else []


print("ready", flush=True)
for line in sys.stdin:
    print(json.dumps(answer(json.loads(line))), flush=True)
