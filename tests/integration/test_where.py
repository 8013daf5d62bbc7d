"""`./ccu where`: lines of the log, and the places in the sources that it names for them."""

import os
import pathlib
import re
import subprocess

import pytest

from dbus_helper.where import Sources, text_of
from virtual_unit.patience import PATIENCE

_ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
_PLACE = re.compile(r"(?P<path>[\w/]+\.(?:cpp|h)):(?P<line>\d+): (?P<what>.*)")

_CODE = "static DbusHelper::CaptureErrorCode ControllerDaemon::"
_PLAYBACK = "static DbusHelper::PlaybackErrorCode ControllerDaemon::VideoPlayback::"
_PROPERTY = "(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*)"
_DEVICE = "static int ControllerDaemon::DeviceManager::"
_RATE = f"static int ControllerDaemon::VideoPlayback::SetVideoPlaybackRate{_PROPERTY}"

#: A line; the formats of the statements that are named for it, the best first, each behind its function where others
#: have the same; the operations that it names.
_LINES = [
    # A signature text, whoever does the work.
    (f"{_CODE}VideoCapture::VideoRecordPause() called", ["Recording::Move: %s called"],
     ["VideoCapture::VideoRecordPause"]),
    (f"{_CODE}AutoLogCapture::AutoLogRecordStart(uint32_t, uint32_t, uint32_t) called",
     ["Recording::Start: %s called"], ["AutoLogCapture::AutoLogRecordStart"]),
    (f"{_CODE}PhotoTalkCapture::PhotoTalkRecordResume() Failed to resume photoTalk record",
     ["%s Failed to %s %s record"], ["PhotoTalkCapture::PhotoTalkRecordResume"]),
    (f"{_CODE}VideoCapture::VideoRecordStop(): called", ["Recording::Stop: %s: called"],
     ["VideoCapture::VideoRecordStop"]),
    (f"{_CODE}VideoCapture::VideoRecordStop() Failed to stop recording",
     ["Recording::Stop: %s Failed to stop recording"], ["VideoCapture::VideoRecordStop"]),
    (f"{_CODE}VideoCapture::VideoRecordCancel() Failed to stop recording",
     ["Recording::Cancel: %s Failed to stop recording"], ["VideoCapture::VideoRecordCancel"]),
    (f"{_CODE}VideoCapture::VideoRecordStart(uint32_t, uint32_t, uint32_t) RecordingFile /m/0001.mp4",
     ["%s RecordingFile %s"], ["VideoCapture::VideoRecordStart"]),
    ("static int ControllerDaemon::VideoCapture::VideoRecordStart(sd_bus_message*, void*, sd_bus_error*) "
     "sd_bus_message_read() failed", ["%s sd_bus_message_read() failed"], ["VideoCapture::VideoRecordStart"]),
    ("static void ControllerDaemon::VideoCapture::VideoGrownHandler(std::string, bool) Current capture path "
     "/m/0001.mp4 approaching size limit.", ["Recording::Grown: %s Current capture path %s approaching size limit."],
     ["VideoCapture::VideoGrownHandler"]),
    ("static void ControllerDaemon::AutoLogCapture::StopAndCancelInvalidRecordings() enter",
     ["Recording::StopAndCancelInvalid: %s enter"], ["RecordingCapture::StopAndCancelInvalidRecordings"]),
    ("static void ControllerDaemon::PhotoTalkCapture::StorageRemovedHandler(std::string, const std::vector<"
     "std::__cxx11::basic_string<char> >&) no photoTalk recording in progress", ["%s no %s recording in progress"],
     ["RecordingCapture::StorageRemovedHandler"]),
    ("static void ControllerDaemon::VideoCapture::UpdateMediaItem(const std::string&): Failed to update video media "
     "item, r = -113", ["%s: Failed to %s %s media item, r = %d"], ["RecordingCapture::UpdateMediaItem"]),
    ("static bool ControllerDaemon::VideoPlayback::StopAndCancelInvalidPlaybacks() enter",
     ["VideoPlayback::StopAndCancelInvalidPlaybacks: %s enter"], ["VideoPlayback::StopAndCancelInvalidPlaybacks"]),
    (f"{_PLAYBACK}VideoPlaybackSeek(int32_t) called", ["VideoPlayback::VideoPlaybackSeek: %s called"],
     ["VideoPlayback::VideoPlaybackSeek"]),
    (f"{_PLAYBACK}VideoPlaybackStop(bool) called restartLive=1", ["%s called restartLive=%d"],
     ["VideoPlayback::VideoPlaybackStop"]),
    (f"{_RATE} called", ["VideoPlayback::SetVideoPlaybackRate: %s called"], ["VideoPlayback::SetVideoPlaybackRate"]),
    (f"{_DEVICE}SetKeypadBeepEnabled{_PROPERTY}", ["DeviceManager::SetKeypadBeepEnabled: %s"],
     ["DeviceManager::SetKeypadBeepEnabled"]),
    ("static int32_t ControllerDaemon::DeviceManager::HandleLED(int, int): Failed to set LED led=1 value=0",
     ["%s: Failed to set LED led=%d value=%d"], ["DeviceManager::HandleLED"]),
    ("int32_t ControllerDaemon::SoundManager::SetMicEnabled(bool): gpiod_line_set_value returned: -1",
     ["%s: gpiod_line_set_value returned: %d"], ["SoundManager::SetMicEnabled"]),
    ("void ControllerDaemon::GetCameraAngles(JobsManagerD::cameraAngles_t&) GetCameraPitchAngle: -20",
     ["%s GetCameraPitchAngle: %i"], ["ControllerDaemon::GetCameraAngles"]),
    ("int SystemdDateTime::SetTime(uint64_t): usec = 1768431600000000", ["%s: usec = %llu"],
     ["SystemdDateTime::SetTime"]),
    # Words that helpers log for others, and words of tables.
    (f"{_RATE} Video::SetPlaybackRate failed", ["%s%s%s"], ["VideoPlayback::SetVideoPlaybackRate"]),
    (f"{_DEVICE}GetSpkrVolume{_PROPERTY}: SoundManager::GetSpkrVolume failed", ["%s%s%s"],
     ["DeviceManager::GetSpkrVolume"]),
    (f"{_DEVICE}SetSonde{_PROPERTY} Halvex->SetCameraSonde failed", ["%s%s%s"], ["DeviceManager::SetSonde"]),
    ("StorageSpaceBelowMiniumThreshold() is true - failed to start recording", ["Recording::CheckStorage: %s"], []),
    ("[CaptureError::ErrorReason] Ran successfully", ["[CaptureError::ErrorReason] %s"], []),
    ("sd_bus_call_method SetLedState failed (r = -110)", ["sd_bus_call_method SetLedState failed (r = %d)"], []),
    ("Failed to set remote credentials for HalvexDaemon: -5, refused",
     ["Failed to set remote credentials for HalvexDaemon: %d, %s"], []),
    ("sd_bus_call_method StartRecording failed: no such unit (r = -2)",
     ["sd_bus_call_method %s failed: %s (r = %d)"], []),
    ("UpdateMediaFileSizes", ["libjobsdaemon::Call: %s"], []),
    ("/dev/fb0", ["%s"], []),
    ("int SystemdDateTime::GetTimezone(std::__cxx11::string&): Cannot read property, error: refused", ["%s: %s%s"],
     ["SystemdDateTime::GetTimezone"]),
    ("static int32_t Storaged::StorageDaemonDbusHandler::GetMounted(const std::string&, bool&): sdbus_utils::"
     "GetProperty PROP_IS_MOUNTED failed refused", ["%s: sdbus_utils::GetProperty %s failed %s"],
     ["StorageDaemonDbusHandler::GetMounted"]),
    ("Videod: VideoDaemonDbusHandler::PausePlayback", ["Videod: VideoDaemonDbusHandler::%s"],
     ["VideoDaemonDbusHandler::PausePlayback"]),
    ("libjobsdaemon::JobsManager::DeleteJob: sd_bus_call_method failed r = -2, message = gone",
     ["libjobsdaemon::JobsManager::%s: sd_bus_call_method failed r = %d, message = %s"], ["JobsManager::DeleteJob"]),
    ("SyncDaemonDbusHandler::CancelAllDevices: Error parsing reply r = -6", ["SyncDaemonDbusHandler::%s: %s r = %d"],
     ["SyncDaemonDbusHandler::CancelAllDevices"]),
    ("Controllerd: ControllerDaemonDbusHandler::StopRecording: Failed to call method:refused",
     ["Controllerd: ControllerDaemonDbusHandler::%s: Failed to call method:%s"],
     ["ControllerDaemonDbusHandler::StopRecording"]),
    # Words that stand together in the source, blanks at their ends, and lines that two statements log alike.
    ("Halvexd::HalvexDaemonDbusHandler::GetPowerSufficientForAction: Power is insufficient for recording",
     ["Halvexd::HalvexDaemonDbusHandler::GetPowerSufficientForAction: Power is insufficient for recording"],
     ["HalvexDaemonDbusHandler::GetPowerSufficientForAction"]),
    (" s Failed to skip Key, type: s", ["%c Failed to skip %s, type: %s"], []),
    ("padding bytes: 0", ["padding bytes: %d"], []),
    ("GetPathFromFilename() ok /com/tavilon/common/StorageDaemon1/card",
     ["Recording::StorageOf: GetPathFromFilename() ok %s", "Recording::CheckStorage: GetPathFromFilename() ok %s"],
     []),
]


