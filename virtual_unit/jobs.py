"""The jobs manager daemon: jobs on devices and the media items inside them, all in memory."""

import json
import os
from dataclasses import dataclass, field

from .faults import CODE
from .loop import on_loop
from .sibling import Sibling
from .values import complete_types, zero

SUCCEEDED, DEVICE_NOT_FOUND, NO_CURRENT_JOB, JOB_NOT_FOUND, MEDIA_NOT_FOUND, MISSING_FIELDS = 0, 2, 7, 9, 10, 11
CURRENT_JOB_OPEN, JOB_IS_CURRENT, JOB_IS_LOCKED, INVALID_JSON, ENTRY_NOT_FOUND, ENTRY_EXISTS = 15, 16, 17, 19, 23, 24

_PATH = "/com/tavilon/common/JobsManagerDaemon1"

_JOB_TEXTS = ("Address", "Customer", "Name", "Notes", "PrivateNotes", "UserData")
_CLEARED = ("Address", "Customer")
_MEDIA_TEXTS = ("Name", "Notes", "PrivateNotes", "UserData")
_COUNTED = ("snapshot", "video recording", "photoTalk recording", "autolog recording")
_CRITERIA = (lambda text, wanted: wanted in text, str.startswith, str.__eq__)


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
    included: int = 1
    texts: dict = field(default_factory=dict)

    def to_json(self):
        """The item as the user interface gets it."""
        return json.dumps({"id": self.media_id, "path": self.path, "type": self.type, "size": self.size, **self.texts})


@dataclass
class Job:
    """A job: its folder, its texts and its contacts."""
    job_id: str
    device: str
    folder: str
    locked: bool = False
    texts: dict = field(default_factory=dict)
    contacts: list = field(default_factory=list)

    def to_json(self):
        """The job as the user interface gets it."""
        return json.dumps({"id": self.job_id, "device": self.device, "locked": self.locked, "contacts": self.contacts,
                           **self.texts})


class Refused(Exception):
    """Ends a behaviour with one of the daemon's own codes."""

    def __init__(self, code):
        super().__init__(code)
        self.code = code


