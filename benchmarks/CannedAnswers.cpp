#include "benchmarks/CannedAnswers.h"

#include <array>

namespace Bench
{
namespace
{

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

/// In the order of Value's types.
constexpr std::array signatures{"b", "i", "u", "s", "as"};
static_assert(signatures.size() == std::variant_size_v<Value>);

const char* SignatureOf(const Value& value) { return signatures.at(value.index()); }

struct Appender
{
    sd_bus_message* message;

    int operator()(bool value) const { return sd_bus_message_append(message, "b", value ? 1 : 0); }
    int operator()(int32_t value) const { return sd_bus_message_append(message, "i", value); }
    int operator()(uint32_t value) const { return sd_bus_message_append(message, "u", value); }
    int operator()(const std::string& value) const { return sd_bus_message_append(message, "s", value.c_str()); }
    int operator()(NoTexts /*value*/) const { return sd_bus_message_append(message, "as", 0); }
};

int Append(sd_bus_message* message, const Value& value) { return std::visit(Appender{message}, value); }

int AppendVariant(sd_bus_message* message, const Value& value)
{
    int result = sd_bus_message_open_container(message, 'v', SignatureOf(value));
    result = result < 0 ? result : Append(message, value);
    return result < 0 ? result : sd_bus_message_close_container(message);
}

int AppendProperties(sd_bus_message* message, const Properties& properties)
{
    int result = sd_bus_message_open_container(message, 'a', "{sv}");
    for (const auto& [name, value] : properties)
    {
        result = result < 0 ? result : sd_bus_message_open_container(message, 'e', "sv");
        result = result < 0 ? result : sd_bus_message_append(message, "s", name.c_str());
        result = result < 0 ? result : AppendVariant(message, value);
        result = result < 0 ? result : sd_bus_message_close_container(message);
    }
    return result < 0 ? result : sd_bus_message_close_container(message);
}

int AppendDevice(sd_bus_message* message, const std::string& path, const Properties& properties)
{
    int result = sd_bus_message_open_container(message, 'e', "oa{sa{sv}}");
    result = result < 0 ? result : sd_bus_message_append(message, "o", path.c_str());
    result = result < 0 ? result : sd_bus_message_open_container(message, 'a', "{sa{sv}}");
    result = result < 0 ? result : sd_bus_message_open_container(message, 'e', "sa{sv}");
    result = result < 0 ? result : sd_bus_message_append(message, "s", deviceInterface);
    result = result < 0 ? result : AppendProperties(message, properties);
    for (int containers = 3; containers > 0; --containers)
    {
        result = result < 0 ? result : sd_bus_message_close_container(message);
    }
    return result;
}

int AppendReply(sd_bus_message* message, const Reply& reply)
{
    std::string contents;
    for (const Value& value : reply.values)
    {
        contents += SignatureOf(value);
    }
    int result = reply.isStructure ? sd_bus_message_open_container(message, 'r', contents.c_str()) : 0;
    for (const Value& value : reply.values)
    {
        result = result < 0 ? result : Append(message, value);
    }
    return result < 0 || !reply.isStructure ? result : sd_bus_message_close_container(message);
}

/// Builds the reply with `append` and sends it; 1 when it went out.
template <typename Appender>
int Send(sd_bus_message* call, Appender append)
{
    sd_bus_message* reply = nullptr;
    int result = sd_bus_message_new_method_return(call, &reply);
    result = result < 0 ? result : append(reply);
    result = result < 0 ? result : sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return result < 0 ? result : 1;
}

} // namespace

CannedAnswers::CannedAnswers(const std::string& media)
    : properties_{{"com.tavilon.common.Video1.Control",
                   {{"RecordingState", 0},
                    {"RecordingFilename", ""},
                    {"PreviousRecordingFilename", media + "/0042.mp4"},
                    {"AutoRotateCapable", true},
                    {"CameraRollAngleRaw", 12},
                    {"TiltsenseCapable", true},
                    {"CameraPitchAngle", -7},
                    {"ActiveCaptures", NoTexts{}}}},
                  {"com.tavilon.common.SyncDaemon1", {{"HasActiveSyncs", false}}},
                  {"org.freedesktop.timedate1", {{"Timezone", "CCU/London"}}},
                  {"com.tavilon.common.Halvex1.Control", {{"RemoteIP", ""}, {"RemoteDBusAddress", ""}}},
                  {"com.tavilon.common.Halvex1.reel",
                   {{"Connected", true}, {"Mode", "relative"}, {"Absolute", 1234}, {"Relative", 234}}},
                  {deviceInterface,
                   {{"MountPoint", media},
                    {"IsMounted", true},
                    {"ReadOnly", false},
                    {"StorageIsBelowWarningLevel", false},
                    {"StorageIsBelowMinimumLevel", false}}},
                  {"com.tavilon.common.Settings1",
                   {{"micEnabled", true},
                    {"speakerEnabled", true},
                    {"speakerVolume", 50},
                    {"zone", "London"},
                    {"dst", false},
                    {"enabled", true},
                    {"duration", 100U},
                    {"period", 100U},
                    {"beeps", 1U}}}},
      methods_{{"GetNewMediaPathComponents", {{0, media, "0042"}, true}},
               {"AddVideoMedia", {{0}}},
               {"UpdateMediaFileSizes", {{0}}},
               {"GetPowerSufficientForAction", {{1}}},
               {"SetNTP", {}},
               {"SetTimezone", {}},
               {"SetTime", {}},
               {"SetLedState", {}},
               {"BeepBuzzer", {{true}}},
               {"StartRecording", {{0}}},
               {"StopRecording", {{0}}},
               {"PauseRecording", {{0}}},
               {"ResumeRecording", {{0}}}}
{}

int CannedAnswers::Answer(sd_bus_message* call) const
{
    const char* member = sd_bus_message_get_member(call);
    if (sd_bus_message_is_method_call(call, propertiesInterface, "Get") > 0)
    {
        return AnswerGet(call);
    }
    if (sd_bus_message_is_method_call(call, propertiesInterface, "Set") > 0)
    {
        return Send(call, [](sd_bus_message*) { return 0; });
    }
    if (sd_bus_message_is_method_call(call, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects") > 0)
    {
        return AnswerManagedObjects(call);
    }
    const auto found = methods_.find(std::string_view(member));
    return found == methods_.end()
               ? 0
               : Send(call, [&](sd_bus_message* reply) { return AppendReply(reply, found->second); });
}

int CannedAnswers::AnswerGet(sd_bus_message* call) const
{
    const char* interface = nullptr;
    const char* name = nullptr;
    const int result = sd_bus_message_read(call, "ss", &interface, &name);
    if (result < 0)
    {
        return result;
    }
    const auto properties = properties_.find(std::string_view(interface));
    if (properties == properties_.end())
    {
        return 0;
    }
    const auto found = properties->second.find(std::string_view(name));
    return found == properties->second.end()
               ? 0
               : Send(call, [&](sd_bus_message* reply) { return AppendVariant(reply, found->second); });
}

int CannedAnswers::AnswerManagedObjects(sd_bus_message* call) const
{
    return Send(call, [&](sd_bus_message* reply) {
        int result = sd_bus_message_open_container(reply, 'a', "{oa{sa{sv}}}");
        for (uint32_t device = 0; device < devices_; ++device)
        {
            Properties properties = properties_.at(deviceInterface);
            std::string path = devicePath;
            if (device > 0)
            {
                path += std::to_string(device);
                properties["MountPoint"] = "/media/card" + std::to_string(device);
            }
            result = result < 0 ? result : AppendDevice(reply, path, properties);
        }
        return result < 0 ? result : sd_bus_message_close_container(reply);
    });
}

} // namespace Bench
