"""./ccu test root: what the packages promise whoever has nothing else.

In a minimal Debian root, made by the example's Containerfile without a container engine, an ordinary user starts a unit,
has a client's tests as the example's workflow has them, and tries every example that the development package brings
along, as its page says.  The packages are installed by apt, which finds out what they need.  Nothing may be left.
"""

import argparse
import glob
import os
import re
import shlex
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import textwrap
import time

import yaml

from tests.integration.language_examples import DONE, ROOT, blocks, examples
from tests.root.room import Failed, Room

_CLIENT_TESTS = os.path.join(ROOT, "examples", "client-tests")
_SHIPPED = "/usr/share/doc/libcontroller-client-dev/examples"
_CONTROLLER = "com.tavilon.common.Controller1"
_STARTS = 20
_ATTEMPTS = 5

#: What a user does first; all that is printed is compared.
_FIRST_STEPS = r"""
    mkfifo exports
    ccu-unit up >exports 2>log & unit=$!
    exec 3<exports
    read -r line <&3
    ccu-unit list | grep -c "$(id -un)\|unit"
    ccu-unit exec -- controllerctl record start
    ccu-unit do storage remove card
    ccu-unit do storage add card
    ccu-unit key Enter
    eval "$(ccu-unit env)"
    controllerctl timezone set Rome
    controllerctl timezone get
    kill "$unit"
    wait "$unit" || echo "status $?"
    rm exports log
"""
#: Commands that need more than the package depends on, and what they say.
_RECOMMENDED = {
    "ccu-unit replay here.trace": "replay needs the package python3-dpkt",
    "ccu-unit up --panel -- true": "panel needs the package python3-aiohttp",
    "ccu-unit up -- ccu-unit do gps fix 52.5 13.4": "GPS needs the package gpsd",
}
#: From the command to the daemon's answer, in nanoseconds.
_START = "began=$(date +%s%N); ccu-unit up -- sh -c 'controllerctl timezone get >&2; date +%s%N'; echo $began"

#: The client library's pages, with what their examples print in a unit that is well.
_LIBRARY_PACKAGES = {"qtbase5-dev", "libsystemd-dev", "libglib2.0-dev"}
_LIBRARY = {
    "record-from-qt": rf"start: {DONE}\nstop: {DONE}\n",
    "snapshot-from-sd-event": r"snapshot: /\S+/media/\S+\.jpeg\n",
    "follow-signals-from-glib": r"following\nzone: London\nheard TimeChanged\nheard TimezoneChanged\nheard zone: Rome\n",
}
#: A program that follows until it is told to end, in whose unit something happens.
_FOLLOW = r"""
    mkfifo told
    "$@" >told & follower=$!
    exec 3<told
    for _ in 1 2; do read -r line <&3; echo "$line"; done
    controllerctl timezone set Rome >&2
    for _ in 1 2 3; do read -r line <&3; echo "heard $line"; done | sort
    kill "$follower"
    wait "$follower"
    rm told
"""
#: A program beside the mock, which is started as its page says.
_MOCKED = r"""
    {mock} >/dev/null & mock=$!
    gdbus wait --session --timeout 600 {service}
    {program}
    kill "$mock"
"""


class Table:
    """What was tried and how it came out, printed as it comes."""

    def __init__(self):
        self.failures = []
        self._rows = 0

    def row(self, what, act, *arguments):
        """Tries something, which may return what is to be told of it."""
        began = time.monotonic()
        self._rows += 1
        try:
            note = act(*arguments)
            verdict = "ok"
        except (Failed, OSError, subprocess.SubprocessError) as problem:
            self.failures.append((what, problem))
            verdict, note = "FAILED", None
        print(f"{verdict:6} {time.monotonic() - began:7.1f} s  {what}{f': {note}' if note else ''}", flush=True)

    def end(self):
        """Prints what has failed; returns the exit status."""
        for what, problem in self.failures:
            print(f"\n{what}: {problem}")
        print(f"\n{self._rows - len(self.failures)} of {self._rows} came out as they should; load "
              f"{os.getloadavg()[0]:.1f} on {len(os.sched_getaffinity(0))} processors")
        return 1 if self.failures else 0


def _must_be(said, expression):
    if not re.fullmatch(expression, said):
        raise Failed(f"it says:\n{said}\nwanted is:\n{expression}")


