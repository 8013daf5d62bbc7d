"""Packages for other architectures: presets, toolchains, the throw-away root and the check of what came out.

That they are built and packed is for `./ccu package --arch` itself to show, which checks what it has made; here stand
programs in the places of those that take minutes.
"""

import json
import os
import shutil
import subprocess

import pytest

from tests.integration.built_packages import ROOT, run, text_of
from tests.integration.foreign_programs import assembled, make_foreign
from tests.integration.test_ccu import Tree

ARCHITECTURES = ("arm64", "armhf")


@pytest.mark.parametrize("architecture", ARCHITECTURES)
def test_a_toolchain_is_debians(tmp_path, architecture):
    """Compilers, place of the libraries and pkg-config, as Debian names them for the architecture of the preset."""
    presets = {preset["name"]: preset for preset in json.loads(text_of("CMakePresets.json"))["configurePresets"]}
    names = ("CMAKE_SYSTEM_NAME", "CMAKE_SYSTEM_PROCESSOR", "CMAKE_LIBRARY_ARCHITECTURE", "CMAKE_C_COMPILER",
             "CMAKE_CXX_COMPILER", "PKG_CONFIG_EXECUTABLE")
    script = tmp_path / "show.cmake"
    script.write_text(f"include({os.path.join(ROOT, presets[architecture]['toolchainFile'])})\n"
                      + "".join(f'message("{name}=${{{name}}}")\n' for name in names))
    found = dict(line.split("=", 1) for line in run("cmake", "-P", str(script)).splitlines())
    debian = dict(line.split("=", 1) for line in subprocess.run(
        ["dpkg-architecture", "-f", f"-a{architecture}"], capture_output=True, text=True, check=True,
        env={"PATH": os.environ["PATH"]}).stdout.splitlines())
    triplet = debian["DEB_HOST_GNU_TYPE"]
    assert list(found.values()) == ["Linux", debian["DEB_HOST_GNU_CPU"], debian["DEB_HOST_MULTIARCH"],
                                    f"{triplet}-gcc", f"{triplet}-g++", f"{triplet}-pkg-config"]


class CrossTree(Tree):
    """A tree whose packaging writes down what it is told."""

    def __init__(self, folder):
        super().__init__(folder)
        for name in ("make-root", "in-root", "check-packages"):
            self.stand_in(name, f'echo "{name} $*" >>{self.orders}')
            os.rename(self.at("programs", name), self.at("packaging", name))
        self.stand_in("sudo", 'exec "$@"')

    def told(self):
        """What packaging was told, without the name of the tree."""
        if not os.path.exists(self.orders):
            return []
        with open(self.orders, encoding="utf-8") as file:
            return file.read().replace(self.folder, "TREE").splitlines()


@pytest.fixture(name="tree")
def tree_fixture(tmp_path):
    """A tree with nothing to build."""
    return CrossTree(tmp_path)


@pytest.mark.parametrize("architecture", ARCHITECTURES)
def test_packages_of_an_architecture_are_made_in_its_root_and_checked(tree, architecture):
    assert tree.run("ccu", "package", "--arch", architecture) == (0, [])
    folder = f"TREE/build/roots/{architecture}"
    assert tree.told() == [f"make-root {architecture} {folder}",
                           f"in-root {folder} TREE ./ccu package-in-root {architecture}",
                           f"check-packages {architecture} TREE/build/packages/{architecture}"]


def test_packages_that_the_check_refuses_are_no_success(tree):
    shutil.copy(tree.at("packaging", "in-root"), tree.at("packaging", "check-packages"))
    with open(tree.at("packaging", "check-packages"), "a", encoding="utf-8") as file:
        file.write("exit 3\n")
    assert tree.run("ccu", "package", "--arch", "arm64")[0] == 3


@pytest.mark.parametrize("arguments, refusal", [
    (["--arch"], "ccu: packages can be made for arm64 and armhf, not for ''"),
    (["--arch", "DebianCross"], "ccu: packages can be made for arm64 and armhf, not for 'DebianCross'"),
    (["--arch", "armhf\narm64"], "ccu: packages can be made for arm64 and armhf, not for 'armhf\narm64'"),
    (["--arch", "../release"], "ccu: packages can be made for arm64 and armhf, not for '../release'"),
    (["arm64"], "ccu: package takes --arch ARCH and nothing else")])
