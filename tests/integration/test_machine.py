"""What of `ccu vm` needs no machine: its words, its refusals, its table, and what it says to the agent and to QEMU."""

import base64
import fcntl
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time

import pytest

from machine import __main__ as commands
from machine import acceptance, qemu, sockets
from machine.acceptance.case import Case
from virtual_unit import PATIENCE
from virtual_unit.bus import PrivateBus

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def ccu_vm(*words, path=None):
    """The exit status of the command and what it says."""
    environment = {**os.environ, "PYTHONPATH": ROOT, **({"PATH": path} if path is not None else {})}
    done = subprocess.run([sys.executable, "-m", "machine", *words], env=environment, cwd=ROOT, check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
    return done.returncode, done.stdout


# Words ----------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("words, meaning", [
    ([], ("start", [], [])), (["--", "uname", "-a"], ("run", [], ["uname", "-a"])), (["test"], ("test", [], [])),
    (["test", "mixer", "clock"], ("test", ["mixer", "clock"], [])), (["key", "Enter"], ("key", ["Enter"], [])),
    (["keyboard", "plug"], ("keyboard", ["plug"], [])), (["storage", "remove"], ("storage", ["remove"], [])),
    (["console"], ("console", [], [])), (["stop"], ("stop", [], [])), (["clean"], ("clean", [], [])),
    (["--", "sh", "-c", "echo --"], ("run", [], ["sh", "-c", "echo --"]))])
def test_words_mean_this(words, meaning):
    parsed = commands.parse(words)
    assert (parsed.word, parsed.rest, parsed.command) == meaning


@pytest.mark.parametrize("words, complaint", [
    (["fly"], "no command 'fly'"), (["--"], "no command after --"), (["key"], "key: one key"),
    (["key", "Enter", "Menu"], "key: one key"), (["storage"], "storage: one of add, remove"),
    (["storage", "eat"], "storage: one of add, remove"), (["keyboard", "type"], "keyboard: one of plug, unplug"),
    (["console", "now"], "console: takes nothing more"), (["stop", "--", "ls"], "stop: no command can follow"),
    (["test", "--", "ls"], "test: no command can follow")])
def test_other_words_are_refused(words, complaint):
    """With the usage, and nothing is done."""
    status, said = ccu_vm(*words)
    assert status == 2 and said.startswith(f"ccu vm: {complaint}\nccu vm [WORD ...]")


@pytest.mark.parametrize("key, number", [("Enter", 28), ("KEY_F10", 68), ("up", 0xC8), ("1", 1), ("Menu", 0xDD)])
def test_keys_have_the_numbers_of_a_keyboard(key, number):
    assert commands.key_number(key) == number


@pytest.mark.parametrize("key", ["Entr", "BRIGHTNESSUP"])
def test_keys_that_the_keypad_has_not_are_refused(key):
    with pytest.raises(commands.Misuse, match=f"no key '{key}'"):
        commands.key_number(key)


def test_the_tests_are_listed_without_a_machine():
    status, said = ccu_vm("test", "--list", path="/nowhere")
    assert status == 0 and {"start under the sandbox", "mixer", "another user by a drop-in"} <= set(said.splitlines())


def test_a_test_is_chosen_by_words_of_its_name():
    assert acceptance.Cases(["mixer", "GPIO"]).names == ["GPIO lines", "mixer"]


# Refusals -------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("words", [[], ["--", "true"], ["test"], ["console"], ["key", "Enter"]])
def test_without_its_programs_it_says_what_is_missing(tmp_path, words):
    """All of them, before anything is made."""
    have = [name for name in ("dtc", "cpio") if shutil.which(name)]
    for name in have:
        os.symlink(shutil.which(name), tmp_path / name)
    status, said = ccu_vm(*words, path=str(tmp_path))
    assert status == 1 and said.startswith("ccu vm: this machine lacks qemu-system-aarch64, qemu-img")
    assert not any(f" {name}," in said for name in have)


def test_tests_do_not_share_a_machine(monkeypatch, tmp_path):
    monkeypatch.setattr(commands, "FOLDER", str(tmp_path))
    with open(tmp_path / "test.lock", "w", encoding="utf-8") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        with pytest.raises(commands.Failure, match="its tests run already"):
            commands.Commands(commands.parse(["test", "mixer", "--packages", str(tmp_path)])).test()


def test_who_talks_to_a_machine_that_is_not_there_is_told(tmp_path):
    with pytest.raises(sockets.Gone, match="no machine answers"):
        qemu.Machine(str(tmp_path), str(tmp_path)).run("true")
    assert qemu.Machine(str(tmp_path), str(tmp_path / "none")).pid is None


def test_a_process_of_another_kind_is_not_the_machine(tmp_path):
    """Numbers of processes are used again."""
    (tmp_path / "pid").write_text(str(os.getpid()))
    machine = qemu.Machine(str(tmp_path), str(tmp_path))
    machine.stop()
    assert machine.pid is None


