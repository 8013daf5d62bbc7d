// Deliberately plain sd-bus, without the daemon's helpers: these calls are what the helpers are measured against.

#include "benchmarks/BareCalls.h"

#include <systemd/sd-bus.h>

#include <cerrno>

namespace Bench
{
namespace
{

constexpr const char* videoService = "com.tavilon.common.Video1";
constexpr const char* videoPath = "/com/tavilon/common/Video1";
constexpr const char* videoInterface = "com.tavilon.common.Video1.Control";

/// As long as the paths of a real recording.
constexpr const char* text = "/media/card/jobs/20260101-0001/media/0042.mp4";

int AppendBySignature(sd_bus_message* message, const char* signature)
{
    int result = 0;
    for (; *signature != '\0' && result >= 0; ++signature)
    {
        const uint64_t zero = 0; // as wide as the widest basic type
        const bool isText = *signature == 's' || *signature == 'o';
        result = isText ? sd_bus_message_append_basic(message, *signature, text)
                        : sd_bus_message_append_basic(message, *signature, &zero);
    }
    return result;
}

int AppendAccess(sd_bus_message* message, const Operation& access)
{
    int result = sd_bus_message_append(message, "ss", access.interface.c_str(), access.property.c_str());
    if (result < 0 || access.signature.empty())
    {
        return result;
    }
    result = sd_bus_message_open_container(message, 'v', access.signature.c_str());
    result = result < 0 ? result : AppendBySignature(message, access.signature.c_str());
    return result < 0 ? result : sd_bus_message_close_container(message);
}

int Send(sd_bus* bus, sd_bus_message* message)
{
    sd_bus_error error{};
    sd_bus_message* reply = nullptr;
    int result = sd_bus_call(bus, message, 0, &error, &reply);
    if (result >= 0 && *sd_bus_message_get_signature(reply, 1) != '\0')
    {
        result = sd_bus_message_skip(reply, sd_bus_message_get_signature(reply, 1));
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    return result;
}

} // namespace

std::string Describe(const Operation& operation)
{
    const std::string service = operation.service.substr(operation.service.rfind('.') + 1);
    return service + "." + operation.member + (operation.property.empty() ? "" : " " + operation.property);
}

int BareGetRecordingState(int32_t* state)
{
    sd_bus* bus = nullptr;
    sd_bus_error error{};
    int result = sd_bus_open_user(&bus);
    if (result >= 0)
    {
        result = sd_bus_get_property_trivial(bus, videoService, videoPath, videoInterface, "RecordingState", &error,
                                             'i', state);
    }
    sd_bus_error_free(&error);
    sd_bus_flush_close_unref(bus);
    return result;
}

int BareStopRecording(int32_t* answer)
{
    sd_bus* bus = nullptr;
    sd_bus_error error{};
    sd_bus_message* reply = nullptr;
    int result = sd_bus_open_user(&bus);
    if (result >= 0)
    {
        result = sd_bus_call_method(bus, videoService, videoPath, videoInterface, "StopRecording", &error, &reply, "");
    }
    if (result >= 0)
    {
        result = sd_bus_message_read(reply, "i", answer);
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return result;
}

int BareEmitTimeChanged()
{
    sd_bus* bus = nullptr;
    int result = sd_bus_open_user(&bus);
    if (result >= 0)
    {
        result = sd_bus_emit_signal(bus, "/com/tavilon/common/BareServer1", "com.tavilon.common.BareServer1.Control",
                                    "TimeChanged", "iiiiiib", 2026, 3, 1, 12, 30, 0, 0);
    }
    sd_bus_flush_close_unref(bus);
    return result;
}

int BareCall(const Operation& operation)
{
    sd_bus* bus = nullptr;
    sd_bus_message* message = nullptr;
    int result = sd_bus_open_user(&bus);
    if (result >= 0)
    {
        const bool onProperty = !operation.property.empty();
        result = sd_bus_message_new_method_call(
            bus, &message, operation.service.c_str(), operation.path.c_str(),
            onProperty ? "org.freedesktop.DBus.Properties" : operation.interface.c_str(), operation.member.c_str());
        if (result >= 0)
        {
            result =
                onProperty ? AppendAccess(message, operation) : AppendBySignature(message, operation.signature.c_str());
        }
    }
    if (result >= 0)
    {
        result = Send(bus, message);
    }
    sd_bus_message_unref(message);
    sd_bus_flush_close_unref(bus);
    return result;
}

} // namespace Bench
