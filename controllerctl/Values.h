#pragma once

#include "controller_client/ControllerSignals.h"
#include "controllerctl/Answer.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ControllerCtl
{

/// What can be given on the command line, or be the value of a property.
enum class Type
{
    Flag,    ///< an option without a value
    Boolean, ///< on or off, also yes, no, true, false, 1 and 0, in any case
    Switch,  ///< the same, or "toggle"
    Integer, ///< of 32 bits
    Level,   ///< the same, or by how much to change it, as in +10: an array with that
    Natural, ///< of 32 bits, without a sign
    Real,    ///< finite
    Time,    ///< seconds, or like 5m: a real number of seconds
    Text,
    File,   ///< its name
    Folder, ///< its name
    List,   ///< of texts; not on the command line
};

/// What is asked for where a value of the type must be given.
[[nodiscard]] const char* Describe(Type type);

/// The value of a text, nothing when it is not of the type.
[[nodiscard]] std::optional<Json> Parse(Type type, const std::string& text);

/// Seconds as the bus library reads them from a text like "500ms", "2", "1.5s" or "1min 30s"; no value when it would
/// not.
[[nodiscard]] std::optional<double> ParseSeconds(const std::string& text);

/// The text of a value: on and off, numbers, texts as they are, lists one entry a line.
[[nodiscard]] std::string Text(const Json& value);

/// The same in one line, texts and lists quoted.
[[nodiscard]] std::string Quoted(const Json& value);

/// The texts in one line.
[[nodiscard]] std::string Joined(const std::vector<std::string>& texts, std::string_view separator);

/// What the controller has told; null for a value that this interface does not have.
[[nodiscard]] Json FromController(const Controllerd::ControllerValue& value);

} // namespace ControllerCtl
