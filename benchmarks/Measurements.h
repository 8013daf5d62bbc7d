#pragma once

#include "benchmarks/BenchUnit.h"
#include "benchmarks/Table.h"

#include <cstddef>
#include <cstdint>

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
                                 .endurance = 100'000};
inline constexpr Sizes quickSizes{.startRounds = 15,
                                  .getRounds = 61,
                                  .getsPerRound = 50,
                                  .operationRounds = 61,
                                  .operationsPerRound = 10,
                                  .recordRounds = 41,
                                  .recordsPerRound = 1,
                                  .endurance = 4'000};

/// Where syslog(3) leads on this machine.
[[nodiscard]] std::string SyslogName();

/// The columns of the comparisons: what the daemon's side and the bare side cost (medians), then the ratio or the
/// difference of the two, pair by pair.
[[nodiscard]] Table ComparisonTable();

/// Each measures one thing and adds its rows to the table; each starts the processes that it needs. They throw Failure
/// when something cannot be measured.

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
/// Memory and descriptors over many calls and signals; a table of its own, printed.
void MeasureEndurance(const BenchUnit& unit, const Sizes& sizes);

} // namespace Bench
