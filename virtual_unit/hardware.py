"""The hardware daemon: power, camera head, cooling, reel, keypad, LEDs and buzzer."""

from .loop import on_loop
from .sibling import Sibling

_ROOT = "/com/tavilon/common/Halvex1"
_CONTROL = "com.tavilon.common.Halvex1.Control"
CAMERA, COOLING, POWER = (f"{_ROOT}/{name}" for name in ("camera", "cooling", "power"))
REEL, DISTANCE = f"{_ROOT}/reel", f"{_ROOT}/reel/distance"

_INITIAL = {
    _ROOT: {"VideoStatus": 1, "GetHalvexSwVersion": "2.4.1", "GetHalvexHwVersion": "C", "GetKeypadPicVersion": "1.7"},
    CAMERA: {"Brightness": 50},
    COOLING: {"CpuTemp": 48, "FanSpeed": 30, "FanCtrlMode": "automatic", "ManualFanSpeed": 50,
              "FanCtrlRangeMinTemp": 40, "FanCtrlRangeMaxTemp": 70, "CpuTempAvgPeriod": 10},
    POWER: {"ActivePowerSource": 1, "BatteryVoltages": (12100, 11900), "BatteryChargePercentages": (85, 80),
            "SystemPowerLevel": 3, "BatteryTypes": (1, 1), "PermittedActions": (True,) * 5,
            "BatteryLevelIcons": ("right", ["battery-80"], "left", ["battery-80"])},
    REEL: {"Status": 1, "Connected": True, "SerialNumber": "R-0001"},
    DISTANCE: {"Count": 5678, "Mode": "relative", "Absolute": 1234, "Relative": 234},
}

_RIGHT_BATTERY = (1, 2, 1, 1, "SN-R-0042", "2021-03-04", 6400, 17, 2, 3, 4, 5, 6)
_LEFT_BATTERY = (1, 2, 1, 1, "SN-L-0043", "2021-03-05", 6300, 18, 2, 3, 4, 5, 6)


class Hardware(Sibling):
    """What the front panel was told stands in `leds` (number to value) and `beeps` (duration, period, beeps)."""

    name = "hardware"
    service = "com.tavilon.common.Halvex1"

    def __init__(self, unit, address):
        self.leds = {}
        self.beeps = []
        self.overlays = []
        self.power_states = [True] * 5
        #: What is answered to every question whether the power suffices: 1 yes, 0 no.
        self.power_sufficient = 1
        self.battery_info_valid = True
        super().__init__(unit, address)

    def initial_values(self, path):
        return _INITIAL[path]

    @property
    def video_status(self):
        """1 while the camera's video is there."""
        return self.get_property(_ROOT, "VideoStatus")

    @property
    def has_camera_power(self):
        """Whether the output that supplies the camera is on."""
        return self.power_states[0]

    @property
    def lamps(self):
        """Brightness of the lamps in the camera head, 0 to 100."""
        return self.get_property(CAMERA, "Brightness")

    @property
    def sonde(self):
        """Whether the sonde in the camera head is on."""
        return self.get_property(CAMERA, "Sonde")

    @sonde.setter
    def sonde(self, on):
        self.set_property(CAMERA, "Sonde", on)

    @property
    def reel(self):
        """Connected, Mode, Absolute and Relative."""
        return {"Connected": self.get_property(REEL, "Connected"),
                **{name: self.get_property(DISTANCE, name) for name in ("Mode", "Absolute", "Relative")}}

    @property
    def power(self):
        """The properties of the supply."""
        return self.objects[POWER].values

    @property
    def cooling(self):
        """The properties of the cooling."""
        return self.objects[COOLING].values

    def set_power(self, **changes):
        """Changes properties of the supply, by their names."""
        self.set_properties(POWER, changes)

    def set_cooling(self, **changes):
        """Changes properties of the cooling, by their names."""
        self.set_properties(COOLING, changes)

    @on_loop
    def set_power_low(self, low=True):
        """The power suffices for nothing any more, or does again."""
        self.power_sufficient = int(not low)
        self.set_power(LowBatteryWarnings=(low, low), PermittedActions=(not low,) * 5,
                       SystemPowerLevel=1 if low else _INITIAL[POWER]["SystemPowerLevel"])

    @on_loop
    def move_reel(self, centimetres):
        """The cable is moved until the counter, in its mode, shows so many centimetres."""
        reel = self.reel
        way = centimetres - reel["Relative" if reel["Mode"] == "relative" else "Absolute"]
        self.set_properties(DISTANCE, {"Absolute": reel["Absolute"] + way, "Relative": reel["Relative"] + way})

    @on_loop
    def set_reel(self, connected=None, mode=None, absolute=None, relative=None):
        """Changes the reel; what is None stays."""
        for path, name, value in ((REEL, "Connected", connected), (DISTANCE, "Mode", mode),
                                  (DISTANCE, "Absolute", absolute), (DISTANCE, "Relative", relative)):
            if value is not None:
                self.set_property(path, name, value)

    @on_loop
    def set_video_status(self, status):
        """The camera's video comes or goes."""
        self.set_property(_ROOT, "VideoStatus", status)
        self.emit(_ROOT, _CONTROL, "VideoStatusChanged", status)

    def press_key(self, code, state=1):
        """A key of the unit's own keypad goes down (1) or up (0)."""
        self.emit(_ROOT, _CONTROL, "KeyPressEvent", code, state)

    # Behaviours -------------------------------------------------------------------------------------------------------

    def on_SetRemote(self, path, ip, address):
        """From now on the hardware of another unit is meant."""
        self.set_properties(path, {"RemoteIP": ip, "RemoteDBusAddress": address})

    def on_SetLocal(self, path):
        """The unit's own hardware is meant again."""
        self.set_properties(path, {"RemoteIP": "", "RemoteDBusAddress": ""})

    def on_GetVideoStatus(self, path):
        """Status of the camera's video."""
        return self.get_property(path, "VideoStatus")

    def on_SetLedState(self, _path, number, value):
        """Notes what an LED shows."""
        self.leds[number] = value

    def on_BeepBuzzer(self, _path, duration, period, beeps):
        """Notes a beep."""
        self.beeps.append((duration, period, beeps))
        return True

    def on_SetPowerState(self, _path, output, state):
        """Switches one of the five outputs."""
        if not 0 <= output < len(self.power_states):
            return False
        self.power_states[output] = bool(state)
        return True

    def on_GetPowerStates(self, _path):
        """The five outputs."""
        return tuple(self.power_states)

    def on_GetBatteryUpdateState(self, _path):
        """State of the battery firmware update."""
        return _RIGHT_BATTERY[0]

    def on_GetBatteryUpdateDirection(self, _path):
        """Direction of the battery firmware update."""
        return _RIGHT_BATTERY[1]

    def on_GetPowerSufficientForAction(self, _path, _action):
        """Whether the power suffices for what is intended."""
        return self.power_sufficient

    def on_GetBatteryInfo(self, _path):
        """Both batteries, the right one first."""
        return (self.battery_info_valid,) + _RIGHT_BATTERY + _LEFT_BATTERY

    def on_RequestBatteryData(self, _path):
        """The batteries are asked; their data are always fresh here."""
        return True

    def on_overlay(self, _path, display):
        """Notes the display that the reel was told to show."""
        self.overlays.append(display)
