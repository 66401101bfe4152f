#!/usr/bin/python3
"""An application without a window that updates itself through the controller library, with a loop of its own.

editor.py update NEW_BUNDLE [INSTALLER] | remove [INSTALLER] | nothing: runs until it is asked to quit
"""
import os
import pathlib
import select
import sys

import kelto_controller
from kelto_controller import Event

# The bundle identifier, as in the information list. A test gives each run one of its own.
IDENTIFIER = os.environ.get("EDITOR_IDENTIFIER", "com.example.Editor")
BUNDLE = pathlib.Path(__file__).resolve().parents[2]


def main():
    if kelto_controller.take_resume_argument():
        print("a new version runs", flush=True)
    running = True

    def happened(event, number, text):
        nonlocal running
        print(f"{text} ({number})", flush=True)
        running = running and event != Event.QUIT_REQUESTED  # a real editor asks its user about unsaved work here

    controller = kelto_controller.Controller(IDENTIFIER, happened)
    mode, *paths = sys.argv[1:] or [None]
    if mode == "update":
        new_bundle = paths.pop(0)
    if paths:
        controller.set_installer(paths[0])
    if mode == "update":
        controller.update(new_bundle, BUNDLE)
    elif mode == "remove":
        controller.remove(BUNDLE)
    while running:
        select.select([controller], [], [])
        controller.dispatch()
    controller.close()


main()
