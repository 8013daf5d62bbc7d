#include "dbus_helper/DbusServer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace DbusHelper
{
namespace
{

/// sd-bus reads the unused parts of an entry too: they must be zero.
sd_bus_vtable EmptyEntry(uint8_t type, uint64_t flags)
{
    sd_bus_vtable entry;
    std::memset(&entry, 0, sizeof entry);
    entry.type = type;
    entry.flags = flags;
    return entry;
}

sd_bus_vtable PropertyEntry(uint8_t type, const char* name, const char* signature, sd_bus_property_get_t getter,
                            sd_bus_property_set_t setter, uint64_t flags)
{
    sd_bus_vtable entry = EmptyEntry(type, flags);
    entry.x.property.member = name;
    entry.x.property.signature = signature;
    entry.x.property.get = getter;
    entry.x.property.set = setter;
    return entry;
}

} // namespace

DbusServer::DbusServer(std::string service, std::string path, std::string interface, bool systemBus, bool objectManager,
                       sd_event* event)
    : connector_(event, systemBus ? BusKind::System : BusKind::User), service_(std::move(service)),
      path_(std::move(path)), interface_(std::move(interface)), objectManager_(objectManager)
{
    sd_bus_vtable start = EmptyEntry(_SD_BUS_VTABLE_START, 0);
    start.x.start.element_size = sizeof(sd_bus_vtable);
    start.x.start.features = _SD_BUS_VTABLE_PARAM_NAMES;
    start.x.start.vtable_format_reference = &sd_bus_object_vtable_format;
    vtable_.push_back(start);
}

DbusServer::~DbusServer() { Stop(); }

int32_t DbusServer::AddVtableMethod(const char* member, const char* signature, const char* resultSignature,
                                    sd_bus_message_handler_t handler, uint64_t flags, const char* argumentNames,
                                    const char* resultNames)
{
    sd_bus_vtable entry = EmptyEntry(_SD_BUS_VTABLE_METHOD, flags);
    entry.x.method.member = Keep(member);
    entry.x.method.signature = Keep(signature);
    entry.x.method.result = Keep(resultSignature);
    entry.x.method.handler = handler;
    entry.x.method.names = KeepNames(argumentNames, resultNames);
    return Append(entry);
}

int32_t DbusServer::AddVtableProperty(const char* name, const char* signature, sd_bus_property_get_t getter,
                                      sd_bus_property_set_t setter, uint64_t flags)
{
    return Append(PropertyEntry(_SD_BUS_VTABLE_WRITABLE_PROPERTY, Keep(name), Keep(signature), getter, setter, flags));
}

int32_t DbusServer::AddVtablePropertyReadOnly(const char* name, const char* signature, sd_bus_property_get_t getter,
                                              uint64_t flags)
{
    return Append(PropertyEntry(_SD_BUS_VTABLE_PROPERTY, Keep(name), Keep(signature), getter, nullptr, flags));
}

int32_t DbusServer::AddVtableSignal(const char* member, const char* signature, uint64_t flags,
                                    const char* argumentNames)
{
    sd_bus_vtable entry = EmptyEntry(_SD_BUS_VTABLE_SIGNAL, flags);
    entry.x.signal.member = Keep(member);
    entry.x.signal.signature = Keep(signature);
    entry.x.signal.names = KeepNames(argumentNames);
    return Append(entry);
}

int32_t DbusServer::Start()
{
    const int32_t result = BringUp();
    if (result < 0)
    {
        Stop();
    }
    return result;
}

void DbusServer::Stop()
{
    slots_.clear();
    connector_.Disconnect();
}

int32_t DbusServer::Append(const sd_bus_vtable& entry)
{
    if (GetBus() != nullptr)
    {
        return -EBUSY; // sd-bus holds the table by pointer from now on
    }
    vtable_.push_back(entry);
    return 0;
}

const char* DbusServer::Keep(const char* text) { return texts_.emplace_back(text).c_str(); }

const char* DbusServer::KeepNames(const std::string& first, const std::string& second)
{
    std::string names = first; // sd-bus takes each name with a NUL behind it, and one more at the end
    if (!second.empty())
    {
        names += names.empty() ? second : " " + second;
    }
    std::replace(names.begin(), names.end(), ' ', '\0');
    names.push_back('\0');
    return texts_.emplace_back(std::move(names)).c_str();
}

int32_t DbusServer::BringUp()
{
    int32_t result = connector_.Connect();
    if (result < 0)
    {
        return result;
    }
    if (vtable_.back().type != _SD_BUS_VTABLE_END)
    {
        vtable_.push_back(EmptyEntry(_SD_BUS_VTABLE_END, 0));
    }
    sd_bus_slot* slot = nullptr;
    result = sd_bus_add_object_vtable(GetBus(), &slot, path_.c_str(), interface_.c_str(), vtable_.data(), nullptr);
    slots_.emplace_back(slot);
    if (result >= 0 && objectManager_)
    {
        slot = nullptr;
        result = sd_bus_add_object_manager(GetBus(), &slot, path_.c_str());
        slots_.emplace_back(slot);
    }
    result = result < 0 ? result : sd_bus_request_name(GetBus(), service_.c_str(), 0);
    return result < 0 ? result : 0;
}

} // namespace DbusHelper
