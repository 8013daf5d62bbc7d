"""Every scripted fault as a client of the sibling sees it."""

import os
import subprocess
import time

import pytest

from virtual_unit import (ABSENT, ANSWER, AT_ONCE, CODE, DIE, DIE_AFTER, LATE, MEANWHILE, PATIENCE, REFUSE, SILENT,
                          WRONG_TYPE, Client, DbusFailure, VirtualUnit, declaration)
from virtual_unit.values import complete_types, zero

_ERROR = "org.freedesktop.DBus.Error."
_JOBS = ("com.tavilon.common.JobsManagerDaemon1", "/com/tavilon/common/JobsManagerDaemon1",
         "com.tavilon.common.JobsManagerDaemon1")


def _failure(client, member="StopRecording", *arguments):
    with pytest.raises(DbusFailure) as raised:
        client.call(member, *arguments)
    return raised.value


def test_absent_is_what_the_bus_says_itself(unit, video_client):
    unit.faults.at(0, ABSENT)
    simulated = _failure(video_client)
    assert unit.video.alive
    unit.video.die()
    genuine = _failure(video_client)
    assert (simulated.name, simulated.text) == (genuine.name, genuine.text)


def test_refuse(unit, video_client):
    unit.faults.at(0, REFUSE)
    failure = _failure(video_client)
    assert (failure.name, failure.text) == (_ERROR + "Failed", "refused by the simulation")


def test_an_answer_of_any_type(unit, video_client):
    unit.faults.at(0, ANSWER("as(ib)", ["a", "b"], (7, True)))
    assert video_client.call("StopRecording") == (["a", "b"], (7, True))
    assert [call.member for call in unit.calls] == ["StopRecording"]


def test_code_is_answered_and_nothing_is_carried_out(unit, client_of):
    jobs = client_of(*_JOBS)
    unit.jobs.answer_code("GetNewMediaPathComponents", 7)
    assert jobs.call("GetNewMediaPathComponents") == ((7, "", ""),)
    unit.faults.clear()
    assert jobs.call("GetNewMediaPathComponents")[0][2] == "0001"


@pytest.mark.parametrize("path, interface, member, signature, arguments, reply", [
    ("", "Control", "BeepBuzzer", "uuu", (1, 2, 3), (False,)),
    ("", "Control", "GetPowerStates", "", (), (False,) * 5),
    ("/power", "power", "GetPowerSufficientForAction", "i", (0,), (4,)),
])
def test_code_in_replies_of_other_shapes(unit, path, interface, member, signature, arguments, reply):
    unit.faults.on("hardware", member, CODE(4))
    answer = unit.client.call_on("com.tavilon.common.Halvex1", f"/com/tavilon/common/Halvex1{path}",
                                 f"com.tavilon.common.Halvex1.{interface}", member, signature, *arguments)
    assert answer == reply
    assert unit.hardware.beeps == []


def test_code_that_no_reply_can_carry_is_an_error(unit, video_client):
    unit.faults.at(0, CODE(4))
    with pytest.raises(DbusFailure, match="refused with code 4"):
        video_client.get("RecordingState")


def _signatures():
    return sorted({(method.result, interface, member, item.path, name, method.signature)
                   for name in ("video", "jobs", "hardware", "sync", "storage")
                   for item in declaration.load(name).values() if not item.prototype
                   for (interface, member), method in item.methods.items() if not interface.startswith("org.")})


def test_wrong_type_never_fits(unit):
    for result, interface, member, path, name, signature in _signatures():
        unit.faults.on(name, member, WRONG_TYPE, times=1)
        arguments = [zero(part) for part in complete_types(signature)]
        reply = unit.client.request(getattr(unit, name).service, path, interface, member, signature,
                                    *arguments).result(PATIENCE)
        assert reply.signature not in ("", result)
        assert not result.startswith(reply.signature)


@pytest.mark.parametrize("name, kind", [("RecordingState", str), ("RecordingFilename", int), ("CaptureZoom", str),
                                        ("SystemMicMute", str), ("ActiveCaptures", str), ("OverlayUserText", str)])
def test_wrong_type_inside_the_variant_of_a_property(unit, video_client, name, kind):
    unit.faults.on("video", f"Get {name}", WRONG_TYPE)
    assert type(video_client.get(name)) is kind


def test_wrong_type_of_a_property_map(unit, video_client):
    unit.faults.on("video", "GetAll", WRONG_TYPE)
    assert isinstance(video_client.get_all(), str)


def test_silent(unit, video_client):
    unit.faults.at(0, SILENT)
    with pytest.raises(DbusFailure, match="NoReply"):
        video_client.call("StopRecording", timeout=0.05)
    assert video_client.call("StopRecording") == (-1,)


def test_die_and_revive(unit, video_client):
    unit.video.set("CaptureZoom", 3.0)
    unit.faults.at(0, DIE)
    assert _failure(video_client).name == _ERROR + "NoReply"
    assert not unit.video.alive
    assert _failure(video_client).name == _ERROR + "ServiceUnknown"
    unit.video.revive()
    assert unit.video.alive and video_client.get("CaptureZoom") == 3.0


def test_die_after_carries_out(unit, video_client):
    path = f"{unit.media}/a.mp4"
    unit.faults.at(0, DIE_AFTER)
    assert _failure(video_client, "StartRecording", "sssuuu", path, "", "", 1, 2, 3).name == _ERROR + "NoReply"
    assert unit.video.state() == 1
    assert video_client.wait_signal("PropertiesChanged").args[1]["RecordingState"] == 1


def test_late_is_correct_and_later(unit, video_client):
    unit.faults.at(0, LATE(0.1))
    start = time.monotonic()
    late = video_client.call_async("StopRecording")
    assert video_client.get("RecordingState") == 0
    assert not late.done()
    assert late.result(PATIENCE).args == (-1,)
    assert time.monotonic() - start >= 0.1


