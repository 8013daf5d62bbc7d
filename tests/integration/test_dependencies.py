"""What the build asks CMake for, and what else says it: Debian's source package, set-up, and the examples for Yocto and
Buildroot.
"""

import glob
import os
import re

from tests.integration.built_packages import ROOT, text_of

#: What CMake asks for by the name of pkg-config or of its own package: the packages of Debian, Yocto and Buildroot.
SUPPLIERS = {
    "CLI11": ("libcli11-dev", "cli11", "cli11"),
    "libgps": ("libgps-dev", "gpsd", "gpsd"),
    "libgpiod": ("libgpiod-dev", "libgpiod", "libgpiod"),
    "libinput": ("libinput-dev", "libinput", "libinput"),
    "libpng": ("libpng-dev", "libpng", "libpng"),
    "libsystemd": ("libsystemd-dev", "systemd", "systemd"),
    "libudev": ("libudev-dev", "udev", "systemd"),
    "nlohmann_json": ("nlohmann-json3-dev", "nlohmann-json", "json-for-modern-cpp"),
    "sigc++-2.0": ("libsigc++-2.0-dev", "libsigc++-2.0", "libsigc"),
}
#: Those of the C library, and of the tests.
ELSEWHERE = {"Threads", "PkgConfig", "GTest"}

DEBIAN, YOCTO, BUILDROOT = range(3)
DEBIAN_TOOLS = {"cmake", "ninja-build", "pkg-config"}


def wanted():
    """What the build asks for, the tests and benchmarks aside."""
    found = set()
    folders = set(re.findall(r"^add_subdirectory\((\w+)\)", text_of("CMakeLists.txt"), re.MULTILINE))
    paths = [os.path.join(ROOT, "CMakeLists.txt")]
    for folder in folders:
        paths += glob.glob(os.path.join(ROOT, folder, "**", "CMakeLists.txt"), recursive=True)
    for path in paths:
        text = text_of(path)
        found.update(re.findall(r"find_package\((\S+)", text))
        for modules in re.findall(r"pkg_check_modules\(\S+ REQUIRED IMPORTED_TARGET ([^)]*)\)", text):
            found.update(re.match(r"[^<>=]+", module).group() for module in modules.split())
    return found - ELSEWHERE


def suppliers(which):
    return {SUPPLIERS[name][which] for name in wanted()}


def test_each_library_has_its_suppliers():
    """And none is left in the table that the build does not ask for any more."""
    assert wanted() == set(SUPPLIERS)


def test_debians_source_package_asks_for_what_the_build_wants():
    fields = re.search(r"^Build-Depends:((?:.*\n)(?: .*\n)*)", text_of("packaging/debian/control"), re.MULTILINE)
    asked = [item.strip() for item in fields.group(1).split(",")]
    always = {item for item in asked if not item.endswith(" <!nocheck>")}
    assert always == suppliers(DEBIAN) | DEBIAN_TOOLS | {"python3:native"}  # that makes the virtual unit's zone files
    assert asked == sorted(asked)


def test_set_up_installs_what_the_build_wants():
    section = re.search(r"^# Build\n((?:.+\n)+)", text_of("packaging/packages.txt"), re.MULTILINE).group(1)
    assert set(section.split()) == suppliers(DEBIAN) | DEBIAN_TOOLS | {"g++"}


def test_the_page_for_builds_by_hand_names_what_the_build_wants():
    named = re.search(r"that needs (g\+\+ 12, CMake.*?):\n", text_of("README.md"), re.DOTALL).group(1)
    assert set(re.findall(r"\b(?:lib|nlohmann)\S+-dev\b", named)) == suppliers(DEBIAN)


def test_the_recipe_for_yocto_asks_for_what_the_build_wants():
    asked = re.search(r'^DEPENDS = "(.*)"$', text_of("packaging/yocto/controllerd_git.bb"), re.MULTILINE).group(1)
    assert asked.split() == sorted(suppliers(YOCTO))


def test_the_package_for_buildroot_asks_for_what_the_build_wants():
    asked = re.search(r"^CONTROLLERD_DEPENDENCIES = (.*)$", text_of("packaging/buildroot/controllerd.mk"), re.MULTILINE)
    assert asked.group(1).split() == sorted(suppliers(BUILDROOT) | {"host-pkgconf"})
    config = text_of("packaging/buildroot/Config.in")
    for package in suppliers(BUILDROOT):
        symbol = "BR2_PACKAGE_" + package.upper().replace("-", "_")
        assert re.search(rf"^\t(?:select|depends on) {symbol}$", config, re.MULTILINE), package
