"""What waits to be sent to one page: bounded, however slowly the page reads."""

import asyncio
from collections import deque

#: Lines of calls, signals and the log that wait for a page at most; the oldest go, and are counted.
MOST_LINES = 500


class Outbox:
    """Of the state only the newest values wait, since they are all that a page shows."""

    def __init__(self):
        self._state, self._lines, self._answers = {}, deque(), deque()
        self._dropped = 0
        self._filled = asyncio.Event()

    def add_state(self, noun, changes):
        """Values of a noun have changed."""
        self._state.setdefault(noun, {}).update(changes)
        self._filled.set()

    def add_line(self, line):
        """Something has happened."""
        if len(self._lines) == MOST_LINES:
            self._lines.popleft()
            self._dropped += 1
        self._lines.append(line)
        self._filled.set()

    def add_answer(self, answer):
        """An order has been carried out or refused; their number is bounded by whoever takes orders."""
        self._answers.append(answer)
        self._filled.set()

    async def take(self):
        """Waits for something, and takes all of it as one message."""
        await self._filled.wait()
        self._filled.clear()
        message = {"state": self._state, "lines": list(self._lines), "dropped": self._dropped,
                   "answers": list(self._answers)}
        self._state, self._dropped = {}, 0
        self._lines.clear()
        self._answers.clear()
        return {key: value for key, value in message.items() if value}
