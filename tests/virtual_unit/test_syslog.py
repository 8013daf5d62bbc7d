"""The syslog capture library as a program that logs meets it, and the reader of its file."""

import os
import subprocess

import pytest

from virtual_unit.patience import PATIENCE
from virtual_unit.syslog import LogLine, SyslogReader

_PROGRAM = r"""
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

static void Variadic(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

int main(int count, char** arguments)
{
    static char text[5001];
    memset(text, 'x', sizeof text - 1);
    openlog("tester", LOG_PID, LOG_DAEMON);
    syslog(LOG_INFO, "plain %d %s", 7, "text");
    Variadic(LOG_ERR | LOG_LOCAL3, "variadic %s", count > 1 ? arguments[1] : "");
    syslog(LOG_DEBUG, "a\tb\nc\\d%%");
    errno = ENOENT;
    syslog(LOG_WARNING, "failed: %m");
    if (errno != ENOENT)
    {
        return 2;
    }
    syslog(LOG_NOTICE, "%s", text);
    syslog(LOG_CRIT, "%s", "");
    setlogmask(LOG_UPTO(LOG_INFO));
    syslog(LOG_DEBUG, "masked");
    syslog(LOG_INFO, "not masked");
    closelog();
    return 0;
}
"""

_EXPECTED = [LogLine(6, "plain 7 text"), LogLine(3, "variadic argument"), LogLine(7, "a\tb\nc\\d%"),
             LogLine(4, "failed: No such file or directory"), LogLine(5, "x" * 5000), LogLine(2, ""),
             LogLine(6, "not masked")]


@pytest.fixture(scope="module", params=[(), ("-O2", "-D_FORTIFY_SOURCE=2"), ("-fsanitize=address",)],
                ids=["plain", "fortified", "address sanitizer"])
def program(request, tmp_path_factory):
    """The logging program, built in one of the ways in which the daemon may be built."""
    folder = tmp_path_factory.mktemp("program")
    (folder / "logger.c").write_text(_PROGRAM)
    subprocess.run(["cc", *request.param, folder / "logger.c", "-o", folder / "logger"], check=True)
    return folder / "logger"


def _run(program, capture_library, **variables):
    environment = {"LC_ALL": "C", "LD_PRELOAD": str(capture_library), "ASAN_OPTIONS": "verify_asan_link_order=0"}
    return subprocess.run([program, "argument"], env={**environment, **variables}, timeout=PATIENCE,
                          check=False).returncode


def test_records_are_exact(program, capture_library, tmp_path):
    path = tmp_path / "log"
    assert _run(program, capture_library, CCU_SYSLOG_FILE=str(path)) == 0
    assert SyslogReader(str(path)).lines() == _EXPECTED
    assert path.read_bytes().splitlines(keepends=True)[2] == b"7\ta\\tb\\nc\\\\d%\n"


def test_callers_are_told_to_who_asks_for_them(program, capture_library, tmp_path):
    path = tmp_path / "log"
    assert _run(program, capture_library, CCU_SYSLOG_FILE=str(path), CCU_SYSLOG_CALLERS="1") == 0
    lines = SyslogReader(str(path)).lines()
    assert [LogLine(line.priority, line.text) for line in lines] == _EXPECTED
    inside = [[caller for caller in line.callers if caller.startswith(f"{program}+0x")] for line in lines]
    assert all(inside) and not [caller for line in lines for caller in line.callers if "syslog_capture" in caller]
    assert len({callers[0] for callers in inside}) == len(lines)  # every line is logged by a call of its own


def test_without_the_variable_the_system_log_is_used(program, capture_library, tmp_path):
    assert _run(program, capture_library) == 0
    assert os.listdir(tmp_path) == []


def test_an_unusable_file_harms_nobody(program, capture_library, tmp_path):
    assert _run(program, capture_library, CCU_SYSLOG_FILE=str(tmp_path / "missing" / "log")) == 0


def test_records_of_many_processes_do_not_mix(program, capture_library, tmp_path):
    path = tmp_path / "log"
    environment = {"LC_ALL": "C", "LD_PRELOAD": str(capture_library), "CCU_SYSLOG_FILE": str(path),
                   "ASAN_OPTIONS": "verify_asan_link_order=0"}
    children = [subprocess.Popen([program, "argument"], env=environment) for _ in range(8)]
    assert [child.wait(PATIENCE) for child in children] == [0] * 8
    lines = SyslogReader(str(path)).lines()
    assert sorted(lines, key=str) == sorted(_EXPECTED * 8, key=str)


def test_reader_takes_complete_records_only(tmp_path):
    path = tmp_path / "log"
    reader = SyslogReader(str(path))
    assert reader.lines() == []
    path.write_bytes(b"6\tfirst\n3\tsec")
    assert reader.lines() == [LogLine(6, "first")]
    mark = reader.mark()
    with path.open("ab") as file:
        file.write(b"ond \xff\\\\n\n")
    assert reader.since(mark) == [LogLine(3, "second \udcff\\n")]
    assert reader.wait_for("second").priority == 3
    assert reader.texts(priority=6) == ["first"]
    assert reader.format(mark).startswith("<3> second")


def test_a_truncated_file_gives_what_comes_after(tmp_path):
    path = tmp_path / "syslog"
    path.write_text("6\tone\n6\ttwo\n", encoding="utf-8")
    reader = SyslogReader(str(path))
    assert len(reader.lines()) == 2
    reader.truncate()
    assert path.stat().st_size == 0 and reader.lines() == []
    with open(path, "a", encoding="utf-8") as file:
        file.write("3\tthree\n")
    assert reader.lines() == [LogLine(3, "three")]
