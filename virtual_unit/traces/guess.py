"""What a trace of a real unit tells of its files, which are on no bus: the folders that the daemon works in, and
whether a file is there."""

import os

from .file import Unreadable
from .story import Kind

#: Members that make a file, their first argument, when they answer 0; those of recordings have the recovery file next.
_MAKE = ("StartRecording", "StartPhotoTalk", "StartAutoLog", "Snapshot")
_START, _STOP = "Start", "Stop"
_NO_FILE = -2


def _mount_points(value):
    """The mount points of storage devices that a body tells of."""
    if isinstance(value, dict):
        found = value.get("MountPoint")
        if isinstance(found, tuple) and found[1]:
            yield found[1]
        value = list(value.values())
    if isinstance(value, (list, tuple)):
        for item in value:
            yield from _mount_points(item)


def _texts(value):
    """The texts in a body."""
    if isinstance(value, str):
        yield value
    elif isinstance(value, (list, tuple)):
        for item in value:
            yield from _texts(item)


class Guess:
    """Keeps the files of one unit as the trace lets them be seen.

    places  the folders of the recorded unit, each with the one that stands for it here, longer ones first
    """

    def __init__(self, story, folder):
        self._story = story
        self._recovery = {}
        self._playing = None
        mounted = dict.fromkeys(place.rstrip("/") for step in story.steps if step.kind in (Kind.SIGNAL, Kind.REPLY)
                                for place in _mount_points(step.captured.body))
        others = dict.fromkeys(text.rstrip("/") for step in story.steps for text in self._folders(step))
        climbing = next((place for place in (*mounted, *others) if ".." in place.split("/")), None)
        if climbing:
            raise Unreadable(f"the trace works in {climbing}, which may be anywhere")
        roots = [*mounted, *(one for one in others if not any(f"{one}/".startswith(f"{place}/") for place in mounted))]
        self.places = [(place, os.path.join(folder, "places", str(number)))
                       for number, place in enumerate(roots, 1) if place.startswith("/")]
        self.places.sort(key=lambda place: -len(place[0]))
        for there in (*mounted, *others):
            here = self._here(f"{there}/")
            if here and (there in mounted or self._has_screenshot(there)):
                os.makedirs(here, exist_ok=True)

    @staticmethod
    def _folders(step):
        """Folders in which the daemon is to make files."""
        if step.kind is Kind.REQUEST and step.name == "Screenshot":
            return [text for text in _texts(step.captured.body) if text.startswith("/")]
        if step.kind is Kind.REPLY and step.who == "jobs" and step.name == "GetNewMediaPathComponents":
            return [text for text in _texts(step.captured.body) if text.startswith("/")]
        return []

    def _has_screenshot(self, folder):
        return any(step.kind is Kind.ANSWER and step.name == "Screenshot" and "Bad directory" not in step.captured.body
                   and step.question.captured.body[0].rstrip("/") == folder for step in self._story.steps)

    def _here(self, path):
        """Where a file lies here; None when it is in no place of the trace."""
        for there, here in self.places:
            if path.startswith(there + "/") and ".." not in path.split("/"):
                return here + path[len(there):]
        return None

    def _make(self, path):
        place = self._here(path)
        if place is not None:
            os.makedirs(os.path.dirname(place), exist_ok=True)
            with open(place, "ab") as file:
                file.write(b"\0")

    def _remove(self, path):
        place = self._here(path)
        if place is not None and os.path.isfile(place):
            os.unlink(place)

    def before(self, step):
        """Something is about to happen: a file is played that was there or not, a storage goes with it."""
        if step.kind is Kind.REQUEST and step.name == "VideoPlaybackStart" and step.answer is not None:
            self._playing = step.captured.body[0]
            gone = step.answer.captured.body[:1] == (_NO_FILE,)
            (self._remove if gone else self._make)(self._playing)
        elif step.kind is Kind.SIGNAL and step.who == "storage" and self._playing and self._ends_playback(step):
            self._remove(self._playing)

    def _ends_playback(self, step):
        for later in self._story.steps[step.number:]:
            if later.kind is Kind.REQUEST:
                break
            if later.kind is Kind.TOLD and later.name == "PlaybackError":
                return True
        return False

    def answered(self, call):
        """The video daemon has done what it was told, or has not."""
        if call.whom != "video" or call.answer.captured.body[:1] != (0,):
            return
        name, arguments = call.name, call.captured.body
        if name in _MAKE:
            self._make(arguments[0])
        if name in _MAKE and name.startswith(_START):
            self._recovery[name.removeprefix(_START)] = arguments[1]
        elif name.startswith(_STOP):
            self._remove(self._recovery.pop(name.removeprefix(_STOP), ""))
