#pragma once

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>

/// Tells how evenly an event loop turns, at the end of the program: a timer of the loop calls `Beat` all the time. The
/// examples have it to show that no call holds them up; a program of yours leaves it out.
class HeartBeat
{
  public:
    enum
    {
        periodMilliseconds = 5
    };

    ~HeartBeat()
    {
        Beat();
        std::cerr << "loop: " << turns_ << " turns, at most " << Longest() << " ms apart\n";
    }

    /// The longest time between two turns, in milliseconds.
    double Longest() const { return longest_.count(); }

    void Beat()
    {
        const auto now = std::chrono::steady_clock::now();
        const auto waited = Waited();
        longest_ = std::max(longest_, Milliseconds(now - last_) - (waited - waited_));
        last_ = now;
        waited_ = waited;
        ++turns_;
    }

  private:
    using Milliseconds = std::chrono::duration<double, std::milli>;

    /// How long this thread has had to wait for a processor, which is not the loop's doing.
    static Milliseconds Waited()
    {
        std::ifstream file("/proc/thread-self/schedstat");
        double onProcessor = 0;
        double waitingNanoseconds = 0;
        file >> onProcessor >> waitingNanoseconds;
        return Milliseconds(waitingNanoseconds / 1e6);
    }

    int turns_ = 0;
    Milliseconds longest_{0};
    Milliseconds waited_ = Waited();
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};
