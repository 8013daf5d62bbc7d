"""The time zones that are installed on a unit: their files, and the link that says which of them is in force.

On a unit the files are in /usr/share/zoneinfo/CCU.  "London" is the zone at its standard time all year, "DST/London"
the same zone with daylight saving: one hour more from the last Sunday of March to the last Sunday of October, changing
at 01:00 UTC, in the northern hemisphere; from the first Sunday of October to the first Sunday of April, changing at
02:00 standard time, in the southern one.  The hemisphere is that of the table's latitude, the equator being northern.
"UTC" has no form with daylight saving.

The table, zone_table.tsv, is also what the unit tests hold the daemon's own table against.  It says what the units
know, which is not always what an atlas says: Lord Howe is 17 minutes and 10 seconds ahead, Alaska is in the south.

As a program it makes the files in the folder that is its argument, which the build does with its folder `zones`.
"""

import csv
import os
import re
import shutil
import subprocess
import sys
import tempfile
from typing import NamedTuple

#: Zone that is in force on a new unit.
INITIAL = "CCU/London"

_TABLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "zone_table.tsv")

#: In zic's language; 's' is the zone's standard time, 'u' UTC.
_RULES = """\
Rule North 1960 max - Mar lastSun 1:00u 1:00 D
Rule North 1960 max - Oct lastSun 1:00u 0    S
Rule South 1960 max - Apr Sun>=1  2:00s 0    S
Rule South 1960 max - Oct Sun>=1  2:00s 1:00 D
Zone UTC 0 - UTC
"""


class Zone(NamedTuple):
    """A row of the table: degrees north and east, and the seconds by which the zone's standard time is ahead of UTC."""

    name: str
    country: str
    latitude: float
    longitude: float
    offset: int

    @property
    def southern(self):
        """True when the zone's summer is at the turn of the year."""
        return self.latitude < 0


def table():
    """The zones in their order."""
    with open(_TABLE, encoding="utf-8", newline="") as file:
        rows = list(csv.reader(file, delimiter="\t"))[1:]
    return [Zone(name, country, float(latitude), float(longitude), int(offset))
            for name, country, latitude, longitude, offset in rows]


# Files ----------------------------------------------------------------------------------------------------------------


def _clock(seconds):
    sign, seconds = "-" if seconds < 0 else "", abs(seconds)
    return f"{sign}{seconds // 3600}:{seconds // 60 % 60:02}:{seconds % 60:02}"


def _source(zones):
    lines = []
    for zone in zones:
        offset, rule = _clock(zone.offset), "South" if zone.southern else "North"
        lines += [f"Zone {zone.name} {offset} - LST", f"Zone DST/{zone.name} {offset} {rule} L%sT"]
    return _RULES + "\n".join(lines) + "\n"


def make(folder):
    """Makes the zones' files; the folder appears complete, in place of what is there."""
    folder = os.path.abspath(folder)
    with tempfile.TemporaryDirectory(prefix=".zones-", dir=os.path.dirname(folder)) as work:
        made = os.path.join(work, "made")
        zic = shutil.which("zic", path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin") or "zic"
        subprocess.run([zic, "-b", "slim", "-d", made, "-"], input=_source(table()), text=True, check=True)
        if os.path.exists(folder):
            os.rename(folder, os.path.join(work, "old"))
        os.rename(made, folder)


def file_of(folder, zone):
    """The file of a zone known to the system as "CCU/...", or as "UTC"; there may be none at that place."""
    return os.path.join(folder, zone.removeprefix("CCU/"))


def is_installed(folder, zone):
    """What timedated says of a zone's full name: that it can be one, and that it has a zone file.  "UTC" always has."""
    if zone == "UTC":
        return True
    if not re.fullmatch(r"CCU(/[0-9A-Za-z_+-]+)+", zone):
        return False
    try:
        with open(file_of(folder, zone), "rb") as file:
            return file.read(4) == b"TZif"
    except OSError:
        return False


def installed(folder):
    """The full names of all zones that have a file, and "UTC"."""
    files = (os.path.join(place, name) for place, _, names in os.walk(folder) for name in names)
    zones = {"CCU/" + os.path.relpath(file, folder) for file in files}
    return sorted({"UTC", *(zone for zone in zones if is_installed(folder, zone))})


def point(link, target):
    """Re-points the link in one step, as timedated does with /etc/localtime; a link to nothing is UTC."""
    os.symlink(target, link + ".new")
    os.replace(link + ".new", link)


if __name__ == "__main__":
    make(sys.argv[1])