def where(*arguments):
    """Runs the command; returns its status, its lines and what it wrote to standard error."""
    done = subprocess.run([_ROOT / "ccu", "where", *arguments], env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8"},
                          capture_output=True, text=True, check=False, timeout=2 * PATIENCE)
    return done.returncode, done.stdout.splitlines(), done.stderr


@pytest.fixture(scope="module", name="answers")
def fixture_answers():
    """What the command prints for each of the lines, given to it in one."""
    status, lines, errors = where("\n".join(line for line, _, _ in _LINES))
    assert (status, errors) == (0, "")
    answers = []
    for line in lines:
        if line.startswith("# "):
            answers.append([])
        else:
            answers[-1].append(_PLACE.fullmatch(line))
    return answers


@pytest.mark.parametrize("number", range(len(_LINES)), ids=lambda number: f"{number}: {_LINES[number][0][-40:]}")
def test_a_line_is_traced_to_its_statements_and_its_operation(answers, number):
    _, statements, operations = _LINES[number]
    named = [re.fullmatch(r'(\S+) logs "(.*)"', place["what"]) for place in answers[number]]
    named = [match.groups() for match in named if match]
    assert [(f"{function}: " if ": " in wanted and wanted.split(": ")[0] == function else "") + text
            for (function, text), wanted in zip(named, statements)] == statements and len(named) == len(statements)
    assert [place["what"].removeprefix("the line names ") for place in answers[number]
            if place["what"].startswith("the line names ")] == operations


