#pragma once

#include "controller_client/ControllerSignals.h"
#include "controllerctl/Answer.h"

#include <optional>
#include <string>

namespace ControllerCtl
{

/// What can be given on the command line, or be the value of a property.
enum class Type
{
    Flag,    ///< an option without a value
    Boolean, ///< on or off, also true or false
    Integer, ///< of 32 bits
    Natural, ///< of 32 bits, without a sign
    Real,    ///< finite
    Text,
    List, ///< of texts; not on the command line
};

/// What is asked for where a value of the type must be given.
[[nodiscard]] const char* Describe(Type type);

/// The value of a text, nothing when it is not of the type.
[[nodiscard]] std::optional<Json> Parse(Type type, const std::string& text);

/// The text of a value: on and off, numbers, texts as they are, lists one entry a line.
[[nodiscard]] std::string Text(const Json& value);

/// The same in one line, texts and lists quoted.
[[nodiscard]] std::string Quoted(const Json& value);

/// What the controller has told; null for a value that this interface does not have.
[[nodiscard]] Json FromController(const Controllerd::ControllerValue& value);

} // namespace ControllerCtl
