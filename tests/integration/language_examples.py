"""The examples of docs/clients-in-other-languages.md: what each needs, how it is made, and what it says."""

import os
import re
from dataclasses import dataclass

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PAGE = os.path.join(ROOT, "docs", "clients-in-other-languages.md")

DONE = "Ran successfully"
BEFORE = ["zone: London", f"start: {DONE}", f"stop: {DONE}", "TimezoneChanged", "TimeChanged"]
ASKED = [*BEFORE, "zone: Rome"]
#: Where the library keeps what it once read, it is wrong by then.
CACHED = [*BEFORE, "cached: London", "zone: Rome"]
#: What each says, started with "Rome", where the zone is London.
SAYS = {"follow_dbus_python.py": ASKED, "follow_gdbus.py": CACHED, "follow_dasbus.py": ASKED, "follow_gjs.js": CACHED,
        "dbus-next/follow_dbus_next.js": ASKED, "follow_gdbus.c": CACHED, "follow_sdbus.cpp": ASKED,
        "follow_qt.cpp": ASKED}
#: What needs a registry besides Debian's packages: `./ccu test root` alone runs it.
FETCHED = "dbus-next/follow_dbus_next.js"


@dataclass(frozen=True)
class Example:
    """One example as the page tells of it."""
    name: str  # below examples/
    title: str
    packages: tuple  # of Debian
    commands: tuple  # that make it
    blocks: tuple  # of its source

    @property
    def path(self):
        """Its source, from where its commands are given."""
        return f"examples/{self.name}"

    @property
    def program(self):
        """What is started, from there."""
        return f"./{os.path.splitext(self.name)[0]}" if self.name.endswith((".c", ".cpp")) else self.path

    @property
    def says(self):
        """The lines that it prints."""
        return SAYS[self.name]


def page():
    """The page."""
    with open(PAGE, encoding="utf-8") as file:
        return file.read()


def blocks(text, language):
    """The blocks of a page that are in a language."""
    return tuple(re.findall(rf"^```(?:{language})\n(.*?)^```$", text, re.MULTILINE | re.DOTALL))


def examples():
    """Those of the page by their names: one for each of its parts that names a file with packages."""
    found = {}
    for part in page().split("\n## ")[1:]:
        named = re.search(r"`examples/(\S+)` \(([a-z0-9+., -]+)\)", part)
        if named:
            commands = [line for block in blocks(part, "sh") for line in block.replace("\\\n", " ").splitlines()]
            found[named[1]] = Example(named[1], part.partition("\n")[0], tuple(named[2].split(", ")),
                                      tuple(re.sub(" +", " ", command) for command in commands),
                                      blocks(part, r"python|javascript|c|c\+\+"))
    return found
