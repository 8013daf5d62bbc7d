#pragma once

#include "dbus_helper/Serve.h"

#include <span>

namespace ControllerDaemon
{

/// The whole of "com.tavilon.common.Controller1.Control", in registration order: the one place that says what clients
/// can reach, and who serves it.
[[nodiscard]] std::span<const DbusHelper::Member> ControllerMembers();

} // namespace ControllerDaemon
