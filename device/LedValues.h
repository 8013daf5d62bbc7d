#pragma once

#include <cstdint>

namespace ControllerDaemon
{

/// Numbers of the front panel's LEDs.
inline constexpr int micLed = 0;
inline constexpr int sondeLed = 3;

/// What the front panel is told for a value of a switch: 0 off, 1 on, anything else 3.
[[nodiscard]] constexpr uint32_t SwitchLedValue(int value) { return value == 0 || value == 1 ? value : 3; }

/// ... and for a value of a capture, which has one more state: 0, 1, 2, anything else 3.
[[nodiscard]] constexpr uint32_t CaptureLedValue(int value) { return value == 2 ? 2 : SwitchLedValue(value); }

} // namespace ControllerDaemon
