#pragma once

#include <systemd/sd-event.h>

namespace Bench
{

/// Does what a unit has its controller do at every start, written by hand and without the calls to the siblings: the
/// subscriptions to their signals, the four runs of the mixer, the two GPIO lines, and the keypad on the loop. False
/// when a step fails. What it takes it keeps for the life of the process.
[[nodiscard]] bool BareStart(sd_event* loop);

} // namespace Bench
