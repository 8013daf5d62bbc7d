"""A terminal of some width, as a person has it: a session of tmux, whose screen is read."""

import contextlib
import os
import shutil
import subprocess
import tempfile
import time

from virtual_unit import PATIENCE

_POLL_SECONDS = 0.01
_HEIGHT = 200
_TRIES = 20


class Terminal:
    """Runs a command in a terminal; a context manager, at whose end all of it is gone.

    width        columns
    command      its words
    environment  that of the command, which tmux itself does not have
    """

    def __init__(self, width, command, environment):
        self._folder = tempfile.mkdtemp(prefix="ccu-terminal-")
        variables = {name: value for name, value in environment.items() if name not in ("COLUMNS", "LINES", "TERM")}
        self._tmux("-f", os.devnull, "new-session", "-d", "-x", str(width), "-y", str(_HEIGHT),
                   "env", *(f"{name}={value}" for name, value in variables.items()), *command)

    def _tmux(self, *words):
        own = {"PATH": os.environ["PATH"], "HOME": self._folder, "LC_ALL": "C.UTF-8", "TERM": "xterm-256color"}
        return subprocess.run(["tmux", "-S", os.path.join(self._folder, "socket"), *words], env=own, text=True,
                              capture_output=True, check=True, timeout=PATIENCE).stdout

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._tmux("kill-server")
        shutil.rmtree(self._folder)

    def type(self, text):
        """Types it; keys have tmux's names, as in "Tab"."""
        self._tmux("send-keys", *text)

    def resize(self, width):
        """Gives it another width; what does not fit any more is broken, and what was is put together again."""
        self._tmux("resize-window", "-x", str(width))

    def screen(self, codes=False, joined=True):
        """The lines, those that the terminal itself had to break put together if wanted; with their codes of colour if
        wanted."""
        options = [*(["-J"] if joined else []), *(["-e"] if codes else [])]
        lines = self._tmux("capture-pane", "-p", *options).rstrip("\n").split("\n")
        return [line.rstrip() for line in lines]

    def wait_for(self, condition, patience=PATIENCE):
        """Waits until the screen's lines are so; returns them."""
        deadline = time.monotonic() + patience
        while not condition(lines := self.screen()):
            if time.monotonic() > deadline:
                raise TimeoutError("\n".join(lines))
            time.sleep(_POLL_SECONDS)
        return lines

    def complete(self, line, condition):
        """Types a line into a shell and has it completed, until the screen's lines are so; returns them.  A completion
        gives up soon, whatever keeps it, as a busy machine does: a person tries again."""
        for _ in range(_TRIES - 1):
            self.type(["C-u", line, "Tab"])
            with contextlib.suppress(TimeoutError):
                return self.wait_for(condition, PATIENCE / _TRIES)
        self.type(["C-u", line, "Tab"])
        return self.wait_for(condition, PATIENCE / _TRIES)
