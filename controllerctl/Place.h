#pragma once

#include <string>
#include <vector>

namespace ControllerCtl
{

/// Which bus the controller is looked for on; nothing for the user bus of whoever runs the program.
struct Place
{
    std::string machine; ///< "USER@": that user's bus on this unit, or "USER@CONTAINER" in a container
    std::string host;    ///< "[USER@]HOST[:PORT]": that of the user over ssh; with `machine` another user's there
    std::string address; ///< a D-Bus address

    /// Why it cannot be; empty when it can.
    [[nodiscard]] std::string Complaint() const;
    /// Whether it is the bus of the caller, as programs are started with it.
    [[nodiscard]] bool IsDefault() const { return machine.empty() && host.empty() && address.empty(); }
    /// Whether processes that are named there are this system's.
    [[nodiscard]] bool IsHere() const;
    /// Whether files that are named there are another system's.
    [[nodiscard]] bool IsElsewhere() const;
    /// Has all connections of this program, and of those that it starts, go there.
    void Choose() const;
};

/// What to do about a bus without the controller; empty when the caller has chosen the bus.
[[nodiscard]] std::string Advice(const Place& place);

} // namespace ControllerCtl
