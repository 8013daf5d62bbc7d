"""The interface files: the one place where the members and signatures of the siblings, and of the controller itself, are
written down."""

import copy
import functools
import os
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field

PROPERTIES = "org.freedesktop.DBus.Properties"
INTROSPECTABLE = "org.freedesktop.DBus.Introspectable"
PEER = "org.freedesktop.DBus.Peer"
OBJECT_MANAGER = "org.freedesktop.DBus.ObjectManager"

#: Marks a node that is no object itself but the declaration that objects of that kind are made from at run time.
PROTOTYPE = "com.tavilon.common.Prototype"

_STANDARD = """<node>
 <interface name="org.freedesktop.DBus.Peer">
  <method name="Ping"/>
  <method name="GetMachineId"><arg type="s" name="machineUuid" direction="out"/></method>
 </interface>
 <interface name="org.freedesktop.DBus.Introspectable">
  <method name="Introspect"><arg type="s" name="xmlData" direction="out"/></method>
 </interface>
 <interface name="org.freedesktop.DBus.Properties">
  <method name="Get">
   <arg type="s" name="interfaceName" direction="in"/>
   <arg type="s" name="propertyName" direction="in"/>
   <arg type="v" name="value" direction="out"/>
  </method>
  <method name="Set">
   <arg type="s" name="interfaceName" direction="in"/>
   <arg type="s" name="propertyName" direction="in"/>
   <arg type="v" name="value" direction="in"/>
  </method>
  <method name="GetAll">
   <arg type="s" name="interfaceName" direction="in"/>
   <arg type="a{sv}" name="properties" direction="out"/>
  </method>
  <signal name="PropertiesChanged">
   <arg type="s" name="interfaceName"/>
   <arg type="a{sv}" name="changedProperties"/>
   <arg type="as" name="invalidatedProperties"/>
  </signal>
 </interface>
</node>
"""


#: The controller's own interface, as it is installed.
CONTROLLER = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "interfaces",
                          "com.tavilon.common.Controller1.Control.xml")

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


@dataclass
class Method:
    """One method: the signature of its arguments and the complete types of its reply."""
    signature: str
    result: str
    result_count: int


@dataclass
class Property:
    """One property of an object: its interface, type and access ("read" or "readwrite")."""
    interface: str
    signature: str
    access: str


@dataclass
class Declaration:
    """What one kind of object offers, as its node in the interface file says."""
    path: str
    prototype: bool
    interfaces: list
    methods: dict = field(default_factory=dict)
    signals: dict = field(default_factory=dict)
    properties: dict = field(default_factory=dict)
    elements: list = field(default_factory=list)

    def find_method(self, interface, member):
        """The method, or None; without an interface the first one of that name, as the message format allows."""
        if interface is not None:
            return self.methods.get((interface, member))
        return next((method for (_, name), method in self.methods.items() if name == member), None)

    def introspect(self, children):
        """Introspection text of one object of this kind, with the names of the nodes below it."""
        root = ElementTree.Element("node")
        root.extend(copy.deepcopy(element) for element in self.elements)
        for child in children:
            ElementTree.SubElement(root, "node", name=child)
        return ElementTree.tostring(root, encoding="unicode")


def _arguments(element, direction):
    default = "in" if element.tag == "method" else "out"
    return tuple((arg.get("type"), arg.get("name")) for arg in element.findall("arg")
                 if arg.get("direction", default) == direction)


def _signature(element, direction):
    return [kind for kind, _ in _arguments(element, direction)]


def members(text, interface):
    """The members of an interface in an introspection's text, in order."""
    root = ElementTree.fromstring(text)
    found = next((item for item in root.iter("interface") if item.get("name") == interface), ())
    return [Member(item.tag, item.get("name"), _arguments(item, "in"), _arguments(item, "out"), item.get("type", ""),
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


def _declare_interface(declaration, element):
    name = element.get("name")
    for method in element.iter("method"):
        result = _signature(method, "out")
        declaration.methods[name, method.get("name")] = Method("".join(_signature(method, "in")), "".join(result),
                                                               len(result))
    for signal in element.iter("signal"):
        declaration.signals[name, signal.get("name")] = "".join(_signature(signal, "out"))
    for item in element.iter("property"):
        if item.get("name") in declaration.properties:
            raise ValueError(f"{declaration.path} declares the property {item.get('name')} twice")
        declaration.properties[item.get("name")] = Property(name, item.get("type"), item.get("access"))


def _without_documentation(element):
    for child in list(element):
        if child.tag.startswith(DOC):
            element.remove(child)
        else:
            _without_documentation(child)


def _declare(node, standard):
    _without_documentation(node)
    interfaces = node.findall("interface") + [copy.deepcopy(element) for element in standard]
    prototype = any(note.get("name") == PROTOTYPE for note in node.findall("annotation"))
    declaration = Declaration(node.get("name"), prototype, [element.get("name") for element in interfaces],
                              elements=interfaces)
    for element in interfaces:
        _declare_interface(declaration, element)
    return declaration


def interface_file(name):
    """Path of a sibling's interface file; that of the controller's stand-in is the controller's own."""
    if name == "controller":
        return CONTROLLER
    return os.path.join(os.path.dirname(__file__), "interfaces", f"{name}.xml")


@functools.lru_cache(maxsize=None)
def bare_node():
    """The declaration of a path that only leads to objects: the standard interfaces."""
    return _declare(ElementTree.fromstring(_STANDARD), [])


@functools.lru_cache(maxsize=None)
def load(name):
    """The declarations of a sibling by node path; parsed once per process."""
    standard = bare_node().elements
    root = ElementTree.parse(interface_file(name)).getroot()
    declarations = [_declare(node, standard) for node in root.findall("node") or [root]]
    return {declaration.path: declaration for declaration in declarations}
