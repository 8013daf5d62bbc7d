#pragma once

#include "controller_client/Export.h"

namespace Controllerd
{

/// While one lives, the operations that its thread calls wait no longer than so many milliseconds for the bus and the
/// controller together; then they fail with -ETIMEDOUT. Other threads' calls are not touched. The inner one of several
/// counts.
///
///     Controllerd::ControllerTimeout limit(2000);
///     int result = Controllerd::ControllerDaemonDbusHandler::GetTimezone(zone);
class CONTROLLER_CLIENT_API ControllerTimeout
{
  public:
    /// As long as the bus library has it: 25 seconds, or `$SYSTEMD_BUS_TIMEOUT`. Any negative number means the same.
    enum
    {
        none = -1
    };

    explicit ControllerTimeout(int milliseconds) noexcept;
    ~ControllerTimeout();
    ControllerTimeout(const ControllerTimeout&) = delete;
    ControllerTimeout& operator=(const ControllerTimeout&) = delete;
    ControllerTimeout(ControllerTimeout&&) = delete;
    ControllerTimeout& operator=(ControllerTimeout&&) = delete;

  private:
    int before_;
};

} // namespace Controllerd
