"""What `ccu test` leaves out and says of it, with stand-ins for what builds, tests and makes namespaces."""

import os
import re
import shutil
import subprocess

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
REFUSAL = "unshare: unshare failed: Operation not permitted"


class Tree:
    """A tree with the script and with nothing to install, to build or to test."""

    def __init__(self, folder):
        self.folder = str(folder)
        self.orders = os.path.join(self.folder, "orders")
        for name in ("packaging", ".ci", "programs"):
            os.mkdir(self.at(name))
        open(self.at("packaging", "packages.txt"), "w", encoding="utf-8").close()
        for name in ("ccu", ".ci/run"):
            shutil.copy(os.path.join(ROOT, name), self.at(name))
        for name in ("interfaces", "virtual_unit"):
            os.symlink(os.path.join(ROOT, name), self.at(name))
        self.stand_in("cmake", "true")
        self.stand_in("unshare", "true")
        self.stand_in("ctest", f'echo "tested"; echo "$*" >> {self.orders}')

    def at(self, *path):
        """A path in the tree."""
        return os.path.join(self.folder, *path)

    def stand_in(self, name, script):
        """Puts a script in the place of a program."""
        path = self.at("programs", name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\n{script}\n")
        os.chmod(path, 0o755)

    def refuse(self):
        """Makes the machine one that refuses namespaces."""
        self.stand_in("unshare", f'echo "{REFUSAL}" >&2; exit 1')

    def run(self, *command, path=None, **environment):
        """The exit status and the lines of a command, with those of standard error among them."""
        inherited = {name: value for name, value in os.environ.items() if name != "CCU_ALL_TESTS"}
        path = path or f"{self.at('programs')}:{os.environ['PATH']}"
        done = subprocess.run([self.at(command[0]), *command[1:]], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, check=False, env={**inherited, **environment, "PATH": path})
        return done.returncode, done.stdout.splitlines()

    def tested(self):
        """What ctest was told to leave out, run by run; None for nothing."""
        if not os.path.exists(self.orders):
            return []
        with open(self.orders, encoding="utf-8") as file:
            orders = [line.split() for line in file]
        return [order[order.index("--label-exclude") + 1] if "--label-exclude" in order else None for order in orders]


@pytest.fixture(name="tree")
def tree_fixture(tmp_path):
    """A tree on a machine that lets its users have namespaces."""
    return Tree(tmp_path)


def test_all_is_tested_where_namespaces_are_to_be_had(tree):
    status, lines = tree.run("ccu", "test")
    assert status == 0 and not any("LEFT OUT" in line for line in lines)
    assert tree.tested() == [None] * 3


def test_what_is_left_out_is_said_first_and_last(tree):
    """With the reason, and the rest is tested."""
    tree.refuse()
    status, lines = tree.run("ccu", "test")
    assert status == 0 and tree.tested() == ["^namespaces$"] * 3
    assert lines[0].startswith("LEFT OUT: the tests with the real systemd-timedated and with installed packages; ")
    assert REFUSAL in lines[0] and lines[-1] == lines[0] and lines.count("tested") == 3


def test_a_failure_is_not_hidden_by_what_is_left_out(tree):
    """It is still said at the end."""
    tree.refuse()
    tree.stand_in("ctest", "exit 8")
    status, lines = tree.run("ccu", "test")
    assert status == 8 and lines[-1] == lines[0]


def test_nothing_is_left_out_where_all_is_wanted(tree):
    """Then nothing is tested, and the reason is told."""
    tree.refuse()
    status, lines = tree.run("ccu", "test", CCU_ALL_TESTS="1")
    assert status == 1 and tree.tested() == []
    assert REFUSAL in lines[0] and lines[1:] == ["ccu: CCU_ALL_TESTS=1 lets nothing be left out"]


def test_what_a_change_must_pass_is_all(tree):
    """The script for that wants all tests."""
    with open(tree.at("ccu"), "w", encoding="utf-8") as file:
        file.write('#!/bin/sh\necho "$* $CCU_ALL_TESTS"\n')
    assert tree.run(".ci/run") == (0, ["check 1", "test 1"])


def orders(tree):
    """The options of ctest that choose tests, run by run."""
    with open(tree.orders, encoding="utf-8") as file:
        return [line.partition(" -j ")[2].split()[1:] for line in file]


def test_the_quick_ones(tree):
    """Are those of one build, and leave out what takes long, wherever they run."""
    tree.refuse()
    assert tree.run("ccu", "test", "quick")[0] == 0
    assert orders(tree) == [["--label-exclude", "^(matrix|long|namespaces)$"]]


def test_those_that_are_named(tree):
    """And no others."""
    assert tree.run("ccu", "test", "sound", "recording_faults_.*")[0] == 0
    assert orders(tree) == [["--tests-regex", r"\.(sound|recording_faults_.*)$"]]


def test_the_browser_is_for_its_own_tests_alone(tree):
    """They are run, and what they need is installed, when they are asked for and never else."""
    with open(tree.at("packaging", "packages.txt"), "w", encoding="utf-8") as file:
        file.write("# The list\ncommon\n\n# Only for browser\nbrowsers\n")
    tree.stand_in("dpkg-query", "true")
    tree.stand_in("apt-get", f'echo "recommends $*" >> {tree.orders}')
    tree.stand_in("sudo", 'exec "$@"')
    os.makedirs(tree.at("tests", "browser"))
    for name, verdict in (("good", True), ("bad", False)):
        with open(tree.at("tests", "browser", f"test_{name}.py"), "w", encoding="utf-8") as file:
            file.write(f"def test_{name}():\n    assert {verdict}\n")
    status, lines = tree.run("ccu", "test", "browser")
    assert status == 1 and "1 failed, 1 passed" in lines[-1]
    assert tree.run("ccu", "test", "browser", "-k", "good")[0] == 0
    assert tree.run("ccu", "test", "quick")[0] == 0
    with open(tree.orders, encoding="utf-8") as file:
        installed = [line.split()[-1] for line in file if "install" in line]
    assert installed == ["browsers", "browsers", "common"]


def test_the_packages_are_tried_in_a_root_of_their_own(tree):
    """By root, as all that it is told, on request alone; how that comes out is how the command does."""
    with open(tree.at("packaging", "packages.txt"), "w", encoding="utf-8") as file:
        file.write("# The list\ncommon\n\n# Only for root\nroots\n\n# Only for browser\nbrowsers\n")
    tree.stand_in("dpkg-query", "true")
    for program in ("apt-get", "../packaging/make-packages", "../packaging/make-root"):
        tree.stand_in(program, f'echo "{os.path.basename(program)} $*" >> {tree.orders}')
    tree.stand_in("sudo", f'echo "root" >> {tree.orders}; exec "$@"')
    os.makedirs(tree.at("tests", "root"))
    with open(tree.at("tests", "root", "__main__.py"), "w", encoding="utf-8") as file:
        file.write(f"import sys\nprint(sys.argv[1:], file=open({tree.orders!r}, 'a'))\nsys.exit(3)\n")
    assert tree.run("ccu", "test", "root")[0] == 3
    with open(tree.orders, encoding="utf-8") as file:
        told = [line.rstrip().replace(tree.folder, "TREE") for line in file]
    told = [line.removeprefix("") for line in told if line != "root"]
    assert [line for line in told if "update" not in line] == [
        "apt-get install -y -qq --no-install-recommends common",
        "apt-get install -y -qq --no-install-recommends common roots",
        "make-packages TREE/build/release TREE/build/roots/packages", "make-root plain TREE/build/roots/plain",
        "['TREE/build/roots/plain', 'TREE/build/roots/packages']"]


def test_a_trial_that_cannot_be_made_is_no_refusal(tree):
    """The tests would fail, and so does the command."""
    os.unlink(tree.at("virtual_unit"))
    status, _ = tree.run("ccu", "test")
    assert status != 0 and tree.tested() == []


@pytest.mark.parametrize("label, named", [
    ("namespaces", {"installed_packages", "real_timedated"}),
    ("crash", {"crash_matrix"}),
    ("matrix", {"crash_matrix", "device_faults", "recording_faults_autolog", "recording_faults_photoTalk",
                "recording_faults_video", "snapshot_playback_faults", "time_faults"}),
    ("long", {"client_package", "demo", "field_core", "fuzz", "installed_packages", "packages", "packages_made",
              "screenshot"})])
def test_the_label_is_on_what_is_named(label, named):
    """And on nothing else."""
    listed = subprocess.run(["ctest", "--test-dir", os.environ["CCU_BUILD_DIR"], "--show-only", "--fixture-exclude-any",
                             ".", "--label-regex", f"^{label}$"], stdout=subprocess.PIPE, text=True, check=True).stdout
    names = re.findall(r"^ *Test +#\d+: (\S+)$", listed, re.MULTILINE)
    assert sorted(names) == sorted(f"integration.{name}" for name in named)


@pytest.fixture(name="bare")
def bare_fixture(tree):
    """A machine on which what the list names is missing; apt-get tells its orders."""
    with open(tree.at("packaging", "packages.txt"), "w", encoding="utf-8") as file:
        file.write("# The list\n\n# Build\ncommon # why\n\n# Only for bench test\nbenches\n\n# Only for check\nchecks\n\n"
                   "# Packages\nlate\n")
    tree.stand_in("dpkg-query", "true")
    tree.stand_in("apt-get", f'echo "$*" >> {tree.orders}')
    tree.stand_in("sudo", 'echo "as root" >&2; exec "$@"')
    tree.stand_in("id", "echo 0")
    tree.stand_in("sleep", f'echo "sleep $1" >> {tree.orders}')
    return tree


def ordered(tree):
    """What apt-get was told to do, and how often it was waited for."""
    with open(tree.orders, encoding="utf-8") as file:
        return [line.strip() for line in file]


@pytest.mark.parametrize("command, packages", [
    (["setup"], "common benches late"), (["setup", "demo"], "common late"), (["setup", "check"], "common checks late"),
    (["bench"], "common benches late"), (["demo"], "common late"), (["build"], "common late")])
def test_what_a_command_needs_is_installed_by_it_alone(bare, command, packages):
    """The others have what is common, whichever comes first in the list."""
    bare.run("ccu", *command)
    assert ordered(bare) == ["update -qq", f"install -y -qq --no-install-recommends {packages}"]


def test_what_is_there_is_not_installed(bare):
    """Nobody needs to be root then."""
    bare.stand_in("dpkg-query", 'printf "%s installed\\n" common benches late')
    bare.stand_in("id", "echo 1000")
    assert bare.run("ccu", "setup") == (0, []) and not os.path.exists(bare.orders)


def test_an_ordinary_user_installs_with_sudo(bare):
    """Which may ask for a password, so it is said before what for."""
    bare.stand_in("id", "echo 1000")
    assert bare.run("ccu", "setup", "demo") == (0, ["Installing: common late", "as root", "as root"])


def test_without_root_and_sudo_it_is_said_what_to_do(bare):
    """And nothing is begun."""
    for name in ("bash", "dirname", "awk", "env"):
        os.symlink(shutil.which(name), bare.at("programs", name))
    os.unlink(bare.at("programs", "sudo"))
    bare.stand_in("id", "echo 1000")
    status, lines = bare.run("ccu", "demo", path=bare.at("programs"))
    assert (status, lines) == (1, [
        "ccu: 'demo' needs Debian packages that only root can install, and there is no sudo here.",
        "Have root run: apt-get install --no-install-recommends common late"])
    assert not os.path.exists(bare.orders)


_LOCKED = "E: Could not get lock /var/lib/apt/lists/lock. It is held by process 1 (apt-get)"


def test_another_apt_get_is_waited_for(bare):
    """Each step, until the lock is free; that it waits is said once a step."""
    bare.stand_in("apt-get", f"""
        echo "$1" >> {bare.orders}
        [ "$(grep -c "$1" {bare.orders})" -gt 2 ] || {{ echo "{_LOCKED}" >&2; exit 100; }}""")
    status, lines = bare.run("ccu", "setup", "demo")
    assert status == 0 and ordered(bare) == ["update", "sleep 2"] * 2 + ["update"] + ["install", "sleep 2"] * 2 + ["install"]
    assert lines.count("Waiting for the other apt-get to end ...") == 2 and lines.count(_LOCKED) == 4


def test_an_apt_get_that_fails_is_not_tried_again(bare):
    """Its complaint is told, and the command ends."""
    bare.stand_in("apt-get", f'echo "$1" >> {bare.orders}; echo "E: Unable to locate package common"; exit 100')
    status, lines = bare.run("ccu", "demo")
    assert status == 1 and ordered(bare) == ["update"]
    assert lines == ["Installing: common late", "E: Unable to locate package common"]


@pytest.mark.parametrize("before, asked", [
    ([], ["-DCCU_TESTS=OFF"]),
    ([["build"]], ["-DCCU_TESTS=ON", None]),
    ([["demo"], ["test", "quick"]], ["-DCCU_TESTS=OFF", "-DCCU_TESTS=ON", None])])
def test_the_demo_needs_nothing_of_the_tests(tree, before, asked):
    """Where they were built they stay."""
    tree.stand_in("cmake", f"""case $* in *--build*) ;; *)
        mkdir -p {tree.at("build", "release")}; touch {tree.at("build", "release", "CMakeCache.txt")}
        echo "$*" >> {tree.orders};; esac""")
    for command in [*before, ["demo", "--list"]]:
        tree.run("ccu", *command)
    configured = [line.split() for line in ordered(tree) if line.startswith("--preset")]
    assert [next((word for word in words if "CCU_TESTS" in word), None) for words in configured] == asked
