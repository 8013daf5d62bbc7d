#pragma once

#include "dbus_helper/Codec.h"
#include "dbus_helper/Endpoint.h"
#include "dbus_helper/Log.h"

#include <systemd/sd-bus.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

/// How members of our own interface are served: the twin of Call.h. A handler is a function that takes a `MethodCall`,
/// a `PropertyRead` or a `PropertyWrite`; the member's D-Bus types follow from the C++ types that this names. It reads
/// when it wants to, since a refusal may come before, and returns what sd-bus is to be told.
namespace DbusHelper
{

/// What stands between a signature text and the words behind it: not the same in every line.
inline constexpr const char* blank = " ";
inline constexpr const char* colon = ": ";

/// How sd-bus takes basic values in its argument lists.
inline const char* ToVararg(const std::string& value) { return value.c_str(); }
inline int ToVararg(bool value) { return value ? 1 : 0; }
inline int32_t ToVararg(int32_t value) { return value; }

/// Emits a signal with these values from an object of ours. Negative errno-style on failure, as with a null bus.
template <typename... Types>
int EmitSignal(sd_bus* bus, const Endpoint& endpoint, const char* member, const Types&... values)
{
    return sd_bus_emit_signal(bus, endpoint.path, endpoint.interface, member, Sequence<Types...>::signature.c_str(),
                              ToVararg(values)...);
}

/// What every handler can do with a request: refuse it.
class Request
{
  public:
    Request(sd_bus_message* message, sd_bus_error* error) : message_(message), error_(error) {}

    /// Tells the client "org.freedesktop.DBus.Error.Failed" with these words, and logs nothing. Returns what the
    /// handler then returns: what sd-bus makes of the error, or `result`.
    [[nodiscard]] int Refuse(const char* words) const { return sd_bus_error_set(error_, SD_BUS_ERROR_FAILED, words); }
    [[nodiscard]] int Refuse(const char* words, int result) const
    {
        sd_bus_error_set(error_, SD_BUS_ERROR_FAILED, words);
        return result;
    }

    /// The same with a result behind the words.
    [[nodiscard]] int RefuseWithCode(const char* words, int code) const
    {
        return sd_bus_error_setf(error_, SD_BUS_ERROR_FAILED, "%s%d", words, code);
    }

    /// Logs the failure and tells the client the words of the line, without the signature text that it opens with.
    [[nodiscard]] int Fail(const char* signature, const char* separator, const char* words, int result) const
    {
        Log::Error("%s%s%s", signature, separator, words);
        return Refuse(words, result);
    }

  protected:
    [[nodiscard]] sd_bus_message* Message() const { return message_; }

  private:
    sd_bus_message* message_;
    sd_bus_error* error_;
};

/// What a method replies: nothing for void, each value of a tuple, else the one value.
template <typename Result>
struct ReplyValues
{
    using Types = Sequence<Result>;
};
template <>
struct ReplyValues<void>
{
    using Types = Sequence<>;
};
template <typename... Results>
struct ReplyValues<std::tuple<Results...>>
{
    using Types = Sequence<Results...>;
};

/// A call of a method that takes arguments of these types and replies with the result's.
template <typename Signature>
class MethodCall;
template <typename Result, typename... In>
class MethodCall<Result(In...)> : public Request
{
  public:
    using Arguments = Sequence<In...>;
    using Reply = typename ReplyValues<Result>::Types;
    using Request::Request;

    /// Negative errno-style when an argument is missing or of another type.
    [[nodiscard]] int Read(In&... arguments) const
    {
        std::tuple<In&...> values(arguments...);
        return Arguments::Read(Message(), values);
    }

    template <typename... Values>
    [[nodiscard]] int Answer(const Values&... values) const
    {
        static_assert(std::is_same_v<Sequence<Values...>, Reply>, "the reply is of other types");
        return sd_bus_reply_method_return(Message(), Reply::signature.c_str(), ToVararg(values)...);
    }
};

/// Somebody reads a property of this type.
template <typename T>
class PropertyRead : public Request
{
  public:
    using Type = T;
    using Request::Request;

    [[nodiscard]] int Answer(const T& value) const { return Codec<T>::Append(Message(), value); }
};

/// Somebody writes a property of this type.
template <typename T>
class PropertyWrite : public Request
{
  public:
    using Type = T;
    using Request::Request;

