"""The panel's server, asked as a page asks it: who is let in, what orders do, and what is told of the unit."""

import asyncio
import base64
import contextlib
import io
import json
import os
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

import aiohttp
import pytest
from PIL import Image, ImageChops, ImageStat

from tests.integration.panel_pages import ORDERS, PAGE, START, Controls, Page, Panel, film, running_panel
from virtual_unit import PATIENCE, REFUSE, VirtualUnit
from virtual_unit.registry import announce, choose
from virtual_unit.verbs import nouns
from virtual_unit.web.outbox import MOST_LINES, Outbox
from virtual_unit.web.server import panel as serve

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
#: Of the display, which is made small: every page gets it whole.
_SIZE = (320, 180)


@pytest.fixture(name="shared", scope="module")
def shared_fixture():
    """One unit and one panel."""
    with running_panel() as shared:
        for layer in (0, 1):
            shared.unit.framebuffers.set(layer, *_SIZE)
        yield shared


@pytest.fixture(name="panel")
def panel_fixture(shared):
    """The panel of a unit that is as new."""
    yield shared
    shared.renew()


@pytest.fixture(name="open_page", scope="module")
def open_page_fixture(shared):
    """A page that stays open for all tests which look at what changes alone."""
    with Page(shared) as page:
        yield page


@pytest.fixture(name="page")
def page_fixture(panel):
    """An open page."""
    with Page(panel) as page:
        yield page


# Who is let in --------------------------------------------------------------------------------------------------------


def test_the_page_and_its_files_come_from_here_alone(panel):
    """With a policy that lets nothing else be loaded, and no file of the folder is missing."""
    named = {"", "style.css", "main.js", "icon.svg", *os.listdir(PAGE)}
    for name in named:
        status, headers, body = panel.get(name)
        assert status == 200 and body
        policy = headers["Content-Security-Policy"]
        assert policy.startswith("default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; ")
        assert "unsafe" not in policy and "frame-ancestors 'none'" in policy
        assert headers["X-Content-Type-Options"] == "nosniff" and headers["Referrer-Policy"] == "no-referrer"
        if name != "icon.svg":
            assert b"http" not in body.replace(b"http://www.w3.org/2000/svg", b"")
    assert panel.get("main.js")[1]["Content-Type"].startswith("text/javascript")
    assert panel.get("none.js")[0] == 404


def test_without_the_token_nothing_is_told(panel):
    """Neither by the page nor by anything below it."""
    base = f"http://{panel.host}"
    wrong = panel.token[:-1] + ("a" if panel.token[-1] != "a" else "b")
    for path in ("", "/", f"/{wrong}", f"/{wrong}/", f"/{wrong}/main.js", f"/{wrong}/socket", f"/{panel.token[:-1]}/",
                 f"/{panel.token}x/", "/%ff/", "/main.js", f"/x/{panel.token}/"):
        status, headers, body = panel.get(base + path)
        assert status in (403, 404) and b"<" not in body and panel.token.encode() not in body, path
        assert status == 403 or path.startswith("/x/")
        assert headers["Content-Security-Policy"].startswith("default-src 'none'")


@pytest.mark.parametrize("host", ["evil.example", "127.0.0.1", "127.0.0.1:1", "evil.example:{port}",
                                  "127.0.0.1.evil:{port}"])
def test_another_host_is_refused(panel, host):
    """A name of somebody else's that leads here."""
    status, _, body = panel.get(Host=host.format(port=panel.host.split(":")[1]))
    assert (status, body) == (403, b"This is not the panel's host.\n")


def test_localhost_is_no_other_host(panel):
    """It is what people type."""
    assert panel.get(Host="localhost:" + panel.host.split(":")[1])[0] == 200


@pytest.mark.parametrize("origin", ["http://evil.example", "null", "https://{host}", "http://localhost:{port}", None])
def test_another_origin_is_refused_a_socket(panel, origin):
    """So is none, since a browser always names one."""
    headers = {} if origin is None else {"Origin": origin.format(host=panel.host, port=panel.host.split(":")[1])}

    async def connect():
        async with aiohttp.ClientSession() as session:
            await session.ws_connect(panel.address + "socket", headers=headers)

    with pytest.raises(aiohttp.WSServerHandshakeError) as refused:
        panel.run(connect())
    assert refused.value.status == 403
    assert panel.get(**headers)[0] == (403 if headers else 200)


