"""The settings daemon: 29 sections, each an object with a property for every key."""

from .loop import on_loop
from .sibling import Refusal, Sibling

_ROOT = "/com/tavilon/common/Settings1"
_INTERFACE = "com.tavilon.common.Settings1"

#: What the keys stand at after a reset; keys that are not named are empty.
DEFAULTS = {
    "system": {"language": "en", "units": "metric"},
    "audio": {"micEnabled": True, "speakerEnabled": False, "speakerVolume": 50},
    "keyBeep": {"enabled": False, "duration": 100, "period": 200, "beeps": 1},
    "display": {"brightness": 80, "dimSeconds": 300},
    "capture": {"quality": 80, "sizeLimitMegabytes": 4000},
    "sonde": {"enabled": False},
    "reel": {"units": "metres"},
    "camera": {"autoRotate": True, "ledBrightness": 50},
    "overlay": {"enabled": True},
    "video": {"autogain": True, "brightness": 50, "contrast": 50},
    "videoRecording": {"width": 1280, "height": 720, "quality": 80},
    "autologRecording": {"width": 640, "height": 480, "quality": 60},
    "photoTalkRecording": {"width": 1280, "height": 720, "quality": 80},
    "storage": {"warningMegabytes": 500, "minimumMegabytes": 100},
    "device": {"name": "Camera unit"},
    "network": {"hostName": "ccu"},
    "motionDetection": {"period": 10},
    "contacts": {"list": "[]"},
    "remoteDevices": {"list": "[]"},
    "shutdown": {"delaySeconds": 5},
    "time": {"zone": "London", "dst": False},
    "gps": {"enabled": True},
    "cooling": {"mode": "automatic", "minimumTemperature": 40, "maximumTemperature": 70},
}


class Settings(Sibling):
    """Keys are changed from outside with `change`; the resets bring the defaults back."""

    name = "settings"
    service = "com.tavilon.common.Settings1"

    def initial_values(self, path):
        return DEFAULTS.get(path[len(_ROOT) + 1:], {})

    @staticmethod
    def section_path(section):
        """Object path of a section."""
        return f"{_ROOT}/{section}"

    def sections(self):
        """The names of the sections that are there."""
        return [path[len(_ROOT) + 1:] for path in self.objects if path != _ROOT]

    def value(self, section, key):
        """The plain value of a key."""
        return self.get_property(self.section_path(section), key)

    def preset(self, section, values):
        """Sets keys without telling anyone, as if the unit had been found like this."""
        self.set_properties(self.section_path(section), values, emit=False)

    @on_loop
    def change(self, section, values):
        """The operator changes keys of a section: one PropertiesChanged that carries them all, changed or not.

        A `Typed` value, or a key that the section does not declare, is announced and not stored.
        """
        path = self.section_path(section)
        known = self.objects[path].values
        stored = {key: value for key, value in values.items() if key in known and not hasattr(value, "signature")}
        self.set_properties(path, stored, emit=False)
        self.emit_changes(path, _INTERFACE, values)

    def remove_section(self, section):
        """A section disappears, as after an update of the daemon that does not know it."""
        self.remove_object(self.section_path(section))

    @on_loop
    def reset(self, section):
        """The operator takes a section back to its defaults."""
        self._reset(section)

    def _reset(self, section, keys=None):
        path = self.section_path(section)
        if path not in self.objects:
            raise Refusal("InvalidArgs", f"No section '{section}'")
        fresh = type(self.objects[path])(self.objects[path].declared, self.initial_values(path)).values
        if keys is not None and not set(keys) <= set(fresh):
            raise Refusal("InvalidArgs", f"No setting '{keys[0]}' in section '{section}'")
        self.set_properties(path, {key: fresh[key] for key in keys or fresh})

    # Behaviours -------------------------------------------------------------------------------------------------------

    def on_ResetToDefaults(self, _path, _all):
        """Everything back to its default."""
        for section in self.sections():
            self._reset(section)

    def on_ResetSection(self, _path, section):
        """One section back to its defaults."""
        self._reset(section)

    def on_ResetSetting(self, _path, section, key):
        """One key back to its default."""
        self._reset(section, [key])
