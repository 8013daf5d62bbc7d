"""How a command of the package is interrupted."""

import os
import signal
import threading
import time

_END_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
_INSISTENCE = 0.02  # seconds between two signals to a main thread that has not heard one


class Ending:
    """A context in which a signal that asks for the end raises KeyboardInterrupt; elsewhere it waits for the next one.

    So only what may be cut is cut, never the starting and the cleaning up of a unit.  `number` is the signal that came,
    None before.  To be made on the main thread.
    """

    def __init__(self):
        self.number = None
        self._interruptible = False
        reader, writer = os.pipe()
        os.set_blocking(writer, False)
        signal.set_wakeup_fd(writer, warn_on_full_buffer=False)
        threading.Thread(target=self._insist, args=(reader,), daemon=True).start()
        for number in _END_SIGNALS:
            signal.signal(number, self._ask)

    def _insist(self, reader):
        # The interpreter only notes a signal; a call that begins to block in that very instant is not told of it.
        while self.number is None:
            for number in set(os.read(reader, 512)).intersection(_END_SIGNALS):
                while self.number is None:
                    time.sleep(_INSISTENCE)
                    signal.pthread_kill(threading.main_thread().ident, number)

    def _ask(self, number, _frame):
        self.number = self.number or number
        self._interrupt(self._interruptible)

    def _interrupt(self, now):
        if now:
            self._interruptible = False
            raise KeyboardInterrupt

    def __enter__(self):
        self._interruptible = True
        self._interrupt(self.number is not None)

    def __exit__(self, *_):
        self._interruptible = False
