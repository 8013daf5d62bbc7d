"""How the demo looks: headings, marked lines and tables; coloured on a terminal, plain anywhere else."""

import os
import shutil
import textwrap

_WIDEST, _NARROWEST = 100, 40
_INDENT = 6
_VALUE_COLUMN = 42

_CALL, _SIGNAL, _EVENT, _GOOD, _BAD = "->", "<-", "**", "ok", "NO"
_COLOURS = {_CALL: "36", _SIGNAL: "35", _EVENT: "33", _GOOD: "32", _BAD: "1;31", "heading": "1", "faint": "2"}


class ReaderGone(BaseException):
    """Nobody reads the output any more; ends the program, so it is none of the errors that a step may have."""


class Show:
    """Writes to one text stream, each line at once."""

    def __init__(self, stream):
        on_terminal = stream.isatty()
        columns = shutil.get_terminal_size((_WIDEST, 24)).columns if on_terminal else _WIDEST
        self._width = max(_NARROWEST, min(_WIDEST, columns))
        self._coloured = on_terminal and not os.environ.get("NO_COLOR") and os.environ.get("TERM") != "dumb"
        self._stream = stream

    def _write(self, text=""):
        try:
            print(text, file=self._stream, flush=True)
        except BrokenPipeError:
            raise ReaderGone from None

    def _paint(self, text, style):
        return f"\x1b[{_COLOURS[style]}m{text}\x1b[0m" if self._coloured and style in _COLOURS else text

    def _wrap(self, text, first, indent):
        """The text behind `first`, further lines under its beginning."""
        return textwrap.wrap(text, self._width, initial_indent=first, subsequent_indent=" " * indent,
                             break_on_hyphens=False) or [first.rstrip()]

    def _marked(self, mark, text, indent=_INDENT):
        lines = self._wrap(text, f"  {mark}".ljust(_INDENT), indent)
        for line in (lines[0].replace(mark, self._paint(mark, mark), 1), *lines[1:]):
            self._write(line)

    # Parts of a page --------------------------------------------------------------------------------------------------

    def title(self, text, explanation):
        """The beginning of the whole, and how to read it."""
        self._write(self._paint(text, "heading"))
        self._write(self._paint("=" * len(text), "heading"))
        self.tell(explanation, indent=0)
        self.table([(_CALL, "a command that a user types, or a call that a client makes"),
                    (_SIGNAL, "a signal of the daemon, as a client has received it"),
                    (_EVENT, "something that happens to the unit"),
                    (_GOOD, "a value that is as it should be"), (_BAD, "a value that is not")])

    def heading(self, text):
        """The beginning of a section."""
        self._write()
        self._write(self._paint(text, "heading"))
        self._write(self._paint("-" * self._width, "faint"))

    def tell(self, text, indent=2):
        """A paragraph."""
        self._write()
        for line in self._wrap(text, " " * indent, indent):
            self._write(line)

    def call(self, text):
        """A call of a client."""
        self._marked(_CALL, text)

    def signal(self, text):
        """A signal of the daemon."""
        self._marked(_SIGNAL, text)

    def event(self, text):
        """Something that happens to the unit."""
        self._marked(_EVENT, text)

    def good(self, what, value):
        """A value that is right."""
        column = min(_VALUE_COLUMN, self._width // 2)
        self._marked(_GOOD, f"{what:{column - _INDENT - 2}}  {value}", column)

    def bad(self, what, differences):
        """A value that is wrong; the differences are lines."""
        self._marked(_BAD, what)
        self.lines(differences)

    def table(self, rows):
        """Rows of texts under each other; the last column is wrapped."""
        rows = [tuple(map(str, row)) for row in rows]
        widths = [max(map(len, column)) for column in zip(*(row[:-1] for row in rows))]
        for row in rows:
            first = " " * _INDENT + "".join(f"{text:{width}}  " for text, width in zip(row, widths))
            for line in self._wrap(row[-1], first, len(first)):
                self._write(line)

    def lines(self, lines):
        """Lines as they are, as far as they fit."""
        for text in lines:
            for line in self._wrap(text, " " * _INDENT, _INDENT + 2):
                self._write(line)
