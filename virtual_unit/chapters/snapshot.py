"""Snapshots: a picture in the job, and what happens when the picture or its record cannot be made."""

import os

from ..faults import CODE
from ..stage import ANSWERS
from .captures import files, newest_item

_ORDER = (1920, 1080, 90)
#: What makes a snapshot; between the last two, camera and reel are asked what a recording asks of them, too.
_MAKING = [("jobs", "GetNewMediaPathComponents"), ("video", "Snapshot"), ("jobs", "AddSnapshotMedia")]


def play(stage):
    """A picture that is taken, and three that meet trouble."""
    _take(stage)
    _without_job(stage)
    _refuse(stage)
    _without_record(stage)
    stage.check_signals()


def _snapshot(stage, name, code=0):
    """Orders a snapshot, which must be answered with the path of that name and the code."""
    path = os.path.join(stage.unit.media, "job1", "media", name) if name else ""
    reply = stage.call("Snapshot", *_ORDER)
    stage.check("reply", reply, (path, code, ANSWERS[code]), f'"{path}", {code} "{ANSWERS[code]}"')


def _take(stage):
    stage.tell("A client takes a picture into the open job, which gets it together with where the camera was: how it "
               "was turned and tilted, and how much cable was out.")
    _snapshot(stage, "0001.jpeg")
    stage.check("asked, in this order", [call for call in stage.calls if call in _MAKING], _MAKING,
                ", ".join(member for _, member in _MAKING))
    stage.check("files", files(stage), ["0001.jpeg"])
    item = newest_item(stage)
    stage.check("item in the job", (item.type, os.path.basename(item.path)), ("snapshot", "0001.jpeg"),
                f"{item.type} {item.path}")
    stage.check("camera", item.angles, (True, 12, True, -3), "turned 12, tilted -3")
    stage.check("reel", item.reel, (True, 1234, 234), "1234 cm absolute, 234 cm relative")


def _without_job(stage):
    stage.tell("Without an open job there is no place for a picture.")
    stage.happen("the current job is closed", stage.unit.jobs.close)
    _snapshot(stage, "", -7)
    stage.unit.jobs.open()
    stage.unit.settle()


def _refuse(stage):
    stage.tell("The video daemon breaks off in the middle of the file, and nothing is left there.")

    def write_part(_object, path, *_order):
        with open(path, "wb") as file:
            file.write(b"\xff\xd8 and no more")
        return -1

    before = files(stage)
    stage.unit.video.on_Snapshot = write_part
    _snapshot(stage, "", -1)
    del stage.unit.video.on_Snapshot
    stage.check("files", files(stage), before)


def _without_record(stage):
    unit = stage.unit
    stage.tell("The jobs manager does not take the media item. The picture exists, so that is no failure of the "
               "capture; the log tells of it.")
    fault = unit.faults.on("jobs", "AddSnapshotMedia", CODE(3))
    items = list(unit.jobs.items)
    reply = stage.call("Snapshot", *_ORDER)
    fault.cancel()
    path = reply[0] if isinstance(reply, tuple) else ""
    stage.check("reply", reply, (path, 0, ANSWERS[0]), f'"{path}", 0 "{ANSWERS[0]}"')
    stage.check("the picture is there", bool(path) and os.path.exists(path), True)
    stage.check("items added to the job", [item for item in unit.jobs.items if item not in items], [], "none")
    stage.check("the log tells of it", any("Failed to add snapshot media item. Error: Failed: Filesystem is read only"
                                           in text for text in unit.log.texts()), True)