def test_a_page_gets_no_other_files(panel):
    """Nothing outside the page's own, the job's pictures and the sounds."""
    for path in ("..%2fserver.py", "%2e%2e/server.py", "sound/..%2f..%2fmain.py", "sound/..%2fup", "media/..%2f..%2fup",
                 "media/media1", "sound/none.wav"):
        assert panel.get(path)[0] in (403, 404), path
    assert panel.get("sound/beep.wav")[2].startswith(b"RIFF")


# The table of controls ------------------------------------------------------------------------------------------------


def test_the_table_has_every_control_of_the_page():
    """A control that no test knows cannot come in."""
    assert sorted(set(Controls().orders)) == sorted({row.order for row in ORDERS})


def test_what_the_page_shows_is_there(page):
    """Every place of the state that an attribute names, but for those of lists, which may be empty."""
    path = film(page)
    page.give("keep")
    assert page.give("run", "reel-lost")[0]
    page.wait(lambda: page.at("scenario.State") == "passed")
    filled = {"{kind}": "video", "{device}": "card", "{name}": "video"}
    for shown in Controls().shown:
        place = re.sub(r"{\w+}", lambda found: filled.get(found[0], found[0]), shown)
        place = re.split("!?=", place.lstrip("!"))[0]
        if place != "fault.Faults.0" and "{number}" not in place:
            assert page.at(place) is not None, shown
    assert page.at("job.Media.0.Path") == path


@pytest.mark.parametrize("row", ORDERS, ids=[row.order for row in ORDERS])
def test_every_control_changes_the_unit_and_shows_it(panel, open_page, row):
    """The change is told to the page by an event."""
    del panel
    row.prepare(open_page)
    good, told = open_page.give(*row.words(open_page))
    assert good, told
    open_page.wait(lambda: row.holds(open_page))


def test_the_unit_itself_is_what_was_changed(page):
    """Not only what is told of it."""
    page.give("do", "reel", "distance", "7.5")
    page.give("do", "storage", "remove", "card")
    page.give("set", "SpkrVolume", "80")
    unit = page.panel.unit
    assert (unit.hardware.reel["Relative"], unit.storage.devices(), unit.audio.volume) == (750, ["internal"], 80)
    assert unit.client.get("SpkrVolume") == 80


# What is told ---------------------------------------------------------------------------------------------------------


def test_a_page_is_greeted_with_the_whole_state(page):
    """And with what forms can be filled with."""
    assert set(nouns()) <= set(page.state)
    for noun in nouns().values():
        assert set(page.state[noun.name]) == {name for name, *_ in noun.properties}
    assert page.hello["unit"] == page.panel.unit.name
    assert "StartRecording" in page.hello["siblings"]["video"] and "refuse" in page.hello["faults"]
    assert "Enter" in page.hello["keys"] and "DST/Paris" in page.hello["zones"]
    assert len(page.hello["scenarios"]) == 10
    assert any(line["kind"] == "log" for line in page.lines) and any(line["kind"] == "call" for line in page.lines)


def test_what_happens_comes_by_events_whoever_does_it(page):
    """The unit's own objects, the daemon for other clients, its tools and its files."""
    unit = page.panel.unit
    page.wait(lambda: page.at("controller.AudioFiles"))
    unit.hardware.set_reel(relative=4711)
    page.wait(lambda: page.at("reel.Relative") == 4711)
    unit.client.call("VideoRecordStart", "uuu", 1920, 1080, 90)
    page.wait(lambda: page.at("recording.Recordings.video.State") == "recording")
    page.wait(lambda: page.at("times.video")[1])
    unit.client.call("VideoRecordStop")
    page.wait(lambda: not page.at("times.video")[1] and page.at("times.video")[0] > 0)
    unit.audio.set_control("HP DAC", 127)
    page.wait(lambda: page.at("front.Volume") == 100)
    unit.client.set("KeypadBeepEnabled", "b", True)
    page.wait(lambda: page.at("controller.KeypadBeepEnabled"))
    unit.gpio.mic.value = 0
    page.wait(lambda: page.at("front.Microphone") is False)
    unit.faults.on("video", "StartRecording", kind=REFUSE)
    page.wait(lambda: page.at("fault.Faults"))
    unit.client.call("VideoRecordStart", "uuu", 1920, 1080, 90)
    page.wait(lambda: any(line["kind"] == "call" and line["fault"] == "refuse" for line in page.lines))
    page.wait(lambda: any(line["kind"] == "log" and line["level"] == 3 for line in page.lines))
    page.wait(lambda: any(line["kind"] == "signal" and line["who"] == "controller" for line in page.lines))


