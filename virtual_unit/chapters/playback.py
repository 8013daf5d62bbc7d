"""Playback of a recording, as an operator does it, and its end when the storage is pulled out."""

import os

from ..video import PLAYBACK_PAUSED, PLAYING, STOPPED
from .captures import newest_item, start, stop

_RATE, _POSITION = 2.0, 30000
_DONE, _NO_FILE = (0, "Ran successfully"), (-2, "Playback file doesn't exist")
_REMOVED = ("PlaybackError", -3, "Storage was removed - unable to continue playback")


def play(stage):
    """Start, seek, pause, resume, rate and stop; what cannot be played; and a card that goes."""
    stage.tell("A recording is made, to be played back.")
    start(stage)
    stop(stage)
    path = newest_item(stage).path
    _refuse(stage, path)
    _watch(stage, path)
    _pull_out(stage, path)


def _check_player(stage, state, word):
    stage.check("the player is", stage.unit.video.get("PlaybackState"), state, word)


def _order(stage, member, *arguments):
    return stage.check("reply", stage.call(f"VideoPlayback{member}", *arguments), _DONE)


def _refuse(stage, path):
    stage.tell("What cannot be played does not trouble the video daemon.")
    folder, name = os.path.split(path)
    for wrong in (os.path.join(folder, "none.mp4"), name, folder):
        stage.check("reply", stage.call("VideoPlaybackStart", wrong, 1.0), _NO_FILE)
        stage.check("asked of the siblings", stage.calls, [], "nothing")


def _watch(stage, path):
    unit = stage.unit
    stage.tell("The operator watches the recording: from the start, from the middle, held, and twice as fast.")
    _order(stage, "Start", path, 1.0)
    _check_player(stage, PLAYING, "playing")
    _order(stage, "Seek", _POSITION)
    stage.check("position at the video daemon", unit.video.get("PlaybackPosition"), _POSITION)
    for member, state, word in (("Pause", PLAYBACK_PAUSED, "paused"), ("Resume", PLAYING, "playing")):
        _order(stage, member)
        _check_player(stage, state, word)
    stage.check("reply", stage.call("VideoPlaybackRate", _RATE), (), "empty")
    stage.check("rate at the video daemon", unit.video.get("PlaybackRate"), _RATE)
    stage.check("... and read back", unit.client.get("VideoPlaybackRate"), _RATE)
    _order(stage, "Stop", True)
    _check_player(stage, STOPPED, "stopped")
    stage.check("the display shows", unit.video.get("DisplayContent"), "live", "the live picture")
    stage.check_signals()


def _pull_out(stage, path):
    unit = stage.unit
    stage.tell("The card is pulled out while a file on it is played: the playback is cancelled, and clients are told.")
    _order(stage, "Start", path, 1.0)
    stage.happen("the card is pulled out", unit.storage.pull_out, "card")
    stage.check_signals(_REMOVED)
    _check_player(stage, STOPPED, "stopped")
