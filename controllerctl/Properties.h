#pragma once

#include "controllerctl/Values.h"

#include <array>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ControllerCtl
{

/// A property of the controller.
struct Property
{
    const char* name; ///< on the bus
    const char* key;  ///< in what this program tells
    Type type;
    int (*read)(Json& value);        ///< a result of the client library
    int (*write)(const Json& value); ///< null when it is read only
    const char* toldBy = nullptr;    ///< the signal that tells of its changes when they are not announced
    const char* untold = nullptr;    ///< why its changes cannot be followed, when nothing tells of them
};

/// A signal of the controller.
struct Signal
{
    const char* name;
    std::array<const char*, 7> arguments; ///< their names; null behind the last
};

[[nodiscard]] std::span<const Property> Properties();
[[nodiscard]] std::span<const Signal> Signals();

/// The one of that name on the bus, null when there is none.
[[nodiscard]] const Property* FindProperty(std::string_view name);
[[nodiscard]] const Signal* FindSignal(std::string_view name);

/// Asks for a property.
[[nodiscard]] Answer ReadProperty(const Property& property);
/// What runs a verb that prints the property of that name.
[[nodiscard]] std::function<Answer(const Json& arguments)> Reading(std::string_view name);
/// What a property holds that was written just now: printed unless it is what was given.
[[nodiscard]] Answer Holds(const Property& property, const Json& given);
/// What offers the entries of the list of that name; none when they cannot be had.
[[nodiscard]] std::function<std::vector<std::string>(const std::vector<std::string>&)> Listing(std::string_view name);

} // namespace ControllerCtl
