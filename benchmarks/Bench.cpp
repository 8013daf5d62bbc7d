// Measures the daemon beside the least that can do the same: plain sd-bus, on the same private bus, in the same run.

#include "benchmarks/Comparison.h"
#include "benchmarks/Measurements.h"

#include <sched.h>
#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

namespace
{

constexpr const char* usage = "usage: ccu_bench BUILD_FOLDER [--quick]\n";

/// Everything that is measured runs on one processor, this program and what it starts: who waits for whom is the same
/// as on several, and it does not depend any more on where the scheduler happened to put each process.
void StayOnOneProcessor()
{
    cpu_set_t processors;
    if (sched_getaffinity(0, sizeof processors, &processors) != 0)
    {
        return;
    }
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &processors))
    {
        --last;
    }
    CPU_ZERO(&processors);
    CPU_SET(last, &processors);
    sched_setaffinity(0, sizeof processors, &processors);
}

std::string ProcessorName()
{
    std::ifstream information("/proc/cpuinfo");
    for (std::string line; std::getline(information, line);)
    {
        if (line.starts_with("model name"))
        {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown processor";
}

std::string Load()
{
    std::string load;
    std::getline(std::ifstream("/proc/loadavg"), load);
    return load.substr(0, load.rfind(' '));
}

void PrintMachine()
{
    utsname system{};
    uname(&system);
    std::printf("machine   %s, %u processors (one used), Linux %s %s\n", ProcessorName().c_str(),
                std::thread::hardware_concurrency(), static_cast<const char*>(system.release),
                static_cast<const char*>(system.machine));
    std::printf("build     %s\n", CCU_BENCH_CONFIG);
    std::printf("syslog    %s\n", Bench::SyslogName().c_str());
    std::printf("load      %s\n\n", Load().c_str());
}

/// False, and said, when something could not be measured.
bool Try(const char* name, const std::function<void()>& measure)
{
    try
    {
        std::fprintf(stderr, "measuring %s ...\n", name);
        measure();
        return true;
    }
    catch (const Bench::Failure& failure)
    {
        std::fprintf(stderr, "%s could not be measured: %s\n", name, failure.what());
        return false;
    }
}

bool Measure(const std::string& build, const Bench::Sizes& sizes)
{
    const Bench::BenchUnit unit(build);
    Bench::Table table = Bench::ComparisonTable();
    bool isComplete = Try("size", [&] { Bench::MeasureSize(unit, table); });
    isComplete = Try("start-up and memory", [&] { Bench::MeasureStart(unit, sizes, table); }) && isComplete;
    isComplete = Try("property Get", [&] { Bench::MeasureGet(unit, sizes, table); }) && isComplete;
    isComplete = Try("client operations", [&] { Bench::MeasureClient(unit, sizes, table); }) && isComplete;
    isComplete = Try("VideoRecordStart", [&] { Bench::MeasureRecordStart(unit, sizes, table); }) && isComplete;
    isComplete = Try("GetTime and SetTime", [&] { Bench::MeasureClock(unit, sizes, table); }) && isComplete;
    isComplete = Try("pipelines", [&] { Bench::MeasurePipelines(unit, sizes, table); }) && isComplete;
    isComplete = Try("signals", [&] { Bench::MeasureSignals(unit, sizes, table); }) && isComplete;
    isComplete = Try("tools", [&] { Bench::MeasureTools(unit, sizes, table); }) && isComplete;
    isComplete = Try("screenshots", [&] { Bench::MeasureScreenshot(unit, sizes, table); }) && isComplete;
    table.Print();
    std::printf("\n");
    isComplete = Try("growth", [&] { Bench::MeasureGrowth(unit, sizes); }) && isComplete;
    std::printf("\n");
    isComplete = Try("endurance", [&] { Bench::MeasureEndurance(unit, sizes); }) && isComplete;
    std::printf("\nload      %s\n", Load().c_str());
    return isComplete;
}

} // namespace

int main(int count, char** arguments)
{
    const bool isQuick = count == 3 && arguments[2] == std::string_view("--quick");
    if (count != 2 && !isQuick)
    {
        std::fputs(usage, stderr);
        return 2;
    }
    Bench::ListenToInterrupts();
    PrintMachine();
    StayOnOneProcessor();
    try
    {
        return Measure(arguments[1], isQuick ? Bench::quickSizes : Bench::fullSizes) ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    catch (const Bench::Failure& failure)
    {
        std::fprintf(stderr, "nothing could be measured: %s\n", failure.what());
        return EXIT_FAILURE;
    }
    catch (const Bench::Interrupted&)
    {
        std::fprintf(stderr, "interrupted\n");
        return 130;
    }
}
