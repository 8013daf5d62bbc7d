"""Scenarios: YAML files of steps that are played on a unit, and what is wrong with such a file.

Reading a file finds every mistake in it, with its line, before anything is played.
"""

import difflib
import glob
import os
import re
import shlex
from dataclasses import dataclass, field

import yaml

from interfaces.introspection import controller_members

from .verbs import convert, nouns, parse_words

FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "scenarios")

#: What a step does, each with the further keys that it can have.
_ACTIONS = {"say": (), "do": (), "call": ("reply", "error"), "set": ("error",), "signal": ("with",),
            "property": ("is",), "log": (), "wait": ()}
_KEYS = ("title", "about", "unit", "steps")
_UNIT_KEYS = {"bus_timeout": (int, float), "daemon": bool}
_VARIABLE = re.compile(r"\$[a-z_][a-z0-9_]*")


class Mistakes(Exception):
    """What is wrong with a file, a text with its line for each."""

    def __init__(self, texts):
        super().__init__("\n".join(texts))
        self.texts = texts


@dataclass(frozen=True)
class Step:
    """One step: its action, what is acted on, and what is expected of it by the further keys."""
    line: int
    action: str
    subject: object
    expected: dict

    @property
    def text(self):
        """The step in one line."""
        subject = self.subject
        words = " ".join(map(word, subject)) if isinstance(subject, list) else str(subject)
        return f"{self.action} {words}"


@dataclass(frozen=True)
class Scenario:
    """One file."""
    name: str
    path: str
    title: str
    about: str
    options: dict
    steps: list = field(default_factory=list)


def word(value):
    """A value of YAML as it is typed."""
    return str(value).lower() if isinstance(value, bool) else str(value)


def own():
    """The paths of the scenarios that come along, by their names."""
    return {os.path.basename(path).removesuffix(".yaml"): path for path in sorted(glob.glob(f"{FOLDER}/*.yaml"))}


# Calls of the controller ----------------------------------------------------------------------------------------------


def _members(kind):
    return {member.name: member for member in controller_members() if member.kind == kind}


def _known(what, name, names):
    if name in names:
        return name
    close = difflib.get_close_matches(str(name), names, 1)
    raise ValueError(f"no {what} '{name}'" + (f", perhaps '{close[0]}'" if close else ""))


def arguments_of(words):
    """The member, the signature and the values of a call of the controller."""
    member = _members("method")[_known("method of the controller", words[0], _members("method"))]
    if len(words) - 1 != len(member.inputs):
        names = ", ".join(name for _, name in member.inputs)
        raise ValueError(f"{member.name} takes {len(member.inputs)} arguments" + (f" ({names})" if names else "") +
                         f", not {len(words) - 1}")
    return member.name, "".join(kind for kind, _ in member.inputs), [
        _value(kind, name, one) for (kind, name), one in zip(member.inputs, words[1:])]


def property_of(words):
    """The name, the type and the value by which a property of the controller is set."""
    if len(words) != 2:
        raise ValueError("'set' takes a property and its value")
    member = _members("property")[_known("property of the controller", words[0], _members("property"))]
    if member.access == "read":
        raise ValueError(f"{member.name} cannot be set")
    return member.name, member.signature, _value(member.signature, member.name, words[1])


def _value(kind, name, given):
    try:
        text = word(given)
        return text if text.startswith("$") else convert(kind, text)
    except ValueError as error:
        raise ValueError(f"{name}: {error}") from None


# Reading --------------------------------------------------------------------------------------------------------------


class _Loader(yaml.SafeLoader):
    """YAML without its surprises: "off", "no" and "09:30" are texts."""


_PLAIN = {"tag:yaml.org,2002:bool": (re.compile("^(?:true|false)$"), "tf"),
          "tag:yaml.org,2002:int": (re.compile("^[-+]?(?:0|[1-9][0-9]*)$"), "-+0123456789")}
_Loader.yaml_implicit_resolvers = {
    first: [(tag, text) for tag, text in resolvers if tag not in (*_PLAIN, "tag:yaml.org,2002:timestamp")]
    for first, resolvers in yaml.SafeLoader.yaml_implicit_resolvers.items()}
for _tag, (_text, _first) in _PLAIN.items():
    _Loader.add_implicit_resolver(_tag, _text, list(_first))


