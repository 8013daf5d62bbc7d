"""A bus of a unit that replays a trace: one connection has all siblings' names and is every client."""

import select

from jeepney import DBusAddress, HeaderFields, Message, MessageFlag, new_method_call
from jeepney.io.blocking import open_dbus_connection
from jeepney.low_level import Endianness, Header

from ..client import PATH as CONTROLLER_PATH
from ..patience import PATIENCE
from .file import SESSION

BUS = DBusAddress("/org/freedesktop/DBus", "org.freedesktop.DBus", "org.freedesktop.DBus")


class Bus:
    """One connection, with the names of the siblings of its bus."""

    def __init__(self, name, address):
        self.name = name
        self.connection = open_dbus_connection(address)
        self.expected = []
        self.pings = set()
        self.requests = {}

    def take(self, services):
        """Takes the siblings' names, and listens to the controller."""
        for service in services:
            self.ask("RequestName", "su", (service, 0))  # or queues behind the one that is just closing its connection
        if self.name == SESSION:
            self.ask("AddMatch", "s", (f"type='signal',path_namespace='{CONTROLLER_PATH}'",))

    def ask(self, member, signature=None, body=()):
        """Asks the bus itself; what else comes meanwhile is lost."""
        return self.connection.send_and_get_reply(new_method_call(BUS, member, signature, body), timeout=PATIENCE).body

    def send(self, kind, fields, signature, body, flags=MessageFlag(0)):
        """Sends a message; returns its number."""
        fields = {key: value for key, value in fields.items() if value is not None}
        if signature:
            fields[HeaderFields.signature] = signature
        serial = next(self.connection.outgoing_serial)
        header = Header(Endianness.little, kind, flags, 1, 0, serial, fields)
        self.connection.send(Message(header, body), serial=serial)
        return serial

    def received(self):
        """The messages that have come."""
        parser = self.connection.parser
        while select.select([self.connection.sock], [], [], 0)[0]:
            chunk = self.connection.sock.recv(65536)
            if not chunk:
                raise ConnectionResetError("the bus has ended")
            parser.add_data(chunk)
        return list(iter(parser.get_next_message, None))
