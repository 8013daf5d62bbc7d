"""Base of the simulated siblings: a bus connection, a service name and objects served from the interface file."""

import copy
import traceback

import dbus
import dbus.bus
import dbus.lowlevel

from . import declaration
from .declaration import INTROSPECTABLE, OBJECT_MANAGER, PEER, PROPERTIES
from .faulty_reply import faulty_reply
from .loop import on_loop, shared_loop
from .patience import PATIENCE
from .values import Typed, append, plain, signature_of, typed, zero

_ERROR = "org.freedesktop.DBus.Error."
_HANDLED = dbus.lowlevel.HANDLER_RESULT_HANDLED
_NOT_HANDLED = dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
#: What a sibling keeps when its state is another.
_LASTING = ("unit", "emissions", "_address", "_connection", "_remembered", "_declared")
_MACHINE_ID = "0123456789abcdef0123456789abcdef"


class Refusal(Exception):
    """Raised by a behaviour to answer with a D-Bus error."""

    def __init__(self, name, text):
        super().__init__(text)
        self.name = name if "." in name else _ERROR + name
        self.text = text


class SimulatedObject:
    """One object of a sibling: what it declares and the plain values of its properties."""

    def __init__(self, declared, values):
        unknown = set(values) - set(declared.properties)
        if unknown:
            raise KeyError(f"{declared.path} declares no {sorted(unknown)}")
        self.declared = declared
        self.values = {name: values.get(name, zero(item.signature)) for name, item in declared.properties.items()}

    def __deepcopy__(self, memo):
        twin = copy.copy(self)
        twin.values = copy.deepcopy(self.values, memo)
        return twin

    def variants(self, interface):
        """The interface's properties with their types, all of them for an empty name."""
        return {name: Typed(item.signature, self.values[name]) for name, item in self.declared.properties.items()
                if interface in ("", item.interface)}


