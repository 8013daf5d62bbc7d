"""The scenarios that a page plays: the command `run` on the unit, one at a time, with its lines as they come."""

import asyncio
import functools
import os
import sys

from .. import scenario
from ..loop import DIES_WITH_US

#: The folder in which the package is found.
ROOT_FOLDER = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


@functools.lru_cache(maxsize=None)
def listed():
    """Name, title and explanation of each that comes along."""
    found = [scenario.read(path) for path in scenario.own().values()]
    return [{"name": one.name, "title": one.title, "about": one.about} for one in found]


class Scenes:
    """Tells what goes on by `change(noun, values)` of the noun "scenario"."""

    def __init__(self, folder, change):
        self._folder, self._change = folder, change
        self._process = self._task = None
        self._stopped = False
        change("scenario", {"Name": "", "State": "idle", "Lines": []})

    async def run(self, words):
        """Begins to play one; returns a line that says so, or raises ValueError."""
        if len(words) != 1 or words[0] not in scenario.own():
            raise ValueError(f"no scenario '{' '.join(words)}'; there are: {', '.join(scenario.own())}")
        if self._task is not None and not self._task.done():
            raise ValueError("a scenario is being played; wait for its end, or stop it")
        self._stopped = False
        self._task = asyncio.ensure_future(self._play(words[0]))
        return f"{words[0]} is being played"

    async def stop(self, _words):
        """Ends the one that is played."""
        if self._task is None or self._task.done():
            raise ValueError("no scenario is being played")
        self._stopped = True
        if self._process is not None:
            self._process.terminate()
        return "the scenario is being stopped"

    async def close(self):
        """Ends what is played, and waits for that."""
        if self._task is not None and not self._task.done():
            await self.stop([])
            await asyncio.wait([self._task])

    async def _play(self, name):
        lines = []
        self._change("scenario", {"Name": name, "State": "playing", "Lines": lines})
        self._process = await asyncio.create_subprocess_exec(
            *DIES_WITH_US, sys.executable, "-m", "virtual_unit", "run", name, "--unit", self._folder, cwd=ROOT_FOLDER,
            stdin=asyncio.subprocess.DEVNULL, stdout=asyncio.subprocess.PIPE, stderr=asyncio.subprocess.STDOUT)
        if self._stopped:
            self._process.terminate()
        async for line in self._process.stdout:
            lines = [*lines, line.decode("utf-8", "replace").rstrip("\n")]
            self._change("scenario", {"Lines": lines})
        status = await self._process.wait()
        self._process = None
        self._change("scenario", {"State": "stopped" if self._stopped else "passed" if status == 0 else "failed"})
