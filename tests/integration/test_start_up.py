"""The life of the process: its steps, what each failure leaves, and its end."""

import signal

import pytest

from tests.integration.device_texts import default_lines
from tests.integration.recording_texts import debug, error, info, lines_of
from tests.integration.time_texts import LIST_LINE, NO_DEFAULTS
from virtual_unit import Client

CONTROLLER = "ControllerDaemon::Controller::Controller(ControllerDaemon::ControllerDbusListener&, sd_event*)"
LISTEN = "int32_t Settingsd::SettingsDaemonDbusHandler::Listen()"

STARTED = info("syslog controller daemon started")
ENABLED = info("The controller is enabled")
EXITING = info("Exiting..\n")
#: The lines of a start with nothing wrong.
GOOD_START = [STARTED, ENABLED, LIST_LINE, *default_lines()]
#: The lines of a controller that reaches no bus.
NOTHING_CAME_UP = [
    error(f"{LISTEN}: Failed to connect to dbus"),
    error(f"{CONTROLLER}: Failed to register SettingsDaemon d-bus listener"),
    error(f"{CONTROLLER}: Failed to register VideoDaemon d-bus listener"),
    error(f"{CONTROLLER}: Failed to register StorageDaemon d-bus listener"),
]
NO_SERVER = error("Failed to DbusServer::Start();")
#: ... and has no loop for the keypad either.
NOT_EVEN_KEYS = [*NOTHING_CAME_UP, error("Failed to register io event")]
SERVICE = "com.tavilon.common.Controller1"


@pytest.fixture(name="unit")
def unit_with_devices_of_its_own(own_unit):
    """The devices are what is changed here."""
    return own_unit


def without_failed_reads(lines):
    """The lines without those of settings that cannot be read, which have tests of their own."""
    return [line for line in lines if "GetSetting(" not in line[1]]


def test_a_good_start_says_so_and_nothing_else(unit):
    assert unit.ready
    unit.settle()
    assert lines_of(unit) == GOOD_START
    assert SERVICE in unit.client.names()


def test_without_a_bus_the_controller_is_built_readiness_is_told_and_the_process_fails(make_unit):
    unit = make_unit(bus=False, daemon=False)
    unit.start_daemon(wait=False)
    assert unit.wait_exit() == 1
    assert unit.daemon.notifications == ["READY=1"]
    assert without_failed_reads(lines_of(unit)) == [
        STARTED, info("Failed to start listener"), ENABLED, *NOTHING_CAME_UP, LIST_LINE, NO_DEFAULTS, NO_SERVER,
        EXITING]


def test_without_a_loop_the_controller_is_built_readiness_is_told_and_the_process_fails(make_unit):
    unit = make_unit(daemon=False, environment={"CCU_FAIL_CALLS": "sd_event_default",
                                                "CCU_TELL_CALLS": "sd_event_unref"})
    unit.start_daemon(wait=False)
    assert unit.wait_exit() == 1
    assert unit.daemon.notifications == ["READY=1"]
    assert lines_of(unit) == [
        STARTED, info("Failed to create event loop"), ENABLED, *NOT_EVEN_KEYS, LIST_LINE, NO_SERVER, EXITING,
        debug("sd_event_unref without a loop")]


def test_a_loop_that_fails_ends_the_process_in_order(make_unit):
    unit = make_unit(daemon=False, environment={"CCU_FAIL_CALLS": "sd_event_loop"})
    unit.start_daemon(wait=False)
    assert unit.wait_exit() == 1
    assert unit.daemon.notifications == ["READY=1"]
    assert lines_of(unit) == [*GOOD_START, info("Failed to start main event loop"), EXITING]
    assert SERVICE not in unit.client.names()


def test_a_loop_that_ends_normally_is_success(make_unit):
    unit = make_unit(environment={"CCU_LOOP_ENDS_ON_SIGUSR1": "1"})
    assert unit.stop_daemon(signal.SIGUSR1) == 0
    assert lines_of(unit) == [*GOOD_START, EXITING]
    assert SERVICE not in unit.client.names()


def test_the_daemon_handles_no_signals_of_its_own(unit):
    assert unit.stop_daemon(signal.SIGTERM) == -signal.SIGTERM
    assert lines_of(unit) == GOOD_START


def test_a_name_that_is_taken_is_told_and_the_daemon_runs_on(make_unit):
    unit = make_unit(daemon=False)
    request_name(unit)
    unit.start_daemon()
    unit.settle()
    assert lines_of(unit) == [STARTED, ENABLED, LIST_LINE, NO_SERVER, *default_lines(told=False)]
    assert unit.daemon_alive


def request_name(unit):
    """Takes the controller's name away from it."""
    assert unit.client.call_bus("RequestName", "su", SERVICE, 0) == 1


def test_recordings_are_followed_although_the_name_is_taken(make_unit):
    unit = make_unit(daemon=False)
    request_name(unit)
    unit.start_daemon()
    unit.video.change("video", 1, RecordingFilename="/nowhere.mp4")
    mark = unit.log.mark()
    unit.video.grow(size=0, approaching_limit=True)
    unit.settle()
    assert info("Failed to emit signal, error code: -22\n") in lines_of(unit, mark)


@pytest.mark.parametrize("siblings", [("settings",), ("settings", "video"), ("settings", "storage", "hardware")],
                         ids=", ".join)
def test_siblings_that_are_absent_do_not_matter_to_the_start_save_the_settings_daemon(make_unit, siblings):
    unit = make_unit(siblings=siblings)
    assert unit.ready
    # The device manager's own lines; those of failed LEDs stand between.
    own = [line for line in lines_of(unit) if line in GOOD_START]
    assert own == GOOD_START
    client = Client(unit.session_address)
    try:
        assert client.call("VideoRecordStart", "uuu", 1, 1, 1)[0] in (-8, -4)
    finally:
        client.close()


def test_without_a_supervisor_the_daemon_runs_all_the_same(make_unit):
    unit = make_unit(daemon=False, environment={"NOTIFY_SOCKET": None})
    unit.start_daemon(wait=False)
    unit.log.wait_for("The controller is enabled")
    while SERVICE not in unit.client.names():
        assert unit.daemon_alive
    assert not unit.ready