class Sibling:
    """A simulated daemon.  Behaviours are methods named on_MEMBER(path, *arguments) that return the reply's value, a
    tuple when the reply has several.  Attributes may be read from any thread; what changes state runs on the loop
    thread."""

    #: Name of the interface file and of the sibling in the call log and the faults.
    name = ""
    #: Bus name that the sibling owns.
    service = ""

    def __init__(self, unit, address):
        self.unit = unit
        self.objects = {}
        self.emissions = 0
        self._address = address
        self._connection = None
        self._remembered = None
        self._declared = declaration.load(self.name)
        for path, declared in self._declared.items():
            if not declared.prototype:
                self.add_object(path)

    def initial_values(self, path):  # pylint: disable=unused-argument
        """Property values that an object starts with; what is left out starts empty."""
        return {}

    # Life -------------------------------------------------------------------------------------------------------------

    @property
    def alive(self):
        """True while the sibling is connected and owns its name."""
        return self._connection is not None

    @on_loop
    def revive(self):
        """Connects and takes the name; the state is what it was."""
        if self.alive:
            return
        connection = dbus.bus.BusConnection(self._address, mainloop=shared_loop().dbus_loop)
        connection.set_exit_on_disconnect(False)
        connection.add_message_filter(self._filter)
        connection.request_name(self.service, dbus.bus.NAME_FLAG_DO_NOT_QUEUE)
        self._connection = connection
        self.unit.stir()

    @on_loop
    def die(self):
        """Drops the connection as a crash does: unanswered calls are answered by the bus, the name is free."""
        connection, self._connection = self._connection, None
        if connection is not None:
            connection.close()
            self.unit.stir()

    def _state(self, state):
        """A copy of what is the sibling's own."""
        return {name: copy.deepcopy(value) for name, value in state.items() if name not in _LASTING}

    @on_loop
    def remember(self):
        """Notes the present state."""
        self._remembered = self._state(self.__dict__)

    @on_loop
    def renew(self):
        """Goes back to the state that was noted, without a word of that on the bus."""
        state = {name: self.__dict__[name] for name in _LASTING} | self._state(self._remembered)
        self.__dict__.clear()
        self.__dict__.update(state)

    def own_state(self):
        """Everything that is the sibling's own, by the names of its attributes; for the loop thread."""
        return {name: value for name, value in self.__dict__.items() if name not in _LASTING}

    @on_loop
    def take_state(self, state):
        """Takes over attributes that `own_state` gave, without a word on the bus."""
        self.__dict__.update(state)
        self.unit.stir()

    def object_like(self, node, values):
        """An object as the interface file declares a node, with these values."""
        return SimulatedObject(self._declared[node], values)

    # Objects and properties -------------------------------------------------------------------------------------------

    @on_loop
    def add_object(self, path, like=None, values=None):
        """Makes an object appear, declared as its own node in the interface file or as the node `like`."""
        self.objects[path] = SimulatedObject(self._declared[like or path],
                                             self.initial_values(path) if values is None else values)
        self.unit.stir()

    @on_loop
    def remove_object(self, path):
        """Makes an object disappear; calls to it are answered as unknown."""
        del self.objects[path]
        self.unit.stir()

    def get_property(self, path, name):
        """The plain value of a property."""
        return self.objects[path].values[name]

    def set_property(self, path, name, value, emit=True):
        """Sets one property and, unless told otherwise, emits its change."""
        self.set_properties(path, {name: value}, emit)

    @on_loop
    def set_properties(self, path, changes, emit=True):
        """Sets properties; those that really changed go out in one PropertiesChanged for each interface."""
        item = self.objects[path]
        changed = {name: value for name, value in changes.items() if item.values[name] != value}
        for name, value in changed.items():
            typed(item.declared.properties[name].signature, value)
        item.values.update(changed)
        self.unit.stir()
        for interface in dict.fromkeys(item.declared.properties[name].interface for name in changed):
            if emit:
                self.emit_changes(path, interface, {name: changed[name] for name in changed
                                                    if item.declared.properties[name].interface == interface})

    @on_loop
    def emit_changes(self, path, interface, changes, invalidated=()):
        """Emits a PropertiesChanged and changes nothing.  A `Typed` value goes out as the type that it names."""
        properties = self.objects[path].declared.properties if path in self.objects else {}
        variants = {name: value if isinstance(value, Typed) else Typed(properties[name].signature, value)
                    for name, value in changes.items()}
        self.emit(path, PROPERTIES, "PropertiesChanged", interface, variants, list(invalidated), signature="sa{sv}as")

    @on_loop
    def emit(self, path, interface, member, *arguments, signature=None, destination=None):
        """Emits a signal with the signature of the interface file, or with the one given to contradict it; to everybody
        or to the one connection that is the destination."""
        if signature is None:
            signature = next(item.signals[interface, member] for item in self._declared.values()
                             if (interface, member) in item.signals)
        self.unit.happenings.flush(self._connection)
        message = append(dbus.lowlevel.SignalMessage(path, interface, member), signature, arguments)
        if destination is not None:
            message.set_destination(destination)
        if self.alive:
            self._connection.send_message(message)
            self._connection.flush()
            self.emissions += 1
            self.unit.tell_signal(self.name, path, interface, member, arguments)

    @on_loop
    def ping(self, destinations, finished):
        """Pings connections over this sibling's own, behind everything that it has sent; `finished` gets each reply.

        A sibling that has died meanwhile pings nobody.
        """
        for destination in destinations if self.alive else ():
            message = dbus.lowlevel.MethodCallMessage(destination, "/", PEER, "Ping")
            self._connection.send_message_with_reply(message, finished, PATIENCE)

    # Calls ------------------------------------------------------------------------------------------------------------

    def _filter(self, connection, message):
        if message.get_type() != dbus.lowlevel.MESSAGE_TYPE_METHOD_CALL:
            return _NOT_HANDLED
        try:
            self._serve(connection, message)
        except Exception:  # pylint: disable=broad-except
            self.unit.errors.append(traceback.format_exc())
        return _HANDLED

    def _serve(self, connection, message):
        if message.get_interface() in (PEER, INTROSPECTABLE):
            self._send(connection, message, self._answer(message))
            return
        call = self._record(message)
        if self.unit.happenings.is_new(f"{self._address} {message.get_sender()}"):
            self._ask_process_of(connection, message.get_sender(), lambda _reply: None)
        fault = self.unit.faults.take(call)
        self.unit.tell_call(call, fault)
        if fault is None:
            self._send(connection, message, self._answer(message))
        elif fault.kind == "late":
            reply = self._answer(message)
            shared_loop().after(fault.value, lambda: self._send(connection, message, reply))
        elif fault.kind == "meanwhile":
            deed, carried_out = fault.value
            deed()
            if carried_out:
                self._send(connection, message, self._answer(message))
        elif fault.kind == "die after":
            self._answer(message)
            if self.alive:
                connection.flush()
            self.die()
        elif fault.kind == "die":
            self.die()
        elif fault.kind == "silent":
            self._end_patience_of(connection, message.get_sender())
        else:
            self._send(connection, message, faulty_reply(fault, message, self.service, self._result_types(message)))
        self.unit.stir()

    def _end_patience_of(self, connection, caller):
        """Lets a caller that waits in vain give up at once, where the unit is to do so."""
        if self.unit.gives_up_at_once:
            self._ask_process_of(connection, caller,
                                 lambda reply: self.unit.give_up(int(reply.get_args_list()[0])))

    @staticmethod
    def _ask_process_of(connection, caller, answered):
        """Asks the bus whose a connection is; while its call is not answered it is there."""
        message = dbus.lowlevel.MethodCallMessage("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                  "org.freedesktop.DBus", "GetConnectionUnixProcessID")
        message.append(caller, signature="s")
        connection.send_message_with_reply(message, answered, PATIENCE)

    def _send(self, connection, message, reply):
        self.unit.happenings.flush(connection)
        if connection is self._connection and not message.get_no_reply():
            connection.send_message(reply)

    def _record(self, message):
        path, interface, member = str(message.get_path()), message.get_interface(), str(message.get_member())
        arguments = [plain(argument) for argument in message.get_args_list()]
        if interface == PROPERTIES and arguments:
            interface = arguments[0]
            if member != "GetAll" and len(arguments) > 1:
                member = f"{member} {arguments[1]}"
            arguments = arguments[2:]
        return self.unit.calls.append(self.name, path, str(interface or ""), member, arguments)

    def _result_types(self, message):
        """The reply's signature by the interface file and, for a property read, the type inside the variant."""
        item = self.objects.get(message.get_path())
        method = item and item.declared.find_method(message.get_interface(), message.get_member())
        if not method:
            return "", ""
        arguments = message.get_args_list()
        if message.get_interface() == PROPERTIES and message.get_member() == "Get" and len(arguments) == 2:
            known = item.declared.properties.get(str(arguments[1]))
            return "v", known.signature if known else ""
        return method.result, ""

    def _answer(self, message):
        """Carries the call out and returns the reply to it."""
        try:
            method, result = self._carry_out(message)
            values = () if method.result_count == 0 else (result,) if method.result_count == 1 else result
            return append(dbus.lowlevel.MethodReturnMessage(message), method.result, values)
        except Refusal as refusal:
            return dbus.lowlevel.ErrorMessage(message, refusal.name, refusal.text)
        except Exception as error:  # pylint: disable=broad-except
            self.unit.errors.append(traceback.format_exc())
            return dbus.lowlevel.ErrorMessage(message, _ERROR + "Failed", f"error in the simulation: {error}")

    def _carry_out(self, message):
        path, interface, member = message.get_path(), message.get_interface(), message.get_member()
        item = self.objects.get(path)
        if item is None and not self._children(path):
            raise Refusal("UnknownObject", f"Unknown object '{path}'.")
        if item is None:
            item = SimulatedObject(declaration.bare_node(), {})
        method = item.declared.find_method(interface, member)
        if method is None and interface is not None and interface not in item.declared.interfaces:
            raise Refusal("UnknownInterface", f"Unknown interface '{interface}'.")
        if method is None:
            raise Refusal("UnknownMethod", f"Unknown method {member} or interface {interface}.")
        if message.get_signature() != method.signature:
            raise Refusal("InvalidArgs", f"Invalid arguments '{message.get_signature()}' to call {interface}.{member}"
                                         f"(), expecting '{method.signature}'.")
        arguments = message.get_args_list()
        if interface == PROPERTIES:
            self.refresh(path)
        if interface in _STANDARD_BEHAVIOURS:
            return method, _STANDARD_BEHAVIOURS[interface][member](self, path, item, *arguments)
        return method, self.behaviour(path, member)(path, *map(plain, arguments))

    def behaviour(self, path, member):  # pylint: disable=unused-argument
        """What carries a member of an object out."""
        return getattr(self, f"on_{member}")

    def refresh(self, path):
        """Brings values up to date that change by themselves, before properties are read."""

    def _children(self, path):
        prefix = path.rstrip("/") + "/"
        return list(dict.fromkeys(other[len(prefix):].split("/")[0] for other in self.objects
                                  if other.startswith(prefix) and other != path))

    def _find_property(self, item, interface, name):
        if interface and interface not in item.declared.interfaces:
            raise Refusal("UnknownInterface", f"Unknown interface '{interface}'.")
        found = item.declared.properties.get(name)
        if found is None or interface not in ("", found.interface):
            raise Refusal("UnknownProperty", f"Unknown property '{name}'.")
        return found

    def _on_get(self, _path, item, interface, name):
        return Typed(self._find_property(item, str(interface), str(name)).signature, item.values[str(name)])

    def _on_set(self, path, item, interface, name, value):
        name = str(name)
        found = self._find_property(item, str(interface), name)
        if found.access == "read":
            raise Refusal("PropertyReadOnly", f"Property '{name}' is not writable.")
        if signature_of(value) != found.signature:
            raise Refusal("InvalidArgs", f"Incorrect parameters for property '{name}', expected '{found.signature}', "
                                         f"got '{signature_of(value)}'.")
        self.set_property(path, name, plain(value))

    def _on_get_all(self, _path, item, interface):
        if interface and interface not in item.declared.interfaces:
            raise Refusal("UnknownInterface", f"Unknown interface '{interface}'.")
        return item.variants(str(interface))

    def _on_get_managed_objects(self, path, _item):
        return {other: self.managed_interfaces(other) for other in self.objects if other.startswith(path + "/")}

    def managed_interfaces(self, path):
        """The interfaces of an object with their properties, as the object manager reports them."""
        item = self.objects[path]
        return {interface: item.variants(interface) for interface in item.declared.interfaces}

    def _on_introspect(self, path, item):
        return item.declared.introspect(self._children(path))


_STANDARD_BEHAVIOURS = {
    PROPERTIES: {"Get": Sibling._on_get, "Set": Sibling._on_set, "GetAll": Sibling._on_get_all},
    INTROSPECTABLE: {"Introspect": Sibling._on_introspect},
    PEER: {"Ping": lambda *_: None, "GetMachineId": lambda *_: _MACHINE_ID},
    OBJECT_MANAGER: {"GetManagedObjects": Sibling._on_get_managed_objects},
}
