"""The jobs manager daemon, as far as the controller needs it: an open job and the media items inside it, in memory."""

import os
from dataclasses import dataclass

from .faults import CODE
from .loop import on_loop
from .sibling import Sibling
from .values import complete_types, zero

SUCCEEDED, DEVICE_NOT_FOUND, NO_CURRENT_JOB, JOB_NOT_FOUND, MEDIA_NOT_FOUND, MISSING_FIELDS = 0, 2, 7, 9, 10, 11
ENTRY_EXISTS = 24

_PATH = "/com/tavilon/common/JobsManagerDaemon1"


@dataclass
class MediaItem:
    """A media item as it was added; `angles` and `reel` are the records in the order of their fields."""
    media_id: str
    device: str
    job: str
    path: str
    type: str
    rec_active: str = ""
    recovery: str = ""
    snapshot: str = ""
    angles: tuple = (False, 0, False, 0)
    reel: tuple = (False, 0, 0)
    size: int = 0
    updates: int = 0


@dataclass
class Job:
    """A job and its folder."""
    job_id: str
    device: str
    folder: str


class Refused(Exception):
    """Ends a behaviour with one of the daemon's own codes."""

    def __init__(self, code):
        super().__init__(code)
        self.code = code


class Jobs(Sibling):
    """`jobs` maps (device, job id) to a Job, `items` a media id to its MediaItem in the order of coming, `current` is
    the key of the open job or None.  Every code but 0 leaves everything as it was.

    Members that the controller has no use for succeed, do nothing, and answer nothing but that."""

    name = "jobs"
    service = "com.tavilon.common.JobsManagerDaemon1"

    def __init__(self, unit, address):
        self.jobs = {}
        self.items = {}
        self.current = None
        self._stems = 0
        self._ids = 1
        super().__init__(unit, address)
        for interface, member in self.objects[_PATH].declared.methods:
            if interface == self.service and not hasattr(self, f"on_{member}"):
                setattr(self, f"on_{member}", lambda path, *_arguments, member=member: self._shape(path, member))
        self.open("card", "job1")

    def initial_values(self, path):
        return {"TargetDeviceID": "card"}

    # From outside -----------------------------------------------------------------------------------------------------

    @on_loop
    def open(self, device="card", job="job1"):
        """Opens a job, a new one if need be, and makes it the current one."""
        if (device, job) not in self.jobs:
            self.jobs[device, job] = Job(job, device, os.path.join(self._mount(device), job))
        self.current = (device, job)

    @on_loop
    def close(self):
        """Closes the current job."""
        self.current = None

    def answer_code(self, member, code):
        """The member answers with a code and does nothing, until the returned fault is cancelled."""
        return self.unit.faults.on(self.name, member, CODE(code))

    def item_of(self, path):
        """The item of a file, or None."""
        return next((item for item in self.items.values() if item.path == path), None)

    # Parts of the behaviours ------------------------------------------------------------------------------------------

    def _mount(self, device):
        mount = self.unit.mount_point(device)
        if not mount:
            raise Refused(DEVICE_NOT_FOUND)
        return mount

    def _item_at(self, path):
        item = self.item_of(path)
        if item is None:
            raise Refused(MEDIA_NOT_FOUND)
        return item

    def _current(self):
        if self.current is None:
            raise Refused(NO_CURRENT_JOB)
        return self.jobs[self.current]

    def _shape(self, path, member, code=SUCCEEDED, values=None):
        """A code, and values if there are any, in the shape of the member's reply."""
        result = self.objects[path].declared.methods[self.service, member].result
        if result == "i":
            return code
        if result == "s":
            return ""
        return (code, *(map(zero, complete_types(result[2:-1])) if values is None else values))

    # What the behaviours do; the table at the end says which member answers in which shape ----------------------------

    def add_media(self, path, media_type, marks, metadata):
        """Adds an item to the current job."""
        job = self._current()
        if not path or not media_type:
            raise Refused(MISSING_FIELDS)
        if self.item_of(path):
            raise Refused(ENTRY_EXISTS)
        self._ids += 1
        item = MediaItem(f"media{self._ids}", job.device, job.job_id, path, media_type, *marks,
                         angles=tuple(metadata[:4]), reel=tuple(metadata[4:]))
        self.items[item.media_id] = item

    def delete_media_item(self, device, job, media_id):
        """Takes an item out of its job; its file stays."""
        self._mount(device)
        if (device, job) not in self.jobs:
            raise Refused(JOB_NOT_FOUND)
        item = self.items.get(media_id)
        if item is None or (item.device, item.job) != (device, job):
            raise Refused(MEDIA_NOT_FOUND)
        del self.items[media_id]

    def update_media_file_sizes(self, path):
        """Reads the size of an item's file."""
        item = self._item_at(path)
        item.size = os.path.getsize(path) if os.path.exists(path) else 0
        item.updates += 1

    def new_media_path_components(self):
        """Folder and file stem of the next media item."""
        folder = os.path.join(self._current().folder, "media")
        self._stems += 1
        return folder, f"{self._stems:04d}"

    def on_GetCurrentJobID(self, _path):
        """The id of the current job, empty without one."""
        return self.current[1] if self.current else ""

    def on_GetCurrentJobDeviceID(self, _path):
        """The device of the current job, empty without one."""
        return self.current[0] if self.current else ""

    def media_id(self, path):
        """The id of a file's item."""
        return (self._item_at(path).media_id,)


# Members that answer a code alone, or a structure of a code and what the function returns; it gets the arguments.
_BEHAVIOURS = {
    "DeleteMediaItem": Jobs.delete_media_item,
    "AddSnapshotMedia": lambda jobs, path, kind, *metadata: jobs.add_media(path, kind, (), metadata),
    **dict.fromkeys(("AddVideoMedia", "AddAutologMedia", "AddPhotoTalkMedia"), lambda jobs, path, kind, *rest:
                    jobs.add_media(path, kind, rest[:3], rest[3:])),
    "UpdateMediaFileSizes": Jobs.update_media_file_sizes,
    "GetNewMediaPathComponents": Jobs.new_media_path_components,
    "GetMediaID": Jobs.media_id,
}


def _answering(member, function):
    """The behaviour of a member: carries the function out and puts its outcome into the shape of the member's reply."""

    def behaviour(jobs, path, *arguments):
        try:
            return jobs._shape(path, member, SUCCEEDED, function(jobs, *arguments))
        except Refused as refused:
            return jobs._shape(path, member, refused.code)

    return behaviour


for _member, _function in _BEHAVIOURS.items():
    setattr(Jobs, f"on_{_member}", _answering(_member, _function))
