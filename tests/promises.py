"""./ccu promises: runs the commands that docs/promises.md has for its promises, and prints what they have shown."""

import argparse
import os
import re
import subprocess
import sys
import time
from dataclasses import dataclass
from datetime import date

_ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PAGE = os.path.join(_ROOT, "docs", "promises.md")
#: Promise, figure, command, when it is run, when it was last seen to be kept.
_ROW = re.compile(r"\| (?P<promise>[^|]+) \| (?P<figure>[^|]+) \| `(?P<command>(?:\w+=\w+ )?\./ccu [^`]+)` "
                  r"\| (?P<run>quick|all) \| (?P<seen>\d{4}-\d\d-\d\d|not yet) \|")
_NO_ROW = re.compile(r"\| (Promise|---).*|\|---.*")


@dataclass(frozen=True)
class Promise:
    """A row of the table; `line` is where it stands in the page."""
    line: int
    promise: str
    figure: str
    command: str
    run: str
    seen: str

    @property
    def words(self):
        """The command's words behind the script's name."""
        return self.command.partition("./ccu ")[2].split()


def promises(text):
    """The rows of a page; one that is none is a ValueError."""
    found = []
    for number, line in enumerate(text.splitlines()):
        row = _ROW.fullmatch(line)
        if row:
            found.append(Promise(number, **row.groupdict()))
        elif line.startswith("|") and not _NO_ROW.fullmatch(line):
            raise ValueError(f"line {number + 1} is no promise with a figure, a command and a date: {line}")
    return found


def keep(command, log):
    """Runs a command from the root of the tree, its words into a file; whether it has succeeded."""
    with open(log, "w", encoding="utf-8") as file:
        return subprocess.run(["bash", "-c", command], cwd=_ROOT, stdin=subprocess.DEVNULL, stdout=file,
                              stderr=subprocess.STDOUT, check=False).returncode == 0


def _note(page, kept):
    """Writes today's date to the rows of promises that were kept."""
    with open(page, encoding="utf-8") as file:
        lines = file.read().splitlines()
    for promise in kept:
        lines[promise.line] = lines[promise.line].replace(f"| {promise.seen} |", f"| {date.today()} |")
    with open(page, "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")


def main():
    """The command's exit status: 1 when a promise was not kept."""
    parser = argparse.ArgumentParser(prog="./ccu promises", description=__doc__)
    parser.add_argument("--all", action="store_true", help="those too that take long")
    parser.add_argument("--note", action="store_true", help="write today's date to those that are kept")
    parser.add_argument("--page", default=PAGE, help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    with open(arguments.page, encoding="utf-8") as file:
        chosen = [promise for promise in promises(file.read()) if arguments.all or promise.run == "quick"]
    root = os.path.dirname(os.path.dirname(os.path.abspath(arguments.page)))
    logs = os.path.join(root, "build", "promises")
    os.makedirs(logs, exist_ok=True)
    outcomes = {}
    kept = []
    for promise in chosen:
        began = time.monotonic()
        if promise.command not in outcomes:
            log = os.path.join(logs, re.sub(r"\W+", "-", promise.command.removeprefix("./ccu ")).strip("-") + ".log")
            outcomes[promise.command] = keep(promise.command, log), log
        is_kept, log = outcomes[promise.command]
        kept += [promise] if is_kept else []
        more = "" if is_kept else f" see {os.path.relpath(log, root)}"
        print(f"| {'pass' if is_kept else 'FAIL'} | {promise.promise} | {promise.figure} | `{promise.command}` | "
              f"{time.monotonic() - began:.0f} s |{more}", flush=True)
    print(f"{len(kept)} of {len(chosen)} promises kept")
    if arguments.note:
        _note(arguments.page, kept)
    return int(len(kept) != len(chosen))


if __name__ == "__main__":
    sys.exit(main())
