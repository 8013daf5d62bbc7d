"""Life and end of a unit, and the daemon in it."""

import copy
import os
import select
import signal
import subprocess
import sys
import textwrap

import pytest

from virtual_unit import PATIENCE, DaemonFailure, DbusFailure, VirtualUnit
from virtual_unit.folders import folder_of_units
from virtual_unit.framebuffers import INTERFACE, VIDEO

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def _is_gone(pid):
    return not os.path.exists(f"/proc/{pid}")


def test_everything_is_on_the_private_buses(unit):
    names = set(unit.client.names())
    for sibling in ("Video1", "StorageDaemon1", "JobsManagerDaemon1", "Settings1", "Halvex1", "SyncDaemon1"):
        assert f"com.tavilon.common.{sibling}" in names
    assert "org.freedesktop.timedate1" not in names
    assert unit.timedate.alive
    assert os.path.isdir(unit.media)


def test_nothing_is_left(build_dir):
    with VirtualUnit(build_dir) as unit:
        pids = [unit.pid] + [bus.pid for bus in unit._buses.values()]
        directory = unit.directory
        assert unit.ready and unit.daemon_alive
        assert not any(map(_is_gone, pids))
    assert all(map(_is_gone, pids))
    assert not os.path.exists(directory)


def test_the_build_folder_may_be_relative(build_dir, monkeypatch):
    """To where the program was started, while the daemon works in the unit's own folder."""
    monkeypatch.chdir(os.path.dirname(build_dir))
    monkeypatch.setenv("CCU_BUILD_DIR", os.path.basename(build_dir))
    with VirtualUnit() as unit:
        monkeypatch.chdir("/")
        unit.stop_daemon()
        unit.start_daemon()
        unit.client.call("Say", "s", "here")
        assert unit.log.wait_for("here")  # which comes by a library of the build


def test_nothing_is_left_after_an_exception(build_dir):
    with pytest.raises(KeyboardInterrupt) as raised, VirtualUnit(build_dir) as unit:
        pid, directory = unit.pid, unit.directory
        unit.client.call("Say", "s", "last words")
        raise KeyboardInterrupt
    assert _is_gone(pid) and not os.path.exists(directory)
    assert "last words" in raised.value.__notes__[0]


# The wake-up descriptor: a signal that comes between the print and a read of standard input would wake nobody.
_CHILD = """
    import os, select, signal, sys
    sys.path.insert(0, {root!r})
    from virtual_unit import VirtualUnit
    with VirtualUnit({build_dir!r}) as unit:
        woken, waker = os.pipe()
        os.set_blocking(waker, False)
        signal.set_wakeup_fd(waker)
        print(unit.directory, unit.pid, *[bus.pid for bus in unit._buses.values()], flush=True)
        select.select([woken], [], [])
"""


@pytest.mark.parametrize("number, status, files_stay", [(signal.SIGTERM, 143, False), (signal.SIGINT, -2, False),
                                                        (signal.SIGKILL, -9, True)])
def test_no_process_outlives_a_signal(build_dir, tmp_path, number, status, files_stay):
    code = textwrap.dedent(_CHILD.format(root=_ROOT, build_dir=build_dir))
    environment = {**os.environ, "TMPDIR": str(tmp_path) if len(str(tmp_path)) < 60 else "/tmp"}
    with subprocess.Popen([sys.executable, "-c", code], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True, env=environment) as child:
        directory, *pids = child.stdout.readline().split()
        handles = [os.pidfd_open(int(pid)) for pid in pids]
        child.send_signal(number)
        assert child.wait(PATIENCE) == status
    for handle in handles:  # readable when the process has ended
        assert select.select([handle], [], [], PATIENCE)[0]
        os.close(handle)
    assert os.path.exists(directory) is files_stay
    subprocess.run(["rm", "-rf", directory], check=True)


def test_daemon_comes_and_goes(build_dir):
    with VirtualUnit(build_dir, daemon=False) as unit:
        assert not unit.daemon_alive and not unit.ready
        with pytest.raises(DbusFailure, match="ServiceUnknown"):
            unit.client.call("Say", "s", "nobody there")
        unit.start_daemon()
        assert unit.client.call("Say", "s", "here") == (0, "here")
        assert unit.stop_daemon() == 0
        unit.start_daemon()
        assert unit.kill() == -signal.SIGKILL
        unit.start_daemon()
        unit.client.call_async("Leave", "i", 5)
        assert unit.wait_exit() == 5


def test_environment_of_the_daemon(build_dir):
    with VirtualUnit(build_dir, environment={"OWN": "1", "TZ": None}, bus_timeout=7) as unit:
        def value(name):
            return unit.client.call("Environment", "s", name)[0]

        assert value("DBUS_SESSION_BUS_ADDRESS") == unit.session_address
        assert value("DBUS_SYSTEM_BUS_ADDRESS") == unit.system_address
        assert value("XDG_RUNTIME_DIR") == unit.directory
        assert value("SYSTEMD_BUS_TIMEOUT") == "7"
        assert value("OWN") == "1" and value("LC_ALL") == "C"
        assert value("TZ") == "" and value("HOME") == ""


