"""Makes what the documents have of the controller's interface file: their lines between two marks, which are comments.

A mark names what follows, as in "made: calls of devices"; "made: end" ends it. The manual page and the Markdown pages
have the same marks. What stands outside them is written by hand. As a program it makes all pages anew ("./ccu pages").
"""

import os
import re
import textwrap
from xml.etree import ElementTree

from interfaces.introspection import CONTROLLER, DOC, controller_members

_ROOT = os.path.dirname(os.path.dirname(CONTROLLER))

#: The documents that have made lines.
PAGES = [os.path.join(_ROOT, *path) for path in (
    ("docs", "interface.md"), ("docs", "interface-device.md"), ("docs", "interface-time.md"),
    ("docs", "controllerctl.md"), ("controllerctl", "controllerctl.1"),
    ("packaging", "man", "com.tavilon.common.Controller1.5"))]

_ACCESS = {"readwrite": "read and write", "read": "read only"}
_KINDS = {"members": ("method", "property", "signal"), "calls": ("method", "property"), "signals": ("signal",)}


# The interface file ---------------------------------------------------------------------------------------------------


def _text(element, path):
    """The text at a path below an element, without the file's line breaks; empty without one."""
    return " ".join(" ".join("".join(found.itertext()).split())
                    for found in element.findall(path.replace("doc:", DOC)))


def _doc(member):
    return member.element.find(DOC + "doc")


def announces(member):
    """Whether a property's changes are announced in fact, whatever introspection promises."""
    return {"yes": True, "no": False}[_doc(member).get("announces")]


def changes_of(member):
    """How a property's changes come to be known: ("announced", ""), ("told", SIGNAL) or ("untold", REASON)."""
    doc = _doc(member)
    if announces(member):
        return ("announced", "")
    return ("told", doc.get("told-by")) if doc.get("told-by") else ("untold", doc.get("untold"))


def _pairs(element, path):
    """What is said of the terms of a list, such as codes, by the terms."""
    return [(_text(item, "doc:term"), _text(item, "doc:definition"))
            for item in element.findall(path.replace("doc:", DOC))]


def errors(member):
    """The texts that a member is refused with, and when."""
    return _pairs(_doc(member), "doc:errors/doc:error")


def codes(title):
    """Codes, their messages and when they come: of a list of the interface, or of a signal's first argument."""
    root = ElementTree.parse(CONTROLLER).getroot()
    found = root.find(f".//{DOC}list[@title='{title}']")
    if found is None:
        found = root.find(f".//signal[@name='{title}']/arg/{DOC}doc/{DOC}list")
    return [(*term.split(" ", 1), meaning) for term, meaning in _pairs(found, "doc:item")]


def _chosen(kinds, section):
    return [member for member in controller_members()
            if member.kind in _KINDS[kinds] and section in ("", _doc(member).get("section"))]


# Markdown -------------------------------------------------------------------------------------------------------------


def _cell(text):
    return text.replace("|", "\\|")


def _arguments(member, pairs, direction):
    notes = {arg.get("name"): _text(arg, "doc:doc/doc:summary") for arg in member.element.findall("arg")
             if arg.get("direction", "out") == direction}
    names = ", ".join(name + (f" ({notes[name]})" if notes[name] else "") for _, name in pairs)
    return f"`{''.join(kind for kind, _ in pairs)}` {names}" if pairs else "nothing"


def _shape(member):
    if member.kind == "property":
        how, what = changes_of(member)
        told = {"announced": "emits its change", "told": f'**emits no change**, "{what}" tells of it',
                "untold": "**emits no change**"}[how]
        return f"property `{member.signature}`, {_ACCESS[member.access]}, {told}"
    outputs = _arguments(member, member.outputs, "out")
    if member.kind == "signal":
        return f"signal {outputs}"
    return f"method {_arguments(member, member.inputs, 'in') + ' ' if member.inputs else ''}→ {outputs}"


def _table(head, rows):
    lines = [f"| {' | '.join(map(_cell, row))} |".replace("  |", " |") for row in (head, *rows)]
    return ["", lines[0], f"|{'---|' * len(head)}", *lines[1:], ""]


