"""What a person sees and does in the page."""

import io
import os
import re
import signal
import subprocess
import sys

import pytest
from PIL import Image
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

from tests.integration.panel_pages import KEY, ORDERS, START, film
from virtual_unit import PATIENCE, REFUSE, VirtualUnit
from virtual_unit.registry import announce

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
#: Names of the page's templates, which are filled in before a person sees them; other names are a form's fields.
_TEMPLATE_NAMES = ("device", "kind", "member", "name", "id")


# Every control --------------------------------------------------------------------------------------------------------


def _selector(browser, row, texts):
    """Where the control of a row is, and the texts that are left for a person to enter, by their names."""
    order, left = row.order, dict(zip(re.findall(r"{([\w.]*)}", row.order), texts))
    if not browser.all(f'form[data-order="{order}"]'):
        for name in _TEMPLATE_NAMES:
            if name in left:
                order = order.replace("{" + name + "}", left.pop(name))
    return ", ".join(f'[{attribute}="{order}"]' for attribute in ("data-order", "data-on", "data-off")), left


@pytest.mark.parametrize("row", ORDERS, ids=[row.order for row in ORDERS])
def test_every_control_changes_the_unit(browser, observer, row):
    """Each way that the page has to order it, and the page goes on showing the unit."""
    row.prepare(observer)
    texts = row.texts(observer)
    if row.order == KEY:
        button = browser.one(f'[data-key="{texts[0]}"]')
        ActionChains(browser.driver).click_and_hold(button).perform()
        observer.wait(lambda: row.holds(observer))
        browser.wait(lambda: "down" in button.get_attribute("class"))
        ActionChains(browser.driver).release().perform()
        observer.wait(lambda: not row.holds(observer))
        return
    selector, left = _selector(browser, row, texts)
    ways = len(browser.wait(lambda: [one for one in browser.all(selector) if one.is_displayed()]))
    for way in range(ways):
        if way:
            observer.give("do", "reel", "zero")
            observer.wait(lambda: not row.holds(observer))
        control = [one for one in browser.all(selector) if one.is_displayed()][way]
        browser.script("arguments[0].scrollIntoView({block: 'center'})", control)
        browser.work(control, left)
        observer.wait(lambda: row.holds(observer))
    browser.wait(lambda: browser.text("#status"))
    assert browser.text("#alerts") == ""


def test_what_lists_make_orders_too(browser, observer):
    """A film is played, and a section of the settings goes back."""
    path = film(observer)
    browser.one("#media .play").click()
    observer.wait(lambda: observer.at("playback.File") == path and observer.at("playback.State") == "playing")
    observer.give("do", "settings", "set", "audio", "speakerVolume", "33")
    browser.wait(lambda: browser.value("#settings [name=value]") and
                 browser.value("#settings [name=section]") == "audio")
    browser.one("#reset-section").click()
    observer.wait(lambda: observer.at("settings.Sections.audio.speakerVolume") == 50)


def test_what_is_refused_is_said_and_shown_as_it_is(browser, observer):
    """A switch goes back to what the unit says."""
    observer.give("do", "storage", "remove", "card")
    mounted = '[data-value="storage.Devices.card.IsMounted"]'
    browser.wait(lambda: not browser.value(mounted))
    browser.one(mounted).click()
    browser.wait(lambda: "no device 'card'" in browser.text("#alerts"))
    browser.wait(lambda: not browser.value(mounted))


# Every change ---------------------------------------------------------------------------------------------------------

_RECORDINGS = "recording.Recordings.video"


def _change(*words):
    return lambda observer: observer.give(*words)


