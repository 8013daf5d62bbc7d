#include "controller_client/ControllerDaemonDbusHandler.h"

#include "controller_client/ControllerCalls.h"
#include "dbus_helper/Log.h"

#include <utility>

namespace Controllerd
{

using std::string;
using std::tie;
using Handler = ControllerDaemonDbusHandler;

namespace
{

/// An operation on a picture of this size, as the line of its failed call names it.
string Sized(const char* operation, unsigned width, unsigned height, unsigned quality)
{
    return string(operation) + "(" + std::to_string(width) + ", " + std::to_string(height) + ") " +
           std::to_string(quality);
}

} // namespace

int Handler::GetMicrophoneEnabled(bool& enabled)
{
    return Get(textOf<&Handler::GetMicrophoneEnabled>, "", "MicEnabled", enabled);
}
int Handler::SetMicrophoneEnabled(bool enabled)
{
    return Set(textOf<&Handler::SetMicrophoneEnabled>, "sdbus_utils::SetProperty CONTROLLER_DAEMON_PROP_MIC_ENABLED",
               "MicEnabled", enabled);
}
int Handler::GetSpeakerEnabled(bool& enabled)
{
    return Get(textOf<&Handler::GetSpeakerEnabled>, "sdbus_utils::GetProperty CONTROLLER_DAEMON_PROP_SPKR_ENABLED",
               "SpkrEnabled", enabled);
}
int Handler::SetSpeakerEnabled(bool enabled)
{
    return Set(textOf<&Handler::SetSpeakerEnabled>, "sdbus_utils::SetProperty CONTROLLER_DAEMON_PROP_SPKR_ENABLED",
               "SpkrEnabled", enabled);
}
int Handler::GetAudioFiles(std::vector<string>& files)
{
    // Deliberately in the words of the speaker's setter: its line is known by them.
    return Get(textOf<&Handler::GetAudioFiles>, "sdbus_utils::SetProperty CONTROLLER_DAEMON_PROP_SPKR_ENABLED",
               "AudioFiles", files);
}
// The volume and the playing of sounds came after the other operations.
int Handler::GetSpeakerVolume(int& percent)
{
    return Get(textOf<&Handler::GetSpeakerVolume>, "sdbus_utils::GetProperty CONTROLLER_DAEMON_PROP_SPKR_VOLUME",
               "SpkrVolume", percent);
}
int Handler::SetSpeakerVolume(int percent)
{
    return Set(textOf<&Handler::SetSpeakerVolume>, "sdbus_utils::SetProperty CONTROLLER_DAEMON_PROP_SPKR_VOLUME",
               "SpkrVolume", percent);
}
// NOLINTNEXTLINE(performance-unnecessary-value-param): as the other texts that operations take
int Handler::PlayAudio(string name) { return Call({overloadText<int(string), "PlayAudio">}, "PlayAudio", tie(), name); }
int Handler::GetSondeEnabled(bool& enabled)
{
    return Get(textOf<&Handler::GetSondeEnabled>, "sdbus_utils::GetProperty CONTROLLER_DAEMON_PROP_SONDE", "Sonde",
               enabled);
}
int Handler::SetSondeEnabled(bool enabled)
{
    return Set(textOf<&Handler::SetSondeEnabled>, "sdbus_utils::SetProperty CONTROLLER_DAEMON_PROP_SONDE", "Sonde",
               enabled);
}
int Handler::GetKeypadBeepEnabled(bool& enabled)
{
    return Get(textOf<&Handler::GetKeypadBeepEnabled>,
               "sdbus_utils::GetProperty CONTROLLER_DAEMON_PROP_KEYPAD_BEEP_ENABLED", "KeypadBeepEnabled", enabled);
}
int Handler::SetKeypadBeepEnabled(bool enabled)
{
    return Set(textOf<&Handler::SetKeypadBeepEnabled>,
               "sdbus_utils::SetProperty CONTROLLER_DAEMON_PROP_KEYPAD_BEEP_ENABLED", "KeypadBeepEnabled", enabled);
}

int Handler::GetPlaybackRate(double& rate)
{
    return Get(textOf<&Handler::GetPlaybackRate>, "sdbus_utils::GetProperty CONTROLLER_DAEMON_PROP_VIDEO_PLAYBACK_RATE",
               "VideoPlaybackRate", rate);
}
int Handler::SetPlaybackRate(double rate)
{
    return Set(textOf<&Handler::SetPlaybackRate>, "sdbus_utils::SetProperty CONTROLLER_DAEMON_PROP_VIDEO_PLAYBACK_RATE",
               "VideoPlaybackRate", rate);
}

// What is only read may be constant; the lines are those of the operations that came first.
int Handler::StartPlayback(const string& filename, const double& rate, int& code, string& message)
{
    return Call({overloadText<int(string&, double&, int&, string&), "StartPlayback">, "StartPlayback"},
                "VideoPlaybackStart", tie(code, message), filename, rate);
}
int Handler::StartPlayback(string& filename, double& rate, int& code, string& message)
{
    return StartPlayback(std::as_const(filename), std::as_const(rate), code, message);
}
int Handler::StopPlayback(bool restartLive, int& code, string& message)
{
    return Call({textOf<&Handler::StopPlayback>, "StopPlayback"}, "VideoPlaybackStop", tie(code, message), restartLive);
}
int Handler::SeekPlayback(const int& position, int& code, string& message)
{
    return Call({overloadText<int(int&, int&, string&), "SeekPlayback">, "SeekPlayback"}, "VideoPlaybackSeek",
                tie(code, message), position);
}
int Handler::SeekPlayback(int& position, int& code, string& message)
{
    return SeekPlayback(std::as_const(position), code, message);
}
int Handler::PausePlayback(int& code, string& message)
{
    return Call({textOf<&Handler::PausePlayback>}, "VideoPlaybackPause", tie(code, message));
}
int Handler::ResumePlayback(int& code, string& message)
{
    return Call({textOf<&Handler::ResumePlayback>}, "VideoPlaybackResume", tie(code, message));
}

int Handler::StartRecording(unsigned width, unsigned height, unsigned quality, int& code, string& message)
{
    return Call({textOf<&Handler::StartRecording>, Sized("StartRecording", width, height, quality)}, "VideoRecordStart",
                tie(code, message), width, height, quality);
}
int Handler::StopRecording(int& code, string& message)
{
    return Call({textOf<&Handler::StopRecording>, "StopRecording"}, "VideoRecordStop", tie(code, message));
}
int Handler::PauseRecording(int& code, string& message)
{
    return Call({textOf<&Handler::PauseRecording>}, "VideoRecordPause", tie(code, message));
}
int Handler::ResumeRecording(int& code, string& message)
{
    return Call({textOf<&Handler::ResumeRecording>}, "VideoRecordResume", tie(code, message));
}

int Handler::StartPhotoTalk(unsigned width, unsigned height, unsigned quality, int& code, string& message)
{
    return Call({textOf<&Handler::StartPhotoTalk>, Sized("StartPhotoTalk", width, height, quality)},
                "PhotoTalkRecordStart", tie(code, message), width, height, quality);
}
int Handler::StopPhotoTalk(int& code, string& message)
{
    return Call({textOf<&Handler::StopPhotoTalk>, "StopPhotoTalk"}, "PhotoTalkRecordStop", tie(code, message));
}
int Handler::PausePhotoTalk(int& code, string& message)
{
    return Call({textOf<&Handler::PausePhotoTalk>}, "PhotoTalkRecordPause", tie(code, message));
}
int Handler::ResumePhotoTalk(int& code, string& message)
{
    return Call({textOf<&Handler::ResumePhotoTalk>}, "PhotoTalkRecordResume", tie(code, message));
}

int Handler::StartAutoLog(unsigned width, unsigned height, unsigned quality, int& code, string& message)
{
    return Call({textOf<&Handler::StartAutoLog>, Sized("StartAutoLog", width, height, quality)}, "AutoLogRecordStart",
                tie(code, message), width, height, quality);
}
int Handler::StopAutoLog(int& code, string& message)
{
    return Call({textOf<&Handler::StopAutoLog>, "StopAutoLog"}, "AutoLogRecordStop", tie(code, message));
}
int Handler::PauseAutoLog(int& code, string& message)
{
    return Call({textOf<&Handler::PauseAutoLog>}, "AutoLogRecordPause", tie(code, message));
}
int Handler::ResumeAutoLog(int& code, string& message)
{
    return Call({textOf<&Handler::ResumeAutoLog>}, "AutoLogRecordResume", tie(code, message));
}

int Handler::TakeSnapshot(unsigned width, unsigned height, unsigned quality, string& path, int& code, string& message)
{
    return Call({textOf<&Handler::TakeSnapshot>, Sized("TakeSnapshot", width, height, quality)}, "Snapshot",
                tie(path, code, message), width, height, quality);
}
int Handler::TakeScreenshot(const string& folder, string& path, int& code, string& message)
{
    const Names names{overloadText<int(string&, string&, int&, string&), "TakeScreenshot">, "TakeScreenshot"};
    Log::Debug("%s called dirpath = %s", names.signature, folder.c_str());
    return Call(names, "Screenshot", tie(path, code, message), folder);
}
int Handler::TakeScreenshot(string& folder, string& path, int& code, string& message)
{
    return TakeScreenshot(std::as_const(folder), path, code, message);
}

} // namespace Controllerd
