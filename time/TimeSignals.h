#pragma once

#include <ctime>
#include <string>

namespace ControllerDaemon
{

/// Tell clients of what timedated has accepted, each on a connection to the user bus of its own, so that the sender is
/// not the service. A failure is logged and nothing else. Loop thread only.

/// Emits "TimeChanged" with the local time of the given seconds since the epoch; -1 stands for now. Asks timedated for
/// the daylight saving flag.
void EmitTimeChange(time_t seconds);

/// Emits "TimezoneChanged" with the full name of the zone.
void EmitTimezoneChange(const std::string& zone);

} // namespace ControllerDaemon
