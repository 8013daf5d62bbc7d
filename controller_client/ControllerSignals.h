#pragma once

#include "controller_client/Export.h"

#include <memory>
#include <string>
#include <vector>

namespace Controllerd
{

/// An argument of a signal, or the value of a property. Only the field that the kind names is meant.
struct ControllerValue
{
    enum class Kind : unsigned char
    {
        Boolean,
        Integer,
        Real,
        Text,
        List,
        Other, ///< of a type that this interface does not have; its value is not told
    };

    Kind kind = Kind::Other;
    bool boolean = false;
    long long integer = 0;
    double real = 0;
    std::string text;
    std::vector<std::string> list;
};

/// Something that the controller has told, or that has become of it.
struct ControllerEvent
{
    enum class Kind : unsigned char
    {
        Signal,          ///< `arguments` are the signal's, in order
        PropertyChanged, ///< `arguments` is the new value; empty when the controller tells only that there is one
        Started,         ///< a controller has come up: properties may have changed unannounced
        Stopped,         ///< the controller has ended; the next one will be heard as well
        Lost,            ///< events before the next one were dropped, since nobody took them; their number is the
                         ///< argument. Ask for what matters.
    };

    Kind kind = Kind::Signal;
    std::string name; ///< of the signal or property; empty otherwise
    std::vector<ControllerValue> arguments;
};

/// Listens to the controller's signals and property changes, whether it runs or not, and across its restarts.
///
/// Has a user-bus connection of its own from `Open` on, on which everything is kept in order that nobody has taken yet.
/// Used by one thread at a time, but for `Cancel`. Failures are logged to syslog.
///
/// Two ways lead to the events. A thread of its own waits in `Next`. An event loop watches the descriptor, and when
/// that is readable:
///
///     int kept = signals.Dispatch();
///     for (; kept > 0 && signals.Next(event, 0) > 0; --kept) { ... }
///     if (kept < 0) { ... } // the bus is gone, or Cancel has been called
class CONTROLLER_CLIENT_API ControllerSignals
{
  public:
    ControllerSignals();
    ~ControllerSignals();
    ControllerSignals(const ControllerSignals&) = delete;
    ControllerSignals& operator=(const ControllerSignals&) = delete;
    ControllerSignals(ControllerSignals&&) = delete;
    ControllerSignals& operator=(ControllerSignals&&) = delete;

    /// Starts listening: whatever is emitted after it has returned is heard. A second call starts anew. 0, or negative
    /// errno-style when there is no bus.
    CONTROLLER_CLIENT_RESULT int Open();

    /// Waits for the next event, for ever when `timeoutMilliseconds` is negative; 0 takes what is there. 1 with an
    /// event, 0 when the time has passed, negative errno-style when the bus is gone or was never opened (-ENOTCONN), or
    /// when `Cancel` has been called (-ECANCELED).
    CONTROLLER_CLIENT_RESULT int Next(ControllerEvent& event, int timeoutMilliseconds);

    /// Takes in what has come, without waiting and without keeping a loop for long: what it leaves shows at the
    /// descriptor. Returns how many events `Next` has at hand now, 0 when there are none; negative as `Next`. Of events
    /// that nobody takes the last thousand are kept, and an event tells how many were dropped before.
    CONTROLLER_CLIENT_RESULT int Dispatch();

    /// What an event loop watches for reading: readable while `Dispatch` or `Next` has something to do or to tell, the
    /// end of the bus and `Cancel` among it. The same for as long as this object lives; -1 when there is none, as
    /// `Open` tells. Watch it from `Open` on.
    CONTROLLER_CLIENT_RESULT int Descriptor() const noexcept;
    /// How long a loop may wait for the descriptor, as poll(2) takes it: -1 for ever, 0 when there is something to do
    /// already.
    CONTROLLER_CLIENT_RESULT int TimeoutMilliseconds() const;

    /// Ends the listening for good: `Next`, which may be waiting in another thread, `Dispatch` and `Open` return
    /// -ECANCELED from now on. From any thread or signal handler, as long as this object lives.
    void Cancel() noexcept;

  private:
    struct Listener;
    std::unique_ptr<Listener> listener_;
};

} // namespace Controllerd
