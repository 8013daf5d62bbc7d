#pragma once

#include <cstdint>
#include <string>

/// Client of systemd-timedated, "org.freedesktop.timedate1" on the system bus: the only way in which this daemon
/// changes the system's clock, its time zone and whether the network keeps the clock.
///
/// Every operation is one blocking call on a connection of its own; nothing is kept between calls, nothing is tried
/// again, and timedated is never asked to let a user confirm. Results are sd-bus's: 0 or positive on success, negative
/// errno-style on failure, with the out-argument as it was. Failures are logged, save calls of SetNTP and GetNTP that
/// do not get through. Everything belongs on the loop's thread.
class SystemdDateTime
{
  public:
    /// Sets the clock to `usec`, microseconds since the epoch, UTC. timedated refuses while the network keeps it.
    [[nodiscard]] static int SetTime(uint64_t usec);

    /// Sets the zone, named relative to the system's zone folder, as in "CCU/DST/Berlin". The name is not checked here.
    [[nodiscard]] static int SetTimezone(const std::string& timezone);

    /// Lets the network keep the clock, or no longer.
    [[nodiscard]] static int SetNTP(bool on);
    [[nodiscard]] static int GetNTP(bool& on);

    /// The zone in force, named as it was set.
    [[nodiscard]] static int GetTimezone(std::string& timezone);
};
