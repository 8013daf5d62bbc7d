#include "benchmarks/Measurements.h"
#include "benchmarks/Requests.h"
#include "dbus_helper/Handles.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <utility>

namespace Bench
{
namespace
{

constexpr size_t clients = 8;
constexpr size_t callsAtATime = 16;
constexpr double rateGoal = 0.95;
constexpr double toolGoal = 0.8;
constexpr double statusGoal = 2;
constexpr double exponentGoal = 1.05;

double SecondsSince(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

/// A client that asks many times before it listens.
class Pipeline
{
  public:
    Pipeline()
    {
        if (DbusHelper::OpenUserBus(bus_) < 0)
        {
            throw Failure("cannot connect another client");
        }
    }

    void Ask(const DbusHelper::Endpoint& endpoint)
    {
        for (; waiting_ < callsAtATime; ++waiting_)
        {
            if (sd_bus_call_method_async(bus_.get(), nullptr, endpoint.service, endpoint.path,
                                         "org.freedesktop.DBus.Properties", "Get", &OnAnswer, this, "ss",
                                         endpoint.interface, "KeypadBeepEnabled") < 0)
            {
                throw Failure("cannot ask");
            }
        }
        sd_bus_flush(bus_.get());
    }

    void Listen()
    {
        while (waiting_ > 0)
        {
            const int result = sd_bus_process(bus_.get(), nullptr);
            if (result < 0 || (result == 0 && sd_bus_wait(bus_.get(), UINT64_MAX) < 0) || hasFailed_)
            {
                throw Failure("a pipelined call was not answered");
            }
        }
    }

  private:
    static int OnAnswer(sd_bus_message* answer, void* userData, sd_bus_error* /*error*/)
    {
        auto& pipeline = *static_cast<Pipeline*>(userData);
        --pipeline.waiting_;
        pipeline.hasFailed_ = pipeline.hasFailed_ || sd_bus_message_is_method_error(answer, nullptr) > 0;
        return 0;
    }

    DbusHelper::BusHandle bus_;
    size_t waiting_ = 0;
    bool hasFailed_ = false;
};

/// Runs a program to its end, unheard.
void Run(const std::vector<std::string>& words)
{
    std::vector<char*> arguments;
    for (const std::string& word : words)
    {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t unheard{};
    posix_spawn_file_actions_init(&unheard);
    posix_spawn_file_actions_addopen(&unheard, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int error = posix_spawnp(&child, arguments.front(), &unheard, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&unheard);
    int status = -1;
    if (error != 0 || waitpid(child, &status, 0) != child || status != 0)
    {
        throw Failure(words.front() + " does not do what it is to do");
    }
}

/// Sizes of what grows, and the daemon's processor time with each: the least of several times, since what others do
/// beside it only adds.
using Sized = std::array<std::pair<uint32_t, double>, 3>;

Sized LeastCpu(const std::array<uint32_t, 3>& sizes, const Service& daemon, size_t times,
               const std::function<void(uint32_t size)>& prepare, const std::function<void()>& work)
{
    Sized sized;
    for (size_t i = 0; i < times; ++i)
    {
        ThrowIfInterrupted();
        for (size_t place = 0; place < sizes.size(); ++place)
        {
            prepare(sizes.at(place));
            const double before = daemon.process.CpuSeconds();
            work();
            const double seconds = daemon.process.CpuSeconds() - before;
            auto& [size, least] = sized.at(place);
            size = sizes.at(place);
            least = i == 0 ? seconds : std::min(least, seconds);
        }
    }
    return sized;
}

/// With the first size's cost taken off, which is what the work costs without anything that grows.
void AddGrowth(Table& table, const std::string& name, const Sized& sized)
{
    const auto& [first, second, third] = sized;
    const double exponent = std::log((third.second - first.second) / (second.second - first.second)) /
                            std::log(static_cast<double>(third.first) / second.first);
    std::vector<std::string> row{name};
    for (const auto& [size, seconds] : sized)
    {
        row.push_back(std::to_string(size) + ": " + Microseconds(seconds));
    }
    row.insert(row.end(), {Text("%.3f", exponent), Text("<= %.2f", exponentGoal), Verdict(exponent <= exponentGoal)});
    table.Add(std::move(row));
}

} // namespace

void MeasurePipelines(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    const Service daemon = unit.StartDaemon();
    const Service bare = unit.StartBareServer();
    std::array<Pipeline, clients> pipelines;
    const auto round = [&](const DbusHelper::Endpoint& endpoint) {
        const Clock::time_point begin = Clock::now();
        for (Pipeline& pipeline : pipelines)
        {
            pipeline.Ask(endpoint);
        }
        for (Pipeline& pipeline : pipelines)
        {
            pipeline.Listen();
        }
        return Cost{SecondsSince(begin) / static_cast<double>(clients * callsAtATime)};
    };
    AddRate(table, "8 clients x 16 Gets at a time",
            Interleave(
                sizes.operationRounds, [&] { return round(daemonEndpoint); }, [&] { return round(bareEndpoint); }),
            rateGoal);
}

void MeasureSignals(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    BareWork work{"signal", {}};
    std::optional<Service> daemon = unit.StartDaemon(LogTarget::File);
    const size_t before = unit.LogLines();
    unit.StartLog();
    unit.Emit("VideoGrew", 1, unit.ConnectionsOf(daemon->process.Pid()));
    work.calls = unit.TakeLog();
    work.lines = unit.LogLines() - before;
    // Only one of the two listens at a time, or each would work for both.
    const auto round = [&](const Service& server) {
        const std::vector<std::string> connections = unit.ConnectionsOf(server.process.Pid());
        unit.Emit("VideoGrew", 1, connections);
        const Clock::time_point begin = Clock::now();
        unit.Emit("VideoGrew", static_cast<uint32_t>(sizes.signalsPerRound), connections);
        return Cost{SecondsSince(begin) / static_cast<double>(sizes.signalsPerRound)};
    };
    daemon.reset();
    AddRate(table,
            Text("signals \"VideoGrew\" (%zu calls, %zu lines each), log to a file", work.calls.size(), work.lines),
            Interleave(
                sizes.signalRounds, [&] { return round(unit.StartDaemon(LogTarget::File)); },
                [&] { return round(unit.StartBareServer(work, LogTarget::File)); }),
            rateGoal);
}

void MeasureTools(const BenchUnit& unit, const Sizes& sizes, Table& table)
{
    const Service daemon = unit.StartDaemon();
    const auto [service, path, interface] = daemonEndpoint;
    const auto timed = [](const std::vector<std::string>& words) {
        const Clock::time_point begin = Clock::now();
        Run(words);
        return Cost{SecondsSince(begin)};
    };
    const std::vector<std::string> ours{unit.ControlProgram(), "key-beep"};
    const std::vector<std::string> busctl{"busctl", "--user",  "get-property",     service,
                                          path,     interface, "KeypadBeepEnabled"};
    const std::vector<std::string> gdbus{"gdbus",
                                         "call",
                                         "--session",
                                         "--dest",
                                         service,
                                         "--object-path",
                                         path,
                                         "--method",
                                         "org.freedesktop.DBus.Properties.Get",
                                         interface,
                                         "KeypadBeepEnabled"};
    for (const auto& theirs : {busctl, gdbus})
    {
        AddRatio(table, "controllerctl key-beep / " + theirs.front(),
                 Interleave(
                     sizes.toolRounds, [&] { return timed(ours); }, [&] { return timed(theirs); }),
                 0, toolGoal);
    }
    const std::vector<std::string> status{unit.ControlProgram(), "status"};
    AddRatio(table, "controllerctl status / busctl get-property",
             Interleave(
                 sizes.toolRounds, [&] { return timed(status); }, [&] { return timed(busctl); }),
             0, statusGoal);
}

void MeasureGrowth(const BenchUnit& unit, const Sizes& sizes)
{
    const Service daemon = unit.StartDaemon();
    const std::vector<std::string> connections = unit.ConnectionsOf(daemon.process.Pid());
    const Sized devices = LeastCpu(
        {1, 100, 1000}, daemon, sizes.recordRounds,
        [&](uint32_t count) {
            unit.Resize(count, 1);
            RemoveMarkers(unit);
        },
        [&] { StartRecording(unit); });
    const Sized entries = LeastCpu(
        {1, 1000, 10'000}, daemon, sizes.signalRounds, [&](uint32_t count) { unit.Resize(1, count); },
        [&] { unit.Emit("StorageChanged", 1, connections); });
    unit.Resize(1, 1);
    Table table({"processor time with", "", "", "", "exponent", "goal", ""});
    AddGrowth(table, "storage devices (VideoRecordStart)", devices);
    AddGrowth(table, "properties in a signal", entries);
    table.Print();
}

} // namespace Bench
