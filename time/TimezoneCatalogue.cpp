#include "time/TimezoneCatalogue.h"

#include "dbus_helper/Log.h"
#include "time/SystemdDateTime.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <tuple>

namespace ControllerDaemon
{
namespace
{

namespace fs = std::filesystem;

/// Installed on every unit, although it is no row of the table.
constexpr std::string_view referenceZone = "UTC";

constexpr int32_t dstShiftSeconds = 3600;

/// Degrees.
struct Position
{
    double latitude;
    double longitude;
};

double Radians(double degrees) { return degrees * 3.141592653589793 / 180.0; }

/// Great-circle distance in kilometres, by the haversine formula.
double Distance(const Position& from, const Position& to)
{
    constexpr double earthDiameterKm = 12742.0;
    const double halfLatitude = std::sin((Radians(to.latitude) - Radians(from.latitude)) / 2);
    const double halfLongitude = std::sin((Radians(to.longitude) - Radians(from.longitude)) / 2);
    const double a = halfLatitude * halfLatitude +
                     std::cos(Radians(from.latitude)) * std::cos(Radians(to.latitude)) * halfLongitude * halfLongitude;
    return earthDiameterKm * std::asin(std::sqrt(a));
}

/// The name of the zone that `measure` gives the smallest value for; the first of several.
template <typename Value, typename Measure>
std::string_view Best(Value best, const Measure& measure)
{
    std::string_view name;
    for (const TimezoneEntry& zone : TimezoneTable())
    {
        const Value value = measure(zone.record);
        if (value < best)
        {
            best = value;
            name = zone.name;
        }
    }
    return name;
}

std::string Join(const std::vector<std::string>& names)
{
    std::string joined;
    for (const std::string& name : names)
    {
        joined += (joined.empty() ? "" : ", ") + name;
    }
    return joined;
}

bool IsZoneFile(const fs::directory_entry& entry)
{
    std::error_code error;
    return !entry.path().filename().native().starts_with('.') && entry.is_regular_file(error);
}

} // namespace

bool IsDst(std::string_view zone) { return zone.find("DST") != std::string_view::npos; }

const char* PrefixFor(bool dst) { return dst ? dstPrefix : standardPrefix; }

std::string_view BareName(std::string_view zone)
{
    const size_t slash = zone.rfind('/');
    return slash == std::string_view::npos ? zone : zone.substr(slash + 1);
}

bool IsDstInForce()
{
    std::string zone;
    std::ignore = SystemdDateTime::GetTimezone(zone); // stays empty when it cannot be read, which is logged there
    return IsDst(zone);
}

std::string GetTimezonePrefix() { return PrefixFor(IsDstInForce()); }

bool IsTimezoneInstalled(const std::string& fullName)
{
    Log::Info("timezone: %s", fullName.c_str());
    const std::string_view name = BareName(fullName);
    const auto zones = TimezoneTable();
    return name == referenceZone || std::any_of(zones.begin(), zones.end(), [name](const TimezoneEntry& zone) {
               return zone.name.find(name) != std::string_view::npos;
           });
}

std::string GetNearestTimezone(double latitude, double longitude)
{
    const auto distance = [&](const TimezoneRecord& zone) {
        return Distance({zone.latitude, zone.longitude}, {latitude, longitude});
    };
    return GetTimezonePrefix().append(Best(std::numeric_limits<double>::max(), distance));
}

std::string GetTimezoneFromUTC(int32_t offset, bool dst)
{
    const auto difference = [&](const TimezoneRecord& zone) {
        return std::abs(int64_t{zone.offset} + (dst ? dstShiftSeconds : 0) - offset);
    };
    return GetTimezonePrefix().append(Best(int64_t{std::numeric_limits<int32_t>::max()}, difference));
}

std::vector<std::string> ListInstalledTimezones()
{
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(timezoneDirectory, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error))
    {
        if (IsZoneFile(*entry))
        {
            names.push_back(entry->path().filename());
        }
    }
    if (error)
    {
        Log::Error("Failed to list the timezones in %s: %s", timezoneDirectory, error.message().c_str());
        return {};
    }
    std::sort(names.begin(), names.end());
    Log::Info("%s", Join(names).c_str());
    return names;
}

} // namespace ControllerDaemon
