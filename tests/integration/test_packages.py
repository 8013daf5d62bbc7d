"""The Debian packages: what they hold and ask for, and that the system's files fit each other."""

import glob
import hashlib
import json
import os
import re
import subprocess
import tempfile

import pytest

from tests.integration.built_packages import (  # pylint: disable=unused-import
    BUILD, LIBRARIES, ROOT, UNIT_FILE, VERSION, make_packages, packages_fixture, run, text_of)
from tests.integration.foreign_programs import OWN, assembled, make_foreign

INTERFACE = "com.tavilon.common.Controller1"


# Contents -------------------------------------------------------------------------------------------------------------

#: What a package has besides the two files that all have.
CONTENTS = {
    "controllerd": [UNIT_FILE, f"{UNIT_FILE}.d/10-user.conf", "lib/udev/rules.d/60-controllerd.rules",
                    "usr/bin/controllerd", "usr/lib/controllerd/wait-for-siblings",
                    "usr/lib/sysusers.d/controllerd.conf", "usr/share/man/man8/controllerd.8.gz",
                    "usr/share/polkit-1/rules.d/60-controllerd.rules"],
    "libcontroller-client1": [f"{LIBRARIES}/libcontroller-client.so.1", f"{LIBRARIES}/libcontroller-client.so.1.1.0"],
    "libcontroller-client-dev": [
        f"{LIBRARIES}/libcontroller-client.so", f"{LIBRARIES}/pkgconfig/controller-client.pc",
        "usr/include/controller_client/*.h", f"{LIBRARIES}/cmake/ControllerClient/*.cmake",
        f"usr/share/dbus-1/interfaces/{INTERFACE}.Control.xml", f"usr/share/man/man5/{INTERFACE}.5.gz",
        "usr/share/python-dbusmock/templates/tavilon_controller.py",
        "usr/share/python-dbusmock/templates/tavilon_controller_zones.tsv",
        "usr/share/doc/libcontroller-client-dev/examples/*.cpp", "usr/share/doc/libcontroller-client-dev/examples/*.py",
        "usr/share/doc/libcontroller-client-dev/examples/follow_gjs.js",
        "usr/share/doc/libcontroller-client-dev/examples/dbus-next/follow_dbus_next.js",
        "usr/share/doc/libcontroller-client-dev/examples/dbus-next/package.json",
        "usr/share/doc/libcontroller-client-dev/examples/dbus-next/package-lock.json",
        "usr/share/doc/libcontroller-client-dev/examples/follow_gdbus.c",
        "usr/share/doc/libcontroller-client-dev/examples/HeartBeat.h"],
    "controllerctl": ["usr/bin/controllerctl", "usr/share/man/man1/controllerctl.1.gz",
                      "usr/share/bash-completion/completions/controllerctl",
                      "usr/share/zsh/vendor-completions/_controllerctl"],
    "controllerd-virtual-unit": [
        "usr/bin/ccu-unit", "usr/share/man/man1/ccu-unit.1.gz", "usr/share/bash-completion/completions/ccu-unit",
        "usr/share/zsh/vendor-completions/_ccu-unit", f"usr/share/ccu-unit/interfaces/{INTERFACE}.Control.xml",
        "usr/share/ccu-unit/interfaces/introspection.py", "usr/share/ccu-unit/virtual_unit/*.*",
        *(f"usr/share/ccu-unit/virtual_unit/{folder}/*.{kind}" for folder, kind in (
            ("chapters", "py"), ("completion", "bash"), ("completion", "zsh"), ("interfaces", "xml"),
            ("scenarios", "yaml"), ("traces", "py"), ("web", "py"), ("web/page", "*"))),
        *(f"usr/share/ccu-unit/virtual_unit/tools/{tool}" for tool in ("amixer", "aplay")),
        *(f"{LIBRARIES}/ccu-unit/{file}" for file in (
            "controllerctl/controllerctl", "daemon/controllerd", "virtual_unit/preload/lib*.so",
            "virtual_unit/preload/gps_export", "zones/*", "zones/*/*"))],
}
#: Programs that are not in a folder "bin".
ELSEWHERE = re.compile(r".*/(tools/\w+|gps_export)")

