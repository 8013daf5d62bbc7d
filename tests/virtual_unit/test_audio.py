"""The mixer and the player that stand for ALSA's tools."""

import os
import subprocess
import wave

import pytest

from virtual_unit.patience import PATIENCE
from virtual_unit.audio import AMPLIFIER, MASTER, SPEAKER, Audio

_LIBRARIES = ("places", "process_probe")


@pytest.fixture
def audio(tmp_path):
    """A unit's sound."""
    sound = Audio(str(tmp_path))
    yield sound
    sound.close()


@pytest.fixture
def shell(audio):
    """Runs a command of a shell that has the unit's PATH."""
    def run(command):
        return subprocess.run(command, shell=True, env={**os.environ, **audio.environment}, text=True,
                              capture_output=True, check=False)
    return run


def test_the_mixer_prints_a_control(shell):
    """A control is printed in the mixer's own layout."""
    done = shell("amixer get 'HP DAC'")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == """\
Simple mixer control 'HP DAC',0
  Capabilities: pvolume pswitch
  Playback channels: Front Left - Front Right
  Limits: Playback 0 - 127
  Mono:
  Front Left: Playback 100 [79%] [-13.50dB] [on]
  Front Right: Playback 100 [79%] [-13.50dB] [on]
"""


def test_a_control_without_switch(shell):
    """A control that has only a volume shows no more."""
    assert "Capabilities: pvolume\n" in shell("amixer get PCM").stdout
    assert "  Front Left: Playback 64 [50%] [-31.50dB]\n" in shell("amixer get PCM").stdout


def test_a_capture_control(shell):
    """The amplifier is one of the other direction, in steps from 0 dB up."""
    assert "  Front Left: Capture 3 [3%] [1.50dB] [on]\n" in shell("amixer set PGA 3").stdout


@pytest.mark.parametrize("value, raw, percent", [
    ("0%", 0, 0), ("1%", 2, 2), ("50%", 64, 50), ("75%", 96, 76), ("79%", 101, 80), ("100%", 127, 100),
    ("150%", 127, 100), ("2147483647%", 127, 100), ("0", 0, 0), ("90", 90, 71), ("1000", 127, 100),
])
def test_values_are_rounded_up_and_held_within_the_limits(shell, audio, value, raw, percent):
    """What is set is what the mixer makes of it, printed and kept."""
    printed = shell(f"amixer set 'HP DAC' {value}").stdout
    assert f"  Front Left: Playback {raw} [{percent}%] [" in printed
    control = audio.control(SPEAKER)
    assert (control.left, control.right, control.percent, audio.volume) == (raw, raw, percent, percent)
    assert shell("amixer get 'HP DAC'").stdout == printed


def test_channels_and_switch(shell, audio):
    """Channels have values of their own, and the switch is another matter."""
    shell("amixer set 'HP DAC' 10,20 mute")
    assert (audio.control(SPEAKER).left, audio.control(SPEAKER).right, audio.control(SPEAKER).switch) == (10, 20, "off")
    assert "Front Left: Playback 10 [8%] [-58.50dB] [off]" in shell("amixer get 'HP DAC'").stdout
    shell("amixer set PCM mute")
    assert audio.control(MASTER).switch == "none"


@pytest.mark.parametrize("command, message", [
    ("get Nothing", "Unable to find simple control 'Nothing',0"), ("set Nothing 3", "Unable to find simple control"),
    ("set 'HP DAC' -5%", "invalid option -- '5%'"), ("set 'HP DAC' loud", "Invalid command!"),
    ("set 'HP DAC' %", "Invalid command!"), ("set PCM", "Specify what you want to set"), ("get", "Specify what you"),
    ("play", "Unknown command 'play'"),
])
def test_commands_that_the_mixer_refuses(shell, audio, command, message):
    """A command in vain says why and changes nothing."""
    done = shell(f"amixer {command}")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith("amixer: ") and message in done.stderr
    assert [audio.control(name).left for name in (SPEAKER, MASTER, AMPLIFIER)] == [100, 64, 0]


def test_commands_are_kept_as_they_came(shell, audio):
    """Every argument is kept as it is, blanks, line ends, nothing at all and other alphabets too."""
    shell("amixer get 'HP DAC'")
    shell("aplay '/x/a b.wav' '' 'new\nline' 'ü$(id)'")
    assert audio.commands == [["amixer", "get", "HP DAC"], ["aplay", "/x/a b.wav", "", "new\nline", "ü$(id)"]]


def test_somebody_else_sets_a_control(shell, audio):
    """The mixer sees what it has not done itself."""
    audio.set_control(SPEAKER, 127)
    assert "Front Left: Playback 127 [100%] [0.00dB]" in shell("amixer get 'HP DAC'").stdout
    audio.remove_control(SPEAKER)
    assert shell("amixer get 'HP DAC'").returncode == 1
    assert audio.volume is None


