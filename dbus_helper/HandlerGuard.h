#pragma once

#include <systemd/sd-bus.h>

namespace DbusHelper
{

/// Answers for the exception that is being handled: one line in the log, under the name of what was asked for, and the
/// D-Bus error "org.freedesktop.DBus.Error.NoMemory" where memory has run out, else "...Failed" with the exception's
/// words. Returns the negative errno that belongs to the error, which may be null. std::bad_any_cast and
/// std::bad_function_call, by which property maps tell of a fault in the program itself, end the process.
int AnswerException(const char* name, sd_bus_error* error) noexcept;

/// Runs a handler for C code, which no exception may cross. The listener and the server do so for every handler that
/// they are given, so handlers themselves catch nothing and are not noexcept.
template <typename Handler>
int Guard(const char* name, sd_bus_error* error, const Handler& handler) noexcept
{
    try
    {
        return handler();
    }
    catch (...)
    {
        return AnswerException(name, error);
    }
}

} // namespace DbusHelper