#: The packages that have programs or a library, with what is not in them but in packages of symbols.
PROGRAMS = {"controllerd": "usr/bin/controllerd", "controllerctl": "usr/bin/controllerctl",
            "libcontroller-client1": f"{LIBRARIES}/libcontroller-client.so.1.1.0"}

#: Packages that a package asks for.
DEPENDENCIES = {
    "controllerd": {"libc6", "libgcc-s1", "libgpiod2", "libgps28", "libinput10", "libpng16-16", "libsigc++-2.0-0v5",
                    "libstdc++6", "libsystemd0", "libudev1", "alsa-utils", "dbus-user-session", "polkitd", "systemd"},
    "libcontroller-client1": {"libc6", "libgcc-s1", "libstdc++6", "libsystemd0"},
    "libcontroller-client-dev": {"libcontroller-client1"},
    "controllerctl": {"libc6", "libgcc-s1", "libsigc++-2.0-0v5", "libstdc++6", "libsystemd0", "libcontroller-client1"},
    "controllerd-virtual-unit": {"libc6", "libgps28", "controllerctl", "controllerd", "dbus", "fonts-dejavu-core",
                                 "python3", "python3-dbus", "python3-gi", "python3-pil", "python3-yaml", "tzdata",
                                 "umockdev"},
}
COMPILED_IN = {"libcli11-dev", "nlohmann-json3-dev"}


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
    assert set(packages) == set(CONTENTS) | {f"{name}-dbgsym" for name in PROGRAMS}
    assert {field(package, "Version") for package in packages.values()} == {VERSION}


def test_the_same_tree_makes_the_same_packages(packages, tmp_path):
    """Bit for bit."""
    again = make_packages(tmp_path)
    for name, path in packages.items():
        with open(path, "rb") as first, open(again[name], "rb") as second:
            assert first.read() == second.read(), name


def test_lintian_has_nothing_to_complain_of(packages):
    """No errors and no warnings, and none that are overridden."""
    with tempfile.TemporaryDirectory() as folder:  # it leaves some of its files behind
        said = run("lintian", "--allow-root", "--fail-on", "error,warning", "--show-overrides", "--tag-display-limit",
                   "0", *packages.values(), env={**os.environ, "TMPDIR": folder})
    # Symbols alone have no interpreter, at which one of its tools wonders.
    assert said.replace("readelf: Error: Unable to find program interpreter name\n", "") == ""


def test_all_that_is_packed_is_built_for_it():
    """By one order, `ccu package`'s and Debian's own."""
    made = re.findall(r" -o (\S+)", run("ninja", "-C", BUILD, "-t", "commands", "packed"))
    assert {"daemon/controllerd", "controllerctl/controllerctl", "controller_client/libcontroller-client.so.1.1.0",
            "virtual_unit/preload/libplaces.so", "virtual_unit/preload/gps_export"} <= set(made)
    for file in ("ccu", "packaging/debian/rules"):
        assert "--target packed\n" in text_of(file), file


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
        program = "/bin/" in path or ELSEWHERE.fullmatch(path)
        assert mode == ("lrwxrwxrwx" if mode[0] == "l" else "-rwxr-xr-x" if program else "-rw-r--r--"), path


