"""`python3 -m virtual_unit up [--build-dir DIR] [-- COMMAND...]`, `python3 -m virtual_unit demo [--build-dir DIR]` and
`python3 -m virtual_unit key CODE [press|release|repeat]`."""

import argparse
import sys


def _up(arguments):
    from .up import up  # pylint: disable=import-outside-toplevel
    return up(arguments.command, arguments.build_dir)


def _demo(arguments):
    from .demo import demo  # pylint: disable=import-outside-toplevel
    return demo(arguments.build_dir)


def _key(arguments):
    from .key import key  # pylint: disable=import-outside-toplevel
    return key(arguments.code, arguments.event)


def main(arguments):
    """Runs one of the package's commands; returns the exit status."""
    split = arguments.index("--") if "--" in arguments else len(arguments)
    parser = argparse.ArgumentParser(prog="virtual_unit", description="A camera unit without the camera.")
    commands = parser.add_subparsers(dest="name", required=True)
    for name, run, text in (("up", _up, "run a unit, or a command inside one (after --)"),
                            ("demo", _demo, "show one inspection on a unit, step by step")):
        command = commands.add_parser(name, help=text)
        command.set_defaults(run=run)
        command.add_argument("--build-dir", help="build tree of the daemon (default: $CCU_BUILD_DIR)")
    command = commands.add_parser("key", help="press a key of the unit that `up` runs")
    command.set_defaults(run=_key)
    command.add_argument("code", type=int, help="the key's code in the kernel's input-event-codes.h")
    command.add_argument("event", nargs="?", choices=("press", "release", "repeat"),
                         help="what happens to it (default: press, then release)")
    parsed = parser.parse_args(arguments[:split])
    parsed.command = arguments[split + 1:]
    return parsed.run(parsed)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
