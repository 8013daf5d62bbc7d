#pragma once

#include "dbus_helper/Call.h"
#include "dbus_helper/PropertyMap.h"

#include <map>
#include <string>
#include <vector>

/// Property access and object-manager messages. A null bus means: open the user bus for this call and close it again
/// before returning. Results are sd-bus's: negative errno-style on failure, with the bus's words in `errorText` and
/// every other out-argument as it was. Blocks until the peer answers.
namespace sdbus_utils
{

/// Reads a property of any type that has a DbusHelper::Codec.
template <typename T>
[[nodiscard]] int32_t GetProperty(sd_bus* bus, const char* service, const char* path, const char* interface,
                                  const char* property, T& value, std::string& errorText)
{
    DbusHelper::Outcome outcome = DbusHelper::GetPropertyOn(bus, {service, path, interface}, property, value);
    errorText = std::move(outcome.errorText);
    return outcome.result;
}

/// Writes a property of any type that has a DbusHelper::Codec.
template <typename T>
[[nodiscard]] int32_t SetProperty(sd_bus* bus, const char* service, const char* path, const char* interface,
                                  const char* property, const T& value, std::string& errorText)
{
    DbusHelper::Outcome outcome = DbusHelper::SetPropertyOn(bus, {service, path, interface}, property, value);
    errorText = std::move(outcome.errorText);
    return outcome.result;
}

/// Reads all properties of one interface.
[[nodiscard]] int32_t GetAllProperties(sd_bus* bus, const char* service, const char* path, const char* interface,
                                       TypedPropertyMap& properties);

/// Interface name to its properties.
using InterfaceMap = std::map<std::string, PropertyMap>;

namespace object_manager
{

/// Object path to its interfaces.
using ManagedObjects = std::map<std::string, InterfaceMap>;

/// Reads the body of an answer to "GetManagedObjects" ("a{oa{sa{sv}}}"). Negative on failure, with what was read by
/// then in `objects`.
[[nodiscard]] int32_t ParseManagedObjects(sd_bus_message* message, ManagedObjects& objects);

/// Asks the object manager at `path` of `service` for its objects.
[[nodiscard]] int32_t GetManagedObjects(sd_bus* bus, const char* service, const char* path, ManagedObjects& objects,
                                        std::string& errorText);

} // namespace object_manager

/// Where reading an "InterfacesAdded" message ended.
enum class InterfacesStep : uint8_t
{
    Interface,  ///< the object path or an interface entry could not be read
    Properties, ///< an interface's properties could not be parsed
    Done,
};

/// Reads the body of "InterfacesAdded" ("oa{sa{sv}}"). Negative on failure, with the step that failed.
[[nodiscard]] int32_t ParseInterfaceAdded(sd_bus_message* message, std::string& path, InterfaceMap& interfaces,
                                          InterfacesStep& step);

/// Reads the body of "InterfacesRemoved" ("oas").
[[nodiscard]] int32_t ParseInterfaceRemoved(sd_bus_message* message, std::string& path,
                                            std::vector<std::string>& interfaces);

} // namespace sdbus_utils
