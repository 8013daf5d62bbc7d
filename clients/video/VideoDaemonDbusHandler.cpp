#include "clients/video/VideoDaemonDbusHandler.h"

#include "clients/video/VideoDaemonControl.h"
#include "dbus_helper/Call.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"

#include <array>

namespace Videod
{

using Handler = VideoDaemonDbusHandler;

namespace
{

using DbusHelper::Outcome;
using DbusHelper::Step;

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

/// The lines of an order that did not get through; the only place that knows them.
int32_t Report(const char* member, const Outcome& outcome)
{
    switch (outcome.step)
    {
    case Step::Open:
        Log::Error("sd_bus_open_user failed");
        break;
    case Step::Read:
        Log::Error("sd_bus_message_read failed (r = %d)", outcome.result);
        break;
    default:
        Log::Error("sd_bus_call_method %s failed: %s (r = %d)", member, outcome.errorText.c_str(), outcome.result);
    }
    return outcome.result;
}

/// An order: the answer is the video daemon's own, negative when it refuses.
template <typename... In>
int32_t Call(const char* member, const In&... arguments)
{
    int32_t answer = -1;
    const Outcome outcome = DbusHelper::Call(control, member, std::tie(answer), arguments...);
    return outcome.Ok() ? answer : Report(member, outcome);
}

/// An order whose traffic line is its name alone.
int32_t PlainCall(const char* member)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::%s", member);
    return Call(member);
}

} // namespace

int32_t Handler::StartRecording(const std::string& videoPath, const std::string& recoveryPath,
                                const std::string& snapshotPath, uint32_t width, uint32_t height, uint32_t quality)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::StartRecord Video %s, Recovery %s, Snapshot %s, Snapshot width %u, "
               "height %u, quality %u",
               videoPath.c_str(), recoveryPath.c_str(), snapshotPath.c_str(), width, height, quality);
    return Call("StartRecording", videoPath, recoveryPath, snapshotPath, width, height, quality);
}

int32_t Handler::StopRecording() { return PlainCall("StopRecording"); }
int32_t Handler::PauseRecording() { return PlainCall("PauseRecording"); }
int32_t Handler::ResumeRecording() { return PlainCall("ResumeRecording"); }

int32_t Handler::StartPhotoTalk(const std::string& videoPath, const std::string& recoveryPath,
                                const std::string& snapshotPath, uint32_t width, uint32_t height, uint32_t quality)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::PhotoTalkStart PhotoTalk %s, Recovery %s, Snapshot %s, Snapshot width "
               "%u, height %u, quality %u",
               videoPath.c_str(), recoveryPath.c_str(), snapshotPath.c_str(), width, height, quality);
    return Call("StartPhotoTalk", videoPath, recoveryPath, snapshotPath, width, height, quality);
}

int32_t Handler::StopPhotoTalk()
{
    Log::Debug("Videod: VideoDaemonDbusHandler::PhotoTalkStop");
    return Call("StopPhotoTalk");
}

int32_t Handler::PausePhotoTalk() { return PlainCall("PausePhotoTalk"); }
int32_t Handler::ResumePhotoTalk() { return PlainCall("ResumePhotoTalk"); }

int32_t Handler::StartAutoLog(const std::string& videoPath, const std::string& recoveryPath,
                              const std::string& snapshotPath, uint32_t width, uint32_t height, uint32_t quality)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::AutoLogStart Video %s, Recovery %s, Snapshot %s, Snapshot width %u, "
               "height %u, quality %u",
               videoPath.c_str(), recoveryPath.c_str(), snapshotPath.c_str(), width, height, quality);
    return Call("StartAutoLog", videoPath, recoveryPath, snapshotPath, width, height, quality);
}

int32_t Handler::StopAutoLog()
{
    Log::Debug("Videod: VideoDaemonDbusHandler::AutoLogStop");
    return Call("StopAutoLog");
}

int32_t Handler::PauseAutoLog() { return PlainCall("PauseAutoLog"); }
int32_t Handler::ResumeAutoLog() { return PlainCall("ResumeAutoLog"); }

int32_t Handler::SetMotionDetectionPeriod(uint32_t period)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::SetMotionDetectionPeriod Period %u", period);
    return Call("SetMotionDetectionPeriod", period);
}

int32_t Handler::Snapshot(const std::string& path, uint32_t width, uint32_t height, uint32_t quality)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::Snapshot %s (%u, %u) %u", path.c_str(), width, height, quality);
    return Call("Snapshot", path, width, height, quality);
}