#: What happens to the unit, and what shows it: a selector, and its text or value then.
_CHANGES = [
    (_change("do", "reel", "distance", "12.34"), ".strip [data-text='reel.Distance']", "12.34 m"),
    (_change("do", "reel", "distance", "7.5"), "input[type=number][data-value='reel.Distance']", "7.5"),
    (_change("do", "reel", "connect", "off"), "[data-value='reel.Connected']", False),
    (_change("do", "reel", "mode", "absolute"), "[data-value='reel.Mode']", "absolute"),
    (_change("do", "camera", "roll", "-45"), ".strip [data-text='camera.Roll']", "-45°"),
    (_change("do", "camera", "pitch", "30"), ".strip [data-text='camera.Pitch']", "30°"),
    (_change("do", "camera", "connect", "off"), "[data-value='camera.Connected']", False),
    (_change("set", "Sonde", "on"), "[data-value='camera.Sonde']", True),
    (_change("set", "Sonde", "off"), "#leds li:nth-child(2)", "Sonde off"),
    (_change("set", "MicEnabled", "off"), "#leds li:nth-child(1)", "Microphone off"),
    (_change("set", "SpkrEnabled", "on"), "[data-value='front.Speaker']", True),
    (_change("set", "SpkrVolume", "100"), "[data-value='front.Volume']", "100"),
    (_change("do", "power", "charge", "7", "9"), ".strip [data-text='power.Charge.1']", "9 %"),
    (_change("do", "power", "low"), "[data-value='power.Sufficient']", False),
    (_change("do", "power", "low", "off"), "[data-value='power.Sufficient']", True),
    (_change("do", "cooling", "temperature", "-5"), "[data-text='cooling.Temperature']", "-5 °C"),
    (_change("do", "clock", "zone", "DST/Paris"), "[data-text='clock.Zone']", "DST/Paris"),
    (_change("do", "clock", "ntp"), "[data-value='clock.Ntp']", True),
    (_change("do", "gps", "fix", "52.5", "13.4"), "[data-text='gps.Latitude']", "52.5"),
    (_change("do", "storage", "low", "card"), "[data-value='storage.Devices.card.StorageIsBelowMinimumLevel']", True),
    (_change("do", "storage", "remove", "card"), "[data-text='storage.Devices.card']", "not plugged in"),
    (_change("do", "storage", "add", "card"), "[data-value='storage.Devices.card']", True),
    (_change("do", "storage", "add", "stick"), "[data-value='storage.Devices.stick']", True),
    (_change(*START), f"[data-text='{_RECORDINGS}.State']", "recording"),
    (_change("call", "VideoRecordPause"), f"[data-text='{_RECORDINGS}.State']", "paused"),
    (_change("do", "recording", "grow", "2000000"), f"[data-text='{_RECORDINGS}.Size']", "2.0 MB"),
    (_change("call", "VideoRecordStop"), "#media .caption", re.compile(r"\d{4}\.mp4 video recording, 2\.0 MB")),
    (_change("do", "fault", "video", "Snapshot", "late", "--times", "2", "--value", "1.5"), "#faults li",
     re.compile(r"video Snapshot meets late 1\.5, 2 × more, met 0 ×")),
    (_change("do", "sibling", "hang", "sync"), "[data-text='sibling.States.sync']", "hanging"),
    (_change("do", "sync", "active"), "[data-value='sync.Active']", True),
    (_change("do", "job", "open", "internal", "job9"), "#media-title", "Media of job9 on internal"),
    (_change("do", "key", "unplug"), "[data-value='key.Plugged']", False),
    (_change("set", "KeypadBeepEnabled", "on"), "[data-value='controller.KeypadBeepEnabled']", True),
    (_change("call", "PlayAudio", "warning.wav"), "#heard", "Played warning.wav"),
    (_change("do", "settings", "set", "audio", "micEnabled", "off"), "#settings [name=value]", "false"),
    (_change("do", "daemon", "stop"), "header [data-text='daemon.Running']", "no daemon"),
    (_change("do", "daemon", "start"), "[data-text='daemon.Running'][data-as='running']", "runs"),
]


def test_every_change_of_the_unit_shows(browser, observer):
    """Whoever has made it; without a look, since it comes by itself."""
    for change, selector, expected in _CHANGES:
        def shows():
            seen = browser.value(selector) if "data-value" in selector or "[name" in selector else None
            seen = browser.text(selector) if seen is None else seen
            seen = " ".join(seen.split()) if isinstance(seen, str) else seen
            return bool(expected.match(seen or "")) if isinstance(expected, re.Pattern) else seen == expected
        good, told = change(observer)
        assert good, told
        browser.wait(shows)


