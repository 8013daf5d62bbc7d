"""Small programs as somebody writes them from the headers and the page alone: a mistake does not compile, or warns, or
does no harm."""

import os
import re
import subprocess

import pytest

from tests.integration.installed_client import (  # pylint: disable=unused-import
    ROOT, cached, library_folder_fixture, prefix_fixture)
from virtual_unit import PATIENCE, SILENT, VirtualUnit
from virtual_unit.controller import stand_in_controller

STANDARDS = ("c++11", "c++17", "c++20")
PATH = "/com/tavilon/common/Controller1"
CONTROL = "com.tavilon.common.Controller1.Control"

HEAD = """
#include <controller_client/ControllerAsync.h>
#include <controller_client/ControllerDaemonDbusHandler.h>
#include <controller_client/ControllerSignals.h>
using Controller = Controllerd::ControllerDaemonDbusHandler;
"""

REST = """
#include <controller_client/ControllerCodes.h>
#include <controller_client/ControllerFailure.h>
#include <controller_client/ControllerTimeout.h>
#include "HeartBeat.h"
#include <poll.h>
#include <cerrno>
#include <iostream>
#include <string>
#include <thread>
using Controllerd::CaptureErrorCode;
using Controllerd::ControllerFailure;
struct Answer { int result = 0; int code = 0; std::string message; };
"""

#: Mistakes that the compiler tells: what the program says and the words of the warning or error; of what it refuses in
#: a header of ours, those that lead there.
MISTAKES = {
    "a result ignored": ("int code = 0; std::string message; Controller::StopRecording(code, message);",
                         "warning: ignoring return value of .*StopRecording"),
    "a listener that is not open": ("Controllerd::ControllerSignals signals; signals.Open();",
                                    "warning: ignoring return value of .*Open"),
    "braces for a time": ("return Controller::SetTime({}, true);", "error: call of overloaded .*SetTime.* is ambiguous"),
    "a zone that is no name": ("return Controller::SetTimezone(0);", "error: use of deleted function .*SetTimezone"),
    "an offset without its flag": ("return Controller::SetTimezone(3600);",
                                   "error: use of deleted function .*SetTimezone"),
    "no text at all": ("int code = 0; std::string path, message;"
                       "return Controller::TakeScreenshot(nullptr, path, code, message);",
                       "error: use of deleted function .*TakeScreenshot"),
    "a call that tells nothing": ("Controllerd::ControllerAsync calls;"
                                  "return calls.Start([] {}, [] {});", "required from here"),
}

