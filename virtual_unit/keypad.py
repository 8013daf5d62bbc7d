"""The input devices of the unit: a keypad, and other devices beside it, which the daemon's libudev and libinput find.

The devices are a tree of files (sysfs, udev's database, the nodes) that two preloaded libraries put in the place of the
machine's own: umockdev's, and `preload/keypad.c` for what that one leaves out.
"""

import array
import fcntl
import glob
import os
import select
import shutil
import socket
import struct
import termios
import threading
import time

from .patience import PATIENCE

KEYBOARD, POINTER = "keyboard", "pointer"
_FOLDER = "input"
_POLL_SECONDS = 0.001

_EV_SYN, _EV_KEY, _EV_REL, _EV_REP = 0, 1, 2, 20
_REL_X, _REL_Y, _BTN_LEFT, _BTN_RIGHT = 0, 1, 0x110, 0x111
_RELEASED, _PRESSED, _REPEATED = 0, 1, 2

#: What a device tells of itself, by the type of events (0: the types): the codes that it has.
_CODES = {KEYBOARD: {0: (_EV_SYN, _EV_KEY, _EV_REP), _EV_KEY: range(1, 249)},
          POINTER: {0: (_EV_SYN, _EV_KEY, _EV_REL), _EV_KEY: (_BTN_LEFT, _BTN_RIGHT), _EV_REL: (_REL_X, _REL_Y)}}
#: What udev has found out about a device.
_PROPERTIES = {KEYBOARD: ("ID_INPUT=1", "ID_INPUT_KEY=1", "ID_INPUT_KEYBOARD=1"),
               POINTER: ("ID_INPUT=1", "ID_INPUT_MOUSE=1")}

#: Device number of event0: 13:64.
_FIRST_MINOR = 64

_EVENT = struct.Struct("@qqHHi")
#: Events that are written at once: as many as a pipe takes whole or not at all.
_CHUNK = select.PIPE_BUF // _EVENT.size * _EVENT.size

#: Head of udev's messages: prefix, magic number, sizes of the head, offset and length of the properties, hashes.
_MESSAGE = struct.Struct("=8s4sIII4sIII")


def _hash(text, mask=0xffffffff):
    """MurmurHash2, by which udev's messages are filtered."""
    data, multiplier = text.encode(), 0x5bd1e995
    value = len(data)
    whole = len(data) // 4 * 4
    for position in range(0, whole, 4):
        word = int.from_bytes(data[position:position + 4], "little") * multiplier & mask
        word = (word ^ word >> 24) * multiplier & mask
        value = value * multiplier & mask ^ word
    if data[whole:]:
        value = (value ^ int.from_bytes(data[whole:], "little")) * multiplier & mask
    value = (value ^ value >> 13) * multiplier & mask
    return value ^ value >> 15


def _write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data if isinstance(data, bytes) else data.encode())


def _link(path, target):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    os.symlink(os.path.relpath(target, os.path.dirname(path)), path)


