"""A story for readers: who called whom, in text and as a picture."""

from xml.sax.saxutils import escape

from .story import Kind, happening

#: Of values, in characters.
_MOST, _MOST_IN_PICTURE = 110, 72


def _value(value):
    """A value as people write it: variants without their type."""
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, str):
        return f'"{value}"'
    if isinstance(value, bytes):
        return f"{len(value)} bytes"
    if isinstance(value, tuple) and len(value) == 2 and _is_signature(value[0]):
        return _value(value[1])
    if isinstance(value, dict):
        return "{" + ", ".join(f"{key}: {_value(item)}" for key, item in value.items()) + "}"
    if isinstance(value, (list, tuple)):
        return "[" + ", ".join(map(_value, value)) + "]"
    return str(value)


def value_text(values):
    """Values as people write them."""
    return ", ".join(map(_value, values))


def _is_signature(value):
    return isinstance(value, str) and value != "" and set(value) <= set("ybnqiuxtdsogvah(){}")


def _values(step, most):
    text = value_text(step.values)
    return text if len(text) <= most else text[:most - 3] + "..."


def _words(step, most=_MOST):
    """What is said, without who says it."""
    if step.kind is Kind.HAPPENING:
        what, arguments, content = happening(step)
        size = f", {len(content)} bytes" if content else ""
        return " ".join([what, *map(str, arguments)]) + size
    if step.kind in (Kind.START, Kind.END):
        return "starts" if step.kind is Kind.START else "ends"
    return f"{step.name} ({_values(step, most)})"


def _answered(step, most=_MOST):
    """What came back."""
    if step.answer is None:
        return "no answer"
    text = _values(step.answer, most)
    return ("error: " if step.answer.captured.error else "") + (text or "done")


def _took(step):
    return "" if step.answer is None else f"{(step.answer.captured.time - step.captured.time) * 1000:.1f} ms"


def _arrow(step):
    if step.kind is Kind.REQUEST:
        return f"{step.who} -> controller: {_words(step)}"
    if step.kind is Kind.CALL:
        return f"  controller -> {step.whom}: {_words(step)} = {_answered(step)}"
    if step.kind is Kind.ANSWER:
        return f"{step.whom} <- controller: {_answered(step.question)}"
    if step.kind is Kind.TOLD:
        return f"all <- controller: {_words(step)}"
    if step.kind is Kind.SIGNAL:
        return f"  {step.who} tells: {_words(step)}"
    return f"** {step.who}: {_words(step)}"


def _shown(story):
    """The steps with a line of their own: replies stand with their calls."""
    return [step for step in story.steps if step.kind is not Kind.REPLY]


def _placed(story, text):
    """The text with the unit's folder under one name; it lies elsewhere each time."""
    return text.replace(story.folder, "UNIT") if story.folder else text


def lines(story):
    """The text: the seconds since the beginning, what happened, and how long it took."""
    told = [(step.captured.time, 0, _arrow(step), _took(step if step.kind is Kind.CALL else step.question)
             if step.kind in (Kind.CALL, Kind.ANSWER) else "") for step in _shown(story)]
    told += [(line.time, 1, f"  log <{line.level}> {line.text.rstrip()}", "") for line in story.log]
    told.sort(key=lambda one: one[0])
    return [f"{time - story.began:9.3f}  {took:>10}  {_placed(story, text)}" for time, _, text, took in told]


# The picture ----------------------------------------------------------------------------------------------------------

_LANE, _ROW, _TOP = 190, 22, 60
_CLIENTS = "clients"
_COLOURS = {Kind.REQUEST: "#1f4e9c", Kind.ANSWER: "#1f4e9c", Kind.CALL: "#2c7a3f", Kind.TOLD: "#9c1f6b",
            Kind.SIGNAL: "#b36b00", Kind.HAPPENING: "#666666", Kind.START: "#666666", Kind.END: "#666666"}
_STYLE = ("text{font:12px sans-serif}.who{font-weight:bold}.time{fill:#888;font-size:11px}"
          ".lane{stroke:#ccc}.row{stroke-width:1.5}")


class _Picture:
    """Lanes from left to right: all who call the controller, the controller, its siblings."""

    def __init__(self, story):
        self._story = story
        self._steps = _shown(story)
        self._clients = {step.who for step in self._steps if step.kind is Kind.REQUEST}
        others = dict.fromkeys(name for step in self._steps for name in (step.who, step.whom)
                               if name not in self._clients | {"controller", "unit", ""})
        names = [_CLIENTS, "controller", *others]
        self._lanes = {name: _LANE * (place + 1) for place, name in enumerate(names)}
        self._width = (len(names) + 2) * _LANE
        self._height = _TOP + (len(self._steps) + 1) * _ROW

    def _text(self, x, y, text, kind="", colour="black", anchor="start"):
        text = escape(_placed(self._story, text))
        return f'<text x="{x}" y="{y}" class="{kind}" fill="{colour}" text-anchor="{anchor}">{text}</text>'

    def _line(self, start, end, y, colour, dashed):
        tip = 6 if end < start else -6
        dash = ' stroke-dasharray="5 3"' if dashed else ""
        return (f'<path class="row" d="M{start} {y}H{end}M{end + tip} {y - 4}L{end} {y}L{end + tip} {y + 4}" '
                f'stroke="{colour}" fill="none"{dash}/>')

    def _lane(self, name):
        return self._lanes.get(_CLIENTS if name in self._clients else name, self._lanes["controller"])

    def _row(self, step, y):
        colour = _COLOURS[step.kind]
        start, end = self._lane(step.who), self._lane(step.whom or step.who)
        words = _words(step, _MOST_IN_PICTURE)
        if step.kind is Kind.CALL:
            words += f" = {_answered(step, _MOST_IN_PICTURE)}  ({_took(step) or 'no time'})"
        elif step.kind is Kind.ANSWER:
            words = f"{step.whom}: {_answered(step.question, _MOST_IN_PICTURE)}  ({_took(step.question)})"
        elif step.kind is Kind.REQUEST:
            words = f"{step.who}: {words}"
        elif step.kind is Kind.SIGNAL:
            end = self._lanes["controller"]
        elif step.kind is Kind.TOLD:
            end = self._lanes[_CLIENTS]
        yield self._text(8, y, f"{step.captured.time - self._story.began:.3f} s", "time")
        if start == end:
            yield f'<circle cx="{start}" cy="{y}" r="4" fill="{colour}"/>'
        else:
            yield self._line(start, end, y, colour, step.kind in (Kind.ANSWER, Kind.SIGNAL, Kind.TOLD))
        yield self._text(min(start, end) + 8, y - 4, words, "", colour)

    def draw(self):
        """The lines of the SVG file."""
        yield (f'<svg xmlns="http://www.w3.org/2000/svg" width="{self._width}" height="{self._height}" '
               f'viewBox="0 0 {self._width} {self._height}"><style>{_STYLE}</style>'
               f'<rect width="100%" height="100%" fill="white"/>')
        for name, x in self._lanes.items():
            yield self._text(x, 24, name, "who", anchor="middle")
            yield f'<line class="lane" x1="{x}" x2="{x}" y1="32" y2="{self._height}"/>'
        for place, step in enumerate(self._steps):
            yield from self._row(step, _TOP + place * _ROW)
        yield "</svg>"


def picture(story):
    """The picture, as SVG."""
    return "\n".join(_Picture(story).draw()) + "\n"
