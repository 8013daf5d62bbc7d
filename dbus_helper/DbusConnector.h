#pragma once

#include "dbus_helper/Handles.h"

#include <systemd/sd-event.h>

#include <cstdint>

namespace DbusHelper
{

/// Which bus a long-lived connection is made to.
enum class BusKind : uint8_t
{
    User,
    System,
};

/// A bus connection that lives on an event loop: connected and disconnected once, its messages dispatched on the loop's
/// thread. The loop must outlive the connection or be reference-counted by it, which sd-event does. A connection that
/// is lost, as when the bus ends, is not made anew: it ends the loop with -ENOTCONN.
class DbusConnector
{
  public:
    /// `event` may be null: then every Connect fails with -EINVAL and nothing else happens.
    explicit DbusConnector(sd_event* event, BusKind kind = BusKind::User);
    virtual ~DbusConnector();
    DbusConnector(const DbusConnector&) = delete;
    DbusConnector& operator=(const DbusConnector&) = delete;
    DbusConnector(DbusConnector&&) = delete;
    DbusConnector& operator=(DbusConnector&&) = delete;

    /// Opens the connection and attaches it to the loop. 0 on success (also when connected already), negative
    /// errno-style on failure, with nothing left open.
    [[nodiscard]] int32_t Connect();

    /// Flushes, closes and releases the connection; does nothing without one.
    virtual void Disconnect();

    /// The connection, null unless connected. Owned by the connector.
    [[nodiscard]] sd_bus* GetBus() const { return bus_.get(); }

  private:
    sd_event* event_;
    BusKind kind_;
    BusHandle bus_;
};

} // namespace DbusHelper