def test_late_after_death_is_not_sent(unit, video_client):
    unit.faults.at(0, LATE(0.01))
    late = video_client.call_async("StopRecording")
    unit.calls.wait_for("video", "StopRecording")
    unit.video.die()
    with pytest.raises(DbusFailure, match="NoReply"):
        late.result(PATIENCE)


@pytest.mark.parametrize("carried_out", [True, False])
def test_a_deed_is_done_before_the_call_is_carried_out_or_not(unit, video_client, carried_out):
    states = []
    unit.faults.at(0, MEANWHILE(lambda: states.append(unit.video.state()), carried_out))
    answer = video_client.call_async("StartRecording", "sssuuu", f"{unit.media}/a.mp4", "", "", 1, 2, 3)
    video_client.sync()
    assert (states, unit.video.state(), answer.done()) == ([0], int(carried_out), carried_out)


def test_a_video_daemon_that_has_lost_its_recordings_leaves_their_files(unit, video_client):
    path = f"{unit.media}/a.mp4"
    assert video_client.call("StartRecording", "sssuuu", path, "", "", 1, 2, 3) == (0,)
    unit.video.die()
    unit.video.lose_recordings()
    unit.video.revive()
    assert unit.video.state() == 0 and unit.video.get("ActiveCaptures") == []
    assert (video_client.get("RecordingFilename"), video_client.get("PreviousRecordingFilename")) == ("", "")
    assert os.path.exists(path) and video_client.call("StopRecording") == (-1,)


def test_counting_from_now(unit, video_client):
    video_client.get("RecordingState")
    unit.faults.at(1, REFUSE)
    unit.faults.at(3, ABSENT)
    outcomes = []
    for _ in range(5):
        try:
            outcomes.append(video_client.get("RecordingState"))
        except DbusFailure as failure:
            outcomes.append(failure.name.rsplit(".", 1)[1])
    assert outcomes == [0, "Failed", 0, "ServiceUnknown", 0]


def test_matching_members_and_times(unit, video_client):
    rule = unit.faults.on("video", "Get RecordingState", REFUSE, times=2)
    unit.faults.on("storage", kind=REFUSE)
    assert video_client.get("PlaybackState") == 0
    for _ in range(2):
        with pytest.raises(DbusFailure, match="refused"):
            video_client.get("RecordingState")
    assert video_client.get("RecordingState") == 0
    assert rule.hits == 2


def test_all_calls_of_a_sibling_until_cancelled(unit, video_client):
    rule = unit.faults.on("video", kind=ABSENT)
    for name in ("RecordingState", "PlaybackState"):
        with pytest.raises(DbusFailure, match="ServiceUnknown"):
            video_client.get(name)
    rule.cancel()
    assert video_client.get("PlaybackState") == 0


def test_a_later_fault_goes_first(unit, video_client):
    unit.faults.on("video", kind=ABSENT)
    unit.faults.on("video", "StopRecording", REFUSE, times=1)
    assert _failure(video_client).name == _ERROR + "Failed"
    assert _failure(video_client).name == _ERROR + "ServiceUnknown"


def test_only_faults_are_faults(unit):
    with pytest.raises(TypeError):
        unit.faults.at(0, "absent")


def test_a_unit_with_unanswered_calls_ends():
    with VirtualUnit(daemon=False) as unit:
        unit.faults.on("video", kind=SILENT)
        client = Client(unit.session_address, "com.tavilon.common.Video1", "/com/tavilon/common/Video1",
                        "com.tavilon.common.Video1.Control")
        pending = client.call_async("StopRecording")
        unit.calls.wait_for("video")
    with pytest.raises(DbusFailure, match="NoReply"):
        pending.result(PATIENCE)
    client.close()


def test_a_bus_that_goes_ends_what_waits_for_an_answer(unit, video_client):
    """The sibling that was asked is still there: nobody but the bus could tell."""
    unit.faults.on("video", kind=SILENT)
    pending = video_client.call_async("StopRecording")
    unit.calls.wait_for("video")
    unit.stop_bus()
    with pytest.raises(DbusFailure, match="NoReply"):
        pending.result(PATIENCE)
    assert video_client.strays == []


def _ask(unit, timeout):
    """Has busctl, whose bus library is the daemon's, make a call; returns what it says of it."""
    return subprocess.run(["busctl", f"--address={unit.session_address}", f"--timeout={timeout}", "call",
                           "com.tavilon.common.Video1", "/com/tavilon/common/Video1",
                           "com.tavilon.common.Video1.Control", "StopRecording"],
                          env=unit.daemon.environment(), capture_output=True, text=True, check=False)


def test_a_program_gives_up_at_once_what_is_never_answered(build_dir):
    """However long its time-out is, and nothing else, however late it comes."""
    with VirtualUnit(build_dir, daemon=False, siblings=("video",), bus_timeout=AT_ONCE) as unit:
        unit.faults.at(0, SILENT)
        unit.faults.at(1, LATE(0.1))
        assert "timed out" in _ask(unit, 3600).stderr
        assert _ask(unit, 3600).stdout == "i -1\n"
        unit.faults.at(0, SILENT)
        assert "timed out" in _ask(unit, 3600).stderr


def test_a_program_waits_for_its_time_out_otherwise(build_dir):
    """As the demonstration shows it."""
    with VirtualUnit(build_dir, daemon=False, siblings=("video",)) as unit:
        unit.faults.at(0, SILENT)
        began = time.monotonic()
        assert "timed out" in _ask(unit, 2).stderr
        assert time.monotonic() - began >= 2