class _Reader:
    """Reads one file; collects what is wrong with it."""

    def __init__(self, path):
        self.path = path
        self.wrong = []
        self._variables = set()

    def mistake(self, line, text):
        """Notes one."""
        self.wrong.append(f"{self.path}:{line}: {text}")

    def read(self, text):
        """The scenario, or Mistakes."""
        loader = _Loader(text)
        try:
            node = loader.get_single_node()
            scenario = self._scenario(loader, node)
        except yaml.MarkedYAMLError as error:
            line = error.problem_mark.line + 1 if error.problem_mark else 1
            self.mistake(line, f"this is no YAML: {error.problem}")
        except yaml.YAMLError as error:
            self.mistake(1, f"this is no YAML: {' '.join(str(error).split())}")
        finally:
            loader.dispose()
        if self.wrong:
            raise Mistakes(self.wrong)
        return scenario

    def _mapping(self, loader, node, what, keys):
        """The values of a mapping with their lines, by their keys; None when it is none."""
        if not isinstance(node, yaml.MappingNode):
            self.mistake(node.start_mark.line + 1 if node else 1, f"{what} is a mapping of {', '.join(keys)}")
            return None
        found = {}
        for key_node, value in node.value:
            key, line = key_node.value, key_node.start_mark.line + 1
            try:
                _known(f"key of {what}", key, keys)
                if key in found:
                    raise ValueError(f"{what} has '{key}' twice")
            except ValueError as error:
                self.mistake(line, str(error))
                continue
            found[key] = (line, value if key == "steps" else loader.construct_object(value, deep=True))
        return found

    def _scenario(self, loader, node):
        found = self._mapping(loader, node, "a scenario", _KEYS)
        if found is None:
            return None
        line = node.start_mark.line + 1
        for key in ("title", "steps"):
            if key not in found:
                self.mistake(line, f"a scenario needs '{key}'")
        options = self._options(*found.get("unit", (line, {})))
        steps = self._steps(loader, *found["steps"]) if "steps" in found else []
        name = os.path.basename(self.path).removesuffix(".yaml")
        title, about = (" ".join(str(found.get(key, (line, ""))[1]).split()) for key in ("title", "about"))
        return Scenario(name, self.path, title, about, options, steps)

    def _options(self, line, options):
        if not isinstance(options, dict):
            self.mistake(line, f"'unit' is a mapping of {', '.join(_UNIT_KEYS)}")
            return {}
        for key, value in options.items():
            try:
                _known("option of a unit", key, _UNIT_KEYS)
                if not isinstance(value, _UNIT_KEYS[key]) or (key == "bus_timeout" and isinstance(value, bool)):
                    raise ValueError(f"{key} cannot be {value!r}")
            except ValueError as error:
                self.mistake(line, str(error))
        return options

    def _steps(self, loader, line, node):
        if not isinstance(node, yaml.SequenceNode) or not node.value:
            self.mistake(line, "'steps' is a list of steps")
            return []
        return list(filter(None, (self._step(loader, item) for item in node.value)))

    def _step(self, loader, node):
        line = node.start_mark.line + 1
        keys = (*_ACTIONS, *dict.fromkeys(key for more in _ACTIONS.values() for key in more))
        before = len(self.wrong)
        found = self._mapping(loader, node, "a step", keys)
        if found is None or len(self.wrong) > before:
            return None
        actions = [key for key in found if key in _ACTIONS]
        try:
            if len(actions) != 1:
                raise ValueError(f"a step has one of {', '.join(_ACTIONS)}, not {', '.join(actions) or 'none'}")
            action = actions[0]
            further = {key: value for key, (_, value) in found.items() if key != action}
            for key in further:
                if key not in _ACTIONS[action]:
                    raise ValueError(f"'{key}' does not go with '{action}'")
            step = Step(line, action, self._subject(action, found[action][1]), further)
            self._check(step)
            return step
        except ValueError as error:
            self.mistake(line, str(error))
        return None

    @staticmethod
    def _subject(action, value):
        if action in ("do", "call", "set"):
            words = shlex.split(value) if isinstance(value, str) else value
            if not isinstance(words, list) or not words:
                raise ValueError(f"'{action}' takes words or a list of them")
            return words
        if action == "wait":
            if isinstance(value, bool) or not isinstance(value, (int, float)) or value < 0:
                raise ValueError("'wait' takes seconds")
            return value
        if not isinstance(value, str) or not value.strip():
            raise ValueError(f"'{action}' takes a text")
        return value.strip()

    def _check(self, step):
        """Finds out before what the unit would refuse for the words alone."""
        if step.action == "do":
            parse_words([word(one) for one in step.subject])
        elif step.action == "call":
            arguments_of(step.subject)
            if set(step.expected) == {"reply", "error"}:
                raise ValueError("a call has a reply or an error")
        elif step.action == "set":
            property_of(step.subject)
        elif step.action == "signal":
            if step.subject != "none":
                _known("signal of the controller", step.subject, _members("signal"))
            elif step.expected:
                raise ValueError("'with' does not go with 'signal: none'")
        elif step.action == "property":
            self._check_property(step.subject)
            if "is" not in step.expected:
                raise ValueError("'property' needs 'is'")
        self._check_variables(step)

    @staticmethod
    def _check_property(name):
        noun, dot, rest = name.partition(".")
        if not dot:
            _known("property of the controller", name, _members("property"))
            return
        properties = nouns()[_known("noun", noun, nouns())].properties
        _known(f"property of {noun}", rest.partition(".")[0], [item[0] for item in properties])

    def _check_variables(self, step):
        if isinstance(step.subject, list):
            for one in step.subject:
                if is_variable(one) and one not in self._variables:
                    raise ValueError(f"{one} has no value yet: it gets one where it is expected")
        self._variables.update(_variables_in(list(step.expected.values())))


def _variables_in(value):
    if isinstance(value, str):
        return {value} if is_variable(value) else set()
    items = value.values() if isinstance(value, dict) else value if isinstance(value, list) else ()
    return set().union(*map(_variables_in, items))


def is_variable(value):
    """Whether a value is a name like $file."""
    return isinstance(value, str) and _VARIABLE.fullmatch(value) is not None


def read(path):
    """The scenario of a file; raises Mistakes."""
    try:
        with open(path, encoding="utf-8") as file:
            return _Reader(path).read(file.read())
    except OSError as error:
        raise Mistakes([f"{path}: {error.strerror}"]) from None
    except UnicodeDecodeError:
        raise Mistakes([f"{path}: this is no text in UTF-8"]) from None
