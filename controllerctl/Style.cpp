#include "controllerctl/Style.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace ControllerCtl
{
namespace
{

const char* CodeOf(Tone tone)
{
    switch (tone)
    {
    case Tone::Quiet:
        return "2";
    case Tone::Good:
        return "32";
    case Tone::Busy:
        return "1;36";
    case Tone::Warning:
        return "33";
    case Tone::Bad:
        return "1;31";
    case Tone::Plain:
        break;
    }
    return nullptr;
}

bool IsSet(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

} // namespace

Parameter ColorParameter()
{
    return {.name = "--color", .about = "Colours", .initial = "auto", .choices = {"auto", "always", "never"}};
}

bool WantsColor(const Arguments& arguments)
{
    const auto wish = arguments.at("color").get<std::string>();
    const char* terminal = std::getenv("TERM");
    const bool hasColors = terminal != nullptr && std::string_view(terminal) != "dumb";
    return wish == "always" || (wish == "auto" && hasColors && !IsSet("NO_COLOR") && isatty(STDOUT_FILENO) == 1);
}

std::string Painted(const std::string& text, Tone tone, bool color)
{
    const char* code = color ? CodeOf(tone) : nullptr;
    return code == nullptr || text.empty() ? text : "\x1b[" + std::string(code) + "m" + text + "\x1b[0m";
}

std::string Aligned(const std::vector<Row>& rows, bool color)
{
    size_t width = 0;
    for (const Row& row : rows)
    {
        width = std::max(width, row.label.size());
    }
    std::string text;
    for (const Row& row : rows)
    {
        text += text.empty() ? "" : "\n";
        text += row.label + std::string(width + 2 - row.label.size(), ' ') + Painted(row.text, row.tone, color);
    }
    return text;
}

std::string Bytes(uint64_t bytes)
{
    constexpr std::array units{"B", "kB", "MB", "GB", "TB"};
    constexpr double step = 1000;
    size_t unit = 0;
    auto amount = static_cast<double>(bytes);
    while (amount >= step && unit + 1 < units.size())
    {
        amount /= step;
        ++unit;
    }
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", amount, units.at(unit));
    return text.data();
}

std::string Duration(int64_t seconds)
{
    constexpr int64_t minute = 60;
    constexpr int64_t hour = 3600;
    std::array<char, 40> text{};
    const auto part = [](int64_t value) { return static_cast<long long>(value); };
    if (seconds >= hour)
    {
        std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", part(seconds / hour),
                      part(seconds % hour / minute), part(seconds % minute));
    }
    else
    {
        std::snprintf(text.data(), text.size(), "%lld:%02lld", part(seconds / minute), part(seconds % minute));
    }
    return text.data();
}

} // namespace ControllerCtl