def test_log_and_signals(build_dir):
    with VirtualUnit(build_dir) as unit:
        mark = unit.log.mark()
        unit.client.call("Say", "s", "one\ttwo\nthree \\ four")
        assert unit.log.texts(mark) == ["one\ttwo\nthree \\ four"]
        assert unit.log.since(mark)[0].priority == 6
        assert unit.client.wait_signal("Said").args == ("one\ttwo\nthree \\ four",)
        unit.client.clear()
        unit.client.sync()
        assert unit.client.signals == []
        with pytest.raises(TimeoutError):
            unit.log.wait_for("never said", timeout=0.01)


def test_settle_waits_for_what_siblings_have_sent(build_dir):
    with VirtualUnit(build_dir) as unit:
        for count in range(1, 20):
            unit.video.set("CaptureZoom", 1.0 + count)
            unit.settle()
            assert len(unit.log.texts(priority=7)) == count


def test_a_program_without_a_loop_can_be_ended_in_order(build_dir):
    """So that it writes down what an instrument has counted."""
    library = os.path.join(build_dir, "virtual_unit", "preload", "libdaemon_probe.so")
    with subprocess.Popen(["cat"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          env={**os.environ, "LD_PRELOAD": library, "CCU_EXITS_ON_SIGUSR1": "1"}) as process:
        process.stdin.write(b"x")
        process.stdin.flush()
        assert process.stdout.read(1) == b"x"
        process.send_signal(signal.SIGUSR1)
        assert process.wait(PATIENCE) == 0


def test_unexpected_end_is_an_error(build_dir):
    with pytest.raises(DaemonFailure, match="ended unexpectedly"), VirtualUnit(build_dir) as unit:
        directory = unit.directory
        handle = os.pidfd_open(unit.pid)
        unit.client.call_async("Leave", "i", 0)
        assert select.select([handle], [], [], PATIENCE)[0]
        os.close(handle)
    assert not os.path.exists(directory)


@pytest.mark.parametrize("stops", [True, False])
def test_an_end_that_nobody_could_see_yet_is_told(build_dir, monkeypatch, stops):
    """A process that dies has closed its connections a moment before it can be seen to end."""
    monkeypatch.setattr("virtual_unit.daemon.Daemon._note_unexpected_end", lambda self: None)
    with pytest.raises(DaemonFailure, match="ended unexpectedly"), VirtualUnit(build_dir) as unit:
        os.kill(unit.pid, signal.SIGSEGV)
        if stops:
            unit.stop_daemon()


@pytest.mark.parametrize("mode, message", [("dies before ready", "ended with 3 before it was ready"),
                                           ("ignores SIGTERM", "did not end after SIGTERM"),
                                           ("sanitizer report", "something bad")])
def test_what_is_wrong_with_a_daemon_is_told(build_dir, mode, message, monkeypatch):
    monkeypatch.setattr("virtual_unit.daemon.END_SECONDS", (0.05, 0.05))
    with pytest.raises(DaemonFailure, match=message):
        with VirtualUnit(build_dir, environment={"STAND_IN": mode}):
            pass


def test_unit_without_session_bus():
    with VirtualUnit(daemon=False, bus=False) as unit:
        assert unit.client is None and unit.video is None
        assert not os.path.exists(unit.session_address.partition("=")[2])
        assert unit.timedate.alive


def test_chosen_siblings_only():
    with VirtualUnit(daemon=False, siblings=("video", "jobs")) as unit:
        assert unit.video.alive and unit.jobs.alive
        assert unit.storage is None and unit.timedate is None
        assert "com.tavilon.common.Settings1" not in unit.client.names()


def test_units_do_not_meet():
    with VirtualUnit(daemon=False) as one, VirtualUnit(daemon=False) as other:
        one.video.set("CaptureZoom", 4.0)
        assert other.video.get("CaptureZoom") == 1.0
        assert one.session_address != other.session_address


def test_an_error_in_the_simulation_is_not_swallowed():
    with pytest.raises(RuntimeError, match="ZeroDivisionError"), VirtualUnit(daemon=False) as unit:
        unit.sync.on_CancelAllDevices = lambda _path: 1 // 0
        with pytest.raises(DbusFailure, match="error in the simulation"):
            unit.client.call_on("com.tavilon.common.SyncDaemon1", "/com/tavilon/common/SyncDaemon1",
                                "com.tavilon.common.SyncDaemon1", "CancelAllDevices")


# Renewal --------------------------------------------------------------------------------------------------------------


def _spoil(unit):
    """Changes whatever a test may change."""
    unit.video.set("CaptureZoom", 4.0)
    unit.video.die()
    unit.storage.remove_device("card")
    unit.jobs.close()
    unit.hardware.power_sufficient = 0
    unit.sync.on_CancelAllDevices = lambda _path: 7
    unit.timedate.timezone = "CCU/Paris"
    for folder in (unit.mount_point("internal"), unit.logs_folder):
        with open(os.path.join(folder, "file"), "wb"):
            pass
    with pytest.raises(DbusFailure, match="refused by the simulation"):
        unit.faults.on("storage")
        unit.client.call_on("com.tavilon.common.StorageDaemon1", "/com/tavilon/common/StorageDaemon1",
                            "org.freedesktop.DBus.ObjectManager", "GetManagedObjects")


def _state(unit):
    """What there is to be seen of a unit."""
    siblings = [unit.video, unit.storage, unit.jobs, unit.settings, unit.hardware, unit.sync, unit.timedate]
    return ([(sibling.alive, {path: item.values for path, item in sibling.objects.items()}) for sibling in siblings],
            unit.jobs.current, unit.hardware.power_sufficient, "on_CancelAllDevices" in vars(unit.sync),
            os.readlink(unit.local_time_link), list(unit.calls), os.listdir(unit.logs_folder),
            [os.listdir(unit.mount_point(device)) for device in unit.storage.devices()])


def test_a_renewed_unit_is_as_it_was(unit):
    """Again and again, and nobody hears of it."""
    before = copy.deepcopy(_state(unit))
    unit.remember()
    for _ in range(2):
        _spoil(unit)
        assert _state(unit) != before
        emitted = unit.storage.emissions
        unit.renew()
        assert _state(unit) == before and unit.storage.emissions == emitted
        assert unit.storage.device_path("card") in unit.client.call_on(
            "com.tavilon.common.StorageDaemon1", "/com/tavilon/common/StorageDaemon1",
            "org.freedesktop.DBus.ObjectManager", "GetManagedObjects")[0]


def test_what_was_noted_is_what_a_unit_goes_back_to(unit):
    """Not what it began with."""
    unit.video.set("CaptureZoom", 2.0)
    unit.remember()
    unit.video.set("CaptureZoom", 3.0)
    unit.renew()
    assert unit.video.get("CaptureZoom") == 2.0


def test_renewal_keeps_the_daemon_and_starts_one_that_was_stopped(build_dir):
    with VirtualUnit(build_dir) as unit:
        unit.remember()
        pid = unit.pid
        unit.client.call("Say", "s", "before")
        unit.renew()
        assert unit.pid == pid and unit.log.lines() == [] and unit.client.signals == []
        unit.stop_daemon()
        unit.renew()
        assert unit.client.call("Say", "s", "after") == (0, "after")
        assert unit.log.texts() == ["after"]


def test_renewal_brings_the_display_back_to_those_who_watch_it(unit):
    """Whatever has become of its devices, in the folder that they were in."""
    folder = os.stat(unit.framebuffers.directory).st_ino
    fresh = unit.framebuffers.screens()
    unit.remember()
    unit.framebuffers.break_reads(VIDEO)
    unit.framebuffers.remove(INTERFACE)
    unit.framebuffers.hush(INTERFACE)
    unit.renew()
    assert unit.framebuffers.screens() == fresh and len(fresh) == 2
    assert [os.path.getsize(unit.framebuffers.path(device)) for device in (VIDEO, INTERFACE)] == \
        [1280 * 720 * 3, 1280 * 720 * 4]
    assert os.stat(unit.framebuffers.directory).st_ino == folder


def test_renewal_tells_of_a_daemon_that_has_ended(build_dir):
    with pytest.raises(DaemonFailure, match="ended unexpectedly"), VirtualUnit(build_dir) as unit:
        unit.remember()
        handle = os.pidfd_open(unit.pid)
        unit.client.call_async("Leave", "i", 0)
        assert select.select([handle], [], [], PATIENCE)[0]
        os.close(handle)
        unit.renew()


def test_patience_can_be_stretched():
    code = f"import sys; sys.path.insert(0, {_ROOT!r}); from virtual_unit import PATIENCE; print(PATIENCE)"
    told = subprocess.run([sys.executable, "-c", code], env={**os.environ, "CCU_PATIENCE": "1000"}, capture_output=True,
                          text=True, check=True).stdout
    assert float(told) >= 60_000


def test_units_are_in_memory_where_there_is_room(monkeypatch):
    """Unless the user says otherwise."""
    for name in ("TMPDIR", "TEMP", "TMP"):
        monkeypatch.delenv(name, raising=False)
    monkeypatch.setattr("virtual_unit.folders.MEMORY", _ROOT)
    monkeypatch.setattr("virtual_unit.folders._ROOM", 1)
    monkeypatch.setattr("virtual_unit.folders._FILES", 0)
    assert folder_of_units() == _ROOT
    monkeypatch.setattr("virtual_unit.folders._ROOM", 2 ** 62)
    assert folder_of_units() != _ROOT
    monkeypatch.setattr("virtual_unit.folders._ROOM", 1)
    monkeypatch.setenv("TMPDIR", "/tmp")
    assert folder_of_units() != _ROOT