@pytest.mark.parametrize("name", PROGRAMS)
def test_symbols_are_those_of_the_program(packages, tmp_path, name):
    """By the build's identifier, under which debuggers look for them; they come with the very program's version."""
    for package in (packages[name], packages[f"{name}-dbgsym"]):
        run("dpkg-deb", "--extract", package, str(tmp_path))
    identifier = re.search(r"Build ID: (\S+)", run("readelf", "--notes", f"{tmp_path}/{PROGRAMS[name]}")).group(1)
    symbols = f"usr/lib/debug/.build-id/{identifier[:2]}/{identifier[2:]}.debug"
    assert ".debug_line" in run("readelf", "--section-headers", "--wide", f"{tmp_path}/{symbols}")
    assert set(contents(packages[f"{name}-dbgsym"])) == {symbols, f"usr/share/doc/{name}-dbgsym"}
    assert field(packages[f"{name}-dbgsym"], "Depends") == f"{name} (= {field(packages[name], 'Version')})"
    assert field(packages[f"{name}-dbgsym"], "Build-Ids") == identifier


def test_an_installation_has_what_the_packages_have(packages, tmp_path):
    """Whoever makes images of another kind has the rules of the build for that, and needs no list.  The virtual unit is in
    no image."""
    run("cmake", "--install", BUILD, "--prefix", f"{tmp_path}/usr")
    installed = {os.path.relpath(os.path.join(folder, name), tmp_path)
                 for folder, _, names in os.walk(tmp_path) for name in names}
    packed = {path for name in CONTENTS.keys() - {"controllerd-virtual-unit"} for path in contents(packages[name])
              if not re.fullmatch(r"usr/share/doc/[^/]+/(changelog\.gz|copyright)", path)}
    assert {re.sub(r"^usr/(lib/(systemd|udev)/)", r"\1", path) for path in installed} == {
        re.sub(r"^(usr/share/man/.*)\.gz$", r"\1", path) for path in packed}


@pytest.mark.parametrize("name", DEPENDENCIES)
def test_a_package_asks_for_what_it_needs(packages, name):
    """With the versions that its symbols call for."""
    asked = dict(re.fullmatch(r"(\S+)(?: \((.*)\))?", item).groups()
                 for item in field(packages[name], "Depends").split(", "))
    assert set(asked) == DEPENDENCIES[name]
    for library in DEPENDENCIES[name] & {"libc6", "libstdc++6", "libsystemd0"}:
        assert asked[library].startswith(">= "), library
    assert asked.get("libcontroller-client1", "") == {"libcontroller-client-dev": "= 1.1.0",
                                                      "controllerctl": ">= 1.1.0"}.get(name, "")


def test_the_library_lists_its_symbols(packages, tmp_path):
    """All that it exports, since the first version of the library."""
    package = packages["libcontroller-client1"]
    assert control_member(package, "shlibs") == "libcontroller-client 1 libcontroller-client1 (>= 1.1.0)\n"
    assert control_member(package, "triggers") == "activate-noawait ldconfig\n"
    first, _, *listed = control_member(package, "symbols").splitlines()
    assert first == "libcontroller-client.so.1 libcontroller-client1 #MINVER#"
    run("dpkg-deb", "--extract", package, str(tmp_path))
    exported = run("nm", "-D", "--defined-only", "--format=just-symbols",
                   f"{tmp_path}/{LIBRARIES}/libcontroller-client.so.1").split()
    assert sorted(line.split()[0] for line in listed) == sorted(
        name.replace("@@", "@") if "@" in name else f"{name}@{name}" for name in exported)


def test_programs_are_stripped_and_look_for_libraries_where_they_should(packages, tmp_path):
    for name in (*PROGRAMS, "controllerd-virtual-unit"):
        run("dpkg-deb", "--extract", packages[name], str(tmp_path))
    programs = [os.path.join(tmp_path, path) for name, package in packages.items() for path in contents(package)
                if re.search(r"/bin/controller|\.so\.1\.1\.0$|/preload/", path)]
    assert len(programs) > 10
    for path in programs:
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


# Bill of materials ----------------------------------------------------------------------------------------------------


def make_bill(folder):
    """What is beside the packages of this build."""
    run(os.path.join(ROOT, "packaging", "make-sbom"), BUILD, str(folder))
    with open(glob.glob(f"{folder}/*.spdx.json")[0], encoding="utf-8") as file:
        return json.load(file)


