"""Debian's chromium without a window, and what a person does to the page in it."""

import contextlib
import tempfile

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

from virtual_unit import PATIENCE

_OPTIONS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync", "--hide-scrollbars",
            "--autoplay-policy=no-user-gesture-required", "--mute-audio", "--force-device-scale-factor=1")


class Browser:
    """One window."""

    def __init__(self, driver):
        self.driver = driver

    def open(self, address):
        """Loads a page, and waits until it shows the unit."""
        self.driver.get(address)
        self.wait(lambda: self.text("#link") == "connected")

    def size(self, width, height):
        """Gives the window its inner size."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def prefer(self, scheme):
        """What the reader's system prefers: light or dark."""
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme},
                         {"name": "prefers-reduced-motion", "value": "reduce"}]})

    def wait(self, condition):
        """Waits until the condition holds; returns what it returned."""
        return WebDriverWait(self.driver, PATIENCE, 0.02, [StaleElementReferenceException]).until(lambda _: condition())

    def script(self, text, *arguments):
        """What a script returns."""
        return self.driver.execute_script(text, *arguments)

    def all(self, selector):
        """The elements of a selector."""
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector):
        """The first of them, which must be visible."""
        return self.wait(lambda: next((found for found in self.all(selector) if found.is_displayed()), None))

    def text(self, selector):
        """The text of an element, whether it can be seen or not; None without one."""
        return self.script("return document.querySelector(arguments[0])?.textContent.trim()", selector)

    def value(self, selector):
        """What a control is set to."""
        return self.script("const e = document.querySelector(arguments[0]);"
                           "return e && (e.type === 'checkbox' ? e.checked : e.value)", selector)

    def focused(self):
        """What has the focus: its identity or its order."""
        return self.script("const e = document.activeElement; return e.id || e.dataset.order || e.dataset.key || "
                           "e.getAttribute('href') || e.name || e.tagName")

    def press(self, *keys):
        """Types where the focus is."""
        ActionChains(self.driver).send_keys(*keys).perform()

    def work(self, element, texts):
        """Does to a control what a person does: clicks it, or gives it the texts, by the names of
        their places."""
        kind = element.get_attribute("type")
        if element.tag_name == "form":
            for name, text in texts.items():
                self.enter(element.find_element(By.NAME, name), text)
            element.find_element(By.CSS_SELECTOR, "button:not([type=button])").click()
        elif element.tag_name == "button" or kind == "checkbox":
            element.click()
        else:
            self.enter(element, texts[""], leave=True)

    def enter(self, field, text, leave=False):
        """Puts a text into a field, as far as it can be typed; `leave` goes on from it."""
        if field.tag_name == "select":
            next(one for one in Select(field).options if one.get_attribute("value") == text).click()
        elif field.get_attribute("type") == "range":
            self.script("arguments[0].value = arguments[1];"
                        "arguments[0].dispatchEvent(new Event('input', {bubbles: true}))", field, text)
        else:
            field.click()
            field.send_keys(Keys.CONTROL, "a")
            field.send_keys(text, *([Keys.TAB] if leave else []))

    def complaints(self):
        """What the browser's console has of errors, such as what the policy has refused."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]


@contextlib.contextmanager
def running_browser():
    """A browser with a profile of its own."""
    with tempfile.TemporaryDirectory(prefix="ccu-browser-", ignore_cleanup_errors=True) as profile:
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for option in (*_OPTIONS, f"--user-data-dir={profile}"):
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        try:
            yield Browser(driver)
        finally:
            driver.quit()
