"""The panel as a page knows it: a client that keeps what it is told, and the table of the page's controls."""

import asyncio
import contextlib
import html.parser
import json
import os
import re
import struct
import threading
from dataclasses import dataclass

import aiohttp

from virtual_unit import PATIENCE, VirtualUnit
from virtual_unit.registry import announce
from virtual_unit.web.child import beside

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
#: The folder of the page's files.
PAGE = os.path.join(_ROOT, "virtual_unit", "web", "page")

#: What a new daemon sets the devices to, which are not renewed.
_DEVICES = (("MicEnabled", "b", True), ("SpkrEnabled", "b", False), ("SpkrVolume", "i", 50),
            ("KeypadBeepEnabled", "b", False))


class Panel:
    """A unit with its panel, which all tests share, and one event loop for their clients."""

    def __init__(self, unit, address):
        self.unit, self.address = unit, address
        self.host, self.token = address.split("/")[2:4]
        self.loop = asyncio.new_event_loop()
        threading.Thread(target=self.loop.run_forever, daemon=True).start()

    def close(self):
        """Ends the loop."""
        self.loop.call_soon_threadsafe(self.loop.stop)

    def renew(self):
        """Makes the unit as new, devices included."""
        unit = self.unit
        unit.renew()
        if not unit.keypad.plugged:
            unit.keypad.plug()
        unit.gps.stop()
        for name, kind, value in _DEVICES:
            if unit.client.get(name) != value:
                unit.client.set(name, kind, value)

    def run(self, work):
        """Runs a coroutine to its end."""
        return asyncio.run_coroutine_threadsafe(asyncio.wait_for(work, 2 * PATIENCE), self.loop).result()

    def get(self, path="", **headers):
        """Status, headers and body of the answer to a request."""
        async def ask():
            async with aiohttp.ClientSession() as session:
                address = path if path.startswith("http") else self.address + path
                async with session.get(address, headers=headers) as answer:
                    return answer.status, answer.headers, await answer.read()
        return self.run(ask())


class Page:
    """What a browser's page does: keeps the state and the lines that it is told, and gives orders."""

    def __init__(self, panel, acknowledges=True):
        self.panel = panel
        self.state, self.lines, self.answers, self.pictures = {}, [], {}, []
        self.hello = None
        self._acknowledges = acknowledges
        self._numbers = iter(range(10_000, 10 ** 9))
        self._changed = None
        self._session = self.link = self._reader = None
        self.closed_with = None

    def __enter__(self):
        self.panel.run(self._open())
        self.wait(lambda: self.hello)
        return self

    def __exit__(self, *_):
        self.panel.run(self._close())

    async def _open(self):
        self._changed = asyncio.Condition()
        self._session = aiohttp.ClientSession()
        origin = f"http://{self.panel.host}"
        try:
            self.link = await self._session.ws_connect(self.panel.address + "socket", headers={"Origin": origin},
                                                       max_msg_size=0)
        except aiohttp.WSServerHandshakeError:
            await self._session.close()
            raise
        self._reader = asyncio.ensure_future(self._read())

    async def _close(self):
        await self.link.close()
        await self._reader
        await self._session.close()

    async def _read(self):
        async for message in self.link:
            async with self._changed:
                if message.type == aiohttp.WSMsgType.BINARY:
                    self.pictures.append(message.data)
                    if self._acknowledges:
                        await self.link.send_json({"shown": struct.unpack_from(">I", message.data)[0]})
                else:
                    self._take(json.loads(message.data))
                self._changed.notify_all()
        async with self._changed:
            self.closed_with = self.link.close_code
            self._changed.notify_all()

    def _take(self, message):
        self.hello = message.get("hello", self.hello)
        for noun, values in message.get("state", {}).items():
            self.state.setdefault(noun, {}).update(values)
        self.lines += message.get("lines", [])
        for answer in message.get("answers", []):
            self.answers[answer["answer"]] = answer

    def wait(self, condition):
        """Waits until the condition holds; returns what it returned."""
        async def wait():
            async with self._changed:
                await self._changed.wait_for(condition)
                return condition()
        return self.panel.run(wait())

    def send(self, message):
        """Sends a message, as JSON unless it is a text or bytes."""
        send = self.link.send_bytes if isinstance(message, bytes) else self.link.send_str
        self.panel.run(send(message if isinstance(message, (str, bytes)) else json.dumps(message)))

    def answer(self, number):
        """What an order was answered: whether it was carried out, and the text."""
        answer = self.wait(lambda: self.answers.get(number))
        return answer["ok"], answer["text"]

    def give(self, *words):
        """Gives an order and waits for its answer."""
        number = next(self._numbers)
        self.send({"id": number, "order": list(words)})
        return self.answer(number)

    def at(self, path):
        """The value at a path of the state."""
        value = self.state
        for part in path.split("."):
            value = value[int(part)] if isinstance(value, list) else (value or {}).get(part)
        return value


@contextlib.contextmanager
def running_panel():
    """The panel of a unit that nobody else has."""
    with VirtualUnit() as unit, announce(unit), beside(unit) as address:
        unit.remember()
        panel = Panel(unit, address)
        yield panel
        panel.close()


