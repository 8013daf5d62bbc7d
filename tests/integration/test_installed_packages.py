"""The Debian packages on a unit: what their scripts do, and that what they install runs.

They are installed in a throw-away root, by dpkg itself, as the root of a user namespace to which the machine's own
files are read-only.  What is run there finds the libraries that it needs, copied from the machine, and nothing else.
"""

import os
import re
import shutil
import tempfile

import pytest
import yaml

from tests.integration.built_packages import (  # pylint: disable=unused-import
    LIBRARIES, ROOT, UNIT_FILE, packages_fixture, run)
from virtual_unit import VirtualUnit, namespaces

PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
ENABLED = "etc/systemd/system/multi-user.target.wants/controllerd.service"

#: Runs a command to which everything but the folder $1 is read-only.
_APART = ["unshare", "--user", "--map-root-user", "--mount", "sh", "-e", "-c",
          'mount --bind "$1" "$1"; mount -o remount,bind,ro /; shift; exec "$@"', "sh"]

#: Runs a program of the root $1, $3, in it; the folder $2 and /proc are there too.
_INSIDE = ["unshare", "--user", "--map-root-user", "--mount", "sh", "-e", "-c",
           'for folder in "$2" /proc; do mkdir -p "$1$folder"; mount --rbind "$folder" "$1$folder"; done; '
           'root=$1 program=${3#"$1"}; shift 3; exec chroot "$root" "$program" "$@"', "sh"]


class ThrowAwayRoot:
    """The smallest root that dpkg, sysusers and systemctl take for one."""

    def __init__(self, folder):
        self.folder = folder
        for name in ("bin", "sbin", "lib", "lib64"):
            os.makedirs(self.at("usr", name))
            os.symlink(f"usr/{name}", self.at(name))
        for name in ("etc", "dev", "tmp", "var/lib/dpkg/updates", "var/lib/dpkg/info"):
            os.makedirs(self.at(name))
        for name in ("status", "available"):
            self.write(f"var/lib/dpkg/{name}", "")

    def at(self, *path):
        """A path in the root."""
        return os.path.join(self.folder, *path)

    def has(self, path):
        """Whether the root has a file or a link there."""
        return os.path.lexists(self.at(path))

    def write(self, path, text):
        """Makes a file."""
        with open(self.at(path), "w", encoding="utf-8") as file:
            file.write(text)

    def lines(self, path):
        """The lines of a file as lists of what is between colons."""
        with open(self.at(path), encoding="utf-8") as file:
            return [line.rstrip("\n").split(":") for line in file]

    def run(self, *command):
        """Runs a command that has the root as an argument."""
        return run(*_APART, self.folder, *command, env={"PATH": PATH, "LC_ALL": "C"})

    def dpkg(self, *arguments):
        """Runs dpkg; the packages' scripts find the root in $DPKG_ROOT, unless there is a shell in it."""
        outside = [] if self.has("bin/sh") else ["--force-script-chrootless"]
        return self.run("dpkg", f"--root={self.folder}", "--force-depends", *outside, *arguments)

    def stand_in(self, name, text):
        """Puts a script in the place of a program that would do something to the machine."""
        self.write(f"usr/sbin/{name}", f"#!/bin/sh\n{text}\n")
        os.chmod(self.at("usr/sbin", name), 0o755)

    def switch_on(self):
        """Makes the root one that is up, whose packages' scripts run in it; what they tell others to do is noted."""
        for name in ("sh", "cat", "getent", "grep", "mkdir", "rm", "rmdir", "sed", "systemd-sysusers"):
            shutil.copy(f"/bin/{name}", self.at("usr/bin"))
        self.add_libraries()
        os.makedirs(self.at("run/systemd/system"))
        self.write("dev/null", "")
        for name in ("deb-systemd-helper", "deb-systemd-invoke", "systemctl", "udevadm"):
            self.stand_in(name, f'echo "{name} $*" >>/told')

    def told(self):
        """What was told since the last time."""
        lines = [line[0] for line in self.lines("told")]
        self.write("told", "")
        return lines

    def add_libraries(self):
        """Copies what the installed programs need from the machine."""
        own = {**os.environ, "LD_LIBRARY_PATH": self.at(LIBRARIES)}
        for program in run(os.path.join(ROOT, "packaging", "programs-in"), self.at("usr/bin")).splitlines():
            for library in set(re.findall(r"(/\S+) \(0x", run("ldd", program, env=own))):
                if not library.startswith(self.folder) and not self.has(library[1:]):
                    os.makedirs(os.path.dirname(self.at(library[1:])), exist_ok=True)
                    shutil.copy(library, self.at(library[1:]))


