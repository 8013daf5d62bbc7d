#include "benchmarks/Measurements.h"

#include "benchmarks/BareCalls.h"
#include "benchmarks/Comparison.h"
#include "benchmarks/Requests.h"
#include "clients/video/VideoDaemonDbusHandler.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

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

/// Time and the server's processor time of a Get.
Cost GetRound(const BenchUnit& unit, const Service& server, const DbusHelper::Endpoint& endpoint, size_t gets)
{
    const double cpuBefore = server.process.CpuSeconds();
    const double time = TimeOf(gets, [&] { Get(unit, endpoint); });
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

void MakeCalls(const std::vector<Operation>& operations)
{
    for (const Operation& operation : operations)
    {
        if (BareCall(operation) < 0)
        {
            throw Failure("the bare call of " + Describe(operation) + " failed");
        }
    }
}

void PrintOperations(const char* what, const std::vector<Operation>& operations)
{
    std::printf("%s makes %zu calls to its siblings:\n", what, operations.size());
    for (size_t i = 0; i < operations.size(); ++i)
    {
        std::printf("%4zu  %s\n", i + 1, Describe(operations[i]).c_str());
    }
    std::printf("\n");
}

/// From exec(3) to READY=1, and what the process holds then.
Cost StartCost(const Service& service)
{
    return {service.startSeconds, static_cast<double>(service.process.Held().privateDirtyKib)};
}

std::string NameOf(LogTarget log) { return log == LogTarget::File ? "a file" : SyslogName(); }

} // namespace

std::string SyslogName() { return access("/dev/log", W_OK) == 0 ? "/dev/log" : "no /dev/log"; }

Table ComparisonTable() { return Table({"", "daemon", "bare", "min", "median", "max", "best/best", "goal", ""}); }

void MeasureStart(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    const std::vector<Operation> calls =
        OperationsOf(unit, [](const BenchUnit& started) { static_cast<void>(started.StartDaemon()); });
    PrintOperations("A start", calls);
    for (const LogTarget log : {LogTarget::Syslog, LogTarget::File})
    {
        const Comparison floor = Interleave(
            sizes.startRounds, [&] { return StartCost(unit.StartDaemon(log)); },
            [&] { return StartCost(unit.StartBareServer(calls, log)); });
        AddRatio(table, "start-up, log to " + NameOf(log), floor, 0, startGoal);
    }
    const Comparison idle = Interleave(
        sizes.startRounds, [&] { return StartCost(unit.StartDaemon()); },
        [&] { return StartCost(unit.StartBareServer()); });
    AddRatio(table, "start-up, bare server without the work", idle, 0, 0);
    const Spread difference = idle.Difference(1);
    table.Add({"idle private dirty memory, KiB", Text("%.0f", idle.MeasuredSpread(1).median),
               Text("%.0f", idle.BareSpread(1).median), Text("%+.0f", difference.least),
               Text("%+.0f", difference.median), Text("%+.0f", difference.most), "", Text("<= %+.0f", memoryGoalKib),
               Verdict(difference.median <= memoryGoalKib)});
}

void MeasureGet(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    const Service daemon = unit.StartDaemon();
    const Service bare = unit.StartBareServer();
    const Round daemonRound = [&] { return GetRound(unit, daemon, daemonEndpoint, sizes.getsPerRound); };
    const Round bareRound = [&] { return GetRound(unit, bare, bareEndpoint, sizes.getsPerRound); };
    const Comparison comparison = Interleave(sizes.getRounds, daemonRound, bareRound);
    AddRatio(table, "Get KeypadBeepEnabled", comparison, 0, getGoal);
    AddRatio(table, "Get KeypadBeepEnabled, server CPU", comparison, 1, getCpuGoal);
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
    for (const LogTarget log : {LogTarget::Syslog, LogTarget::File})
    {
        const Service daemon = unit.StartDaemon(log);
        const std::vector<Operation> operations = OperationsOf(unit, &StartRecording);
        if (log == LogTarget::Syslog)
        {
            PrintOperations("VideoRecordStart", operations);
        }
        const Comparison comparison = Interleave(
            sizes.recordRounds, [&] { return RecordRound(unit, sizes.recordsPerRound); },
            [&] { return Cost{TimeOf(sizes.recordsPerRound, [&] { MakeCalls(operations); })}; });
        AddRatio(table, "VideoRecordStart, log to " + NameOf(log), comparison, 0, recordGoal);
    }
}

void MeasureClock(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    struct Row
    {
        const char* name;
        Request request;
        bool tells; ///< emits "TimeChanged"
    };
    const Service daemon = unit.StartDaemon(LogTarget::File);
    const Service bare = unit.StartBareServer();
    for (const Row row : {Row{"GetTime", &GetTime, false}, Row{"SetTime", &SetTime, true}})
    {
        const std::vector<Operation> operations = OperationsOf(unit, row.request);
        const auto bareRequest = [&] {
            Get(unit, bareEndpoint); // the client's own round trip
            MakeCalls(operations);
            if (row.tells && BareEmitTimeChanged() < 0)
            {
                throw Failure("the bare signal failed");
            }
        };
        const Comparison comparison = Interleave(
            sizes.operationRounds, [&] { return Cost{TimeOf(sizes.operationsPerRound, [&] { row.request(unit); })}; },
            [&] { return Cost{TimeOf(sizes.operationsPerRound, bareRequest)}; });
        AddRatio(table, std::string(row.name) + ", log to a file", comparison, 0, 0);
    }
}

} // namespace Bench
