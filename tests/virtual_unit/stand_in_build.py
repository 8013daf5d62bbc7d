"""A build tree with the preload libraries, built under fortified headers, and the stand-in for the daemon.

As a program it makes one in a folder, for all the files of tests that run a unit of it.
"""

import pathlib
import shutil
import subprocess
import sys

_HERE = pathlib.Path(__file__).resolve().parent
_SOURCES = _HERE.parent.parent / "virtual_unit"


def make_build(root):
    """Makes it in a folder that is not there yet."""
    preload = root / "virtual_unit" / "preload"
    preload.mkdir(parents=True)
    for source in [*(_SOURCES / "preload").glob("*.c"), _SOURCES / "pipe.c"]:
        subprocess.run(["cc", "-std=c11", "-shared", "-fPIC", "-O2", "-D_FORTIFY_SOURCE=2", "-Wall", "-Wextra",
                        "-Werror", source, "-o", preload / f"lib{source.stem}.so", "-ldl", "-lm"], check=True)
    (root / "daemon").mkdir()
    shutil.copy(_HERE / "stand_in_daemon.py", root / "daemon" / "controllerd")
    (root / "daemon" / "controllerd").chmod(0o755)


if __name__ == "__main__":
    shutil.rmtree(sys.argv[1], ignore_errors=True)
    make_build(pathlib.Path(sys.argv[1]))
