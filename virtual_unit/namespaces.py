"""Whether this machine lets its users have namespaces, in which tests can do it no harm; some containers do not.

As a program it prints why not, and nothing where they are to be had.
"""

import subprocess
import sys

#: The command by which another command is the first process of namespaces of its own, whose root its user is.
UNSHARE = ["unshare", "--user", "--map-root-user", "--mount", "--pid", "--fork", "--kill-child"]

#: Switches of the kernel that keep users from having namespaces, with the value that lets them.
_SWITCHES = {"user/max_user_namespaces": "> 0", "kernel/unprivileged_userns_clone": "1",
             "kernel/apparmor_restrict_unprivileged_userns": "0"}


def refusal():
    """Why namespaces are not to be had; empty when they are."""
    trial = subprocess.run([*UNSHARE, "mount", "--rbind", "/etc", "/etc"], capture_output=True, text=True, check=False)
    if trial.returncode == 0:
        return ""
    switches = [f"sysctl {name.replace('/', '.')} is {value}, wanted {wanted}"
                for name, wanted in _SWITCHES.items() if (value := _switch(name)) is not None]
    hints = [*switches, "nobody gets them in a chroot", "a container's seccomp profile must allow unshare and mount"]
    return f"namespaces are not to be had: {trial.stderr.strip()} ({'; '.join(hints)})"


def _switch(name):
    try:
        with open(f"/proc/sys/{name}", encoding="utf-8") as file:
            return file.read().strip()
    except OSError:
        return None


if __name__ == "__main__":
    sys.stdout.write(refusal())
