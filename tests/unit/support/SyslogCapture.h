#pragma once

#include <syslog.h>

#include <string>
#include <vector>

/// The lines that the program under test has given to syslog(3), in place of the machine's log. Linking this in is
/// enough: it stands in for the C library's functions.
namespace SyslogCapture
{

struct Line
{
    int priority;
    std::string text;

    bool operator==(const Line& other) const = default;
};

void PrintTo(const Line& line, std::ostream* out);

/// The lines since the last call.
std::vector<Line> Take();

} // namespace SyslogCapture