def _must_fail(expression, act, *arguments):
    try:
        act(*arguments)
    except Failed as failed:
        _must_be(str(failed), expression)
    else:
        raise Failed("it has not failed")


def _text_of(*path):
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


class Trial:
    """The whole of it, in a room, with the packages of the folder `packages`."""

    def __init__(self, room, packages):
        self._room, self._packages = room, packages
        self._table = Table()

    def run(self):
        """Prints the table; returns the exit status."""
        row = self._table.row
        print("The packages\n")
        for path in sorted(glob.glob(os.path.join(self._packages, "*.deb"))):
            if "-dbgsym_" not in path:
                print(f"{os.path.getsize(path) / 1024:9.0f} KiB  {os.path.basename(path)}")
        print("\nA machine, by examples/client-tests/Containerfile\n")
        before = self._size()
        text = re.sub(r"\\\n", "", re.sub("(?m)^#.*\n", "", _text_of("examples", "client-tests", "Containerfile")))
        for line in text.splitlines():
            word, _, rest = line.partition(" ")
            row(re.sub(" +", " ", line), self._room.follow, word, rest, self._packages)
        if self._table.failures:
            return self._table.end()
        print(f"\nWith nothing but that, {self._size() - before} MiB more than a Debian that has only apt\n")
        self._guarded(self._with_the_packages_alone)
        print("\nThe development package's examples, by their pages\n")
        row("what the pages say that they need", self._install_toolchains)
        self._guarded(self._with_the_examples)
        return self._table.end()

    def _size(self):
        used = subprocess.run(["du", "--summarize", "--one-file-system", "--block-size=1M", self._room.folder],
                              stdout=subprocess.PIPE, text=True, check=True)
        return int(used.stdout.split()[0])

    def _guarded(self, act):
        """Looks for what is left of an act by which nothing is to be left but what it has in a folder of its own."""
        user = self._room.user
        work = f"/home/{user}/work"
        own = (f"file {work}", f"file /home/{user}/.npm")  # npm keeps what it fetches
        self._room.sh(f"mkdir {work}")
        home, self._room.place = self._room.place, work
        before = self._room.state()

        def nothing_left():
            left = [one for one in self._room.state() - before if not one.startswith(own)]
            if left:
                raise Failed("left are: " + ", ".join(sorted(left)))

        def plant(script, what, mend):
            self._room.sh(script)
            _must_fail(f"left are: {what}", nothing_left)
            self._room.sh(mend)

        act()
        self._table.row("nothing is left: no process, mount or file", nothing_left)
        self._table.row("planted: a process that stays is seen", plant, "sleep 1d & echo $! >stays",
                        "process sleep 1d", "kill $(cat stays)")
        self._table.row("planted: a file that stays is seen", plant, "touch /tmp/stays", "file /tmp/stays",
                        "rm /tmp/stays")
        self._room.place = home
        self._room.sh(f"rm -rf {work}")

    # With the packages alone ------------------------------------------------------------------------------------------

    def _with_the_packages_alone(self):
        row, room = self._table.row, self._room
        row(f"{room.user} is an ordinary user, with nothing at home", self._is_ordinary)
        row("ccu-unit up, list, exec, do, key, env, and its end", self._first_steps)
        row("what is only recommended, and not there, is asked for", self._ask_for_recommended)
        row(f"from ccu-unit up to an answer, {_STARTS} times", self._measure_starts)
        shutil.copytree(_CLIENT_TESTS, room.at(room.place), dirs_exist_ok=True)
        steps = yaml.safe_load(_text_of("examples", "client-tests", "workflow.yaml"))["jobs"]["test"]["steps"]
        steps = [step for step in steps if "run" in step]
        for step in steps:
            row(f"workflow.yaml: {step['name']}", self._do, step["run"])
        row("workflow.yaml: its report", lambda: _must_be(room.sh("cat report.xml"), r'(?s).*tests="1" failures="0".*'))
        row("planted: a client's test that is wrong fails", self._wrong_client, steps[0]["run"])

    def _do(self, script):
        self._room.sh(script)  # what it says is of account when it fails

    def _is_ordinary(self):
        _must_be(self._room.sh("id -u; grep ^Cap /proc/self/status; ls -A"), r"[1-9]\d*\n(Cap\w+:\t0+\n){5}")

    def _first_steps(self):
        _must_be(self._room.sh(_FIRST_STEPS), r"1\n(?s:.*)card is pulled out\n(?s:.*)Rome\n")

    def _ask_for_recommended(self):
        for command, says in _RECOMMENDED.items():
            _must_fail(f"status 1\n(?s:.*){re.escape(says)}\n(?s:.*)", self._room.sh, command)

    def _measure_starts(self):
        seconds = []
        for _ in range(_STARTS):
            answered, began = map(int, self._room.sh(_START).split())
            seconds.append((answered - began) / 1e9)
        return f"{statistics.median(seconds):.2f} s (median; {min(seconds):.2f} to {max(seconds):.2f})"

    def _wrong_client(self, command):
        self._room.sh("sed -i s/-8,/-9,/ test_client.py; grep -q -e -9, test_client.py")
        _must_fail(r"(?s).*\nFAILED \(failures=1\)\n.*", self._room.sh, command)

    # With the examples ------------------------------------------------------------------------------------------------

    def _install_toolchains(self):
        packages = {"g++", "pkg-config", "python3-dbusmock"} | _LIBRARY_PACKAGES
        packages.update(*(example.packages for example in examples().values()))
        self._room.sh("apt-get update; apt-get install --yes --no-install-recommends " + " ".join(sorted(packages)),
                      user="root")
        # Whom the machine trusts beside those whom Debian does may stand between it and npm's registry.
        for path in glob.glob("/usr/local/share/ca-certificates/*.crt"):
            shutil.copy(path, self._room.at("/usr/local/share/ca-certificates"))
        self._room.sh("update-ca-certificates", user="root")
        return ", ".join(sorted(packages))

    def _with_the_examples(self):
        row = self._table.row
        row(f"the examples, from {_SHIPPED}", self._do, f"cp -r {_SHIPPED} .")
        for example in examples().values():
            for command in example.commands:
                row(f"{example.title}: {textwrap.shorten(command, 50, placeholder=' ...')}", self._do, command)
            row(f"{example.title}: in a unit", self._in_a_unit, example)
            row(f"{example.title}: with the mock", self._with_the_mock, example)
        for page, expression in _LIBRARY.items():
            row(f"C++ with the client library: docs/{page}.md", self._library_example, page, expression)

    @staticmethod
    def _command(example):
        # As they are installed, none of them is a program.
        shebang = "" if example.program.startswith("./") else _text_of(example.path).splitlines()[0][2:] + " "
        return f"{shebang}{example.program} Rome"

    def _in_a_unit(self, example):
        _must_be(self._room.sh(f"ccu-unit up -- {self._command(example)}"), re.escape("\n".join(example.says)) + "\n")

    def _with_the_mock(self, example):
        mock = blocks(_text_of("docs", "mock.md"), "sh")[0].strip()
        script = _MOCKED.format(mock=mock, service=_CONTROLLER, program=self._command(example))
        said = self._room.sh(f"dbus-run-session -- sh -e -c {shlex.quote(script)}")
        _must_be(said, re.escape("\n".join(example.says)) + "\n")

    def _library_example(self, page, expression):
        build, start = blocks(_text_of("docs", f"{page}.md"), "sh")[0].splitlines()
        self._room.sh(build)
        start = start.replace("./ccu ", "ccu-unit ")
        if page.startswith("follow-"):
            start = start.replace("-- ", f"-- sh -e -c {shlex.quote(_FOLLOW)} sh ")
        _must_be(self._patiently(start), expression)

    def _patiently(self, script):
        """What a script prints in which a program waits as long as a person does, which a busy machine may take longer."""
        for _ in range(_ATTEMPTS - 1):
            try:
                return self._room.sh(script)
            except Failed as failed:
                if "Connection timed out" not in str(failed):
                    raise
        return self._room.sh(script)


def main():
    """Returns the exit status."""
    parser = argparse.ArgumentParser(prog="ccu test root", description=__doc__.partition("\n")[0])
    parser.add_argument("base", help="the plain root")
    parser.add_argument("packages", help="the folder of the packages")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))  # as Ctrl-C, leaving nothing
    roots = os.path.dirname(os.path.abspath(options.base))
    with tempfile.TemporaryDirectory(prefix="trial-", dir=roots) as folder:
        os.chmod(folder, 0o755)  # the room's users are others
        with Room(options.base, os.path.join(folder, "root"), os.path.join(roots, "archives")) as room:
            return Trial(room, options.packages).run()


if __name__ == "__main__":
    sys.exit(main())
