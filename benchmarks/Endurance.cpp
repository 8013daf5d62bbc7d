#include "benchmarks/Comparison.h"
#include "benchmarks/Measurements.h"
#include "benchmarks/Requests.h"

#include <algorithm>
#include <array>
#include <string>

namespace Bench
{
namespace
{

/// Every kind of call in turn, most of them the cheap one.
void CallOnce(const BenchUnit& unit, uint32_t number)
{
    switch (number % 50)
    {
    case 0:
        StartRecording(unit);
        break;
    case 1:
        unit.Order("VideoRecordPause");
        break;
    case 2:
        unit.Order("VideoRecordResume");
        break;
    case 3:
        unit.Order("VideoRecordStop");
        break;
    default:
        Get(unit, daemonEndpoint);
    }
}

void Call(const BenchUnit& unit, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i)
    {
        ThrowIfInterrupted();
        CallOnce(unit, i);
    }
}

void Signal(const BenchUnit& unit, uint32_t count, pid_t daemon)
{
    constexpr uint32_t batch = 50;
    const std::vector<std::string> connections = unit.ConnectionsOf(daemon);
    for (uint32_t emitted = 0; emitted < count; emitted += 2 * batch)
    {
        ThrowIfInterrupted();
        unit.Emit("VideoGrew", batch, connections);
        unit.Emit("StorageChanged", batch, connections);
    }
}

/// Before, half-way and after.
using Moments = std::array<Holdings, 3>;

/// What grows at first and then stays has found its size; what grows on is a leak.
const char* GrowthVerdict(int64_t growth, int64_t secondHalf)
{
    if (growth <= 0)
    {
        return "met";
    }
    return secondHalf <= 0 ? "grew, then stayed" : "GREW";
}

void AddEnduranceRow(Table& table, const std::string& name, const Moments& moments, int64_t Holdings::*figure)
{
    std::array<int64_t, 3> values{};
    std::transform(moments.begin(), moments.end(), values.begin(),
                   [&](const Holdings& moment) { return moment.*figure; });
    const int64_t growth = values[2] - values[0];
    table.Add({name, std::to_string(values[0]), std::to_string(values[1]), std::to_string(values[2]),
               std::to_string(growth), "<= 0", GrowthVerdict(growth, values[2] - values[1])});
}

} // namespace

void MeasureEndurance(const BenchUnit& unit, const Sizes& sizes)
{
    const Service daemon = unit.StartDaemon();
    const pid_t pid = daemon.process.Pid();
    const uint32_t half = sizes.endurance / 2;
    const uint32_t warmUp = sizes.endurance / 10;
    Call(unit, warmUp);
    Signal(unit, warmUp, pid);
    Moments calls{daemon.process.Held()};
    Call(unit, half);
    calls[1] = daemon.process.Held();
    Call(unit, half);
    calls[2] = daemon.process.Held();
    Moments signals{calls[2]};
    Signal(unit, half, pid);
    signals[1] = daemon.process.Held();
    Signal(unit, half, pid);
    signals[2] = daemon.process.Held();

    Table table({"", "before", "half-way", "after", "growth", "goal", ""});
    const std::string number = std::to_string(sizes.endurance);
    for (const auto& [name, held] : {std::pair(number + " calls", calls), std::pair(number + " signals", signals)})
    {
        AddEnduranceRow(table, name + ", private dirty KiB", held, &Holdings::privateDirtyKib);
        AddEnduranceRow(table, name + ", resident KiB", held, &Holdings::residentKib);
        AddEnduranceRow(table, name + ", descriptors", held, &Holdings::descriptors);
    }
    table.Print();
}

} // namespace Bench
