#pragma once

#include "time/BrokenDownTime.h"

#include <cstdint>
#include <string>

namespace ControllerDaemon
{

/// What is done to the unit's clock and zone, which timedated keeps. Results are negative errno-style when timedated
/// refuses or cannot be reached; nothing is told to clients then. Loop thread only; each blocks on timedated.

/// Whether a change of clock or zone by a client would be accepted now: no capture is active, which the video daemon
/// knows, and no sync, which the sync daemon knows. A daemon that does not answer has nothing against it.
[[nodiscard]] bool CanSetTimeNow();

/// Puts a zone, given by its full name, in force and emits "TimezoneChanged" and "TimeChanged".
int32_t ChangeTimezone(const std::string& zone);

/// The same for the other form, with daylight saving or without, of the given zone.
int32_t ChangeTimezoneForm(const std::string& zone, bool dst);

/// Sets the clock to seconds since the epoch and emits "TimeChanged". -ERANGE, which is logged, for a moment whose
/// microseconds do not fit what timedated takes.
int32_t ChangeClock(int64_t seconds);

/// Brings the zone into the form that the fields' flag asks for, then sets the clock from the fields, in the local time
/// of that zone or in UTC, and emits what has changed. The clock is not touched when the zone cannot be changed.
int32_t ChangeClock(const BrokenDownTime& fields, bool local);

} // namespace ControllerDaemon
