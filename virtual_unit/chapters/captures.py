"""What the chapters about recordings share."""

import os

#: Width, height and quality of the picture that goes with a recording.
PICTURE = (1920, 1080, 90)

OFF, RECORDING, PAUSED = 0, 1, 2


def start(stage, code=0):
    """Orders a recording, which must be answered with the code; returns whether it was."""
    return stage.order(code, "VideoRecordStart", *PICTURE)


def stop(stage):
    """Stops the recording and saves it."""
    return stage.order(0, "VideoRecordStop")


def files(stage):
    """Names of all files in the media folder of the job, hidden ones first."""
    folder = os.path.join(stage.unit.jobs.jobs["card", "job1"].folder, "media")
    return sorted(os.listdir(folder)) if os.path.isdir(folder) else []


def newest_item(stage):
    """The media item that was added last."""
    items = list(stage.unit.jobs.items.values())
    if not items:
        raise LookupError("the job has no media item")
    return items[-1]


def size_of(item):
    """Size of an item's file in bytes, None when there is no such file."""
    return os.path.getsize(item.path) if os.path.exists(item.path) else None


def check_size(stage, item):
    """Compares the size that the job has for the recording with that of the file."""
    stage.check("size in the job, as of the file", item.size, size_of(item), f"{item.size} bytes")


def check_daemon_goes_on(stage, pid):
    """Shows that the same daemon as before makes a whole recording."""
    start(stage)
    stop(stage)
    stage.check("the daemon goes on", (stage.unit.daemon_alive, stage.unit.pid), (True, pid), f"as process {pid}")