@pytest.fixture(scope="module", name="machine")
def machine_fixture():
    """A machine that can do what follows."""
    assert not namespaces.refusal()


@pytest.fixture(name="make_root")
def make_root_fixture(machine):
    """Makes throw-away roots, which end with the test."""
    assert machine is None
    with tempfile.TemporaryDirectory(prefix="ccu-root-") as folder:
        yield lambda: ThrowAwayRoot(os.path.join(folder, "root"))


@pytest.fixture(scope="module", name="installed")
def installed_fixture(machine, packages):
    """A root with the programs and their libraries."""
    assert machine is None
    with tempfile.TemporaryDirectory(prefix="ccu-root-") as folder:
        root = ThrowAwayRoot(os.path.join(folder, "root"))
        root.dpkg("--install", *packages.values())
        root.add_libraries()
        yield root


def test_a_unit_without_the_user_gets_it(packages, make_root):
    """With its number and the groups of the service, and the service is not enabled."""
    root = make_root()
    root.dpkg("--install", packages["controllerd"])
    assert [line[:7] for line in root.lines("etc/passwd")] == [
        ["ccu", "x", "1000", "1000", "Camera control unit", "/home/ccu", "/usr/sbin/nologin"]]
    assert {line[0] for line in root.lines("etc/group")} == {"audio", "ccu", "gpio", "input", "video"}
    assert root.has(UNIT_FILE) and not root.has(ENABLED)


def test_a_unit_that_has_the_user_keeps_it(packages, make_root):
    """Its number, its login, its groups."""
    root = make_root()
    user, groups = "ccu:x:1234:1234::/data:/bin/bash\n", "ccu:x:1234:\naudio:x:29:ccu\n"
    root.write("etc/passwd", user)
    root.write("etc/group", groups)
    root.dpkg("--install", packages["controllerd"])
    assert root.lines("etc/passwd") == [user.strip().split(":")]
    assert root.lines("etc/group")[:2] == [line.split(":") for line in groups.splitlines()]


def service_of(root):
    """The number of the user whose service and bus are the daemon's in this root, as systemd reads what is there."""
    folders = [root.at(folder, "systemd/system") for folder in ("etc", "lib")]
    units = run("unshare", "--user", "/lib/systemd/systemd", "--test", "--system", "--unit=controllerd.service",
                env={"PATH": PATH, "SYSTEMD_UNIT_PATH": ":".join([*folders, ""])})
    unit = re.search(r"-> Unit controllerd\.service:\n(.*?)-> (?:Unit |By jobs)", units, re.DOTALL).group(1)
    numbers = [re.findall(expression, unit) for expression in (
        r"Wants: user@(\d+)\.service", r"\bAfter: user@(\d+)\.service", r"BUS_ADDRESS=unix:path=/run/user/(\d+)/bus\n")]
    assert numbers[0] == numbers[1] == numbers[2] and len(numbers[0]) == 1
    return int(numbers[0][0])


DROP_IN = "etc/systemd/system/controllerd.service.d/10-user.conf"


def number_of(root):
    """That of the unit's user."""
    return next(int(line[2]) for line in root.lines("etc/passwd") if line[0] == "ccu")


@pytest.mark.parametrize("on", [False, True], ids=["from outside", "on the unit"])
@pytest.mark.parametrize("passwd", ["", "ccu:x:1234:1234::/data:/bin/bash\n", "guest:x:1000:1000::/:/bin/sh\n"],
                         ids=["nobody", "another number", "number taken"])
def test_the_service_has_the_bus_of_its_user(packages, make_root, passwd, on):
    """Whatever its number is, and nobody else's beside it; the package tells when it is not the usual one."""
    root = make_root()
    if on:
        root.switch_on()
    root.write("etc/passwd", passwd)
    root.write("etc/group", re.sub(r"(\w+):x:\d+:(\d+):.*", r"\1:x:\2:", passwd))
    said = root.dpkg("--install", packages["controllerd"])
    number = number_of(root)
    assert number == 1000 if passwd == "" else number == 1234 if "ccu" in passwd else number not in (0, 1000)
    assert service_of(root) == number
    line = f"controllerd: user ccu has number {number}, not 1000; /{DROP_IN} tells the service\n"
    assert (line in said, root.has(DROP_IN)) == (number != 1000, number != 1000)


