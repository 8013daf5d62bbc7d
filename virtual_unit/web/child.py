"""The panel's process beside a unit of `./ccu up`."""

import contextlib
import subprocess
import sys

from ..loop import spawn
from ..patience import PATIENCE
from . import NoPanel
from .scenes import ROOT_FOLDER


@contextlib.contextmanager
def beside(unit, port=0):
    """Runs the panel of a unit; the value is its address."""
    process = spawn([sys.executable, "-m", "virtual_unit", "panel", "--unit", unit.directory, "--port", str(port)],
                    cwd=ROOT_FOLDER, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    try:
        address = process.stdout.readline().strip()
        if not address:
            raise NoPanel(f"the panel has ended with status {process.wait(PATIENCE)}")
        yield address
    finally:
        process.terminate()
        with contextlib.suppress(subprocess.TimeoutExpired):
            process.wait(PATIENCE)
        process.kill()
        process.wait()
        process.stdout.close()
