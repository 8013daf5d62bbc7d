"""What the panel costs and how fast it is; `./ccu bench panel` prints it.  Nothing is asserted: a busy machine is no
defect."""

import argparse
import os
import statistics
import subprocess
import time

from tests.browser.browser import running_browser
from virtual_unit.client import Client
from virtual_unit.remote import Remote
from virtual_unit.verbs import parse_words

_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
_TICK = os.sysconf("SC_CLK_TCK")
#: Notes when the page shows another distance, in milliseconds since the epoch.
_WATCH = """
    window.shown = {};
    const element = document.querySelector(".strip [data-text='reel.Distance']");
    new MutationObserver(() => { window.shown[element.textContent] = performance.timeOrigin + performance.now(); })
        .observe(element, {childList: true, characterData: true, subtree: true});"""


def _exports(process, names):
    """The variables that `./ccu up` prints, up to the last of the names."""
    found = {}
    while not set(names) <= set(found):
        name, _, value = process.stdout.readline().removeprefix("export ").strip().partition("=")
        found[name] = value.strip("'")
    return found


def _up(*options):
    return subprocess.Popen([os.path.join(_ROOT, "ccu"), "up", *options], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, text=True, start_new_session=True)


def _end(process):
    process.terminate()
    process.wait()
    process.stdout.close()


def _seconds_to_an_answer():
    began = time.monotonic()
    process = _up()
    try:
        client = Client(_exports(process, ["DBUS_SESSION_BUS_ADDRESS"])["DBUS_SESSION_BUS_ADDRESS"])
        client.call("GetTime", "b", True)
        seconds = time.monotonic() - began
        client.close()
        return seconds
    finally:
        _end(process)


def _processes(parent):
    """Identity and name of a process and of all that descend from it."""
    parents = {}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
                name, _, rest = file.read().partition("(")[2].rpartition(")")
            with open(f"/proc/{pid}/cmdline", encoding="utf-8", errors="replace") as file:
                words = file.read().split("\0")
        except OSError:
            continue
        title = next((word for word in words if word in ("up", "panel")), name) if "virtual_unit" in words else name
        parents[int(pid)] = (int(rest.split()[1]), title)
    found, grown = {parent: parents[parent][1]}, True
    while grown:
        new = {pid: name for pid, (above, name) in parents.items() if above in found and pid not in found}
        found.update(new)
        grown = bool(new)
    return found


def _megabytes(pid):
    with open(f"/proc/{pid}/smaps_rollup", encoding="utf-8") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("Pss:")) / 1024


def _processor(pid):
    with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / _TICK


def _latencies(browser, remote, changes):
    browser.script(_WATCH)
    sent = {}
    for number in range(changes):
        distance = 0.5 + number / 100
        sent[f"{distance:.2f} m"] = time.time() * 1000
        remote.do(*parse_words(["reel", "distance", f"{distance:.2f}"]))
        time.sleep(0.02)  # as far apart as a cable that moves
    browser.wait(lambda: browser.text(".strip [data-text='reel.Distance']") == list(sent)[-1])
    shown = browser.script("return window.shown")
    return sorted(shown[text] - at for text, at in sent.items() if text in shown), changes


def main():
    """Measures and prints."""
    parser = argparse.ArgumentParser(prog="ccu bench panel", description=__doc__.partition(";")[0])
    parser.add_argument("--changes", type=int, default=500, metavar="N", help="changes of the unit (default: 500)")
    parser.add_argument("--idle", type=float, default=20, metavar="SECONDS", help="time to look at an idle unit")
    options = parser.parse_args()
    print(f"load of the machine: {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors")
    starts = sorted(_seconds_to_an_answer() for _ in range(5))
    print(f"from ./ccu up to an answer of the daemon: {statistics.median(starts):.2f} s, at best {starts[0]:.2f} s")
    process = _up("--panel")
    try:
        known = _exports(process, ["DBUS_SESSION_BUS_ADDRESS", "CCU_PANEL"])
        with running_browser() as browser, Remote(known["DBUS_SESSION_BUS_ADDRESS"]) as remote:
            browser.open(known["CCU_PANEL"])
            time.sleep(2)
            unit = _processes(process.pid)
            before = {pid: _processor(pid) for pid in unit}
            time.sleep(options.idle)
            shares = {pid: (_processor(pid) - spent) / options.idle for pid, spent in before.items()}
            print(f"an idle unit with an open page: {sum(shares.values()):.2%} of a processor")
            for pid, name in unit.items():
                print(f"    {name:18} {_megabytes(pid):6.1f} MB, {shares[pid]:.2%}")
            panel = sum(_megabytes(pid) for pid, name in unit.items() if name == "panel")
            print(f"memory: {sum(map(_megabytes, unit)):.1f} MB, of which the panel {panel:.1f} MB")
            times, changes = _latencies(browser, remote, options.changes)
            if times:
                print(f"from an event to the page: median {statistics.median(times):.1f} ms, "
                      f"99th percentile {times[int(len(times) * 0.99)]:.1f} ms, longest {times[-1]:.1f} ms "
                      f"({changes} changes, {len(times)} shown one by one)")
    finally:
        _end(process)


if __name__ == "__main__":
    main()
