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

    def run(self, *command, **environment):
        """The exit status and the lines of a command, with those of standard error among them."""
        inherited = {name: value for name, value in os.environ.items() if name != "CCU_ALL_TESTS"}
        path = f"{self.at('programs')}:{os.environ['PATH']}"
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
    ("long", {"client_package", "demo", "fuzz", "installed_packages", "packages", "screenshot"})])
def test_the_label_is_on_what_is_named(label, named):
    """And on nothing else."""
    listed = subprocess.run(["ctest", "--test-dir", os.environ["CCU_BUILD_DIR"], "--show-only", "--label-regex",
                             f"^{label}$"], stdout=subprocess.PIPE, text=True, check=True).stdout
    names = re.findall(r"^ *Test +#\d+: (\S+)$", listed, re.MULTILINE)
    assert sorted(names) == sorted(f"integration.{name}" for name in named)


def test_what_one_command_needs_is_installed_by_it_alone(tree):
    """The others have what is common, whichever comes first in the list."""
    with open(tree.at("packaging", "packages.txt"), "w", encoding="utf-8") as file:
        file.write("# The list\n\n# Build\ncommon # why\n\n# Only for bench\nbenches\n\n# Only for check\nchecks\n\n"
                   "# Packages\nlate\n")
    tree.stand_in("dpkg-query", "true")
    tree.stand_in("apt-get", f'echo "$*" >> {tree.orders}')
    tree.stand_in("sudo", 'exec "$@"')
    for command in ("setup", "bench"):
        tree.run("ccu", command)
    with open(tree.orders, encoding="utf-8") as file:
        installed = [line.split("recommends ")[1].strip() for line in file if "install" in line]
    assert installed == ["common late", "common benches late"]