int32_t Handler::StartPlayback(const std::string& filename, double rate)
{
    Log::Debug("%s %s %lf", DbusHelper::signatureOf<&Handler::StartPlayback>, filename.c_str(), rate);
    return Call("StartPlayback", filename, rate);
}

int32_t Handler::StopPlayback(bool exitFlag)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::StopPlayback exit=%d", exitFlag ? 1 : 0);
    return Call("StopPlayback", exitFlag);
}

int32_t Handler::PausePlayback() { return PlainCall("PausePlayback"); }
int32_t Handler::ResumePlayback() { return PlainCall("ResumePlayback"); }

int32_t Handler::SeekPlayback(int32_t position)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::SeekPlayback %d", position);
    return Call("SeekPlayback", position);
}

int32_t Handler::GetPlaybackProgress(bool& firstFlag, bool& secondFlag, bool& thirdFlag, double& rate,
                                     int64_t& duration, int64_t& position)
{
    Log::Debug("Videod: VideoDaemonDbusHandler::GetPlaybackPosition");
    const Outcome outcome = DbusHelper::Call(control, "GetPlaybackProgress",
                                             std::tie(firstFlag, secondFlag, thirdFlag, rate, duration, position));
    return outcome.Ok() ? outcome.result : Report("GetPlaybackProgress", outcome);
}

Handler::VideoDaemonDbusHandler(sd_event* event) : listener_(event)
{
    const auto signal = [](const char* member, const char* interface, sd_bus_message_handler_t handler) {
        return DbusHelper::SignalDescriptor{member, control.service, control.path, interface, member, handler};
    };
    listener_.DefineSignals({signal("PropertiesChanged", propertiesInterface, &PropertiesChanged),
                             signal("VideoGrew", control.interface, &Grew<&Handler::videoGrown_>),
                             signal("PhotoTalkGrew", control.interface, &Grew<&Handler::photoTalkGrown_>),
                             signal("AutoLogGrew", control.interface, &Grew<&Handler::autoLogGrown_>)},
                            this);
}

int32_t Handler::ListenSignals(const std::vector<std::string>& keys) { return listener_.ListenSignals(keys); }

int32_t Handler::EmitPropertiesChanged(const sdbus_utils::PropertyMap& properties)
{
    constexpr const char* text =
        "int32_t Videod::VideoDaemonDbusHandler::EmitPropertiesChanged(const sdbus_utils::PropertyMap&)";
    struct State
    {
        const char* property;
        const char* constant;
        StateSignal& changed;
    };
    const std::array states{
        State{"RecordingState", "VIDEO_DAEMON_PROP_RECORDING_STATE", recordingStateChanged_},
        State{"PhotoTalkState", "VIDEO_DAEMON_PROP_PHOTO_TALK_STATE", photoTalkStateChanged_},
        State{"AutoLogState", "VIDEO_DAEMON_PROP_AUTO_LOG_STATE", autoLogStateChanged_},
        State{"PlaybackState", "VIDEO_DAEMON_PROP_PLAYBACK_STATE", playbackStateChanged_},
    };
    for (const State& state : states)
    {
        const auto found = properties.find(state.property);
        const auto* value = found == properties.end() ? nullptr : std::any_cast<int32_t>(&found->second);
        if (value != nullptr)
        {
            Log::Debug("%s %s", text, state.constant);
            state.changed.emit(*value);
        }
    }
    return 0;
}

int Handler::PropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    sdbus_utils::PropertyMap properties;
    int result = sd_bus_message_skip(message, "s");
    result = result < 0 ? result : sdbus_utils::ParseProperties(message, properties);
    if (result < 0)
    {
        Log::Error("ParseProperties failed (r = %d)", result);
        return result;
    }
    result = static_cast<VideoDaemonDbusHandler*>(userData)->EmitPropertiesChanged(properties);
    if (result < 0)
    {
        Log::Error("EmitPropertiesChanged failed (r = %d)", result);
    }
    return result;
}

template <Handler::GrownSignal Handler::*Signal>
int Handler::Grew(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    std::tuple<std::string, bool> body;
    const int result = DbusHelper::Sequence<std::string, bool>::Read(message, body);
    if (result < 0)
    {
        Log::Error("sd_bus_message_read failed (r = %d)", result);
        return result;
    }
    const auto& [path, approachingLimit] = body;
    (static_cast<VideoDaemonDbusHandler*>(userData)->*Signal).emit(path, approachingLimit);
    return 0;
}

} // namespace Videod
