"""The Debian packages of this build."""

import glob
import os
import re
import subprocess

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


def make_packages(folder):
    """Makes the packages of this build; returns their files by their names."""
    hasty = {**os.environ, "DPKG_DEB_COMPRESSOR_LEVEL": "1"}
    run(os.path.join(ROOT, "packaging", "make-packages"), BUILD, str(folder), env=hasty)
    return {os.path.basename(path).split("_")[0]: path for path in glob.glob(f"{folder}/*.deb")}


#: That of the build.
VERSION = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.*)$", text_of(BUILD, "CMakeCache.txt"), re.MULTILINE).group(1)
