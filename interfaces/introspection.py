"""Reads introspection texts, and of these first the controller's own: the members, with all that is said of them."""

import functools
import os
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field

#: The controller's own interface, as it is installed.
CONTROLLER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "com.tavilon.common.Controller1.Control.xml")

#: The namespace of the documentation that a member may carry.
DOC = "{http://www.freedesktop.org/dbus/1.0/doc.dtd}"


@dataclass(frozen=True)
class Member:
    """One member of an interface, with all that introspection says of it: types and names of arguments as pairs. What a
    signal carries is in `outputs`; `signature` and `access` are a property's."""
    kind: str
    name: str
    inputs: tuple = ()
    outputs: tuple = ()
    signature: str = ""
    access: str = ""
    annotations: tuple = ()
    element: ElementTree.Element = field(default=None, compare=False, repr=False)

    @property
    def types(self):
        """The types in and out, those of a property being its own and none."""
        return (self.signature or "".join(kind for kind, _ in self.inputs), "".join(kind for kind, _ in self.outputs))


def arguments(element, direction):
    """Types and names of a member's arguments that go in or out."""
    default = "in" if element.tag == "method" else "out"
    return tuple((arg.get("type"), arg.get("name")) for arg in element.findall("arg")
                 if arg.get("direction", default) == direction)


def members(text, interface):
    """The members of an interface in an introspection's text, in order."""
    root = ElementTree.fromstring(text)
    found = next((item for item in root.iter("interface") if item.get("name") == interface), ())
    return [Member(item.tag, item.get("name"), arguments(item, "in"), arguments(item, "out"), item.get("type", ""),
                   item.get("access", ""),
                   tuple((note.get("name"), note.get("value")) for note in item.findall("annotation")), item)
            for item in found if item.tag in ("method", "property", "signal")]


def controller_text():
    """The whole text of the controller's interface file."""
    with open(CONTROLLER, encoding="utf-8") as file:
        return file.read()


@functools.lru_cache(maxsize=None)
def controller_members():
    """The members of the controller's own interface, in order."""
    return members(controller_text(), os.path.basename(CONTROLLER).removesuffix(".xml"))
