#pragma once

#include "controllerctl/Patience.h"
#include "dbus_helper/Codec.h"
#include "dbus_helper/Endpoint.h"
#include "dbus_helper/Handles.h"

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace ControllerCtl
{

/// How a question was answered.
enum class Heard : unsigned char
{
    Nothing,    ///< not in time, or the one who was asked has ended over it
    Absent,     ///< nobody has the name
    Refusal,    ///< a D-Bus error
    Unreadable, ///< another type than asked for
    Well,
};

/// What is known of the answer to a question, whatever its type.
struct Hearing
{
    Heard heard = Heard::Nothing;
    std::string message; ///< the bus's words, empty when it went well
};

template <typename T>
struct Reply : Hearing
{
    T value{};

    [[nodiscard]] bool Well() const { return heard == Heard::Well; }
};

/// A connection for looks: dropped when it goes, without waiting for a bus that hangs.
struct BusDropper
{
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using LookBus = std::unique_ptr<sd_bus, BusDropper>;

/// Opens one; what sd-bus returns, negative errno-style on failure.
[[nodiscard]] int OpenForLooks(LookBus& bus, int (*open)(DbusHelper::BusHandle& bus) = &DbusHelper::OpenUserBus);

/// Asks many questions at once on one connection, and waits for all of their answers together: who is silent costs no
/// more than the time for all. Replies live longer than the inquiry that fills them.
class Inquiry
{
  public:
    explicit Inquiry(sd_bus* bus) : bus_(bus) {}
    ~Inquiry() = default;
    Inquiry(const Inquiry&) = delete;
    Inquiry& operator=(const Inquiry&) = delete;
    Inquiry(Inquiry&&) = delete;
    Inquiry& operator=(Inquiry&&) = delete;

    using Reader = std::function<int(sd_bus_message* answer)>; ///< negative when it is another answer

    /// Asks for a property, whose value `read` takes from the answer, of the D-Bus type `signature`.
    void GetAs(const DbusHelper::Endpoint& endpoint, const char* property, const char* signature, Hearing& hearing,
               Reader read);

    template <typename T>
    void Get(const DbusHelper::Endpoint& endpoint, const char* property, Reply<T>& reply)
    {
        GetAs(endpoint, property, DbusHelper::Codec<T>::signature.c_str(), reply, ReadInto<T>(reply));
    }

    /// Calls a method; what it answers is a tuple of all of its values. `Out` is what the reply says.
    template <typename... Out, typename... In>
    void Call(const DbusHelper::Endpoint& endpoint, const char* member, Reply<std::tuple<Out...>>& reply,
              const In&... arguments)
    {
        const Writer write = [&](sd_bus_message* message) {
            return DbusHelper::Sequence<In...>::Append(message, std::tie(arguments...));
        };
        CallAs(endpoint, member, write, reply,
               [&reply](sd_bus_message* answer) { return DbusHelper::Sequence<Out...>::Read(answer, reply.value); });
    }

    using Writer = std::function<int(sd_bus_message* call)>;
    /// The same for arguments and answers of any shape.
    void CallAs(const DbusHelper::Endpoint& endpoint, const char* member, const Writer& write, Hearing& hearing,
                Reader read);

    /// Waits until all is answered or the time has passed; what comes later is not heard. Negative errno-style when the
    /// bus is gone.
    int Wait(const Patience& patience);

  private:
    struct Question
    {
        Inquiry* inquiry;
        Hearing* hearing;
        Reader read;
        DbusHelper::SlotHandle slot;
    };

    template <typename T>
    static Reader ReadInto(Reply<T>& reply)
    {
        return [&reply](sd_bus_message* answer) { return DbusHelper::Codec<T>::Read(answer, reply.value); };
    }

    static int OnAnswer(sd_bus_message* answer, void* userData, sd_bus_error* error);
    void Ask(sd_bus_message* call, Hearing& hearing, Reader read);

    sd_bus* bus_;
    size_t open_ = 0;
    std::vector<std::unique_ptr<Question>> questions_; // their addresses are sd-bus's
};

} // namespace ControllerCtl
