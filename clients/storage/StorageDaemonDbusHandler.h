#pragma once

#include "dbus_helper/DbusListener.h"
#include "dbus_helper/SdbusUtils.h"

#include <sigc++/signal.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Storaged
{

/// Client of the storage daemon, "com.tavilon.common.StorageDaemon1": internal and removable storage devices.
///
/// A device is named by its object path. Every operation is one blocking call on a user-bus connection of its own;
/// nothing is kept between calls. Results are sd-bus's: 0 or positive on success, negative errno-style on failure,
/// which is logged and leaves the out-argument as it was. Everything belongs on the loop's thread.
class StorageDaemonDbusHandler
{
  public:
    using InterfacesAddedSignal = sigc::signal<void, std::string, sdbus_utils::InterfaceMap>;
    using InterfacesRemovedSignal = sigc::signal<void, std::string, std::vector<std::string>>;
    using PropertiesChangedSignal = sigc::signal<void, std::string, sdbus_utils::PropertyMap>;

    explicit StorageDaemonDbusHandler(sd_event* event);

    /// Subscribes to these of the signals "InterfacesAdded", "InterfacesRemoved", "PropertiesChanged". Returns 0,
    /// negative errno-style on failure.
    [[nodiscard]] int32_t ListenSignals(const std::vector<std::string>& keys);

    /// An object appeared: its path, and its interfaces with their properties.
    InterfacesAddedSignal& InterfacesAdded() { return interfacesAdded_; }
    /// Interfaces of an object went away: its path and their names.
    InterfacesRemovedSignal& InterfacesRemoved() { return interfacesRemoved_; }
    /// Properties of a device changed: its path and the changes. The manager's own changes are not told.
    PropertiesChangedSignal& PropertiesChanged() { return propertiesChanged_; }

    /// The device that recordings go to by choice of the storage daemon.
    [[nodiscard]] static int32_t GetPrimaryDevice(std::string& device);
    [[nodiscard]] static int32_t GetAvailableDevices(std::vector<std::string>& devices);

    [[nodiscard]] static int32_t GetReadOnly(const std::string& device, bool& readOnly);
    /// Kind of connection, in the storage daemon's words.
    [[nodiscard]] static int32_t GetBus(const std::string& device, std::string& bus);
    [[nodiscard]] static int32_t GetSocket(const std::string& device, int32_t& socket);
    /// Folder at which the device is mounted, empty when it is not.
    [[nodiscard]] static int32_t GetMountPoint(const std::string& device, std::string& mountPoint);
    /// The device file.
    [[nodiscard]] static int32_t GetDevicePath(const std::string& device, std::string& devicePath);
    [[nodiscard]] static int32_t GetStorageSpaceBelowWarningThreshold(const std::string& device, bool& below);
    /// Below the free space that a recording needs.
    [[nodiscard]] static int32_t GetStorageSpaceBelowMinimumThreshold(const std::string& device, bool& below);
    [[nodiscard]] static int32_t GetMounted(const std::string& device, bool& mounted);
    [[nodiscard]] static int32_t GetKnownPrimary(const std::string& device, bool& known);
    [[nodiscard]] static int32_t SetKnownPrimary(const std::string& device, bool known);
    /// In bytes.
    [[nodiscard]] static int32_t GetFreeSpace(const std::string& device, uint64_t& bytes);
    [[nodiscard]] static int32_t GetId(const std::string& device, std::string& id);
    [[nodiscard]] static int32_t GetIsSafeToRemove(const std::string& device, bool& safe);

    /// Marks the device as being written to or no longer. `writer` is the storage daemon's.
    [[nodiscard]] static int32_t SetWriteActive(const std::string& device, uint8_t writer, bool active);
    [[nodiscard]] static int32_t StartFormat(const std::string& device);

    /// Object paths of all storage devices: the storage daemon's managed objects that are devices, or its
    /// "AvailableDevices" when it cannot list its objects.
    [[nodiscard]] static int32_t GetStorageObjectPaths(std::vector<std::string>& paths);

    /// The device that holds a file: the one whose mount point is the longest prefix, by whole path components, of
    /// `filename`, an absolute path. The file need not exist. -ENOENT, not logged, when no device holds it, and only
    /// then: that is an answer, everything else that is negative a question that failed. A device whose mount point
    /// cannot be asked for is passed over when another one holds the file, and is such a failure otherwise.
    [[nodiscard]] static int32_t GetPathFromFilename(const std::string& filename, std::string& storagePath);

  private:
    static int OnInterfacesAdded(sd_bus_message* message, void* userData, sd_bus_error* error);
    static int OnInterfacesRemoved(sd_bus_message* message, void* userData, sd_bus_error* error);
    static int OnPropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* error);

    DbusHelper::DbusListener listener_;
    InterfacesAddedSignal interfacesAdded_;
    InterfacesRemovedSignal interfacesRemoved_;
    PropertiesChangedSignal propertiesChanged_;
};

} // namespace Storaged