#: Programs that work, by what they print.
PROGRAMS = {
    "constant arguments and codes by name": ("""
int main()
{
    const std::string file = "/media/a.mp4";
    int code = 0;
    std::string path, message;
    int result = Controller::StartPlayback(file, 1.0, code, message);
    result |= Controller::StartPlayback("/media/b.mp4", 2, code, message);
    result |= Controller::SeekPlayback(5, code, message) | Controller::TakeScreenshot("/media", path, code, message);
    result |= Controller::SetTime(Controllerd::LocalDateTime(), true) | Controller::SetTime(0, true);
    result |= Controller::SetTimezone("Berlin") | Controller::SetTimezone(3600, false);
    std::cout << (result >= 0) << " " << (code == CaptureErrorCode::Success) << " " << path << " "
              << CaptureErrorCode::Text(CaptureErrorCode::NoCurrentJob) << std::endl;
}
""", "1 1 /media/screenshot.png No current job - unable to record\n"),

    "a dead controller": ("""
int main()
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere", 1);
    bool enabled = false;
    if (Controller::GetMicrophoneEnabled(enabled) < 0)
    {
        const bool unreachable = ControllerFailure::Last().kind == ControllerFailure::Kind::Unreachable;
        std::cout << unreachable << " " << ControllerFailure::Last().message << std::endl;
    }
}
""", "1 No such file or directory\n"),

    "a time-out of one's own": ("""
int main()
{
    std::string zone = "kept";
    const auto before = std::chrono::steady_clock::now();
    const Controllerd::ControllerTimeout limit(200);
    const int result = Controller::GetTimezone(zone); // the controller hangs
    const bool soon = std::chrono::steady_clock::now() - before < std::chrono::seconds(20);
    std::cout << (result == -ETIMEDOUT) << " " << soon << " " << zone << std::endl;
}
""", "1 1 kept\n"),

    "a listener that ends": ("""
int main()
{
    Controllerd::ControllerSignals signals;
    if (signals.Open() < 0)
    {
        return 1;
    }
    int result = 0;
    std::thread listener([&] {
        Controllerd::ControllerEvent event;
        do
        {
            result = signals.Next(event, -1);
        } while (result > 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // either way: waiting already or not yet
    signals.Cancel();
    listener.join();
    std::cout << (result == -ECANCELED) << std::endl;
}
""", "1\n"),

    "a reader that does not read": ("""
int main()
{
    Controllerd::ControllerSignals signals;
    if (signals.Open() < 0)
    {
        return 1;
    }
    std::cout << "open" << std::endl;
    pollfd entry{signals.Descriptor(), POLLIN, 0};
    int kept = 0;
    while (kept >= 0 && kept <= 1000 && poll(&entry, 1, 60000) > 0)
    {
        kept = signals.Dispatch(); // and nobody takes anything
    }
    long long lost = 0;
    long long taken = 0;
    Controllerd::ControllerEvent event;
    do
    {
        if (signals.Next(event, 60000) <= 0)
        {
            return 1;
        }
        (event.kind == Controllerd::ControllerEvent::Kind::Lost ? lost : taken) +=
            event.kind == Controllerd::ControllerEvent::Kind::Lost ? event.arguments.front().integer : 1;
    } while (event.kind == Controllerd::ControllerEvent::Kind::Lost || event.arguments.front().integer != 1234);
    std::cout << kept << " " << (lost > 0) << " " << lost + taken << " " << signals.TimeoutMilliseconds() << " "
              << poll(&entry, 1, 0) << std::endl;
}
""", "open\n1001 1 1234 -1 0\n"),

    "a loop that calls, and one that has others call": ("""
template <typename Turn>
double Longest(Turn turn)
{
    HeartBeat heart;
    while (turn())
    {
        heart.Beat();
    }
    heart.Beat();
    return heart.Longest();
}

int main()
{
    const int hanging = 300;
    double blocked = 0;
    double longest = 1000;
    bool answered = false;
    blocked = Longest([&] {
        const Controllerd::ControllerTimeout limit(hanging);
        std::string zone;
        answered = Controller::GetTimezone(zone) >= 0;
        return false;
    });
    for (int attempt = 0; attempt < 5 && longest > 20; ++attempt) // a machine may have other things to do
    {
        Controllerd::ControllerAsync calls;
        bool over = false;
        const int queued = calls.Start(
            [] {
                Answer answer;
                answer.result = Controller::GetTimezone(answer.message);
                return answer;
            },
            [&](const Answer& answer) { answered = answered || answer.result >= 0; over = true; }, hanging);
        pollfd entry{calls.Descriptor(), POLLIN, 0};
        longest = Longest([&] {
            if (poll(&entry, 1, HeartBeat::periodMilliseconds) > 0)
            {
                calls.Dispatch();
            }
            return queued == 0 && !over;
        });
    }
    std::cout << answered << " " << (blocked > hanging / 2) << " " << (longest <= 20) << std::endl;
}
""", "0 1 1\n"),

    "what follows calls": ("""
int main()
{
    auto calls = std::make_shared<Controllerd::ControllerAsync>();
    pollfd entry{calls->Descriptor(), POLLIN, 0};
    std::string order;
    int queued = 0;
    for (int number = 0; number < 3; ++number)
    {
        queued |= calls->Start([number] { return number; }, [&order](int done) { order += std::to_string(done); });
    }
    queued |= calls->Start(
        [] {
            bool enabled = false;
            setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere", 1);
            return Controller::GetSondeEnabled(enabled);
        },
        [&](int) {
            order += " " + ControllerFailure::Last().message;
        });
    queued |= calls->Start([] { return 4; }, [&](int done) {
        order += " " + std::to_string(done) + ControllerFailure::Last().message;
        calls.reset(); // nothing follows any more
    });
    queued |= calls->Start([] { return 9; }, [&order](int done) { order += std::to_string(done); });
    while (calls != nullptr && poll(&entry, 1, 30000) > 0)
    {
        calls->Dispatch();
    }
    std::cout << queued << " " << order << std::endl;
}
""", "0 012 No such file or directory 4\n"),
}


def functions(bodies):
    """The bodies of main(), each as a function of its own, in a namespace of its own; what the compiler says of it
    begins with its name."""
    return "".join(f'namespace n{number}\n{{\n#line 1 "{name}"\n{body}}}\n'
                   for number, (name, body) in enumerate(bodies.items()))


