"""The client library as other programs find it: installed, away from the build tree."""

import os
import re
import subprocess

import pytest

BUILD = os.environ["CCU_BUILD_DIR"]
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def run(*command, **options):
    """What a command prints; it must succeed."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)
    assert done.returncode == 0, f"{command}: {done.stdout}"
    return done.stdout


def cached(name):
    """A value that the build was configured with."""
    with open(os.path.join(BUILD, "CMakeCache.txt"), encoding="utf-8") as file:
        found = re.search(rf"^{name}:\w+=(.*)$", file.read(), re.MULTILINE)
    return found.group(1) if found else ""


def install(folder, *components):
    """Installs components; returns the files, relative to the folder."""
    for component in components:
        run("cmake", "--install", BUILD, "--prefix", str(folder), "--component", component)
    return {os.path.relpath(os.path.join(parent, name), folder)
            for parent, _, names in os.walk(folder) for name in names}


@pytest.fixture(scope="module", name="prefix")
def prefix_fixture(tmp_path_factory):
    """Where the library is installed, moved after the installation: nothing depends on the place."""
    folder = tmp_path_factory.mktemp("package") / "installed"
    install(folder, "client", "client_dev")
    return str(folder.rename(folder.with_name("moved")))


@pytest.fixture(scope="module", name="library_folder")
def library_folder_fixture(prefix):
    """The installed library's folder."""
    return os.path.join(prefix, cached("CMAKE_INSTALL_LIBDIR"))
