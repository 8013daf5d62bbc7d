#include "dbus_helper/SdbusUtils.h"

#include "dbus_helper/Handles.h"

namespace sdbus_utils
{
namespace
{

using DbusHelper::Body;
using DbusHelper::Endpoint;
using DbusHelper::Outcome;

template <typename T, int (*Parse)(sd_bus_message*, T&)>
Body ReaderInto(T& value)
{
    return {[](sd_bus_message* message, void* target) { return Parse(message, *static_cast<T*>(target)); }, &value};
}

int ReadPath(sd_bus_message* message, std::string& path)
{
    const char* text = nullptr;
    const int result = sd_bus_message_read_basic(message, 'o', &text);
    if (result > 0)
    {
        path = text;
    }
    return result == 0 ? -ENXIO : result;
}

/// Reads "a{sa{sv}}"; `step` tells what failed.
int ReadInterfaces(sd_bus_message* message, InterfaceMap& interfaces, InterfacesStep& step)
{
    step = InterfacesStep::Interface;
    const int result = DbusHelper::ReadEntries(message, "sa{sv}", [&] {
        std::string name;
        int read = DbusHelper::Codec<std::string>::Read(message, name);
        if (read >= 0)
        {
            read = ParseProperties(message, interfaces[name]);
            step = read < 0 ? InterfacesStep::Properties : InterfacesStep::Interface;
        }
        return read;
    });
    step = result < 0 ? step : InterfacesStep::Done;
    return result;
}

} // namespace

int32_t GetAllProperties(sd_bus* bus, const char* service, const char* path, const char* interface,
                         TypedPropertyMap& properties)
{
    const std::string name = interface;
    std::tuple<const std::string&> arguments(name);
    return DbusHelper::Invoke(bus, Endpoint{service, path, "org.freedesktop.DBus.Properties"}, "GetAll",
                              {&DbusHelper::TransferIn<std::string>, &arguments},
                              ReaderInto<TypedPropertyMap, &ParsePropertiesWithType>(properties))
        .result;
}

int32_t object_manager::ParseManagedObjects(sd_bus_message* message, ManagedObjects& objects)
{
    return DbusHelper::ReadEntries(message, "oa{sa{sv}}", [&] {
        std::string path;
        InterfacesStep step{};
        const int result = ReadPath(message, path);
        return result < 0 ? result : ReadInterfaces(message, objects[path], step);
    });
}

int32_t object_manager::GetManagedObjects(sd_bus* bus, const char* service, const char* path, ManagedObjects& objects,
                                          std::string& errorText)
{
    ManagedObjects read;
    std::tuple<> none;
    Outcome outcome =
        DbusHelper::Invoke(bus, Endpoint{service, path, "org.freedesktop.DBus.ObjectManager"}, "GetManagedObjects",
                           {&DbusHelper::TransferIn<>, &none}, ReaderInto<ManagedObjects, &ParseManagedObjects>(read));
    if (outcome.Ok())
    {
        objects = std::move(read);
    }
    errorText = std::move(outcome.errorText);
    return outcome.result;
}

int32_t ParseInterfaceAdded(sd_bus_message* message, std::string& path, InterfaceMap& interfaces, InterfacesStep& step)
{
    step = InterfacesStep::Interface;
    const int result = ReadPath(message, path);
    return result < 0 ? result : ReadInterfaces(message, interfaces, step);
}

int32_t ParseInterfaceRemoved(sd_bus_message* message, std::string& path, std::vector<std::string>& interfaces)
{
    std::vector<std::string> names;
    int result = ReadPath(message, path);
    result = result < 0 ? result : DbusHelper::Codec<std::vector<std::string>>::Read(message, names);
    if (result >= 0)
    {
        interfaces = std::move(names);
    }
    return result;
}

} // namespace sdbus_utils
