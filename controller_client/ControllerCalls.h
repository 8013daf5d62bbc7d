#pragma once

#include "controller_client/ControllerFailure.h"
#include "controller_client/SignatureText.h"
#include "dbus_helper/Call.h"
#include "dbus_helper/Handles.h"
#include "interfaces/ControllerEndpoint.h"

#include <string>
#include <tuple>

/// The shapes of the controller's members, for the operations of its client only.
namespace Controllerd
{

using ControllerDaemon::controllerEndpoint;

/// How an operation appears in its lines: its signature text, and what the line of a failed call calls it; the
/// signature text again when that is empty.
struct Names
{
    const char* signature;
    std::string call = {};
};

/// Keeps the outcome for `ControllerFailure::Last`; part of every report.
void Remember(const DbusHelper::Outcome& outcome);
/// Makes another thread's failure the calling thread's last.
void Remember(ControllerFailure failure);

/// The lines of a method that did not get through. Returns the outcome's result.
int Report(const Names& names, const DbusHelper::Outcome& outcome);

/// The line of a property that could not be accessed; `access` is what it says of the access, and may be empty. Returns
/// the outcome's result.
int ReportProperty(const char* signature, const char* access, const DbusHelper::Outcome& outcome);

/// The connection of one call when `ControllerTimeout` limits the calling thread; without a limit none, and the core
/// opens one as ever.
class CallConnection
{
  public:
    CallConnection();

    [[nodiscard]] bool Failed() const { return !outcome_.Ok(); }
    /// Why there is no connection.
    [[nodiscard]] const DbusHelper::Outcome& Outcome() const { return outcome_; }
    /// Null without a limit.
    [[nodiscard]] sd_bus* Get() const { return bus_.get(); }

  private:
    DbusHelper::BusHandle bus_;
    DbusHelper::Outcome outcome_;
};

/// A call of a method that reports nothing; an empty `reply` leaves the reply's body unread.
template <typename... Out, typename... In>
DbusHelper::Outcome SilentCall(const char* member, std::tuple<Out&...> reply, const In&... arguments)
{
    const CallConnection connection;
    return connection.Failed() ? connection.Outcome()
                               : DbusHelper::CallOn(connection.Get(), controllerEndpoint, member, reply, arguments...);
}

/// A call of a method; an empty `reply` leaves the reply's body unread.
template <typename... Out, typename... In>
int Call(const Names& names, const char* member, std::tuple<Out&...> reply, const In&... arguments)
{
    return Report(names, SilentCall(member, reply, arguments...));
}

template <typename T>
int Get(const char* signature, const char* access, const char* property, T& value)
{
    const CallConnection connection;
    return ReportProperty(signature, access,
                          connection.Failed()
                              ? connection.Outcome()
                              : DbusHelper::GetPropertyOn(connection.Get(), controllerEndpoint, property, value));
}

template <typename T>
int Set(const char* signature, const char* access, const char* property, const T& value)
{
    const CallConnection connection;
    return ReportProperty(signature, access,
                          connection.Failed()
                              ? connection.Outcome()
                              : DbusHelper::SetPropertyOn(connection.Get(), controllerEndpoint, property, value));
}

} // namespace Controllerd
