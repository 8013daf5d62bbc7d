"""The `up` command."""

import contextlib
import os
import signal
import subprocess
import sys

import pytest

from virtual_unit import PATIENCE

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


@contextlib.contextmanager
def _start(build_dir, *arguments):
    environment = {**os.environ, "CCU_BUILD_DIR": build_dir}
    with subprocess.Popen([sys.executable, "-m", "virtual_unit", "up", *arguments], cwd=_ROOT, env=environment,
                          text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        try:
            yield process
        finally:
            process.terminate()


def _folder(line):
    return os.path.dirname(line.partition("unix:path=")[2].partition(",")[0])


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_up_until_it_is_interrupted(build_dir, number):
    with _start(build_dir) as process:
        lines = [process.stdout.readline() for _ in range(3)]
        assert lines[0].startswith("export DBUS_SESSION_BUS_ADDRESS=unix:path=")
        assert lines[1].startswith("export DBUS_SYSTEM_BUS_ADDRESS=unix:path=")
        assert lines[2] == f"export CCU_UNIT={_folder(lines[0])}\n"
        assert os.path.isdir(_folder(lines[0]))
        process.send_signal(number)
        assert process.wait(PATIENCE) == 0
    assert not os.path.exists(_folder(lines[0]))


def test_up_follows_the_log_and_the_panel_and_notices_the_end_of_the_daemon(build_dir):
    with _start(build_dir) as process:
        address = process.stdout.readline().partition("=")[2].strip().strip("'")

        def call(member, *arguments):
            subprocess.run(["dbus-send", f"--bus={address}", "--print-reply", "--dest=com.tavilon.common.Controller1",
                            "/com/tavilon/common/Controller1", f"com.tavilon.common.Controller1.Control.{member}",
                            *arguments], check=False, capture_output=True)

        call("Say", "string:well said")
        lines = {process.stderr.readline() for _ in range(2)}
        assert "   info well said\n" in lines
        assert any(line.startswith("  panel microphone off | speaker off, 79% |") for line in lines)
        call("Leave", "int32:4")
        assert process.wait(PATIENCE) == 1
        assert "ended by itself with status 4" in process.stderr.read()


@pytest.mark.parametrize("command, status, output", [
    (["sh", "-c", "echo $DBUS_SESSION_BUS_ADDRESS; exit 3"], 3, "unix:path="),
    (["sh", "-c", "kill -9 $$"], 137, ""),
    (["/nonexistent/command"], 127, ""),
])
def test_up_with_a_command(build_dir, command, status, output):
    with _start(build_dir, "--", *command) as process:
        assert process.stdout.read().startswith(output)
        assert process.wait(PATIENCE) == status


def test_up_without_a_daemon_to_start(tmp_path):
    with _start(str(tmp_path)) as process:
        assert "has not been built" in process.stderr.read()
        assert process.wait(PATIENCE) == 1