    /// Negative errno-style when there is no value, or one of another type.
    [[nodiscard]] int Read(T& value) const
    {
        std::tuple<T&> values(value);
        return Sequence<T>::Read(Message(), values);
    }
};

/// The handler among functions of one name: an operation may share it.
template <typename Taken>
consteval auto Handler(int (*handler)(const Taken&))
{
    return handler;
}

/// How functions of a type serve a method: the D-Bus types, and what runs one of them. Types with a convention of their
/// own for their replies add theirs.
template <typename Function>
struct MethodServing;
template <typename Result, typename... In>
struct MethodServing<int (*)(const MethodCall<Result(In...)>&)>
{
    using Arguments = typename MethodCall<Result(In...)>::Arguments;
    using Reply = typename MethodCall<Result(In...)>::Reply;

    template <auto handler>
    static int Run(sd_bus_message* message, sd_bus_error* error)
    {
        return handler({message, error});
    }
};
/// The sd-bus callbacks of handlers.
template <auto handler>
int OnMethodCall(sd_bus_message* message, void* /*userData*/, sd_bus_error* error)
{
    return MethodServing<decltype(handler)>::template Run<handler>(message, error);
}
template <auto handler>
int OnPropertyAccess(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                     sd_bus_message* message, void* /*userData*/, sd_bus_error* error)
{
    return handler({message, error});
}

/// One member of an interface. Argument names are separated by blanks, in the order of the signature.
struct Member
{
    enum class Kind : uint8_t
    {
        Method,
        Property,
        ReadOnlyProperty,
        Signal,
    };

    Kind kind;
    const char* name;
    const char* signature;
    const char* argumentNames = "";
    const char* reply = "";
    const char* replyNames = "";
    uint64_t flags = 0;
    sd_bus_message_handler_t handler = nullptr;
    sd_bus_property_get_t getter = nullptr;
    sd_bus_property_set_t setter = nullptr;
};

/// Does not compile unless there are as many names as values.
template <typename... Types>
consteval const char* NamesOf(Sequence<Types...> /*values*/, const char* names)
{
    const std::string_view text(names);
    size_t count = text.empty() ? 0 : 1;
    for (const char character : text)
    {
        count += character == ' ' ? 1 : 0;
    }
    if (count != sizeof...(Types))
    {
        throw "a name for each value";
    }
    return names;
}

/// A method that anyone on the bus may call.
template <auto handler>
consteval Member Method(const char* name, const char* argumentNames = "", const char* replyNames = "")
{
    using Serving = MethodServing<decltype(handler)>;
    return {.kind = Member::Kind::Method,
            .name = name,
            .signature = Serving::Arguments::signature.c_str(),
            .argumentNames = NamesOf(typename Serving::Arguments{}, argumentNames),
            .reply = Serving::Reply::signature.c_str(),
            .replyNames = NamesOf(typename Serving::Reply{}, replyNames),
            .flags = SD_BUS_VTABLE_UNPRIVILEGED,
            .handler = &OnMethodCall<handler>};
}

/// What tells of its changes, as far as introspection goes.
inline constexpr uint64_t announced = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;

template <typename T>
consteval const char* PropertySignature(int (* /*getter*/)(const PropertyRead<T>&),
                                        int (* /*setter*/)(const PropertyWrite<T>&) = nullptr)
{
    return Codec<T>::signature.c_str();
}

/// A property, with handlers of one type.
template <auto getter, auto setter>
consteval Member Property(const char* name, uint64_t flags)
{
    return {.kind = Member::Kind::Property,
            .name = name,
            .signature = PropertySignature(getter, setter),
            .flags = flags,
            .getter = &OnPropertyAccess<getter>,
            .setter = &OnPropertyAccess<setter>};
}

template <auto getter>
consteval Member ReadOnlyProperty(const char* name, uint64_t flags)
{
    return {.kind = Member::Kind::ReadOnlyProperty,
            .name = name,
            .signature = PropertySignature(getter),
            .flags = flags,
            .getter = &OnPropertyAccess<getter>};
}

template <typename... Types>
consteval Member Signal(const char* name, const char* argumentNames)
{
    return {.kind = Member::Kind::Signal,
            .name = name,
            .signature = Sequence<Types...>::signature.c_str(),
            .argumentNames = NamesOf(Sequence<Types...>{}, argumentNames)};
}

} // namespace DbusHelper
