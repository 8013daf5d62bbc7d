"""The Debian packages: what they hold and ask for, what their scripts do, and that what they install runs.

They are installed in a throw-away root, by dpkg itself, as the root of a user namespace to which the machine's own
files are read-only.  What is run there finds the libraries that it needs, copied from the machine, and nothing else.
"""

import glob
import os
import re
import shutil
import subprocess
import tempfile

import pytest

from virtual_unit import VirtualUnit
from virtual_unit.real_timedated import missing

BUILD = os.environ["CCU_BUILD_DIR"]
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
LIBRARIES = "usr/lib/{}".format(subprocess.run(["dpkg-architecture", "-qDEB_HOST_MULTIARCH"], capture_output=True,
                                               text=True, check=True).stdout.strip())
INTERFACE = "com.tavilon.common.Controller1"
UNIT_FILE = "lib/systemd/system/controllerd.service"
ENABLED = "etc/systemd/system/multi-user.target.wants/controllerd.service"


def run(*command, **options):
    """What a command prints; it must succeed."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)
    assert done.returncode == 0, f"{command}: {done.stdout}"
    return done.stdout


def text_of(*path):
    """A file of the tree."""
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


def make_packages(folder):
    """Makes the packages of this build; returns their files by their names."""
    hasty = {**os.environ, "DPKG_DEB_COMPRESSOR_LEVEL": "1"}
    run(os.path.join(ROOT, "packaging", "make-packages"), BUILD, str(folder), env=hasty)
    return {os.path.basename(path).split("_")[0]: path for path in glob.glob(f"{folder}/*.deb")}


@pytest.fixture(scope="module", name="packages")
def packages_fixture(tmp_path_factory):
    """The packages of this build."""
    return make_packages(tmp_path_factory.mktemp("packages"))


# Contents -------------------------------------------------------------------------------------------------------------

#: What a package has besides the two files that all have.
CONTENTS = {
    "controllerd": [UNIT_FILE, "lib/udev/rules.d/60-controllerd.rules", "usr/bin/controllerd",
                    "usr/lib/sysusers.d/controllerd.conf", "usr/share/man/man8/controllerd.8.gz",
                    "usr/share/polkit-1/rules.d/60-controllerd.rules"],
    "libcontroller-client1": [f"{LIBRARIES}/libcontroller-client.so.1", f"{LIBRARIES}/libcontroller-client.so.1.0.0"],
    "libcontroller-client-dev": [
        f"{LIBRARIES}/libcontroller-client.so", f"{LIBRARIES}/pkgconfig/controller-client.pc",
        "usr/include/controller_client/*.h", f"{LIBRARIES}/cmake/ControllerClient/*.cmake",
        f"usr/share/dbus-1/interfaces/{INTERFACE}.Control.xml", f"usr/share/man/man5/{INTERFACE}.5.gz"],
    "controllerctl": ["usr/bin/controllerctl", "usr/share/man/man1/controllerctl.1.gz",
                      "usr/share/bash-completion/completions/controllerctl",
                      "usr/share/zsh/vendor-completions/_controllerctl"],
}

#: Packages that a package asks for, sanitizers' runtimes aside, which only instrumented builds have.
DEPENDENCIES = {
    "controllerd": {"libc6", "libgcc-s1", "libgpiod2", "libgps28", "libinput10", "libpng16-16", "libsigc++-2.0-0v5",
                    "libstdc++6", "libsystemd0", "libudev1", "alsa-utils", "dbus-user-session", "polkitd", "systemd"},
    "libcontroller-client1": {"libc6", "libgcc-s1", "libstdc++6", "libsystemd0"},
    "libcontroller-client-dev": {"libcontroller-client1"},
    "controllerctl": {"libc6", "libgcc-s1", "libstdc++6", "libcontroller-client1"},
}
SANITIZERS = re.compile(r"lib(asan|ubsan|lsan)\d+$")


def field(package, name):
    """A field of a package's control file."""
    return run("dpkg-deb", "--field", package, name).strip()


def contents(package):
    """Files and links of a package as {path: (mode and owner)}."""
    found = {}
    for line in run("dpkg-deb", "--contents", package).splitlines():
        mode, owner, _, _, _, path = line.split(None, 5)
        if not mode.startswith("d"):
            found[path.partition(" -> ")[0].removeprefix("./")] = (mode, owner)
    return found


