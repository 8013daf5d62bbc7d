"""The machine as a process: QEMU's "virt" board with the devices of a unit, without need of privileges."""

import contextlib
import os
import signal
import subprocess
import time

from .sockets import Gone, Monitor, Order

PROGRAM = "qemu-system-aarch64"
MEMORY = 1024
#: Four times faster than with pointer authentication, which nobody here tests.
BOARD = ["-M", "virt,gic-version=2", "-cpu", "max,pauth=off", "-smp", "2", "-m", str(MEMORY)]
_DEVICES = ["pcie-root-port,id=slot0,chassis=1,slot=1", "qemu-xhci,id=usb", "virtio-keyboard-pci,id=keypad",
            "virtio-rng-pci", "virtio-serial-pci", "virtserialport,chardev=agent,name=ccu.agent"]
_KERNEL = ("console=ttyAMA0 root=/dev/vda rw net.ifnames=0 panic=-1 mitigations=off audit=0 "
           "random.trust_cpu=on")
#: Where QEMU finds the stick that is plugged in.
STICK = "stick.img"


class Machine:
    """One that runs, or not, in a folder of its own.  `parts` is the folder with kernel, initrd and device tree."""

    def __init__(self, parts, folder):
        self._parts, self.folder = parts, folder

    def _at(self, name):
        return os.path.join(self.folder, name)

    # Life -------------------------------------------------------------------------------------------------------------

    def start(self, disk=None, state=None, kernel="", agent=True):
        """Starts from a disk, which stays as it is, or without one from its own of the last time; goes on where a state
        was saved, or boots."""
        os.makedirs(self.folder, exist_ok=True)
        if disk is not None:
            subprocess.run(["qemu-img", "create", "-q", "-f", "qcow2", "-b", os.path.abspath(disk), "-F",
                            "raw" if disk.endswith(".img") else "qcow2", self._at("disk.qcow2")], check=True)
        command = [
            PROGRAM, *BOARD, "-accel", "tcg,thread=multi,tb-size=512", "-nodefaults", "-display", "none", "-no-reboot",
            "-kernel", os.path.join(self._parts, "vmlinuz"), "-initrd", os.path.join(self._parts, "initrd.gz"),
            "-dtb", os.path.join(self._parts, "board.dtb"), "-append", f"{_KERNEL} {kernel}",
            "-drive", "file=disk.qcow2,format=qcow2,if=none,id=disk,cache=unsafe",
            "-device", "virtio-blk-pci,drive=disk",
            "-chardev", "socket,id=console,path=console,server=on,wait=off,logfile=console.log",
            "-serial", "chardev:console", "-chardev", "socket,id=agent,path=agent,server=on,wait=off",
            "-qmp", "unix:monitor,server=on,wait=off"]
        for device in _DEVICES:
            command += ["-device", device]
        if state:
            command += ["-incoming", f"exec:cat '{os.path.abspath(state)}'"]
        with open(self._at("qemu.log"), "w", encoding="utf-8") as log:
            process = subprocess.Popen(  # pylint: disable=consider-using-with
                command, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        with open(self._at("pid"), "w", encoding="utf-8") as file:
            file.write(str(process.pid))
        try:
            self._wait_running(process)
            if agent:
                self.order(clock=time.time())
        except BaseException:
            self.stop()
            raise
        return process

    def _wait_running(self, process):
        while True:
            with contextlib.suppress(Gone):
                with Monitor(self.folder) as monitor:
                    while (status := monitor.do("query-status")["status"]) != "running":
                        if status in ("paused", "postmigrate"):  # as it was when it was saved
                            monitor.do("cont")
                        time.sleep(0.05)
                return
            if process.poll() is not None:
                with open(self._at("qemu.log"), encoding="utf-8") as log:
                    raise Gone(f"{PROGRAM} has ended: {log.read()}")
            time.sleep(0.05)

    @property
    def pid(self):
        """Number of the process; None when none runs."""
        with contextlib.suppress(OSError, ValueError):
            with open(self._at("pid"), encoding="utf-8") as file:
                pid = int(file.read())
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                if os.path.basename(file.read().split(b"\0")[0]) == PROGRAM.encode() and \
                        os.path.samefile(f"/proc/{pid}/cwd", self.folder):
                    return pid
        return None

    def stop(self):
        """Ends it at once, and waits until it has ended."""
        pid = self.pid
        if pid is None:
            return
        os.kill(pid, signal.SIGKILL)
        with contextlib.suppress(ChildProcessError):
            os.waitpid(pid, 0)
        while self.pid is not None:
            time.sleep(0.02)

    def save(self, state):
        """Keeps the running machine's state in a file, to be started from with its disk, and ends it."""
        with Monitor(self.folder) as monitor:
            monitor.do("stop")
            monitor.do("migrate-set-parameters", **{"max-bandwidth": 1 << 40})
            monitor.do("migrate", uri=f"exec:cat >'{os.path.abspath(state)}'")
            while (status := monitor.do("query-migrate").get("status")) != "completed":
                if status in ("failed", "cancelled"):
                    raise RuntimeError(f"the machine's state cannot be saved: {status}")
                time.sleep(0.1)
        self.cut()

    def cut(self):
        """Cuts its power: its disk keeps what it was given, which `stop` cannot promise."""
        pid = self.pid
        with Monitor(self.folder) as monitor:
            monitor.do("quit")
        while self.pid is not None:
            with contextlib.suppress(ChildProcessError):
                os.waitpid(pid, os.WNOHANG)
            time.sleep(0.02)

    # Commands in it ---------------------------------------------------------------------------------------------------

    def order(self, seconds=600, **order):
        """Has the agent do something; its status."""
        with Order(self.folder, **order) as made:
            deadline = time.monotonic() + seconds
            while True:
                for name, value in made.hear(deadline):
                    if name == "status":
                        return value

    def read(self, *command, stdin=b"", seconds=600, environment=None):
        """Runs a command; its status, and the bytes that it has written to each of its outputs."""
        told = {"out": b"", "err": b""}
        with Order(self.folder, run=list(command), environment=environment or {}) as made:
            for start in range(0, len(stdin), 32768):
                made.feed(stdin[start:start + 32768])
            made.feed(b"", last=True)
            deadline = time.monotonic() + seconds
            while True:
                for name, value in made.hear(deadline):
                    if name == "status":
                        return value, told["out"], told["err"]
                    told[name] += value

    def run(self, *command, **options):
        """The same, with what was written as text."""
        status, said, complaints = self.read(*command, **options)
        return status, said.decode(errors="replace"), complaints.decode(errors="replace")

    # Devices ----------------------------------------------------------------------------------------------------------

    def plug_stick(self, image):
        """Plugs a stick in, whose content is a file."""
        with Monitor(self.folder) as monitor:
            monitor.do("blockdev-add", driver="raw", **{"node-name": "stick"},
                       file={"driver": "file", "filename": os.path.abspath(image), "cache": {"no-flush": True}})
            monitor.do("device_add", driver="usb-storage", id="stick", drive="stick", bus="usb.0")

    def pull_stick(self):
        """Pulls it out, whoever writes to it."""
        with Monitor(self.folder) as monitor:
            monitor.do("device_del", id="stick")
            while True:
                with contextlib.suppress(RuntimeError):
                    monitor.do("blockdev-del", **{"node-name": "stick"})
                    return
                time.sleep(0.05)

    def plug_keyboard(self):
        """Plugs a second keyboard in."""
        with Monitor(self.folder) as monitor:
            monitor.do("device_add", driver="usb-kbd", id="keyboard", bus="usb.0")

    def unplug_keyboard(self):
        """Pulls it out."""
        with Monitor(self.folder) as monitor:
            monitor.do("device_del", id="keyboard")

    def key(self, code, events=(True, False)):
        """Presses and releases a key, by its number on QEMU's keyboards; the last keyboard that came has it."""
        with Monitor(self.folder) as monitor:
            for down in events:
                monitor.do("input-send-event", events=[
                    {"type": "key", "data": {"down": down, "key": {"type": "number", "data": code}}}])

    def memory(self, address, size):
        """What stands in the board's memory."""
        path = self._at("memory")
        with Monitor(self.folder) as monitor:
            monitor.do("pmemsave", val=address, size=size, filename=os.path.abspath(path))
        with open(path, "rb") as file:
            data = file.read()
        os.remove(path)
        return data


def dump_tree(path):
    """QEMU's own device tree of the board into a file."""
    subprocess.run([PROGRAM, *BOARD[:1], f"{BOARD[1]},dumpdtb={path}", *BOARD[2:], "-nodefaults", "-display", "none"],
                   check=True, capture_output=True)
