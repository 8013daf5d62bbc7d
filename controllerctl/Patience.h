#pragma once

#include <chrono>
#include <optional>

namespace ControllerCtl
{

/// The time that is left for what is waited for.
class Patience
{
  public:
    /// Without end.
    Patience() = default;

    /// From now on; what is longer than `ControllerSignals::Next` can wait (24 days) is cut off. `seconds` >= 0.
    explicit Patience(double seconds);

    /// Milliseconds, 0 when the time has passed, -1 without end, as `ControllerSignals::Next` takes it.
    [[nodiscard]] int Left() const;

    /// Has the following calls of the client library end with the time, but not sooner than after a second: a
    /// controller that answers needs some. A smaller $SYSTEMD_BUS_TIMEOUT stays. Single-threaded programs only.
    void LimitCalls() const;

  private:
    std::optional<std::chrono::steady_clock::time_point> deadline_;
};

/// Ends the program with status 0 after that time, whatever it waits for: for what is of use at once or not at all. No
/// time takes that back.
void EndAfter(std::chrono::milliseconds time);

} // namespace ControllerCtl
