#pragma once

#include "controller_client/SignatureText.h"
#include "dbus_helper/SdbusUtils.h"

#include <string>
#include <tuple>

/// The shapes of the controller's members, for the operations of its client only.
namespace Controllerd
{

inline constexpr DbusHelper::Endpoint control{"com.tavilon.common.Controller1", "/com/tavilon/common/Controller1",
                                              "com.tavilon.common.Controller1.Control"};

/// How an operation appears in its lines: its signature text, and what the line of a failed call calls it; the
/// signature text again when that is empty.
struct Names
{
    const char* signature;
    std::string call = {};
};

/// The lines of a method that did not get through. Returns the outcome's result.
int Report(const Names& names, const DbusHelper::Outcome& outcome);

/// The line of a property that could not be accessed; `access` is what it says of the access, and may be empty. Returns
/// the result.
int ReportProperty(const char* signature, const char* access, int result, const std::string& errorText);

/// A call of a method; an empty `reply` leaves the reply's body unread.
template <typename... Out, typename... In>
int Ask(const Names& names, const char* member, std::tuple<Out&...> reply, const In&... arguments)
{
    return Report(names, DbusHelper::Call(control, member, reply, arguments...));
}

template <typename T>
int Get(const char* signature, const char* access, const char* property, T& value)
{
    std::string errorText;
    const int result =
        sdbus_utils::GetProperty(nullptr, control.service, control.path, control.interface, property, value, errorText);
    return ReportProperty(signature, access, result, errorText);
}

template <typename T>
int Set(const char* signature, const char* access, const char* property, const T& value)
{
    std::string errorText;
    const int result =
        sdbus_utils::SetProperty(nullptr, control.service, control.path, control.interface, property, value, errorText);
    return ReportProperty(signature, access, result, errorText);
}

} // namespace Controllerd

#define SIGNATURE_OF(operation) (signatureText<decltype(ControllerDaemonDbusHandler::operation), #operation>.c_str())
