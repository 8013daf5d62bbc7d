#pragma once

#include "controllerctl/Answer.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ControllerCtl
{

/// How long siblings have for an answer, altogether.
inline constexpr double siblingSeconds = 0.5;
/// ... and the controller, for what is only looked at.
inline constexpr double controllerSeconds = 5;

/// A file that is being recorded: since when, by the marker that was made before it, and its size.
struct FileLook
{
    std::optional<int64_t> seconds;
    std::optional<uint64_t> bytes;
};

/// Nothing is known of a file that is not there, or of one that is on another unit.
[[nodiscard]] FileLook LookAtFile(const std::string& path);

template <typename T>
Json OrNull(const std::optional<T>& value)
{
    return value ? Json(*value) : Json();
}

} // namespace ControllerCtl
