#pragma once

#include "controller_client/LocalDateTime.h"
#include "dbus_helper/Signature.h"

#include <ctime>

namespace Controllerd
{

/// How a type reads in the signature text of an operation. This library's integers are the language's own, not those
/// of a fixed width, and read so.
template <typename T>
inline constexpr auto typeText = DbusHelper::typeText<T>;
template <>
inline constexpr auto typeText<int> = DbusHelper::FixedString{"int"};
template <>
inline constexpr auto typeText<unsigned> = DbusHelper::FixedString{"unsigned int"};
template <>
inline constexpr auto typeText<time_t> = DbusHelper::FixedString{"time_t"};
template <>
inline constexpr auto typeText<LocalDateTime> = DbusHelper::FixedString{"Controllerd::LocalDateTime"};
template <typename T>
inline constexpr auto typeText<T&> = DbusHelper::Concat(typeText<T>, DbusHelper::FixedString{"&"});

template <typename... Types>
inline constexpr auto typeListText = DbusHelper::FixedString{""};
template <typename First, typename... Rest>
inline constexpr auto typeListText<First, Rest...> =
    DbusHelper::Concat(typeText<First>, DbusHelper::Concat(DbusHelper::FixedString{", "}, typeText<Rest>)...);

/// The signature text with which an operation's log lines open, made from its type; overloads name theirs.
template <typename Function, DbusHelper::FixedString Name>
inline constexpr auto signatureText = nullptr;
template <typename... Arguments, DbusHelper::FixedString Name>
inline constexpr auto signatureText<int(Arguments...), Name> =
    DbusHelper::Concat(DbusHelper::FixedString{"static int Controllerd::ControllerDaemonDbusHandler::"}, Name,
                       DbusHelper::FixedString{"("}, typeListText<Arguments...>, DbusHelper::FixedString{")"});

} // namespace Controllerd
