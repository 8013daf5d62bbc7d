"""Calls libgpiod as it is told, one call a line on standard input, and tells its result and errno: see test_gpio.py.

The argument is the library to call; with an empty one it is what stands first, as for a program that is linked to it.
"""

import ctypes
import json
import os
import sys


def main():
    """Until the input ends; what is still held then is not released."""
    library = ctypes.CDLL(sys.argv[1] or None, use_errno=True)
    chip, lines = None, {}
    for name in ("gpiod_chip_open_by_name", "gpiod_chip_get_line"):
        getattr(library, name).restype = ctypes.c_void_p
    for text in sys.stdin:
        name, *arguments = json.loads(text)
        function = getattr(library, f"gpiod_{name}")
        ctypes.set_errno(0)
        if name == "chip_open_by_name":
            chip = function(arguments[0].encode())
            result = bool(chip)
        elif name == "chip_get_line":
            lines[arguments[0]] = function(ctypes.c_void_p(chip), arguments[0])
            result = bool(lines[arguments[0]])
        elif name == "chip_close":
            result = bool(function(ctypes.c_void_p(chip)))
        else:
            rest = [one.encode() if isinstance(one, str) else one for one in arguments[1:]]
            result = function(ctypes.c_void_p(lines[arguments[0]]), *rest)
        failed = result is False or result == -1
        print(json.dumps([result, ctypes.get_errno() if failed else 0]), flush=True)
    os._exit(0)


if __name__ == "__main__":
    main()
