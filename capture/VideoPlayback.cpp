#include "capture/VideoPlayback.h"

#include "capture/MarkerFiles.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"

#include <filesystem>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::blank;
using DbusHelper::PlaybackErrorCode;
using DbusHelper::PlaybackRuntimeError;
using DbusHelper::PropertyRead;
using DbusHelper::propertySignatureOf;
using DbusHelper::PropertyWrite;
using DbusHelper::signatureOf;
using Videod::VideoDaemonDbusHandler;

/// The state in which the video daemon's player gave up.
constexpr int32_t stateError = -1;

/// Whether there is something to play. What speaks against it is logged, the first of it alone.
bool IsPlayable(const char* text, const std::string& filename)
{
    std::error_code error;
    const bool exists = std::filesystem::exists(FsStatus(filename, error));
    if (error)
    {
        Log::Info("%s VideoPlaybackStart(): filename %s existence check failed: %s", text, filename.c_str(),
                  error.message().c_str());
        return false;
    }
    if (!exists)
    {
        Log::Info("%s VideoPlaybackStart(): filename %s doesn't exist", text, filename.c_str());
        return false;
    }
    const std::filesystem::path path(filename);
    if (!path.is_absolute())
    {
        Log::Info("%s VideoPlaybackStart(): filename %s isn't absolute", text, filename.c_str());
        return false;
    }
    const auto bytes = std::filesystem::file_size(path, error);
    if (error)
    {
        Log::Info("%s VideoPlaybackStart(): filename %s can't get file size", text, filename.c_str());
        return false;
    }
    if (bytes == 0)
    {
        Log::Info("%s VideoPlaybackStart(): filename %s file is zero length", text, filename.c_str());
        return false;
    }
    return true;
}

/// The words of an order to the player in its lines.
struct OrderWords
{
    const char* order;
    const char* verb;
    const char* done;
};

PlaybackErrorCode Report(const OrderWords& words, int32_t result)
{
    if (result < 0)
    {
        Log::Error("Video::%s(): Failed to %s playback\n", words.order, words.verb);
        return PlaybackErrorCode::Unknown;
    }
    Log::Info("Video::%s(): %s", words.order, words.done);
    return PlaybackErrorCode::Success;
}

} // namespace

VideoPlayback::State VideoPlayback::state;

VideoPlayback::VideoPlayback(VideoDaemonDbusHandler& video, Storaged::StorageDaemonDbusHandler& storage)
{
    video.PlaybackStateChanged().connect(sigc::ptr_fun(&VideoPlaybackStateChangedHandler));
    storage.PropertiesChanged().connect(sigc::ptr_fun(&StoragePropertiesChangedHandler));
    storage.InterfacesRemoved().connect(sigc::ptr_fun(&StorageRemovedHandler));
}

void VideoPlayback::SetBus(sd_bus* bus) { state.bus = bus; }

PlaybackErrorCode VideoPlayback::VideoPlaybackStart(const std::string& filename, double rate)
{
    constexpr const char* text = signatureOf<&VideoPlayback::VideoPlaybackStart>;
    Log::Info("%s VideoPlaybackStart %s %lf", text, filename.c_str(), rate);
    if (!IsPlayable(text, filename))
    {
        return PlaybackErrorCode::NoFile;
    }
    if (VideoDaemonDbusHandler::StartPlayback(filename, rate) < 0)
    {
        Log::Error("%s VideoPlaybackStart(): Failed to start playback\n", text);
        return PlaybackErrorCode::Unknown;
    }
    Log::Info("%s VideoPlaybackStart(): Started playback", text);
    return PlaybackErrorCode::Success;
}

PlaybackErrorCode VideoPlayback::VideoPlaybackStop(bool restartLive)
{
    Log::Info("%s called restartLive=%d", signatureOf<&VideoPlayback::VideoPlaybackStop>, restartLive ? 1 : 0);
    return Report({"StopPlayback", "stop", "Stopped playback"}, VideoDaemonDbusHandler::StopPlayback(restartLive));
}

PlaybackErrorCode VideoPlayback::VideoPlaybackPause()
{
    Log::Info("%s called", signatureOf<&VideoPlayback::VideoPlaybackPause>);
    return Report({"PausePlayback", "pause", "Paused playback"}, VideoDaemonDbusHandler::PausePlayback());
}

