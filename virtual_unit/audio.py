"""The sound of the unit: a mixer and a player that stand for ALSA's tools on the daemon's PATH, and the sound files.

The tools, `tools/amixer` and `tools/aplay`, keep what they do in files of the unit's folder, which this module reads.
"""

import math
import os
import struct
import time
import wave
from dataclasses import dataclass

from .patience import PATIENCE

_TOOLS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "tools")
_TOOL_NAMES = ("amixer", "aplay")
_POLL_SECONDS = 0.005
_RATE = 8000

#: Status with which a shell ends when there is no such program.
_NOT_FOUND = 127

SPEAKER, MASTER, AMPLIFIER = "HP DAC", "PCM", "PGA"
#: Sound files that are there from the start, with their pitch.
SOUNDS = {"beep.wav": 880, "shutter.wav": 440, "warning.wav": 660}


@dataclass(frozen=True)
class Control:
    """A control of the mixer, in raw values of half a decibel; `zero` is the one of 0 dB."""
    kind: str
    minimum: int
    maximum: int
    zero: int
    left: int
    right: int
    switch: str

    @property
    def percent(self):
        """The left channel in the percentage that amixer prints."""
        return round(100 * (self.left - self.minimum) / (self.maximum - self.minimum))

    @property
    def decibel(self):
        """The left channel in decibel."""
        return (self.left - self.zero) / 2


_CONTROLS = {SPEAKER: Control("Playback", 0, 127, 127, 100, 100, "on"),
             MASTER: Control("Playback", 0, 127, 127, 64, 64, "none"),
             AMPLIFIER: Control("Capture", 0, 119, 0, 0, 0, "on")}


@dataclass(frozen=True)
class Played:
    """One playing of a file, whose path is as the player was given it; `ended` is False while it plays."""
    path: str
    pid: int
    ended: bool


