#pragma once

#include "dbus_helper/Endpoint.h"

/// The sync daemon's one object, for those who ask it.
namespace Syncd
{

inline constexpr DbusHelper::Endpoint syncDaemon{"com.tavilon.common.SyncDaemon1", "/com/tavilon/common/SyncDaemon1",
                                                 "com.tavilon.common.SyncDaemon1"};

} // namespace Syncd