# The table ------------------------------------------------------------------------------------------------------------


class NoMachine:
    """Stands for one."""

    def stop(self):
        """Nothing runs."""

    def run(self, *_command, **_options):
        """Nobody answers."""
        raise sockets.Gone("the machine has ended")


class NoImage:
    """Stands for what machines are started from."""

    def machine(self, _name):
        """One that does nothing."""
        return NoMachine()

    def start(self, _machine, state):
        """Notes nothing."""
        assert state == "ready"


def passes(unit):
    """A case."""
    unit.see("all of it")
    unit.see("and more")


def fails(unit):
    """A case."""
    unit.see("something")
    assert not unit.seen, "not seen: the rest\nof it"


def ends(unit):
    """A case."""
    unit.machine.run("true")


def run_cases(monkeypatch, capsys, *functions):
    """The status, the table's lines without the seconds, and what is told beside it."""
    monkeypatch.setattr(acceptance, "_ALL", [Case(function.__name__, function, "ready") for function in functions])
    status = acceptance.Cases([]).run(NoImage(), "")
    said = capsys.readouterr()
    return status, said.out.splitlines(), said.err


def test_the_table_tells_what_was_seen(monkeypatch, capsys):
    status, table, _ = run_cases(monkeypatch, capsys, passes)
    assert status == 0
    assert table == ["test             s  seen", "passes  pass     0  all of it", "                    and more",
                     "1 passed, 0 failed"]


@pytest.mark.parametrize("function, seen", [(fails, ["something", "not so: not seen: the rest"]),
                                            (ends, ["not so: the machine has ended"])])
def test_what_fails_fails_the_command_and_not_the_others(monkeypatch, capsys, function, seen):
    status, table, told = run_cases(monkeypatch, capsys, function, passes)
    assert status == 1 and table[-1] == "1 passed, 1 failed"
    assert [line[20:] for line in table[1:-3]] == seen and " FAIL " in table[1] and " pass " in table[-3]
    assert "Traceback" in told and "(the machine does not answer)" in told


# The end --------------------------------------------------------------------------------------------------------------


