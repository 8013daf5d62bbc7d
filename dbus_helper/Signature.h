#pragma once

#include "dbus_helper/FixedString.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <any>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
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
template <FixedString Name, typename Result, typename... Arguments>
inline constexpr auto plainText = Concat(typeText<Result>, FixedString{" "}, Name, FixedString{"("},
                                         typeListText<Arguments...>, FixedString{")"});

template <typename Function, FixedString Name>
inline constexpr auto signatureText = nullptr;
template <typename Result, typename... Arguments, FixedString Name>
inline constexpr auto signatureText<Result(Arguments...), Name> = Concat(FixedString{"static "},
                                                                         plainText<Name, Result, Arguments...>);
template <typename Class, typename Result, typename... Arguments, FixedString Name>
inline constexpr auto signatureText<Result (Class::*)(Arguments...), Name> = plainText<Name, Result, Arguments...>;

/// The plain C shapes of sd-bus callbacks, which return int.
template <FixedString Name>
inline constexpr auto signatureText<std::remove_pointer_t<sd_bus_message_handler_t>, Name> =
    Concat(FixedString{"static int "}, Name, FixedString{"(sd_bus_message*, void*, sd_bus_error*)"});
template <FixedString Name>
inline constexpr auto signatureText<std::remove_pointer_t<sd_bus_property_get_t>, Name> =
    Concat(FixedString{"static int "}, Name,
           FixedString{"(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*)"});

template <std::size_t Length>
consteval FixedString<Length + 1> FixedCopy(std::string_view text)
{
    FixedString<Length + 1> copy;
    std::copy(text.begin(), text.end(), std::begin(copy.text));
    return copy;
}

/// The name of a function with its namespaces and classes. The compilers say it in the same words, between "= ", an
/// ampersand aside, and the bracket.
template <auto function>
consteval auto ReadQualifiedName()
{
    constexpr std::string_view said = __PRETTY_FUNCTION__;
    constexpr std::string_view opening = "function = ";
    constexpr size_t equals = said.find(opening) + opening.size();
    constexpr size_t begin = said[equals] == '&' ? equals + 1 : equals;
    constexpr std::string_view name = said.substr(begin, said.find_first_of(";]", begin) - begin);
    return FixedCopy<name.size()>(name);
}

template <auto function>
inline constexpr auto qualifiedName = ReadQualifiedName<function>();

/// ... and without them.
template <auto function>
inline constexpr auto nameOf = [] {
    constexpr std::string_view all = qualifiedName<function>.View();
    constexpr size_t begin = all.rfind(':') + 1;
    return FixedCopy<all.size() - begin>(all.substr(begin));
}();

/// The signature text with which the log lines of an operation open: "static RESULT
/// Namespace::Class::Operation(TYPES)", the same without "static " for a member function of an object. Support people
/// search for it: so it must not depend on the compiler, nor on the shared code that an operation is made of.
///
/// `signature` makes it from a type and a name: of an operation that goes by another name than the code that does its
/// work, or by another type, as the sd-bus callback that it is on the bus. A function's pointer is as good as its type.
template <typename Function, FixedString Name>
inline constexpr const char* signature = signatureText<std::remove_pointer_t<Function>, Name>.c_str();

/// ... and `signatureOf` from the operation itself; an overload is picked by a cast.
template <auto operation>
inline constexpr const char* signatureOf = signature<decltype(operation), qualifiedName<operation>>;

/// ... and of a property's handler, as the sd-bus callback that it is on the bus.
template <auto handler>
inline constexpr const char* propertySignatureOf = signature<sd_bus_property_get_t, qualifiedName<handler>>;

} // namespace DbusHelper
