#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

/// Stands in for the user bus: every call of another daemon is noted and fails, as if nobody were there.
namespace BusStandIn
{

struct LedCall
{
    std::string member;
    uint32_t led;
    uint32_t value;

    bool operator==(const LedCall& other) const = default;
};

void PrintTo(const LedCall& call, std::ostream* out);

/// The calls with two "u" arguments since the last call of this.
std::vector<LedCall> TakeLedCalls();

} // namespace BusStandIn
