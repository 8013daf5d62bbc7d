// Stands in for syslog(3): lines are made, since formats are tried as well, and go nowhere.

#undef _FORTIFY_SOURCE // its inline functions would stand in the way of defining our own

#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>

extern "C" void vsyslog(int /*priority*/, const char* format, va_list arguments)
{
    std::array<char, 4096> line{};
    std::vsnprintf(line.data(), line.size(), format, arguments);
}

// What a program calls that was compiled with _FORTIFY_SOURCE; the name is glibc's.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void __vsyslog_chk(int priority, int /*flag*/, const char* format, va_list arguments)
{
    vsyslog(priority, format, arguments);
}
