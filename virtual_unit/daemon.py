"""The daemon under the virtual unit: the unmodified binary, started and supervised as systemd does it."""

import contextlib
import glob
import os
import select
import signal
import socket
import subprocess
import threading
import time
import weakref

from .loop import spawn
from .patience import PATIENCE

#: Variables of the caller that reach the daemon: what test tools put into the environment.
_PASSED_ON = ("ASAN_", "UBSAN_", "LSAN_", "TSAN_", "GCOV_", "LLVM_PROFILE_")

#: With this variable in the caller's environment the daemon is ended through its own loop, so that leak checkers run
#: and coverage is written; otherwise as systemd does it.
_ORDERLY = "CCU_ORDERLY_END"

#: What leak checkers are not to report.
_LEAK_SUPPRESSIONS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "leak_suppressions.txt")

#: The unit's own libraries, and Debian's, which comes behind them: they leave to it what is not theirs.
_PRELOADS = ("syslog_capture", "daemon_probe", "give_up", "places", "framebuffer", "local_time", "clock", "gpio",
             "process_probe", "keypad")
UMOCKDEV = "libumockdev-preload.so.0"

#: Patience at the end: until a daemon that waits for an answer is freed, and from then on until it is killed.
END_SECONDS = (0.5, PATIENCE)
#: Patience for what the daemon leaves, which is killed.
_REMAINS_SECONDS = PATIENCE


class DaemonFailure(AssertionError):
    """The daemon died, did not start or did not end in time, or a sanitizer has reported something."""


