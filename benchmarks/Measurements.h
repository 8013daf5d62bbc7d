#pragma once

#include "benchmarks/BenchUnit.h"
#include "benchmarks/Comparison.h"
#include "benchmarks/Table.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Bench
{

/// How long the measurements are.
struct Sizes
{
    size_t startRounds;
    size_t getRounds;
    size_t getsPerRound;
    size_t operationRounds;
    size_t operationsPerRound;
    size_t recordRounds;
    size_t recordsPerRound;
    size_t signalRounds;
    size_t signalsPerRound;
    size_t toolRounds;
    size_t screenshotRounds;
    uint32_t endurance; ///< calls, and as many signals
};

// Many short rounds rather than few long ones: a disturbance spoils a pair, not the median.
inline constexpr Sizes fullSizes{.startRounds = 101,
                                 .getRounds = 401,
                                 .getsPerRound = 50,
                                 .operationRounds = 401,
                                 .operationsPerRound = 10,
                                 .recordRounds = 301,
                                 .recordsPerRound = 1,
                                 .signalRounds = 51,
                                 .signalsPerRound = 100,
                                 .toolRounds = 101,
                                 .screenshotRounds = 31,
                                 .endurance = 100'000};
inline constexpr Sizes quickSizes{.startRounds = 15,
                                  .getRounds = 61,
                                  .getsPerRound = 50,
                                  .operationRounds = 61,
                                  .operationsPerRound = 10,
                                  .recordRounds = 41,
                                  .recordsPerRound = 1,
                                  .signalRounds = 11,
                                  .signalsPerRound = 100,
                                  .toolRounds = 21,
                                  .screenshotRounds = 5,
                                  .endurance = 4'000};

/// Where syslog(3) leads on this machine.
[[nodiscard]] std::string SyslogName();

/// The columns of the comparisons: what the daemon's side and the bare side cost (medians), then the ratio or the
/// difference of the two, pair by pair.
[[nodiscard]] Table ComparisonTable();

/// Adds the row of a comparison, whose median ratio is to be at most the goal; 0: there is none.
void AddRatio(Table& table, const std::string& name, const Comparison& comparison, size_t index, double goal);
/// The same of how much is done in a time: the ratio is the other way round, and to be at least the goal.
void AddRate(Table& table, const std::string& name, const Comparison& comparison, double goal);

/// Each measures one thing and adds its rows to the table; each starts the processes that it needs. They throw Failure
/// when something cannot be measured.

/// How large the program is, in memory that it shares with nobody's changes: code and constants.
void MeasureSize(const BenchUnit& unit, Table& table);
/// Start-up, beside a server that does the same work as it starts and beside one that only serves; and the memory of
/// the idle process.
void MeasureStart(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// A property Get: time, and the server's processor time.
void MeasureGet(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// Operations of a client, which run in this process, against the same written by hand.
void MeasureClient(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// "VideoRecordStart" against the calls that it makes, with the log where the machine has it and in a file.
void MeasureRecordStart(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// "GetTime" and "SetTime" against a round trip, the calls that they make, and the signal that the second emits.
void MeasureClock(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// Many clients that do not wait for one answer before they ask again.
void MeasurePipelines(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// Signals of a recording in progress against a handler that makes the same calls and lines.
void MeasureSignals(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// `controllerctl` against the tools that every system has.
void MeasureTools(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// A screenshot's steps before the encoder against a floor of their own, and the whole of it against the encoder.
void MeasureScreenshot(const BenchUnit& unit, const Sizes& sizes, Table& table);
/// How the daemon's work grows with what the siblings tell; a table of its own, printed.
void MeasureGrowth(const BenchUnit& unit, const Sizes& sizes);
/// Memory and descriptors over many calls and signals; a table of its own, printed.
void MeasureEndurance(const BenchUnit& unit, const Sizes& sizes);

} // namespace Bench
