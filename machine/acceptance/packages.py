"""The packages: installed, upgraded, downgraded, removed and purged by apt, and a service of another user."""

import os
import re
import tempfile

from ..image import ROOT, of_a_unit, put
from .case import collector, host

CASES = []
case = collector(CASES)

_APT = "DEBIAN_FRONTEND=noninteractive apt-get -y -qq --no-install-recommends"
_ENABLE = ("loginctl enable-linger {0} && install -d -o {0} -g {0} /media/internal /media/card /mnt/ccu-data/logs && "
           "systemctl enable --now -q controllerd.service")

#: Of Debian's own kind: programs that succeed where the packages are as they ought to be, and complain of nothing.
_TESTS = os.path.join(ROOT, "packaging", "debian", "tests")


def _next_version(folder, target):
    """The packages of a folder as those of the version 99."""
    for package in of_a_unit(folder):
        tree = os.path.join(target, "tree")
        host("dpkg-deb", "--raw-extract", os.path.join(folder, package), tree)
        control = os.path.join(tree, "DEBIAN", "control")
        with open(control, encoding="utf-8") as file:
            text = file.read()
        with open(control, "w", encoding="utf-8") as file:
            file.write(re.sub(r"^Version: .*$", "Version: 99", text, flags=re.MULTILINE))
        name = re.search(r"^Package: (.*)$", text, re.MULTILINE).group(1)
        host("dpkg-deb", "--root-owner-group", "-Zgzip", "--build", tree, os.path.join(target, f"{name}_99_arm64.deb"))
        host("rm", "-r", tree)


@case("base")
def _(unit):
    """install, upgrade, downgrade, remove, purge"""
    owner = "stat -c %G:%a /dev/gpiochip4"
    before = unit.sh(owner)
    unit.prepare(enable=False)
    version = unit.sh("dpkg-query -W -f '${Version}' controllerd")
    assert (before.split(":")[0], unit.sh(owner)) == ("root", "gpio:660")
    assert unit.machine.run("systemctl", "is-enabled", "controllerd.service")[1].strip() == "disabled"
    assert unit.show("ActiveState") == "inactive"
    unit.see(f"{version} installed: not enabled, not started; /dev/gpiochip4 is gpio's at once")
    unit.sh(_ENABLE.format("ccu"))
    unit.wait_service()
    pid = unit.pid
    with tempfile.TemporaryDirectory() as folder:
        _next_version(unit.packages, folder)
        put(unit.machine, "/root/next", sorted(os.listdir(folder)), folder)
    for where, wanted in (("next", "99"), ("packages", version)):
        unit.sh(f"{_APT} --allow-downgrades install /root/{where}/*.deb")
        assert unit.sh("dpkg-query -W -f '${Version}' controllerd") == wanted
        unit.wait_for(lambda old=pid: unit.pid not in (0, old), "another process")
        unit.wait_service()
        pid = unit.pid
        assert unit.sh("systemctl is-enabled controllerd.service") == "enabled"
    unit.see("upgraded and downgraded: started anew each time, and enabled as before")
    unit.sh(f"{_APT} remove controllerd")
    assert unit.machine.run("systemctl", "is-active", "controllerd.service")[1].strip() == "inactive"
    unit.sh("! pgrep -x controllerd && getent passwd ccu")
    unit.sh(f"{_APT} purge controllerd controllerctl libcontroller-client1")
    left = unit.sh("find /etc /usr /lib /var/lib/systemd -xdev -name '*controllerd*'")
    assert left == "", left
    unit.see("removed: stopped, the user stays; purged: no file is left")


@case("base")
def _(unit):
    """another user by a drop-in"""
    unit.prepare(enable=False)
    unit.sh("useradd --uid 1001 --create-home inspector && "
            "mkdir -p /etc/systemd/system/controllerd.service.d /etc/polkit-1/rules.d && "
            "sed 's/\"ccu\"/\"inspector\"/' /usr/share/polkit-1/rules.d/60-controllerd.rules "
            ">/etc/polkit-1/rules.d/60-controllerd.rules && "
            "cat >/etc/systemd/system/controllerd.service.d/10-user.conf && systemctl daemon-reload",
            stdin=(b"[Unit]\nWants=user@1001.service\nAfter=user@1001.service\n\n[Service]\nUser=inspector\n"
                   b"Environment=DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1001/bus\n"))
    unit.sh(_ENABLE.format("inspector"))
    bus = "DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1001/bus"
    unit.wait(f"{bus} controllerctl timezone set Lisbon")
    assert unit.sh(f"ps -o user= -p {unit.pid}") == "inspector"
    assert unit.sh("readlink /etc/localtime").endswith("/CCU/Lisbon")
    assert unit.machine.run("test", "-d", "/run/user/1000")[0] != 0
    unit.see("the daemon and its bus are inspector's, polkit obeys him, nobody is number 1000")


@case("base")
def _(unit):
    """tests of the Debian package"""
    unit.prepare(enable=False)
    put(unit.machine, "/root/tests", sorted(os.listdir(_TESTS)), _TESTS)
    with open(os.path.join(_TESTS, "control"), encoding="utf-8") as file:
        names = " ".join(re.findall(r"^Tests: (.*)$", file.read(), re.MULTILINE)).split()
    for name in names:
        status, said, complaints = unit.machine.run(f"/root/tests/{name}", seconds=1200)
        assert (status, complaints) == (0, ""), f"{name}: status {status}: {said}{complaints}"
    unit.see(f"debian/tests: {', '.join(names)}")
