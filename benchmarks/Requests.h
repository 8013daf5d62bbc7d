#pragma once

#include "benchmarks/BenchUnit.h"

#include <vector>

/// What the benchmark, as a client, asks of the daemon. All throw Failure when it is not done.
namespace Bench
{

/// Reads "KeypadBeepEnabled", which both servers answer from memory, and which must be true.
void Get(const BenchUnit& unit, const DbusHelper::Endpoint& endpoint);

void StartRecording(const BenchUnit& unit);
/// The bare server's member that does as much.
void StartBareRecording(const BenchUnit& unit);
/// Removes the markers of the recording that was begun, for the next start to make them again.
void RemoveMarkers(const BenchUnit& unit);

void SetTime(const BenchUnit& unit);
void GetTime(const BenchUnit& unit);

using Request = void (*)(const BenchUnit& unit);

/// The calls that the daemon makes to its siblings for it.
[[nodiscard]] std::vector<Operation> OperationsOf(const BenchUnit& unit, Request request);

} // namespace Bench
