"""Makes the machine, once: Debian's own packages and kernel for arm64, a device tree, and two states to start from.

`base`   Debian, up and running, before any package of the project is installed
`ready`  the same with the packages installed by apt, the siblings on the user bus, and the daemon running

Each is a disk and a file with the running machine's state.  What is there stays until what it was made from changes.
"""

import contextlib
import fcntl
import glob
import gzip
import hashlib
import io
import os
import re
import shutil
import subprocess
import sys
import tarfile
import time

from . import qemu, tree

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
#: What the initial root needs to reach the disk.
_FIRST_MODULES = ("virtio_pci", "virtio_blk", "ext4", "crc32c_generic")
#: What the parts of the board are made from; a change of one makes all of them anew.
_SOURCES = ("machine/tree.py", "machine/qemu.py", "machine/image.py", "machine/board/*")
#: What the machine gets of the project besides its packages.
_SIMULATION = ("machine/__init__.py", "machine/siblings.py", "machine/siblings.service", "machine/session-local.conf",
               "virtual_unit/*.py", "virtual_unit/*.tsv", "virtual_unit/interfaces/*", "interfaces/*.py",
               "interfaces/*.xml")


class Failure(Exception):
    """The machine cannot be made."""


def _digest(names, base=ROOT):
    digest = hashlib.sha256()
    for path in sorted(found for name in names for found in glob.glob(os.path.join(base, name))):
        with open(path, "rb") as file:
            digest.update(os.path.relpath(path, base).encode() + b"\0" + hashlib.sha256(file.read()).digest())
    return digest.hexdigest()


def _guest_packages():
    with open(os.path.join(tree.BOARD, "packages.txt"), encoding="utf-8") as file:
        return [line.strip() for line in file if line.strip() and not line.startswith("#")]


class Step:
    """Says what is done, and how long it has taken."""

    def __init__(self, text):
        self._text, self._began = text, 0.0

    def __enter__(self):
        self._began = time.monotonic()
        print(f"{self._text} ... ", end="", file=sys.stderr, flush=True)

    def __exit__(self, kind, *_):
        ending = "failed after" if kind else "done in"
        print(f"{ending} {time.monotonic() - self._began:.0f} s", file=sys.stderr, flush=True)


