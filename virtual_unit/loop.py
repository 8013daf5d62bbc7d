"""The one GLib loop of the process: every sibling of every unit is served by it, on a thread of its own."""

import atexit
import collections
import functools
import subprocess
import threading
from concurrent.futures import Future

import dbus.mainloop.glib
from gi.repository import GLib


class LoopThread:
    """Runs the default GLib context, the only one that dbus-python can use, for the life of the process."""

    def __init__(self):
        dbus.mainloop.glib.threads_init()
        self.dbus_loop = dbus.mainloop.glib.DBusGMainLoop()
        self._context = GLib.MainContext.default()
        self._running = True
        self._calls = collections.deque()
        self._thread = threading.Thread(target=self._run, name="virtual-unit-loop", daemon=True)
        self._thread.start()
        atexit.register(self._stop)

    def _run(self):
        while self._running:
            while self._calls:  # before whatever else is there to be done
                self._calls.popleft()()
            self._context.iteration(True)

    def _stop(self):
        self._running = False
        self._context.wakeup()
        self._thread.join(5)

    @property
    def is_current(self):
        """True on the loop thread itself."""
        return threading.current_thread() is self._thread

    def call(self, function, *arguments, **named):
        """Runs the function on the loop thread and returns its result or raises its exception; safe from any thread."""
        if self.is_current:
            return function(*arguments, **named)
        future = Future()

        def run():
            try:
                future.set_result(function(*arguments, **named))
            except BaseException as error:  # pylint: disable=broad-except
                future.set_exception(error)

        self._calls.append(run)
        self._context.wakeup()
        return future.result()

    def after(self, seconds, function):
        """Runs the function once on the loop thread when the seconds have passed."""

        def run():
            function()
            return GLib.SOURCE_REMOVE

        GLib.timeout_add(int(seconds * 1000), run)


_instance = None
_instance_lock = threading.Lock()


def shared_loop():
    """The process's loop, started at the first use."""
    global _instance  # pylint: disable=global-statement
    with _instance_lock:
        if _instance is None:
            _instance = LoopThread()
    return _instance


def on_loop(method):
    """Makes a method run on the loop thread, whoever calls it, so that all of a unit's events have one order."""

    @functools.wraps(method)
    def wrapper(*arguments, **named):
        return shared_loop().call(method, *arguments, **named)

    return wrapper


#: Before a command: the kernel ends the child when the thread that has started it ends.
DIES_WITH_US = ("setpriv", "--pdeathsig", "KILL", "--")


@on_loop
def spawn(command, process_group=0, **options):
    """Starts a child that cannot outlive this process, not even when this process is killed.

    The kernel sends the death signal when the starting *thread* ends, so every child is started by the loop thread.
    setpriv asks for that signal in the child itself, which keeps Python code out of a forked copy of a threaded
    process.  A process group of its own, or that of another child, keeps the terminal's Ctrl-C from the children: the
    unit ends them in order.
    """
    return subprocess.Popen([*DIES_WITH_US, *command], process_group=process_group, **options)
