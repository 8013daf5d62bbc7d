#pragma once

#include "controller_client/Export.h"

#include <string>

namespace Controllerd
{

/// How an operation of `ControllerDaemonDbusHandler` ended, for programs that tell their user more than its result.
///
/// The words are certain. The kind follows from the errno that the name of a D-Bus error stands for: a refusal under a
/// name by which the bus tells of a lost or late answer (NoReply, Timeout, Disconnected ...) cannot be told from that.
/// The controller's own refusals have the name org.freedesktop.DBus.Error.Failed, and are `Refused`.
struct ControllerFailure
{
    enum class Kind : unsigned char
    {
        None,        ///< the controller has answered; its code may tell of a refusal all the same
        Invalid,     ///< nothing was sent: an argument cannot be, as a text that is no UTF-8 or has a zero byte
        Unreachable, ///< there is no bus, or no controller on it
        Silent,      ///< the controller did not answer in time, or ended over the call
        Refused,     ///< the controller answered with a D-Bus error, of a name that stands for none of the above
        Unreadable,  ///< the controller answered with something else than declared
    };

    Kind kind = Kind::None;
    /// The D-Bus error's text, or that of the errno in the result; empty when there was no failure.
    std::string message;

    /// That of the last operation of the calling thread; no failure before the first. Other threads' operations do not
    /// change it.
    CONTROLLER_CLIENT_RESULT CONTROLLER_CLIENT_API static ControllerFailure Last();
};

} // namespace Controllerd
