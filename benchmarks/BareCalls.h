#pragma once

#include "benchmarks/Operation.h"

#include <cstdint>
#include <string>

namespace Bench
{

/// "Service.Member", or "Service.Get Property" (Set), with the service's last name.
[[nodiscard]] std::string Describe(const Operation& operation);

/// The client operations as one writes them by hand in plain sd-bus: open the user bus, call, read, close. They return
/// sd-bus's result, negative errno-style on failure.
int BareGetRecordingState(int32_t* state);
int BareStopRecording(int32_t* answer);

/// A change of the clock, told in the same way.
int BareEmitTimeChanged();

/// The same for any operation, with arguments of its signature.
int BareCall(const Operation& operation);

} // namespace Bench
