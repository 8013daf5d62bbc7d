#include "benchmarks/Measurements.h"

#include "benchmarks/BareCalls.h"
#include "benchmarks/Comparison.h"
#include "clients/VideoDaemonDbusHandler.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace Bench
{
namespace
{

using Videod::VideoDaemonDbusHandler;

constexpr double getGoal = 1.05;
constexpr double getCpuGoal = 1.2;
constexpr double operationGoal = 1.05;
constexpr double recordGoal = 1.08;
constexpr double startGoal = 1.5;
constexpr double memoryGoalKib = 1000;

constexpr const char* property = "SpkrVolume";

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

template <typename Work>
double TimeOf(size_t times, Work work)
{
    const Clock::time_point begin = Clock::now();
    for (size_t i = 0; i < times; ++i)
    {
        work();
    }
    return Seconds(Clock::now() - begin) / static_cast<double>(times);
}

void AddRatio(Table& table, const std::string& name, const Comparison& comparison, size_t index, double goal)
{
    const Spread ratio = comparison.Ratio(index);
    table.Add({name, Microseconds(comparison.MeasuredSpread(index).median),
               Microseconds(comparison.BareSpread(index).median), Text("%.3f", ratio.least), Text("%.3f", ratio.median),
               Text("%.3f", ratio.most), Text("%.3f", comparison.RatioOfLeast(index)),
               goal > 0 ? Text("<= %.2f", goal) : "-", goal > 0 ? Verdict(ratio.median <= goal) : ""});
}

/// What a Get answers: a number, or an error.
struct GetAnswer
{
    bool isError = false;
    int32_t value = 0;
    std::string errorName;
    std::string errorText;

    bool operator==(const GetAnswer&) const = default;

    [[nodiscard]] std::vector<std::string> BareArguments() const
    {
        return isError ? std::vector<std::string>{"error", errorName, errorText}
                       : std::vector<std::string>{"value", std::to_string(value)};
    }
};

GetAnswer Get(sd_bus* bus, const DbusHelper::Endpoint& endpoint)
{
    sd_bus_error error = SD_BUS_ERROR_NULL;
    GetAnswer answer;
    answer.isError = sd_bus_get_property_trivial(bus, endpoint.service, endpoint.path, endpoint.interface, property,
                                                 &error, 'i', &answer.value) < 0;
    if (answer.isError)
    {
        answer.errorName = error.name != nullptr ? error.name : "";
        answer.errorText = error.message != nullptr ? error.message : "";
    }
    sd_bus_error_free(&error);
    return answer;
}

/// Time and the server's processor time of a Get.
Cost GetRound(const BenchUnit& unit, const Service& server, const DbusHelper::Endpoint& endpoint, size_t gets,
              const GetAnswer& expected)
{
    const double cpuBefore = server.process.CpuSeconds();
    const double time = TimeOf(gets, [&] {
        if (Get(unit.Bus(), endpoint) != expected)
        {
            throw Failure(std::string(endpoint.service) + " changed its answer");
        }
    });
    return {time, (server.process.CpuSeconds() - cpuBefore) / static_cast<double>(gets)};
}

/// `operation` gives sd-bus's result and the peer's answer, both of which must be good.
template <typename Operation>
Cost OperationRound(const std::string& name, size_t operations, Operation operation)
{
    return {TimeOf(operations, [&] {
        int32_t answer = -1;
        if (operation(&answer) < 0 || answer != 0)
        {
            throw Failure(name + " failed");
        }
    })};
}

/// Removes the markers of the recording that was begun, for the next start to make them again.
void RemoveMarkers(const BenchUnit& unit)
{
    for (const char* name : {".0042-recActive", ".0042-recovery"})
    {
        std::filesystem::remove(unit.Media() / name);
    }
}

void StartRecording(const BenchUnit& unit) { unit.Order("VideoRecordStart", "uuu", 640, 480, 80); }

Cost RecordRound(const BenchUnit& unit, size_t records)
{
    Clock::duration taken{};
    for (size_t i = 0; i < records; ++i)
    {
        RemoveMarkers(unit);
        const Clock::time_point begin = Clock::now();
        StartRecording(unit);
        taken += Clock::now() - begin;
    }
    return {Seconds(taken) / static_cast<double>(records)};
}

Cost BareRecordRound(const std::vector<Operation>& operations, size_t records)
{
    return {TimeOf(records, [&] {
        for (const Operation& operation : operations)
        {
            if (BareCall(operation) < 0)
            {
                throw Failure("the bare call of " + Describe(operation) + " failed");
            }
        }
    })};
}

std::vector<Operation> OperationsOfRecordStart(const BenchUnit& unit)
{
    unit.StartLog();
    StartRecording(unit);
    return unit.TakeLog();
}

void PrintOperations(const std::vector<Operation>& operations)
{
    std::printf("VideoRecordStart makes %zu calls to its siblings:\n", operations.size());
    for (size_t i = 0; i < operations.size(); ++i)
    {
        std::printf("%4zu  %s\n", i + 1, Describe(operations[i]).c_str());
    }
    std::printf("\n");
}

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
        Get(unit.Bus(), daemonEndpoint);
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
    for (uint32_t emitted = 0; emitted < count; emitted += 2 * batch)
    {
        ThrowIfInterrupted();
        unit.Emit("VideoGrew", batch, daemon);
        unit.Emit("StorageChanged", batch, daemon);
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

std::string SyslogName() { return access("/dev/log", W_OK) == 0 ? "/dev/log" : "no /dev/log"; }

Table ComparisonTable() { return Table({"", "daemon", "bare", "min", "median", "max", "best/best", "goal", ""}); }

void MeasureStart(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    const auto costOf = [](const Service& service) {
        return Cost{service.startSeconds, static_cast<double>(service.process.Held().privateDirtyKib)};
    };
    const Comparison comparison = Interleave(
        sizes.startRounds, [&] { return costOf(unit.StartDaemon()); },
        [&] { return costOf(unit.StartBareServer(GetAnswer{}.BareArguments())); });
    AddRatio(table, "start-up, exec to READY=1", comparison, 0, startGoal);
    const Spread difference = comparison.Difference(1);
    table.Add({"idle private dirty memory, KiB", Text("%.0f", comparison.MeasuredSpread(1).median),
               Text("%.0f", comparison.BareSpread(1).median), Text("%+.0f", difference.least),
               Text("%+.0f", difference.median), Text("%+.0f", difference.most), "", Text("<= %+.0f", memoryGoalKib),
               Verdict(difference.median <= memoryGoalKib)});
}

void MeasureGet(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    const Service daemon = unit.StartDaemon();
    const GetAnswer expected = Get(unit.Bus(), daemonEndpoint);
    const Service bare = unit.StartBareServer(expected.BareArguments());
    const Round daemonRound = [&] { return GetRound(unit, daemon, daemonEndpoint, sizes.getsPerRound, expected); };
    const Round bareRound = [&] { return GetRound(unit, bare, bareEndpoint, sizes.getsPerRound, expected); };
    const std::string what = std::string("Get ") + property +
                             (expected.isError ? " (error reply)" : " (value " + std::to_string(expected.value) + ")");
    const Comparison comparison = Interleave(sizes.getRounds, daemonRound, bareRound);
    AddRatio(table, what, comparison, 0, getGoal);
    AddRatio(table, what + ", server CPU", comparison, 1, getCpuGoal);
    AddRatio(table, "noise: the bare Get against itself", Interleave(sizes.getRounds, bareRound, bareRound), 0, 0);
}

void MeasureClient(const BenchUnit& /*unit*/, const Sizes& sizes, Table& table)
{
    const auto compare = [&](const std::string& name, auto client, auto bare) {
        const auto round = [&](auto operation) { return OperationRound(name, sizes.operationsPerRound, operation); };
        const Comparison comparison = Interleave(
            sizes.operationRounds, [&] { return round(client); }, [&] { return round(bare); });
        AddRatio(table, name, comparison, 0, operationGoal);
    };
    const auto getState = [](int32_t* state) { return VideoDaemonDbusHandler::GetRecordingState(*state); };
    const auto stop = [](int32_t* answer) { return *answer = VideoDaemonDbusHandler::StopRecording(); };
    compare("client GetRecordingState (logs nothing)", getState, &BareGetRecordingState);
    compare("client StopRecording, its line to " + SyslogName(), stop, &BareStopRecording);
    const int mask = setlogmask(LOG_UPTO(LOG_INFO));
    compare("client StopRecording, its line masked", stop, &BareStopRecording);
    setlogmask(mask);
}

void MeasureRecordStart(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    const auto compare = [&](const std::string& log, const Environment& environment) {
        const Service daemon = unit.StartDaemon(environment);
        const std::vector<Operation> operations = OperationsOfRecordStart(unit);
        const Comparison comparison = Interleave(
            sizes.recordRounds, [&] { return RecordRound(unit, sizes.recordsPerRound); },
            [&] { return BareRecordRound(operations, sizes.recordsPerRound); });
        AddRatio(table, "VideoRecordStart, log to " + log, comparison, 0, recordGoal);
        return operations;
    };
    PrintOperations(compare(SyslogName(), {}));
    compare("a file", unit.LogToFile());
}

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
