"""The commands of the package, `python3 -m virtual_unit COMMAND`, as `ccu` calls them."""

import argparse
import os
import sys

from .program import NAME, PROGRAM

#: What the unit's package only recommends, by the modules that some commands need.
_RECOMMENDED = {"aiohttp": "python3-aiohttp", "dpkt": "python3-dpkt", "jeepney": "python3-jeepney"}


def _up(arguments):
    from .up import up  # pylint: disable=import-outside-toplevel
    port = arguments.port if arguments.panel else None
    return up(arguments.command, arguments.build_dir, arguments.unit or "", port)


def _panel(arguments):
    from .web.server import panel  # pylint: disable=import-outside-toplevel
    return panel(arguments.unit, arguments.port)


def _demo(arguments):
    from .demo import demo, show_chapters  # pylint: disable=import-outside-toplevel
    return show_chapters() if arguments.list else demo(arguments.build_dir, arguments.chapter)


def _run(arguments):
    from .run import run, show_scenarios  # pylint: disable=import-outside-toplevel
    return show_scenarios() if arguments.list else run(arguments.file, arguments.unit, arguments.junit,
                                                       arguments.build_dir)


def _record(arguments):
    from .traces import commands  # pylint: disable=import-outside-toplevel
    return commands.record(arguments.file, arguments.command, arguments.unit)


def _replay(arguments):
    from .traces import commands  # pylint: disable=import-outside-toplevel
    return commands.replay(arguments.file, arguments.keep_going, arguments.json, arguments.build_dir)


def _trace(arguments):
    from .traces import commands  # pylint: disable=import-outside-toplevel
    return commands.trace(arguments.file, arguments.svg)


def _completion(arguments):
    from .complete import script  # pylint: disable=import-outside-toplevel
    print(script(arguments.shell), end="")
    return 0


def _complete(words):
    """Prints what the last word can be; the commands of `ccu` that are not known here stand in $CCU_COMMANDS."""
    from .complete import complete  # pylint: disable=import-outside-toplevel
    for word in complete(Commands().with_do().parser, words or [""], os.environ.get("CCU_COMMANDS", "").split()):
        print(word)
    return 0


def _on_unit(name):
    """Calls a function of the module of commands for a unit that runs."""
    def run(arguments):
        from . import do  # pylint: disable=import-outside-toplevel
        return {"do": lambda: do.do(arguments.noun, arguments.verb, _values(arguments), arguments.unit, arguments.json),
                "key": lambda: do.key(arguments.key, arguments.event, arguments.unit, arguments.json),
                "snapshot": lambda: do.snapshot(arguments.word, arguments.file, arguments.unit, arguments.json),
                "exec": lambda: do.execute(arguments.command, arguments.unit),
                "env": lambda: do.env(arguments.unit),
                "list": lambda: do.show_units(arguments.json)}[name]()
    return run


def _values(arguments):
    verb = arguments.verb
    return {argument.name: getattr(arguments, argument.name) for argument in verb.inputs} if verb else {}


def _option(*names, **options):
    """A parser with one option, which other parsers take over; what is not given leaves no trace."""
    parser = argparse.ArgumentParser(add_help=False, argument_default=argparse.SUPPRESS)
    parser.add_argument(*names, **options)
    return parser


_UNIT = _option("--unit", metavar="NAME", help="the unit that is meant, by its name or folder (default: $CCU_UNIT, or "
                                               "the only one)")
_JSON = _option("--json", action="store_true", help="print JSON")


