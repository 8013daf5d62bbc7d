"""The storage daemon: a manager object and the devices, which come and go."""

import os
import shutil

from .loop import on_loop
from .sibling import Sibling
from .declaration import OBJECT_MANAGER

_ROOT = "/com/tavilon/common/StorageDaemon1"
_PROTOTYPE = _ROOT + "/device"

#: Where the two devices of a unit sit: (bus, socket, device file, known as primary).
_PLACES = {"internal": ("mmc", 0, "/dev/mmcblk0p4", True)}
_CARD_PLACE = ("usb", 1, "/dev/sda1", False)
_FREE_BYTES = 8 * 1024 ** 3
#: Behind the name of a device's folder while the device is pulled out.
_PULLED = "-pulled"


class Storage(Sibling):
    """Devices are named by their id, the last part of their object path; `writes` and `formats` note the orders."""

    name = "storage"
    service = "com.tavilon.common.StorageDaemon1"

    def __init__(self, unit, address):
        self.writes = []
        self.formats = []
        #: The devices on which nothing new can be made.
        self.full = []
        super().__init__(unit, address)
        for device in ("internal", "card"):
            self.add_device(device, self.usual_mount_point(device))

    @staticmethod
    def device_path(device):
        """Object path of a device."""
        return f"{_ROOT}/{device}"

    def devices(self):
        """The ids of the devices that are there, in the order of their coming."""
        return [path[len(_ROOT) + 1:] for path in self.objects if path != _ROOT]

    def mount_point(self, device):
        """Where a device is mounted; empty when it is not, None when there is no such device."""
        item = self.objects.get(self.device_path(device))
        return item and item.values["MountPoint"]

    def usual_mount_point(self, device):
        """Where a device is mounted unless a test says otherwise."""
        return os.path.join(self.unit.directory, "media", device)

    @property
    def primary(self):
        """The device that counts as primary; empty without any."""
        return self.get_property(_ROOT, "PrimaryDevice")[len(_ROOT) + 1:]

    @on_loop
    def add_device(self, device, mount_point):
        """A device is plugged in and mounted; its folder is made."""
        os.makedirs(mount_point, exist_ok=True)
        bus, socket, file, primary = _PLACES.get(device, _CARD_PLACE)
        path = self.device_path(device)
        self.add_object(path, like=_PROTOTYPE, values={
            "Bus": bus, "Socket": socket, "DevicePath": file, "KnownPrimary": primary, "Id": device,
            "MountPoint": mount_point, "IsMounted": True, "FreeSpace": _FREE_BYTES})
        self.emit(_ROOT, OBJECT_MANAGER, "InterfacesAdded", path, self.managed_interfaces(path))
        self._follow_devices()

    @on_loop
    def remove_device(self, device):
        """A device is pulled out: its object goes without further notice."""
        path = self.device_path(device)
        interfaces = list(self.managed_interfaces(path))
        self.remove_object(path)
        self.emit(_ROOT, OBJECT_MANAGER, "InterfacesRemoved", path, interfaces)
        self._follow_devices()

    @on_loop
    def pull_out(self, device, keep_files=False):
        """A device is pulled out, and what is on it is gone with it unless its files are to stay."""
        mount_point = self.mount_point(device)
        if mount_point and not keep_files:
            os.rename(mount_point, self.usual_mount_point(device) + _PULLED)
        self.remove_device(device)

    @on_loop
    def plug_in(self, device):
        """A device is plugged in and mounted at its usual place, with what was on it when it was pulled out."""
        mount_point = self.usual_mount_point(device)
        if os.path.isdir(mount_point + _PULLED):
            shutil.rmtree(mount_point, ignore_errors=True)  # what was made at the empty place is beneath the mount
            os.rename(mount_point + _PULLED, mount_point)
        self.add_device(device, mount_point)

    def _follow_devices(self):
        paths = [self.device_path(device) for device in self.devices()]
        known = [path for path in paths if self.get_property(path, "KnownPrimary")]
        primary = (known or paths or [""])[0]
        self.set_properties(_ROOT, {"AvailableDevices": paths, "PrimaryDevice": primary})

    def set_device(self, device, **changes):
        """Sets properties of a device by their names, in one PropertiesChanged."""
        self.set_properties(self.device_path(device), changes)

    def unmount(self, device):
        """A device is unmounted and stays plugged in."""
        self.set_device(device, IsMounted=False, MountPoint="", IsSafeToRemove=True)

    def mount(self, device, mount_point):
        """An unmounted device is mounted again."""
        os.makedirs(mount_point, exist_ok=True)
        self.set_device(device, IsMounted=True, MountPoint=mount_point, IsSafeToRemove=False)

    def set_low(self, device, low=True):
        """A device runs below its minimum free space, or recovers."""
        self.set_device(device, StorageIsBelowMinimumLevel=low)

    @on_loop
    def set_full(self, device, full=True):
        """Nothing is free on a device, so that nothing new can be made there; or there is space again."""
        self.full = [other for other in self.full if other != device] + [device] * full
        self.list_full_devices()
        self.set_device(device, FreeSpace=0 if full else _FREE_BYTES, StorageIsBelowWarningLevel=full,
                        StorageIsBelowMinimumLevel=full)

    def list_full_devices(self):
        """Tells the daemon's library where nothing new can be made."""
        with open(self.unit.full_devices_file, "w", encoding="utf-8") as file:
            file.writelines(f"{self.mount_point(one)}/*\n" for one in self.full if self.mount_point(one))

    def has_room(self, path):
        """False when a file is on a full device."""
        return not any(self.mount_point(one) and path.startswith(self.mount_point(one) + "/") for one in self.full)

    def set_read_only(self, device, read_only=True):
        """A device becomes read-only, or writable again."""
        self.set_device(device, ReadOnly=read_only)

    # Behaviours -------------------------------------------------------------------------------------------------------

    def on_SetWriteActive(self, path, writer, active):
        """Notes who writes to the device."""
        self.writes.append((path, writer, active))

    def on_StartFormat(self, path):
        """Notes the order; nothing is formatted."""
        self.formats.append(path)