class Image:
    """The folder in which the machine is made."""

    def __init__(self, folder):
        self.folder = os.path.abspath(folder)

    def at(self, *path):
        """A path in it."""
        return os.path.join(self.folder, *path)

    def machine(self, name="run"):
        """A machine of this image."""
        return qemu.Machine(self.folder, self.at(name))

    @property
    def is_there(self):
        """Whether it has been made, of whatever."""
        return os.path.exists(self.at("ready.key"))

    @contextlib.contextmanager
    def _locked(self):
        os.makedirs(self.folder, exist_ok=True)
        with open(self.at("lock"), "w", encoding="utf-8") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            yield

    def _is_made(self, name, key):
        with contextlib.suppress(OSError):
            with open(self.at(f"{name}.key"), encoding="utf-8") as file:
                return file.read() == key
        return False

    def _forget(self, *names):
        """What is not whole is not there; and a machine that runs would lose its disk."""
        self.machine().stop()
        for name in names:
            with contextlib.suppress(FileNotFoundError):
                os.remove(self.at(f"{name}.key"))

    def _note(self, name, key):
        with open(self.at(f"{name}.key"), "w", encoding="utf-8") as file:
            file.write(key)

    # Parts ------------------------------------------------------------------------------------------------------------

    def make(self, packages):
        """Makes what is not there or not of today, with the packages of a folder."""
        if not glob.glob(os.path.join(packages, "*.deb")):
            raise Failure(f"no packages in {packages}")
        with self._locked():
            base, ready = _digest(_SOURCES), _digest(_SIMULATION) + _digest(["*.deb"], packages)
            if not self._is_made("base", base):
                self._forget("base", "ready")
                self._make_base()
                self._note("base", base)
            if not self._is_made("ready", base + ready):
                self._forget("ready")
                with Step("Installing the packages in the machine"):
                    self._make_ready(packages)
                self._note("ready", base + ready)

    def _make_base(self):
        with Step("Fetching Debian's packages for arm64"):
            self._fetch()
        with Step("Making the board and its disk"):
            self._make_board()
            self._make_disk()
        with Step("Letting the packages configure themselves in the machine"):
            self._configure()
        with Step("Starting the machine, to keep it running in a file"):
            self._keep("base", self.at("root.img"), None)

    def _fetch(self):
        for name in ("lists/partial", "cache/archives/partial"):
            os.makedirs(self.at("apt", name), exist_ok=True)
        for name in ("status", "apt.conf"):
            with open(self.at("apt", name), "w", encoding="utf-8") as file:
                if name == "apt.conf":
                    file.write('APT::Architecture "arm64"; APT::Architectures { "arm64"; }; '
                               f'Acquire::Languages "none"; Dir::State::Lists "{self.at("apt/lists")}"; '
                               f'Dir::State::status "{self.at("apt/status")}"; Dir::Cache "{self.at("apt/cache")}"; '
                               'APT::Install-Recommends "false"; APT::Sandbox::User ""; Debug::NoLocking "true";')
        apart = {**os.environ, "APT_CONFIG": self.at("apt/apt.conf"), "LC_ALL": "C.UTF-8"}

        def apt(*command):
            return subprocess.run(command, env=apart, cwd=self.folder, check=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True).stdout

        try:
            apt("apt-get", "-qq", "update")
            kernel = next(line.split()[1] for line in apt("apt-cache", "depends", "linux-image-arm64").splitlines()
                          if "Depends:" in line)
            for path in glob.glob(self.at("*.deb")):
                os.remove(path)
            apt("apt-get", "-qq", "-y", "--download-only", "install", *_guest_packages())
            apt("apt-get", "-qq", "download", kernel, "busybox-static")
        except subprocess.CalledProcessError as error:
            raise Failure(f"{' '.join(error.cmd)}: {error.output}") from error

    def _make_board(self):
        for name in ("kernel", "busybox"):
            shutil.rmtree(self.at(name), ignore_errors=True)
        for name, package in (("kernel", "linux-image-*.deb"), ("busybox", "busybox-static_*.deb")):
            subprocess.run(["dpkg-deb", "-x", glob.glob(self.at(package))[0], self.at(name)], check=True)
        version = tree.version_of(self.at("kernel"))
        shutil.copy(self.at("kernel/boot", f"vmlinuz-{version}"), self.at("vmlinuz"))
        subprocess.run(["depmod", "-b", self.at("kernel"), version], check=True)
        self._make_initrd(version)
        qemu.dump_tree(self.at("qemu.dtb"))
        source = subprocess.run(["dtc", "-q", "-I", "dtb", "-O", "dts", self.at("qemu.dtb")], check=True,
                                stdout=subprocess.PIPE, text=True).stdout
        with open(os.path.join(tree.BOARD, "board.dts"), encoding="utf-8") as file:
            source += file.read()
        subprocess.run(["dtc", "-q", "-I", "dts", "-O", "dtb", "-o", self.at("board.dtb")], input=source, check=True,
                       text=True)

    def _make_initrd(self, version):
        folder = self.at("initrd")
        shutil.rmtree(folder, ignore_errors=True)
        for name in ("bin", "dev", "proc", "root", "modules"):
            os.makedirs(os.path.join(folder, name))
        shutil.copy(self.at("busybox/bin/busybox"), os.path.join(folder, "bin"))
        os.symlink("busybox", os.path.join(folder, "bin/sh"))
        shutil.copy(os.path.join(tree.BOARD, "init"), folder)
        os.chmod(os.path.join(folder, "init"), 0o755)
        order = tree.add_modules(self.at("kernel"), version, os.path.join(folder, "modules"), _FIRST_MODULES)
        with open(os.path.join(folder, "modules/order"), "w", encoding="utf-8") as file:
            file.write("".join(f"{name}\n" for name in order))
        names = subprocess.run(["find", "."], cwd=folder, check=True, stdout=subprocess.PIPE).stdout
        archive = subprocess.run(["cpio", "-o", "-H", "newc", "--quiet"], cwd=folder, input=names, check=True,
                                 stdout=subprocess.PIPE).stdout
        with gzip.open(self.at("initrd.gz"), "wb", compresslevel=1) as file:
            file.write(archive)

    def _make_disk(self):
        shutil.rmtree(self.at("root"), ignore_errors=True)
        os.mkdir(self.at("root"))
        as_root = [] if os.geteuid() == 0 else ["fakeroot", "--"]
        subprocess.run([*as_root, sys.executable, "-m", "machine.tree", self.at("root"), self.at("plain.img"),
                        self.at("kernel"), self.at("apt/cache/archives")], cwd=ROOT, check=True)
        for name in ("root", "kernel", "busybox", "initrd"):
            shutil.rmtree(self.at(name))

    # States -----------------------------------------------------------------------------------------------------------

    def _configure(self):
        machine = self.machine()
        machine.start(self.at("plain.img"), kernel="init=/opt/machine/configure", agent=False).wait()
        with open(os.path.join(machine.folder, "console.log"), encoding="utf-8", errors="replace") as file:
            log = file.read()
        if "\nCONFIGURED" not in log:
            raise Failure(f"the packages did not configure themselves:\n{log[-4000:]}")
        subprocess.run(["qemu-img", "convert", "-O", "raw", os.path.join(machine.folder, "disk.qcow2"),
                        self.at("root.img")], check=True)
        os.remove(self.at("plain.img"))

    def _keep(self, name, disk, prepare, state=None):
        """Keeps a machine in files that was started from a disk and then prepared."""
        machine = self.machine("making")
        shutil.rmtree(machine.folder, ignore_errors=True)
        try:
            machine.start(disk, state)
            if prepare:
                prepare(machine)
            machine.order(run=["sync"], environment={})
            machine.save(self.at(f"{name}.state"))
            os.replace(os.path.join(machine.folder, "disk.qcow2"), self.at(f"{name}.qcow2"))
        finally:
            machine.stop()

    def start(self, machine, state="ready"):
        """Starts a machine where a state was kept."""
        os.makedirs(machine.folder, exist_ok=True)
        make_stick(os.path.join(machine.folder, qemu.STICK))
        machine.start(self.at(f"{state}.qcow2"), self.at(f"{state}.state"))

    def boot(self, machine, state="ready", kernel=""):
        """Boots a machine from the disk of a state."""
        machine.start(self.at(f"{state}.qcow2"), kernel=kernel)

    def _make_ready(self, packages):
        def prepare(machine):
            self.prepare(machine, packages)

        self._keep("ready", self.at("base.qcow2"), prepare, self.at("base.state"))

    def prepare(self, machine, packages, enable=True):
        """Puts the siblings and the packages into a machine, and starts the daemon."""
        put(machine, "/opt/machine", [os.path.relpath(path, ROOT) for name in _SIMULATION
                                      for path in glob.glob(os.path.join(ROOT, name))], ROOT)
        put(machine, "/root/packages", of_a_unit(packages), packages)
        steps = ["python3 -m compileall -q /opt/machine",
                 "install -m 644 -D -t /etc/systemd/user /opt/machine/machine/siblings.service",
                 "systemctl --global -q enable siblings.service",
                 "install -m 644 -t /etc/dbus-1 /opt/machine/machine/session-local.conf",
                 "apt-get install -y -qq --no-install-recommends /root/packages/*.deb"]
        if enable:
            steps += ["loginctl enable-linger ccu",  # or the end of a login would end the siblings
                      "install -d -o ccu -g ccu /media/internal /media/card /mnt/ccu-data/logs",
                      "systemctl enable --now -q controllerd.service",
                      "systemctl is-active -q controllerd.service"]
        for step in steps:
            status, said, complaints = machine.run("sh", "-c", step, environment={"DEBIAN_FRONTEND": "noninteractive"})
            if status != 0:
                raise Failure(f"{step}: status {status}\n{said}{complaints}")


def of_a_unit(packages):
    """The names of those files in a folder of packages that a unit has: not those for who builds or tests programs."""
    return sorted(os.path.basename(path) for path in glob.glob(os.path.join(packages, "*.deb"))
                  if not re.search("-dev_|-dbgsym_|-virtual-unit_", path))


def make_stick(path, size=64 << 20):
    """Makes a file that is the content of a stick with FAT and nothing on it."""
    with open(path, "wb") as file:
        file.truncate(size)
    subprocess.run(["mkfs.vfat", "-n", "STICK", path], check=True, stdout=subprocess.DEVNULL)


def put(machine, folder, names, base):
    """Copies files into the machine, by their names from a folder here."""
    data = io.BytesIO()
    with tarfile.open(fileobj=data, mode="w") as archive:
        for name in names:
            archive.add(os.path.join(base, name), arcname=name)
    status, _, complaints = machine.run("sh", "-c", f"mkdir -p {folder} && tar -C {folder} -x --no-same-owner",
                                        stdin=data.getvalue())
    if status != 0:
        raise Failure(f"nothing can be copied into the machine: {complaints}")