def test_a_recording_shows_its_time_and_a_beep_is_told(browser, observer):
    """The time goes on by itself."""
    observer.give(*START)
    time = ".time[data-kind=video]"
    browser.wait(lambda: browser.text(f".strip {time}") == "00:01")
    browser.wait(lambda: browser.text(f"#recordings {time}") == "00:02")
    observer.give("set", "KeypadBeepEnabled", "on")
    browser.one("#sound").click()
    assert browser.text("#sound") == "Sound on"
    observer.give("do", "key", "type", "Enter")
    browser.wait(lambda: browser.text("#heard").startswith("Beep, 100 ms ("))
    observer.give("call", "PlayAudio", "beep.wav")
    browser.wait(lambda: browser.text("#heard") == "Played beep.wav")


def test_the_clock_goes_on(browser, observer):
    """In the zone's time, also when its summer ends while the page is open."""
    observer.give("do", "clock", "zone", "DST/Paris")
    observer.give("do", "clock", "set", "2026-10-25 00:59:57")
    browser.wait(lambda: browser.text("#local-time").startswith("2026-10-25 02:59:5"))
    assert browser.text("#ahead") == "UTC+2:00"
    browser.wait(lambda: browser.text("#local-time").startswith("2026-10-25 02:00:0"))
    assert browser.text("#ahead") == "UTC+1:00"


def _pixel(browser, x, y):
    return browser.script("return [...document.getElementById('display').getContext('2d')"
                          ".getImageData(arguments[0], arguments[1], 1, 1).data].slice(0, 3)", x, y)