def test_what_package_does_not_take_is_refused(tree, arguments, refusal):
    """Before anything is installed or made."""
    status, lines = tree.run("ccu", "package", *arguments)
    assert (status, "\n".join(lines), tree.told()) == (2, refusal, [])


# The root -------------------------------------------------------------------------------------------------------------


@pytest.fixture(name="packaging")
def packaging_fixture(tmp_path):
    """The script that makes the root, with what it reads, and a stand-in that notes what it makes."""
    folder = tmp_path / "packaging"
    (folder / "debian").mkdir(parents=True)
    shutil.copy(os.path.join(ROOT, "packaging", "make-root"), folder)
    (folder / "debian" / "control").write_text("Source: controllerd\n")
    programs = tmp_path / "programs"
    programs.mkdir()
    (programs / "mmdebstrap").write_text(
        f'#!/bin/sh\necho "$*" >>{tmp_path}/made\n'
        f'mkdir {tmp_path}/root\n[ ! -e {tmp_path}/broken ] && [ "$alone" = --mount ]\n')
    (programs / "unshare").write_text('#!/bin/sh\nexport alone=$1\nshift\nexec "$@"\n')  # only root may do it
    for name in ("mmdebstrap", "unshare"):
        (programs / name).chmod(0o755)
    return folder


def make_root(packaging):
    """Its status, and how often a root has been made by now."""
    folder = packaging.parent
    done = subprocess.run([packaging / "make-root", "armhf", folder / "root"], capture_output=True, check=False,
                          env={**os.environ, "PATH": f"{folder}/programs:{os.environ['PATH']}"})
    return done.returncode, len((folder / "made").read_text().splitlines())


def test_a_root_is_kept_until_something_else_is_wanted_of_it(packaging):
    assert make_root(packaging) == (0, 1)
    assert make_root(packaging) == (0, 1)
    (packaging / "debian" / "control").write_text("Source: controllerd\nBuild-Depends: another\n")
    assert make_root(packaging) == (0, 2)
    made = (packaging.parent / "made").read_text()
    assert "--include=crossbuild-essential-armhf" in made and "--host-architecture=armhf /source" in made


def test_half_a_root_is_none(packaging):
    """It is not taken for one later."""
    broken = packaging.parent / "broken"
    broken.touch()
    assert make_root(packaging) == (1, 1)
    assert not (packaging.parent / "root").exists()
    broken.unlink()
    assert make_root(packaging) == (0, 2)


# The check ------------------------------------------------------------------------------------------------------------


def make_package(folder, architecture, program):
    """A package, as far as the check has to do with it, of that architecture with a program of this one."""
    stage = folder / "stage"
    (stage / "DEBIAN").mkdir(parents=True)
    (stage / "DEBIAN" / "control").write_text(
        f"Package: some\nVersion: 1\nArchitecture: {architecture}\nMaintainer: Some <some@some.example>\n"
        "Description: package\n")
    (stage / "opt").mkdir()
    make_foreign(folder / "program", program)
    shutil.copy(folder / "program", stage / "opt")
    output = folder / "packages"
    output.mkdir()
    run("dpkg-deb", "--root-owner-group", "--build", str(stage), str(output))
    return output


@pytest.mark.parametrize("program, package, refusal", assembled(
    ("arm64", "amd64", "some_1_amd64.deb is for amd64\n"),
    ("amd64", "arm64", "some_1_arm64.deb: opt/program is for amd64\n"),
    ("armel", "arm64", "some_1_arm64.deb: opt/program is for neither amd64, arm64 nor armhf: "
                       "ELF32 ARM 0x5000200, Version5 EABI, soft-float ABI\n"),
    ("arm64", "arm64", None)))
def test_packages_of_something_else_are_refused(tmp_path, program, package, refusal):
    """Their name says nothing, and what is left is for lintian to say, which does not like this one either."""
    folder = make_package(tmp_path, package, program)
    done = subprocess.run([os.path.join(ROOT, "packaging", "check-packages"), "arm64", folder], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    assert done.returncode != 0
    if refusal is None:
        assert "E: some: no-copyright-file\n" in done.stdout
    else:
        assert done.stdout.removeprefix(f"{folder}/") == refusal
