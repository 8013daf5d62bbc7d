#pragma once

#include "dbus_helper/Endpoint.h"

/// The hardware daemon's objects, for its client only.
namespace Halvexd
{

inline constexpr const char* service = "com.tavilon.common.Halvex1";

inline constexpr DbusHelper::Endpoint control{service, "/com/tavilon/common/Halvex1",
                                              "com.tavilon.common.Halvex1.Control"};
inline constexpr DbusHelper::Endpoint camera{service, "/com/tavilon/common/Halvex1/camera",
                                             "com.tavilon.common.Halvex1.camera"};
inline constexpr DbusHelper::Endpoint cooling{service, "/com/tavilon/common/Halvex1/cooling",
                                              "com.tavilon.common.Halvex1.cooling"};
inline constexpr DbusHelper::Endpoint power{service, "/com/tavilon/common/Halvex1/power",
                                            "com.tavilon.common.Halvex1.power"};
inline constexpr DbusHelper::Endpoint reel{service, "/com/tavilon/common/Halvex1/reel",
                                           "com.tavilon.common.Halvex1.reel"};
/// The distance counter has an object of its own and shares the reel's interface name.
inline constexpr DbusHelper::Endpoint distance{service, "/com/tavilon/common/Halvex1/reel/distance",
                                               "com.tavilon.common.Halvex1.reel"};

} // namespace Halvexd
