"""A bus client for tests and the demo, on a connection of its own."""

import threading
from concurrent.futures import Future
from dataclasses import dataclass

import dbus
import dbus.bus
import dbus.lowlevel

from .declaration import INTROSPECTABLE, PEER, PROPERTIES
from .loop import on_loop, shared_loop
from .patience import PATIENCE
from .values import Typed, append, plain

SERVICE = "com.tavilon.common.Controller1"
PATH = "/com/tavilon/common/Controller1"
INTERFACE = "com.tavilon.common.Controller1.Control"

_BUS = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")


class DbusFailure(Exception):
    """A call that was answered with an error, or with nothing in time."""

    def __init__(self, name, text):
        super().__init__(f"{name}: {text}")
        self.name = name
        self.text = text


@dataclass(frozen=True)
class Reply:
    """What a call was answered: the reply's signature and its plain values."""
    signature: str
    args: tuple


@dataclass(frozen=True)
class Signal:
    """One received signal; `sender` is the unique name of the emitting connection."""
    member: str
    interface: str
    args: tuple
    sender: str
    signature: str = ""


class Client:
    """Calls a service (the controller by default) and collects the signals of its object.

    Replies and signals come over one connection: when a call has returned, every signal that the service sent before
    its reply is already in `signals`.
    """

    def __init__(self, address, service=SERVICE, path=PATH, interface=INTERFACE):
        self.service, self.path, self.interface = service, path, interface
        self.signals = []
        #: Answers that no call waits for: a second one to the same call.
        self.strays = []
        self._changed = threading.Condition()
        self._connection = None
        self._pids = {}
        #: What takes the answers that have not come yet, by the serial numbers of the calls.
        self._waiting = {}
        self._connect(address)

    @on_loop
    def _connect(self, address):
        connection = dbus.bus.BusConnection(address, mainloop=shared_loop().dbus_loop)
        connection.set_exit_on_disconnect(False)
        connection.add_message_filter(self._filter)
        connection.add_match_string(f"type='signal',path='{self.path}'")
        self._connection = connection

    @on_loop
    def close(self):
        """Drops the connection; calls still on their way fail."""
        connection, self._connection = self._connection, None
        if connection is not None:
            connection.close()

    def _filter(self, _connection, message):
        if message.get_type() in (dbus.lowlevel.MESSAGE_TYPE_METHOD_RETURN, dbus.lowlevel.MESSAGE_TYPE_ERROR):
            answered = self._waiting.pop(message.get_reply_serial(), None)
            if answered is not None:  # the bus library does not tell what waits when the bus has gone
                answered(message)
                return dbus.lowlevel.HANDLER_RESULT_HANDLED
            self.strays.append(tuple(plain(argument) for argument in message.get_args_list()))
        if message.get_type() == dbus.lowlevel.MESSAGE_TYPE_SIGNAL and message.get_path() == self.path:
            signal = Signal(message.get_member(), message.get_interface(),
                            tuple(plain(argument) for argument in message.get_args_list()), message.get_sender(),
                            str(message.get_signature()))
            with self._changed:
                self.signals.append(signal)
                self._changed.notify_all()
        return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED

    # Calls ------------------------------------------------------------------------------------------------------------

    @on_loop
    def request(self, service, path, interface, member, signature="", *arguments, timeout=PATIENCE):
        """Sends a call and returns a Future of its Reply; an error reply is the future's DbusFailure."""
        future = Future()
        message = dbus.lowlevel.MethodCallMessage(service, path, interface, member)
        append(message, signature, arguments)

        def answered(reply):
            self._waiting.pop(reply.get_reply_serial(), None)
            values = tuple(plain(argument) for argument in reply.get_args_list())
            if reply.get_type() == dbus.lowlevel.MESSAGE_TYPE_ERROR:
                future.set_exception(DbusFailure(reply.get_error_name(), values[0] if values else ""))
            else:
                future.set_result(Reply(str(reply.get_signature()), values))

        if self._connection is None:
            raise DbusFailure("org.freedesktop.DBus.Error.Disconnected", "the client is closed")
        self._connection.send_message_with_reply(message, answered, timeout)
        self._waiting[message.get_serial()] = answered
        return future

    def call_on(self, service, path, interface, member, signature="", *arguments, timeout=PATIENCE):
        """Calls any object and returns the tuple of the reply's plain values."""
        if shared_loop().is_current:
            raise RuntimeError("a blocking call on the loop thread would never be answered")
        return self.request(service, path, interface, member, signature, *arguments,
                            timeout=timeout).result(timeout + 5).args

    def call(self, member, signature="", *arguments, timeout=PATIENCE):
        """Calls a method of the interface and returns the tuple of the reply's plain values."""
        return self.call_on(self.service, self.path, self.interface, member, signature, *arguments, timeout=timeout)

    def call_async(self, member, signature="", *arguments, timeout=PATIENCE):
        """Like `call`, without waiting: returns a Future of the Reply."""
        return self.request(self.service, self.path, self.interface, member, signature, *arguments, timeout=timeout)

    def get(self, name, timeout=PATIENCE):
        """Reads a property."""
        return self.call_on(self.service, self.path, PROPERTIES, "Get", "ss", self.interface, name, timeout=timeout)[0]

    def get_all(self, timeout=PATIENCE):
        """Reads all properties of the interface."""
        return self.call_on(self.service, self.path, PROPERTIES, "GetAll", "s", self.interface, timeout=timeout)[0]

    def set(self, name, signature, value, timeout=PATIENCE):
        """Writes a property as a value of the given type."""
        self.call_on(self.service, self.path, PROPERTIES, "Set", "ssv", self.interface, name, Typed(signature, value),
                     timeout=timeout)

    def introspect(self, timeout=PATIENCE):
        """Introspection text of the object."""
        return self.call_on(self.service, self.path, INTROSPECTABLE, "Introspect", timeout=timeout)[0]

    # Signals ----------------------------------------------------------------------------------------------------------

    @property
    def announced(self):
        """The signals of the interface itself: all but changes of properties, some of which come with every start."""
        with self._changed:
            return [signal for signal in self.signals if signal.interface == self.interface]

    def wait_signal(self, member, count=1, timeout=PATIENCE):
        """Waits until that many signals of the name have come since the last `clear`; returns the count-th of them."""

        def found():
            return [signal for signal in self.signals if signal.member == member]

        with self._changed:
            if not self._changed.wait_for(lambda: len(found()) >= count, timeout):
                raise TimeoutError(f"{count} x {member} not seen within {timeout} s; signals were: {self.signals}")
            return found()[count - 1]

    def wait_until(self, condition, timeout=PATIENCE):
        """Waits, until the time is over, for signals that make the condition hold; returns what it returned last."""
        with self._changed:
            return self._changed.wait_for(condition, timeout)

    def sync(self, timeout=PATIENCE):
        """Waits until every signal that the service has already sent is in `signals`.

        The ping travels through the service's own queue; where nobody owns the name the bus answers instead.  Raises
        TimeoutError when there is no answer in time.
        """
        try:
            self.call_on(self.service, "/", PEER, "Ping", timeout=timeout)
        except DbusFailure as failure:
            if failure.name.endswith(".NoReply"):
                raise TimeoutError(f"{self.service} did not answer a ping within {timeout} s") from failure

    def clear(self):
        """Forgets the signals received so far."""
        with self._changed:
            self.signals.clear()

    # Bus --------------------------------------------------------------------------------------------------------------

    def call_bus(self, member, signature="", *arguments):
        """Calls the bus itself; returns the first value of the reply."""
        return self.call_on(*_BUS, member, signature, *arguments)[0]

    def names(self):
        """All names on the bus."""
        return self.call_bus("ListNames")

    def connections_of(self, pid):
        """The unique names of a process's connections."""
        return [name for name in self.names() if name.startswith(":") and self._pid_of(name) == pid]

    def _pid_of(self, name):
        """The process of a connection, -1 when it is gone; asked once, since the bus gives each name only once."""
        if name not in self._pids:
            try:
                self._pids[name] = self.call_bus("GetConnectionUnixProcessID", "s", name)
            except DbusFailure:
                self._pids[name] = -1
        return self._pids[name]
