"""The three kinds of recording, one after another into the same job."""

from ..stage import ANSWERS
from .captures import PICTURE, files, newest_item

#: Members, name at the video daemon, file and media item of each kind.
_KINDS = (
    ("VideoRecord", "video", "0001.mp4", "video recording"),
    ("PhotoTalkRecord", "photoTalk", "0002-photoTalk.mp4", "photoTalk recording"),
    ("AutoLogRecord", "autolog", "0003-autolog.mp4", "autolog recording"),
)
_LIMITS = (
    ("video", 2, "Video file size limit reached."),
    ("photoTalk", 1, "PhotoTalk file size limit reached."),
    ("autolog", 0, "Autolog file size limit reached."),
)


def play(stage):
    """Each kind from its start to its end, then all of them at their size limit."""
    stage.tell("A plain video recording, a photoTalk and an autoLog differ in their members, files and media items; what "
               "is checked, asked and kept up to date is the same.")
    for members, name, file, media_type in _KINDS:
        _record(stage, members, name, file, media_type)
    stage.check("files left on the card", files(stage), [file for _, _, file, _ in _KINDS])
    stage.check_signals()
    _fill(stage)


def _record(stage, members, name, file, media_type):
    unit = stage.unit
    stage.order(0, f"{members}Start", *PICTURE)
    item = newest_item(stage)
    stage.check("item in the job", (item.type, item.path.rsplit("/", 1)[1]), (media_type, file),
                f"{item.type} {item.path}")
    stage.order(0, f"{members}Pause")
    stage.order(0, f"{members}Resume")
    stage.happen("the file grows by 32768 bytes", unit.video.grow, name, size=32768)
    stage.order(0, f"{members}Stop")
    stage.check("size of the item", item.size, 1024 + 32768, f"{item.size} bytes")


def _fill(stage):
    unit = stage.unit
    stage.tell("All three can run at once. Each that nears its size limit is stopped and saved, and clients are told "
               "which it was.")
    for members, *_ in _KINDS:
        stage.order(0, f"{members}Start", *PICTURE)
    for name, code, text in _LIMITS:
        stage.happen(f"the {name} file nears its limit", unit.video.grow, name, approaching_limit=True)
        stage.check_signals(("CaptureSizeLimitReached", code, text))
    stage.check("recordings still running", [name for _, name, *_ in _KINDS if unit.video.state(name)], [], "none")
    reply = stage.call("VideoRecordStop")
    stage.check("a stop of what has stopped", reply, (-1, ANSWERS[-1]))
