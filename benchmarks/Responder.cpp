// Stands in for every sibling daemon at once and answers without thinking, so that what is measured is the daemon and
// not its peers. One connection owns all their names.

#include "benchmarks/CannedAnswers.h"
#include "benchmarks/Operation.h"
#include "dbus_helper/Codec.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using Bench::Operation;

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* videoPath = "/com/tavilon/common/Video1";
constexpr const char* videoInterface = "com.tavilon.common.Video1.Control";

constexpr std::array names{
    "com.tavilon.common.Video1",
    "com.tavilon.common.StorageDaemon1",
    "com.tavilon.common.JobsManagerDaemon1",
    "com.tavilon.common.Settings1",
    "com.tavilon.common.Halvex1",
    "com.tavilon.common.SyncDaemon1",
    "org.freedesktop.timedate1",
    Bench::responderName,
};

struct State
{
    explicit State(const std::string& folder) : media(folder), answers(folder) {}

    std::string media;
    Bench::CannedAnswers answers;
    bool isLogging = false; ///< off while something is measured
    std::vector<Operation> log;
    sd_bus_message* emission = nullptr; ///< the order to emit that waits for its answer
    unsigned pings = 0;                 ///< that were not answered yet
    uint32_t properties = 1;            ///< of "StorageChanged"
};

State& StateOf(void* userData) { return *static_cast<State*>(userData); }

/// Of what a property is set to, which is next in the message; empty when there is nothing.
const char* SignatureOfValue(sd_bus_message* call)
{
    const char* signature = nullptr;
    return sd_bus_message_peek_type(call, nullptr, &signature) > 0 ? signature : "";
}

int Log(State& state, sd_bus_message* call)
{
    Operation operation{.service = sd_bus_message_get_destination(call),
                        .path = sd_bus_message_get_path(call),
                        .interface = sd_bus_message_get_interface(call),
                        .member = sd_bus_message_get_member(call),
                        .property = {},
                        .signature = sd_bus_message_get_signature(call, 1)};
    int result = 0;
    if (operation.interface == propertiesInterface)
    {
        const char* interface = "";
        const char* property = "";
        result = sd_bus_message_read(call, "ss", &interface, &property);
        operation.interface = interface;
        operation.property = property;
        operation.signature = SignatureOfValue(call);
        result = result < 0 ? result : sd_bus_message_rewind(call, 1);
    }
    state.log.push_back(std::move(operation));
    return result;
}

int OnMessage(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    State& state = StateOf(userData);
    if (sd_bus_message_is_method_call(message, nullptr, nullptr) <= 0 ||
        sd_bus_message_get_path(message) == std::string_view(Bench::responderPath))
    {
        return 0;
    }
    const int result = state.isLogging ? Log(state, message) : 0;
    return result < 0 ? result : state.answers.Answer(message);
}

int StartLog(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    StateOf(userData).isLogging = true;
    StateOf(userData).log.clear();
    return sd_bus_reply_method_return(message, "");
}

int TakeLog(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    State& state = StateOf(userData);
    state.isLogging = false;
    std::vector<Bench::OperationTexts> texts;
    for (const Operation& each : state.log)
    {
        texts.emplace_back(each.service, each.path, each.interface, each.member, each.property, each.signature);
    }
    sd_bus_message* reply = nullptr;
    int result = sd_bus_message_new_method_return(message, &reply);
    result = result < 0 ? result : DbusHelper::Codec<std::vector<Bench::OperationTexts>>::Append(reply, texts);
    result = result < 0 ? result : sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return result;
}

int OnPong(sd_bus_message* pong, void* userData, sd_bus_error* /*error*/)
{
    State& state = StateOf(userData);
    --state.pings;
    if (sd_bus_message_is_method_error(pong, nullptr) > 0)
    {
        sd_bus_reply_method_error(state.emission, sd_bus_message_get_error(pong));
    }
    else if (state.pings == 0)
    {
        sd_bus_reply_method_return(state.emission, "");
    }
    if (state.pings == 0)
    {
        state.emission = sd_bus_message_unref(state.emission);
    }
    return 0;
}

