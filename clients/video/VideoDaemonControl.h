#pragma once

#include "dbus_helper/Endpoint.h"

namespace Videod
{

/// The video daemon's one object, for the operations of its client only.
inline constexpr DbusHelper::Endpoint control{"com.tavilon.common.Video1", "/com/tavilon/common/Video1",
                                              "com.tavilon.common.Video1.Control"};

} // namespace Videod
