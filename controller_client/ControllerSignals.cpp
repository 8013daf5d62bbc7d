#include "controller_client/ControllerSignals.h"

#include "controller_client/ControllerCalls.h"
#include "dbus_helper/Descriptor.h"
#include "dbus_helper/HandlerGuard.h"
#include "dbus_helper/Handles.h"
#include "dbus_helper/Log.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <deque>
#include <limits>
#include <utility>

namespace Controllerd
{

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace
{

/// What has been heard and nobody has taken yet.
class Events
{
  public:
    void Add(ControllerEvent event)
    {
        constexpr size_t most = 1000;
        if (events_.size() == most)
        {
            events_.pop_front();
            ++lost_;
        }
        events_.push_back(std::move(event));
    }

    /// An event could not be kept.
    void Lose() { ++lost_; }

    bool Take(ControllerEvent& event)
    {
        if (lost_ > 0)
        {
            ControllerValue number;
            number.kind = ControllerValue::Kind::Integer;
            number.integer = std::exchange(lost_, 0);
            event = {.kind = ControllerEvent::Kind::Lost, .name = {}, .arguments = {std::move(number)}};
            return true;
        }
        if (events_.empty())
        {
            return false;
        }
        event = std::move(events_.front());
        events_.pop_front();
        return true;
    }

    [[nodiscard]] int Count() const { return static_cast<int>(events_.size()) + (lost_ > 0 ? 1 : 0); }

  private:
    std::deque<ControllerEvent> events_;
    long long lost_ = 0; // before the first
};

template <typename Wire, typename T>
int ReadAs(sd_bus_message* message, T& field)
{
    Wire value{};
    const int result = DbusHelper::Codec<Wire>::Read(message, value);
    field = value;
    return result;
}

/// Reads the next value of the message, whatever it is. 0 at the end of the message or of the container.
int ReadValue(sd_bus_message* message, ControllerValue& value)
{
    using Kind = ControllerValue::Kind;
    char type = 0;
    const char* contents = nullptr;
    const int result = sd_bus_message_peek_type(message, &type, &contents);
    if (result <= 0)
    {
        return result;
    }
    const std::string whole = type + std::string(contents != nullptr ? contents : "");
    const auto as = [&value](Kind kind, int read) {
        value.kind = kind;
        return read < 0 ? read : 1;
    };
    if (whole == "b")
    {
        return as(Kind::Boolean, ReadAs<bool>(message, value.boolean));
    }
    if (whole == "i")
    {
        return as(Kind::Integer, ReadAs<int32_t>(message, value.integer));
    }
    if (whole == "d")
    {
        return as(Kind::Real, ReadAs<double>(message, value.real));
    }
    if (whole == "s")
    {
        return as(Kind::Text, ReadAs<std::string>(message, value.text));
    }
    if (whole == "as")
    {
        return as(Kind::List, ReadAs<std::vector<std::string>>(message, value.list));
    }
    return as(Kind::Other, sd_bus_message_skip(message, nullptr));
}

/// Enters the variant that is next, reads its value and leaves it.
int ReadVariant(sd_bus_message* message, ControllerValue& value)
{
    const char* contents = nullptr;
    const int result = sd_bus_message_peek_type(message, nullptr, &contents);
    return result < 0 ? result : DbusHelper::ReadContainer(message, SD_BUS_TYPE_VARIANT, contents, [&] {
        return ReadValue(message, value);
    });
}

void OnSignal(sd_bus_message* message, Events& events)
{
    ControllerEvent event;
    event.name = sd_bus_message_get_member(message);
    int result = 1;
    while (result > 0)
    {
        ControllerValue value;
        result = ReadValue(message, value);
        if (result > 0)
        {
            event.arguments.push_back(std::move(value));
        }
    }
    events.Add(std::move(event));
}

int ReadChanged(sd_bus_message* message, Events& events)
{
    return DbusHelper::ReadEntries(message, "sv", [&] {
        ControllerEvent event{.kind = ControllerEvent::Kind::PropertyChanged, .name = {}, .arguments = {{}}};
        int result = ReadAs<std::string>(message, event.name);
        result = result < 0 ? result : ReadVariant(message, event.arguments.front());
        if (result >= 0)
        {
            events.Add(std::move(event));
        }
        return result;
    });
}

void OnPropertiesChanged(sd_bus_message* message, Events& events)
{
    std::vector<std::string> invalidated;
    const bool good = sd_bus_message_skip(message, "s") >= 0 && ReadChanged(message, events) >= 0;
    if (!good || ReadAs<std::vector<std::string>>(message, invalidated) < 0)
    {
        return;
    }
    for (std::string& name : invalidated)
    {
        events.Add({.kind = ControllerEvent::Kind::PropertyChanged, .name = std::move(name), .arguments = {}});
    }
}

void OnOwnerChanged(sd_bus_message* message, Events& events)
{
    const char* owner = nullptr;
    if (sd_bus_message_skip(message, "ss") >= 0 && sd_bus_message_read(message, "s", &owner) > 0)
    {
        const auto kind = *owner == '\0' ? ControllerEvent::Kind::Stopped : ControllerEvent::Kind::Started;
        events.Add({.kind = kind, .name = {}, .arguments = {}});
    }
}

/// What sd-bus calls. An event over which memory runs out is one that is lost: that must not cost the program its life.
template <void (*read)(sd_bus_message*, Events&)>
int Keep(sd_bus_message* message, void* events, sd_bus_error* error)
{
    auto& kept = *static_cast<Events*>(events);
    if (DbusHelper::Guard(sd_bus_message_get_member(message), error, [&] {
            read(message, kept);
            return 0;
        }) < 0)
    {
        kept.Lose();
    }
    return 0;
}

/// Subscribes to all that the controller tells. By path and interface: clock and zone are told from a connection that
/// does not own the controller's name, and the owner changes when it is started anew.
int Subscribe(sd_bus* bus, Events& events)
{
    const std::string object = std::string("type='signal',path='") + controllerEndpoint.path + "',interface='";
    const std::string signals = object + controllerEndpoint.interface + "'";
    const std::string changes = object + "org.freedesktop.DBus.Properties',member='PropertiesChanged',arg0='" +
                                controllerEndpoint.interface + "'";
    const std::string owner = "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                              "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
                              std::string(controllerEndpoint.service) + "'";
    int result = sd_bus_add_match(bus, nullptr, signals.c_str(), &Keep<&OnSignal>, &events);
    result =
        result < 0 ? result : sd_bus_add_match(bus, nullptr, changes.c_str(), &Keep<&OnPropertiesChanged>, &events);
    return result < 0 ? result : sd_bus_add_match(bus, nullptr, owner.c_str(), &Keep<&OnOwnerChanged>, &events);
}

/// What is to be waited for until then, as poll(2) takes it.
int Milliseconds(steady_clock::time_point deadline)
{
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

} // namespace

/// The connection, and the one descriptor that shows all there is to do: an epoll with the bus's, and with two that are
/// always readable, of which one is watched while something is at hand, and the other once the listening is over.
struct ControllerSignals::Listener
{
  public:
    Listener()
    {
        Watch(EPOLL_CTL_ADD, atHand_.Get(), 0);
        Watch(EPOLL_CTL_ADD, over_.Get(), 0);
    }

    int Open()
    {
        auto connection = std::make_unique<Connection>();
        int result = cancelled_ ? -ECANCELED : 0;
        result = result == 0 && (epoll_.Get() < 0 || atHand_.Get() < 0 || over_.Get() < 0) ? -EMFILE : result;
        result = result < 0 ? result : DbusHelper::OpenUserBus(connection->bus);
        result = result < 0 ? result : Subscribe(connection->bus.get(), connection->events);
        if (result >= 0)
        {
            connection_ = std::move(connection); // the old one has left the epoll by being closed
            const int bus = sd_bus_get_fd(connection_->bus.get());
            result = Watch(EPOLL_CTL_ADD, bus, EPOLLIN) < 0 ? -errno : 0;
            Show();
        }
        return result;
    }

    /// Lets the connection do one thing. 0 when there is nothing to do, negative at the end.
    int Process()
    {
        if (cancelled_)
        {
            return -ECANCELED;
        }
        return connection_ == nullptr ? -ENOTCONN : sd_bus_process(connection_->bus.get(), nullptr);
    }

    /// Waits until there is something to do, or until the milliseconds have passed.
    void Wait(int timeoutMilliseconds)
    {
        Show();
        const int own = Timeout();
        pollfd entry{.fd = epoll_.Get(), .events = POLLIN, .revents = 0};
        poll(&entry, 1,
             own < 0 || timeoutMilliseconds < 0 ? std::max(own, timeoutMilliseconds)
                                                : std::min(own, timeoutMilliseconds));
    }

    bool Take(ControllerEvent& event) { return connection_ != nullptr && connection_->events.Take(event); }
    [[nodiscard]] int Count() const { return connection_ == nullptr ? 0 : connection_->events.Count(); }
    [[nodiscard]] bool IsCancelled() const { return cancelled_; }

    /// The line of a bus that is gone; the ends that the program has made itself have none. Returns the result.
    [[nodiscard]] int End(const char* operation, int result) const
    {
        if (connection_ != nullptr && result != -ECANCELED)
        {
            Log::Error("int Controllerd::ControllerSignals::%s: The bus is gone: %s", operation,
                       DbusHelper::Failure(DbusHelper::Step::Call, result).errorText.c_str());
        }
        return result;
    }
    [[nodiscard]] int Poll() const { return epoll_.Get(); }

    [[nodiscard]] int Timeout() const
    {
        if (cancelled_ || Count() > 0)
        {
            return 0;
        }
        uint64_t due = UINT64_MAX;
        if (connection_ == nullptr || sd_bus_get_timeout(connection_->bus.get(), &due) < 0)
        {
            return connection_ == nullptr ? -1 : 0; // a bus that is gone has that to tell
        }
        // The bus library's clock is the steady one.
        return due == UINT64_MAX ? -1 : Milliseconds(steady_clock::time_point(microseconds(due)));
    }

    /// Brings the descriptor in line with what is to do.
    void Show()
    {
        sd_bus* bus = connection_ == nullptr ? nullptr : connection_->bus.get();
        const int wanted = bus == nullptr ? 0 : sd_bus_get_events(bus);
        if (wanted >= 0 && bus != nullptr)
        {
            Watch(EPOLL_CTL_MOD, sd_bus_get_fd(bus), static_cast<uint32_t>(wanted));
        }
        Watch(EPOLL_CTL_MOD, atHand_.Get(), Timeout() == 0 ? uint32_t{EPOLLIN} : 0);
    }

    void Cancel() noexcept
    {
        cancelled_ = true;
        Watch(EPOLL_CTL_MOD, over_.Get(), EPOLLIN);
    }

  private:
    struct Connection
    {
        Events events; // outlives the bus, whose handlers fill it
        DbusHelper::BusHandle bus;
    };

    int Watch(int operation, int descriptor, uint32_t events) const noexcept
    {
        epoll_event event{.events = events, .data = {}};
        return epoll_ctl(epoll_.Get(), operation, descriptor, &event);
    }

    DbusHelper::Descriptor epoll_{epoll_create1(EPOLL_CLOEXEC)};
    DbusHelper::Descriptor atHand_{eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)};
    DbusHelper::Descriptor over_{eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<bool> cancelled_ = false;
    std::unique_ptr<Connection> connection_;
};

ControllerSignals::ControllerSignals() : listener_(std::make_unique<Listener>()) {}
ControllerSignals::~ControllerSignals() = default;

int ControllerSignals::Open()
{
    const int result = listener_->Open();
    if (result < 0 && result != -ECANCELED)
    {
        Log::Error("int Controllerd::ControllerSignals::Open(): Cannot listen to the controller: %s",
                   DbusHelper::Failure(DbusHelper::Step::Open, result).errorText.c_str());
    }
    return result;
}

int ControllerSignals::Next(ControllerEvent& event, int timeoutMilliseconds)
{
    const auto deadline = steady_clock::now() + milliseconds(timeoutMilliseconds);
    int result = listener_->IsCancelled() ? -ECANCELED : 0;
    while (result >= 0 && !listener_->Take(event))
    {
        result = listener_->Process();
        if (result != 0)
        {
            continue;
        }
        const int left = timeoutMilliseconds < 0 ? -1 : Milliseconds(deadline);
        if (left == 0)
        {
            return 0;
        }
        listener_->Wait(left);
    }
    listener_->Show();
    return result < 0 ? listener_->End("Next(Controllerd::ControllerEvent&, int)", result) : 1;
}

int ControllerSignals::Dispatch()
{
    constexpr int most = 64; // messages at a time, for a loop to turn in between
    int result = 1;
    for (int count = 0; result > 0 && count < most; ++count)
    {
        result = listener_->Process();
    }
    listener_->Show();
    const int kept = result == -ECANCELED ? 0 : listener_->Count(); // what was heard before the end comes before it
    return result < 0 && kept == 0 ? listener_->End("Dispatch()", result) : kept;
}

int ControllerSignals::Descriptor() const noexcept { return listener_->Poll(); }
int ControllerSignals::TimeoutMilliseconds() const { return listener_->Timeout(); }
void ControllerSignals::Cancel() noexcept { listener_->Cancel(); }

} // namespace Controllerd
