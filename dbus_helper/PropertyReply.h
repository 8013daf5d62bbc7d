#pragma once

#include "dbus_helper/Log.h"

#include <systemd/sd-bus.h>

/// How handlers answer and refuse. Property handlers tell a client that its access failed: with
/// "org.freedesktop.DBus.Error.Failed" and the words of the log line, without the signature text that it opens with.
namespace DbusHelper
{

/// What stands between a signature text and the words behind it: not the same in every line.
inline constexpr const char* blank = " ";
inline constexpr const char* colon = ": ";

/// Refuses a call or an access, of which nothing is to be logged here. Returns what its handler then returns.
inline int Refuse(sd_bus_error* error, const char* words)
{
    return sd_bus_error_set(error, SD_BUS_ERROR_FAILED, words);
}

/// Answers a call that has nothing to tell.
inline int ReplyEmpty(sd_bus_message* message) { return sd_bus_reply_method_return(message, ""); }

/// Tells the client only, of a failure that has been logged where it happened. Returns `result`.
inline int Refuse(sd_bus_error* error, const char* words, int result)
{
    sd_bus_error_set(error, SD_BUS_ERROR_FAILED, words);
    return result;
}

/// Logs the failure and tells the client. `text` is the handler's signature text. Returns `result`.
inline int Fail(sd_bus_error* error, const char* text, const char* separator, const char* words, int result)
{
    Log::Error("%s%s%s", text, separator, words);
    return Refuse(error, words, result);
}

} // namespace DbusHelper
