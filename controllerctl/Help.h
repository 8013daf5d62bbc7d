#pragma once

#include <string>

namespace ControllerCtl
{

/// How wide lines may be: as $COLUMNS says, or the terminal that standard output is, or 80.
[[nodiscard]] size_t Width();

/// The text in lines that are no wider, where words allow it. What does not fit goes below the beginning of its own
/// column, or where that is far to the right a little further in than the line begins.
[[nodiscard]] std::string Wrapped(const std::string& text, size_t width);

} // namespace ControllerCtl
