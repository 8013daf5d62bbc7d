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

constexpr const char* usage = "usage: ccu_bench BUILD_FOLDER [--quick] [--only WORDS]\n";

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

struct Options
{
    Bench::Sizes sizes = Bench::fullSizes;
    std::string only; ///< in the names of what is measured
};

/// False for what are no options.
bool Read(int count, char** arguments, Options& options)
{
    for (int i = 2; i < count; ++i)
    {
        const std::string_view word = arguments[i];
        if (word == "--quick")
        {
            options.sizes = Bench::quickSizes;
        }
        else if (word == "--only" && i + 1 < count)
        {
            options.only = arguments[++i];
        }
        else
        {
            return false;
        }
    }
    return count > 1;
}

/// False, and said, when something could not be measured.
bool Try(const std::string& only, const char* name, const std::function<void()>& measure)
{
    if (std::string_view(name).find(only) == std::string_view::npos)
    {
        return true;
    }
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

bool Measure(const std::string& build, const Options& options)
{
    const Bench::BenchUnit unit(build);
    const Bench::Sizes& sizes = options.sizes;
    Bench::Table table = Bench::ComparisonTable();
    bool isComplete = true;
    const auto tried = [&](const char* name, const std::function<void()>& measure) {
        isComplete = Try(options.only, name, measure) && isComplete;
    };
    tried("size", [&] { Bench::MeasureSize(unit, table); });
    tried("start-up and memory", [&] { Bench::MeasureStart(unit, sizes, table); });
    tried("property Get", [&] { Bench::MeasureGet(unit, sizes, table); });
    tried("client operations", [&] { Bench::MeasureClient(unit, sizes, table); });
    tried("VideoRecordStart", [&] { Bench::MeasureRecordStart(unit, sizes, table); });
    tried("GetTime and SetTime", [&] { Bench::MeasureClock(unit, sizes, table); });
    tried("pipelines", [&] { Bench::MeasurePipelines(unit, sizes, table); });
    tried("signals", [&] { Bench::MeasureSignals(unit, sizes, table); });
    tried("tools", [&] { Bench::MeasureTools(unit, sizes, table); });
    tried("screenshots", [&] { Bench::MeasureScreenshot(unit, sizes, table); });
    table.Print();
    std::printf("\n");
    tried("growth", [&] { Bench::MeasureGrowth(unit, sizes); });
    std::printf("\n");
    tried("endurance", [&] { Bench::MeasureEndurance(unit, sizes); });
    std::printf("\nload      %s\n", Load().c_str());
    return isComplete;
}

} // namespace

int main(int count, char** arguments)
{
    Options options;
    if (!Read(count, arguments, options))
    {
        std::fputs(usage, stderr);
        return 2;
    }
    Bench::ListenToInterrupts();
    PrintMachine();
    StayOnOneProcessor();
    try
    {
        return Measure(arguments[1], options) ? EXIT_SUCCESS : EXIT_FAILURE;
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