def test_the_local_time_of_a_zone(page):
    """Comes with the next change of summer and winter."""
    page.give("do", "clock", "set", "2026-07-14 09:30:00")
    page.give("do", "clock", "zone", "DST/Paris")
    page.wait(lambda: page.at("clock.Zone") == "CCU/DST/Paris")
    offsets = page.wait(lambda: len(page.at("local.Offsets")) == 3 and page.at("local.Offsets"))
    assert offsets[0][1] == 7200 and offsets[1] == [1792890000, 3600]  # 2026-10-25 01:00 UTC
    assert offsets[2] == [1806195600, 7200]


def test_a_day_without_a_clock_that_python_knows_costs_nothing(page):
    """Such a clock leads to UTC, and the rest goes on."""
    assert page.give("do", "clock", "set", "@-99999999999")[0] in (True, False)
    assert page.give("do", "reel", "zero")[0]


def test_pictures_of_the_job_are_served(page):
    """Those alone that the job has."""
    film(page)
    for size in ((640, 480), (320, 200)):
        assert page.give("call", "Snapshot", *map(str, size), "80")[0]
    recorded, *pictures = page.wait(lambda: len(page.at("job.Media")) == 3 and page.at("job.Media"))
    assert page.panel.get(f"media/{recorded['Id']}")[0] == 404
    for item, size in zip(pictures, ((640, 480), (320, 200))):
        status, headers, body = page.panel.get(f"media/{item['Id']}")
        assert (status, headers["Content-Type"]) == (200, "image/jpeg")
        assert Image.open(io.BytesIO(body)).size == size
    page.panel.unit.jobs.items.clear()
    page.give("do", "reel", "zero")
    page.wait(lambda: not page.at("job.Media"))
    assert page.panel.get(f"media/{item['Id']}")[0] == 404


def _fill(screens, layer, size):
    """Gives a layer pixels of its own, black and clear, which stay: what a unit draws itself changes each minute."""
    screens.set(layer, *size, pixels=bytes(size[0] * size[1] * (3, 4)[layer]))


@pytest.fixture(name="screens")
def screens_fixture(panel):
    """The framebuffers, with pixels that nobody draws."""
    screens = panel.unit.framebuffers
    for layer in (0, 1):
        _fill(screens, layer, _SIZE)
    yield screens
    for layer in (0, 1):
        screens.set(layer, *_SIZE)


def _heads(page):
    return [struct.unpack_from(">IHHHHH", picture) for picture in page.pictures]


def test_the_display_is_sent_when_it_changes(screens, page):
    """Of what has changed, the part that has; nothing when what is written is what was there."""
    page.wait(lambda: {head[1] for head in _heads(page)} == {0, 1})
    assert all(head[2:] == (*_SIZE, 0, 0) for head in _heads(page))
    assert {picture[16:18] for picture in page.pictures} == {b"\xff\xd8", b"\x89P"}
    seen = len(page.pictures)
    for box in ((100, 50), (200, 90)):
        with open(screens.path(0), "r+b") as file:
            file.seek(3 * (box[1] * _SIZE[0] + box[0]))
            file.write(b"\x01\x02\x03" * 20)
        page.wait(lambda: len(page.pictures) > seen)
        assert _heads(page)[seen][1:] == (0, *_SIZE, box[0], _SIZE[1] - box[1])  # the video stands upside down
        seen += 1
    with open(screens.path(0), "r+b") as file:
        unchanged = file.read(3000)
        file.seek(0)
        file.write(unchanged)
    assert page.give("do", "sync", "active", "off")[0]
    _fill(screens, 1, (64, 36))
    page.wait(lambda: _heads(page)[-1][1:] == (1, 64, 36, 0, 0))
    assert [head[1:] for head in _heads(page)[seen:]] == [(1, 64, 36, 0, 0)]
    screens.hush(1)
    page.wait(lambda: _heads(page)[-1][1:] == (1, 0, 0, 0, 0))
    _fill(screens, 1, _SIZE)
    page.wait(lambda: _heads(page)[-1][2:4] == _SIZE)