def test_the_display_is_both_framebuffers(browser, panel):
    """The interface over the video, by its alpha; and what changes, changes."""
    screens = panel.unit.framebuffers
    width, height = 1280, 720
    red, glass = b"\x00\x00\xff", b"\xff\x00\x00"
    try:
        screens.set(0, width, height, pixels=red * (width * height))
        half = (glass + b"\x80") * (width // 2) + (glass + b"\x00") * (width // 2)
        screens.set(1, width, height, pixels=half * height)

        def near(place, colour):
            return all(abs(seen - wanted) < 8 for seen, wanted in zip(_pixel(browser, *place), colour))

        browser.wait(lambda: near((100, 100), (127, 0, 128)) and near((1000, 100), (255, 0, 0)))
        with open(screens.path(0), "r+b") as file:
            file.seek(3 * width * 300)
            file.write(b"\x00\xff\x00" * (width * 200))
        browser.wait(lambda: near((1000, 400), (0, 255, 0)) and near((1000, 100), (255, 0, 0)))
        assert near((1000, 450), (255, 0, 0))  # the video stands upside down in its framebuffer
        assert near((100, 400), (0, 127, 128))
    finally:
        for layer in (0, 1):
            screens.set(layer, width, height)


def test_snapshots_are_pictures(browser, observer):
    """With their real pixels."""
    observer.give("call", "Snapshot", "640", "480", "80")
    browser.one("#media img")
    browser.wait(lambda: browser.script("return document.querySelector('#media img').naturalWidth") == 640)


# The feed -------------------------------------------------------------------------------------------------------------


def _rows(browser):
    return browser.script("return [...document.querySelectorAll('#feed li:not([hidden])')].map(li => li.textContent)")


def test_what_happens_is_listed_and_filtered(browser, observer, panel):
    """By kind, level and words; held and cleared."""
    panel.unit.faults.on("video", "StartRecording", kind=REFUSE, times=1)
    assert observer.give(*START)[0] is False
    browser.wait(lambda: any("met refuse" in row for row in _rows(browser)))
    browser.one("#words").send_keys("video startrecording")
    assert _rows(browser) and all("StartRecording" in row for row in _rows(browser))
    browser.one("#kind-call").click()
    assert not any("met refuse" in row for row in _rows(browser))
    browser.one("#words").clear()
    browser.one("#words").send_keys(" ")
    browser.enter(browser.one("#level"), "3")
    kinds = browser.script("return [...document.querySelectorAll('#feed li:not([hidden]) .kind')]"
                           ".map(e => e.textContent)")
    assert set(kinds) <= {"signal", "error", "critical"} and "error" in kinds
    browser.one("#hold").click()
    before = len(_rows(browser))
    observer.give("do", "reel", "zero")
    browser.wait(lambda: "waiting" in browser.text("#feed-count"))
    assert len(_rows(browser)) == before
    browser.one("#hold").click()
    browser.wait(lambda: len(_rows(browser)) > before)
    browser.one("#clear").click()
    assert _rows(browser) == []


def test_a_flood_leaves_a_bounded_list(browser, observer, panel):
    """And the page shows what is."""
    for number in range(2000):
        panel.unit.tell_signal("video", "/flood", "flood", "Flood", [number])
    observer.give("do", "reel", "distance", "33")
    browser.wait(lambda: browser.text(".strip [data-text='reel.Distance']") == "33.00 m")
    assert browser.script("return document.getElementById('feed').children.length") <= 400


# Without a mouse, on a small screen, in the dark ----------------------------------------------------------------------


def test_all_can_be_done_with_the_keyboard(browser, observer):
    """Every control is reached by the tab key, has a name and shows that it has the focus."""
    names = browser.script("""
        const controls = [...document.querySelectorAll('button, input, select, a[href]')];
        const name = (e) => e.getAttribute('aria-label') || e.labels?.[0]?.textContent || e.textContent ||
            e.querySelector('img')?.alt || '';
        return controls.filter(e => e.checkVisibility()).map(e => [e.outerHTML.slice(0, 90), name(e).trim(), e.tabIndex])
        """)
    assert len(names) > 120
    for html, name, order in names:
        assert name and order == 0, html
    browser.script("document.activeElement.blur(); window.getSelection().removeAllRanges()")
    seen = []
    for _ in range(8):
        browser.press(Keys.TAB)
        seen.append(browser.focused())
    assert seen[:3] == ["#display", "sound", "keep"]
    for selector in ("#sound", "[data-value='front.Microphone']", "[data-key=Enter]", "#words"):
        browser.script("document.querySelector(arguments[0]).focus()", selector)
        browser.press(Keys.SHIFT, Keys.SHIFT)
        assert browser.script("return getComputedStyle(document.activeElement).outlineStyle") == "solid", selector
    browser.script("document.querySelector(\"[data-value='front.Microphone']\").focus()")
    browser.press(Keys.SPACE)
    observer.wait(lambda: observer.at("front.Microphone") is False)
    browser.script("document.querySelector(\"input[type=range][data-value='reel.Distance']\").focus()")
    browser.press(Keys.ARROW_RIGHT)
    observer.wait(lambda: observer.at("reel.Distance") > 2.34)
    browser.script("document.querySelector('[data-key=Down]').focus()")
    ActionChains(browser.driver).key_down(Keys.ENTER).perform()
    observer.wait(lambda: observer.at("key.Down") == ["DOWN"])
    ActionChains(browser.driver).key_up(Keys.ENTER).perform()
    observer.wait(lambda: observer.at("key.Down") == [])


def test_the_focus_stays_where_it_is(browser, observer):
    """When what has it is made anew."""
    observer.give("do", "fault", "video", "any", "refuse")
    observer.give("do", "fault", "sync", "any", "refuse", "--times", "3")
    browser.wait(lambda: len(browser.all("#faults li")) == 2)
    order = browser.all("#faults button")[0].get_attribute("data-order")
    browser.script("document.querySelector('#faults button').focus()")
    observer.give("do", "fault", "jobs", "any", "refuse")
    browser.wait(lambda: len(browser.all("#faults li")) == 3)
    assert browser.focused() == order


_CONTRAST = """
    const parse = (text) => text.match(/[\\d.]+/g).map(Number);
    const light = ([r, g, b]) => [r, g, b].map((c) => (c /= 255) <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
        .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
    const behind = (e) => { for (; e; e = e.parentElement) { const c = parse(getComputedStyle(e).backgroundColor);
        if (c.length < 4 || c[3] > 0) return c; } return [255, 255, 255]; };
    const poor = [];
    for (const e of document.querySelectorAll('body *')) {
        if (!e.checkVisibility() || ![...e.childNodes].some((n) => n.nodeType === 3 && n.data.trim())) continue;
        if (e.closest('.hidden, option, .skip')) continue;
        const a = light(parse(getComputedStyle(e).color)), b = light(behind(e));
        const ratio = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
        if (ratio < 4.5) poor.push(`${ratio.toFixed(2)} ${e.outerHTML.slice(0, 80)}`);
    }
    return poor"""


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("width", [1280, 480, 320])
def test_it_is_readable(browser, observer, width, scheme):
    """Nothing is cut off at the side, and all texts stand out from what is behind them."""
    observer.give(*START)
    observer.give("do", "fault", "video", "StartPhotoTalk", "refuse")
    observer.give("do", "storage", "low", "internal")
    browser.size(width, 900)
    browser.prefer(scheme)
    browser.wait(lambda: browser.text("#faults li"))
    assert browser.script("return document.documentElement.scrollWidth") <= width
    wide = browser.script("return [...document.querySelectorAll('main *')].filter(e => e.checkVisibility() && "
                          "e.getBoundingClientRect().right > innerWidth + 1 && !e.closest('#feed, pre'))"
                          ".map(e => e.outerHTML.slice(0, 90))")
    assert wide == []
    dark = browser.script("return getComputedStyle(document.body).backgroundColor") == "rgb(16, 20, 24)"
    assert dark == (scheme == "dark")
    assert browser.script(_CONTRAST) == []


# Lost and back --------------------------------------------------------------------------------------------------------


class _Served:
    """A panel at an address that stays."""

    def __init__(self, unit, port="0"):
        environment = {**os.environ, "CCU_PANEL_TOKEN": "a-token-that-stays"}
        self._process = subprocess.Popen(
            [sys.executable, "-m", "virtual_unit", "panel", "--unit", unit.directory, "--port", port], cwd=_ROOT,
            env=environment, stdout=subprocess.PIPE, text=True)
        self.address = self._process.stdout.readline().strip()
        self.port = re.search(r":(\d+)/", self.address)[1]

    def end(self, number):
        """Ends it by a signal."""
        self._process.send_signal(number)
        self._process.wait(PATIENCE)
        self._process.stdout.close()


@pytest.mark.parametrize("number, said", [(signal.SIGKILL, "The connection to the unit is lost."),
                                          (signal.SIGTERM, "The panel has ended.")])
def test_a_lost_connection_is_said_and_comes_back(window, number, said):
    """With what has happened meanwhile, and with controls that work."""
    with VirtualUnit() as unit, announce(unit):
        served = _Served(unit)
        try:
            window.open(served.address)
            assert window.text("#lost") == "" and not window.all("#lost")[0].is_displayed()
            served.end(number)
            window.wait(lambda: window.text("#lost").startswith(said))
            assert window.one("#lost").get_attribute("role") == "alert" and window.text("#link") == "not connected"
            window.one("[data-order='do reel zero']").click()
            window.wait(lambda: "not connected" in window.text("#alerts"))
            unit.hardware.move_reel(4242)
            served = _Served(unit, served.port)
            window.wait(lambda: window.text("#link") == "connected")
            assert not window.all("#lost")[0].is_displayed()
            window.wait(lambda: window.text(".strip [data-text='reel.Distance']") == "42.42 m")
            window.one("[data-order='do reel zero']").click()
            window.wait(lambda: unit.hardware.reel["Relative"] == 0)
        finally:
            served.end(signal.SIGTERM)
            window.driver.get("about:blank")
            window.complaints()  # a refused connection is one, and is meant


# The picture in the documentation -------------------------------------------------------------------------------------


def test_the_picture_of_the_panel(browser, observer, panel, request):
    """Of a unit that films; it becomes the one in docs/ where that is asked for."""
    for words in (("do", "clock", "set", "2026-07-14 09:30:00"), ("do", "clock", "zone", "DST/Berlin"),
                  ("call", "Snapshot", "1280", "720", "80"), START, ("do", "recording", "grow", "2400000"),
                  ("do", "reel", "distance", "12.34"), ("do", "power", "charge", "85", "64"),
                  ("do", "fault", "video", "StartPhotoTalk", "refuse", "--times", "1"), ("set", "SpkrEnabled", "on")):
        assert observer.give(*words)[0]
    browser.size(1280, 1000)
    browser.wait(lambda: browser.text(".strip [data-text='reel.Distance']") == "12.34 m" and
                 browser.text("#status") is not None and browser.text("#faults li"))
    picture = Image.open(io.BytesIO(browser.driver.get_screenshot_as_png())).convert("RGB")
    assert picture.size == (1280, 1000)
    assert len(picture.getcolors(picture.width * picture.height)) > 1000  # the display is in it
    kept = os.path.join(_ROOT, "docs", "panel.png")
    if request.config.getoption("--docs"):
        picture.save(kept, optimize=True)
    with Image.open(kept) as there:
        assert there.size == picture.size
    del panel
