#pragma once

#include <systemd/sd-bus.h>

#include <string>
#include <vector>

namespace Halvexd
{

/// The property "BatteryLevelIcons" of the hardware daemon: a text, the icons of the right battery, a second text, of
/// which nobody knows what it is for, and the icons of the left battery.
struct BatteryLevelIcons
{
    static constexpr const char* signature = "(sassas)";

    std::string text; ///< the hardware daemon's
    std::vector<std::string> right;
    std::vector<std::string> left;
};

/// Reads the property's value, at which the message is positioned. Negative errno-style on failure; which part could
/// not be read is logged.
[[nodiscard]] int ReadBatteryLevelIcons(sd_bus_message* message, BatteryLevelIcons& icons);

} // namespace Halvexd
