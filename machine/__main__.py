"""`ccu vm`: the unit as an arm64 virtual machine with a kernel, systemd and packages that are real."""

import argparse
import contextlib
import fcntl
import os
import select
import shutil
import signal
import subprocess
import sys
import termios
import tty

from virtual_unit import evdev

from .acceptance import Cases
from .image import ROOT, Failure, Image
from .qemu import PROGRAM, STICK
from .sockets import Gone, Order, connect

ARCHITECTURE = "arm64"
FOLDER = os.path.join(ROOT, "build", "vm")
#: Programs without which nothing can be made or started.
_PROGRAMS = (PROGRAM, "qemu-img", "dtc", "cpio", "mke2fs", "mkfs.vfat", "depmod", "fakeroot")
#: QEMU's numbers of keys whose code is another in evdev.
_KEYS = {"HOME": 0xC7, "UP": 0xC8, "PAGEUP": 0xC9, "LEFT": 0xCB, "RIGHT": 0xCD, "END": 0xCF, "DOWN": 0xD0,
         "PAGEDOWN": 0xD1, "INSERT": 0xD2, "DELETE": 0xD3, "KPENTER": 0x9C, "MENU": 0xDD, "POWER": 0xDE}
_FIRST_OTHER = 89
#: What ends the console: Ctrl-].
_LEAVE = b"\x1d"
_USAGE = """\
ccu vm [WORD ...] [-- COMMAND ...]

  (nothing)          make the machine if need be, and start it
  -- COMMAND         run a command in it, as root
  test [NAME ...]    what the machine is there to show, or what has these words in its name (--list)
  key KEY            press and release a key of its keypad: key Enter
  keyboard plug|unplug
                     plug a second keyboard in, or pull it out
  storage add|remove plug a stick in, mounted at /media/card, or pull it out
  console            its serial console; Ctrl-] leaves it
  stop               end it
  clean              end it, and remove all that was made for it
"""


class Misuse(Exception):
    """Words that the command does not know."""


def key_number(name):
    """QEMU's number of a key, by its name or code in evdev."""
    code = evdev.code_of(name)
    if code is None:
        raise Misuse(f"no key '{name}'" + evdev.suggestion(name))
    number = code if code < _FIRST_OTHER else _KEYS.get(evdev.name_of(code))
    if number is None:
        raise Misuse(f"the machine's keypad has no key '{name}'")
    return number


def missing_programs():
    """What this machine lacks."""
    path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    return [name for name in _PROGRAMS if shutil.which(name, path=path) is None]


