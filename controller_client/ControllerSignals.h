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
    };

    Kind kind = Kind::Signal;
    std::string name; ///< of the signal or property; empty otherwise
    std::vector<ControllerValue> arguments;
};

/// Listens to the controller's signals and property changes, whether it runs or not, and across its restarts.
///
/// Has a user-bus connection of its own from `Open` on, on which everything is kept in order that nobody has taken yet.
/// Used by one thread at a time. Failures are logged to syslog.
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
    int Open();

    /// Waits for the next event, for ever when `timeoutMilliseconds` is negative; 0 takes what is there. 1 with an
    /// event, 0 when the time has passed, negative errno-style when the bus is gone or was never opened (-ENOTCONN).
    int Next(ControllerEvent& event, int timeoutMilliseconds);

  private:
    struct Listener;
    std::unique_ptr<Listener> listener_;
};

} // namespace Controllerd
