"""The control object as words: the nouns, verbs and arguments of `interfaces/simulation.xml`, for commands and scenarios.

The file is the one place where they are declared; help, types, completion and the line that tells the effect are its.
"""

import argparse
import difflib
import functools
import re
import string
from dataclasses import dataclass
from xml.etree import ElementTree

from . import evdev, zones
from .declaration import DOC, call_names, interface_file, load
from .values import Typed

#: The noun of the object that is the unit as a whole.
WHOLE = "unit"
#: The verb of every noun that shows the values of its properties.
STATE = "state"

_OWN = "com.tavilon.common."
_RANGES = {"y": (0, 255), "n": (-2 ** 15, 2 ** 15 - 1), "u": (0, 2 ** 32 - 1), "i": (-2 ** 31, 2 ** 31 - 1),
           "x": (-2 ** 63, 2 ** 63 - 1), "t": (0, 2 ** 64 - 1)}
_SWITCH = {"on": True, "yes": True, "true": True, "off": False, "no": False, "false": False}


def _dashed(name):
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])", "-", name).lower()


def _summary(element):
    text = element.findtext(f"{DOC}doc/{DOC}summary") or ""
    return " ".join(text.split())


def _notes(element):
    return {note.get("name").removeprefix(_OWN): note.get("value") for note in element.findall("annotation")}


def convert(kind, text):
    """A word as a value of a simple D-Bus type; raises ValueError with what would be right."""
    if kind == "v":
        return Typed("s", text)
    if kind == "b":
        if text.lower() not in _SWITCH:
            raise ValueError(f"'{text}' is neither on nor off")
        return _SWITCH[text.lower()]
    if kind == "d":
        try:
            return float(text)
        except ValueError:
            raise ValueError(f"'{text}' is no number") from None
    if kind in _RANGES:
        least, most = _RANGES[kind]
        try:
            number = int(text)
        except ValueError:
            raise ValueError(f"'{text}' is no whole number") from None
        if not least <= number <= most:
            raise ValueError(f"{text} is not between {least} and {most}")
        return number
    return text


@dataclass(frozen=True)
class Argument:
    """One argument of a verb; `default` is None where it must be given."""
    name: str
    kind: str
    default: str = None
    choices: str = ""

    @property
    def is_option(self):
        """True when it is written with its name, as --times 1."""
        return self.default is not None and self.kind != "b"

    @property
    def word(self):
        """The name of an argument as it is typed."""
        return _dashed(self.name)

    @property
    def fixed_choices(self):
        """The values that there are, where the file has them all."""
        return [] if self.choices.startswith("@") else self.choices.split()

    def value(self, text):
        """What is meant by a word."""
        if self.fixed_choices and text not in self.fixed_choices:
            raise ValueError(f"'{text}' is none of {', '.join(self.fixed_choices)}")
        return convert(self.kind, text)


@dataclass(frozen=True)
class Verb:
    """One method of one object."""
    name: str
    noun: str
    path: str
    interface: str
    member: str
    summary: str
    inputs: tuple
    outputs: tuple
    effect: str

    @property
    def signature(self):
        """The types of the arguments."""
        return "".join(argument.kind for argument in self.inputs)


@dataclass(frozen=True)
class Noun:
    """One object; `default` is the verb that is meant where none is named."""
    name: str
    path: str
    interface: str
    summary: str
    verbs: dict
    default: str
    properties: tuple


def _verb(noun, path, interface, element):
    notes = _notes(element)
    inputs = [Argument(arg.get("name"), arg.get("type"), _notes(arg).get("Default"), _notes(arg).get("Choices", ""))
              for arg in element.findall("arg") if arg.get("direction") == "in"]
    outputs = tuple(arg.get("name") for arg in element.findall("arg") if arg.get("direction") == "out")
    return Verb(_dashed(element.get("name")), noun, path, interface, element.get("name"), _summary(element),
                tuple(inputs), outputs, notes["Effect"])


@functools.lru_cache(maxsize=None)
def nouns():
    """All of them by name, the unit as a whole last."""
    found = {}
    root = ElementTree.parse(interface_file("simulation")).getroot()
    for node in root.findall("node"):
        interface = node.find("interface")
        path = node.get("name")
        name = path.rpartition("VirtualUnit1")[2].lstrip("/") or WHOLE
        methods = [method for method in interface.findall("method") if "Effect" in _notes(method)]
        verbs = [_verb(name, path, interface.get("name"), method) for method in methods]
        default = next((_dashed(method.get("name")) for method in methods if "DefaultVerb" in _notes(method)), None)
        found[name] = Noun(name, path, interface.get("name"), _summary(interface), {verb.name: verb for verb in verbs},
                           default, tuple((item.get("name"), item.get("type"), _summary(item))
                                          for item in interface.findall("property")))
    found[WHOLE] = found.pop(WHOLE)
    return found


def with_default_verb(words):
    """The words with the verb that is meant where it is left out."""
    noun = nouns().get(words[0]) if words else None
    if noun is None or noun.default is None or len(words) < 2:
        return list(words)
    if words[1] in (*noun.verbs, STATE) or words[1].startswith("-"):
        return list(words)
    return [words[0], noun.default, *words[1:]]


class _Formatter(string.Formatter):
    """Texts with {name}, and with {name:this|that} for what is true or false."""

    def format_field(self, value, format_spec):
        if "|" in format_spec:
            return format_spec.split("|")[0 if value else 1]
        return super().format_field(value.value if isinstance(value, Typed) else value, format_spec)


