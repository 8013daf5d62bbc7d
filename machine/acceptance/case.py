"""A case, and the unit that it is tried on."""

import json
import os
import subprocess
import time
from dataclasses import dataclass
from typing import Callable

from ..qemu import STICK
from ..sockets import Gone

CONTROLLER = ("com.tavilon.common.Controller1", "/com/tavilon/common/Controller1",
              "com.tavilon.common.Controller1.Control")
_SIMULATION = "com.tavilon.common.VirtualUnit1"
#: Seconds that something may take that is done at once on a board; an emulated one is slow, and shares its processors.
PATIENCE = 180
#: The same for programs in the machine that wait for an answer.
_PATIENT = {"SYSTEMD_BUS_TIMEOUT": str(PATIENCE)}


@dataclass(frozen=True)
class Case:
    """What is shown, and the state that it starts from; None for one that starts machines itself."""
    name: str
    run: Callable
    state: str


def collector(cases):
    """A decorator that makes a function a case of a list; its docstring is the name."""
    def case(state="ready"):
        def add(function):
            cases.append(Case(function.__doc__.strip().rstrip("."), function, state))
            return function
        return add
    return case


class Unit:
    """The machine during a case.  `packages` is the folder with the project's packages."""

    def __init__(self, image, packages, name):
        self._image, self.packages, self.name = image, packages, name
        self.machine = image.machine("test")
        self.seen = []

    def see(self, text):
        """Notes what was seen, for the table."""
        self.seen.append(text)

    # Life -------------------------------------------------------------------------------------------------------------

    def start(self, state):
        """Goes on where a state was kept."""
        self._image.start(self.machine, state)

    def prepare(self, enable=True):
        """Installs the packages, with the siblings; and starts the daemon unless told otherwise."""
        self._image.prepare(self.machine, self.packages, enable)

    def boot_again(self):
        """Cuts the power and boots."""
        self.sh("sync")
        self.machine.cut()
        self.machine.start()

    def stop(self):
        """Ends it."""
        self.machine.stop()

    def report(self):
        """What the journal ends with, for who looks for a failure."""
        try:
            return self.machine.run("journalctl", "-b", "-n", "60", "--no-pager", seconds=60)[1]
        except (Gone, TimeoutError, OSError):
            return "(the machine does not answer)\n"

    # Commands ---------------------------------------------------------------------------------------------------------

    def sh(self, script, stdin=b""):
        """The output of a script, which must succeed."""
        status, said, complaints = self.machine.run("sh", "-c", script, stdin=stdin, environment=_PATIENT)
        assert status == 0, f"status {status} of {script!r}: {said}{complaints}"
        return said.strip()

    def bytes_of(self, path):
        """A file's content."""
        status, data, complaints = self.machine.read("cat", path)
        assert status == 0, complaints.decode()
        return data

    def wait(self, script, seconds=PATIENCE):
        """Waits until a script succeeds; its output."""
        deadline = time.monotonic() + seconds
        while True:
            status, said, complaints = self.machine.run("sh", "-c", script, environment=_PATIENT)
            if status == 0:
                return said.strip()
            assert time.monotonic() < deadline, f"never came about: {script!r}: {said}{complaints}"
            time.sleep(0.2)

    def wait_for(self, condition, what, seconds=PATIENCE):
        """Waits until a function returns something, and returns that."""
        deadline = time.monotonic() + seconds
        while not (value := condition()):
            assert time.monotonic() < deadline, f"never came about: {what}"
            time.sleep(0.2)
        return value

    # The controller ---------------------------------------------------------------------------------------------------

    def _busctl(self, words):
        return self.machine.run("busctl", "--user", "--json=short", *map(str, words), environment=_PATIENT)

    def call(self, member, signature="", *arguments):
        """The values of a reply."""
        status, said, complaints = self._busctl(["call", *CONTROLLER, member, signature, "--", *arguments])
        assert status == 0, f"{member}: {complaints}"
        return json.loads(said).get("data", []) if said.strip() else []

    def refusal(self, member, signature="", *arguments):
        """The text of a call's refusal."""
        status, said, complaints = self._busctl(["call", *CONTROLLER, member, signature, "--", *arguments])
        assert status != 0, f"{member}: {said}"
        return complaints.strip()

    def get(self, name):
        """A property."""
        status, said, complaints = self._busctl(["get-property", *CONTROLLER, name])
        assert status == 0, f"{name}: {complaints}"
        return json.loads(said)["data"]

    def set(self, name, signature, value):
        """Sets one."""
        status, _, complaints = self._busctl(["set-property", *CONTROLLER, name, signature, "--", value])
        assert status == 0, f"{name}: {complaints}"

    def wait_service(self):
        """Waits until the controller answers."""
        self.wait(f"busctl --user get-property {' '.join(CONTROLLER)} MicEnabled")

    @property
    def pid(self):
        """The daemon's number; 0 without one."""
        return int(self.show("MainPID"))

    def show(self, name, service="controllerd.service"):
        """What systemd says of a service."""
        return self.sh(f"systemctl show --value -p {name} {service}")

    def follow_signals(self):
        """Notes the controller's signals from now on."""
        self.sh("systemd-run -q -u signals --setenv=DBUS_SESSION_BUS_ADDRESS sh -c "
                f"'exec busctl --user --json=short monitor {CONTROLLER[0]} >/run/signals 2>/run/signals.ready'; "
                "until grep -q Monitoring /run/signals.ready; do sleep 0.1; done")

    def signals(self, member):
        """The values of those that have come."""
        found = [json.loads(line) for line in self.sh("cat /run/signals").splitlines()]
        return [one["payload"]["data"] for one in found if one.get("type") == "signal" and one.get("member") == member]

    # The siblings -----------------------------------------------------------------------------------------------------

    def simulation(self, noun, member, signature="", *arguments):
        """Asks the siblings' control object for something; an empty noun is the whole."""
        path = "/" + _SIMULATION.replace(".", "/")
        status, said, complaints = self._busctl(
            ["call", _SIMULATION, f"{path}/{noun}".rstrip("/"), f"{_SIMULATION}.{noun.capitalize()}".rstrip("."),
             member, signature, "--", *arguments])
        assert status == 0, f"{noun} {member}: {complaints}"
        return json.loads(said).get("data", []) if said.strip() else []

    def calls(self, sibling, member):
        """The arguments of the calls that a sibling has got."""
        return [call[5] for call in self.simulation("", "Calls")[0] if (call[1], call[4]) == (sibling, member)]

    # Devices ----------------------------------------------------------------------------------------------------------

    def plug_stick(self):
        """Plugs the stick in; returns when the siblings know of it."""
        self.machine.plug_stick(os.path.join(self.machine.folder, STICK))
        self.wait_device("card")

    def wait_device(self, name, there=True):
        """Waits until the storage daemon has a device, or has it no more."""
        look = f"busctl --user tree --list com.tavilon.common.StorageDaemon1 | grep -q /{name}$"
        self.wait(look if there else f"! {look}")


def host(*command):
    """The output of a command of this machine."""
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