#: The command with an image that is made, in a folder.
_TEST = """
import sys
from machine import __main__ as commands
from machine.image import Image
commands.FOLDER = sys.argv[1]
commands.missing_programs = list
Image.make = lambda *_: None
sys.exit(commands.main(["test", "mixer", "--packages", sys.argv[1]]))
"""


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP, signal.SIGINT])
def test_a_test_that_is_ended_ends_its_machine(tmp_path, number):
    """Which is in a session of its own, and in nobody's way for long: one that never says that it runs."""
    scripts = {"qemu-img": ":", "mkfs.vfat": ":", qemu.PROGRAM: f"exec -a {qemu.PROGRAM} sleep infinity"}
    for name, script in scripts.items():
        (tmp_path / name).write_text(f"#!/bin/bash\n{script}\n")
        (tmp_path / name).chmod(0o755)
    environment = {**os.environ, "PYTHONPATH": ROOT, "PATH": f"{tmp_path}:{os.environ['PATH']}"}
    machine = qemu.Machine(str(tmp_path), str(tmp_path / "test"))
    # Whoever runs the tests may ignore one of them, as a shell has its jobs in the background ignore interruptions.
    with subprocess.Popen(["env", "--default-signal", sys.executable, "-c", _TEST, str(tmp_path)], env=environment,
                          cwd=ROOT, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as command:
        try:
            deadline = time.monotonic() + PATIENCE
            while (pid := machine.pid) is None:
                assert command.poll() is None and time.monotonic() < deadline
                time.sleep(0.01)
            command.send_signal(number)
            assert command.wait(PATIENCE) == (130 if number == signal.SIGINT else 128 + number)
            assert not os.path.exists(f"/proc/{pid}")
        finally:
            command.kill()
            machine.stop()


# The siblings in it ---------------------------------------------------------------------------------------------------


@pytest.fixture(name="board")
def _board(tmp_path):
    """The environment of programs on the bus of the machine's siblings, whose media are below a folder."""
    bus = PrivateBus(str(tmp_path), "session")
    try:
        bus.wait_ready()
        environment = {**os.environ, "PYTHONPATH": ROOT, "DBUS_SESSION_BUS_ADDRESS": bus.address,
                       "NOTIFY_SOCKET": str(tmp_path / "notify")}
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notify:
            notify.bind(environment["NOTIFY_SOCKET"])
            command = [sys.executable, "-m", "machine.siblings", str(tmp_path)]
            with subprocess.Popen(command, env=environment) as siblings:
                end = os.pidfd_open(siblings.pid)
                try:
                    assert notify in select.select([notify, end], [], [], PATIENCE)[0], "they do not come up"
                    yield environment
                finally:
                    os.close(end)
                    siblings.kill()
    finally:
        bus.stop()


def ask(environment, *words):
    """The values of an answer on that bus."""
    done = subprocess.run(["busctl", "--user", "--json=short", *words], env=environment, check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert done.returncode == 0, done.stdout
    return json.loads(done.stdout)["data"]


def test_the_siblings_come_up_by_themselves(board, tmp_path):
    """With internal storage alone, a job, and a camera; and their control object tells of the calls."""
    names, = ask(board, "call", "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames")
    assert {f"com.tavilon.common.{name}1" for name in (
        "Settings", "StorageDaemon", "Video", "JobsManagerDaemon", "Halvex", "SyncDaemon", "VirtualUnit")} <= set(names)
    assert list(ask(board, "get-property", *control("Storage"), "Devices")) == ["internal"]
    picture = tmp_path / "media" / "internal" / "picture"
    assert ask(board, "call", "com.tavilon.common.Video1", "/com/tavilon/common/Video1",
               "com.tavilon.common.Video1.Control", "Snapshot", "suuu", str(picture), "640", "480", "80") == [0]
    assert picture.stat().st_size > 0
    assert [call[4] for call in ask(board, "call", *control(), "Calls")[0]] == ["Snapshot"]


def control(noun=""):
    """Name, path and interface of the control object or one of its nouns."""
    name = "com.tavilon.common.VirtualUnit1"
    return name, f"/{name.replace('.', '/')}/{noun.lower()}".rstrip("/"), f"{name}.{noun}".rstrip(".")


# What is said to the machine ------------------------------------------------------------------------------------------


class Answers:
    """Stands for what listens at a socket: says lines to the first who asks, and keeps what it was asked.  An answer of
    None hangs up."""

    def __init__(self, folder, name, answer):
        self.asked = []
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(os.path.join(folder, name))
        self._listener.listen(1)
        self._answer = answer
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def _serve(self):
        connection, _ = self._listener.accept()
        with connection, connection.makefile("rwb") as stream:
            for line in stream:
                self.asked.append(json.loads(line))
                answer = self._answer(self.asked[-1])
                if answer is None:
                    break
                for data in answer:
                    stream.write(data)
                    stream.flush()

    def close(self):
        """Waits for the end of the conversation."""
        self._thread.join()
        self._listener.close()


def encoded(text):
    """A command's output on its way."""
    return base64.b64encode(text).decode()


def test_a_command_has_its_input_its_outputs_and_its_status(tmp_path):
    """Whatever is left over of another's, in pieces of whatever size."""
    def answer(asked):
        if not asked.get("last"):
            return []
        own = [{"out": encoded(b"one ")}, {"err": encoded(b"oh")}, {"out": encoded(b"two")}, {"status": 3}]
        data = b'half a line"}\n' + json.dumps({"id": "other", "out": encoded(b"no"), "status": 0}).encode() + b"\n"
        data += b"".join(json.dumps({"id": asked["id"], **words}).encode() + b"\n" for words in own)
        return [data[start:start + 7] for start in range(0, len(data), 7)]

    agent = Answers(str(tmp_path), "agent", answer)
    given = bytes(range(256)) * 300
    assert qemu.Machine("", str(tmp_path)).run("cat", "-", stdin=given) == (3, "one two", "oh")
    agent.close()
    assert agent.asked[0]["run"] == ["cat", "-"] and len({asked["id"] for asked in agent.asked}) == 1
    assert b"".join(base64.b64decode(asked["stdin"]) for asked in agent.asked[1:]) == given


def test_an_agent_that_goes_is_noticed(tmp_path):
    agent = Answers(str(tmp_path), "agent", lambda asked: None)
    with pytest.raises(sockets.Gone, match="the machine has ended"):
        qemu.Machine("", str(tmp_path)).run("true")
    agent.close()


def test_the_monitor_is_asked_and_its_events_are_passed_over(tmp_path):
    def answer(asked):
        reply = {"error": {"desc": "no such device"}} if asked["execute"] == "device_del" else {"return": {}}
        return [b'{"event": "RESUME"}\n' + json.dumps(reply).encode() + b"\n"]

    monitor = Answers(str(tmp_path), "monitor", answer)
    with pytest.raises(RuntimeError, match="device_del: no such device"):
        qemu.Machine("", str(tmp_path)).unplug_keyboard()
    monitor.close()
    assert [asked["execute"] for asked in monitor.asked] == ["qmp_capabilities", "device_del"]


# What the machine is made of ------------------------------------------------------------------------------------------


def test_the_board_has_what_the_daemon_asks_for():
    """The chip's number, and the layers' bytes a pixel and places, which the acceptance reads."""
    with open(os.path.join(ROOT, "machine", "board", "board.dts"), encoding="utf-8") as file:
        text = file.read()
    assert text.count("wd,mbl-gpio") == 5  # gpiochip4 is the last
    for address, size in (("7e100000", 'stride = <3840>'), ("7e800000", "stride = <5120>")):
        assert size in text.partition(f"framebuffer@{address}")[2].partition("};")[0]