PlaybackErrorCode VideoPlayback::VideoPlaybackResume()
{
    Log::Info("%s called", signatureOf<&VideoPlayback::VideoPlaybackResume>);
    return Report({"ResumePlayback", "resume", "Resumed playback"}, VideoDaemonDbusHandler::ResumePlayback());
}

PlaybackErrorCode VideoPlayback::VideoPlaybackSeek(int32_t position)
{
    Log::Info("%s called", signatureOf<&VideoPlayback::VideoPlaybackSeek>);
    return Report({"SeekPlayback", "seek", "seek playback ok"}, VideoDaemonDbusHandler::SeekPlayback(position));
}

int VideoPlayback::GetVideoPlaybackRate(const PropertyRead<double>& read)
{
    double rate = 0;
    const int32_t result = VideoDaemonDbusHandler::GetPlaybackRate(rate);
    return result < 0 ? read.Fail(propertySignatureOf<&VideoPlayback::GetVideoPlaybackRate>, blank,
                                  "Video::GetPlaybackRate failed", result)
                      : read.Answer(rate);
}

int VideoPlayback::SetVideoPlaybackRate(const PropertyWrite<double>& write)
{
    constexpr const char* text = propertySignatureOf<&VideoPlayback::SetVideoPlaybackRate>;
    Log::Info("%s called", text);
    double rate = 0;
    int32_t result = write.Read(rate);
    if (result < 0)
    {
        return write.Fail(text, blank, "SetVideoPlaybackRate sd_bus_message_read() failed", result);
    }
    Log::Info("%s SetVideoPlaybackRate playback_rate = %lf", text, rate);
    result = VideoDaemonDbusHandler::SetPlaybackRate(rate);
    return result < 0 ? write.Fail(text, blank, "Video::SetPlaybackRate failed", result) : result;
}

void VideoPlayback::VideoPlaybackStateChangedHandler(int32_t newState)
{
    constexpr const char* text = signatureOf<&VideoPlayback::VideoPlaybackStateChangedHandler>;
    Log::Info("%s enter", text);
    Log::Info("%s video playback state -> %d", text, newState);
    if (newState == stateError && StopAndCancelInvalidPlaybacks())
    {
        EmitPlaybackError(state.bus, static_cast<PlaybackRuntimeError>(newState));
    }
    Log::Info("%s enter", text); // "enter" on the way out, too: this line has always read so
}

void VideoPlayback::CheckAfterRemoval()
{
    if (StopAndCancelInvalidPlaybacks())
    {
        EmitPlaybackError(state.bus, PlaybackRuntimeError::StorageRemoved);
    }
}

// NOLINTBEGIN(performance-unnecessary-value-param): slots take what their signals give
void VideoPlayback::StoragePropertiesChangedHandler(std::string /*objectPath*/,
                                                    const sdbus_utils::PropertyMap& properties)
{
    const auto found = properties.find("IsMounted");
    const bool* mounted = found == properties.end() ? nullptr : std::any_cast<bool>(&found->second);
    if (mounted != nullptr && !*mounted)
    {
        CheckAfterRemoval();
    }
}

void VideoPlayback::StorageRemovedHandler(std::string /*objectPath*/, const std::vector<std::string>& /*interfaces*/)
{
    CheckAfterRemoval();
}
// NOLINTEND(performance-unnecessary-value-param)

bool VideoPlayback::StopAndCancelInvalidPlaybacks()
{
    constexpr const char* text = signatureOf<&VideoPlayback::StopAndCancelInvalidPlaybacks>;
    Log::Info("%s enter", text);
    bool cancelled = false;
    std::string filename;
    if (VideoDaemonDbusHandler::GetPlaybackFilename(filename) < 0)
    {
        Log::Error("%s Failed to get video playback filename", text);
    }
    else if (filename.empty())
    {
        Log::Info("%s empty playback filename", text);
    }
    else if (TryFsExists(filename))
    {
        Log::Info("%s playback file %s is still mounted", text, filename.c_str());
    }
    else
    {
        Log::Error("%s playback file %s is no longer mounted - cancelling playback", text, filename.c_str());
        constexpr bool restartLive = false;
        VideoPlaybackStop(restartLive);
        cancelled = true;
    }
    Log::Info("%s leave", text);
    return cancelled;
}

} // namespace ControllerDaemon
