#pragma once

#include <string_view>

namespace DbusHelper
{

/// Whether a text may travel as a D-Bus string: well-formed UTF-8 without NUL. sd-bus does not look, and the bus cuts
/// off who sends anything else; file names may hold any bytes.
[[nodiscard]] bool IsUtf8(std::string_view text);

} // namespace DbusHelper
