#!/usr/bin/env python3
"""Watches which files programs open: opened_files.py LIST READY FOLDER...

Appends a line "PROGRAM <tab> FILE" to LIST for every file that is opened or run on the file systems of the folders, in whatever
mount namespace, until it is ended. Makes READY once it watches. The program is "?" when it was gone before it could be asked for. Needs root.
"""
import ctypes
import os
import pathlib
import struct
import sys

LIBC = ctypes.CDLL(None, use_errno=True)
FAN_MARK_ADD, FAN_MARK_FILESYSTEM = 0x1, 0x100
FAN_OPEN, FAN_OPEN_EXEC = 0x20, 0x1000
AT_FDCWD = -100
EVENT = struct.Struct("=IBBHQii")


def check(result):
    if result < 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
    return result


def place_of(link):
    try:
        return os.readlink(link)
    except OSError:
        return "?"


def events(descriptor):
    """The program and the file of each event."""
    buffer = os.read(descriptor, 1 << 16)
    while buffer:
        length, _, _, _, _, opened, process = EVENT.unpack_from(buffer)
        if opened >= 0:
            yield place_of(f"/proc/{process}/exe"), place_of(f"/proc/self/fd/{opened}")
            os.close(opened)
        buffer = buffer[length:]


def main():
    written, ready, *folders = sys.argv[1:]
    descriptor = check(LIBC.fanotify_init(0, os.O_RDONLY | os.O_CLOEXEC | os.O_LARGEFILE))
    for folder in folders:
        check(LIBC.fanotify_mark(descriptor, FAN_MARK_ADD | FAN_MARK_FILESYSTEM, ctypes.c_uint64(FAN_OPEN | FAN_OPEN_EXEC), AT_FDCWD,
                                 folder.encode()))
    pathlib.Path(ready).touch()
    seen = set()
    with open(written, "a", buffering=1, encoding="utf-8", errors="surrogateescape") as lines:
        while True:
            for pair in events(descriptor):
                # The list lies on a mount that is watched.
                if pair not in seen and pair[1] != written:
                    seen.add(pair)
                    lines.write("\t".join(pair) + "\n")


if __name__ == "__main__":
    main()
