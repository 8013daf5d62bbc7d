#pragma once

#include "capture/CaptureErrors.h"
#include "dbus_helper/Serve.h"
#include "dbus_helper/Signature.h"

#include <type_traits>

/// How captures and playback answer: always with a reply, of a code and its message. So their operations serve as they
/// are, and the codes of what they return are their replies.
namespace ControllerDaemon
{

inline const char* ReasonOf(DbusHelper::CaptureErrorCode code) { return CaptureErrorReason(code); }
inline const char* ReasonOf(DbusHelper::PlaybackErrorCode code) { return PlaybackErrorReason(code); }

/// Says of a request that it cannot be read, which counts as an unknown error. `signature` is the handler's own text.
template <typename Code>
Code Unreadable(const char* signature)
{
    Log::Error("%s sd_bus_message_read() failed", signature);
    return Code::Unknown;
}

/// Reads the arguments, runs the operation on them and replies "is".
template <typename Code, typename... In>
int AnswerCode(sd_bus_message* message, const char* signature, Code (*operation)(In...))
{
    std::tuple<std::decay_t<In>...> arguments;
    const bool readable = DbusHelper::Sequence<std::decay_t<In>...>::Read(message, arguments) >= 0;
    const Code code = readable ? std::apply(operation, arguments) : Unreadable<Code>(signature);
    return sd_bus_reply_method_return(message, "is", static_cast<int32_t>(code), ReasonOf(code));
}

/// A method whose reply has the path of the picture before code and message; the path is empty when it came to none.
template <typename... In>
using PictureCall = DbusHelper::MethodCall<std::tuple<std::string, int32_t, std::string>(In...)>;

template <typename... In>
int AnswerPicture(const PictureCall<In...>& call, const std::string& path, DbusHelper::CaptureErrorCode code)
{
    return call.Answer(path, static_cast<int32_t>(code), std::string(CaptureErrorReason(code)));
}

} // namespace ControllerDaemon

namespace DbusHelper
{

/// Operations that return one of these codes serve a method as they stand.
template <typename Code>
concept ReplyCode = std::is_same_v<Code, CaptureErrorCode> || std::is_same_v<Code, PlaybackErrorCode>;

template <ReplyCode Code, typename... In>
struct MethodServing<Code (*)(In...)>
{
    using Arguments = Sequence<std::decay_t<In>...>;
    using Reply = Sequence<int32_t, std::string>;

    template <auto operation>
    static int Run(sd_bus_message* message, sd_bus_error* /*error*/)
    {
        return ControllerDaemon::AnswerCode(message, signature<sd_bus_message_handler_t, qualifiedName<operation>>,
                                            operation);
    }
};

} // namespace DbusHelper
