#include "clients/storage/StorageDaemonDbusHandler.h"

#include "clients/storage/StorageEndpoints.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string_view>

namespace Storaged
{

using Handler = StorageDaemonDbusHandler;

namespace
{

using DbusHelper::Endpoint;
using DbusHelper::Outcome;
using DbusHelper::signatureOf;
using DbusHelper::Step;

Endpoint DeviceAt(const std::string& device)
{
    return {manager.service, DbusHelper::WireText(device), deviceInterface};
}

/// How a property operation appears in its failure line: the operation's signature text and the property's constant.
struct Names
{
    const char* operation;
    const char* constant;
};

template <typename T>
int32_t Get(const Names& names, const Endpoint& endpoint, const char* property, T& value)
{
    const Outcome outcome = DbusHelper::GetPropertyOn(nullptr, endpoint, property, value);
    if (!outcome.Ok())
    {
        Log::Error("%s: sdbus_utils::GetProperty %s failed %s", names.operation, names.constant,
                   outcome.errorText.c_str());
    }
    return outcome.result;
}

template <typename T>
int32_t Set(const Names& names, const Endpoint& endpoint, const char* property, const T& value)
{
    const Outcome outcome = DbusHelper::SetPropertyOn(nullptr, endpoint, property, value);
    if (!outcome.Ok())
    {
        Log::Error("%s: sdbus_utils::SetProperty %s failed %s", names.operation, names.constant,
                   outcome.errorText.c_str());
    }
    return outcome.result;
}

/// An order to a device, which answers nothing.
template <typename... In>
int32_t Call(const std::string& device, const char* member, const In&... arguments)
{
    const Outcome outcome = DbusHelper::Call(DeviceAt(device), member, std::tie(), arguments...);
    if (outcome.step == Step::Open)
    {
        Log::Error("%s: sd_bus_open_user failed r = %d", member, outcome.result);
    }
    else if (!outcome.Ok())
    {
        Log::Error("%s: sd_bus_call_method failed r = %d, reason = %s", member, outcome.result,
                   outcome.errorText.c_str());
    }
    return outcome.result;
}

struct Device
{
    std::string path;
    std::optional<std::string> mountPoint; ///< unless it still has to be asked for
};

std::optional<std::string> MountPointIn(const sdbus_utils::PropertyMap& properties)
{
    const auto found = properties.find("MountPoint");
    const auto* text = found == properties.end() ? nullptr : std::any_cast<std::string>(&found->second);
    return text == nullptr ? std::nullopt : std::optional(*text);
}

/// The devices among the manager's objects, with what the storage daemon tells of them in the same breath: so a file's
/// device costs one call.
int32_t ListManagedDevices(std::vector<Device>& devices)
{
    sdbus_utils::object_manager::ManagedObjects objects;
    std::string errorText;
    const int32_t result =
        sdbus_utils::object_manager::GetManagedObjects(nullptr, manager.service, manager.path, objects, errorText);
    for (const auto& [path, interfaces] : objects)
    {
        const auto device = interfaces.find(deviceInterface);
        if (device != interfaces.end())
        {
            devices.push_back({path, MountPointIn(device->second)});
        }
    }
    return result;
}

int32_t ListAvailableDevices(std::vector<Device>& devices)
{
    std::vector<std::string> paths;
    const int32_t result = DbusHelper::GetPropertyOn(nullptr, manager, "AvailableDevices", paths).result;
    for (std::string& path : paths)
    {
        devices.push_back({std::move(path), std::nullopt});
    }
    return result;
}

int32_t ListDevices(std::vector<Device>& devices)
{
    int32_t result = ListManagedDevices(devices);
    if (result >= 0)
    {
        return result;
    }
    result = ListAvailableDevices(devices);
    if (result < 0)
    {
        Log::Error("Storage.GetStorageObjectPaths() failed %d", result);
    }
    return result;
}

/// A question's failure, which must not read as the answer that no device holds the file.
int32_t NotAnswered(int32_t result) { return result == -ENOENT ? -EIO : result; }

} // namespace

int32_t Handler::GetPrimaryDevice(std::string& device)
{
    return Get({signatureOf<&Handler::GetPrimaryDevice>, "PROP_PRIMARY_DEVICE"}, manager, "PrimaryDevice", device);
}
int32_t Handler::GetAvailableDevices(std::vector<std::string>& devices)
{
    return Get({signatureOf<&Handler::GetAvailableDevices>, "PROP_AVAILABLE_DEVICES"}, manager, "AvailableDevices",
               devices);
}
int32_t Handler::GetReadOnly(const std::string& device, bool& readOnly)
{
    return Get({signatureOf<&Handler::GetReadOnly>, "PROP_READ_ONLY"}, DeviceAt(device), "ReadOnly", readOnly);
}
int32_t Handler::GetBus(const std::string& device, std::string& bus)
{
    return Get({signatureOf<&Handler::GetBus>, "PROP_BUS"}, DeviceAt(device), "Bus", bus);
}
int32_t Handler::GetSocket(const std::string& device, int32_t& socket)
{
    return Get({signatureOf<&Handler::GetSocket>, "PROP_SOCKET"}, DeviceAt(device), "Socket", socket);
}
int32_t Handler::GetMountPoint(const std::string& device, std::string& mountPoint)
{
    return Get({signatureOf<&Handler::GetMountPoint>, "PROP_MOUNTPOINT"}, DeviceAt(device), "MountPoint", mountPoint);
}
int32_t Handler::GetDevicePath(const std::string& device, std::string& devicePath)
{
    return Get({signatureOf<&Handler::GetDevicePath>, "PROP_DEVICE_PATH"}, DeviceAt(device), "DevicePath", devicePath);
}
int32_t Handler::GetStorageSpaceBelowWarningThreshold(const std::string& device, bool& below)
{
    return Get({signatureOf<&Handler::GetStorageSpaceBelowWarningThreshold>, "PROP_STORAGE_IS_BELOW_WARNING_LEVEL"},
               DeviceAt(device), "StorageIsBelowWarningLevel", below);
}
int32_t Handler::GetStorageSpaceBelowMinimumThreshold(const std::string& device, bool& below)
{
    return Get({signatureOf<&Handler::GetStorageSpaceBelowMinimumThreshold>, "PROP_STORAGE_IS_BELOW_MINIMUM_LEVEL"},
               DeviceAt(device), "StorageIsBelowMinimumLevel", below);
}
int32_t Handler::GetMounted(const std::string& device, bool& mounted)
{
    return Get({signatureOf<&Handler::GetMounted>, "PROP_IS_MOUNTED"}, DeviceAt(device), "IsMounted", mounted);
}
int32_t Handler::GetKnownPrimary(const std::string& device, bool& known)
{
    return Get({signatureOf<&Handler::GetKnownPrimary>, "PROP_KNOWN_PRIMARY"}, DeviceAt(device), "KnownPrimary", known);
}
int32_t Handler::SetKnownPrimary(const std::string& device, bool known)
{
    return Set({signatureOf<&Handler::SetKnownPrimary>, "PROP_KNOWN_PRIMARY"}, DeviceAt(device), "KnownPrimary", known);
}
// The next two deliberately name the read-only constant: their lines are known by it.
int32_t Handler::GetFreeSpace(const std::string& device, uint64_t& bytes)
{
    return Get({signatureOf<&Handler::GetFreeSpace>, "PROP_READ_ONLY"}, DeviceAt(device), "FreeSpace", bytes);
}
int32_t Handler::GetId(const std::string& device, std::string& id)
{
    return Get({signatureOf<&Handler::GetId>, "PROP_READ_ONLY"}, DeviceAt(device), "Id", id);
}
int32_t Handler::GetIsSafeToRemove(const std::string& device, bool& safe)
{
    return Get({signatureOf<&Handler::GetIsSafeToRemove>, "PROP_IS_SAFE_TO_REMOVE"}, DeviceAt(device), "IsSafeToRemove",
               safe);
}

int32_t Handler::SetWriteActive(const std::string& device, uint8_t writer, bool active)
{
    return Call(device, "SetWriteActive", writer, active);
}
int32_t Handler::StartFormat(const std::string& device) { return Call(device, "StartFormat"); }

int32_t Handler::GetStorageObjectPaths(std::vector<std::string>& paths)
{
    std::vector<Device> devices;
    const int32_t result = ListDevices(devices);
    if (result < 0)
    {
        return result;
    }
    paths.clear();
    for (Device& device : devices)
    {
        paths.push_back(std::move(device.path));
    }
    return result;
}

int32_t Handler::GetPathFromFilename(const std::string& filename, std::string& storagePath)
{
    std::vector<Device> devices;
    const int32_t result = ListDevices(devices);
    if (result < 0)
    {
        return NotAnswered(result);
    }
    const std::filesystem::path file(filename);
    const Device* holder = nullptr;
    size_t longest = 0;
    int32_t notHeld = -ENOENT;
    for (Device& device : devices)
    {
        const int32_t asked =
            device.mountPoint.has_value() ? 0 : GetMountPoint(device.path, device.mountPoint.emplace());
        if (asked < 0)
        {
            notHeld = NotAnswered(asked);
            continue;
        }
        const size_t components = MatchingComponents(*device.mountPoint, file);
        if (components > longest)
        {
            longest = components;
            holder = &device;
        }
    }
    if (holder == nullptr)
    {
        return notHeld;
    }
    storagePath = holder->path;
    return result;
}

Handler::StorageDaemonDbusHandler(sd_event* event) : listener_(event)
{
    constexpr const char* objectManager = "org.freedesktop.DBus.ObjectManager";
    const auto signal = [](const char* path, const char* interface, const char* member,
                           sd_bus_message_handler_t handler) {
        return DbusHelper::SignalDescriptor{member, manager.service, path, interface, member, handler};
    };
    listener_.DefineSignals({signal(manager.path, objectManager, "InterfacesAdded", &OnInterfacesAdded),
                             signal(manager.path, objectManager, "InterfacesRemoved", &OnInterfacesRemoved),
                             signal("", "org.freedesktop.DBus.Properties", "PropertiesChanged", &OnPropertiesChanged)},
                            this);
}

int32_t Handler::ListenSignals(const std::vector<std::string>& keys) { return listener_.ListenSignals(keys); }

int Handler::OnInterfacesAdded(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    Log::Info("[StorageDaemonDbusHandler] Interface Added\n");
    std::string path;
    sdbus_utils::InterfaceMap interfaces;
    sdbus_utils::InterfacesStep step{};
    const int32_t result = sdbus_utils::ParseInterfaceAdded(message, path, interfaces, step);
    if (result >= 0)
    {
        static_cast<StorageDaemonDbusHandler*>(userData)->interfacesAdded_.emit(path, interfaces);
        return 0;
    }
    if (step == sdbus_utils::InterfacesStep::Properties)
    {
        Log::Error("ParseProperties failed:%d", result);
    }
    else
    {
        Log::Error("Failed to read interface");
    }
    return result;
}

int Handler::OnInterfacesRemoved(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    Log::Info("[StorageDaemonDbusHandler] Interface Removed\n");
    std::string path;
    std::vector<std::string> interfaces;
    const int32_t result = sdbus_utils::ParseInterfaceRemoved(message, path, interfaces);
    if (result < 0)
    {
        Log::Error("Failed to read interface");
        return result;
    }
    static_cast<StorageDaemonDbusHandler*>(userData)->interfacesRemoved_.emit(path, interfaces);
    return 0;
}

int Handler::OnPropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    const char* interface = nullptr;
    sdbus_utils::PropertyMap properties;
    int32_t result = sd_bus_message_read_basic(message, 's', &interface);
    if (result > 0 && std::string_view(interface) != deviceInterface)
    {
        return 0;
    }
    result = result < 0 ? result : sdbus_utils::ParseProperties(message, properties);
    if (result < 0)
    {
        Log::Error("ParseProperties failed:%d", result);
        return result;
    }
    static_cast<StorageDaemonDbusHandler*>(userData)->propertiesChanged_.emit(sd_bus_message_get_path(message),
                                                                              properties);
    return 0;
}

} // namespace Storaged
