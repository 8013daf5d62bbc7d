#pragma once

#include <string>
#include <string_view>

namespace DbusHelper
{

/// The text as a value of a D-Bus address.
[[nodiscard]] std::string EscapedForAddress(std::string_view text);

} // namespace DbusHelper
