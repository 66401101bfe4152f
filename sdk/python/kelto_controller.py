"""The application's side of an installation, for Python: kelto/controller.h through ctypes.

One thread at a time; nothing blocks. Watch `controller.fileno()` with any event loop and call `controller.dispatch()` when it
is readable. The handler gets (event, number, text), see Event and the C header.
"""
import ctypes
import enum
import os
import sys


class Event(enum.IntEnum):
    RIGHT_GRANTED = 1
    INSTALLER_STARTED = 2
    RIGHTS_HANDED_OVER = 3
    QUIT_REQUESTED = 4
    INSTALLER_ENDED = 5
    FAILED = 6
    NAME_NOT_OWNED = 7


class Error(enum.IntEnum):
    NO_BROKER = 1
    DENIED = 2
    BROKER = 3
    INSTALLER = 4
    SILENT = 5
    NO_SESSION_BUS = 6


def _event(number):
    """An event of a newer library stays a number."""
    return Event(number) if number in Event.__members__.values() else number


_HANDLER = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int, ctypes.c_int, ctypes.c_char_p)
_POINTER, _INT, _TEXT, _REAL = ctypes.c_void_p, ctypes.c_int, ctypes.c_char_p, ctypes.c_double
_FUNCTIONS = {
    "new": (_POINTER, _TEXT, _HANDLER, ctypes.c_void_p), "free": (None, _POINTER), "fd": (_INT, _POINTER),
    "dispatch": (None, _POINTER), "set_installer": (_INT, _POINTER, _TEXT),
    "set_window_frame": (_INT, _POINTER, _REAL, _REAL, _REAL, _REAL), "set_parent_window": (_INT, _POINTER, _TEXT),
    "obtain_right": (_INT, _POINTER),
    "last_run": (_INT, _INT, _POINTER, ctypes.c_size_t), "install": (_INT, _POINTER, _TEXT, _TEXT), "update": (_INT, _POINTER, _TEXT, _TEXT), "remove": (_INT, _POINTER, _TEXT),
}


def _load():
    library = ctypes.CDLL(os.environ.get("KELTO_CONTROLLER_LIBRARY", "libkelto-controller.so.1"))
    for name, (result, *arguments) in _FUNCTIONS.items():
        function = getattr(library, f"kelto_controller_{name}")
        function.restype, function.argtypes = result, arguments
    return library


def take_resume_argument(arguments=None):
    """Whether the installer started this process to finish an update. Takes the arguments that say so out of the list."""
    arguments = sys.argv if arguments is None else arguments
    words = [os.fsencode(word) for word in arguments]
    count = ctypes.c_int(len(words))
    array = (ctypes.c_char_p * (len(words) + 1))(*words, None)
    resumed = _load().kelto_take_resume_argument(ctypes.byref(count), array)
    arguments[:] = [os.fsdecode(array[place]) for place in range(count.value)]
    return bool(resumed)


def last_run():
    """The record of the installer's last run, see kelto_controller_last_run(): a dictionary of texts, empty without one."""
    library = _load()
    record = {}
    for number, key in enumerate(("mode", "bundle", "old_version", "new_version", "status", "time", "step", "path", "cause"), 1):
        length = library.kelto_controller_last_run(number, None, 0)
        if length < 0:
            continue
        text = ctypes.create_string_buffer(length + 1)
        library.kelto_controller_last_run(number, text, len(text))
        record[key] = text.value.decode()
    return record


class Controller:
    def __init__(self, bundle_identifier, handler):
        """None for an application that owns its bus name and answers "quit" by itself."""
        self._library = _load()
        # ctypes would drop a function that nobody holds.
        self._handler = _HANDLER(lambda _data, event, number, text: handler(_event(event), number, text.decode()))
        identifier = None if bundle_identifier is None else bundle_identifier.encode()
        self._object = self._library.kelto_controller_new(identifier, self._handler, None)
        if not self._object:
            raise MemoryError("no controller")

    def close(self):
        if self._object:
            self._library.kelto_controller_free(self._object)
        self._object = None

    __del__ = close

    def fileno(self):
        return self._library.kelto_controller_fd(self._object)

    def dispatch(self):
        self._library.kelto_controller_dispatch(self._object)

    def set_installer(self, path):
        self._call("set_installer", os.fsencode(path))

    def set_window_frame(self, x, y, width, height):
        self._call("set_window_frame", x, y, width, height)

    def set_parent_window(self, name):
        self._call("set_parent_window", None if name is None else os.fsencode(name))

    def obtain_right(self):
        self._call("obtain_right")

    def install(self, new_bundle, installed_bundle):
        self._call("install", os.fsencode(new_bundle), os.fsencode(installed_bundle))

    def update(self, new_bundle, installed_bundle):
        self._call("update", os.fsencode(new_bundle), os.fsencode(installed_bundle))

    def remove(self, installed_bundle):
        self._call("remove", os.fsencode(installed_bundle))

    def _call(self, name, *arguments):
        result = getattr(self._library, f"kelto_controller_{name}")(self._object, *arguments)
        if result < 0:
            raise OSError(-result, f"{name}: {os.strerror(-result)}")
