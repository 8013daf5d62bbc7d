"""`python3 -m virtual_unit up [--build-dir DIR] [-- COMMAND...]` and `python3 -m virtual_unit demo [--build-dir DIR]`."""

import argparse
import sys


def _up(arguments):
    from .up import up  # pylint: disable=import-outside-toplevel
    return up(arguments.command, arguments.build_dir)


def _demo(arguments):
    from .demo import demo  # pylint: disable=import-outside-toplevel
    return demo(arguments.build_dir)


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
    parsed = parser.parse_args(arguments[:split])
    parsed.command = arguments[split + 1:]
    return parsed.run(parsed)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