def program():
    """All programs in one, which runs that of the number that it is given."""
    bodies = {name: re.sub(r"}\n$", "    return 0;\n}\n", text.replace("int main()", "int Main()"))
              for name, (text, _) in PROGRAMS.items()}
    calls = ", ".join(f"n{number}::Main" for number in range(len(bodies)))
    return (f"{REST}{functions(bodies)}int main(int, char** arguments)\n{{\n"
            f"    int (*const programs[])() = {{{calls}}};\n    return programs[std::stoi(arguments[1])]();\n}}\n")


@pytest.fixture(scope="module", name="compile_program")
def compile_program_fixture(prefix, library_folder, tmp_path_factory):
    """Compiles a program as the page says; returns what the compiler says and the program, if it has made one."""
    folder = tmp_path_factory.mktemp("programs")

    def compiled(name, text, standard, whole=True):
        source = folder / f"{name}-{standard}.cpp"
        source.write_text(HEAD + text)
        target = ["-o", str(source.with_suffix("")), f"-L{library_folder}", "-lcontroller-client", "-pthread"] \
            if whole else ["-fsyntax-only"]
        done = subprocess.run([cached("CMAKE_CXX_COMPILER"), f"-std={standard}", "-Wall", "-Wextra", str(source),
                               "-I", os.path.join(prefix, "include"), "-I", os.path.join(ROOT, "examples"), *target],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                              env={**os.environ, "LC_ALL": "C"})
        return done.stdout, str(source.with_suffix("")) if whole and done.returncode == 0 else None

    return compiled


@pytest.fixture(scope="module", name="unit")
def unit_fixture():
    """A unit with the controller's stand-in, that hangs over the time zone."""
    with VirtualUnit(daemon=False, siblings=()) as unit, stand_in_controller(unit):
        unit.faults.on("controller", "Get GetTimezone", SILENT)
        yield unit


@pytest.fixture(scope="module", name="told_of")
def told_of_fixture(compile_program):
    """What the compiler says of each mistake, by its name and standard: of those that it warns of and of those that it
    refuses apart, since it looks at less once it has refused something. What it warns of elsewhere stands beside."""
    said = {}
    for kinds in ("warning",), ("error", "required from here"):
        bodies = {name: f"int Main()\n{{\n    {body}\n    return 0;\n}}\n"
                  for name, (body, words) in MISTAKES.items() if words.startswith(kinds)}
        for standard in STANDARDS:
            told, _ = compile_program(kinds[0], functions(bodies), standard, whole=False)
            for line in told.splitlines():
                name = line.partition(":")[0]
                if re.search(r"warning: |error: |required from", line) and (name in bodies or "warning: " in line):
                    said.setdefault((name if name in bodies else "elsewhere", standard), []).append(line)
    return said


@pytest.mark.parametrize("name", MISTAKES)
def test_a_mistake_is_told_by_the_compiler(told_of, name):
    """In every standard, and nothing else is told."""
    words = MISTAKES[name][1]
    for standard in STANDARDS:
        told = told_of[name, standard]
        assert all(re.search(words, line) for line in told), told
        assert len(told) == 1 or words == "required from here", told
        assert ("elsewhere", standard) not in told_of, told_of["elsewhere", standard]


@pytest.mark.parametrize("standard", STANDARDS[1:])
def test_the_programs_compile_without_a_word(compile_program, standard):
    """In the later standards; the first is that of the programs that run."""
    assert compile_program("syntax", program(), standard, whole=False) == ("", None)


@pytest.fixture(scope="module", name="programs")
def programs_fixture(compile_program):
    """The command of all programs."""
    told, path = compile_program("all", program(), STANDARDS[0])
    assert told == "" and path
    return path


@pytest.mark.parametrize("name", PROGRAMS)
def test_a_program_works(unit, programs, library_folder, name):
    expected = PROGRAMS[name][1]
    environment = {**os.environ, **unit.daemon.environment(), "LD_LIBRARY_PATH": library_folder}
    with subprocess.Popen([programs, str(list(PROGRAMS).index(name))], env=environment, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True) as process:
        first = process.stdout.readline()
        if first == "open\n":
            for number in range(1, 1235):
                unit.controller.emit(PATH, CONTROL, "CaptureError", number, "x")
        out, errors = process.communicate(timeout=PATIENCE)
    assert (first + out, process.returncode) == (expected, 0), errors
