#pragma once

#include <systemd/sd-bus.h>

#include <memory>

namespace DbusHelper
{

struct BusCloser
{
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct MessageReleaser
{
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
struct SlotReleaser
{
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

/// A bus connection that is flushed, closed and released when it goes.
using BusHandle = std::unique_ptr<sd_bus, BusCloser>;
using MessageHandle = std::unique_ptr<sd_bus_message, MessageReleaser>;
using SlotHandle = std::unique_ptr<sd_bus_slot, SlotReleaser>;

/// An sd-bus error that is freed when it goes.
class BusError
{
  public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&error_); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    BusError(BusError&&) = delete;
    BusError& operator=(BusError&&) = delete;

    [[nodiscard]] sd_bus_error* Get() { return &error_; }
    /// The error's text, or null when none was set.
    [[nodiscard]] const char* Message() const { return error_.message; }

  private:
    sd_bus_error error_{};
};

/// Opens a new private connection to the user bus. Returns what sd-bus returns, negative errno-style on failure.
[[nodiscard]] int OpenUserBus(BusHandle& bus);
/// The same to the system bus, where the system's own services are.
[[nodiscard]] int OpenSystemBus(BusHandle& bus);

} // namespace DbusHelper
