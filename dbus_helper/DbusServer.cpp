#include "dbus_helper/DbusServer.h"

#include "dbus_helper/HandlerGuard.h"

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

} // namespace

/// What sd-bus calls, with the handlers of the member as user data: each entry brings their place as its offset.
struct DbusServer::Trampolines
{
    static int Call(sd_bus_message* message, void* handlers, sd_bus_error* error)
    {
        return Guard(sd_bus_message_get_member(message), error,
                     [&] { return static_cast<Handlers*>(handlers)->method(message, nullptr, error); });
    }
    static int Get(sd_bus* bus, const char* path, const char* interface, const char* property, sd_bus_message* reply,
                   void* handlers, sd_bus_error* error)
    {
        return Guard(property, error, [&] {
            return static_cast<Handlers*>(handlers)->getter(bus, path, interface, property, reply, nullptr, error);
        });
    }
    static int Set(sd_bus* bus, const char* path, const char* interface, const char* property, sd_bus_message* value,
                   void* handlers, sd_bus_error* error)
    {
        return Guard(property, error, [&] {
            return static_cast<Handlers*>(handlers)->setter(bus, path, interface, property, value, nullptr, error);
        });
    }
};

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
    vtable_.push_back(EmptyEntry(_SD_BUS_VTABLE_END, 0));
}

DbusServer::~DbusServer() { Stop(); }

int32_t DbusServer::AddVtableMethod(const char* member, const char* signature, const char* resultSignature,
                                    sd_bus_message_handler_t handler, uint64_t flags, const char* argumentNames,
                                    const char* resultNames)
{
    sd_bus_vtable entry = EmptyEntry(_SD_BUS_VTABLE_METHOD, flags | SD_BUS_VTABLE_ABSOLUTE_OFFSET);
    entry.x.method.member = Keep(member);
    entry.x.method.signature = Keep(signature);
    entry.x.method.result = Keep(resultSignature);
    entry.x.method.handler = &Trampolines::Call;
    entry.x.method.names = KeepNames(argumentNames, resultNames);
    entry.x.method.offset = Keep(Handlers{.method = handler});
    return Append(entry);
}

int32_t DbusServer::AddVtableProperty(const char* name, const char* signature, sd_bus_property_get_t getter,
                                      sd_bus_property_set_t setter, uint64_t flags)
{
    return AppendProperty(_SD_BUS_VTABLE_WRITABLE_PROPERTY, name, signature, {.getter = getter, .setter = setter},
                          flags);
}

int32_t DbusServer::AddVtablePropertyReadOnly(const char* name, const char* signature, sd_bus_property_get_t getter,
                                              uint64_t flags)
{
    return AppendProperty(_SD_BUS_VTABLE_PROPERTY, name, signature, {.getter = getter}, flags);
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
    if (GetBus() != nullptr)
    {
        return 0;
    }
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

int32_t DbusServer::AppendProperty(uint8_t type, const char* name, const char* signature, const Handlers& handlers,
                                   uint64_t flags)
{
    sd_bus_vtable entry = EmptyEntry(type, flags | SD_BUS_VTABLE_ABSOLUTE_OFFSET);
    entry.x.property.member = Keep(name);
    entry.x.property.signature = Keep(signature);
    entry.x.property.get = &Trampolines::Get;
    entry.x.property.set = handlers.setter != nullptr ? &Trampolines::Set : nullptr;
    entry.x.property.offset = Keep(handlers);
    return Append(entry);
}

int32_t DbusServer::Append(const sd_bus_vtable& entry)
{
    if (GetBus() != nullptr)
    {
        return -EBUSY; // sd-bus holds the table by pointer from now on
    }
    vtable_.insert(vtable_.end() - 1, entry);
    return 0;
}

const char* DbusServer::Keep(const char* text) { return texts_.emplace_back(text).c_str(); }

size_t DbusServer::Keep(const Handlers& handlers)
{
    return reinterpret_cast<size_t>(&handlers_.emplace_back(handlers));
}

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
