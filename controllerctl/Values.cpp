#include "controllerctl/Values.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>

namespace ControllerCtl
{
namespace
{

template <typename Number>
std::optional<Json> ParseNumber(const std::string& text)
{
    Number number{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional<Json>(number) : std::nullopt;
}

std::optional<Json> ParseReal(const std::string& text)
{
    const auto number = ParseNumber<double>(text);
    return number && std::isfinite(number->get<double>()) ? number : std::nullopt;
}

std::optional<Json> ParseBoolean(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    constexpr std::array<std::pair<std::string_view, bool>, 8> words{{{"on", true},
                                                                      {"yes", true},
                                                                      {"true", true},
                                                                      {"1", true},
                                                                      {"off", false},
                                                                      {"no", false},
                                                                      {"false", false},
                                                                      {"0", false}}};
    const auto* const found =
        std::find_if(words.begin(), words.end(), [&](const auto& word) { return word.first == text; });
    return found == words.end() ? std::nullopt : std::optional<Json>(found->second);
}

/// A whole number, or one with a sign, which is by how much to change.
std::optional<Json> ParseLevel(const std::string& text)
{
    const bool more = text.starts_with('+');
    auto number = ParseNumber<int32_t>(more ? text.substr(1) : text);
    const bool signs = more && text.starts_with("+-");
    if (!number || signs)
    {
        return std::nullopt;
    }
    return more || text.starts_with('-') ? Json::array({*number}) : *number;
}

/// Seconds in a unit of the bus library; no value for a word that is none.
std::optional<double> SecondsIn(std::string_view unit)
{
    constexpr std::array<std::pair<std::string_view, double>, 16> units{{{"", 1},
                                                                         {"s", 1},
                                                                         {"sec", 1},
                                                                         {"second", 1},
                                                                         {"seconds", 1},
                                                                         {"ms", 1e-3},
                                                                         {"msec", 1e-3},
                                                                         {"us", 1e-6},
                                                                         {"usec", 1e-6},
                                                                         {"m", 60},
                                                                         {"min", 60},
                                                                         {"minute", 60},
                                                                         {"minutes", 60},
                                                                         {"h", 3600},
                                                                         {"hr", 3600},
                                                                         {"hour", 3600}}};
    const auto* const found =
        std::find_if(units.begin(), units.end(), [&](const auto& one) { return one.first == unit; });
    return found == units.end() ? std::nullopt : std::optional(found->second);
}

template <typename Kind>
std::string_view Taken(std::string_view& text, Kind kind)
{
    const auto* const end =
        std::find_if_not(text.begin(), text.end(), [&](unsigned char byte) { return kind(byte) != 0; });
    const std::string_view taken = text.substr(0, static_cast<size_t>(end - text.begin()));
    text.remove_prefix(taken.size());
    return taken;
}

std::optional<Json> ParseTime(const std::string& text)
{
    const auto seconds = ParseSeconds(text);
    return seconds ? std::optional<Json>(*seconds) : std::nullopt;
}

} // namespace

const char* Describe(Type type)
{
    switch (type)
    {
    case Type::Flag:
    case Type::Boolean:
        return "on or off";
    case Type::Switch:
        return "on, off or toggle";
    case Type::Integer:
        return "a whole number of 32 bits";
    case Type::Level:
        return "a whole number of 32 bits, or a change like +10 or -10";
    case Type::Natural:
        return "a whole number from 0 to 4294967295";
    case Type::Real:
        return "a number";
    case Type::Time:
        return "a time like 90 (seconds), 5m or \"1h 30min\"";
    case Type::Text:
        return "a text";
    case Type::File:
    case Type::Folder:
        return "a name";
    case Type::List:
        break;
    }
    return "nothing";
}

std::optional<Json> Parse(Type type, const std::string& text)
{
    switch (type)
    {
    case Type::Flag:
    case Type::Boolean:
        return ParseBoolean(text);
    case Type::Switch:
        return text == "toggle" ? std::optional<Json>(text) : ParseBoolean(text);
    case Type::Integer:
        return ParseNumber<int32_t>(text);
    case Type::Level:
        return ParseLevel(text);
    case Type::Natural:
        return ParseNumber<uint32_t>(text);
    case Type::Real:
        return ParseReal(text);
    case Type::Time:
        return ParseTime(text);
    case Type::Text:
    case Type::File:
    case Type::Folder:
        return Json(text);
    case Type::List:
        break;
    }
    return std::nullopt;
}

std::optional<double> ParseSeconds(const std::string& text)
{
    const auto blank = [](unsigned char byte) { return std::isspace(byte); };
    std::string_view rest = text;
    std::optional<double> sum;
    Taken(rest, blank);
    while (!rest.empty())
    {
        double number = 0;
        const auto [stop, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        rest.remove_prefix(static_cast<size_t>(stop - rest.data()));
        Taken(rest, blank);
        const auto unit = SecondsIn(Taken(rest, [](unsigned char byte) { return std::isalpha(byte); }));
        Taken(rest, blank);
        if (error != std::errc() || !std::isfinite(number) || number < 0 || !unit)
        {
            return std::nullopt;
        }
        sum = sum.value_or(0) + number * *unit;
    }
    return sum;
}

std::string Text(const Json& value)
{
    if (value.is_boolean())
    {
        return value.get<bool>() ? "on" : "off";
    }
    if (value.is_string())
    {
        return value.get<std::string>();
    }
    if (!value.is_array())
    {
        return OneLine(value);
    }
    std::string lines;
    for (const Json& entry : value)
    {
        lines += lines.empty() ? "" : "\n";
        lines += Text(entry);
    }
    return lines;
}

std::string Joined(const std::vector<std::string>& texts, std::string_view separator)
{
    std::string joined;
    for (const std::string& text : texts)
    {
        joined.append(joined.empty() ? "" : separator).append(text);
    }
    return joined;
}

std::string Quoted(const Json& value) { return value.is_boolean() ? Text(value) : OneLine(value); }

Json FromController(const Controllerd::ControllerValue& value)
{
    using Kind = Controllerd::ControllerValue::Kind;
    switch (value.kind)
    {
    case Kind::Boolean:
        return value.boolean;
    case Kind::Integer:
        return value.integer;
    case Kind::Real:
        return value.real;
    case Kind::Text:
        return value.text;
    case Kind::List:
        return value.list;
    case Kind::Other:
        break;
    }
    return nullptr;
}

} // namespace ControllerCtl