def _bits(codes):
    return sum(1 << code for code in codes).to_bytes(max(codes) // 64 * 8 + 8, "little")


def _waiting(file, question):
    """Number of bytes that wait for their reader, by the ioctl(2) that asks for it."""
    count = array.array("i", [0])
    fcntl.ioctl(file, question, count)
    return count[0]


class InputDevice:
    """One device, /dev/input/eventNUMBER, on a seat; plugged in by `InputDevices.add`."""

    def __init__(self, root, number, kind, name, seat):
        self.number, self.kind, self.name = number, kind, name
        self.plugged = False
        #: The codes of the keys that are down.
        self.down = set()
        #: Called with the name and arguments of what is about to happen.
        self.tell = lambda *_happening: None
        self._root = root
        self._input = f"/devices/platform/input{number}/input/input{number}"
        self._path = f"{self._input}/event{number}"
        self._properties = _PROPERTIES[kind] + (("ID_SEAT=" + seat,) if seat != "seat0" else ())
        self._sequence = 0
        self._announcement = None
        self._lock = threading.Lock()

    # Presence ---------------------------------------------------------------------------------------------------------

    @property
    def node(self):
        """The file that stands for the device's node."""
        return f"{self._root}/dev/input/event{self.number}"

    def _files(self):
        """Every path that is the device's own, folders with all that is in them."""
        number = f"13:{_FIRST_MINOR + self.number}"
        return [f"{self._root}{path}" for path in (
            f"/sys/devices/platform/input{self.number}", f"/sys/class/input/input{self.number}",
            f"/sys/class/input/event{self.number}", f"/sys/dev/char/{number}", f"/run/udev/data/c{number}",
            f"/dev/.node/input_event{self.number}", f"/dev/input/event{self.number}", f"/evdev/event{self.number}")]

    def plug(self):
        """The device is there from now on."""
        self.tell("plug")
        root, system, minor = self._root, f"{self._root}/sys", _FIRST_MINOR + self.number
        lines = "".join(f"{line}\n" for line in self._properties)
        _write(f"{system}{self._input}/uevent", lines)
        _write(f"{system}{self._input}/name", f"{self.name}\n")
        _write(f"{system}{self._path}/uevent", f"MAJOR=13\nMINOR={minor}\nDEVNAME=input/event{self.number}\n{lines}")
        _write(f"{system}{self._path}/dev", f"13:{minor}\n")
        for path in (self._input, self._path):
            _link(f"{system}{path}/subsystem", f"{system}/class/input")
            _link(f"{system}/class/input/{os.path.basename(path)}", f"{system}{path}")
        _link(f"{system}/dev/char/13:{minor}", f"{system}{self._path}")
        _write(f"{root}/run/udev/data/c13:{minor}", "I:1\n" + "".join(f"E:{line}\n" for line in self._properties))
        _write(f"{root}/evdev/event{self.number}/name0", f"{self.name}\0")
        for kind, codes in _CODES[self.kind].items():
            _write(f"{root}/evdev/event{self.number}/bits{kind}", _bits(codes))
        os.makedirs(f"{root}/dev/.node", exist_ok=True)
        os.symlink(f"13:{minor}", f"{root}/dev/.node/input_event{self.number}")
        os.makedirs(os.path.dirname(self.node), exist_ok=True)
        os.mkfifo(self.node, 0o600)
        self.plugged = True
        self._announce("add")

    def unplug(self):
        """The device is pulled out."""
        self.tell("unplug")
        for path in self._files():
            if os.path.isdir(path) and not os.path.islink(path):
                shutil.rmtree(path)
            else:
                os.unlink(path)
        self.plugged = False
        self._announce("remove")

    def _announce(self, action):
        """Sends udev's message to all who listen for such: each has a socket in the folder."""
        self._sequence += 1
        lines = (f"ACTION={action}", f"DEVPATH={self._path}", "SUBSYSTEM=input", f"SEQNUM={self._sequence}",
                 f"DEVNAME=/dev/input/event{self.number}", "MAJOR=13", f"MINOR={_FIRST_MINOR + self.number}",
                 "USEC_INITIALIZED=1", *self._properties)
        body = "".join(f"{line}\0" for line in lines).encode()
        head = _MESSAGE.pack(b"libudev\0", b"\xfe\xed\xca\xfe", _MESSAGE.size, _MESSAGE.size, len(body),
                             _hash("input").to_bytes(4, "big"), 0, 0, 0)
        self._announcement = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        for listener in glob.glob(f"{self._root}/event[0-9]*"):
            try:
                self._announcement.sendto(head + body, listener)
            except ConnectionRefusedError:  # of a process that has ended
                os.unlink(listener)

    # Events -----------------------------------------------------------------------------------------------------------

    @property
    def opened(self):
        """True while somebody has the device open.  What happens before is seen by nobody."""
        try:
            os.close(os.open(self.node, os.O_WRONLY | os.O_NONBLOCK | os.O_CLOEXEC))
        except OSError:
            return False
        return True

    @property
    def unread(self):
        """Number of events that nobody has read yet."""
        try:
            pipe = os.open(self.node, os.O_WRONLY | os.O_NONBLOCK | os.O_CLOEXEC)
        except OSError:  # nobody has it open: there is nothing in it
            return 0
        try:
            return _waiting(pipe, termios.FIONREAD) // _EVENT.size
        finally:
            os.close(pipe)

    @property
    def unheard(self):
        """True while somebody who listens has not heard yet that the device has come or gone."""
        return self._announcement is not None and _waiting(self._announcement, termios.TIOCOUTQ) > 0

    def emit(self, *events, timeout=PATIENCE):
        """Events, each a type, code and value, all of this moment.  A device whose reader is too slow for it waits,
        where a real one forgets."""
        now = time.monotonic_ns()
        seconds, rest = divmod(now, 1_000_000_000)
        data = b"".join(_EVENT.pack(seconds, rest // 1000, *event) for event in events)
        deadline = time.monotonic() + timeout
        with self._lock:
            pipe = os.open(self.node, os.O_WRONLY | os.O_NONBLOCK | os.O_CLOEXEC)
            try:
                for start in range(0, len(data), _CHUNK):
                    self._write_whole(pipe, data[start:start + _CHUNK], deadline)
            finally:
                os.close(pipe)

    @staticmethod
    def _write_whole(pipe, chunk, deadline):
        while True:
            try:
                os.write(pipe, chunk)
                return
            except BlockingIOError:
                left = deadline - time.monotonic()
                if left <= 0:
                    raise TimeoutError("nobody reads the input device") from None
                select.select([], [pipe], [], left)


class Keypad(InputDevice):
    """A device with keys, whose codes are those of the kernel's input-event-codes.h."""

    @classmethod
    def of_unit(cls, directory):
        """The keypad of the unit that has the folder, which can be another process's."""
        return cls(os.path.join(directory, _FOLDER), 0, KEYBOARD, "", "seat0")

    def key(self, code, value):
        """One event of a key."""
        self.tell("key", code, value)
        (self.down.add if value else self.down.discard)(code)
        self.emit((_EV_KEY, code, value), (_EV_SYN, 0, 0))

    def press(self, code):
        """A key goes down."""
        self.key(code, _PRESSED)

    def release(self, code):
        """A key goes up."""
        self.key(code, _RELEASED)

    def repeat(self, code):
        """A key that is held down repeats."""
        self.key(code, _REPEATED)

    def type(self, codes):
        """Keys are pressed and released, one after the other, as fast as they are read."""
        self.tell("type", list(codes))
        self.down.difference_update(codes)
        self.emit(*(event for code in codes for value in (_PRESSED, _RELEASED)
                    for event in ((_EV_KEY, code, value), (_EV_SYN, 0, 0))))


class Pointer(InputDevice):
    """A mouse, with events that are nobody's business."""

    def move(self, right, down):
        """The mouse is moved."""
        self.emit((_EV_REL, _REL_X, right), (_EV_REL, _REL_Y, down), (_EV_SYN, 0, 0))

    def click(self):
        """The left button goes down and up."""
        for value in (_PRESSED, _RELEASED):
            self.emit((_EV_KEY, _BTN_LEFT, value), (_EV_SYN, 0, 0))


class InputDevices:
    """All of the unit's input devices.  The first is the keypad; there are no others until they are added."""

    def __init__(self, directory):
        self.directory = os.path.join(directory, _FOLDER)
        for path in ("sys/bus", "sys/class/input", "sys/dev/char", "dev/input", "run/udev/data"):
            os.makedirs(os.path.join(self.directory, path))
        _write(os.path.join(self.directory, "run/udev/control"), "")  # udev runs
        self._devices = []
        self.keypad = self.add(KEYBOARD, "Unit Keypad")

    @property
    def environment(self):
        """What the preloaded libraries have to know."""
        # udev asks for true names.
        return {"UMOCKDEV_DIR": os.path.realpath(self.directory), "CCU_INPUT": self.directory}

    def add(self, kind, name, seat="seat0"):
        """Plugs one more device in, of KEYBOARD or POINTER kind."""
        classes = {KEYBOARD: Keypad, POINTER: Pointer}
        device = classes[kind](self.directory, len(self._devices), kind, name, seat)
        device.plug()
        self._devices.append(device)
        return device

    def wait_read(self, timeout=PATIENCE):
        """Waits until every event has been read by those who have the devices open, and those who listen have heard of
        every device that has come or gone."""
        deadline = time.monotonic() + timeout
        while any(device.unread or device.unheard for device in self._devices):
            if time.monotonic() > deadline:
                raise TimeoutError(f"the events of the input devices were not read within {timeout} s")
            time.sleep(_POLL_SECONDS)
