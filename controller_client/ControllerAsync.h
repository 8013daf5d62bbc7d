#pragma once

#include "controller_client/ControllerTimeout.h"
#include "controller_client/Export.h"

#include <functional>
#include <memory>
#include <utility>

namespace Controllerd
{

/// Makes calls for a program that must not wait, such as a user interface: one after the other on a thread of its own.
/// The program's event loop watches the descriptor, and lets what is to follow a call run in its own thread.
///
///     Controllerd::ControllerAsync calls;
///     // once: when calls.Descriptor() is readable, the loop calls calls.Dispatch()
///     int queued = calls.Start(
///         [] { // on the worker: any operations, and what they need is copied in
///             Answer answer;
///             answer.result = Controller::StopRecording(answer.code, answer.message);
///             return answer;
///         },
///         [this](const Answer& answer) { Show(answer); }, // on the loop, from Dispatch
///         2000);                                          // milliseconds for each operation of the call
///
/// Used by one thread. Several objects have a worker each, for calls that need not wait for each other.
class CONTROLLER_CLIENT_API ControllerAsync
{
  public:
    ControllerAsync();
    /// Drops the calls that have not begun and what would follow the others; waits for the call in progress, so it
    /// takes no longer than that has left of its time-out.
    ~ControllerAsync();
    ControllerAsync(const ControllerAsync&) = delete;
    ControllerAsync& operator=(const ControllerAsync&) = delete;
    ControllerAsync(ControllerAsync&&) = delete;
    ControllerAsync& operator=(ControllerAsync&&) = delete;

    /// Has `call()` run on the worker, each of its operations limited as by `ControllerTimeout`, and then `done` in
    /// `Dispatch` with what it returned, which it must: of a type that can be made without arguments. While `done`
    /// runs, `ControllerFailure::Last` has the failure of the call's last operation. `call` must not throw; what `done`
    /// throws comes out of `Dispatch`. 0, or negative errno-style when there is no thread or no descriptor to be had;
    /// then nothing will run.
    template <typename Call, typename Done>
    CONTROLLER_CLIENT_RESULT int Start(Call call, Done done, int timeoutMilliseconds = ControllerTimeout::none)
    {
        using Result = decltype(call());
        const std::shared_ptr<Result> result = std::make_shared<Result>();
        return Queue([call, result]() mutable { *result = call(); }, [done, result]() mutable { done(*result); },
                     timeoutMilliseconds);
    }

    /// Runs what is to follow the calls that are over, in their order, and returns their number. What runs may start
    /// calls, and may end this object.
    int Dispatch();

    /// What an event loop watches for reading: readable while `Dispatch` has something to run. The same for as long as
    /// this object lives; -1 when there is none, as `Start` tells.
    CONTROLLER_CLIENT_RESULT int Descriptor() const noexcept;

  private:
    CONTROLLER_CLIENT_RESULT int Queue(std::function<void()> work, std::function<void()> done, int timeoutMilliseconds);

    struct Worker;
    std::shared_ptr<Worker> worker_;
};

} // namespace Controllerd
