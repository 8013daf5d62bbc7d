"""The Debian packages of this build.

As a program it makes them in a folder, for all the files of tests that look into them.
"""

import glob
import os
import re
import shutil
import subprocess
import sys

import pytest

BUILD = os.environ["CCU_BUILD_DIR"]
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LIBRARIES = "usr/lib/{}".format(subprocess.run(["dpkg-architecture", "-qDEB_HOST_MULTIARCH"], capture_output=True,
                                               text=True, check=True).stdout.strip())
UNIT_FILE = "lib/systemd/system/controllerd.service"


def run(*command, **options):
    """What a command prints; it must succeed."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)
    assert done.returncode == 0, f"{command}: {done.stdout}"
    return done.stdout


def text_of(*path):
    """A file of the tree."""
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


def packages_in(folder):
    """The files of the packages there, by their names."""
    return {os.path.basename(path).split("_")[0]: path for path in glob.glob(f"{folder}/*.deb")}


def make_packages(folder):
    """Makes the packages of this build; returns their files by their names."""
    hasty = {**os.environ, "DPKG_DEB_COMPRESSOR_LEVEL": "1"}
    run(os.path.join(ROOT, "packaging", "make-packages"), BUILD, str(folder), env=hasty)
    return packages_in(folder)


@pytest.fixture(scope="module", name="packages")
def packages_fixture(tmp_path_factory):
    """The packages of this build, those in $CCU_PACKAGES if they have been made there."""
    if "CCU_PACKAGES" in os.environ:
        return packages_in(os.environ["CCU_PACKAGES"])
    return make_packages(tmp_path_factory.mktemp("packages"))


#: That of the build.
VERSION = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.*)$", text_of(BUILD, "CMakeCache.txt"), re.MULTILINE).group(1)

if __name__ == "__main__":
    shutil.rmtree(sys.argv[1], ignore_errors=True)
    make_packages(sys.argv[1])