# The table of controls ------------------------------------------------------------------------------------------------


#: What stands in the table for all keys.
KEY = "do key press {key}"


class Controls(html.parser.HTMLParser):
    """Collects what the page's attributes order and show."""

    def __init__(self):
        super().__init__()
        self.orders, self.shown = [], []
        with open(os.path.join(PAGE, "index.html"), encoding="utf-8") as file:
            self.feed(file.read())

    def handle_starttag(self, tag, attrs):
        named = dict(attrs)
        self.orders += [named[key] for key in ("data-order", "data-on", "data-off") if key in named]
        self.orders += [KEY] if "data-key" in named else []
        self.shown += [named[key] for key in ("data-value", "data-text", "data-show", "data-lit") if key in named]


START = ("call", "VideoRecordStart", "1920", "1080", "90")


def film(page):
    page.give(*START)
    path = page.wait(lambda: page.at("recording.Recordings.video.File"))
    assert page.give("call", "VideoRecordStop") == (True, "VideoRecordStop: Ran successfully")
    return path


def _recording(_page, kind="Video"):
    return [("call", f"{kind}RecordStart", "1920", "1080", "90")]


def _playing(page):
    return [("call", "VideoPlaybackStart", film(page), "1.0")]


@dataclass(frozen=True)
class Control:
    """An order of the page as its attributes have it, and the texts for the places in it; what is ordered before; and
    the place in the page's state, with the value that it has behind the order and not before, or with a condition on
    it.  Without a place the answer is all that there is to see."""
    order: str
    filling: tuple
    before: object
    place: str
    expected: object

    def prepare(self, page):
        """Gives the orders before."""
        for words in self.before(page) if callable(self.before) else self.before:
            good, told = page.give(*words)
            assert good, told
        page.wait(lambda: self.place is None or not self.holds(page))

    def texts(self, page):
        """The texts for the places."""
        return [str(page.at("fault.Faults.0.0")) if text == "FAULT" else text for text in self.filling]

    def words(self, page):
        """The whole order."""
        texts = iter(self.texts(page))
        return [re.sub(r"{[\w.]*}", lambda _: next(texts), word) for word in self.order.split(" ")]

    def holds(self, page):
        """Whether the page has been told of the change."""
        value = page.at(self.place or "unit.Name")
        return self.expected(value) if callable(self.expected) else value == self.expected


