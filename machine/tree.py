"""The root of the machine as an image, made from packages without running any of their programs: unpacked here, they are
configured by themselves at the first start.  Run by `fakeroot` where the user is not root.

usage: python3 -m machine.tree FOLDER IMAGE KERNEL PACKAGES
"""

import glob
import math
import os
import re
import shutil
import struct
import subprocess
import sys
import wave

from virtual_unit import zones

BOARD = os.path.join(os.path.dirname(os.path.abspath(__file__)), "board")
#: What the machine loads by itself, and what the devices that come and go need.
_LOADED = ("uinput", "snd-aloop", "loop", "vfat", "evdev")
_MODULES = (*_LOADED, "nls_cp437", "nls_ascii", "nls_iso8859-1", "nls_utf8", "xhci-pci", "usb-storage", "uas", "sd_mod",
            "usbhid", "hid-generic", "virtio_console", "virtio_input", "virtio_rng", "virtio_pci", "virtio_blk",
            "autofs4", "configfs", "fuse", "overlay")
#: What costs a slow machine time at every start, and has nothing to do here.
_MASKED = ("apt-daily.timer", "apt-daily-upgrade.timer", "e2scrub_all.timer", "e2scrub_reap.service", "fstrim.timer",
           "dpkg-db-backup.timer", "systemd-pstore.service", "getty@.service", "proc-sys-fs-binfmt_misc.automount")
_NO_DOCUMENTS = [f"--exclude=./usr/share/{name}/*" for name in ("doc", "locale", "man", "info")]


def _run(*command, **options):
    return subprocess.run(command, check=True, **options)


def _output(*command):
    return _run(*command, stdout=subprocess.PIPE, text=True).stdout


class Tree:
    """The files of the root."""

    def __init__(self, folder):
        self.folder = folder

    def at(self, *path):
        """A path in it."""
        return os.path.join(self.folder, *path)

    def write(self, path, text, mode="w"):
        """Makes a file, or adds to it."""
        os.makedirs(os.path.dirname(self.at(path)), exist_ok=True)
        with open(self.at(path), mode, encoding="utf-8") as file:
            file.write(text)

    def link(self, path, target):
        """Makes a link."""
        os.makedirs(os.path.dirname(self.at(path)), exist_ok=True)
        if not os.path.lexists(self.at(path)):
            os.symlink(target, self.at(path))

    def copy(self, name, path):
        """Copies a file of the board's folder."""
        os.makedirs(os.path.dirname(self.at(path)), exist_ok=True)
        shutil.copy(os.path.join(BOARD, name), self.at(path))


def _unpack(tree, packages):
    """As dpkg would leave them: unpacked, and known to it."""
    for name in ("bin", "sbin", "lib"):
        os.makedirs(tree.at("usr", name))
        tree.link(name, f"usr/{name}")
    for name in ("updates", "triggers", "alternatives", "parts", "info"):
        os.makedirs(tree.at("var/lib/dpkg", name))
    for name in ("available", "diversions", "statoverride", "triggers/Unincorp", "triggers/File"):
        tree.write(f"var/lib/dpkg/{name}", "")
    tree.write("var/lib/dpkg/info/format", "1\n")
    tree.write("var/lib/dpkg/arch", "arm64\n")
    for package in packages:
        with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package], stdout=subprocess.PIPE) as files:
            _run("tar", "-C", tree.folder, "-xp", "--keep-directory-symlink", *_NO_DOCUMENTS, stdin=files.stdout)
        _register(tree, package)


def _register(tree, package):
    control = tree.at("control")
    _run("dpkg-deb", "--control", package, control)
    with open(os.path.join(control, "control"), encoding="utf-8") as file:
        fields = file.read().strip()
    name = own = re.search(r"^Package: (.*)$", fields, re.MULTILINE).group(1)
    if "\nMulti-Arch: same" in fields:
        own = f"{name}:arm64"
    status = fields.replace(f"Package: {name}", f"Package: {name}\nStatus: install ok unpacked", 1)
    tree.write("var/lib/dpkg/status", f"{status}\n\n", "a")
    names = [line.split(None, 5)[5] for line in _output("dpkg-deb", "--contents", package).splitlines()]
    listed = [re.sub(r"^\.|/$", "", entry.partition(" -> ")[0]) or "/." for entry in names]
    tree.write(f"var/lib/dpkg/info/{own}.list", "".join(f"{entry}\n" for entry in listed))
    for file in set(os.listdir(control)) - {"control", "conffiles"}:
        shutil.copy(os.path.join(control, file), tree.at(f"var/lib/dpkg/info/{own}.{file}"))
    if os.path.exists(os.path.join(control, "triggers")):
        with open(os.path.join(control, "triggers"), encoding="utf-8") as file:
            for kind, trigger in re.findall(r"^(interest\S*)\s+(\S+)", file.read(), re.MULTILINE):
                owner = own + ("/noawait" if kind == "interest-noawait" else "")
                if trigger.startswith("/"):
                    tree.write("var/lib/dpkg/triggers/File", f"{trigger} {owner}\n", "a")
                else:
                    tree.write(f"var/lib/dpkg/triggers/{trigger}", f"{owner}\n", "a")
    shutil.rmtree(control)