def test_the_display_waits_for_the_page(panel, screens):
    """A page that has not shown a picture gets no other one, and then only the newest."""
    with Page(panel, acknowledges=False) as page:
        page.wait(lambda: page.pictures)
        page.send({"shown": _heads(page)[0][0]})
        page.wait(lambda: len(page.pictures) == 2)
        for level in range(10):
            before = page.at("front.Frames")[0]
            with open(screens.path(0), "r+b") as file:
                file.seek(3 * _SIZE[0])  # the first row is not seen
                file.write(bytes([level]) * 3)
            page.wait(lambda: page.at("front.Frames")[0] != before)  # pylint: disable=cell-var-from-loop
        assert page.give("do", "sync", "active", "off")[0]
        assert len(page.pictures) == 2
        page.send({"shown": _heads(page)[1][0]})
        page.wait(lambda: len(page.pictures) == 3)
        page.send({"shown": _heads(page)[2][0]})
        assert page.give("do", "sync", "active", "off")[0]
        assert len(page.pictures) == 3


def _seen(page):
    """Both layers as the page shows them, one over the other."""
    layers = [Image.new("RGBA", _SIZE) for _ in range(2)]
    for head, picture in zip(_heads(page), page.pictures):
        if head[2:4] == _SIZE:
            layers[head[1]].paste(Image.open(io.BytesIO(picture[16:])).convert("RGBA"), head[4:])
    return Image.alpha_composite(*layers).convert("RGB")


def _apart(one, other):
    return max(ImageStat.Stat(ImageChops.difference(one, other)).mean)


def test_the_display_shows_what_the_camera_sees(page, tmp_path):
    """As the daemon's screenshots do, and moves with the reel, though nobody else looks."""
    unit, before = page.panel.unit, None
    for layer in (0, 1):
        unit.framebuffers.set(layer, *_SIZE)
    for metres in ("3.1", "7.7"):
        page.give("do", "reel", "distance", metres)
        page.wait(lambda: before is None or _apart(_seen(page), before) > 3)  # pylint: disable=cell-var-from-loop
        path, code, _ = unit.client.call("Screenshot", "s", str(tmp_path))
        with Image.open(path) as screenshot:
            before = screenshot.convert("RGB")
        assert code == 0 and max(ImageStat.Stat(before).mean) > 20
        page.wait(lambda: _apart(_seen(page), before) < 3)  # pylint: disable=cell-var-from-loop


# Pages that come, go, and do not listen -------------------------------------------------------------------------------


def test_a_lost_page_comes_back_to_the_whole_state(panel):
    """Also to what has happened meanwhile, and to a recording's time."""
    with Page(panel) as page:
        page.give(*START)
        connection = page.link._response.connection  # pylint: disable=protected-access
        panel.loop.call_soon_threadsafe(connection.transport.abort)
        page.wait(lambda: page.closed_with)
    panel.unit.hardware.set_reel(relative=99)
    with Page(panel) as again:
        assert again.at("reel.Relative") == 99 or again.wait(lambda: again.at("reel.Relative") == 99)
        assert again.at("recording.Recordings.video.State") == "recording"
        assert again.at("times.video")[0] > 0 and again.at("times.video")[1]
        assert any(line.get("what") == "StartRecording" for line in again.lines)


