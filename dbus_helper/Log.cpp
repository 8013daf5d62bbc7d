#include "dbus_helper/Log.h"

#include <syslog.h>

#include <cstdarg>

namespace Log
{

void Info(const char* format, ...)
{
    va_list arguments; // NOLINT(cppcoreguidelines-init-variables): va_start initialises it
    va_start(arguments, format);
    vsyslog(LOG_INFO, format, arguments);
    va_end(arguments);
}

void Debug(const char* format, ...)
{
    va_list arguments; // NOLINT(cppcoreguidelines-init-variables)
    va_start(arguments, format);
    vsyslog(LOG_DEBUG, format, arguments);
    va_end(arguments);
}

void Error(const char* format, ...)
{
    va_list arguments; // NOLINT(cppcoreguidelines-init-variables)
    va_start(arguments, format);
    vsyslog(LOG_ERR, format, arguments);
    va_end(arguments);
}

} // namespace Log