def test_another_layout(shell, audio):
    """The mixer says what it was told to say, to the last character, and does nothing."""
    audio.say("  Front Left: 5\\n%s -e\n no end")
    assert shell("amixer set PCM 1").stdout == "  Front Left: 5\\n%s -e\n no end\n"
    audio.say("")
    assert (shell("amixer get PCM").stdout, shell("amixer get PCM").returncode) == ("", 0)
    audio.mend()
    assert "Playback 64" in shell("amixer get PCM").stdout


@pytest.mark.parametrize("tool", ["amixer", "aplay"])
def test_failing_and_missing_tools(shell, audio, tool):
    """A tool fails with the status that was chosen, or is gone for the shell."""
    audio.fail(tool, 7)
    assert shell(f"{tool} get PCM").returncode == 7
    audio.remove(tool)
    done = shell(f"{tool} get PCM")
    assert (done.returncode, done.stderr) == (127, f"sh: 1: {tool}: not found\n")
    assert len(audio.commands) == 2


def test_a_slow_mixer(audio):
    """The mixer has the command, does nothing yet, and goes on when it may."""
    audio.hold("amixer")
    with subprocess.Popen(["amixer", "set", "PCM", "100%"], env={**os.environ, **audio.environment},
                          stdout=subprocess.DEVNULL) as process:
        assert audio.wait_commands("amixer") == [["amixer", "set", "PCM", "100%"]]
        assert process.poll() is None and audio.control(MASTER).left == 64
        audio.release("amixer")
        assert process.wait(PATIENCE) == 0
    assert audio.control(MASTER).left == 127


def test_sounds_play_until_they_may_end(audio):
    """Two sounds play side by side and are noted from begin to end."""
    audio.hold("aplay")
    paths = [f"/usr/share/sounds/{name}" for name in ("beep.wav", "shutter.wav")]
    players = []
    for count, path in enumerate(paths, 1):
        players.append(subprocess.Popen(["aplay", path], env={**os.environ, **audio.environment}))
        audio.wait_played(count, ended=False)
    assert audio.playing == paths
    audio.release("aplay")
    assert [player.wait(PATIENCE) for player in players] == [0, 0]
    assert [(one.path, one.ended) for one in audio.played] == [(path, True) for path in paths]
    assert audio.playing == []


def test_sounds_that_are_not_there(shell, audio):
    """A file that is not there is not played; what follows it is."""
    done = shell("aplay /usr/share/sounds/none.wav /usr/share/sounds/beep.wav")
    assert (done.returncode, done.stderr) == (1, "/usr/share/sounds/none.wav: No such file or directory\n")
    assert [one.path for one in audio.wait_played()] == ["/usr/share/sounds/beep.wav"]
    audio.remove_sound("beep.wav")
    assert shell("aplay /usr/share/sounds/beep.wav").returncode == 1


def test_sound_files_are_real(audio):
    """Any player could play them."""
    audio.add_sound("it's $HOME.wav", seconds=0.5)
    with wave.open(os.path.join(audio.sounds_folder, "it's $HOME.wav")) as file:
        assert (file.getnframes(), file.getframerate(), file.getsampwidth()) == (4000, 8000, 2)


def test_waiting_has_an_end(audio):
    """What does not happen is told."""
    with pytest.raises(TimeoutError, match="did not happen"):
        audio.wait_played(timeout=0.01)


_SPAWNS = """
import ctypes, errno, os, sys
libc = ctypes.CDLL(None, use_errno=True)
libc.popen.restype = ctypes.c_void_p
pid, nothing = ctypes.c_int(), (ctypes.c_char_p * 1)()
arguments = (ctypes.c_char_p * 2)(b"true")
print(libc.popen(b"true", b"r") is not None,
      [getattr(libc, name)(ctypes.byref(pid), b"/bin/true", None, None, arguments, nothing) == errno.EAGAIN
       for name in ("posix_spawn", "posix_spawnp")], sep=";")
try:
    os.fork() or os._exit(0)
    print("forked")
except BlockingIOError:
    print("no fork")
"""


def test_no_process_at_all(audio, build_dir):
    """On a machine that is full nothing can be started, and soon everything again."""
    libraries = [os.path.join(build_dir, "virtual_unit", "preload", f"lib{name}.so") for name in _LIBRARIES]
    environment = {**os.environ, **audio.environment, "LD_PRELOAD": " ".join(libraries)}

    def spawns():
        return subprocess.run(["/usr/bin/python3", "-c", _SPAWNS], env=environment, text=True, capture_output=True,
                              check=True).stdout.split("\n")[:2]

    assert spawns() == ["True;[False, False]", "forked"]
    audio.refuse_processes()
    assert spawns() == ["False;[True, True]", "no fork"]


def test_the_sounds_are_the_units(audio, build_dir):
    """A program of the unit lists the unit's sounds where its own would be."""
    library = os.path.join(build_dir, "virtual_unit", "preload", "libplaces.so")
    lister = "import os; print(os.path.exists('/usr/share/sounds/beep.wav'))"
    done = subprocess.run(["/usr/bin/python3", "-c", lister], text=True, capture_output=True, check=True,
                          env={**os.environ, **audio.environment, "LD_PRELOAD": library})
    assert done.stdout == "True\n"