def control_member(package, name):
    """A file of a package's control archive; None when it has none of that name."""
    with tempfile.TemporaryDirectory() as folder:
        run("dpkg-deb", "--control", package, folder)
        path = os.path.join(folder, name)
        if not os.path.exists(path):
            return None
        with open(path, encoding="utf-8") as file:
            return file.read()


def test_the_packages_are_these(packages):
    assert set(packages) == set(CONTENTS)
    version = re.search(r"^project\(controllerd VERSION (\S+) ", text_of("CMakeLists.txt"), re.MULTILINE).group(1)
    assert {field(package, "Version") for package in packages.values()} == {version}


def test_the_same_tree_makes_the_same_packages(packages, tmp_path):
    """Bit for bit."""
    again = make_packages(tmp_path)
    for name, path in packages.items():
        with open(path, "rb") as first, open(again[name], "rb") as second:
            assert first.read() == second.read(), name


def test_lintian_has_nothing_to_complain_of(packages):
    """No errors and no warnings, and none that are overridden."""
    with tempfile.TemporaryDirectory() as folder:  # it leaves some of its files behind
        assert run("lintian", "--allow-root", "--fail-on", "error,warning", "--show-overrides", "--tag-display-limit",
                   "0", *packages.values(), env={**os.environ, "TMPDIR": folder}) == ""


@pytest.mark.parametrize("name", CONTENTS)
def test_a_package_has_its_files(packages, name):
    """And no others, all of them root's."""
    patterns = CONTENTS[name] + [f"usr/share/doc/{name}/changelog.gz", f"usr/share/doc/{name}/copyright"]
    expressions = [re.escape(pattern).replace(r"\*", r"[^/]+") for pattern in patterns]
    found = contents(packages[name])
    for expression in expressions:
        assert any(re.fullmatch(expression, path) for path in found), expression
    for path, (mode, owner) in found.items():
        assert any(re.fullmatch(expression, path) for expression in expressions), path
        assert owner == "root/root"
        assert mode == ("lrwxrwxrwx" if mode[0] == "l" else "-rwxr-xr-x" if "/bin/" in path else "-rw-r--r--"), path


@pytest.mark.parametrize("name", DEPENDENCIES)
def test_a_package_asks_for_what_it_needs(packages, name):
    """With the versions that its symbols call for."""
    asked = dict(re.fullmatch(r"(\S+)(?: \((.*)\))?", item).groups()
                 for item in field(packages[name], "Depends").split(", "))
    assert {item for item in asked if not SANITIZERS.match(item)} == DEPENDENCIES[name]
    for library in DEPENDENCIES[name] & {"libc6", "libstdc++6", "libsystemd0"}:
        assert asked[library].startswith(">= "), library
    assert asked.get("libcontroller-client1", "") == {"libcontroller-client-dev": "= 1.0.0",
                                                      "controllerctl": ">= 1.0.0"}.get(name, "")


def test_the_library_lists_its_symbols(packages, tmp_path):
    """All that it exports, since the first version of the library."""
    package = packages["libcontroller-client1"]
    assert control_member(package, "shlibs") == "libcontroller-client 1 libcontroller-client1 (>= 1.0.0)\n"
    assert control_member(package, "triggers") == "activate-noawait ldconfig\n"
    first, _, *listed = control_member(package, "symbols").splitlines()
    assert first == "libcontroller-client.so.1 libcontroller-client1 #MINVER#"
    run("dpkg-deb", "--extract", package, str(tmp_path))
    exported = run("nm", "-D", "--defined-only", "--format=just-symbols",
                   f"{tmp_path}/{LIBRARIES}/libcontroller-client.so.1").split()
    assert sorted(line.split()[0] for line in listed) == sorted(
        name.replace("@@", "@") if "@" in name else f"{name}@{name}" for name in exported)


def test_programs_are_stripped_and_look_for_libraries_where_they_should(packages, tmp_path):
    for name in set(packages) - {"libcontroller-client-dev"}:
        run("dpkg-deb", "--extract", packages[name], str(tmp_path))
    for path in [*glob.glob(f"{tmp_path}/usr/bin/*"), f"{tmp_path}/{LIBRARIES}/libcontroller-client.so.1.0.0"]:
        sections = run("readelf", "--section-headers", "--wide", path)
        assert ".debug_" not in sections and ".symtab" not in sections, path
        assert "RUNPATH" not in run("readelf", "--dynamic", path)


