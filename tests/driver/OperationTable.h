#pragma once

#include "tests/driver/JsonValue.h"

#include <systemd/sd-event.h>

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

/// Runs operations of the clients by name, with inputs and results as JSON.
namespace Driver
{

/// The place of one argument in a call: where its value is kept, how it is given and how it is told afterwards.
/// Values and constant references are inputs, taken in order.
template <typename Argument>
struct ArgumentPlace
{
    using Value = std::remove_cv_t<std::remove_reference_t<Argument>>;
    Value value;

    ArgumentPlace(const Json& in, size_t& next) : value(JsonValue<Value>::From(in.at(next++))) {}
    const Value& Give() { return value; }
    void Tell(Json& /*out*/) const {}
    static void Describe(std::vector<std::string>& inputs)
    {
        inputs.emplace_back(DbusHelper::Codec<Value>::signature.c_str());
    }
};

/// References are out-arguments, told after the call.
template <typename T>
struct ArgumentPlace<T&>
{
    T value = JsonValue<T>::Sentinel();

    ArgumentPlace(const Json& /*in*/, size_t& /*next*/) {}
    T& Give() { return value; }
    void Tell(Json& out) const { out.push_back(JsonValue<T>::To(value)); }
    static void Describe(std::vector<std::string>& /*inputs*/) {}
};
template <typename T>
struct ArgumentPlace<const T&> : ArgumentPlace<T>
{
    using ArgumentPlace<T>::ArgumentPlace;
};

/// Optional out-arguments are always asked for.
template <>
struct ArgumentPlace<std::string*> : ArgumentPlace<std::string&>
{
    using ArgumentPlace<std::string&>::ArgumentPlace;
    std::string* Give() { return &value; }
};

/// Where a listener tells each signal: its name and its arguments.
using SignalSink = std::function<void(const std::string& name, Json arguments)>;

/// A client that listens for as long as it is held, and the result of its subscription.
struct Listening
{
    int32_t result = 0;
    std::shared_ptr<void> client;
};

struct Operation
{
    std::vector<std::string> inputs; ///< D-Bus types of the inputs
    std::function<Json(const Json& in)> run;
};

class OperationTable
{
  public:
    using Listener = std::function<Listening(sd_event* event, SignalSink sink)>;

    /// Makes an operation known; what goes in and what comes out follows from its type. Of overloads name one by its
    /// type: `Add<int32_t(bool&)>("client.Operation", &Client::Operation)`.
    template <typename Function>
    void Add(const std::string& name, Function* operation)
    {
        operations_[name] = {Inputs(operation), [operation](const Json& in) { return Run(operation, in); }};
    }

    /// Makes a client's signals known under "listen." and the client's name.
    void AddListener(const std::string& client, Listener listener)
    {
        listeners_["listen." + client] = std::move(listener);
    }

    [[nodiscard]] const std::map<std::string, Operation>& Operations() const { return operations_; }
    [[nodiscard]] const std::map<std::string, Listener>& Listeners() const { return listeners_; }

  private:
    template <typename Result, typename... Arguments>
    static std::vector<std::string> Inputs(Result (* /*operation*/)(Arguments...))
    {
        std::vector<std::string> inputs;
        (ArgumentPlace<Arguments>::Describe(inputs), ...);
        return inputs;
    }

    template <typename Result, typename... Arguments>
    static Json Run(Result (*operation)(Arguments...), const Json& in)
    {
        [[maybe_unused]] size_t next = 0;
        std::tuple<ArgumentPlace<Arguments>...> places{ArgumentPlace<Arguments>(in, next)...};
        if (next != in.size())
        {
            throw std::invalid_argument("takes " + std::to_string(next) + " inputs");
        }
        const Result result = std::apply([&](auto&... place) { return operation(place.Give()...); }, places);
        Json out = Json::array();
        std::apply([&](const auto&... place) { (place.Tell(out), ...); }, places);
        return {{"result", JsonValue<Result>::To(result)}, {"out", std::move(out)}};
    }

    std::map<std::string, Operation> operations_;
    std::map<std::string, Listener> listeners_;
};

/// Connects a client's signal with these arguments to the sink.
template <typename... Arguments, typename Signal>
void Forward(Signal& signal, const std::string& name, const SignalSink& sink)
{
    signal.connect([name, sink](Arguments... arguments) {
        sink(name, Json::array({JsonValue<std::remove_cv_t<std::remove_reference_t<Arguments>>>::To(arguments)...}));
    });
}

} // namespace Driver

/// The operations of this driver program: each has its own.
void AddOperations(Driver::OperationTable& table);