def effect_of(verb, values, results):
    """The line that tells what a verb has done."""
    return _Formatter().format(verb.effect, **values, **results)


# Parsing --------------------------------------------------------------------------------------------------------------


def _argument_type(argument):
    def parse(text):
        try:
            return argument.value(text)
        except ValueError as error:
            raise argparse.ArgumentTypeError(str(error)) from None
    return parse


def _add_argument(parser, argument):
    options = {"type": _argument_type(argument), "metavar": argument.word.upper()}
    if argument.fixed_choices:
        options["metavar"] = "{" + ",".join(argument.fixed_choices) + "}"
    if argument.kind == "b":
        options["metavar"] = "{on,off}"
    if argument.is_option:
        shown = f" (default: {argument.default})" if argument.default not in ("", "0") else ""
        parser.add_argument(f"--{argument.word}", dest=argument.name, help=(argument.word.replace("-", " ") + shown),
                            default=argument.value(argument.default), **options)
    elif argument.default is not None:
        parser.add_argument(argument.name, nargs="?", default=argument.value(argument.default), **options)
    else:
        parser.add_argument(argument.name, **options)


def add_to(parser, common=()):
    """Gives a parser all nouns and verbs; what it parses has `noun`, and `verb`, which is None for the state."""
    by_noun = parser.add_subparsers(dest="noun", metavar="NOUN", required=True)
    for noun in nouns().values():
        command = by_noun.add_parser(noun.name, help=noun.summary, description=noun.summary, parents=common)
        by_verb = command.add_subparsers(dest="word", metavar="VERB", required=True)
        for verb in noun.verbs.values():
            text = verb.summary + (" The verb can be left out." if verb.name == noun.default else "")
            one = by_verb.add_parser(verb.name, help=verb.summary, description=text, parents=common)
            one.set_defaults(verb=verb)
            for argument in verb.inputs:
                _add_argument(one, argument)
        text = "Shows what there is to be seen of it."
        by_verb.add_parser(STATE, help=text, description=text, parents=common).set_defaults(verb=None)


# Completion -----------------------------------------------------------------------------------------------------------


SIBLINGS = ("storage", "video", "jobs", "settings", "hardware", "sync", "timedate")


def _sections():
    return {path.rpartition("/")[2]: item for path, item in load("settings").items() if item.properties}


def _settings(given):
    section = _sections().get(given.get("section"))
    return list(section.properties) if section else []


_SOURCES = {
    "@devices": lambda _given: ["card", "internal"],
    "@siblings": lambda _given: SIBLINGS,
    "@members": lambda given: ("any", *call_names(given["sibling"])) if given.get("sibling") in SIBLINGS else (),
    "@keys": lambda _given: [name.capitalize() for name in evdev.names() if not name.isdigit()],
    "@sections": lambda _given: sorted(_sections()),
    "@settings": _settings,
    "@zones": lambda _given: ["UTC", *(form + zone.name for form in ("", "DST/") for zone in zones.table()
                                        if zone.name != "UTC")],
}


def choices_of(argument, given):
    """What an argument can be, as far as it is known; `given` are the words of those before it, by their names."""
    if argument.kind == "b":
        return ["on", "off"]
    return list(_SOURCES[argument.choices](given)) if argument.choices in _SOURCES else argument.fixed_choices


# Words without a shell ------------------------------------------------------------------------------------------------


def _meant(what, word, known):
    """The entry of a word, or a ValueError that names those that there are and the one that is perhaps meant."""
    if word in known:
        return known[word]
    close = difflib.get_close_matches(word, known, 1)
    raise ValueError(f"no {what} '{word}'" + (f", perhaps '{close[0]}'" if close else "") +
                     f"; there are: {', '.join(known)}")


def _split_options(verb, words):
    """The words without options, and the texts of the options by the names of their arguments."""
    options = {f"--{argument.word}": argument for argument in verb.inputs if argument.is_option}
    given, rest, words = {}, [], list(words)
    while words:
        word = words.pop(0)
        if not word.startswith("--"):
            rest.append(word)
            continue
        argument = _meant("option", word, options)
        if not words:
            raise ValueError(f"{word} lacks its value")
        given[argument.name] = words.pop(0)
    return rest, given


def parse_words(words):
    """The verb and the values of its arguments that words name, as those behind "do"; a ValueError says what is wrong.
    A word that begins with "$" stands for any text."""
    words = with_default_verb(words)
    noun = _meant("noun", words[0] if words else "", nouns())
    verb = _meant(f"verb of {noun.name}", words[1] if len(words) > 1 else "", noun.verbs)
    rest, texts = _split_options(verb, words[2:])
    for argument in verb.inputs:
        if not argument.is_option and rest:
            texts[argument.name] = rest.pop(0)
        elif argument.default is None:
            raise ValueError(f"{noun.name} {verb.name} lacks {argument.word}")
    if rest:
        raise ValueError(f"{noun.name} {verb.name} takes no '{rest[0]}'")
    values = {}
    for argument in verb.inputs:
        text = texts.get(argument.name, argument.default)
        try:
            values[argument.name] = text if text.startswith("$") else argument.value(text)
        except ValueError as error:
            raise ValueError(f"{argument.word}: {error}") from None
    return verb, values