def test_an_outbox_is_bounded_and_keeps_the_newest():
    """Of lines, and of a state only what holds."""
    async def fill():
        outbox = Outbox()
        for number in range(3 * MOST_LINES):
            outbox.add_line({"number": number})
            outbox.add_state("reel", {"Distance": number})
            outbox.add_state("reel", {"Mode": "relative"})
        return await outbox.take()

    message = asyncio.run(fill())
    assert message["dropped"] == 2 * MOST_LINES and len(message["lines"]) == MOST_LINES
    assert message["lines"][-1] == {"number": 3 * MOST_LINES - 1}
    assert message["state"] == {"reel": {"Distance": 3 * MOST_LINES - 1, "Mode": "relative"}}


def _shake_hands(panel):
    """A page that does not read, down to its socket."""
    link = socket.socket()
    link.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
    host, port = panel.host.split(":")
    link.connect((host, int(port)))
    key = base64.b64encode(os.urandom(16)).decode()
    link.sendall((f"GET /{panel.token}/socket HTTP/1.1\r\nHost: {panel.host}\r\nOrigin: http://{panel.host}\r\n"
                  f"Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: {key}\r\n"
                  "Sec-WebSocket-Version: 13\r\n\r\n").encode())
    assert link.recv(64, socket.MSG_PEEK).startswith(b"HTTP/1.1 101")
    return link


def _messages(link, last):
    """The text messages of a socket, up to the first for which `last` holds; pictures are passed over."""
    link.settimeout(PATIENCE)
    with link.makefile("rb") as file:
        while file.readline() != b"\r\n":
            pass
        while True:
            kind, length = file.read(2)
            if length >= 126:
                length = int.from_bytes(file.read(2 if length == 126 else 8), "big")
            body = file.read(length)
            if kind & 15 == 1:
                message = json.loads(body)
                yield len(body), message
                if last(message):
                    return


