"""The client library as other programs find it: what is installed, and what they are built and run with."""

import glob
import os
import re
import subprocess
from xml.etree import ElementTree

import pytest

from interfaces.introspection import controller_text
from tests.integration.client_driver import error
from tests.integration.installed_client import (  # pylint: disable=unused-import
    ROOT, cached, install, library_folder_fixture, prefix_fixture, run)

INTERFACE = "com.tavilon.common.Controller1.Control"
CLASS = "Controllerd::ControllerDaemonDbusHandler::"
HEADERS = {"ControllerAsync.h", "ControllerCodes.h", "ControllerDaemonDbusHandler.h", "ControllerFailure.h",
           "ControllerSignals.h", "ControllerTimeout.h", "Export.h", "LocalDateTime.h"}
#: The newest node of the library's map: that of the next release.
NEXT = "CONTROLLER_CLIENT_1.1"


@pytest.fixture(scope="module", name="example")
def example_fixture(tmp_path_factory):
    """A folder with the example of the manual, file by file."""
    with open(os.path.join(ROOT, "docs", "client-library.md"), encoding="utf-8") as file:
        blocks = dict(re.findall(r"^```(\w+)\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL))
    folder = tmp_path_factory.mktemp("example")
    (folder / "snapshot.cpp").write_text(blocks["cpp"])
    (folder / "CMakeLists.txt").write_text(blocks["cmake"])
    (folder / "build.sh").write_text(blocks["sh"])
    return folder


def check_program(unit, program, library_folder):
    """The program takes a snapshot by the controller that is there, and tells of one that is not."""
    environment = {**os.environ, **unit.daemon.environment(), "LD_LIBRARY_PATH": library_folder}
    mark = unit.calls.mark()
    assert run(program, env=environment) == "/snapshot.jpeg\n"
    assert [(call.member, call.arguments) for call in unit.calls.since(mark)] == [("Snapshot", (1920, 1080, 90))]
    rule = unit.faults.on("controller", "Snapshot")
    done = subprocess.run([program], env=environment, capture_output=True, text=True, check=False)
    rule.cancel()
    assert (done.returncode, done.stdout, done.stderr) == (2, "", "refused by the simulation\n")
    log = unit.log.mark()
    environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={unit.directory}/no-bus"
    done = subprocess.run([program], env=environment, capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", "No such file or directory\n")
    assert unit.log.since(log) == [error(
        "static int Controllerd::ControllerDaemonDbusHandler::TakeSnapshot(unsigned int, unsigned int, unsigned int, "
        "std::string&, int&, std::string&): Cannot open bus")]


def test_a_program_is_built_by_the_cmake_package(stand_in, prefix, library_folder, example):
    """As the manual says."""
    build = str(example / "build")
    run("cmake", "-S", str(example), "-B", build, f"-DCMAKE_PREFIX_PATH={prefix}",
        f"-DCMAKE_CXX_COMPILER={cached('CMAKE_CXX_COMPILER')}")
    run("cmake", "--build", build)
    check_program(stand_in, os.path.join(build, "snapshot"), library_folder)


def test_a_program_is_built_by_pkg_config(stand_in, library_folder, example):
    """As the manual says."""
    script = (example / "build.sh").read_text().replace("c++", '"$CXX"', 1)
    run("sh", "-e", "-c", script, cwd=example, env={**os.environ, "CXX": cached("CMAKE_CXX_COMPILER"),
                                                    "PKG_CONFIG_PATH": os.path.join(library_folder, "pkgconfig")})
    check_program(stand_in, str(example / "snapshot"), library_folder)


@pytest.mark.parametrize("wanted, suits", [("1.0", True), ("1.1", True), ("1.1.0", True), ("1.2", False),
                                            ("2.0", False)])
def test_the_version_is_told(prefix, library_folder, tmp_path, wanted, suits):
    """Another main version does not suit, nor does a later one."""
    script = tmp_path / "wanted.cmake"
    script.write_text("set(CMAKE_SIZEOF_VOID_P 8)\nset(PACKAGE_FIND_VERSION {0})\n"
                      "string(REPLACE . \";\" parts {0})\nlist(GET parts 0 PACKAGE_FIND_VERSION_MAJOR)\n"
                      "include({1}/cmake/ControllerClient/ControllerClientConfigVersion.cmake)\n"
                      "message(\"suits ${{PACKAGE_VERSION_COMPATIBLE}}\")\n".format(wanted, library_folder))
    assert ("suits TRUE" in run("cmake", "-P", str(script))) == suits
    environment = {**os.environ, "PKG_CONFIG_PATH": os.path.join(library_folder, "pkgconfig")}
    assert run("pkg-config", "--modversion", "controller-client", env=environment) == "1.1.0\n"
    assert prefix in run("pkg-config", "--cflags", "controller-client", env=environment)


def test_each_component_has_its_files(tmp_path):
    """A unit gets the library and the daemon alone; what programmers need comes apart."""
    libraries = cached("CMAKE_INSTALL_LIBDIR")
    client = install(tmp_path / "client", "client")
    assert client == {f"{libraries}/libcontroller-client.so.1", f"{libraries}/libcontroller-client.so.1.1.0"}
    development = install(tmp_path / "client_dev", "client_dev")
    assert {name for name in development if name.startswith("include/")} == \
        {f"include/controller_client/{name}" for name in HEADERS}
    assert {f"{libraries}/libcontroller-client.so", f"{libraries}/pkgconfig/controller-client.pc",
            f"share/dbus-1/interfaces/{INTERFACE}.xml"} < development
    daemon = install(tmp_path / "daemon", "daemon")  # all of it: test_packages
    assert "bin/controllerd" in daemon and not daemon & (client | development)


def test_the_headers_need_no_other_library(prefix):
    """Nor do they speak of one: the standard library's and their own."""
    for name in HEADERS:
        path = os.path.join(prefix, "include", "controller_client", name)
        with open(path, encoding="utf-8") as file:
            text = file.read()
        assert "sd_" not in text and "sd-bus.h" not in text
        for included in re.findall(r"^#include (.*)$", text, re.MULTILINE):
            assert included[1:-1] in {f"controller_client/{header}" for header in HEADERS} or "." not in included
        run(cached("CMAKE_CXX_COMPILER"), "-std=c++11", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only",
            "-I", os.path.join(prefix, "include"), "-include", path, "-x", "c++", "/dev/null")


def exported(library_folder, *options):
    """What the library gives away: names and their versions."""
    lines = run("nm", "-D", "--defined-only", *options, os.path.join(library_folder, "libcontroller-client.so"))
    symbols = [line.split(" ", 2)[1:] for line in lines.splitlines()]
    assert {kind for kind, _ in symbols} == {"T", "A"}  # the latter are the versions' own
    return dict(name.split("@@") for kind, name in symbols if kind == "T")


def test_the_library_exports_its_classes_alone(library_folder):
    """Each operation once; neither the core nor the standard library's templates."""
    names = set(exported(library_folder, "-C"))
    with open(os.path.join(ROOT, "controller_client", "libcontroller-client.map"), encoding="utf-8") as file:
        classes = set(re.findall(r"Controllerd::(\w+)::", file.read()))
    assert {re.match(r"Controllerd::(\w+)::", name).group(1) for name in names} == classes
    with open(os.path.join(ROOT, "controller_client", "ControllerDaemonDbusHandler.h"), encoding="utf-8") as file:
        text = re.sub(r"static int [^;]* = delete;", "", file.read())
    listed = re.findall(r"\bstatic int (\w+)\(", text)
    operations = [name.removeprefix(CLASS).partition("(")[0] for name in names if name.startswith(CLASS)]
    assert sorted(operations) == sorted(listed)
    assert len(re.findall(r"CONTROLLER_CLIENT_RESULT static int ", text)) == len(listed)


def test_what_the_library_gives_away_keeps_the_version_with_which_it_came(library_folder):
    """That of the last release, and the next one's for all that has come since then: a program that needs more than an
    older library has is refused when it starts."""
    [path] = glob.glob(os.path.join(ROOT, "controller_client", "abi", "*.abi"))
    released = {symbol.get("name"): symbol.get("version")
                for symbol in ElementTree.parse(path).iter("elf-symbol") if symbol.get("type") == "func-type"}
    now = exported(library_folder)
    assert released.items() <= now.items()
    assert {now[name] for name in now.keys() - released} == {NEXT}
    assert NEXT not in released.values()


def test_the_library_says_what_it_is_and_needs(library_folder):
    """Its soname, and of other libraries the bus's alone."""
    dynamic = run("readelf", "-d", os.path.join(library_folder, "libcontroller-client.so"))
    assert re.findall(r"\(SONAME\).*\[(.*)\]", dynamic) == ["libcontroller-client.so.1"]
    needed = {name for name in re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
              if not re.match(r"(libstdc\+\+|libc|libm|libgcc_s|libasan|libubsan|ld-linux.*)\.so", name)}
    assert needed == {"libsystemd.so.0"}
    assert "RPATH" not in dynamic and "RUNPATH" not in dynamic


# The interface as XML -------------------------------------------------------------------------------------------------


def test_the_installed_interface_is_the_file_that_is_kept(prefix):
    """As it stands; the daemon and its stand-in are held to that one."""
    with open(f"{prefix}/share/dbus-1/interfaces/{INTERFACE}.xml", encoding="utf-8") as file:
        assert file.read() == controller_text()
    assert ElementTree.fromstring(controller_text()).get("name") == "/com/tavilon/common/Controller1"