class Audio:
    """The tools are named "amixer" and "aplay"; both work, and sounds end at once, until told otherwise."""

    def __init__(self, directory):
        self.directory = os.path.join(directory, "audio")
        #: The folder of the tools, for the daemon's PATH.
        self.path = os.path.join(self.directory, "bin")
        #: The folder that is /usr/share/sounds to the daemon.
        self.sounds_folder = os.path.join(directory, "sounds")
        os.makedirs(os.path.join(self.directory, "mixer"))
        os.mkdir(self.path)
        os.mkdir(self.sounds_folder)
        self._gates = {}
        for tool in _TOOL_NAMES:
            os.symlink(os.path.join(_TOOLS, tool), os.path.join(self.path, tool))
            os.mkfifo(self._gate(tool), 0o600)
            self.release(tool)
        for name, control in _CONTROLS.items():
            self._write_control(name, control)
        for name, pitch in SOUNDS.items():
            self.add_sound(name, pitch=pitch)

    @property
    def environment(self):
        """What the tools and the preloaded library have to know."""
        return {"CCU_AUDIO": self.directory, "CCU_SOUNDS": self.sounds_folder,
                "CCU_NO_PROCESSES": self._file("no-processes"),
                "PATH": f"{self.path}:{os.environ.get('PATH', '/usr/bin:/bin')}"}

    @property
    def folders(self):
        """The folders whose files tell what the tools do."""
        return [self.directory, os.path.join(self.directory, "mixer")]

    def _file(self, name):
        return os.path.join(self.directory, name)

    def _gate(self, tool):
        return self._file(f"{tool}.gate")

    def close(self):
        """Ends what this process holds of the tools; what waits goes on before."""
        for tool in _TOOL_NAMES:
            self.release(tool)
            self.hold(tool)

    # The mixer --------------------------------------------------------------------------------------------------------

    def control(self, name):
        """What a control of the mixer is set to."""
        with open(os.path.join(self.directory, "mixer", name), encoding="ascii") as file:
            kind, *numbers, switch = file.read().split()
        return Control(kind, *map(int, numbers), switch)

    def set_control(self, name, left, right=None):
        """Somebody else sets a control, in raw values."""
        control = self.control(name)
        right = left if right is None else right
        self._write_control(name, Control(control.kind, control.minimum, control.maximum, control.zero, left, right,
                                          control.switch))

    def _write_control(self, name, control):
        text = (f"{control.kind:8} {control.minimum:5} {control.maximum:5} {control.zero:5} {control.left:5} "
                f"{control.right:5} {control.switch:4}\n")
        descriptor = os.open(os.path.join(self.directory, "mixer", name), os.O_WRONLY | os.O_CREAT, 0o600)
        os.write(descriptor, text.encode("ascii"))  # in place and always as long, as the mixer does it
        os.close(descriptor)

    def remove_control(self, name):
        """Takes a control away, as on a unit with another sound chip."""
        os.unlink(os.path.join(self.directory, "mixer", name))

    @property
    def volume(self):
        """The speaker's volume in percent, as amixer prints it; None without its control."""
        try:
            return self.control(SPEAKER).percent
        except FileNotFoundError:
            return None

    # What was asked ---------------------------------------------------------------------------------------------------

    def _fields(self, name):
        try:
            with open(self._file(name), "rb") as file:
                return file.read().decode("utf-8", "surrogateescape").split("\0")[:-1]
        except FileNotFoundError:
            return []

    @property
    def commands(self):
        """Every command of the tools so far, as the list of its arguments, the tool's name first."""
        fields = self._fields("commands")
        commands, position = [], 0
        while position < len(fields):
            count = int(fields[position])
            commands.append(fields[position + 1:position + 1 + count])
            position += 1 + count
        return commands

    @property
    def played(self):
        """What was played so far, in the order in which it began."""
        played = []
        fields = self._fields("played")
        for event, pid, path in zip(*[iter(fields)] * 3):
            if event == "start":
                played.append(Played(path, int(pid), False))
                continue
            last = max(i for i, one in enumerate(played) if one.pid == int(pid))
            played[last] = Played(path, int(pid), True)
        return played

    @property
    def playing(self):
        """Paths of what plays now."""
        return [one.path for one in self.played if not one.ended]

    def wait_for(self, condition, timeout=PATIENCE):
        """Waits until the condition, which is given this object, holds; returns what it returned."""
        deadline = time.monotonic() + timeout
        while not (result := condition(self)):
            if time.monotonic() > deadline:
                raise TimeoutError(f"did not happen within {timeout} s; commands {self.commands}, played {self.played}")
            time.sleep(_POLL_SECONDS)
        return result

    def wait_commands(self, tool, count=1, timeout=PATIENCE):
        """Waits for the tool's commands so far to be so many; returns them."""
        def enough(audio):
            commands = [command for command in audio.commands if command[0] == tool]
            return commands if len(commands) >= count else None
        return self.wait_for(enough, timeout)

    def wait_played(self, count=1, ended=True, timeout=PATIENCE):
        """Waits until so many files have been played, or at least begun to be; returns them."""
        def enough(audio):
            played = [one for one in audio.played if one.ended or not ended]
            return played if len(played) >= count else None
        return self.wait_for(enough, timeout)

    # Sound files ------------------------------------------------------------------------------------------------------

    def add_sound(self, name, seconds=0.05, pitch=440):
        """A sound file, a sine in 16 bit at 8 kHz."""
        samples = (int(8000 * math.sin(2 * math.pi * pitch * i / _RATE)) for i in range(int(seconds * _RATE)))
        with wave.open(os.path.join(self.sounds_folder, name), "wb") as file:
            file.setnchannels(1)
            file.setsampwidth(2)
            file.setframerate(_RATE)
            file.writeframes(b"".join(struct.pack("<h", sample) for sample in samples))

    def remove_sound(self, name):
        """Takes a sound file away."""
        os.unlink(os.path.join(self.sounds_folder, name))

    # Faults -----------------------------------------------------------------------------------------------------------

    def hold(self, tool):
        """From now on the tool waits: amixer before it does anything, aplay while a file plays."""
        gate = self._gates.pop(tool, None)
        if gate is not None:
            os.close(gate)

    def release(self, tool):
        """What waits goes on, and nothing waits any more.

        A pipe that nobody has open for writing makes its readers wait in open(2); so the gate is open while this
        process has it open, and shuts without a trace.
        """
        if tool not in self._gates:
            self._gates[tool] = os.open(self._gate(tool), os.O_RDWR | os.O_CLOEXEC)

    def fail(self, tool, status=1):
        """From now on the tool does nothing and ends with the status."""
        self._write(f"{tool}.status", f"{status}\n")

    def remove(self, tool):
        """Takes the tool away: what a shell says and answers when there is no such program."""
        self.fail(tool, _NOT_FOUND)

    def say(self, text):
        """From now on amixer prints the text instead of doing anything; fails too if `fail` says so."""
        self._write("amixer.output", text)

    def _write(self, name, text):
        with open(self._file(name), "w", encoding="utf-8") as file:
            file.write(text)

    def refuse_processes(self):
        """From now on the daemon can start no process at all."""
        self._write("no-processes", "")

    def mend(self):
        """Everything works again, and nothing waits."""
        for name in ("amixer.status", "aplay.status", "amixer.output", "no-processes"):
            if os.path.exists(self._file(name)):
                os.unlink(self._file(name))
        for tool in _TOOL_NAMES:
            self.release(tool)
