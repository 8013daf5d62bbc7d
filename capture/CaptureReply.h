#pragma once

#include "capture/CaptureErrors.h"
#include "dbus_helper/Codec.h"
#include "dbus_helper/Log.h"

#include <systemd/sd-bus.h>

#include <string>
#include <tuple>

namespace ControllerDaemon
{

/// Reads a request's arguments and runs the operation on them. A request that cannot be read is logged and counts as an
/// unknown error. `signature` is the handler's own text.
template <typename Code, typename... In, typename Operation>
Code Serve(sd_bus_message* message, const char* signature, const Operation& operation)
{
    std::tuple<std::decay_t<In>...> arguments;
    if (DbusHelper::Sequence<std::decay_t<In>...>::Read(message, arguments) < 0)
    {
        Log::Error("%s sd_bus_message_read() failed", signature);
        return Code::Unknown;
    }
    return std::apply(operation, arguments);
}

/// Serves a capture method that replies "is": the operation's code and the code's message.
template <typename... In>
int AnswerCapture(sd_bus_message* message, const char* signature, DbusHelper::CaptureErrorCode (*operation)(In...))
{
    const auto code = Serve<DbusHelper::CaptureErrorCode, In...>(message, signature, operation);
    return sd_bus_reply_method_return(message, "is", static_cast<int32_t>(code), CaptureErrorReason(code));
}

/// Serves a capture method that replies "sis": the path that the operation has filled in, which is empty when it came
/// to none, then code and message. The operation takes the path as its last argument.
template <typename... In>
int AnswerCapturedFile(sd_bus_message* message, const char* signature,
                       DbusHelper::CaptureErrorCode (*operation)(In..., std::string&))
{
    std::string path;
    const auto code = Serve<DbusHelper::CaptureErrorCode, In...>(
        message, signature, [&](const auto&... arguments) { return operation(arguments..., path); });
    return sd_bus_reply_method_return(message, "sis", path.c_str(), static_cast<int32_t>(code),
                                      CaptureErrorReason(code));
}

/// Serves a playback method, which replies "is" like a capture, with the codes and messages of playback.
template <typename... In>
int AnswerPlayback(sd_bus_message* message, const char* signature, DbusHelper::PlaybackErrorCode (*operation)(In...))
{
    const auto code = Serve<DbusHelper::PlaybackErrorCode, In...>(message, signature, operation);
    return sd_bus_reply_method_return(message, "is", static_cast<int32_t>(code), PlaybackErrorReason(code));
}

} // namespace ControllerDaemon
