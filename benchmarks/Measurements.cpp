#include "benchmarks/Measurements.h"

#include "benchmarks/BareCalls.h"
#include "benchmarks/Comparison.h"
#include "benchmarks/Requests.h"
#include "clients/video/VideoDaemonDbusHandler.h"

#include <elf.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <utility>

namespace Bench
{
namespace
{

using Videod::VideoDaemonDbusHandler;

constexpr double getGoal = 1.05;
constexpr double getCpuGoal = 1.2;
constexpr double operationGoal = 1.05;
constexpr double recordGoal = 1.03;
constexpr double startGoal = 1.05;
constexpr double memoryGoalKib = 60;
constexpr double textGoal = 420'000;

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

/// Time and the server's processor time of a recording's start.
Cost RecordRound(const BenchUnit& unit, const Service& server, size_t records, Request record)
{
    Clock::duration taken{};
    const double cpuBefore = server.process.CpuSeconds();
    for (size_t i = 0; i < records; ++i)
    {
        RemoveMarkers(unit);
        const Clock::time_point begin = Clock::now();
        record(unit);
        taken += Clock::now() - begin;
    }
    const double cpu = server.process.CpuSeconds() - cpuBefore;
    return {Seconds(taken) / static_cast<double>(records), cpu / static_cast<double>(records)};
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

/// From exec(3) to READY=1, what the process holds then, and its own processor time.
Cost StartCost(const Service& service)
{
    return {service.startSeconds, static_cast<double>(service.process.Held().privateDirtyKib),
            service.process.CpuSeconds()};
}

/// What size(1) calls text: what a program's file brings into memory and nobody writes to.
size_t TextBytes(const std::filesystem::path& program)
{
    std::ifstream file(program, std::ios::binary);
    Elf64_Ehdr header{};
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    file.seekg(static_cast<std::streamoff>(header.e_shoff));
    size_t bytes = 0;
    Elf64_Shdr section{};
    for (int i = 0; i < header.e_shnum && file.read(reinterpret_cast<char*>(&section), sizeof section); ++i)
    {
        const bool isText = (section.sh_flags & SHF_ALLOC) != 0 && (section.sh_flags & SHF_WRITE) == 0;
        bytes += isText ? section.sh_size : 0;
    }
    if (bytes == 0)
    {
        throw Failure(program.string() + " is no program of this machine's size");
    }
    return bytes;
}

std::string NameOf(LogTarget log) { return log == LogTarget::File ? "a file" : SyslogName(); }

} // namespace

std::string SyslogName() { return access("/dev/log", W_OK) == 0 ? "/dev/log" : "no /dev/log"; }

void AddRatio(Table& table, const std::string& name, const Comparison& comparison, size_t index, double goal)
{
    const Spread ratio = comparison.Ratio(index);
    table.Add({name, Microseconds(comparison.MeasuredSpread(index).median),
               Microseconds(comparison.BareSpread(index).median), Text("%.3f", ratio.least), Text("%.3f", ratio.median),
               Text("%.3f", ratio.most), Text("%.3f", comparison.RatioOfLeast(index)),
               goal > 0 ? Text("<= %.2f", goal) : "-", goal > 0 ? Verdict(ratio.median <= goal) : ""});
}

void AddRate(Table& table, const std::string& name, const Comparison& comparison, double goal)
{
    const Comparison inverse{comparison.bare, comparison.measured};
    const Spread ratio = inverse.Ratio(0);
    table.Add({name, Text("%.0f/s", 1 / comparison.MeasuredSpread(0).median),
               Text("%.0f/s", 1 / comparison.BareSpread(0).median), Text("%.3f", ratio.least),
               Text("%.3f", ratio.median), Text("%.3f", ratio.most), Text("%.3f", inverse.RatioOfLeast(0)),
               Text(">= %.2f", goal), Verdict(ratio.median >= goal)});
}

Table ComparisonTable() { return Table({"", "daemon", "bare", "min", "median", "max", "best/best", "goal", ""}); }

void MeasureSize(const BenchUnit& unit, Table& table)
{
    const auto daemon = static_cast<double>(TextBytes(unit.DaemonProgram()));
    const auto bare = static_cast<double>(TextBytes(unit.BareServerProgram()));
    table.Add({"text, bytes", Text("%.0f", daemon), Text("%.0f", bare), "", "", "", "", Text("<= %.0f", textGoal),
               Verdict(daemon <= textGoal)});
}

void MeasureStart(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    BareWork work{"start", {}};
    const size_t before = unit.LogLines();
    work.calls =
        OperationsOf(unit, [](const BenchUnit& started) { static_cast<void>(started.StartDaemon(LogTarget::File)); });
    work.lines = unit.LogLines() - before;
    {
        const Service daemon = unit.StartDaemon();
        const Service bare = unit.StartBareServer();
        work.members = unit.CountMembers(daemonEndpoint) - unit.CountMembers(bareEndpoint);
    }
    PrintOperations("A start", work.calls);
    Comparison floor;
    for (const LogTarget log : {LogTarget::Syslog, LogTarget::File})
    {
        floor = Interleave(
            sizes.startRounds, [&] { return StartCost(unit.StartDaemon(log)); },
            [&] { return StartCost(unit.StartBareServer(work, log)); });
        AddRatio(table, "start-up, log to " + NameOf(log), floor, 0, startGoal);
        AddRatio(table, "start-up, log to " + NameOf(log) + ", own CPU", floor, 2, 0);
    }
    const Comparison idle = Interleave(
        sizes.startRounds, [&] { return StartCost(unit.StartDaemon()); },
        [&] { return StartCost(unit.StartBareServer()); });
    AddRatio(table, "start-up, bare server without the work", idle, 0, 0);
    const Spread difference = floor.Difference(1);
    table.Add({"idle private dirty memory, KiB", Text("%.0f", floor.MeasuredSpread(1).median),
               Text("%.0f", floor.BareSpread(1).median), Text("%+.0f", difference.least),
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
    BareWork work{"record", {}};
    for (const LogTarget log : {LogTarget::File, LogTarget::Syslog})
    {
        const Service daemon = unit.StartDaemon(log);
        if (log == LogTarget::File)
        {
            const size_t before = unit.LogLines();
            work.calls = OperationsOf(unit, &StartRecording);
            work.lines = unit.LogLines() - before;
            PrintOperations("VideoRecordStart", work.calls);
        }
        const Service bare = unit.StartBareServer(work, log);
        const Comparison comparison = Interleave(
            sizes.recordRounds, [&] { return RecordRound(unit, daemon, sizes.recordsPerRound, &StartRecording); },
            [&] { return RecordRound(unit, bare, sizes.recordsPerRound, &StartBareRecording); });
        AddRatio(table, "VideoRecordStart, log to " + NameOf(log), comparison, 0, recordGoal);
        AddRatio(table, "VideoRecordStart, log to " + NameOf(log) + ", server CPU", comparison, 1, 0);
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
