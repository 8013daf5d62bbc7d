#pragma once

#include "dbus_helper/Endpoint.h"

namespace DbusHelper
{

/// Our own object and interface on the user bus.
inline constexpr Endpoint controllerEndpoint{"com.tavilon.common.Controller1", "/com/tavilon/common/Controller1",
                                             "com.tavilon.common.Controller1.Control"};

} // namespace DbusHelper
