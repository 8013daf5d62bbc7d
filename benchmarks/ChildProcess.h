#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace Bench
{

/// Something could not be measured; the text says why.
class Failure : public std::runtime_error
{
  public:
    using std::runtime_error::runtime_error;
};

using Clock = std::chrono::steady_clock;

using Environment = std::map<std::string, std::string>;

struct Command
{
    std::vector<std::string> arguments; ///< the program first
    Environment environment = {};       ///< over the benchmark's own
    int descriptor = -1;                ///< left open in the child, unless negative
    std::string complaints = {};        ///< file that takes its standard error, unless empty
};

/// What a process holds at a moment.
struct Holdings
{
    int64_t privateDirtyKib = 0;
    int64_t residentKib = 0;
    int64_t descriptors = 0;
};

/// A process that ends with the benchmark, however that ends. Its figures throw Failure when it has gone.
class ChildProcess
{
  public:
    /// Returns when the child has become its program; throws Failure when it cannot.
    explicit ChildProcess(const Command& command);
    /// Kills and reaps it.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;

    [[nodiscard]] pid_t Pid() const { return pid_; }
    /// When the child called exec(3).
    [[nodiscard]] Clock::time_point ExecTime() const { return execTime_; }
    /// User and system time of all its threads.
    [[nodiscard]] double CpuSeconds() const;
    [[nodiscard]] Holdings Held() const;

  private:
    void End();

    pid_t pid_ = -1;
    Clock::time_point execTime_;
};

} // namespace Bench