def test_the_packages_word_on_the_number_follows_the_user_and_goes_with_the_package(packages, make_root):
    root = make_root()
    root.write("etc/group", "")
    for number in (1234, 1235, 1000, 1236):
        root.write("etc/passwd", f"ccu:x:{number}:{number}::/data:/bin/bash\n")
        root.dpkg("--install", packages["controllerd"])
        assert service_of(root) == number
    root.dpkg("--purge", "controllerd")
    assert not root.has(os.path.dirname(DROP_IN))


def test_an_operators_word_on_the_number_stays(packages, make_root):
    """Through upgrades and the end of the package."""
    root = make_root()
    os.makedirs(os.path.dirname(root.at(DROP_IN)))
    root.write("etc/passwd", "ccu:x:1234:1234::/data:/bin/bash\n")
    root.write("etc/group", "")
    text = "[Service]\nUser=operator\n"
    root.write(DROP_IN, text)
    line = f"controllerd: user ccu has number 1234, not 1000; /{DROP_IN} stays as it is\n"
    for _ in range(2):
        assert line in root.dpkg("--install", packages["controllerd"])
    root.dpkg("--purge", "controllerd")
    with open(root.at(DROP_IN), encoding="utf-8") as file:
        assert file.read() == text


#: How udev learns of the package's rule, and applies it to the devices that are there.
RULES_APPLIED = ["udevadm control --reload", "udevadm trigger --subsystem-match=gpio", "udevadm settle --timeout=10"]


def udev_told(root):
    """What udev was told."""
    return [line for line in root.told() if line.startswith("udevadm ")]


def test_a_unit_that_is_on_gets_its_lines_at_once(packages, make_root):
    """udev is asked when it can know the rule and its group, and has done it before a daemon is started."""
    root = make_root()
    root.switch_on()
    root.stand_in("udevadm", 'rule=/lib/udev/rules.d/60-controllerd.rules\n'
                             'while IFS=: read -r group rest; do [ "$group" = gpio ] && break; done </etc/group\n'
                             '[ "$group" = gpio ] && [ -e "$rule" ] && echo "udevadm $*" >>/told')
    for _ in range(2):  # the second time is an upgrade, which restarts the daemon
        root.dpkg("--install", packages["controllerd"])
        told = root.told()
        assert [line for line in told if line.startswith("udevadm ")] == RULES_APPLIED
    assert told.index("deb-systemd-invoke try-restart controllerd.service") > told.index(RULES_APPLIED[-1])


@pytest.mark.parametrize("udevadm, told", [
    (None, []), ('echo "udevadm $*" >>/told; exit 1', RULES_APPLIED[:1]),
    ('echo "udevadm $*" >>/told; [ $1 = control ]', RULES_APPLIED)], ids=["missing", "without udevd", "failing"])
def test_a_unit_whose_udev_does_nothing_is_installed_all_the_same(packages, make_root, udevadm, told):
    root = make_root()
    root.switch_on()
    if udevadm is None:
        os.remove(root.at("usr/sbin/udevadm"))
    else:
        root.stand_in("udevadm", udevadm)
    root.dpkg("--install", packages["controllerd"])
    assert udev_told(root) == told
    assert root.run("dpkg-query", f"--root={root.folder}", "--show", "--showformat=${Status}", "controllerd") == \
        "install ok installed"


def test_who_makes_an_image_keeps_the_devices_of_the_machine(packages, make_root):
    root = make_root()
    root.stand_in("udevadm", f'echo "udevadm $*" >>{root.at("told")}')
    root.write("told", "")
    root.run("env", f"PATH={root.at('usr/sbin')}:{PATH}", "dpkg", f"--root={root.folder}", "--force-depends",
             "--force-script-chrootless", "--install", packages["controllerd"])
    assert root.told() == []


def test_an_operators_choice_outlives_an_upgrade(packages, make_root):
    """A service that was disabled stays so, one that was enabled too, and purging leaves nothing but the user."""
    root = make_root()
    root.dpkg("--install", packages["controllerd"])
    for order, enabled in (("enable", True), ("disable", False), ("enable", True)):
        root.run("systemctl", f"--root={root.folder}", "--quiet", order, "controllerd.service")
        root.dpkg("--install", packages["controllerd"])
        assert root.has(ENABLED) == enabled
    root.dpkg("--purge", "controllerd")
    left = run("find", root.folder, "-name", "*controller*", "-not", "-path", "*/var/lib/dpkg/*")
    assert left == "" and root.lines("etc/passwd")