def parse(words):
    """The words' meaning: what is to be done, its arguments, and a command behind "--"."""
    split = words.index("--") if "--" in words else len(words)
    if split == len(words) - 1:
        raise Misuse("no command after --")
    words, command = words[:split], words[split + 1:]
    parser = argparse.ArgumentParser(prog="ccu vm", usage=_USAGE, add_help=True)
    parser.add_argument("word", nargs="?", default="run" if command else "start", help=argparse.SUPPRESS)
    parser.add_argument("rest", nargs="*", help=argparse.SUPPRESS)
    parser.add_argument("--list", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--packages", help=argparse.SUPPRESS)
    parsed = parser.parse_intermixed_args(words)
    choices = {"key": None, "keyboard": ("plug", "unplug"), "storage": ("add", "remove")}
    takes = choices.get(parsed.word, ())
    if parsed.word not in ("start", "run", "test", "console", "stop", "clean", *choices):
        raise Misuse(f"no command '{parsed.word}'")
    if parsed.word != "test" and len(parsed.rest) != (parsed.word in choices) or \
            takes and parsed.rest[0] not in takes:
        raise Misuse(f"{parsed.word}: " + (f"one of {', '.join(takes)}" if takes else "one key" if takes is None
                                           else "takes nothing more"))
    if command and parsed.word != "run":
        raise Misuse(f"{parsed.word}: no command can follow")
    parsed.command = command
    return parsed


class Commands:
    """What can be done with the machine of this tree."""

    def __init__(self, arguments):
        self._arguments = arguments
        self._image = Image(FOLDER)
        self._machine = self._image.machine()

    def _make(self):
        """Makes the packages of this tree, and the machine that has them."""
        packages = self._arguments.packages
        if packages is None:
            packages = os.path.join(ROOT, "build", "packages", ARCHITECTURE)
            subprocess.run([os.path.join(ROOT, "ccu"), "package", "--arch", ARCHITECTURE], check=True,
                           stdout=subprocess.DEVNULL)
        self._image.make(packages)
        return packages

    def _up(self):
        """Makes sure that it runs."""
        if self._machine.pid is None:
            if not self._image.is_there:
                self._make()
            self._image.start(self._machine)
        return self._machine

    def start(self):
        """Starts it."""
        if self._machine.pid is not None:
            print("the machine runs already, with the packages that it was started with (./ccu vm stop)")
            return 0
        self._make()
        self._up()
        print("the machine runs: ./ccu vm -- controllerctl status")
        return 0

    def run(self):
        """Runs a command in it, with what is typed or piped here; its status."""
        self._up()
        with Order(self._machine.folder, run=self._arguments.command) as order:
            sources = [order, sys.stdin]
            if sys.stdin.isatty():  # a shell is for the console
                order.feed(b"", last=True)
                sources.remove(sys.stdin)
            while True:
                for source in select.select(sources, [], [])[0]:
                    if source is sys.stdin:
                        data = os.read(sys.stdin.fileno(), 32768)
                        order.feed(data, last=not data)
                        if not data:
                            sources.remove(sys.stdin)
                        continue
                    for name, value in order.hear():
                        if name == "status":
                            return value
                        stream = sys.stdout if name == "out" else sys.stderr
                        stream.buffer.write(value)
                        stream.flush()

    def test(self):
        """Runs the acceptance; 1 when something is not as it ought to be."""
        cases = Cases(self._arguments.rest)
        if self._arguments.list:
            print("\n".join(cases.names))
            return 0
        if not cases.names:
            raise Misuse(f"no test has '{' '.join(self._arguments.rest)}' in its name (--list)")
        os.makedirs(FOLDER, exist_ok=True)
        with open(os.path.join(FOLDER, "test.lock"), "w", encoding="utf-8") as file:
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError as error:
                raise Failure("its tests run already") from error
            packages = self._make()
            return cases.run(self._image, packages)

    def key(self):
        """Presses and releases a key."""
        self._up().key(key_number(self._arguments.rest[0]))
        return 0

    def keyboard(self):
        """Plugs the second keyboard in, or pulls it out."""
        machine = self._up()
        (machine.plug_keyboard if self._arguments.rest == ["plug"] else machine.unplug_keyboard)()
        return 0

    def storage(self):
        """Plugs the stick in, or pulls it out."""
        machine = self._up()
        if self._arguments.rest == ["add"]:
            machine.plug_stick(os.path.join(machine.folder, STICK))
        else:
            machine.pull_stick()
        return 0

    def console(self):
        """The serial console, until the user leaves it or the machine ends."""
        self._up()
        with connect(self._machine.folder, "console") as connection, _raw_terminal():
            connection.sendall(b"\n")
            while True:
                for source in select.select([connection, sys.stdin], [], [])[0]:
                    data = os.read(source.fileno(), 4096)
                    if not data or (source is sys.stdin and _LEAVE in data):
                        return 0
                    if source is sys.stdin:
                        connection.sendall(data)
                    else:
                        os.write(sys.stdout.fileno(), data)

    def stop(self):
        """Ends it."""
        self._machine.stop()
        return 0

    def clean(self):
        """Ends it, and removes all that was made."""
        self._machine.stop()
        shutil.rmtree(FOLDER, ignore_errors=True)
        return 0


@contextlib.contextmanager
def _raw_terminal():
    if not sys.stdin.isatty():
        yield
        return
    before = termios.tcgetattr(sys.stdin)
    tty.setraw(sys.stdin)
    try:
        yield
    finally:
        termios.tcsetattr(sys.stdin, termios.TCSADRAIN, before)


def _end(number, _frame):
    """Ends the command in order: its machine would outlive it."""
    raise SystemExit(128 + number)


def main(words):
    """Does what the words say; the exit status."""
    for number in (signal.SIGTERM, signal.SIGHUP):
        if signal.getsignal(number) is not signal.SIG_IGN:  # as nohup has it
            signal.signal(number, _end)
    try:
        arguments = parse(words)
        if arguments.word not in ("stop", "clean") and not arguments.list and (missing := missing_programs()):
            raise Failure(f"this machine lacks {', '.join(missing)}: ./ccu vm installs them, of packaging/packages.txt")
        return getattr(Commands(arguments), arguments.word)()
    except Misuse as misuse:
        print(f"ccu vm: {misuse}\n{_USAGE}", file=sys.stderr, end="")
        return 2
    except (Failure, Gone, RuntimeError, TimeoutError, subprocess.CalledProcessError) as problem:
        print(f"ccu vm: {problem}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
