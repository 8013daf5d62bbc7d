#pragma once

#include "dbus_helper/DbusListener.h"

namespace ControllerDaemon
{

/// The daemon's own bus connection for listening, for the life of the process.
class ControllerDbusListener : public DbusHelper::DbusListener
{
  public:
    using DbusListener::DbusListener;
};

} // namespace ControllerDaemon
