"""The system's own daemons: timedated behind polkit, gpsd, the journal."""

import re
import time

from .case import collector

CASES = []
case = collector(CASES)

_RULE = "/usr/share/polkit-1/rules.d/60-controllerd.rules"
#: A receiver's sentences of a place near Lisbon, on 2026-07-14 at 09:30:00.
_FIX = ("GPRMC,093000.00,A,3842.0000,N,00908.0000,W,0.0,0.0,140726,,,A",
        "GPGGA,093000.00,3842.0000,N,00908.0000,W,1,08,1.0,50.0,M,50.0,M,,",
        "GPGSA,A,3,01,02,03,04,05,06,07,08,,,,,1.8,1.0,1.5")
_RECEIVER = """
import os, pty, sys, time, tty
ours, theirs = pty.openpty()
tty.setraw(theirs)
os.chmod(os.ttyname(theirs), 0o666)
os.symlink(os.ttyname(theirs), "/run/receiver")
def whole(text):
    sum = 0
    for character in text:
        sum ^= ord(character)
    return f"${text}*{sum:02X}\\r\\n".encode()
while True:
    for text in sys.argv[1:]:
        os.write(ours, whole(text))
    time.sleep(1)
"""


def _network_clock_after_a_start(unit):
    """What becomes of the network clock, which is on, when the daemon starts and wants it off."""
    unit.sh("timedatectl set-ntp true && systemctl restart controllerd.service")
    unit.wait_service()
    return unit.sh("timedatectl show --value -p NTP")


@case()
def _(unit):
    """clock, zone and network clock through polkit"""
    unit.wait_service()
    assert _network_clock_after_a_start(unit) == "no"
    unit.call("SetTimezone", "s", "Lisbon")
    assert unit.sh("readlink /etc/localtime").endswith("/CCU/Lisbon")
    unit.call("SetTime", "iiiiiibb", 2031, 7, 14, 9, 30, 0, "false", "false")
    year, hour, minute = unit.sh("date -u '+%Y %H %M'").split()
    assert (year, hour) == ("2031", "09") and int(minute) in range(30, 36)
    unit.see(f"clock {year}, zone CCU/Lisbon, NTP off, for {unit.sh('stat -c %U /proc/' + str(unit.pid))}")
    unit.sh(f"mv {_RULE} /root && systemctl restart polkit.service")
    refusals = [unit.refusal("SetTimezone", "s", "Madrid"),
                unit.refusal("SetTime", "iiiiiibb", 2032, 7, 14, 9, 30, 0, "false", "false")]
    assert unit.sh("readlink /etc/localtime").endswith("/CCU/Lisbon") and unit.sh("date +%Y") == "2031"
    assert _network_clock_after_a_start(unit) == "yes"
    unit.see(f"without the rule: {'; '.join(refusals)}; NTP stays on")
    unit.sh(f"mv /root/{_RULE.rpartition('/')[2]} {_RULE} && systemctl restart polkit.service")
    unit.call("SetTimezone", "s", "Madrid")
    unit.see("with the rule again: set")


@case()
def _(unit):
    """time and zone of gpsd"""
    unit.wait_service()
    assert "GPS" in unit.refusal("SetTimeGPS")
    unit.sh("cat >/run/receiver.py", stdin=_RECEIVER.encode())
    sentences = " ".join(f"'{sentence}'" for sentence in _FIX)
    unit.sh(f"systemctl -q stop gpsd.socket gpsd.service; systemd-run -q python3 /run/receiver.py {sentences}")
    unit.wait("[ -e /run/receiver ]")
    unit.sh("systemd-run -q -u receiver-gpsd gpsd -N -n $(readlink /run/receiver)")
    deadline = time.monotonic() + 120
    while unit.machine.run("busctl", "--user", "call", "com.tavilon.common.Controller1",
                           "/com/tavilon/common/Controller1", "com.tavilon.common.Controller1.Control",
                           "SetTimeGPS")[0] != 0:
        assert time.monotonic() < deadline, "never a fix"
        time.sleep(0.5)
    assert unit.sh("date -u +%F") == "2026-07-14"
    unit.call("SetTimezoneGPS")
    zone = re.sub(".*/CCU/", "", unit.sh("readlink /etc/localtime"))
    unit.see(f"the clock is the receiver's, 2026-07-14, and the zone {zone}")
    assert zone.endswith("Lisbon")


#: Errors of the controller that belong to an ordinary recording, its stop and a picture.
_USUAL = re.compile(r"StopPhotoTalk|StopAutoLog|Add(Video|Snapshot)MediaItem: sd_bus_message_read ok|"
                    r"StopAndCancelInvalidRecordings\(\) Failed to get video state .* is 'off'|"
                    r"VideoRecordCancel\(\) Failed to stop recording")


@case()
def _(unit):
    """journal of an ordinary life"""
    unit.boot_again()
    unit.wait_service()
    unit.plug_stick()
    unit.simulation("job", "Open", "ss", "card", "inspection")
    good = [0, "Ran successfully"]
    assert unit.call("VideoRecordStart", "uuu", 1280, 720, 80) == good
    for member in ("VideoRecordPause", "VideoRecordResume", "VideoRecordStop"):
        assert unit.call(member) == good, member
    assert unit.call("Snapshot", "uuu", 1280, 720, 80)[1:] == good
    unit.call("PlayAudio", "s", "beep.wav")
    unit.set("SpkrVolume", "i", 60)
    unit.machine.key(28)
    unit.call("SetTimezone", "s", "Lisbon")
    assert unit.call("Screenshot", "s", "")[1:] == good
    unit.sh("systemctl restart controllerd.service")
    unit.wait_service()
    lines = unit.sh("journalctl -b -p err --no-pager -o cat -t controllerd").splitlines()
    unusual = [line for line in lines if not _USUAL.search(line)]
    assert not unusual, "\n".join(unusual)
    unit.see(f"{len(lines)} lines of errors by the daemon, all of them an ordinary recording's")
    others = unit.sh("journalctl -b -p warning --no-pager -o cat -u controllerd.service _PID=1").splitlines()
    assert not others, "\n".join(others)
    stray = unit.sh("journalctl -b --no-pager -o cat _SYSTEMD_UNIT=controllerd.service + SYSLOG_IDENTIFIER=amixer "
                    "| grep -c 'Simple mixer control' || true")
    assert stray == "0", f"{stray} lines of the mixer's"
    unit.see("none by systemd about the service, none of amixer's talk")


def _complaints(unit):
    """What the unit's user is told not to be well, with the service's groups."""
    _, said, _ = unit.machine.run("setpriv", "--reuid", "ccu", "--regid", "ccu", "--groups", "audio,gpio,input,video",
                                  "controllerctl", "doctor", "--timeout", "120")
    assert " controller: controllerd, process " in said, said
    return re.findall(r"^(?:missing|wrong) +([^:]+):", said, re.MULTILINE)


@case()
def _(unit):
    """what controllerctl doctor finds"""
    unit.wait_service()
    unit.plug_stick()
    assert (found := _complaints(unit)) == ["gpsd"], found
    unit.see("a unit to which only gpsd is missing")
    unit.sh(f"umount /media/card && mount /dev/sda /media/card && chgrp root /dev/gpiochip4 && mv {_RULE} /root && "
            "systemctl restart polkit.service")
    unit.wait_device("card")
    found = _complaints(unit)
    assert found == ["storage card", "FAT storage", "polkit", "gpiochip", "gpsd"], found
    unit.see("a stick of root's, the chip in another group, and polkit's rule away: each of them")
