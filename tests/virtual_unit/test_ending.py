"""How a command of the package is interrupted."""

import os
import signal
import subprocess
import sys
import textwrap

import pytest

from virtual_unit import PATIENCE

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

# A signal that another thread takes is noted and wakes nobody: the main thread blocks on, as it does when a signal
# comes in the instant before it blocks.
_COMMAND = """
    import os, signal, threading
    from virtual_unit.ending import Ending

    reader, writer = os.pipe()

    def take():
        while True:  # until the main thread is in its call: the descriptor is the first thing it was given
            with open(f"/proc/self/task/{os.getpid()}/syscall", encoding="ascii") as file:
                if file.read().split()[1:2] == [hex(reader)]:
                    break
        for number in NUMBERS:
            signal.pthread_kill(threading.get_ident(), number)

    ending = Ending()
    signal.signal(signal.SIGUSR1, lambda *_: None)
    try:
        with ending:
            threading.Thread(target=take).start()
            os.read(reader, 1)
    except KeyboardInterrupt:
        print(ending.number)
"""


@pytest.mark.parametrize("numbers, first", [
    ([signal.SIGINT], signal.SIGINT),
    ([signal.SIGUSR1, signal.SIGTERM], signal.SIGTERM),
    ([signal.SIGHUP, signal.SIGHUP, signal.SIGINT], None),
])
def test_a_signal_that_wakes_nobody_ends_what_blocks(numbers, first):
    code = textwrap.dedent(_COMMAND).replace("NUMBERS", str([int(number) for number in numbers]))
    ended = subprocess.run([sys.executable, "-c", code], cwd=_ROOT, capture_output=True, text=True, timeout=PATIENCE,
                           check=False)
    assert (ended.returncode, ended.stderr) == (0, "")
    assert int(ended.stdout) == first if first else int(ended.stdout) in numbers
