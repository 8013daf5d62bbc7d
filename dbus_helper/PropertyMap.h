#pragma once

#include "dbus_helper/Codec.h"

#include <systemd/sd-bus.h>

#include <any>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

/// Maps of changed properties, as the other daemons announce them in "PropertiesChanged". Both are ordered by name, so
/// a reader visits properties in ascending byte order whatever their order in the message. A value is held as the
/// native type of its D-Bus signature: "b" bool, "y" uint8_t, "n" int16_t, "q" uint16_t, "i" int32_t, "u" uint32_t,
/// "x" int64_t, "t" uint64_t, "d" double, "s" "o" "g" std::string, "as" std::vector<std::string>. Values of any other
/// type are left out; the rest of the map is kept.
namespace sdbus_utils
{

/// Property name to value.
using PropertyMap = std::map<std::string, std::any>;

/// Property name to (D-Bus signature, value). A reader compares the signature before it takes the value out.
using TypedPropertyMap = std::map<std::string, std::pair<std::string, std::any>>;

/// Fills `properties` from a message positioned at an "a{sv}". Returns 0 or positive, negative errno-style when the
/// message holds something else; the map is then left as it was.
[[nodiscard]] int32_t ParseProperties(sd_bus_message* message, PropertyMap& properties);

/// The same, with each value's signature.
[[nodiscard]] int32_t ParsePropertiesWithType(sd_bus_message* message, TypedPropertyMap& properties);

/// Told each entry of a dictionary, positioned at its value, with the value's signature and its key. Returns true when
/// it has read the value, false to have it skipped.
using DictionaryVisitor =
    std::function<bool(sd_bus_message* message, void* userData, const char* contents, const char* key)>;

/// Walks an "a{sv}" at which `message` is positioned, entry by entry. A value that cannot be skipped is logged and the
/// walk goes on. Returns 0 at the end, negative errno-style when the message does not hold such a dictionary. An empty
/// visitor raises std::bad_function_call at the first entry.
int32_t WalkDictionary(sd_bus_message* message, const DictionaryVisitor& visitor, void* userData);

/// The value of a changed property if it has this name and is of type T's signature, else null. A value that
/// contradicts its signature raises std::bad_any_cast.
template <typename T>
[[nodiscard]] const T* ValueOf(const TypedPropertyMap::value_type& property, std::string_view name)
{
    const auto& [signature, value] = property.second;
    return property.first == name && signature == DbusHelper::Codec<T>::signature.View()
               ? &std::any_cast<const T&>(value)
               : nullptr;
}

} // namespace sdbus_utils
