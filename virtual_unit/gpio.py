"""The GPIO lines of the unit: files, which the preloaded library puts in the place of a chip."""

import errno
import fcntl
import os
import shutil

CHIP = "gpiochip4"
MICROPHONE, SPEAKER = 14, 13
_LINES = 24


class Line:
    """One line of the chip.  `value` is its level, and can be set; it changes behind everybody's back then."""

    def __init__(self, folder, offset):
        self.offset = offset
        self._folder = os.path.join(folder, str(offset))
        self._lock = None

    def _path(self, name):
        return os.path.join(self._folder, name)

    def _read(self, name):
        try:
            with open(self._path(name), encoding="utf-8") as file:
                return file.read().strip()
        except FileNotFoundError:
            return None

    def _write(self, name, text):
        with open(self._path(name), "w", encoding="utf-8") as file:
            file.write(f"{text}\n")

    def plug(self):
        """The line is there, and low."""
        os.makedirs(self._folder)
        self._write("value", 0)

    def remove(self):
        """Takes the line away, from under its owner too."""
        shutil.rmtree(self._folder)

    @property
    def value(self):
        """0 or 1; None without the line."""
        text = self._read("value")
        return int(text) if text else None

    @value.setter
    def value(self, level):
        self._write("value", level)

    @property
    def busy(self):
        """True while somebody has requested the line."""
        try:
            with open(self._path("owner"), "rb") as file:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except FileNotFoundError:
            return False
        except BlockingIOError:
            return True
        return False

    @property
    def consumer(self):
        """What the owner of the line calls itself; None when it is free."""
        return self._read("consumer") if self.busy else None

    @property
    def direction(self):
        """"output" when somebody has requested the line so, "input" otherwise."""
        return (self.busy and self._read("direction")) or "input"

    def occupy(self, consumer="another"):
        """Somebody else has the line, until `free`."""
        self._lock = open(self._path("owner"), "wb")  # pylint: disable=consider-using-with
        fcntl.flock(self._lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        self._write("consumer", consumer)

    def free(self):
        """Nobody else has the line any more."""
        if self._lock is not None:
            self._lock.close()
            self._lock = None

    def fail(self, operation, number=errno.EIO):
        """From now on "request", "write" or "read" fails with the errno."""
        self._write(f"{operation}.error", number)

    def mend(self):
        """Nothing fails any more."""
        for operation in ("request", "write", "read"):
            if os.path.exists(self._path(f"{operation}.error")):
                os.unlink(self._path(f"{operation}.error"))


class Gpio:
    """The chip with the microphone's and the speaker's line, `mic` and `speaker`; `lines` has the others too."""

    def __init__(self, directory):
        self.directory = os.path.join(directory, "gpio")
        self._chip = os.path.join(self.directory, CHIP)
        os.makedirs(self._chip)
        self.lines = [Line(self._chip, offset) for offset in range(_LINES)]
        for line in self.lines:
            line.plug()
        self.clear()

    @property
    def environment(self):
        """What the preloaded library has to know."""
        return {"CCU_GPIO": self.directory}

    @property
    def mic(self):
        """The line that switches the microphone."""
        return self.lines[MICROPHONE]

    @property
    def speaker(self):
        """The line that switches the speaker."""
        return self.lines[SPEAKER]

    @property
    def events(self):
        """All that was asked of the chip and its lines, also in vain: "open", "request 14 controller 1", "set 14 0",
        "get 14", "release 14", "close"."""
        try:
            with open(os.path.join(self._chip, "events"), encoding="utf-8") as file:
                return file.read().splitlines()
        except FileNotFoundError:
            return []

    def clear(self):
        """Forgets the events."""
        with open(os.path.join(self._chip, "events"), "wb"):
            pass

    @property
    def folders(self):
        """The folders whose files the lines of microphone and speaker are, and the one above them."""
        return [self._chip, *(os.path.join(self._chip, str(offset)) for offset in (MICROPHONE, SPEAKER))]

    def remove_chip(self):
        """Takes the chip away."""
        shutil.rmtree(self._chip)

    def close(self):
        """Ends what the lines hold of this process."""
        for line in self.lines:
            line.free()
