#pragma once

#include "dbus_helper/Codec.h"
#include "dbus_helper/PropertyMap.h"

#include <nlohmann/json.hpp>

#include <any>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

/// How the values of the clients' operations read as JSON: basic types and enumerations as themselves, lists,
/// structures and records as arrays, maps as objects. Every type has a sentinel too, the value that an out-argument has
/// before the call.
namespace Driver
{

using Json = nlohmann::json;

template <typename T, typename = void>
struct JsonValue
{
    static Json To(const T& value) { return value; }
    static T From(const Json& json) { return json.get<T>(); }
    static T Sentinel()
    {
        if constexpr (std::is_same_v<T, std::string>)
        {
            return "untouched";
        }
        else if constexpr (std::is_same_v<T, bool>)
        {
            return true;
        }
        else
        {
            return T{77};
        }
    }
};

template <typename T>
struct JsonValue<T, std::enable_if_t<std::is_enum_v<T>>>
{
    using Number = std::underlying_type_t<T>;

    static Json To(T value) { return static_cast<Number>(value); }
    static T From(const Json& json) { return static_cast<T>(json.get<Number>()); }
    static T Sentinel() { return static_cast<T>(JsonValue<Number>::Sentinel()); }
};

template <>
struct JsonValue<const char*>
{
    static Json To(const char* value) { return value; }
};

template <typename T>
struct JsonValue<std::vector<T>>
{
    static Json To(const std::vector<T>& values)
    {
        Json array = Json::array();
        for (const T& value : values)
        {
            array.push_back(JsonValue<T>::To(value));
        }
        return array;
    }
    static std::vector<T> From(const Json& json)
    {
        std::vector<T> values;
        for (const Json& value : json)
        {
            values.push_back(JsonValue<T>::From(value));
        }
        return values;
    }
    static std::vector<T> Sentinel() { return {JsonValue<T>::Sentinel()}; }
};

template <typename... Types>
struct JsonValue<std::tuple<Types...>>
{
    static Json To(const std::tuple<Types...>& values)
    {
        return std::apply([](const Types&... value) { return Json::array({JsonValue<Types>::To(value)...}); }, values);
    }
    static std::tuple<Types...> From(const Json& json)
    {
        std::tuple<Types...> values;
        auto item = json.begin();
        std::apply([&](Types&... value) { ((value = JsonValue<Types>::From(*item++)), ...); }, values);
        return values;
    }
    static std::tuple<Types...> Sentinel() { return {JsonValue<Types>::Sentinel()...}; }
};

template <typename First, typename Second>
struct JsonValue<std::pair<First, Second>>
{
    using Tuple = std::tuple<First, Second>;

    static Json To(const std::pair<First, Second>& value) { return JsonValue<Tuple>::To(Tuple(value)); }
    static std::pair<First, Second> From(const Json& json)
    {
        auto [first, second] = JsonValue<Tuple>::From(json);
        return {std::move(first), std::move(second)};
    }
    static std::pair<First, Second> Sentinel() { return {JsonValue<First>::Sentinel(), JsonValue<Second>::Sentinel()}; }
};

/// Records name their fields once, with `Fields`.
template <typename T>
struct JsonValue<T, std::void_t<DbusHelper::FieldsOf<T>>>
{
    using Tuple = typename DbusHelper::RecordTuple<DbusHelper::FieldsOf<T>>::Type;

    static Json To(const T& value) { return JsonValue<Tuple>::To(Tuple{Fields(value)}); }
    static T From(const Json& json) { return Filled(JsonValue<Tuple>::From(json)); }
    static T Sentinel() { return Filled(JsonValue<Tuple>::Sentinel()); }

  private:
    static T Filled(Tuple values)
    {
        T value{};
        Fields(value) = std::move(values);
        return value;
    }
};

template <typename T>
struct JsonValue<std::map<std::string, T>>
{
    static Json To(const std::map<std::string, T>& values)
    {
        Json object = Json::object();
        for (const auto& [name, value] : values)
        {
            object[name] = JsonValue<T>::To(value);
        }
        return object;
    }
    static std::map<std::string, T> Sentinel() { return {{"untouched", JsonValue<T>::Sentinel()}}; }
};

/// The values of property maps.
template <>
struct JsonValue<std::any>
{
    static Json To(const std::any& value)
    {
        return FirstOf<bool, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t, double, std::string,
                       std::vector<std::string>>(value);
    }
    static std::any Sentinel() { return true; }

  private:
    template <typename T, typename... Rest>
    static Json FirstOf(const std::any& value)
    {
        if (const T* held = std::any_cast<T>(&value))
        {
            return *held;
        }
        if constexpr (sizeof...(Rest) > 0)
        {
            return FirstOf<Rest...>(value);
        }
        else
        {
            return nullptr;
        }
    }
};

} // namespace Driver
