#pragma once

#include <systemd/sd-event.h>

#include <string>

namespace Bench
{

/// Does what a unit has its controller do at every start before it asks the siblings for anything, written by hand: a
/// run of the mixer, the subscriptions to the siblings' signals, the two GPIO lines, another run, the sounds, the
/// keypad on the loop, and the zones. False when a step fails. What it takes it keeps for the life of the process.
[[nodiscard]] bool BareStart(sd_event* loop);

/// Sets the device whose settings have been dealt with by an operation on this property of a sibling, and reads it
/// back: one of the lines, or the mixer. Positive when it has, 0 when there is no such device, negative when it fails.
[[nodiscard]] int BareDevice(const std::string& property);

} // namespace Bench
