#include "tests/unit/time/DateTimeStandIn.h"

#include "time/SystemdDateTime.h"

#include <cerrno>
#include <optional>

namespace
{

std::optional<std::string> held;

} // namespace

void DateTimeStandIn::Hold(const std::string& zone) { held = zone; }
void DateTimeStandIn::Fail() { held.reset(); }

int SystemdDateTime::SetTime(uint64_t /*usec*/) { return -EIO; }
int SystemdDateTime::SetTimezone(const std::string& /*timezone*/) { return -EIO; }
int SystemdDateTime::SetNTP(bool /*on*/) { return -EIO; }
int SystemdDateTime::GetNTP(bool& /*on*/) { return -EIO; }
int SystemdDateTime::GetTimezone(std::string& timezone)
{
    timezone = held.value_or(timezone);
    return held.has_value() ? 1 : -EIO;
}
