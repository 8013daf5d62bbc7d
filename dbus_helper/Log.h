#pragma once

/// Lines for syslog, the only place this system logs to. The format is checked by the compiler; texts that come from
/// outside are arguments, never formats. Callable from any thread.
namespace Log
{

/// Progress (LOG_INFO).
[[gnu::format(printf, 1, 2)]] void Info(const char* format, ...);

/// Traffic with other daemons (LOG_DEBUG).
[[gnu::format(printf, 1, 2)]] void Debug(const char* format, ...);

/// Failures (LOG_ERR).
[[gnu::format(printf, 1, 2)]] void Error(const char* format, ...);

} // namespace Log
