#pragma once

#include "benchmarks/Operation.h"

#include <systemd/sd-event.h>

#include <vector>

namespace Bench
{

/// Does what a unit has its controller do at every start, written by hand: the subscriptions to the siblings'
/// signals, the four runs of the mixer, the two GPIO lines, the keypad on the loop, and then the calls to the siblings,
/// each on a connection of its own. False when a step fails. What it takes it keeps for the life of the process.
[[nodiscard]] bool BareStart(sd_event* loop, const std::vector<Operation>& calls);

} // namespace Bench
