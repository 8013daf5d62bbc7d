"""The unit's front as text: what its LEDs show, its microphone, speaker and sounds, and the beeps of its keypad."""

import threading

_LED_NAMES = {0: "mic", 3: "sonde"}
_LED_STATES = {0: "off", 1: "on"}


def _on_or_off(level):
    return {None: "gone", 0: "off"}.get(level, "on")


class Panel:
    """What there is to see and to hear of a unit."""

    def __init__(self, unit):
        self._unit = unit

    def text(self):
        """All of it in one line."""
        unit = self._unit
        leds = dict(unit.hardware.leds) if unit.hardware is not None else {}
        shown = [f"{_LED_NAMES.get(number, f'LED {number}')} {_LED_STATES.get(leds.get(number, 0), leds.get(number))}"
                 for number in sorted({*_LED_NAMES, *leds})]
        beeps = len(unit.hardware.beeps) if unit.hardware is not None else 0
        playing = [path.rpartition("/")[2] for path in unit.audio.playing]
        return " | ".join([f"microphone {_on_or_off(unit.gpio.mic.value)}",
                           f"speaker {_on_or_off(unit.gpio.speaker.value)}, {unit.audio.volume}%",
                           "LEDs " + ", ".join(shown), f"beeps {beeps}",
                           "plays " + (", ".join(playing) if playing else "nothing")])

    def follow(self, show, stop, interval=0.05):
        """Hands the text to `show`, now and after every change, until the event `stop` is set."""
        shown = None
        while True:
            last = stop.wait(interval)
            text = self.text()
            if text != shown:
                show(text)
                shown = text
            if last:
                return


class Screen:
    """Lines that go by and, on a terminal, a status line that stays beneath them; elsewhere one more line for each
    status.  For use from any thread."""

    _CLEAR = "\r\x1b[K"
    _NO_WRAP, _WRAP = "\x1b[?7l", "\x1b[?7h"

    def __init__(self, stream):
        self._stream = stream
        self._fixed = stream.isatty()
        self._status = ""
        self._lock = threading.Lock()

    def line(self, text):
        """A line that goes by."""
        self._write(f"{text}\n")

    def status(self, text):
        """A new status."""
        if self._fixed:
            self._status = f"{self._NO_WRAP}{text}{self._WRAP}"
            self._write("")
        else:
            self._write(f"{'panel':>7} {text}\n")

    def close(self):
        """Leaves the terminal with a cursor at the beginning of a line."""
        self._status = ""
        self._write("")

    def _write(self, text):
        with self._lock:
            self._stream.write((self._CLEAR if self._fixed else "") + text + self._status)
            self._stream.flush()
