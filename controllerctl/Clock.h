#pragma once

#include "controller_client/LocalDateTime.h"
#include "controllerctl/Answer.h"

#include <cstdint>
#include <string>
#include <variant>

namespace ControllerCtl
{

/// A moment as it is given: its fields, without their flag; seconds since 1970; or neither when it is no moment.
using Moment = std::variant<std::monostate, Controllerd::LocalDateTime, int32_t>;

/// Reads "2026-11-21 14:05:00", with "T" for the blank and without seconds as well, which is in the zone that the clock
/// has; or what says which instant it is: the same with "Z" or an offset like "+01:00" behind it, as RFC 3339 has it,
/// "@" and seconds since 1970, or "now" of this computer.
[[nodiscard]] Moment ParseMoment(const std::string& text);

/// Asks for the time, in the unit's zone if `local`, else in UTC.
[[nodiscard]] Answer ReadClock(bool local);

} // namespace ControllerCtl
