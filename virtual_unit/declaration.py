"""The interface files: the one place where the members and signatures of the siblings are written down, as those of the
controller are in its own."""

import copy
import functools
import os
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field

from interfaces.introspection import CONTROLLER, DOC, arguments

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


def _signature(element, direction):
    return [kind for kind, _ in arguments(element, direction)]


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


@functools.lru_cache(maxsize=None)
def call_names(name):
    """All that a sibling can be asked, as its calls are noted: methods, and "Get X", "Set X" and "GetAll"."""
    standard = bare_node().interfaces
    names = {"GetAll": None}
    for item in load(name).values():
        names.update(dict.fromkeys(member for interface, member in item.methods if interface not in standard))
        names.update(dict.fromkeys(f"Get {one}" for one in item.properties))
        names.update(dict.fromkeys(f"Set {one}" for one, what in item.properties.items() if what.access != "read"))
    return tuple(names)