def _flood(unit, quick, text, rounds):
    """So much that happens, in rounds that a quick page can follow, that a slow one falls behind."""
    for number in range(rounds):
        for _ in range(MOST_LINES // 2):
            unit.tell_signal("video", "/flood", "flood", "Flood", [text])
        unit.hardware.set_reel(relative=number)
        quick.wait(lambda: quick.at("reel.Relative") == number)  # pylint: disable=cell-var-from-loop


def test_a_slow_reader_is_not_flooded(panel):
    """It gets the newest state and the newest lines, is told how many it has missed, and holds nobody up."""
    text, rounds = "x" * 500, 16
    most = rounds * MOST_LINES // 2
    with Page(panel) as quick, contextlib.closing(_shake_hands(panel)) as slow:
        quick.wait(lambda: quick.pictures)
        told = sum(1 for line in quick.lines if line["kind"] == "signal")
        _flood(panel.unit, quick, text, rounds)
        assert sum(1 for line in quick.lines if line["kind"] == "signal") - told >= most
        sizes, dropped, lines = [], 0, 0
        last = {"Relative": rounds - 1}.items()
        for size, message in _messages(slow, lambda one: last <= one.get("state", {}).get("reel", {}).items()):
            sizes.append(size)
            dropped += message.get("dropped", 0)
            lines += 0 if "hello" in message else len(message.get("lines", ()))
        assert dropped > most / 4 and lines + dropped >= most
        assert sum(sizes) < most * len(text)


def test_more_pages_than_a_desk_has_are_refused(panel):
    """And there is room again when some have gone."""
    with contextlib.ExitStack() as stack:
        with pytest.raises(aiohttp.WSServerHandshakeError) as refused:
            for _ in range(17):
                stack.enter_context(Page(panel))
        assert refused.value.status == 503
    deadline = time.monotonic() + PATIENCE
    while True:  # the server may hear of those that have gone a little later
        try:
            with Page(panel) as page:
                assert page.give("do", "reel", "zero")[0]
            return
        except aiohttp.WSServerHandshakeError:
            assert time.monotonic() < deadline


# Orders that make no sense --------------------------------------------------------------------------------------------


@pytest.mark.parametrize("message, number, text", [
    ("no JSON", None, "a message is JSON"), ("[1]", None, "a message is an object"),
    (b"bytes", None, "a message is a text"),
    ({}, None, "an order needs a number, its 'id'"), ({"id": "1", "order": ["keep"]}, None, "an order needs a number"),
    ({"id": 7}, 7, "an 'order' is a list of 1 to 20 words"), ({"id": 7, "order": []}, 7, "an 'order' is a list"),
    ({"id": 7, "order": "keep"}, 7, "an 'order' is a list"), ({"id": 7, "order": [1]}, 7, "an 'order' is a list"),
    ({"id": 7, "order": ["x"] * 21}, 7, "an 'order' is a list of 1 to 20 words"),
    ({"id": 7, "order": ["sudo", "reboot"]}, 7, "no order 'sudo'; there are: do, set, call, run, stop, keep, back"),
    ({"id": 7, "order": ["do"]}, 7, "no noun ''; there are: daemon"),
    ({"id": 7, "order": ["do", "reel", "distance"]}, 7, "reel distance lacks metres"),
    ({"id": 7, "order": ["do", "reel", "distance", "far"]}, 7, "metres: 'far' is no number"),
    ({"id": 7, "order": ["do", "reel", "distance", "$far"]}, 7, ""),
    ({"id": 7, "order": ["do", "storage", "remove", "disk"]}, 7, "no device 'disk'; there are: card, internal"),
    ({"id": 7, "order": ["do", "key", "type", "Entre"]}, 7, "no key 'Entre'; meant is perhaps Enter"),
    ({"id": 7, "order": ["call"]}, 7, ""),
    ({"id": 7, "order": ["call", "VideoRecordStar"]}, 7, "no method of the controller 'VideoRecordStar', perhaps"),
    ({"id": 7, "order": ["call", "VideoRecordStart", "1"]}, 7, "VideoRecordStart takes 3 arguments (width, height"),
    ({"id": 7, "order": ["call", "VideoRecordStop"]}, 7, "VideoRecordStop: Unknown error (-1)"),
    ({"id": 7, "order": ["call", "PlayAudio", "none"]}, 7, "Could not play file"),
    ({"id": 7, "order": ["set", "SpkrVolume", "loud"]}, 7, "SpkrVolume: 'loud' is no whole number"),
    ({"id": 7, "order": ["set", "AudioFiles", "1"]}, 7, "AudioFiles cannot be set"),
    ({"id": 7, "order": ["run", "../../etc/passwd"]}, 7, "no scenario '../../etc/passwd'; there are: card-pulled"),
    ({"id": 7, "order": ["stop"]}, 7, "no scenario is being played"),
])
def test_what_makes_no_sense_is_answered_with_the_reason(panel, open_page, message, number, text):
    """And the page goes on."""
    del panel
    page = open_page
    page.answers.clear()
    page.send(message)
    good, told = page.answer(number) if number else page.wait(
        lambda: None in page.answers and (page.answers[None]["ok"], page.answers[None]["text"]))
    assert good is False and told and text in told
    assert page.give("do", "reel", "zero") == (True, "the relative distance is zero here")
    assert page.panel.unit.errors == []


def test_a_message_without_end_ends_the_page(page):
    """The server does not keep it."""
    page.send("x" * 100_000)
    page.wait(lambda: page.closed_with == 1009)


def test_orders_do_not_wait_for_each_other(page):
    """One that waits for a daemon that is stopped holds up no other; their number is bounded."""
    unit = page.panel.unit
    os.kill(unit.pid, signal.SIGSTOP)
    try:
        for number in range(1001, 1018):
            page.send({"id": number, "order": ["call", "GetTime", "true"]})
        assert page.answer(1017) == (False, "16 orders are being carried out already")
        with Page(page.panel) as other:
            assert other.give("do", "reel", "zero")[0]
        assert 1001 not in page.answers
    finally:
        os.kill(unit.pid, signal.SIGCONT)
    assert page.answer(1001)[0]


def test_one_scenario_at_a_time(page):
    """Its steps are told as they are played, to everybody."""
    assert page.give("run", "day")[0]
    assert page.give("run", "reel-lost") == (False, "a scenario is being played; wait for its end, or stop it")
    with Page(page.panel) as other:
        assert other.at("scenario.Name") == "day"
        page.give("stop")
        other.wait(lambda: other.at("scenario.State") in ("stopped", "passed"))
    page.give("do", "fault", "video", "StartRecording", "refuse")
    assert page.give("run", "card-pulled")[0]
    page.wait(lambda: page.at("scenario.State") == "failed")
    assert any("NO" in line for line in page.at("scenario.Lines"))


# Its life -------------------------------------------------------------------------------------------------------------


@pytest.fixture(name="home")
def home_fixture(monkeypatch):
    """A folder for units that no other test has any in."""
    with tempfile.TemporaryDirectory(prefix="w-", dir="/tmp") as folder:
        monkeypatch.setenv("TMPDIR", folder)
        monkeypatch.delenv("CCU_UNIT", raising=False)
        yield folder


def test_the_panel_ends_with_the_unit(home):
    """Pages are told, nothing is left, and the address that was printed is the one that served."""
    with subprocess.Popen([sys.executable, "-m", "virtual_unit", "up", "--panel"], cwd=_ROOT, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True) as process:
        lines = [process.stdout.readline() for _ in range(4)]
        assert lines[3].startswith("export CCU_PANEL=http://127.0.0.1:")
        panel = Panel(None, lines[3].partition("=")[2].strip())
        with Page(panel) as page:
            process.send_signal(signal.SIGINT)
            assert page.wait(lambda: page.closed_with) == 1001
            assert process.wait(PATIENCE) == 0
        panel.close()
    assert os.listdir(home) == []


def test_without_a_unit_there_is_no_panel(home, capfd):
    """Which is said."""
    del home
    assert serve() == 1 and capfd.readouterr() == ("", "ccu: no unit is running: start one with ./ccu up\n")


@pytest.mark.parametrize("by_signal", [False, True])
def test_a_panel_for_a_unit_that_runs(home, by_signal):
    """It ends with the unit's bus, or by a signal; neither a page that does not read what it still has to say nor an
    order that is on its way holds it up."""
    with VirtualUnit(daemon=by_signal, directory=home) as unit, announce(unit, "mine"):
        command = [sys.executable, "-m", "virtual_unit", "panel", "--unit", "mine"]
        with subprocess.Popen(command, cwd=_ROOT, stdout=subprocess.PIPE, text=True) as process:
            panel = Panel(unit, process.stdout.readline().strip())
            with contextlib.closing(_shake_hands(panel)), Page(panel) as quick:
                _flood(unit, quick, "x" * 5000, 4)
                if by_signal:
                    os.kill(unit.pid, signal.SIGSTOP)
                    quick.send({"id": 1, "order": ["set", "SpkrVolume", "80"]})
                    quick.give("do", "reel", "zero")
                    process.terminate()
                else:
                    unit.stop_bus()
                try:
                    assert process.wait(PATIENCE) == 0
                finally:
                    process.kill()
                    if by_signal:
                        os.kill(unit.pid, signal.SIGCONT)
                        unit.settle()
            panel.close()
        if not by_signal:
            unit.renew_bus()
    assert os.listdir(home) == []


def test_a_panel_that_is_killed_leaves_nothing_behind_its_unit(home):
    """Not even a state that it has kept, which goes with the unit."""
    with VirtualUnit(directory=home) as unit, announce(unit, "mine"):
        command = [sys.executable, "-m", "virtual_unit", "panel", "--unit", "mine"]
        with subprocess.Popen(command, cwd=_ROOT, stdout=subprocess.PIPE, text=True) as process:
            panel = Panel(unit, process.stdout.readline().strip())
            with Page(panel) as page:
                assert page.give("keep")[0]
                process.kill()
                page.wait(lambda: page.closed_with)
            panel.close()
    assert os.listdir(home) == []


def test_a_command_in_a_unit_knows_its_panel(home):
    """By its environment; standard output is the command's own."""
    del home
    done = subprocess.run([sys.executable, "-m", "virtual_unit", "up", "--panel", "--", "sh", "-c", "echo $CCU_PANEL"],
                          cwd=_ROOT, capture_output=True, text=True, check=True)
    assert done.stdout.startswith("http://127.0.0.1:") and f"the panel is at {done.stdout}" in done.stderr
