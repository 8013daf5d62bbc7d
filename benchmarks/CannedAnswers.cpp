#include "benchmarks/CannedAnswers.h"

#include "dbus_helper/Codec.h"

namespace Bench
{
namespace
{

using DbusHelper::AppendContainer;

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

template <typename T>
using CodecOf = DbusHelper::Codec<std::remove_cvref_t<T>>;

const char* SignatureOf(const Value& value)
{
    return std::visit([](const auto& held) { return CodecOf<decltype(held)>::signature.c_str(); }, value);
}

int Append(sd_bus_message* message, const Value& value)
{
    return std::visit([&](const auto& held) { return CodecOf<decltype(held)>::Append(message, held); }, value);
}

int AppendVariant(sd_bus_message* message, const Value& value)
{
    return AppendContainer(message, 'v', SignatureOf(value), [&] { return Append(message, value); });
}

/// A dictionary's entry: its key, which is of one type, and what `value` appends.
template <typename Append>
int AppendEntry(sd_bus_message* message, const char* signature, const std::string& key, Append value)
{
    return AppendContainer(message, 'e', signature, [&] {
        const int result = sd_bus_message_append_basic(message, *signature, key.c_str());
        return result < 0 ? result : value();
    });
}

int AppendProperties(sd_bus_message* message, const Properties& properties)
{
    return AppendContainer(message, 'a', "{sv}", [&] {
        int result = 0;
        for (auto each = properties.begin(); result >= 0 && each != properties.end(); ++each)
        {
            result = AppendEntry(message, "sv", each->first, [&] { return AppendVariant(message, each->second); });
        }
        return result;
    });
}

int AppendDevice(sd_bus_message* message, const std::string& path, const Properties& properties)
{
    return AppendEntry(message, "oa{sa{sv}}", path, [&] {
        return AppendContainer(message, 'a', "{sa{sv}}", [&] {
            return AppendEntry(message, "sa{sv}", deviceInterface,
                               [&] { return AppendProperties(message, properties); });
        });
    });
}

int AppendReply(sd_bus_message* message, const Reply& reply)
{
    const auto append = [&] {
        int result = 0;
        for (auto value = reply.values.begin(); result >= 0 && value != reply.values.end(); ++value)
        {
            result = Append(message, *value);
        }
        return result;
    };
    std::string contents;
    for (const Value& value : reply.values)
    {
        contents += SignatureOf(value);
    }
    return reply.isStructure ? AppendContainer(message, 'r', contents.c_str(), append) : append();
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
                    {"ActiveCaptures", std::vector<std::string>{}},
                    {"PhotoTalkState", 0},
                    {"PhotoTalkFilename", ""},
                    {"AutoLogState", 0},
                    {"AutoLogFilename", ""},
                    {"PlaybackState", 0},
                    {"PlaybackFilename", ""},
                    {"PlaybackRate", 1.0},
                    {"PlaybackPosition", int64_t{0}},
                    {"PlaybackDuration", int64_t{0}}}},
                  {"com.tavilon.common.StorageDaemon1", {{"PrimaryDevice", std::string(devicePath)}}},
                  {"com.tavilon.common.Halvex1.power",
                   {{"ActivePowerSource", 1},
                    {"SystemPowerLevel", 3},
                    {"BatteryChargePercentages", std::tuple(85, 80)},
                    {"LowBatteryWarnings", std::tuple(false, false)},
                    {"PermittedActions", std::tuple(true, true, true, true, true)}}},
                  {"com.tavilon.common.SyncDaemon1", {{"HasActiveSyncs", false}}},
                  {"org.freedesktop.timedate1", {{"Timezone", "CCU/London"}}},
                  {"com.tavilon.common.Halvex1.Control", {{"RemoteIP", ""}, {"RemoteDBusAddress", ""}}},
                  {"com.tavilon.common.Halvex1.reel",
                   {{"Connected", true}, {"Mode", "relative"}, {"Absolute", 1234}, {"Relative", 234}}},
                  {deviceInterface,
                   {{"Id", "card"},
                    {"FreeSpace", uint64_t{8'000'000'000}},
                    {"MountPoint", media},
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
               {"GetCurrentJobID", {{"job1"}}},
               {"GetCurrentJobDeviceID", {{"card"}}},
               {"GetJobName", {{0, "Main street"}, true}},
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
        return AppendContainer(reply, 'a', "{oa{sa{sv}}}", [&] {
            int result = 0;
            for (uint32_t device = 0; result >= 0 && device < devices_; ++device)
            {
                Properties properties = properties_.at(deviceInterface);
                std::string path = devicePath;
                if (device > 0)
                {
                    path += std::to_string(device);
                    properties["MountPoint"] = "/media/card" + std::to_string(device);
                }
                result = AppendDevice(reply, path, properties);
            }
            return result;
        });
    });
}

} // namespace Bench
