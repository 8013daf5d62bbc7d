#pragma once

#include "controller_client/LocalDateTime.h"
#include "dbus_helper/Signature.h"

#include <ctime>

namespace Controllerd
{

/// This library's integers are the language's own, and read so in signature texts: not by their width.
struct Int;
struct Unsigned;
struct Time;

/// By what a type is named in signature texts.
template <typename T>
struct Named
{
    using Type = T;
};
template <>
struct Named<int>
{
    using Type = Int;
};
template <>
struct Named<unsigned>
{
    using Type = Unsigned;
};
template <>
struct Named<time_t>
{
    using Type = Time;
};
template <typename T>
struct Named<T&>
{
    using Type = typename Named<T>::Type&;
};
template <typename... Arguments>
struct Named<int(Arguments...)>
{
    using Type = Int(typename Named<Arguments>::Type...);
};

/// The signature text with which an operation's log lines open; overloads name their type.
template <auto operation>
inline constexpr const char* textOf =
    DbusHelper::signature<typename Named<std::remove_pointer_t<decltype(operation)>>::Type,
                          DbusHelper::qualifiedName<operation>>;
template <typename Function, DbusHelper::FixedString Name>
inline constexpr const char* overloadText =
    DbusHelper::signature<typename Named<Function>::Type,
                          Concat(DbusHelper::FixedString{"Controllerd::ControllerDaemonDbusHandler::"}, Name)>;

} // namespace Controllerd

namespace DbusHelper
{

template <>
inline constexpr auto typeText<Controllerd::Int> = FixedString{"int"};
template <>
inline constexpr auto typeText<Controllerd::Unsigned> = FixedString{"unsigned int"};
template <>
inline constexpr auto typeText<Controllerd::Time> = FixedString{"time_t"};
template <>
inline constexpr auto typeText<Controllerd::LocalDateTime> = FixedString{"Controllerd::LocalDateTime"};

} // namespace DbusHelper
