#pragma once

#include "dbus_helper/Endpoint.h"

namespace ControllerDaemon
{

/// Our own object and interface on the user bus.
inline constexpr DbusHelper::Endpoint controllerEndpoint{
    "com.tavilon.common.Controller1", "/com/tavilon/common/Controller1", "com.tavilon.common.Controller1.Control"};

} // namespace ControllerDaemon