ORDERS = [Control(*row) for row in (
    ("keep", (), [], None, bool),
    ("back", (), [("keep",), ("do", "reel", "zero")], "reel.Relative", 234),
    ("set MicEnabled {}", ("off",), [], "front.Microphone", False),
    ("set SpkrEnabled {}", ("on",), [], "front.Speaker", True),
    ("set SpkrVolume {}", ("80",), [], "front.Volume", 80),
    ("set KeypadBeepEnabled {}", ("on",), [], "controller.KeypadBeepEnabled", True),
    ("set Sonde {}", ("on",), [], "camera.Sonde", True),
    ("call PlayAudio {sound}", ("warning.wav",), [], "front.Played.count", lambda count: count > 0),
    ("do key plug", (), [("do", "key", "unplug")], "key.Plugged", True),
    ("do key unplug", (), [], "key.Plugged", False),
    ("do key type {key}", ("Enter",), [("set", "KeypadBeepEnabled", "on")], "front.Beeps.count", lambda n: n > 0),
    (KEY, ("Up",), [], "key.Down", ["UP"]),
    ("call Snapshot 1280 720 80", (), [], "job.Media", lambda media: media and media[0]["Type"] == "snapshot"),
    ("call Screenshot ", (), [], None, bool),
    ("call {member}RecordStart 1920 1080 90", ("AutoLog",), [], "recording.Recordings.autolog.State", "recording"),
    ("call {member}RecordPause", ("Video",), _recording, "recording.Recordings.video.State", "paused"),
    ("call {member}RecordResume", ("Video",), lambda page: [*_recording(page), ("call", "VideoRecordPause")],
     "recording.Recordings.video.State", "recording"),
    ("call {member}RecordStop", ("PhotoTalk",), lambda page: _recording(page, "PhotoTalk"),
     "recording.Recordings.photoTalk.State", "off"),
    ("do recording grow 1000000 --kind {kind}", ("video",), _recording, "recording.Recordings.video.Size",
     lambda size: size >= 1000000),
    ("do recording limit --kind {kind}", ("video",), _recording, "recording.Recordings.video.State", "off"),
    ("do recording end --kind {kind}", ("video",), _recording, "recording.Recordings.video.State", "off"),
    ("call VideoPlaybackSeek {}", ("3000",), _playing, "playback.Position", 3000),
    ("call VideoPlaybackPause", (), _playing, "playback.State", "paused"),
    ("call VideoPlaybackResume", (), lambda page: [*_playing(page), ("call", "VideoPlaybackPause")], "playback.State",
     "playing"),
    ("call VideoPlaybackStop true", (), _playing, "playback.State", "stopped"),
    ("set VideoPlaybackRate {}", ("2",), _playing, "playback.Rate", 2.0),
    ("do playback break", (), _playing, "playback.State", lambda state: state != "playing"),
    ("do job open {device} {job}", ("internal", "job7"), [], "job.Current", ["internal", "job7"]),
    ("do job close", (), [], "job.Current", ["", ""]),
    ("do storage add {device}", ("card",), [("do", "storage", "remove", "card")], "storage.Devices.card.IsMounted",
     True),
    ("do storage remove {device}", ("card",), [], "storage.Devices.card", None),
    ("do storage mount {device}", ("card",), [("do", "storage", "unmount", "card")], "storage.Devices.card.IsMounted",
     True),
    ("do storage unmount {device}", ("card",), [], "storage.Devices.card.IsMounted", False),
    ("do storage low {device} {}", ("card", "on"), [], "storage.Devices.card.StorageIsBelowMinimumLevel", True),
    ("do storage read-only {device} {}", ("card", "on"), [], "storage.Devices.card.ReadOnly", True),
    ("do storage fill {device} {}", ("card", "on"), [], "storage.Devices.card.Full", True),
    ("do reel connect {}", ("off",), [], "reel.Connected", False),
    ("do reel distance {}", ("12.35",), [], "reel.Distance", 12.35),
    ("do reel mode {}", ("absolute",), [], "reel.Mode", "absolute"),
    ("do reel zero", (), [], "reel.Relative", 0),
    ("do camera connect {}", ("off",), [], "camera.Connected", False),
    ("do camera roll {}", ("-45",), [], "camera.Roll", -45),
    ("do camera pitch {}", ("30",), [], "camera.Pitch", 30),
    ("do camera sonde on", (), [], "camera.Sonde", True),
    ("do power low on", (), [], "power.Sufficient", False),
    ("do power low off", (), [("do", "power", "low", "on")], "power.Sufficient", True),
    ("do power charge {} {power.Charge.1}", ("7", "80"), [], "power.Charge", [7, 80]),
    ("do power charge {power.Charge.0} {}", ("85", "9"), [], "power.Charge", [85, 9]),
    ("do power source {}", ("2",), [], "power.Source", 2),
    ("do cooling temperature {}", ("-5",), [], "cooling.Temperature", -5),
    ("do cooling fan {}", ("100",), [], "cooling.FanSpeed", 100),
    ("do clock set {time}", ("2026-07-14 09:30:00",), [], "clock.Offset", lambda offset: offset != 0),
    ("do clock advance 3600", (), [], "clock.Offset", lambda offset: 3_599_000_000 < offset < 3_700_000_000),
    ("do clock advance -3600", (), [], "clock.Offset", lambda offset: -3_700_000_000 < offset < -3_500_000_000),
    ("do clock follow", (), [("do", "clock", "advance", "60")], "clock.Offset", 0),
    ("do clock zone {}", ("DST/Paris",), [], "clock.Zone", "CCU/DST/Paris"),
    ("do clock ntp {}", ("on",), [], "clock.Ntp", True),
    ("do gps fix {latitude} {longitude}", ("52.5", "13.4"), [], "gps.Latitude", 52.5),
    ("do gps lose", (), [("do", "gps", "fix", "1", "2")], "gps.Fix", "none"),
    ("do gps stop", (), [("do", "gps", "fix", "1", "2")], "gps.Running", False),
    ("call SetTimeGPS", (), [("do", "gps", "fix", "1", "2", "--time", "2026-07-14 09:30:00")], "clock.Offset",
     lambda offset: offset != 0),
    ("do settings set {section} {key} {value}", ("audio", "speakerVolume", "30"), [],
     "settings.Sections.audio.speakerVolume", 30),
    ("do sync active {}", ("on",), [], "sync.Active", True),
    ("do sync finish", (), [("do", "sync", "active", "on")], "sync.Active", False),
    ("do fault add {sibling} {member} {kind} --times {times} --value {value}",
     ("video", "StartRecording", "code", "1", "-2"), [], "fault.Faults",
     lambda faults: faults and faults[0][1:5] == ["video", "StartRecording", "code", 1]),
    ("do fault remove {id}", ("FAULT",), [("do", "fault", "video", "any", "refuse")], "fault.Faults", []),
    ("do fault clear", (), [("do", "fault", "video", "any", "refuse")], "fault.Faults", []),
    ("do daemon start", (), [("do", "daemon", "stop")], "daemon.Running", True),
    ("do daemon stop", (), [], "daemon.Running", False),
    ("do daemon restart", (), [("do", "daemon", "stop")], "daemon.Running", True),
    ("do daemon kill", (), [], "daemon.Running", False),
    ("do sibling die {name}", ("sync",), [], "sibling.States.sync", "dead"),
    ("do sibling hang {name}", ("sync",), [], "sibling.States.sync", "hanging"),
    ("do sibling return {name}", ("sync",), [("do", "sibling", "die", "sync")], "sibling.States.sync", "alive"),
    ("run {name}", ("low-power",), [], "scenario", lambda played: (played["Name"], played["State"]) ==
     ("low-power", "passed")),
    ("stop", (), [("run", "day")], "scenario.State", "stopped"),
)]