int EmitStorageChange(sd_bus* bus, uint32_t properties)
{
    sd_bus_message* signal = nullptr;
    int result = sd_bus_message_new_signal(bus, &signal, Bench::devicePath, propertiesInterface, "PropertiesChanged");
    result = result < 0 ? result : sd_bus_message_append(signal, "s", Bench::deviceInterface);
    result = result < 0 ? result : sd_bus_message_open_container(signal, 'a', "{sv}");
    for (uint32_t property = 0; property < properties && result >= 0; ++property)
    {
        const std::string name = "StorageIsBelowWarningLevel" + (property == 0 ? "" : std::to_string(property));
        result = sd_bus_message_append(signal, "{sv}", name.c_str(), "b", 0);
    }
    result = result < 0 ? result : sd_bus_message_close_container(signal);
    result = result < 0 ? result : sd_bus_message_append(signal, "as", 0);
    result = result < 0 ? result : sd_bus_send(bus, signal, nullptr);
    sd_bus_message_unref(signal);
    return result;
}

int EmitOne(sd_bus* bus, const State& state, std::string_view signal)
{
    if (signal == "VideoGrew")
    {
        return sd_bus_emit_signal(bus, videoPath, videoInterface, "VideoGrew", "sb",
                                  (state.media + "/0042.mp4").c_str(), 0);
    }
    if (signal == "StorageChanged")
    {
        return EmitStorageChange(bus, state.properties);
    }
    return -EINVAL;
}

/// A ping behind the signals on each of the receiver's connections tells when it has dealt with them.
int Ping(sd_bus* bus, State& state, sd_bus_message* message)
{
    int result = sd_bus_message_enter_container(message, 'a', "s");
    const char* connection = nullptr;
    while (result >= 0 && (result = sd_bus_message_read(message, "s", &connection)) > 0)
    {
        result = sd_bus_call_method_async(bus, nullptr, connection, "/", "org.freedesktop.DBus.Peer", "Ping", &OnPong,
                                          &state, "");
        state.pings += result < 0 ? 0 : 1;
    }
    return result;
}

int Emit(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    State& state = StateOf(userData);
    sd_bus* bus = sd_bus_message_get_bus(message);
    const char* signal = nullptr;
    uint32_t count = 0;
    int result = state.emission != nullptr ? -EBUSY : sd_bus_message_read(message, "su", &signal, &count);
    for (; count > 0 && result >= 0; --count)
    {
        result = EmitOne(bus, state, signal);
    }
    result = result < 0 ? result : Ping(bus, state, message);
    if (result >= 0 && state.pings > 0)
    {
        state.emission = sd_bus_message_ref(message);
        return 1;
    }
    return result < 0 ? result : -ENOTCONN;
}

int Resize(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    uint32_t devices = 0;
    const int result = sd_bus_message_read(message, "uu", &devices, &StateOf(userData).properties);
    StateOf(userData).answers.SetDevices(devices);
    return result < 0 ? result : sd_bus_reply_method_return(message, "");
}

const sd_bus_vtable orders[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("StartLog", "", "", StartLog, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("TakeLog", "", "a(ssssss)", TakeLog, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Resize", "uu", "", Resize, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Emit", "suas", "", Emit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace

/// Argument: the folder of the job's media.
int main(int count, char** arguments)
{
    if (count != 2)
    {
        return EXIT_FAILURE;
    }
    State state(arguments[1]);
    sd_event* event = nullptr;
    sd_bus* bus = nullptr;
    int result = sd_event_default(&event);
    result = result < 0 ? result : sd_bus_open_user(&bus);
    result = result < 0 ? result : sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL);
    result = result < 0 ? result : sd_bus_add_filter(bus, nullptr, &OnMessage, &state);
    result = result < 0
                 ? result
                 : sd_bus_add_object_vtable(bus, nullptr, Bench::responderPath, Bench::responderName, orders, &state);
    for (const char* name : names)
    {
        result = result < 0 ? result : sd_bus_request_name(bus, name, 0);
    }
    if (result < 0)
    {
        return EXIT_FAILURE;
    }
    sd_notify(0, "READY=1");
    return sd_event_loop(event) < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
