"""GPIO lines, mixer, sound, keypads and display."""

import io
import math
import os
import random
import re
import struct

from PIL import Image as Picture

from tests.integration.screenshot_model import screen

from .case import collector

CASES = []
case = collector(CASES)

MIC, SPEAKER = 14, 13
#: Where the device tree puts the layers, and their bytes a pixel.
_LAYERS = ((0x7E100000, 3), (0x7E800000, 4))
_SIZE = (1280, 720)
_TONE = 440


def _lines(unit):
    """What the kernel says of the chip's lines: {offset: (owner, direction, level)}."""
    text = unit.sh("cat /sys/kernel/debug/gpio")
    chip = re.search(r"^gpiochip4: GPIOs (\d+)-.*\n((?: .*\n?)*)", text, re.MULTILINE)
    return {int(number) - int(chip.group(1)): (owner.strip(), direction, level) for number, owner, direction, level in
            re.findall(r"gpio-(\d+) +\([^|]*\|([^)]*)\) +(in|out) +(hi|lo)", chip.group(2))}


@case()
def _(unit):
    """GPIO lines"""
    unit.wait_service()
    for on, level in (("true", "hi"), ("false", "lo"), ("true", "hi")):
        unit.set("MicEnabled", "b", on)
        unit.set("SpkrEnabled", "b", on)
        lines = _lines(unit)
        assert {number: line[1:] for number, line in lines.items()} == {MIC: ("out", level), SPEAKER: ("out", level)}
    unit.see(f"gpiochip4 lines {MIC} and {SPEAKER} of {lines[MIC][0]} follow the switches")


def _volume(unit, control):
    return int(re.search(r"Front Left:.*\[(\d+)%\]", unit.sh(f"amixer get '{control}'")).group(1))


@case()
def _(unit):
    """mixer"""
    unit.wait_service()
    for percent in (20, 75, 100):
        unit.set("SpkrVolume", "i", percent)
        assert abs(_volume(unit, "HP DAC") - percent) <= 1
        assert abs(unit.get("SpkrVolume") - percent) <= 1
    assert _volume(unit, "PCM") == 100
    unit.see("HP DAC at 20, 75 and 100 percent by amixer, PCM at 100")


@case()
def _(unit):
    """a sound is heard"""
    unit.wait_service()
    unit.sh("systemd-run -q -u recorder arecord -q -D plughw:Loopback,1,0 -f S16_LE -c 1 -r 48000 -d 8 /run/heard.wav")
    unit.wait("[ -s /run/heard.wav ]")
    unit.call("PlayAudio", "s", "beep.wav")
    unit.wait("! systemctl -q is-active recorder")
    sound = unit.bytes_of("/run/heard.wav")[44:]
    samples = struct.unpack(f"<{len(sound) // 2}h", sound[:len(sound) // 2 * 2])
    loud = [number for number, level in enumerate(samples) if abs(level) > 1000]
    assert loud, "silence"
    heard = samples[loud[0]:loud[-1]]
    # Where the emulated recorder loses a piece, it loses crossings and time alike.
    tone = sum(before < 0 <= after for before, after in zip(heard, heard[1:])) / (len(heard) / 48000)
    peak = max(map(abs, heard))
    assert math.isclose(tone, _TONE, rel_tol=0.1) and peak > 3000, f"{tone:.0f} Hz, {peak}"
    unit.see(f"{len(heard) / 48000:.1f} s of {tone:.0f} Hz with a peak of {peak} on the loopback")


def _input_devices(unit):
    """The input devices that the daemon has open."""
    return set(unit.sh(f"ls -l /proc/{unit.pid}/fd | sed -n 's,.*-> \\(/dev/input/event[0-9]*\\)$,\\1,p'").split())


def _beeps(unit):
    return len(unit.calls("hardware", "BeepBuzzer"))


def _press_until_beep(unit, before):
    unit.machine.key(28)
    return unit.wait_for(lambda: _beeps(unit) - before, "a beep")


@case()
def _(unit):
    """key press to beep, on a keyboard that comes later too"""
    unit.wait_service()
    unit.set("KeypadBeepEnabled", "b", "true")
    keypads = unit.wait_for(lambda: _input_devices(unit), "a keypad that is open")
    beeps = _press_until_beep(unit, _beeps(unit))
    unit.see(f"Enter on {' '.join(sorted(keypads))} beeps {'once' if beeps == 1 else f'{beeps} times'}")
    unit.machine.plug_keyboard()
    new = unit.wait_for(lambda: _input_devices(unit) - keypads, "a keyboard that came later")
    before = _beeps(unit)
    _press_until_beep(unit, before)
    unit.see(f"a USB keyboard comes as {' '.join(sorted(new))}, and beeps")
    unit.machine.unplug_keyboard()
    unit.wait_for(lambda: not _input_devices(unit) & new, "that it is let go of")
    unit.see("and is let go of when it is pulled out")


@case()
def _(unit):
    """screenshot against both framebuffers"""
    unit.wait_service()
    assert unit.sh("cat /sys/class/graphics/fb[01]/bits_per_pixel").split() == ["24", "32"]
    generator = random.Random(1)
    tiles = [generator.randbytes(_SIZE[0] * each * 8) for _, each in _LAYERS]
    for number, tile in enumerate(tiles):
        unit.sh(f"cat >/run/tile; for i in $(seq {_SIZE[1] // 8}); do cat /run/tile; done >/dev/fb{number}", stdin=tile)
    path, code, message = unit.call("Screenshot", "s", "/tmp")
    assert (code, message) == (0, "Ran successfully")
    layers = [unit.machine.memory(address, _SIZE[0] * _SIZE[1] * each) for address, each in _LAYERS]
    assert all(layer == tile * (_SIZE[1] // 8) for layer, tile in zip(layers, tiles))
    with Picture.open(io.BytesIO(unit.bytes_of(path))) as picture:
        assert picture.size == _SIZE
        shown = picture.convert("RGB").tobytes()
    assert shown == b"".join(bytes(pixel) for row in screen(*_SIZE, *layers) for pixel in row)
    unit.see(f"{os.path.basename(path)}: all {_SIZE[0] * _SIZE[1]} pixels are those of the board's memory")
