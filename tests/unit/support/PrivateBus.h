#pragma once

#include <sys/types.h>

#include <filesystem>

/// A dbus-daemon of the test's own, which is the user bus for as long as this lives.
class PrivateBus
{
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    PrivateBus(PrivateBus&&) = delete;
    PrivateBus& operator=(PrivateBus&&) = delete;

    /// Ends the bus under everybody's feet.
    void Kill();

  private:
    std::filesystem::path folder_;
    pid_t pid_ = 0;
};