class Daemon:
    """One process of the daemon at a time; started again at will."""

    def __init__(self, build_dir, directory, environment):
        self.directory = directory
        self.binary = os.path.join(build_dir, "daemon", "controllerd")
        self.preloads = [os.path.join(build_dir, "virtual_unit", "preload", f"lib{name}.so") for name in _PRELOADS]
        self.log_path = os.path.join(directory, "syslog")
        self.error_path = os.path.join(directory, "stderr")
        self.launcher = []  # command that the daemon is started by
        self.notifications = []
        self.unexpected_end = False
        self._environment = environment
        self._process = None
        self._bidden = weakref.WeakSet()  # processes that somebody has told to end
        self._changed = threading.Condition()
        self._notify = None

    # Environment ------------------------------------------------------------------------------------------------------

    def _sanitizer_options(self, name):
        reports = f"log_path={self.directory}/sanitizer:print_stacktrace=1"
        first = "verify_asan_link_order=0:" if name == "ASAN_OPTIONS" else ""
        own = os.environ.get(name, "")
        return f"{own}:{first}{reports}" if own else first + reports

    @staticmethod
    def _leak_options():
        options = f"suppressions={_LEAK_SUPPRESSIONS}:print_suppressions=0"
        own = os.environ.get("LSAN_OPTIONS", "")
        return f"{own}:{options}" if own else options

    def environment(self):
        """The daemon's whole environment."""
        passed = {name: value for name, value in os.environ.items() if name.startswith(_PASSED_ON)}
        own = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LC_ALL": "C",
            "XDG_RUNTIME_DIR": self.directory, "NOTIFY_SOCKET": self._notify_path(),
            "LD_PRELOAD": " ".join([*self.preloads, UMOCKDEV]), "CCU_SYSLOG_FILE": self.log_path,
            "ASAN_OPTIONS": self._sanitizer_options("ASAN_OPTIONS"),
            "UBSAN_OPTIONS": self._sanitizer_options("UBSAN_OPTIONS"),
            "TSAN_OPTIONS": self._sanitizer_options("TSAN_OPTIONS"),
            "LSAN_OPTIONS": self._leak_options(),
        }
        if _ORDERLY in os.environ:
            own["CCU_LOOP_ENDS_ON_SIGUSR1"] = "1"
        merged = {**passed, **own, **self._environment}
        return {name: value for name, value in merged.items() if value is not None}

    def _notify_path(self):
        return os.path.join(self.directory, "notify")

    # Life -------------------------------------------------------------------------------------------------------------

    def start(self, wait=True, timeout=PATIENCE):
        """Starts the process and waits until it has said READY=1."""
        if self.alive:
            raise RuntimeError("the daemon is already running")
        for path in (self.binary, *self.preloads):
            if not os.path.exists(path):
                raise FileNotFoundError(f"{path} has not been built")
        self._open_notify()
        self.notifications.clear()
        self.unexpected_end = False
        with open(self.error_path, "ab") as errors:
            self._process = spawn([*self.launcher, self.binary], cwd=self.directory, env=self.environment(),
                                  stdin=subprocess.DEVNULL, stdout=errors, stderr=errors)
        with self._changed:
            self._changed.notify_all()
        if wait:
            self.wait_ready(timeout)

    def _open_notify(self):
        self._close_notify()
        self._notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK | socket.SOCK_CLOEXEC)
        self._notify.bind(self._notify_path())

    def _close_notify(self):
        if self._notify is not None:
            self._notify.close()
            os.unlink(self._notify_path())
            self._notify = None

    def _read_notify(self):
        while self._notify is not None:
            try:
                text = self._notify.recv(65536).decode()
            except BlockingIOError:
                return
            self.notifications.extend(text.splitlines())

    @property
    def ready(self):
        """True once READY=1 has been seen."""
        self._read_notify()
        return "READY=1" in self.notifications

    def wait_ready(self, timeout=PATIENCE):
        """Waits for READY=1; fails at once when the process ends before."""
        deadline = time.monotonic() + timeout
        handle = os.pidfd_open(self._process.pid) if self.alive else None
        try:
            while not self.ready:
                if not self.alive:
                    raise DaemonFailure(f"the daemon ended with {self._process.returncode} before it was ready")
                left = deadline - time.monotonic()
                if left <= 0:
                    raise DaemonFailure(f"the daemon was not ready within {timeout} s")
                select.select([self._notify, handle], [], [], left)
        finally:
            if handle is not None:
                os.close(handle)

    @property
    def pid(self):
        """Process id, None when no process was started."""
        return self._process.pid if self._process else None

    @property
    def alive(self):
        """True while the process runs."""
        return self._process is not None and self._process.poll() is None

    def stop(self, number=signal.SIGTERM, timeout=PATIENCE):
        """Sends the signal and waits for the end; returns the exit status, negative when a signal ended the process."""
        if self._process is None:
            return None
        self._note_unexpected_end()
        if not self.alive:
            return self._wait(timeout)
        self._bidden.add(self._process)
        self._process.send_signal(number)
        status = self._wait(timeout)
        self._note_other_end(status, number)
        return status

    def wait_exit(self, timeout=PATIENCE):
        """Waits for the process to end by itself; returns the exit status."""
        return self._wait(timeout)

    def wait_unbidden_end(self):
        """Waits for a process to end that nobody has told to, however often it is stopped and started meanwhile;
        returns its exit status."""
        while True:
            process = self._process
            if process is not None:
                process.wait()
                if process not in self._bidden:
                    return self._wait(None) if process is self._process else process.returncode
            with self._changed:
                self._changed.wait_for(lambda: self._process not in (None, process))

    def kill(self):
        """Ends the process at once."""
        return self.stop(signal.SIGKILL)

    def _note_unexpected_end(self):
        self.unexpected_end = self.unexpected_end or (self._process is not None and not self.alive)

    def _note_other_end(self, status, number):
        """Notes an end by another signal than was sent: who is dying, and has closed its connections, looks alive for a
        moment yet."""
        self.unexpected_end = self.unexpected_end or (status < 0 and status != -number)

    def _wait(self, timeout):
        try:
            status = self._process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise DaemonFailure(f"the daemon did not end within {timeout} s") from None
        self._read_notify()
        self._end_remains()
        return status

    def _end_remains(self):
        """Ends what the daemon has started and left, such as a sound that plays, as systemd does with a service."""
        group = self._process.pid
        self._process = None
        deadline = time.monotonic() + _REMAINS_SECONDS
        with contextlib.suppress(ProcessLookupError):
            while time.monotonic() < deadline:  # until nobody is left who could make a file in the unit's folder
                os.killpg(group, signal.SIGKILL)
                with contextlib.suppress(ChildProcessError):
                    os.waitpid(-group, os.WNOHANG)
                time.sleep(0.001)

    def check(self):
        """Raises a DaemonFailure when the process has ended by itself."""
        self._note_unexpected_end()
        if self.unexpected_end:
            raise DaemonFailure("the daemon ended unexpectedly")

    # End --------------------------------------------------------------------------------------------------------------

    def discard(self, release):
        """Ends whatever still runs; `release` frees a daemon that waits for an answer.  Returns what went wrong."""
        self._note_unexpected_end()
        problems = [] if self._process is None else self._discard_process(release)
        if self.unexpected_end:
            problems.insert(0, "the daemon ended unexpectedly")
        self._close_notify()
        return problems + self.sanitizer_reports()

    def _discard_process(self, release):
        number = signal.SIGUSR1 if _ORDERLY in os.environ else signal.SIGTERM
        steps = (lambda: self._process.send_signal(number), release)
        for step, timeout in zip(steps, END_SECONDS):
            step()
            try:
                self._note_other_end(self._process.wait(timeout), number)
                self._end_remains()
                return []
            except subprocess.TimeoutExpired:
                continue
        self._process.kill()
        self._process.wait()
        self._end_remains()
        return ["the daemon did not end after SIGTERM"]

    def sanitizer_reports(self):
        """Texts of the sanitizers' reports, of all processes that ran here."""
        reports = []
        for path in sorted(glob.glob(os.path.join(self.directory, "sanitizer.*"))):
            with open(path, encoding="utf-8", errors="replace") as file:
                reports.append(file.read())
        return reports

    def errors(self):
        """What the daemon wrote to its standard output and error."""
        if not os.path.exists(self.error_path):
            return ""
        with open(self.error_path, encoding="utf-8", errors="replace") as file:
            return file.read()
