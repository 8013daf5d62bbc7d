#pragma once

#include "dbus_helper/FixedString.h"

#include <systemd/sd-bus.h>

#include <any>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace DbusHelper
{

/// How a type reads in the signature text of an operation. Types of a client are added beside their definition.
/// The fixed-width integers carry their own names, whatever the platform makes of them.
template <typename T>
inline constexpr auto typeText = nullptr;

template <>
inline constexpr auto typeText<void> = FixedString{"void"};
template <>
inline constexpr auto typeText<bool> = FixedString{"bool"};
template <>
inline constexpr auto typeText<uint8_t> = FixedString{"uint8_t"};
template <>
inline constexpr auto typeText<int16_t> = FixedString{"int16_t"};
template <>
inline constexpr auto typeText<uint16_t> = FixedString{"uint16_t"};
template <>
inline constexpr auto typeText<int32_t> = FixedString{"int32_t"};
template <>
inline constexpr auto typeText<uint32_t> = FixedString{"uint32_t"};
template <>
inline constexpr auto typeText<int64_t> = FixedString{"int64_t"};
template <>
inline constexpr auto typeText<uint64_t> = FixedString{"uint64_t"};
template <>
inline constexpr auto typeText<double> = FixedString{"double"};
template <>
inline constexpr auto typeText<std::string> = FixedString{"std::string"};
template <>
inline constexpr auto typeText<std::vector<std::string>> =
    FixedString{"std::vector<std::__cxx11::basic_string<char> >"};
template <>
inline constexpr auto typeText<std::map<std::string, std::any>> = FixedString{"sdbus_utils::PropertyMap"};
template <>
inline constexpr auto typeText<std::map<std::string, std::pair<std::string, std::any>>> =
    FixedString{"sdbus_utils::TypedPropertyMap"};

template <typename T>
inline constexpr auto typeText<const T> = Concat(FixedString{"const "}, typeText<T>);
template <typename T>
inline constexpr auto typeText<T&> = Concat(typeText<T>, FixedString{"&"});
template <typename T>
inline constexpr auto typeText<T*> = Concat(typeText<T>, FixedString{"*"});

template <typename... Types>
inline constexpr auto typeListText = FixedString{""};
template <typename First, typename... Rest>
inline constexpr auto typeListText<First, Rest...> = Concat(typeText<First>,
                                                            Concat(FixedString{", "}, typeText<Rest>)...);

/// "RESULT Namespace::Class::Operation(TYPES)".
template <FixedString QualifiedName, typename Result, typename... Arguments>
inline constexpr auto plainText = Concat(typeText<Result>, FixedString{" "}, QualifiedName, FixedString{"("},
                                         typeListText<Arguments...>, FixedString{")"});

/// The signature text of an operation, made from the operation's own type: "static RESULT
/// Namespace::Class::Operation(TYPES)" of a function's type, the same without "static " of a pointer to a member
/// function. Log lines open with it, and support people search for it: so it must not depend on the compiler, nor on
/// the shared code that an operation is made of.
template <typename Function, FixedString QualifiedName>
inline constexpr auto operationText = nullptr;
template <typename Result, typename... Arguments, FixedString QualifiedName>
inline constexpr auto operationText<Result(Arguments...), QualifiedName> =
    Concat(FixedString{"static "}, plainText<QualifiedName, Result, Arguments...>);
template <typename Class, typename Result, typename... Arguments, FixedString QualifiedName>
inline constexpr auto operationText<Result (Class::*)(Arguments...), QualifiedName> =
    plainText<QualifiedName, Result, Arguments...>;
/// The same for sd-bus callbacks, whose plain C shape returns int.
template <typename Pointer>
concept MethodHandler = std::is_same_v<Pointer, sd_bus_message_handler_t>;
template <typename Pointer>
concept PropertyHandler = std::is_same_v<Pointer, sd_bus_property_get_t>;

template <MethodHandler Pointer, FixedString QualifiedName>
inline constexpr auto operationText<Pointer, QualifiedName> =
    Concat(FixedString{"static int "}, QualifiedName, FixedString{"(sd_bus_message*, void*, sd_bus_error*)"});
template <PropertyHandler Pointer, FixedString QualifiedName>
inline constexpr auto operationText<Pointer, QualifiedName> =
    Concat(FixedString{"static int "}, QualifiedName,
           FixedString{"(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*)"});

} // namespace DbusHelper
