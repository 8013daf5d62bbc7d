#include "benchmarks/Requests.h"

#include "dbus_helper/Handles.h"

#include <string>

namespace Bench
{
namespace
{

template <typename... Arguments>
void Ask(const BenchUnit& unit, const char* member, const char* signature, Arguments... arguments)
{
    DbusHelper::BusError error;
    if (sd_bus_call_method(unit.Bus(), daemonEndpoint.service, daemonEndpoint.path, daemonEndpoint.interface, member,
                           error.Get(), nullptr, signature, arguments...) < 0)
    {
        throw Failure(std::string(member) + " answered: " + (error.Message() != nullptr ? error.Message() : "nothing"));
    }
}

} // namespace

void Get(const BenchUnit& unit, const DbusHelper::Endpoint& endpoint)
{
    DbusHelper::BusError error;
    int answer = 0;
    if (sd_bus_get_property_trivial(unit.Bus(), endpoint.service, endpoint.path, endpoint.interface,
                                    "KeypadBeepEnabled", error.Get(), 'b', &answer) < 0 ||
        answer != 1)
    {
        throw Failure(std::string(endpoint.service) + " does not tell its property");
    }
}

void StartRecording(const BenchUnit& unit) { unit.Order("VideoRecordStart", "uuu", 640, 480, 80); }

void StartBareRecording(const BenchUnit& unit) { unit.Order("Record", "uuu", 640, 480, 80, bareEndpoint); }

void RemoveMarkers(const BenchUnit& unit)
{
    for (const char* name : {".0042-recActive", ".0042-recovery"})
    {
        std::filesystem::remove(unit.Media() / name);
    }
}

void SetTime(const BenchUnit& unit) { Ask(unit, "SetTime", "iiiiiibb", 2026, 3, 1, 12, 30, 0, 0, 1); }

void GetTime(const BenchUnit& unit) { Ask(unit, "GetTime", "b", 1); }

std::vector<Operation> OperationsOf(const BenchUnit& unit, Request request)
{
    unit.StartLog();
    request(unit);
    return unit.TakeLog();
}

} // namespace Bench