class Jobs(Sibling):
    """`jobs` maps (device, job id) to a Job, `items` a media id to its MediaItem in the order of coming, `current` is
    the key of the open job or None.  Every code but 0 leaves everything as it was."""

    name = "jobs"
    service = "com.tavilon.common.JobsManagerDaemon1"

    def __init__(self, unit, address):
        self.jobs = {}
        self.items = {}
        self.current = None
        self._stems = 0
        self._ids = 1  # the first job has it
        self._found = []
        super().__init__(unit, address)
        self.open("card", "job1")

    def initial_values(self, path):
        return {"TargetDeviceID": "card"}

    # From outside -----------------------------------------------------------------------------------------------------

    @on_loop
    def open(self, device="card", job="job1"):
        """Opens a job, a new one if need be, and makes it the current one."""
        if (device, job) not in self.jobs:
            self._add_job(device, job, {"name": job})
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

    def _add_job(self, device, job, texts):
        folder = os.path.join(self._mount(device), job)
        self.jobs[device, job] = Job(job, device, folder, texts=texts)
        return self.jobs[device, job]

    def _new_id(self, kind):
        self._ids += 1
        return f"{kind}{self._ids}"

    def _mount(self, device):
        mount = self.unit.mount_point(device)
        if not mount:
            raise Refused(DEVICE_NOT_FOUND)
        return mount

    def _job(self, device, job):
        self._mount(device)
        if (device, job) not in self.jobs:
            raise Refused(JOB_NOT_FOUND)
        return self.jobs[device, job]

    def _idle_job(self, device, job):
        found = self._job(device, job)
        if self.current == (device, job):
            raise Refused(JOB_IS_CURRENT)
        if found.locked:
            raise Refused(JOB_IS_LOCKED)
        return found

    def _contact(self, device, job, index):
        contacts = self._job(device, job).contacts
        if not 0 <= index < len(contacts):
            raise Refused(ENTRY_NOT_FOUND)
        return contacts

    def _item(self, device, job, media_id):
        self._job(device, job)
        item = self.items.get(media_id)
        if item is None or (item.device, item.job) != (device, job):
            raise Refused(MEDIA_NOT_FOUND)
        return item

    def _items_of(self, device, job):
        return [item for item in self.items.values() if (item.device, item.job) == (device, job)]

    def _idle_jobs(self, device):
        self._mount(device)
        return [job for (where, job), item in self.jobs.items()
                if where == device and self.current != (device, job) and not item.locked]

    def _current(self):
        if self.current is None:
            raise Refused(NO_CURRENT_JOB)
        return self.jobs[self.current]

    def _counts(self, device, job):
        self._job(device, job)
        types = [item.type for item in self._items_of(device, job)]
        return (*map(types.count, _COUNTED), len(types))

    def _add_media(self, path, media_type, marks, metadata):
        job = self._current()
        if not path or not media_type:
            raise Refused(MISSING_FIELDS)
        if self.item_of(path):
            raise Refused(ENTRY_EXISTS)
        item = MediaItem(self._new_id("media"), job.device, job.job_id, path, media_type, *marks,
                         angles=tuple(metadata[:4]), reel=tuple(metadata[4:]))
        self.items[item.media_id] = item

    def _delete(self, device, job):
        self._idle_job(device, job)
        del self.jobs[device, job]
        for item in self._items_of(device, job):
            del self.items[item.media_id]

    def _transfer(self, source, job, target, keep):
        found = self._job(source, job) if keep else self._idle_job(source, job)
        folder = os.path.join(self._mount(target), job)
        if (target, job) in self.jobs:
            raise Refused(ENTRY_EXISTS)
        self.jobs[target, job] = Job(job, target, folder, texts=dict(found.texts), contacts=list(found.contacts))
        if not keep:
            self._delete(source, job)

    def _delete_all(self, device, jobs=None):
        for job in self._idle_jobs(device) if jobs is None else jobs:
            self._delete(device, job)

    def _transfer_all(self, source, target, jobs, keep):
        if jobs is None:
            self._mount(target)
            jobs = [job for device, job in self.jobs if device == source] if keep else self._idle_jobs(source)
        for job in jobs:
            self._transfer(source, job, target, keep)

    def _page(self, jobs, offset, count):
        return json.dumps([json.loads(job.to_json()) for job in jobs[offset:offset + count]])

    def _jobs_on(self, device):
        self._mount(device)
        return [job for (where, _), job in self.jobs.items() if where == device]

    # What the behaviours do; the table at the end says which member answers in which shape ----------------------------

    def set_target_device(self, device):
        """Chooses the device for new jobs."""
        self._mount(device)
        self.set_property(_PATH, "TargetDeviceID", device)

    def delete_media_item(self, device, job, media_id):
        """Takes an item out of its job; its file stays."""
        del self.items[self._item(device, job, media_id).media_id]

    def search_jobs(self, device, text, criterion, count, case_sensitive):
        """Finds jobs by their name, for "GetSearchResults"."""
        fold = (lambda name: name) if case_sensitive else str.lower
        matches = _CRITERIA[min(criterion, len(_CRITERIA) - 1)]
        self._found = [job for job in self._jobs_on(device)
                       if matches(fold(job.texts.get("name", "")), fold(text))][:count]

    def update_media_file_sizes(self, path):
        """Reads the size of an item's file."""
        item = self.item_of(path)
        if item is None:
            raise Refused(MEDIA_NOT_FOUND)
        item.size = os.path.getsize(path) if os.path.exists(path) else 0
        item.updates += 1

    def update_job_contact(self, device, job, text):
        """Replaces the contact that the text's "index" names."""
        try:
            index = int(json.loads(text)["index"])
        except (ValueError, KeyError, TypeError):
            raise Refused(INVALID_JSON) from None
        self._contact(device, job, index)[index] = text

    def add_job_contact(self, device, job, text):
        """Adds a contact and tells its index."""
        contacts = self._job(device, job).contacts
        contacts.append(text)
        return (len(contacts) - 1,)

    def remove_job_contact(self, device, job, index):
        """Removes one contact."""
        del self._contact(device, job, index)[index]

    def new_media_path_components(self):
        """Folder and file stem of the next media item."""
        folder = os.path.join(self._current().folder, "media")
        self._stems += 1
        return folder, f"{self._stems:04d}"

    def create_job(self, device, text):
        """Makes a job from its JSON text and opens it."""
        if self.current is not None:
            raise Refused(CURRENT_JOB_OPEN)
        self._mount(device)
        try:
            texts = dict(json.loads(text)) if text else {}
        except (ValueError, TypeError):
            raise Refused(INVALID_JSON) from None
        job = self._add_job(device, self._new_id("job"), texts)
        self.current = (device, job.job_id)
        return job.job_id, job.to_json()

    def open_job(self, device, job):
        """Opens a job."""
        if self.current is not None:
            raise Refused(CURRENT_JOB_OPEN)
        found = self._job(device, job)
        self.current = (device, job)
        return job, found.to_json()

    def close_job(self):
        """Closes the current job and tells its id."""
        job = self._current()
        self.current = None
        return (job.job_id,)

    def on_GetCurrentJobID(self, _path):
        """The id of the current job, empty without one."""
        return self.current[1] if self.current else ""

    def on_GetCurrentJobDeviceID(self, _path):
        """The device of the current job, empty without one."""
        return self.current[0] if self.current else ""

    def media_id(self, path):
        """The id of a file's item."""
        item = self.item_of(path)
        if item is None:
            raise Refused(MEDIA_NOT_FOUND)
        return (item.media_id,)