@pytest.fixture(scope="module", name="bill")
def bill_fixture(packages):
    """That of the packages."""
    return make_bill(os.path.dirname(packages["controllerd"]))


def related(bill, name, kind):
    """The packages to which one has this relation."""
    names = {entry["SPDXID"]: entry["name"] for entry in bill["packages"]}
    return {names[relation["relatedSpdxElement"]] for relation in bill["relationships"]
            if relation["relationshipType"] == kind
            and (relation["spdxElementId"] == name or names.get(relation["spdxElementId"]) == name)}


def test_the_bill_has_the_packages_and_their_sums(packages, bill):
    assert related(bill, "SPDXRef-DOCUMENT", "DESCRIBES") == set(CONTENTS)
    for entry in bill["packages"]:
        if entry["name"] in CONTENTS:
            with open(packages[entry["name"]], "rb") as file:
                assert entry["checksums"][0]["checksumValue"] == hashlib.sha256(file.read()).hexdigest()


@pytest.mark.parametrize("name", DEPENDENCIES)
def test_the_bill_has_what_a_package_is_linked_to(bill, name):
    """The libraries that it asks for; of our own one the others' packages say enough."""
    linked = {item for item in DEPENDENCIES[name] if item.startswith("lib") and not item.startswith("libcontroller")}
    assert {item for item in related(bill, name, "DYNAMIC_LINK")} == linked
    assert related(bill, name, "CONTAINS") == (COMPILED_IN if name == "controllerctl" else set())


def test_the_bill_is_one_of_spdx(bill):
    """With all that the format demands of it, and nothing that refers to nothing."""
    assert bill["spdxVersion"] == "SPDX-2.3" and bill["dataLicense"] == "CC0-1.0" and bill["documentNamespace"]
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", bill["creationInfo"]["created"])
    identifiers = [entry["SPDXID"] for entry in bill["packages"]]
    assert len(set(identifiers)) == len(identifiers)
    for entry in bill["packages"]:
        assert re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", entry["SPDXID"])
        assert entry["name"] and entry["versionInfo"] and entry["downloadLocation"]
    ends = {relation[end] for relation in bill["relationships"] for end in ("spdxElementId", "relatedSpdxElement")}
    assert ends == {"SPDXRef-DOCUMENT", *identifiers}


def test_the_bill_is_the_same_for_the_same_packages(packages, bill):
    assert make_bill(os.path.dirname(packages["controllerd"])) == bill


@pytest.mark.parametrize("name", sorted(COMPILED_IN))
def test_the_notices_of_what_is_compiled_in_go_along(name):
    """Holders and licence, as they are with the headers."""
    own = " ".join(text_of("packaging", "debian", "copyright").split())
    with open(f"/usr/share/doc/{name}/copyright", encoding="utf-8") as file:
        theirs = file.read()
    holder, licence = re.search(r"^Files: \*\nCopyright: (.*)\nLicense: (.*)$", theirs, re.MULTILINE).groups()
    text = re.search(rf"^License: {licence}\n((?: .*\n)+)", theirs, re.MULTILINE).group(1)
    assert holder in own and " ".join(text.split()) in own


# Architectures --------------------------------------------------------------------------------------------------------

#: Installs what the packages have, in the place of a build.
FOREIGN_BUILD = """cmake_minimum_required(VERSION 3.25)
project(foreign LANGUAGES NONE)
install(PROGRAMS controllerd DESTINATION bin COMPONENT daemon)
install(PROGRAMS controllerctl DESTINATION bin COMPONENT ctl)
install(FILES libcontroller-client.so.1.1.0 DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT client)
install(FILES CMakeLists.txt DESTINATION include COMPONENT client_dev)
install(FILES CMakeLists.txt DESTINATION share COMPONENT unit)
"""


