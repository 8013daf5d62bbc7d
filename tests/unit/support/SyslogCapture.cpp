#include "tests/unit/support/SyslogCapture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <utility>

namespace
{

std::mutex mutex;
std::vector<SyslogCapture::Line> lines;

void Capture(int priority, const char* format, va_list arguments)
{
    va_list again; // NOLINT(cppcoreguidelines-init-variables)
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    const std::lock_guard guard(mutex);
    lines.push_back({priority, std::move(text)});
}

} // namespace

namespace SyslogCapture
{

void PrintTo(const Line& line, std::ostream* out) { *out << "<" << line.priority << "> \"" << line.text << '"'; }

std::vector<Line> Take()
{
    const std::lock_guard guard(mutex);
    return std::exchange(lines, {});
}

} // namespace SyslogCapture

// NOLINTBEGIN: the C library's own names
extern "C" void vsyslog(int priority, const char* format, va_list arguments) { Capture(priority, format, arguments); }
extern "C" void __vsyslog_chk(int priority, int, const char* format, va_list arguments)
{
    Capture(priority, format, arguments);
}
// NOLINTEND
