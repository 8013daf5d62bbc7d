"""A recording that must end early, because of its storage or its size."""

import os

from .captures import OFF, RECORDING, check_size, files, newest_item, start

_LOW = ("CaptureError", -3, "Storage is too low - unable to continue recording")
_LOST = ("CaptureError", -4, "Storage was removed - unable to continue recording")
_LARGE = ("CaptureSizeLimitReached", 2, "Video file size limit reached.")


def play(stage):
    """Low, read-only and full storage save the recording; a storage that is gone cannot."""
    storage = stage.unit.storage
    for text, event, action, signal, undo in (
            ("The card runs below its minimum of free space: what there is is saved.", "the card runs low",
             lambda: storage.set_low("card"), _LOW, lambda: storage.set_low("card", False)),
            ("The card becomes read-only: saved as far as it goes.", "the card becomes read-only",
             lambda: storage.set_read_only("card"), _LOST, lambda: storage.set_read_only("card", False)),
            ("The file comes near the largest size that the card's file system can hold.", "the file nears its limit",
             lambda: stage.unit.video.grow(approaching_limit=True), _LARGE, lambda: None)):
        stage.tell(text)
        _interrupt(stage, event, action)
        stage.check_signals(signal)
        _check_saved(stage)
        undo()
        stage.unit.settle()
    _pull_out(stage)
    _keep_another(stage)


def _interrupt(stage, event, action):
    """Starts a recording, lets it grow, and makes something happen to it."""
    start(stage)
    stage.happen("the file grows by 50000 bytes", stage.unit.video.grow, size=50000)
    stage.happen(event, action)


def _check_saved(stage):
    item = newest_item(stage)
    stage.check("the video daemon is", stage.unit.video.state(), OFF, "off")
    stage.check("its files now", _files_of(stage, item), [os.path.basename(item.path)])
    check_size(stage, item)


def _files_of(stage, item):
    stem = os.path.splitext(os.path.basename(item.path))[0]
    return [name for name in files(stage) if stem in name]


def _pull_out(stage):
    unit = stage.unit
    stage.tell("The card is pulled out: nothing can be saved. The job keeps the size that it had last, and the marker "
               "stays, so that the recording is found and mended when the card comes back.")
    mount = unit.media
    _interrupt(stage, "the card is pulled out", lambda: unit.storage.remove_device("card"))
    asked = stage.calls
    stage.check_signals(_LOST)
    item = newest_item(stage)
    stage.check("the video daemon is", unit.video.state(), OFF, "off")
    stage.check("sizes asked for once more", asked.count(("jobs", "UpdateMediaFileSizes")), 0, "no")
    stage.check("its files, seen in a card reader", _files_of(stage, item), [".0004-recActive", "0004.mp4"])
    stage.happen("the card is put back", unit.storage.add_device, "card", mount)


def _keep_another(stage):
    stage.tell("What happens to another storage is no business of the recording.")
    _interrupt(stage, "the internal storage runs low", lambda: stage.unit.storage.set_low("internal"))
    stage.check_signals()
    stage.check("the video daemon is", stage.unit.video.state(), RECORDING, "recording")
    stage.order(0, "VideoRecordStop")
