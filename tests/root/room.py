"""A Debian root in namespaces of its own, with what a container engine gives one; all of it goes with its first process.

To be used as root of the machine, whose network the room has for apt and npm.
"""

import glob
import os
import re
import shutil
import subprocess
import tempfile
import time

from virtual_unit.loop import DIES_WITH_US

#: Makes the folder $1 the root of the namespaces, in which $2 has the packages that apt has fetched before, and stays.
_HOLD = """
    mount --bind "$1" "$1"
    mount --bind "$2" "$1/var/cache/apt/archives"
    mount -t proc proc "$1/proc"
    mount -t sysfs -o ro sysfs "$1/sys"
    mount -t tmpfs -o mode=755 dev "$1/dev"
    for node in full null random tty urandom zero; do
        : >"$1/dev/$node"
        mount --bind "/dev/$node" "$1/dev/$node"
    done
    mkdir -m 1777 "$1/dev/shm"
    ln -s /proc/self/fd "$1/dev/fd"
    pivot_root "$1" "$1/mnt"
    cd /
    chroot /mnt umount --lazy --no-canonicalize / # by the machine's program, which a minimal root does not have
    echo made
    exec env --ignore-signal=CHLD sleep infinity # nobody waits for orphans
"""
_PATH = "/usr/local/bin:/usr/bin:/bin"
#: What is not looked through for what is left.
_ELSEWHERE = {"/proc", "/sys", "/var/cache/apt/archives"}
#: How long a process may take to end when nobody waits for it.
_GRACE_SECONDS = 10
_TIMEOUT_SECONDS = 1800


class Failed(Exception):
    """A command has not come out as it should; the text is what it has said."""


class Room:
    """The root as a machine of its own, in the copy `folder` of the plain root `base`.

    user, place  who runs what follows, and where, as a Containerfile has said
    """

    def __init__(self, base, folder, archives):
        self.folder = folder
        self.user, self.place = "root", "/"
        subprocess.run(["cp", "--archive", base, folder], check=True)
        shutil.copy("/etc/resolv.conf", self.at("/etc/resolv.conf"))
        with open(self.at("/etc/dpkg/dpkg.cfg.d/in-a-hurry"), "w", encoding="utf-8") as file:
            file.write("force-unsafe-io\n")  # as images for containers have it
        os.makedirs(archives, exist_ok=True)
        self._holder = subprocess.Popen(
            [*DIES_WITH_US, "unshare", "--mount", "--pid", "--ipc", "--fork", "--kill-child", "sh", "-e", "-c", _HOLD, "sh",
             folder, archives], stdout=subprocess.PIPE)
        if self._holder.stdout.readline() != b"made\n":
            raise Failed(f"there is no room: status {self._holder.wait()}")
        with open(f"/proc/{self._holder.pid}/task/{self._holder.pid}/children", encoding="utf-8") as file:
            self._first = int(file.read())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._holder.kill()
        self._holder.communicate()
        subprocess.run(["rm", "-rf", "--one-file-system", self.folder], check=True)

    def at(self, path):
        """A path of the room as it is seen from outside."""
        return self.folder + path

    def sh(self, script, user=None):
        """What a script prints, run by `user` or who is the room's; it must succeed."""
        user, place = user or self.user, "/" if user else self.place
        rights = [] if user == "root" else ["setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups",
                                            "--no-new-privs", "--inh-caps=-all", "--bounding-set=-all"]
        home = "/root" if user == "root" else f"/home/{user}"
        path = f"/usr/sbin:/sbin:{_PATH}" if user == "root" else _PATH
        with tempfile.TemporaryFile("w+") as out, tempfile.TemporaryFile("w+") as errors:
            # Into files: what is left behind has them open, too, and is nothing to wait for.
            status = subprocess.run(
                ["nsenter", f"--target={self._first}", "--mount", "--pid", "--ipc", "env", "--ignore-environment",
                 f"--chdir={place}", f"PATH={path}", f"HOME={home}", "LANG=C.UTF-8", "DEBIAN_FRONTEND=noninteractive",
                 *rights, "sh", "-e", "-c", script], stdin=subprocess.DEVNULL, stdout=out, stderr=errors, check=False,
                timeout=_TIMEOUT_SECONDS).returncode
            for file in (out, errors):
                file.seek(0)
            said = out.read()
            if status:
                raise Failed(f"status {status}\n{said}{errors.read()}")
            return said

    # Containerfiles ---------------------------------------------------------------------------------------------------

    def follow(self, word, rest, context):
        """Follows an instruction of a Containerfile, whose files are in the folder `context`."""
        if word == "FROM":
            with open(self.at("/etc/debian_version"), encoding="utf-8") as file:
                if not re.fullmatch(rf".*/debian:{file.read().partition('.')[0]}", rest):
                    raise Failed(f"the room is no {rest}")
        elif word == "COPY":
            pattern, target = rest.split()
            os.makedirs(self.at(target), exist_ok=True)
            for path in glob.glob(os.path.join(context, pattern)):
                shutil.copy(path, self.at(target))
        elif word == "RUN":
            self.sh(rest)
        elif word == "USER":
            self.user = rest
        elif word == "WORKDIR":
            self.place = rest
        else:
            raise Failed(f"nobody knows {word}")

    # What is left -----------------------------------------------------------------------------------------------------

    def _processes(self):
        view = f"/proc/{self._first}/root/proc"
        for pid in filter(str.isdigit, os.listdir(view)):
            try:
                with open(f"{view}/{pid}/cmdline", encoding="utf-8") as file:
                    if pid != "1":
                        yield f"process {file.read().strip(chr(0)).replace(chr(0), ' ')}"
            except OSError:  # it has just ended
                pass

    def state(self):
        """All processes, mounts and files of the room but its own."""
        deadline = time.monotonic() + _GRACE_SECONDS
        while (found := set(self._processes())) and time.monotonic() < deadline:
            time.sleep(0.1)
        with open(f"/proc/{self._first}/mounts", encoding="utf-8") as file:
            found.update(f"mount {line.split()[1]}" for line in file)
        view = f"/proc/{self._first}/root"
        for folder, folders, files in os.walk(view):
            here = folder.removeprefix(view)
            folders[:] = [name for name in folders if f"{here}/{name}" not in _ELSEWHERE]
            found.update(f"file {here}/{name}" for name in (*folders, *files))
        return found