def test_no_package_has_configuration_files(installed):
    """What dpkg would ask the operator about at an upgrade."""
    assert "Conffiles:" not in "".join(":".join(line) for line in installed.lines("var/lib/dpkg/status"))


#: Runs a command as an ordinary user of a machine on which the packages of the root $1 are installed, with the folder $2
#: for temporary files.
_ON_A_MACHINE = ["unshare", "--user", "--map-root-user", "--mount", "sh", "-e", "-c", """
    mount -t overlay overlay -o "lowerdir=$1/usr:/usr" /usr
    folder=$2; shift 2
    exec unshare --user --map-user=1000 --map-group=1000 --pid --fork --mount --mount-proc env --ignore-environment \
        PATH=/usr/bin:/bin TMPDIR="$folder" "$@" """, "sh"]
#: Runs a command, then tells which processes are there.
_AND_AFTER = ["sh", "-c", '"$@"; echo "status $?"; cat /proc/[0-9]*/comm', "sh"]


@pytest.mark.parametrize("command, said", [
    (["ccu-unit", "run", "card-pulled"], "1 of 1 scenarios came out as they should"),
    (["ccu-unit", "up", "--", "sh", "-c", "controllerctl record start && ccu-unit do storage remove card"],
     "card is pulled out"),
    (["ccu-unit", "list"], "no unit is running: start one with ccu-unit up"),
    (["ccu-unit", "completion", "bash"], "complete -F _ccu-unit ccu-unit ccu-unit")])
def test_the_installed_unit_is_an_ordinary_users(installed, command, said):
    """Found by its name, with nothing of the tree it was made in, and nothing of it stays."""
    with tempfile.TemporaryDirectory(prefix="ccu-") as folder:
        *lines, status, left = run(*_ON_A_MACHINE, installed.folder, folder, *_AND_AFTER, *command).splitlines()
        assert (status, left) == ("status 0", "sh") and any(said in line for line in lines), lines
        assert os.listdir(folder) == []


def test_the_example_of_a_clients_tests_runs(installed, tmp_path):
    """Each step of the workflow, as whoever copies it has it; its tests can fail."""
    project = shutil.copytree(os.path.join(ROOT, "examples", "client-tests"), tmp_path / "project")
    with open(project / "workflow.yaml", encoding="utf-8") as file:
        steps = [step["run"] for step in yaml.safe_load(file)["jobs"]["test"]["steps"] if "run" in step]
    inside = [*_ON_A_MACHINE, installed.folder, str(tmp_path), "env", f"--chdir={project}", "sh", "-e", "-c"]
    for step in steps:
        run(*inside, step)
    assert 'tests="1" failures="0"' in (project / "report.xml").read_text(encoding="utf-8")
    broken = (project / "test_client.py").read_text(encoding="utf-8").replace("-8,", "-9,")
    (project / "test_client.py").write_text(broken, encoding="utf-8")
    assert run(*inside, f"{steps[0]} || echo broken").splitlines()[-1] == "broken"


def test_the_installed_unit_is_completed(installed, tmp_path):
    """By the file that bash looks for."""
    assert run(*_ON_A_MACHINE, installed.folder, str(tmp_path), "bash", "-c",
               "cd /; . /usr/share/bash-completion/completions/ccu-unit; COMP_WORDS=(ccu-unit snapshot l) COMP_CWORD=2; "
               '_ccu-unit; echo "${COMPREPLY[@]}"') == "load\n"


@pytest.fixture(scope="module", name="running")
def running_fixture(installed):
    """A unit with the installed daemon, which gets nothing from the build, and the command to run others beside it."""
    with VirtualUnit(daemon=False, environment={"LD_PRELOAD": None, "PATH": PATH}) as unit:
        inside = [*_INSIDE, installed.folder, unit.directory]
        unit.daemon.launcher, unit.daemon.binary = inside, installed.at("usr/bin/controllerd")
        unit.start_daemon()
        yield unit, inside
        unit.stop_daemon()


def test_the_installed_daemon_comes_up(running, installed):
    """It says that it is ready, and answers on the unit's bus."""
    unit, _ = running
    assert unit.ready
    assert os.readlink(f"/proc/{unit.pid}/root") == installed.folder
    assert unit.client.call("VideoRecordStop") == (-1, "Unknown error")
    assert unit.calls.members()[-1:] == [("video", "StopRecording")]


def test_the_installed_control_runs(running, installed):
    unit, inside = running
    assert run(*inside, installed.at("usr/bin/controllerctl"), "--version",
               env=unit.daemon.environment()) == "controllerctl 1.1.0\n"
