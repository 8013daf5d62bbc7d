#pragma once

#include "dbus_helper/Handles.h"

#include <cstdint>

namespace ControllerDaemon
{

/// Base of objects that hold a user-bus connection of their own for as long as they live. Not copied: the connection
/// has one owner. Any one thread.
class DbusInterface
{
  public:
    /// Opens the connection; a failure is logged, and the object stays usable without one. `owner` is kept as given.
    explicit DbusInterface(uint32_t owner);
    /// Flushes, closes and releases the connection.
    virtual ~DbusInterface();
    DbusInterface(const DbusInterface&) = delete;
    DbusInterface& operator=(const DbusInterface&) = delete;
    DbusInterface(DbusInterface&&) = delete;
    DbusInterface& operator=(DbusInterface&&) = delete;

    /// A hook for derived classes; does nothing and returns 0.
    virtual int32_t Hook();

    [[nodiscard]] uint32_t Owner() const { return owner_; }
    /// The connection, null when it could not be opened.
    [[nodiscard]] sd_bus* GetBus() const { return bus_.get(); }

  private:
    uint32_t owner_;
    DbusHelper::BusHandle bus_;
};

} // namespace ControllerDaemon
