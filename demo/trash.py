#!/usr/bin/python3
"""Shows what a folder of trash holds, as a desktop's own view of it would: trash.py TRASH_FOLDER ICON"""
import configparser
import pathlib
import sys
import urllib.parse

import gi

gi.require_version("Gtk", "3.0")
from gi.repository import Gtk  # noqa: E402


def entries(trash):
    """The name, the former place and the date of each."""
    for information in sorted((trash / "info").glob("*.trashinfo")):
        reader = configparser.ConfigParser(interpolation=None)
        reader.read(information)
        entry = reader["Trash Info"]
        yield information.stem, urllib.parse.unquote(entry["Path"]), entry["DeletionDate"]


def row(icon, name, place, date):
    box = Gtk.Box(spacing=16, margin=16)
    box.add(Gtk.Image.new_from_file(icon))
    text = Gtk.Label(xalign=0, label=f"{name}\nfrom {place}\n{date.replace('T', '  ')}")
    box.add(text)
    return box


def main():
    window = Gtk.Window(title="Trash", default_width=560, default_height=240)
    rows = Gtk.Box(orientation=Gtk.Orientation.VERTICAL)
    for entry in entries(pathlib.Path(sys.argv[1])):
        rows.add(row(sys.argv[2], *entry))
    window.add(rows)
    window.connect("destroy", Gtk.main_quit)
    window.show_all()
    Gtk.main()


if __name__ == "__main__":
    main()
