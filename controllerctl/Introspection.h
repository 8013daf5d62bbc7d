#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace ControllerCtl
{

/// What an object says that it has: by interface and member, the types of a method's arguments and of its answer; for a
/// property no arguments, and its type.
using Introspection = std::map<std::pair<std::string, std::string>, std::pair<std::optional<std::string>, std::string>>;

/// Reads the text of an object's "Introspect", as far as it is one.
[[nodiscard]] Introspection ParseIntrospection(const std::string& text);

} // namespace ControllerCtl