class Markdown:
    """How a Markdown page has it."""

    mark = "<!-- {} -->"

    @staticmethod
    def members(found):
        """A table of members."""
        return _table(("Member", "", ""), [
            (f'"{member.name}"', _shape(member),
             f"{_text(_doc(member), 'doc:summary')} {_text(_doc(member), 'doc:description/doc:para')}".strip())
            for member in found])

    @staticmethod
    def errors(found):
        """A table of refusals."""
        return _table(("Member", "Refused with", "When"), [
            (f'"{member.name}"', f'"{text}"', when) for member in found for text, when in errors(member)])

    @staticmethod
    def changes(found):
        """A table of properties and how their changes come to be known."""
        return _table(("Property", "`wait`"), [
            (f'"{member.name}"', {"announced": "for the change that is announced",
                                  "told": f'looks again at each "{what}"',
                                  "untold": f"refuses: {what}"}[how])
            for member in found for how, what in [changes_of(member)]])

    @staticmethod
    def codes(found):
        """A table of codes."""
        return _table(("Code", "Message", "When"), [(code, f'"{words}"', when) for code, words, when in found])


# The manual page ------------------------------------------------------------------------------------------------------


def _roff(text):
    """A text as the formatter takes it: hyphens that are no word's, and characters that mean something to it."""
    return re.sub(r"(?<!\w)-", r"\\-", text.replace("\\", "\\e"))


def _lines(text):
    """Sentences begin a line each, and none is long."""
    return [line for sentence in re.split(r"(?<=[.!?]) (?=[A-Z0-9\"-])", text)
            for line in textwrap.wrap(_roff(sentence), 78, break_on_hyphens=False, break_long_words=False)]


def _typed(pairs):
    if not pairs:
        return "()"
    return f"(\\fB{''.join(kind for kind, _ in pairs)}\\fR \\fI{' '.join(name for _, name in pairs)}\\fR)"


class Manual:
    """How the manual page has it."""

    mark = '.\\" {}'

    @staticmethod
    def members(found):
        """An entry a member."""
        lines = []
        for member in found:
            shape = {"method": f"{_typed(member.inputs)} \\(-> {_typed(member.outputs)}",
                     "signal": _typed(member.outputs),
                     "property": f"\\fB{member.signature}\\fR, {_ACCESS.get(member.access)}"}[member.kind]
            how, what = changes_of(member) if member.kind == "property" else ("announced", "")
            silent = how != "announced"
            text = _text(_doc(member), "doc:summary") + (f' The signal "{what}" tells of changes.' if how == "told" else "")
            refusals = "; ".join(f'"{refusal}"' for refusal, _ in errors(member))
            lines += [".TP", f"\\fB{member.name}\\fR {shape}{', tells no changes' if silent else ''}",
                      *_lines(f"{text} Refused with {refusals}." if refusals else text)]
        return lines

    @staticmethod
    def changes(found):
        """An entry a property."""
        return [line for member in found for how, what in [changes_of(member)] for line in (
            ".TP", f".B {member.name}",
            {"announced": "waits for the change that is announced", "told": f"looks again at each {what}",
             "untold": f"is refused: {what}"}[how])]

    @staticmethod
    def codes(found):
        """A list of the codes that come."""
        rows = [f"{_roff(code.rjust(4))}  {_roff(words)}" for code, words, when in found
                if not when.startswith("never")]
        return [".PP", ".nf", *rows, ".fi"]


# The pages ------------------------------------------------------------------------------------------------------------


def _made(what, form):
    """The lines of "calls of devices", "signals", "errors of time", "codes of recording", "changes"."""
    kind, _, section = what.partition(" of ")
    if kind == "changes":
        return form.changes([member for member in controller_members() if member.kind == "property"])
    if kind == "codes":
        return form.codes(codes(section))
    if kind == "errors":
        return form.errors(_chosen("members", section))
    return form.members(_chosen(kind, section))


def made(path):
    """The text of a page as it should be."""
    form = Markdown if path.endswith(".md") else Manual
    begin, end = (re.escape(form.mark).replace(r"\{\}", what) for what in (r"made: (?!end)([^\n]*?)", "made: end"))
    with open(path, encoding="utf-8") as file:
        text = file.read()
    return re.sub(rf"(?ms)^({begin}\n).*?^({end}\n)",
                  lambda match: match[1] + "".join(f"{line}\n" for line in _made(match[2], form)) + match[3], text)


def _main():
    for path in PAGES:
        text = made(path)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)


if __name__ == "__main__":
    _main()
