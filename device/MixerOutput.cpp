#include "device/MixerOutput.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace ControllerDaemon
{

bool IsMixerLine(std::string_view line, std::string_view key)
{
    return line.find(std::string(key) + ":") != std::string_view::npos;
}

std::string MixerText(std::string_view line)
{
    // Not found plus two is one: deliberate, see the header.
    return std::string(line.substr(std::min(line.find(':') + 2, line.size())));
}

bool ParseVolume(const std::string& text, int& raw, int& percent, float& decibels)
{
    std::tuple<int, int, float> read;
    auto& [rawRead, percentRead, decibelsRead] = read;
    if (std::sscanf(text.c_str(), "Playback %d [%d%%] [%fdB]", &rawRead, &percentRead, &decibelsRead) != 3)
    {
        return false;
    }
    std::tie(raw, percent, decibels) = read;
    return true;
}

bool ParseLimits(const std::string& text, int& minimum, int& maximum)
{
    std::tuple<int, int> read;
    auto& [minimumRead, maximumRead] = read;
    if (std::sscanf(text.c_str(), "Playback %d - %d", &minimumRead, &maximumRead) != 2)
    {
        return false;
    }
    std::tie(minimum, maximum) = read;
    return true;
}

} // namespace ControllerDaemon
