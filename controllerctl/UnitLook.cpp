#include "controllerctl/UnitLook.h"

#include "controllerctl/Properties.h"
#include "interfaces/ControllerEndpoint.h"

#include <algorithm>
#include <any>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace ControllerCtl
{
namespace
{

using ControllerDaemon::controllerEndpoint;
using sdbus_utils::object_manager::ManagedObjects;
using std::string;

constexpr bool local = true;

/// What the controller asks siblings for in turn, by its property.
struct Borrowed
{
    std::string_view property;
    std::array<std::optional<SiblingIndex>, 2> from;
};

constexpr std::array borrowed{
    Borrowed{"Sonde", {hardwareSibling, std::nullopt}},
    Borrowed{"VideoPlaybackRate", {videoSibling, std::nullopt}},
    Borrowed{"GetTimeSourceAvailable", {videoSibling, syncSibling}},
};

/// The sibling that is silent and that the controller would ask; null when there is none.
const Sibling* SilentLender(const Property& property, const std::array<Heard, siblings.size()>& presence)
{
    const auto* found = std::find_if(borrowed.begin(), borrowed.end(),
                                     [&](const Borrowed& entry) { return entry.property == property.name; });
    if (found == borrowed.end())
    {
        return nullptr;
    }
    for (const std::optional<SiblingIndex>& lender : found->from)
    {
        if (lender && presence.at(*lender) == Heard::Nothing)
        {
            return &siblings.at(*lender);
        }
    }
    return nullptr;
}

bool IsBorrowed(const Property& property)
{
    return std::any_of(borrowed.begin(), borrowed.end(),
                       [&](const Borrowed& entry) { return entry.property == property.name; });
}

/// Has the value of a type read into JSON.
template <typename T>
void AskFor(Inquiry& inquiry, const char* name, Reply<Json>& reply)
{
    inquiry.GetAs(controllerEndpoint, name, DbusHelper::Codec<T>::signature.c_str(), reply,
                  [&reply](sd_bus_message* answer) {
                      T value{};
                      const int result = DbusHelper::Codec<T>::Read(answer, value);
                      reply.value = value;
                      return result;
                  });
}

void AskController(Inquiry& inquiry, const Property& property, Reply<Json>& reply)
{
    switch (property.type)
    {
    case Type::Flag:
    case Type::Boolean:
        return AskFor<bool>(inquiry, property.name, reply);
    case Type::Integer:
        return AskFor<int32_t>(inquiry, property.name, reply);
    case Type::Natural:
        return AskFor<uint32_t>(inquiry, property.name, reply);
    case Type::Real:
        return AskFor<double>(inquiry, property.name, reply);
    case Type::Text:
        return AskFor<string>(inquiry, property.name, reply);
    default:
        break;
    }
}

void AskPlayback(Inquiry& inquiry, UnitLook& look)
{
    inquiry.Get(Videod::control, "PlaybackState", look.playbackState);
    inquiry.Get(Videod::control, "PlaybackFilename", look.playbackFile);
    inquiry.Get(Videod::control, "PlaybackPosition", look.playbackPosition);
    inquiry.Get(Videod::control, "PlaybackDuration", look.playbackDuration);
}

void AskSiblings(Inquiry& inquiry, UnitLook& look)
{
    AskRecordings(inquiry, look);
    AskPlayback(inquiry, look);
    AskStorages(inquiry, look);
    inquiry.Call(libjobsdaemon::jobsDaemon, "GetCurrentJobID", look.job);
    inquiry.Call(libjobsdaemon::jobsDaemon, "GetCurrentJobDeviceID", look.jobDevice);
    inquiry.Get(Halvexd::power, "ActivePowerSource", look.powerSource);
    inquiry.Get(Halvexd::power, "SystemPowerLevel", look.powerLevel);
    inquiry.Get(Halvexd::power, "BatteryChargePercentages", look.charge);
    inquiry.Get(Halvexd::power, "LowBatteryWarnings", look.lowBattery);
    inquiry.Get(Halvexd::power, "PermittedActions", look.permitted);
    const string audio = Settingsd::SectionPath("audio");
    inquiry.Get({Settingsd::root.service, audio.c_str(), Settingsd::root.interface}, "micEnabled", look.setting);
    inquiry.Get(Syncd::syncDaemon, "HasActiveSyncs", look.syncing);
}

/// The best of several answers: whoever has answered anything is there.
Heard Best(std::initializer_list<const Hearing*> hearings)
{
    Heard best = Heard::Nothing;
    for (const Hearing* hearing : hearings)
    {
        best = std::max(best, hearing->heard);
    }
    return best;
}

template <typename T>
T ValueOf(const sdbus_utils::PropertyMap& properties, const char* name, T fallback)
{
    const auto found = properties.find(name);
    const T* value = found == properties.end() ? nullptr : std::any_cast<T>(&found->second);
    return value == nullptr ? fallback : *value;
}

StorageLook Device(const string& path, const sdbus_utils::PropertyMap& properties)
{
    StorageLook device;
    device.path = path;
    device.id = ValueOf(properties, "Id", string());
    device.mountPoint = ValueOf(properties, "MountPoint", string());
    device.isMounted = ValueOf(properties, "IsMounted", false);
    device.isReadOnly = ValueOf(properties, "ReadOnly", false);
    device.isBelowMinimum = ValueOf(properties, "StorageIsBelowMinimumLevel", false);
    device.isBelowWarning = ValueOf(properties, "StorageIsBelowWarningLevel", false);
    if (properties.contains("FreeSpace"))
    {
        device.freeBytes = ValueOf(properties, "FreeSpace", uint64_t{0});
    }
    if (device.id.empty())
    {
        device.id = path.substr(path.rfind('/') + 1);
    }
    return device;
}

} // namespace

std::array<Heard, siblings.size()> UnitLook::Presence() const
{
    return {Best({&recordings.front().state, &recordings.front().file, &playbackState}),
            Best({&storages, &primaryStorage}),
            Best({&job, &jobDevice}),
            Best({&powerSource, &powerLevel, &charge, &lowBattery, &permitted}),
            Best({&setting}),
            Best({&syncing})};
}

std::vector<StorageLook> UnitLook::Devices() const
{
    std::vector<StorageLook> devices;
    for (const auto& [path, interfaces] : storages.value)
    {
        const auto device = interfaces.find(Storaged::deviceInterface);
        if (device != interfaces.end())
        {
            devices.push_back(Device(path, device->second));
        }
    }
    return devices;
}

void AskRecordings(Inquiry& inquiry, UnitLook& look)
{
    for (size_t i = 0; i < kindsOfRecording.size(); ++i)
    {
        inquiry.Get(Videod::control, kindsOfRecording.at(i).state, look.recordings.at(i).state);
        inquiry.Get(Videod::control, kindsOfRecording.at(i).file, look.recordings.at(i).file);
    }
}

void AskStorages(Inquiry& inquiry, UnitLook& look)
{
    const DbusHelper::Endpoint objects{Storaged::manager.service, Storaged::manager.path,
                                       "org.freedesktop.DBus.ObjectManager"};
    inquiry.CallAs(
        objects, "GetManagedObjects", [](sd_bus_message*) { return 0; }, look.storages,
        [&look](sd_bus_message* answer) {
            return sdbus_utils::object_manager::ParseManagedObjects(answer, look.storages.value);
        });
    inquiry.Get(Storaged::manager, "PrimaryDevice", look.primaryStorage);
}

int LookAtUnit(sd_bus* bus, const LookLimits& limits, UnitLook& look)
{
    const Patience siblingPatience(limits.siblingSeconds);
    const Patience controllerPatience(limits.controllerSeconds);
    Inquiry controller(bus);
    Inquiry family(bus);
    controller.Call(controllerEndpoint, "GetTime", look.clock, local);
    for (const Property& property : Properties())
    {
        if (property.type != Type::List && !IsBorrowed(property))
        {
            AskController(controller, property, look.properties[property.key]);
        }
    }
    AskSiblings(family, look);
    int result = family.Wait(siblingPatience);
    if (look.job.Well() && look.jobDevice.Well() && !std::get<0>(look.job.value).empty())
    {
        family.Call(libjobsdaemon::jobsDaemon, "GetJobName", look.jobName, std::get<0>(look.jobDevice.value),
                    std::get<0>(look.job.value));
    }
    for (const Property& property : Properties())
    {
        if (IsBorrowed(property))
        {
            Reply<Json>& reply = look.properties[property.key];
            const Sibling* silent = SilentLender(property, look.Presence());
            if (silent == nullptr)
            {
                AskController(controller, property, reply);
                continue;
            }
            reply.heard = Heard::Refusal;
            reply.message = string("the ") + silent->name + " daemon is silent";
        }
    }
    result = result < 0 ? result : family.Wait(siblingPatience);
    return result < 0 ? result : controller.Wait(controllerPatience);
}

} // namespace ControllerCtl
