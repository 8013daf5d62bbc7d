#pragma once

/// Marks what the shared library gives to other programs; everything else in it stays its own.
#define CONTROLLER_CLIENT_API __attribute__((visibility("default")))

/// Marks a result that must be looked at; the compiler warns of a call that drops it. Clang has the standard's
/// attribute as an extension only before C++17, and says so.
#if defined(__clang__) && __cplusplus < 201703L
#define CONTROLLER_CLIENT_RESULT __attribute__((warn_unused_result))
#else
#define CONTROLLER_CLIENT_RESULT [[nodiscard]]
#endif