# Members that answer a code alone, or a structure of a code and what the function returns; it gets the arguments.
_BEHAVIOURS = {
    "SetTargetDeviceID": Jobs.set_target_device,
    "MoveJob": lambda jobs, source, job, target: jobs._transfer(source, job, target, keep=False),
    "CopyJob": lambda jobs, source, job, target: jobs._transfer(source, job, target, keep=True),
    "MoveAllJobs": lambda jobs, source, target: jobs._transfer_all(source, target, None, keep=False),
    "CopyAllJobs": lambda jobs, source, target: jobs._transfer_all(source, target, None, keep=True),
    "MoveJobList": lambda jobs, source, target, listed: jobs._transfer_all(source, target, listed, keep=False),
    "CopyJobList": lambda jobs, source, target, listed: jobs._transfer_all(source, target, listed, keep=True),
    "CancelCMD": lambda jobs, device: None,
    "DeleteJob": Jobs._delete,
    "DeleteAllJobs": Jobs._delete_all,
    "DeleteJobList": Jobs._delete_all,
    "DeleteMediaItem": Jobs.delete_media_item,
    "FindJobs": lambda jobs, device: jobs._mount(device) and None,
    "ConvertJobs": lambda jobs, device: jobs._mount(device) and None,
    "SearchJobs": Jobs.search_jobs,
    "AddSnapshotMedia": lambda jobs, path, kind, *metadata: jobs._add_media(path, kind, (), metadata),
    **dict.fromkeys(("AddVideoMedia", "AddAutologMedia", "AddPhotoTalkMedia"), lambda jobs, path, kind, *rest:
                    jobs._add_media(path, kind, rest[:3], rest[3:])),
    "UpdateMediaFileSizes": Jobs.update_media_file_sizes,
    "GetJobMediaCounts": Jobs._counts,
    "CurrentJobMediaCounts": lambda jobs: jobs._counts(jobs._current().device, jobs._current().job_id),
    "UpdateJobContact": Jobs.update_job_contact,
    "AddJobContact": Jobs.add_job_contact,
    "RemoveJobContacts": lambda jobs, device, job: jobs._job(device, job).contacts.clear(),
    "RemoveJobContact": Jobs.remove_job_contact,
    "GetJobContact": lambda jobs, device, job, index: (jobs._contact(device, job, index)[index],),
    "GetJobContacts": lambda jobs, device, job: (json.dumps(jobs._job(device, job).contacts),),
    "GetJobLocked": lambda jobs, device, job: (jobs._job(device, job).locked,),
    "SetJobLocked": lambda jobs, device, job, locked: setattr(jobs._job(device, job), "locked", locked),
    "GetMediaIsIncludedInReport": lambda jobs, *key: (jobs._item(*key).included,),
    "SetMediaIsIncludedInReport": lambda jobs, *rest: setattr(jobs._item(*rest[:3]), "included", rest[3]),
    "CloseJob": Jobs.close_job,
    "GetNewMediaPathComponents": Jobs.new_media_path_components,
    "CreateJob": Jobs.create_job,
    "OpenJob": Jobs.open_job,
    "GetJob": lambda jobs, device, job: (jobs._job(device, job).to_json(),),
    "GetJobFolderPath": lambda jobs, device, job: (jobs._job(device, job).folder,),
    "GetJobListStats": lambda jobs, device: (json.dumps({"count": len(jobs._jobs_on(device))}),),
    "GetJobList": lambda jobs, device, _field, _order, *page: (jobs._page(jobs._jobs_on(device), *page),),
    "GetSearchStats": lambda jobs, _device: (json.dumps({"count": len(jobs._found)}),),
    "GetSearchResults": lambda jobs, _device, *page: (jobs._page(jobs._found, *page),),
    "GetMediaID": Jobs.media_id,
    "GetMediaItem": lambda jobs, *key: (jobs._item(*key).to_json(),),
}


def _make_text_behaviours(owner, names, find, count):
    """Getters and setters of the texts of a job or of a media item, which is named by `count` arguments."""
    for name in names:
        key = name[0].lower() + name[1:]
        _BEHAVIOURS[f"Set{owner}{name}"] = lambda jobs, *rest, key=key: find(jobs, *rest[:count]).texts.update(
            {key: rest[count]})
        _BEHAVIOURS[f"Get{owner}{name}"] = lambda jobs, *rest, key=key: (find(jobs, *rest).texts.get(key, ""),)
        if name in _CLEARED and owner == "Job":
            _BEHAVIOURS[f"Clear{owner}{name}"] = lambda jobs, *rest, key=key: find(jobs, *rest).texts.update(
                {key: ""})


def _answering(member, function):
    """The behaviour of a member: carries the function out and puts its outcome into the shape of the member's reply."""

    def behaviour(jobs, path, *arguments):
        result = jobs.objects[path].declared.methods[jobs.service, member].result
        try:
            code, values = SUCCEEDED, function(jobs, *arguments)
        except Refused as refused:
            code, values = refused.code, None
        if result == "i":
            return code
        return (code, *(tuple(map(zero, complete_types(result[2:-1]))) if values is None else values))

    return behaviour


_make_text_behaviours("Job", _JOB_TEXTS, Jobs._job, 2)
_make_text_behaviours("Media", _MEDIA_TEXTS, Jobs._item, 3)
for _member, _function in _BEHAVIOURS.items():
    setattr(Jobs, f"on_{_member}", _answering(_member, _function))
