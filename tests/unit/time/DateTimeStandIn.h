#pragma once

#include <string>

/// Stands in for the client of timedated, at link time.
namespace DateTimeStandIn
{

/// The zone in force from now on.
void Hold(const std::string& zone);

/// No zone can be read from now on.
void Fail();

} // namespace DateTimeStandIn
