"""Completion of command lines: what the word can be that comes next, from the parser of the commands itself.

The shells' own part, in `completion/`, asks for it; the commands `completion bash` and `zsh` print that part.
"""

import argparse
import os

from .program import NAME, PROGRAM
from .registry import units
from .verbs import STATE, Verb, choices_of, nouns, with_default_verb

_FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "completion")
#: Stands for the names of files, which the shell knows best.
FILES = "<files>"


def script(shell):
    """The text that a shell reads to complete; None for a shell that is not known."""
    path = os.path.join(_FOLDER, f"ccu.{shell}")
    if not os.path.exists(path):
        return None
    with open(path, encoding="utf-8") as file:
        return file.read().replace("@PROGRAM@", PROGRAM).replace("@NAME@", NAME)


def _subparsers(parser):
    return next((action for action in parser._actions  # pylint: disable=protected-access
                 if isinstance(action, argparse._SubParsersAction)), None)  # pylint: disable=protected-access


def _option(parser, word):
    return parser._option_string_actions.get(word)  # pylint: disable=protected-access


class _Line:
    """What the words of a line have come to: the parser that they have led to, and what is given of it."""

    def __init__(self, parser, words):
        self.parser = parser
        self.awaits = None  # the option whose value comes next
        self._given = []
        for word in words:
            self._take(word)

    def _take(self, word):
        option = _option(self.parser, word)
        if self.awaits is not None:
            self.awaits = None
        elif option is not None:
            self.awaits = option if option.nargs != 0 else None
        elif (commands := _subparsers(self.parser)) is not None:
            self.parser = commands.choices.get(word, argparse.ArgumentParser(add_help=False))
            self._given = []
        else:
            self._given.append(word)

    def positional(self):
        """The argument that comes next; None when there is none."""
        actions = self.parser._get_positional_actions()  # pylint: disable=protected-access
        if not actions:
            return None
        return actions[len(self._given)] if len(self._given) < len(actions) else actions[-1] \
            if actions[-1].nargs == "*" else None

    def given(self):
        """The words of the arguments so far, by their names."""
        actions = self.parser._get_positional_actions()  # pylint: disable=protected-access
        return {action.dest: word for action, word in zip(actions, self._given)}


def _values(line, action):
    """What an argument or the value of an option can be."""
    verb = line.parser.get_default("verb")
    argument = next((one for one in verb.inputs if one.name == action.dest), None) if isinstance(verb, Verb) else None
    if argument is not None:
        return choices_of(argument, line.given()) or ([FILES] if argument.name == "path" else [])
    if action.dest == "unit":
        return [unit.name for unit in units()]
    if action.choices:
        return list(action.choices)
    return _OTHERS.get((line.parser.prog.split()[-1], action.dest), lambda: [])()


def _keys():
    return choices_of(nouns()["key"].verbs["type"].inputs[0], {})


def _scenarios():
    from .scenario import own  # pylint: disable=import-outside-toplevel
    return [*own(), FILES]


def _chapters():
    from .chapters import CHAPTERS  # pylint: disable=import-outside-toplevel
    return [str(number) for number in range(1, len(CHAPTERS) + 1)]


_OTHERS = {("key", "key"): _keys, ("run", "file"): _scenarios, ("demo", "chapter"): _chapters,
           ("snapshot", "file"): lambda: [FILES], ("run", "junit"): lambda: [FILES]}


def complete(parser, words, others):
    """What the last of the words can be; `others` are the commands that are not those of the parser."""
    *before, last = words
    if not before:
        return sorted(word for word in {*_subparsers(parser).choices, *others} if word.startswith(last))
    if before[0] in others and before[0] not in _subparsers(parser).choices:
        return [FILES]
    if before[0] == "do":
        verbs = nouns().get(before[1]) if len(before) == 2 else None
        if verbs is not None and verbs.default is not None:  # the verb, or what the one that is meant takes
            line = _Line(parser, [*before, verbs.default])
            return _matching([*verbs.verbs, STATE, *_values(line, line.positional())], last)
        before = ["do", *with_default_verb(before[1:])]
    line = _Line(parser, before)
    if line.awaits is not None:
        return _matching(_values(line, line.awaits), last)
    if last.startswith("-"):
        return _matching(line.parser._option_string_actions, last)  # pylint: disable=protected-access
    commands = _subparsers(line.parser)
    action = line.positional()
    if commands is not None:
        return _matching(commands.choices, last)
    return _matching(_values(line, action), last) if action is not None else []


def _matching(words, start):
    return [word for word in dict.fromkeys(words) if word == FILES or word.startswith(start)]
