#include "controllerctl/Values.h"

#include <charconv>
#include <cmath>
#include <cstdint>

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

std::optional<Json> ParseBoolean(const std::string& text)
{
    const bool on = text == "on" || text == "true";
    return on || text == "off" || text == "false" ? std::optional<Json>(on) : std::nullopt;
}

} // namespace

const char* Describe(Type type)
{
    switch (type)
    {
    case Type::Flag:
    case Type::Boolean:
        return "on or off";
    case Type::Integer:
        return "a whole number of 32 bits";
    case Type::Natural:
        return "a whole number from 0 to 4294967295";
    case Type::Real:
        return "a number";
    case Type::Text:
        return "a text";
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
    case Type::Integer:
        return ParseNumber<int32_t>(text);
    case Type::Natural:
        return ParseNumber<uint32_t>(text);
    case Type::Real:
        return ParseReal(text);
    case Type::Text:
        return Json(text);
    case Type::List:
        break;
    }
    return std::nullopt;
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