@pytest.mark.parametrize("number", range(len(_LINES)), ids=lambda number: f"{number}: {_LINES[number][0][-40:]}")
def test_at_each_place_stands_what_is_said_of_it(answers, number):
    for place in answers[number]:
        source = (_ROOT / place["path"]).read_text().splitlines()[int(place["line"]) - 1]
        if " logs " in place["what"]:
            assert re.search(r"\b(Log::(Info|Debug|Error)|log)\(", source)
        elif place["what"].startswith("with a text of "):
            assert '"' in source
        else:
            assert f"{place['what'].rpartition('::')[2].rpartition(' ')[2]}(" in source or "called by" in place["what"]


def test_helpers_are_followed_to_who_gave_them_their_words():
    status, lines, _ = where(f"{_DEVICE}GetSpkrVolume{_PROPERTY}: SoundManager::GetSpkrVolume failed")
    assert status == 0
    assert [line.partition(": ")[2] for line in lines] == [
        'Request::Fail logs "%s%s%s"', "called by ControllerDaemon::AnswerSound",
        "called by DeviceManager::GetSpkrVolume", "the line names DeviceManager::GetSpkrVolume"]


@pytest.mark.parametrize("prefix", [
    "", "Nov 21 22:01:02 unit controllerd[123]: ", "Nov  1 22:01:02.123456 unit controllerd[9]: ", "controllerd[1]: ",
    "controllerd: ", "2026-11-21T22:01:02+0000 unit controllerd[123]: ", "[   12.345678] unit controllerd[123]: ",
    "2026-11-21T22:01:02.123456+00:00 unit controllerd[123]: ", "<30>Nov 21 22:01:02 unit controllerd[7]: ", "<3>",
    "Sat 2026-11-21 22:01:02 UTC unit controllerd[123]: ", "Nov 21 22:01:02 unit controllerd: ", "    err ", "  debug ",
])
def test_what_a_journal_puts_before_a_line_is_no_part_of_it(prefix):
    assert text_of(f"{prefix}The controller is enabled\n") == "The controller is enabled"


@pytest.mark.parametrize("text", [
    "int32_t ControllerDaemon::SoundManager::SetMicEnabled(bool): gpiod_line_set_value returned: -1",
    "[CaptureError::ErrorReason] Ran successfully", "Failed to start Controller", "UpdateMediaFileSizes",
    "DeviceManager::KeyPress: Got keyCode 28, keypadBeepEnabled 1", "Nov is a month",
])
def test_a_line_without_a_prefix_is_taken_as_it_is(text):
    assert text_of(text) == text


