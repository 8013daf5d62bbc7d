#pragma once

#include "dbus_helper/FixedString.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <concepts>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace DbusHelper
{

template <typename>
inline constexpr bool hasNoDbusType = false;

/// The text as sd-bus takes it, which is up to its first zero byte. A text with such a byte in it cannot travel whole:
/// in its place stands one that sd-bus refuses (-EINVAL), as any that is no UTF-8.
[[nodiscard]] inline const char* WireText(const std::string& text)
{
    return text.find('\0') == std::string::npos ? text.c_str() : "\xFF";
}

/// The D-Bus type of a C++ type, how it is written into a message and read from it. A type without one does not
/// compile.
template <typename T, typename = void>
struct Codec
{
    static_assert(hasNoDbusType<T>, "this C++ type has no D-Bus type");
};

/// A type that sd-bus holds as it stands.
template <typename T, char Type>
struct BasicCodec
{
    static constexpr FixedString<2> signature{{Type, '\0'}};

    static int Append(sd_bus_message* message, const T& value)
    {
        return sd_bus_message_append_basic(message, Type, &value);
    }
    static int Read(sd_bus_message* message, T& value) { return sd_bus_message_read_basic(message, Type, &value); }
};

template <>
struct Codec<uint8_t> : BasicCodec<uint8_t, 'y'>
{};
template <>
struct Codec<int16_t> : BasicCodec<int16_t, 'n'>
{};
template <>
struct Codec<uint16_t> : BasicCodec<uint16_t, 'q'>
{};
template <>
struct Codec<int32_t> : BasicCodec<int32_t, 'i'>
{};
template <>
struct Codec<uint32_t> : BasicCodec<uint32_t, 'u'>
{};
template <>
struct Codec<int64_t> : BasicCodec<int64_t, 'x'>
{};
template <>
struct Codec<uint64_t> : BasicCodec<uint64_t, 't'>
{};
template <>
struct Codec<double> : BasicCodec<double, 'd'>
{};

template <>
struct Codec<bool>
{
    static constexpr FixedString signature{"b"};

    static int Append(sd_bus_message* message, bool value)
    {
        const int wide = value ? 1 : 0; // sd-bus takes and gives booleans as int
        return sd_bus_message_append_basic(message, 'b', &wide);
    }
    static int Read(sd_bus_message* message, bool& value)
    {
        int wide = 0;
        const int result = sd_bus_message_read_basic(message, 'b', &wide);
        value = wide != 0;
        return result;
    }
};

template <>
struct Codec<std::string>
{
    static constexpr FixedString signature{"s"};

    static int Append(sd_bus_message* message, const std::string& value)
    {
        return sd_bus_message_append_basic(message, 's', WireText(value));
    }
    static int Read(sd_bus_message* message, std::string& value)
    {
        const char* text = nullptr;
        const int result = sd_bus_message_read_basic(message, 's', &text);
        if (result > 0)
        {
            value = text;
        }
        return result;
    }
};

/// Enumerations travel as the integers they are based on; a value without a name passes through.
template <typename T>
struct Codec<T, std::enable_if_t<std::is_enum_v<T>>>
{
    using Number = std::underlying_type_t<T>;
    static constexpr auto signature = Codec<Number>::signature;

    static int Append(sd_bus_message* message, T value)
    {
        return Codec<Number>::Append(message, static_cast<Number>(value));
    }
    static int Read(sd_bus_message* message, T& value)
    {
        Number number{};
        const int result = Codec<Number>::Read(message, number);
        value = static_cast<T>(number);
        return result;
    }
};

/// Writes a container, of which `contents` writes what is in it. Negative when one of the steps fails.
template <typename Contents>
int AppendContainer(sd_bus_message* message, char type, const char* signature, Contents contents)
{
    int result = sd_bus_message_open_container(message, type, signature);
    result = result < 0 ? result : contents();
    return result < 0 ? result : sd_bus_message_close_container(message);
}

/// Reads the container that is next, of which `contents` reads what is in it. 0 when none is next, negative when one of
/// the steps fails, otherwise 1.
template <typename Contents>
int ReadContainer(sd_bus_message* message, char type, const char* signature, Contents contents)
{
    int result = sd_bus_message_enter_container(message, type, signature);
    if (result <= 0)
    {
        return result;
    }
    result = contents();
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

/// Reads a dictionary, whose entries have that signature and of which `entry` reads each. Negative when one of the
/// steps fails.
template <typename Entry>
int ReadEntries(sd_bus_message* message, const std::string& signature, Entry entry)
{
    int result = sd_bus_message_enter_container(message, 'a', ("{" + signature + "}").c_str());
    while (result >= 0 && (result = ReadContainer(message, 'e', signature.c_str(), entry)) > 0)
    {}
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

template <typename T>
struct Codec<std::vector<T>>
{
    static constexpr auto signature = Concat(FixedString{"a"}, Codec<T>::signature);

    static int Append(sd_bus_message* message, const std::vector<T>& values)
    {
        return AppendContainer(message, 'a', Codec<T>::signature.c_str(), [&] {
            int result = 0;
            for (auto value = values.begin(); result >= 0 && value != values.end(); ++value)
            {
                result = Codec<T>::Append(message, *value);
            }
            return result;
        });
    }
    static int Read(sd_bus_message* message, std::vector<T>& values)
    {
        return ReadContainer(message, 'a', Codec<T>::signature.c_str(), [&] {
            int result = 1;
            while (result > 0)
            {
                T value{};
                result = Codec<T>::Read(message, value);
                if (result > 0)
                {
                    values.push_back(std::move(value));
                }
            }
            return result;
        });
    }
};

/// Several values one after another in a message, written and read in order. Any tuple-like of references will do.
template <typename... Types>
struct Sequence
{
    static constexpr auto signature = Concat(FixedString{""}, Codec<Types>::signature...);

    template <typename Tuple>
    static int Append(sd_bus_message* message, const Tuple& values)
    {
        int result = 0;
        std::apply(
            [&](const auto&... value) { ((result = result < 0 ? result : Codec<Types>::Append(message, value)), ...); },
            values);
        return result;
    }

    /// Negative when a value is missing or of another type. 1 otherwise.
    template <typename Tuple>
    static int Read(sd_bus_message* message, Tuple& values)
    {
        int result = 1;
        std::apply([&](auto&... value) { ((result = result <= 0 ? result : Codec<Types>::Read(message, value)), ...); },
                   values);
        return result == 0 ? -ENXIO : result;
    }
};

/// Structures "(...)" are tuples.
template <typename... Types>
struct Codec<std::tuple<Types...>>
{
    static constexpr auto contents = Sequence<Types...>::signature;
    static constexpr auto signature = Concat(FixedString{"("}, contents, FixedString{")"});

    static int Append(sd_bus_message* message, const std::tuple<Types...>& value)
    {
        return AppendContainer(message, 'r', contents.c_str(),
                               [&] { return Sequence<Types...>::Append(message, value); });
    }
    static int Read(sd_bus_message* message, std::tuple<Types...>& value)
    {
        return ReadContainer(message, 'r', contents.c_str(), [&] { return Sequence<Types...>::Read(message, value); });
    }
};

/// ... and pairs are structures of two.
template <typename First, typename Second>
struct Codec<std::pair<First, Second>>
{
    using Tuple = std::tuple<First, Second>;
    static constexpr auto signature = Codec<Tuple>::signature;

    static int Append(sd_bus_message* message, const std::pair<First, Second>& value)
    {
        return Codec<Tuple>::Append(message, Tuple{value.first, value.second});
    }
    static int Read(sd_bus_message* message, std::pair<First, Second>& value)
    {
        Tuple tuple;
        const int result = Codec<Tuple>::Read(message, tuple);
        std::tie(value.first, value.second) = std::move(tuple);
        return result;
    }
};

/// `Record` is the wanted type, constant or not: one `Fields` then serves for writing and for reading it.
template <typename Record, typename Wanted>
concept ConstOrNot = std::same_as<std::remove_const_t<Record>, Wanted>;

/// A record that travels as a structure names its fields once: `auto Fields(Record&)` returning `std::tie(...)`,
/// found beside the record. `Fields` of a constant record must work too.
template <typename T>
using FieldsOf = decltype(Fields(std::declval<T&>()));

template <typename T>
struct RecordTuple;
template <typename... Types>
struct RecordTuple<std::tuple<Types&...>>
{
    using Type = std::tuple<std::remove_const_t<Types>...>;
};

template <typename T>
struct Codec<T, std::void_t<FieldsOf<T>>>
{
    using Tuple = typename RecordTuple<FieldsOf<T>>::Type;
    static constexpr auto signature = Codec<Tuple>::signature;

    static int Append(sd_bus_message* message, const T& value)
    {
        return Codec<Tuple>::Append(message, Tuple{Fields(value)});
    }
    static int Read(sd_bus_message* message, T& value)
    {
        Tuple tuple;
        const int result = Codec<Tuple>::Read(message, tuple);
        if (result > 0)
        {
            Fields(value) = std::move(tuple);
        }
        return result;
    }
};

} // namespace DbusHelper
