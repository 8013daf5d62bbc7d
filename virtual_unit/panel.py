"""The unit's front as text: what its LEDs show, its microphone, speaker and sounds, and the beeps of its keypad."""

import os
import threading
import unicodedata

_LED_NAMES = {0: "mic", 3: "sonde"}
_LED_STATES = {0: "off", 1: "on"}
#: Columns of a terminal that does not tell.
_USUAL_WIDTH = 80


def _on_or_off(level):
    return {None: "gone", 0: "off"}.get(level, "on")


class Panel:
    """What there is to see and to hear of a unit."""

    def __init__(self, unit):
        self._unit = unit

    def texts(self):
        """All of it in one line: in full, and in ever fewer words for those who lack the room."""
        unit = self._unit
        leds = dict(unit.hardware.leds) if unit.hardware is not None else {}
        states = {_LED_NAMES.get(number, f"LED {number}"): _LED_STATES.get(leds.get(number, 0), str(leds.get(number)))
                  for number in sorted({*_LED_NAMES, *leds})}
        lit = [name if state == "on" else f"{name} {state}" for name, state in states.items() if state != "off"]
        beeps = len(unit.hardware.beeps) if unit.hardware is not None else 0
        playing = [path.rpartition("/")[2] for path in unit.audio.playing]
        microphone, speaker = _on_or_off(unit.gpio.mic.value), _on_or_off(unit.gpio.speaker.value)
        volume = unit.audio.volume
        return (" | ".join([f"microphone {microphone}", f"speaker {speaker}, {volume}%",
                            "LEDs " + ", ".join(f"{name} {state}" for name, state in states.items()), f"beeps {beeps}",
                            "plays " + (", ".join(playing) or "nothing")]),
                " | ".join([f"mic {microphone}", f"speaker {speaker} {volume}%", "LEDs " + (", ".join(lit) or "off"),
                            f"beeps {beeps}", *playing]),
                ", ".join([f"mic {microphone}", f"spk {speaker} {volume}%", "LED " + ("+".join(lit) or "-"),
                           f"{beeps} beeps", *playing]))

    def text(self):
        """All of it in one line."""
        return self.texts()[0]

    def follow(self, show, stop, interval=0.1, meanwhile=lambda: None):
        """Hands the texts to `show`, now and after every change, until the event `stop` is set."""
        shown = None
        while True:
            last = stop.wait(interval)
            texts = self.texts()
            if texts != shown:
                show(*texts)
                shown = texts
            meanwhile()
            if last:
                return


def _columns(character):
    """How much room a printable character takes."""
    if unicodedata.category(character) in ("Mn", "Me"):
        return 0
    return 2 if unicodedata.east_asian_width(character) in "WF" else 1


def width_of(text):
    """How many columns of a terminal a text takes."""
    return sum(map(_columns, text))


def fitted(texts, width):
    """The first of some texts that fits into so many columns; else as much of the last as does, and an ellipsis.  What
    a terminal would not print as it stands is replaced."""
    printable = ["".join(character if character.isprintable() else "\ufffd" for character in text) for text in texts]
    for text in printable:
        if width_of(text) <= width:
            return text
    text = printable[-1]
    while text and width_of(text) > width - 1:
        text = text[:-1]
    return text + "\u2026" if width > 0 else ""


class Screen:
    """Lines that go by and, on a terminal, a status line that stays beneath them; elsewhere one more line for each
    status.  For use from any thread."""

    _CLEAR = "\r\x1b[J"
    _NO_WRAP, _WRAP = "\x1b[?7l", "\x1b[?7h"

    def __init__(self, stream):
        self._stream = stream
        self._fixed = stream.isatty()
        self._texts = ()
        self._width = None
        self._lock = threading.Lock()

    def line(self, text):
        """A line that goes by."""
        self._write(f"{text}\n")

    def status(self, *texts):
        """A new status: the first of the texts for which there is room."""
        if self._fixed:
            self._texts = texts
            self._write("")
        else:
            self._write(f"{'panel':>7} {texts[0]}\n")

    def refit(self):
        """Draws the status anew if there is another room for it."""
        if self._fixed and self._texts and self._columns() != self._width:
            self._write("")

    def close(self):
        """Leaves the terminal with a cursor at the beginning of a line."""
        self._texts = ()
        self._write("")

    def _columns(self):
        try:
            return os.get_terminal_size(self._stream.fileno()).columns or _USUAL_WIDTH
        except OSError:
            return _USUAL_WIDTH

    def _status(self):
        """The status, with the cursor at its beginning: a terminal that becomes narrower and breaks it leaves the
        cursor there, above all that is to be cleared."""
        self._width = self._columns()
        return f"{self._NO_WRAP}{fitted(self._texts, self._width)}{self._WRAP}\r" if self._texts else ""

    def _write(self, text):
        with self._lock:
            self._stream.write(self._CLEAR + text + self._status() if self._fixed else text)
            self._stream.flush()
