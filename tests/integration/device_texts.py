"""The lines of the devices' members, and what comes of an access to them."""

from dataclasses import dataclass, field

from tests.integration.recording_texts import error, info, lines_of, opened
from virtual_unit import DbusFailure

PROPERTIES = "org.freedesktop.DBus.Properties"
FAILED = "org.freedesktop.DBus.Error.Failed"
DEVICE = "ControllerDaemon::DeviceManager::"
SOUND = "int32_t ControllerDaemon::SoundManager::"
CONSTRUCTOR = f"{DEVICE}DeviceManager(sd_event*, SettingsHandler)"
DEFAULTS = f"int32_t {DEVICE}SetDefaultSettings()"
HALVEX = "static int32_t Halvexd::HalvexDaemonDbusHandler::"
REMOTE = [("hardware", "Get RemoteIP"), ("hardware", "Get RemoteDBusAddress")]
MIC_LED, SONDE_LED = 0, 3

#: What the calls of a switched microphone and a switched sonde are, when all goes well.
MIC_CALLS = [("hardware", "SetLedState"), ("video", "Set SystemMicMute")]
SONDE_CALLS = [*REMOTE, ("hardware", "Set Sonde"), ("hardware", "SetLedState")]


def handler(name):
    """The signature text of a property's handler."""
    return f"static int {DEVICE}{name}(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, " \
           "sd_bus_error*)"


def setter(name, kind):
    """The signature text of what handlers and settings share."""
    return f"static int32_t {DEVICE}Set{name}({kind})"


def changed(name):
    """The line of a settings section that has changed."""
    return info(f"void {DEVICE}{name}SettingsChanged(sdbus_utils::TypedPropertyMap&)")


def key_name(name):
    """The line of one changed setting."""
    return info(f"name: {name}")


# The sound manager's lines.


def mic_set(on):
    """The microphone's line is set."""
    return info(f"{SOUND}SetMicEnabled(bool): Set Microphone enabled - gpiod_line_set_value: {int(on)}")


def mic_got(on):
    """The microphone's line is read."""
    return info(f"{SOUND}GetMicEnabled(bool&): Get Microphone - gpiod_line_get_value: {int(on)}")


def speaker_set(on):
    """The speaker's line is set."""
    return info(f"{SOUND}SetSpkrEnabled(bool): Set Spkr enabled - gpiod_line_set_value: {int(on)}")


def speaker_got(on):
    """The speaker's line is read."""
    return info(f"{SOUND}GetSpkrEnabled(bool&): Get Spkr enabled - gpiod_line_get_value: {int(on)}")


def set_failed(name):
    """A line cannot be set: what is logged from the sound manager up to the shared setter."""
    return [error(f"{SOUND}Set{name}(bool): gpiod_line_set_value returned: -1"),
            error(f"{setter(name, 'bool')}: SoundManager::Set{name} failed")]


def get_failed(name):
    """A line cannot be read: what is logged from the sound manager up to the getter."""
    return [error(f"{SOUND}Get{name}(bool&): gpiod_line_get_value returned: -1"),
            error(f"{handler('Get' + name)}: SoundManager::Get{name} failed")]


# What is switched: setting and emitting, which reads the new value.


def mic_lines(on):
    """The microphone is switched."""
    return [mic_set(on), mic_got(on)]


def speaker_lines(on):
    """The speaker is switched."""
    return [speaker_set(on), speaker_got(on)]


def led_failed(led, value):
    """An LED cannot be set."""
    return error(f"static int32_t {DEVICE}HandleLED(int, int): Failed to set LED led={led} value={value}")


SONDE_LINES = [opened("SetCameraSonde")]


def got_default(text):
    """A default that could be read."""
    return info(f"{DEFAULTS}: Got default {text}")


def no_default(text):
    """A default that could not be read."""
    return error(f"{DEFAULTS}: Failed to get default {text}")


def unread(key, kind):
    """The settings client's own line of a setting that could not be read, up to the bus's words."""
    return ("static int32_t Settingsd::SettingsDaemonDbusHandler::GetSetting(const string&, const string&, T&) "
            f"[with T = {kind}; int32_t = int; std::__cxx11::string = std::__cxx11::basic_string<char>]: "
            f"ERROR sdbus_utils::GetProperty {key} failed ")


def default_lines(mic=True, speaker=False, volume=50, sonde=False, beep=(0, 100, 200, 1), told=True):
    """All lines of the defaults of a healthy unit; `told`: there is a bus on which to tell of changes."""
    return [got_default(f"Mic state: {int(mic)}"), *mic_lines(mic)[:1 + told],
            got_default(f"Speaker state: {int(speaker)}"), *speaker_lines(speaker)[:1 + told],
            got_default(f"Speaker volume: {volume}"),
            got_default(f"Sonde state: {int(sonde)}"), *SONDE_LINES,
            got_default("keypad beep setting {} {} {} {}".format(*beep))]


@dataclass
class Effect:
    """What something caused: its answer, the daemon's lines and calls, and the changes that it emitted."""
    answer: object
    lines: list
    calls: list
    changes: list = field(default_factory=list)
    arguments: list = field(default_factory=list)  # of the calls

    def __iter__(self):
        return iter((self.answer, self.lines, self.calls, self.changes))


def changes_of(signals):
    """The properties whose change was emitted, one dictionary a signal; nothing may be invalidated without value."""
    changes = []
    for signal in signals:
        assert (signal.interface, signal.member, signal.signature) == (PROPERTIES, "PropertiesChanged", "sa{sv}as")
        interface, values, invalidated = signal.args
        assert (interface, invalidated) == ("com.tavilon.common.Controller1.Control", [])
        changes.append(values)
    return changes


def effect_of(unit, act):
    """Does something and waits until all that it caused is over."""
    unit.settle()
    mark, calls = unit.log.mark(), unit.calls.mark()
    unit.client.clear()
    try:
        answer = act()
    except DbusFailure as failure:
        answer = (failure.name, failure.text)
    unit.settle()
    return Effect(answer, lines_of(unit, mark), unit.calls.members(since=calls), changes_of(unit.client.signals),
                  [call.arguments for call in unit.calls.since(calls)])


def write(unit, name, value):
    """Writes a member, which is a number or a switch."""
    return effect_of(unit, lambda: unit.client.set(name, "b" if isinstance(value, bool) else "i", value))


def read(unit, name):
    """Reads a member."""
    return effect_of(unit, lambda: unit.client.get(name))
