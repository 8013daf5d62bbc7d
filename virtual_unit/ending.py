"""How a command of the package is interrupted."""

import signal

_END_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Ending:
    """A context in which a signal that asks for the end raises KeyboardInterrupt; elsewhere it waits for the next one.

    So only what may be cut is cut, never the starting and the cleaning up of a unit.  `number` is the signal that came,
    None before.  To be made on the main thread.
    """

    def __init__(self):
        self.number = None
        self._interruptible = False
        for number in _END_SIGNALS:
            signal.signal(number, self._ask)

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