def test_a_line_that_nothing_logs_is_told():
    status, lines, errors = where("Nov 21 22:01:02 unit controllerd[123]: SetLedState: the moon is made of cheese")
    assert (status, lines) == (1, [])
    assert errors.splitlines()[0] == "where: no statement here has words of: SetLedState: the moon is made of cheese"
    assert "TimezoneCatalogue.cpp" in errors.splitlines()[1]


def test_one_unknown_line_of_several_does_not_hide_the_others():
    status, lines, errors = where("The controller is enabled", "cheese\nExiting..")
    assert status == 1 and "has words of: cheese\n" in errors
    assert [line[2:] for line in lines if line[0] == "#"] == ["The controller is enabled", "cheese", "Exiting.."]
    assert sum("daemon/main.cpp" in line for line in lines) == 2


@pytest.mark.parametrize("arguments", [(), ("",), (" \n ",), ("--json", "The controller is enabled")])
def test_a_wrong_usage_is_told(arguments):
    assert where(*arguments) == (2, [], 'usage: ./ccu where "LOG LINE"...\n')


def test_help_is_no_error():
    assert where("--help") == (0, ['usage: ./ccu where "LOG LINE"...'], "")


# How it reads ---------------------------------------------------------------------------------------------------------

_HEADER = """
#pragma once
namespace Rooms
{
inline constexpr const char* cellar = "the cellar";
inline void Tell(const char* who, const char* what) { Log::Info("%s: %s", who, what); }
class House
{
  public:
    House() : doors_{1} { Log::Info("built"); }
    int Enter(int door);
    int Leave() { return Quit("Rooms::House::Leave()"); }
    static int Quit(const char* by);
};
}
"""
_SOURCE = r"""
#include "rooms/House.h"
/* Log::Info("in a comment"); */ // Log::Info("in another");
#define NOTHING Log::Info("in a macro")
namespace Rooms
{
namespace
{
using Place = House;
struct Row
{
    const char* format;
};
constexpr Row rows[] = {{"first %d%% of it"},
                        {"second %d"}};
constexpr char quote = '"';
}
int Place::Enter(int door)
{
    Log::Error(R"(raw "%d")", door);
    Log::Error("two "
               "pieces in %s\n", cellar);
    Log::Debug("it is %s", door < 2 && 3 > door ? "open" : "shut");
    Log::Error(rows[door].format, door);
    Tell("Enter", door == 0 ? "front" : "back");
    return Quit("Rooms::House::Enter(int)");
}
int Place::Quit(const char* by)
{
    const auto log = by != nullptr ? &Log::Info : &Log::Error;
    log("%s has left", by);
    Log::Info("%s knocks %d", signatureOf<&House::Enter>, rows.size() < 3 ? 1 : 0);
    return 0;
}
bool House::operator==(const House&) const { return true; }
void Keep()
{
    Log::Info("kept");
}
}
"""


@pytest.fixture(scope="module", name="house")
def fixture_house(tmp_path_factory):
    """The sources of a small program."""
    root = tmp_path_factory.mktemp("house")
    for path, text in {"rooms/House.h": _HEADER, "rooms/House.cpp": _SOURCE, "tests/Other.cpp": _SOURCE}.items():
        (root / path).parent.mkdir(exist_ok=True)
        (root / path).write_text(text)
    return Sources(root)


@pytest.mark.parametrize("text, expected", [
    ('raw "7"', ["House.cpp:20"]), ("two pieces in the cellar", ["House.cpp:21"]), ("two pieces in the attic", []),
    ("it is shut", ["House.cpp:23"]), ("it is ajar", []), ("first 5% of it", ["House.cpp:24", "House.cpp:14"]),
    ("second -1", ["House.cpp:24", "House.cpp:15"]), ("built", ["House.h:10"]),
    ("Enter: back", ["House.h:6", "House.cpp:25"]),
    ("Rooms::House::Leave() has left", ["House.cpp:31", "House.h:12"]),
    ("Rooms::House::Enter(int) has left", ["House.cpp:31", "House.cpp:26"]),
    ("int Rooms::House::Enter(int) knocks 1", ["House.cpp:32"]), ("kept", ["House.cpp:38"]),
    ("in a comment", []), ("in another", []), ("in a macro", []), ("second one", []),
])
def test_texts_are_put_together_as_the_compiler_does(house, text, expected):
    assert [str(place) for match in house.matches(text) for place in match.places] == [
        f"rooms/{place}" for place in expected]