class Commands:
    """The parser of all commands."""

    def __init__(self):
        self.parser = argparse.ArgumentParser(prog=NAME, description="A camera unit without the camera.")
        self.parser.set_defaults(unit=None, json=False)
        self._commands = self.parser.add_subparsers(dest="name", metavar="COMMAND", required=True)
        command = self._add("up", _up, "run a unit until Ctrl-C, or run a command inside one (after --)")
        command.add_argument("--unit", metavar="NAME", help="name by which other commands choose the unit")
        command.add_argument("--panel", action="store_true", help="serve the unit's panel, a page for a browser; its "
                                                                  "address is printed")
        self._add_port(command)
        self._add_build_dir(command)
        self._add_port(self._add("panel", _panel, "serve the panel of a unit that runs, a page for a browser", _UNIT))
        command = self._add("demo", _demo, "show one inspection on a unit, step by step")
        command.add_argument("chapter", nargs="?", metavar="CHAPTER", help="one chapter, by its number or words of its "
                                                                           "title (default: all)")
        command.add_argument("--list", action="store_true", help="list the chapters")
        self._add_build_dir(command)
        command = self._add("run", _run, "play scenarios, each on a unit of its own or on one that runs", _UNIT)
        command.add_argument("file", nargs="*", metavar="FILE", help="a file of steps, or the name of one that comes "
                                                                     "along (default: all of these)")
        command.add_argument("--list", action="store_true", help="list the scenarios that come along")
        command.add_argument("--junit", metavar="FILE", help="write the outcomes as JUnit XML")
        self._add_build_dir(command)
        command = self._add("key", _on_unit("key"), "press a key of a unit that runs", _UNIT, _JSON)
        command.add_argument("key", metavar="KEY", help="the key, by its name in evdev (Enter, KEY_ENTER) or its code")
        command.add_argument("event", nargs="?", choices=("press", "release", "repeat"),
                             help="what happens to it (default: press, then release)")
        self._add("exec", _on_unit("exec"), "run a command (after --) in a unit that runs", _UNIT)
        self._add("env", _on_unit("env"), f'print what puts a shell into a unit that runs: eval "$({PROGRAM} env)"', _UNIT)
        command = self._add("completion", _completion, "print what completes command lines in a shell: "
                                                       f'eval "$({PROGRAM} completion bash)"')
        command.add_argument("shell", choices=("bash", "zsh"))
        self._add("list", _on_unit("list"), "list the units that run", _JSON)
        command = self._add("snapshot", _on_unit("snapshot"), "keep a unit that runs in a file, or go back to it",
                            _UNIT, _JSON)
        command.add_argument("word", choices=("save", "load"), help="keep, or go back")
        command.add_argument("file", metavar="FILE")
        command = self._add("record", _record, "record the buses of a unit that runs, and the daemon's log, until Ctrl-C "
                                               "or while a command (after --) runs", _UNIT)
        command.add_argument("file", metavar="FILE", help="the trace, which replaces what is there")
        command = self._add("replay", _replay, "give the daemon what a trace gave it, and tell where it does something "
                                               "else", _JSON)
        command.add_argument("file", metavar="FILE", help="a trace, or a folder of captures and a journal")
        command.add_argument("--keep-going", action="store_true", help="tell all differences, not the first alone")
        self._add_build_dir(command)
        command = self._add("trace", _trace, "show who called whom in a trace, and how long it took")
        command.add_argument("file", metavar="FILE", help="a trace, or a folder of captures and a journal")
        command.add_argument("--svg", metavar="OUT", help="draw it in a file instead")

    def with_do(self):
        """This, with the nouns and verbs too."""
        from .verbs import add_to  # pylint: disable=import-outside-toplevel
        text = "do something to a unit that runs"
        add_to(self._add("do", _on_unit("do"), text, _UNIT, _JSON), (_UNIT, _JSON))
        return self

    def _add(self, name, run, text, *parents):
        command = self._commands.add_parser(name, help=text, description=text[0].upper() + text[1:] + ".",
                                            parents=parents)
        command.set_defaults(run=run)
        return command

    @staticmethod
    def _add_port(command):
        command.add_argument("--port", type=int, default=0, metavar="PORT",
                             help="port of the panel on 127.0.0.1 (default: one that is free)")

    @staticmethod
    def _add_build_dir(command):
        command.add_argument("--build-dir", help="build tree of the daemon (default: $CCU_BUILD_DIR)")


def _with_default_verb(words):
    """The words of `do`, with the verb that is left out; options may stand before them."""
    from .verbs import with_default_verb  # pylint: disable=import-outside-toplevel
    start = 1
    while start < len(words) and words[start].startswith("-"):
        start += 2 if words[start] == "--unit" else 1
    return words[:start] + with_default_verb(words[start:])


def main(words):
    """Runs one of the package's commands; returns the exit status."""
    split = words.index("--") if "--" in words else len(words)
    words, command = words[:split], words[split + 1:]
    if words == ["complete"]:
        return _complete(command)
    commands = Commands()
    if words[:1] == ["do"]:
        commands.with_do()
        words = _with_default_verb(words)
    parsed = commands.parser.parse_args(words)
    if parsed.name == "exec" and not command:
        commands.parser.error("exec: no command after --")
    parsed.command = command
    try:
        return parsed.run(parsed)
    except ModuleNotFoundError as missing:
        if missing.name not in _RECOMMENDED:
            raise
        print(f"{NAME}: {parsed.name} needs the package {_RECOMMENDED[missing.name]}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