def test_a_release_does_not_tell_where_it_was_built(packages, tmp_path):
    """Or else another folder would make other packages; reports of other builds may name their sources."""
    for package in packages.values():
        run("dpkg-deb", "--extract", package, str(tmp_path))
    release = "CMAKE_BUILD_TYPE:STRING=Release" in text_of(BUILD, "CMakeCache.txt")
    for place in (os.path.abspath(BUILD), ROOT) if release else ():
        done = subprocess.run(["grep", "-rlF", place, str(tmp_path)], capture_output=True, text=True, check=False)
        assert (done.returncode, done.stdout) == (1, "")
    # What is cut off at the installation counts in the build's identifier of the program.
    assert "[$ORIGIN/../controller_client" in run("readelf", "--dynamic", f"{BUILD}/controllerctl/controllerctl")


# System files ---------------------------------------------------------------------------------------------------------


def test_user_groups_and_devices_are_those_of_the_service():
    """Of sysusers, udev and polkit alike."""
    service = text_of("packaging", "systemd", "controllerd.service")
    user = re.search(r"^User=(.*)$", service, re.MULTILINE).group(1)
    number = re.search(r"^Wants=user@(\d+)\.service$", service, re.MULTILINE).group(1)
    groups = re.search(r"^SupplementaryGroups=(.*)$", service, re.MULTILINE).group(1).split()
    created = re.findall(r"^([gu]) +(\S+) +(\S+)", text_of("packaging", "sysusers", "controllerd.conf"), re.MULTILINE)
    assert created == [("g", group, "-") for group in groups] + [("u", user, number)]
    rule = text_of("packaging", "udev", "60-controllerd.rules")
    chip, group = re.search(r'KERNEL=="(\w+)", GROUP="(\w+)", MODE="0660"', rule).groups()
    assert f"DeviceAllow=/dev/{chip} rw\n" in service and group in groups
    assert f'subject.user === "{user}"' in text_of("packaging", "polkit", "controllerd.rules")


TIMEDATE = "org.freedesktop.timedate1.set-"


@pytest.mark.parametrize("user, action, answer", [
    ("ccu", TIMEDATE + "time", "yes"), ("ccu", TIMEDATE + "timezone", "yes"), ("ccu", TIMEDATE + "ntp", "yes"),
    ("ccu", TIMEDATE + "local-rtc", "undefined"), ("ccu", "org.freedesktop.login1.power-off", "undefined"),
    ("ccu2", TIMEDATE + "time", "undefined"), ("guest", TIMEDATE + "ntp", "undefined")])
def test_polkit_lets_the_units_user_set_the_clock(tmp_path, user, action, answer):
    """And leaves all else to other rules; asked in the language that polkit's rules are run in."""
    script = tmp_path / "rule.js"
    script.write_text('var rules = [], polkit = {Result: {YES: "yes"}, addRule: function (f) { rules.push(f); }};\n'
                      f"{text_of('packaging', 'polkit', 'controllerd.rules')}\n"
                      f'print(rules.length, String(rules[0]({{id: "{action}"}}, {{user: "{user}"}})));\n')
    assert run("duk", str(script)) == f"1 {answer}\n"


# A throw-away root ----------------------------------------------------------------------------------------------------

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
        """Runs dpkg; the packages' scripts find the root in $DPKG_ROOT, since there is no shell in it."""
        return self.run("dpkg", f"--root={self.folder}", "--force-depends", "--force-script-chrootless", *arguments)

    def add_libraries(self):
        """Copies what the installed programs need from the machine."""
        own = {**os.environ, "LD_LIBRARY_PATH": self.at(LIBRARIES)}
        for program in glob.glob(self.at("usr/bin/*")):
            for library in set(re.findall(r"(/\S+) \(0x", run("ldd", program, env=own))):
                if not library.startswith(self.folder) and not self.has(library[1:]):
                    os.makedirs(os.path.dirname(self.at(library[1:])), exist_ok=True)
                    shutil.copy(library, self.at(library[1:]))


@pytest.fixture(scope="module", name="machine")
def machine_fixture():
    """A machine that can do what follows."""
    lacking = missing()
    assert not lacking, "; ".join(lacking)


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
               env=unit.daemon.environment()) == "controllerctl 1.0.0\n"