def _add_base(tree):
    """What the packages' scripts expect to be there."""
    for name in ("proc", "sys", "dev", "run", "tmp", "root", "home", "mnt", "srv", "media/internal", "var/tmp", "opt",
                 "usr/local/bin", "usr/local/sbin", "usr/local/lib"):
        os.makedirs(tree.at(name), exist_ok=True)
    for name in ("tmp", "var/tmp"):
        os.chmod(tree.at(name), 0o1777)
    for name in ("passwd", "group"):
        shutil.copy(tree.at(f"usr/share/base-passwd/{name}.master"), tree.at("etc", name))
    for path, target in (("var/run", "/run"), ("var/lock", "/run/lock")):
        shutil.rmtree(tree.at(path), ignore_errors=True)
        tree.link(path, target)
    tree.link("usr/bin/sh", "dash")
    tree.link("usr/bin/awk", "mawk")
    tree.write("etc/hostname", "ccu\n")
    tree.write("etc/hosts", "127.0.0.1 localhost ccu\n")
    tree.write("etc/fstab", "")


def _add_board(tree):
    """What makes it a unit that does as it is told."""
    for name in _MASKED:
        tree.link(f"etc/systemd/system/{name}", "/dev/null")
    tree.write("etc/modules-load.d/board.conf", "".join(f"{name}\n" for name in _LOADED))
    # Otherwise the text console would draw over the first framebuffer.
    tree.write("etc/tmpfiles.d/board.conf", "w /sys/class/vtconsole/vtcon1/bind - - - - 0\n")
    tree.write("etc/systemd/system/serial-getty@ttyAMA0.service.d/board.conf",
               "[Service]\nExecStart=\nExecStart=-/sbin/agetty --autologin root --keep-baud 115200 - vt220\n")
    tree.copy("asound.state", "var/lib/alsa/asound.state")  # of which udev's alsactl makes the mixer's controls
    tree.copy("90-stick.rules", "etc/udev/rules.d/90-stick.rules")
    tree.copy("configure", "opt/machine/configure")
    tree.copy("agent.py", "opt/machine/agent.py")
    tree.copy("agent.service", "etc/systemd/system/agent.service")
    tree.link("etc/systemd/system/graphical.target.wants/agent.service", "../agent.service")
    os.makedirs(tree.at("usr/share/zoneinfo/CCU"))
    zones.make(tree.at("usr/share/zoneinfo/CCU"))
    os.makedirs(tree.at("usr/share/sounds"), exist_ok=True)
    with wave.open(tree.at("usr/share/sounds/beep.wav"), "wb") as sound:
        sound.setnchannels(2)
        sound.setsampwidth(2)
        sound.setframerate(48000)
        sound.writeframes(b"".join(struct.pack("<hh", level, level) for level in (
            int(9000 * math.sin(2 * math.pi * 440 * moment / 48000)) for moment in range(96000))))


def add_modules(kernel, version, folder, names):
    """Copies modules, with those that they need, into a folder; their names in the order of loading."""
    found = {}
    for name in names:
        for line in _output("modprobe", "-d", kernel, "-S", version, "--show-depends", name).splitlines():
            if line.startswith("insmod "):
                path = line.split()[1]
                found[os.path.relpath(path, os.path.join(kernel, "lib/modules", version))] = path
    for relative, path in found.items():
        target = os.path.join(folder, relative)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy(path, target)
    return list(found)


def version_of(kernel):
    """The version of an unpacked kernel."""
    return os.path.basename(glob.glob(os.path.join(kernel, "lib/modules/*"))[0])


def main(folder, image, kernel, packages):
    """Makes the image."""
    tree = Tree(folder)
    _unpack(tree, sorted(glob.glob(os.path.join(packages, "*.deb"))))
    _add_base(tree)
    version = version_of(kernel)
    modules = tree.at("usr/lib/modules", version)
    add_modules(kernel, version, modules, _MODULES)
    for name in ("modules.order", "modules.builtin", "modules.builtin.modinfo"):
        shutil.copy(os.path.join(kernel, "lib/modules", version, name), modules)
    _run("depmod", "-b", folder, version)
    _add_board(tree)
    megabytes = int(_output("du", "-sm", folder).split()[0])
    with open(image, "wb") as file:
        file.truncate((megabytes * 5 // 4 + 300) << 20)
    _run("mke2fs", "-q", "-t", "ext4", "-O", "^has_journal,^metadata_csum", "-E", "root_owner=0:0", "-d", folder, image)


if __name__ == "__main__":
    main(*sys.argv[1:])