def make_build(folder, libraries, daemon, library, control):
    """What was built for these architectures."""
    folder.mkdir()
    for name, architecture in (("controllerd", daemon), ("libcontroller-client.so.1.1.0", library),
                               ("controllerctl", control)):
        make_foreign(folder / name, architecture)
    (folder / "CMakeLists.txt").write_text(FOREIGN_BUILD)
    run("cmake", "-S", str(folder), "-B", str(folder / "build"), f"-DCMAKE_INSTALL_LIBDIR={libraries}")
    return folder / "build"


def packages_of(build, output):
    """What making packages of a build comes to: its status and what it says."""
    done = subprocess.run([os.path.join(ROOT, "packaging", "make-packages"), str(build), str(output)],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode, done.stdout


@pytest.mark.parametrize("architecture, triplet", assembled(
    ("amd64", "x86_64-linux-gnu"), ("arm64", "aarch64-linux-gnu"), ("armhf", "arm-linux-gnueabihf")))
def test_packages_are_for_what_was_built(tmp_path, architecture, triplet):
    """Whatever machine makes them, and their libraries are where that architecture's are."""
    build = make_build(tmp_path / "foreign", f"lib/{triplet}", *[architecture] * 3)
    status, said = packages_of(build, tmp_path / "packages")
    assert status == 0, said
    made = sorted((tmp_path / "packages").iterdir())
    assert [path.name for path in made] == sorted(f"{name}_1.1.0_{architecture}.deb" for name in CONTENTS)
    assert {field(str(path), "Architecture") for path in made} == {architecture}


def test_packages_of_this_build_are_for_its_machine(packages):
    assert {field(path, "Architecture") for path in packages.values()} == {OWN}


@pytest.mark.parametrize("architectures, libraries, refusal", assembled(
    (("amd64", "amd64", "arm64"), "lib/x86_64-linux-gnu",
     "is a mixture: usr/lib/x86_64-linux-gnu/libcontroller-client.so.1.1.0 is for amd64, "
     "usr/bin/controllerctl for arm64\n"),
    (("arm64", "amd64", "amd64"), "lib/x86_64-linux-gnu",
     "is a mixture: usr/lib/x86_64-linux-gnu/libcontroller-client.so.1.1.0 is for amd64, "
     "usr/bin/controllerd for arm64\n"),
    (("armel",) * 3, "lib/arm-linux-gnueabi",
     "usr/lib/arm-linux-gnueabi/libcontroller-client.so.1.1.0 is for neither amd64, arm64 nor armhf: "
     "ELF32 ARM 0x5000200, Version5 EABI, soft-float ABI\n"),
    (("arm64",) * 3, "lib/x86_64-linux-gnu",
     "puts libraries elsewhere than Debian does for arm64: "
     "configure it anew (cmake --fresh), with CMAKE_INSTALL_LIBDIR=lib/aarch64-linux-gnu\n"),
    (("amd64",) * 3, "lib",
     "puts libraries elsewhere than Debian does for amd64: "
     "configure it anew (cmake --fresh), with CMAKE_INSTALL_LIBDIR=lib/x86_64-linux-gnu\n")))
def test_what_is_no_build_for_one_architecture_is_refused(tmp_path, architectures, libraries, refusal):
    """Before there is any package."""
    build = make_build(tmp_path / "foreign", libraries, *architectures)
    status, said = packages_of(build, tmp_path / "packages")
    assert status == 1 and said.removeprefix(f"{build} ") == refusal
    assert list((tmp_path / "packages").iterdir()) == []


# System files ---------------------------------------------------------------------------------------------------------


def test_user_groups_and_devices_are_those_of_the_service():
    """Of sysusers, udev and polkit alike."""
    service = text_of("packaging", "systemd", "controllerd.service")
    user = re.search(r"^User=(.*)$", service, re.MULTILINE).group(1)
    drop_in = text_of("packaging", "systemd", "10-user.conf")
    number = re.search(r"^Wants=user@(\d+)\.service$", drop_in, re.MULTILINE).group(1)
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
