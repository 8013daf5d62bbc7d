"""The names of keys, as in the kernel's input-event-codes.h, asked of the library that libinput brings along."""

import ctypes
import difflib
import functools

_KEYS = 1
_PREFIX = "KEY_"
#: The codes that the unit's keypad has.
CODES = range(1, 249)


@functools.lru_cache(maxsize=None)
def _library():
    library = ctypes.CDLL("libevdev.so.2")
    library.libevdev_event_code_get_name.restype = ctypes.c_char_p
    return library


def name_of(code):
    """The name of a key without KEY_, or its code where it has none."""
    name = _library().libevdev_event_code_get_name(_KEYS, code)
    return name.decode().removeprefix(_PREFIX) if name else str(code)


def names():
    """The names of all keys."""
    return [name_of(code) for code in CODES]


def code_of(key):
    """The code of a key by its name, with or without KEY_ and in any case, or by its code; None for none of these."""
    if key.isascii() and key.isdigit():
        return int(key) if int(key) in CODES else None
    name = _PREFIX + key.upper().removeprefix(_PREFIX)
    code = _library().libevdev_event_code_from_name(_KEYS, name.encode())
    return code if code in CODES else None


def suggestion(key):
    """Names that may be meant."""
    close = difflib.get_close_matches(key.upper().removeprefix(_PREFIX), names(), 3)
    return f"; meant is perhaps {' or '.join(name.capitalize() for name in close)}" if close else ""
