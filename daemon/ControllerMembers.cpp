#include "daemon/ControllerMembers.h"

#include "capture/AutoLogCapture.h"
#include "capture/PhotoTalkCapture.h"
#include "capture/ScreenshotCapture.h"
#include "capture/SnapshotCapture.h"
#include "capture/VideoCapture.h"
#include "capture/VideoPlayback.h"
#include "device/DeviceManager.h"
#include "time/TimeManager.h"

#include <array>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::announced;
using DbusHelper::Handler;
using DbusHelper::Method;
using DbusHelper::Property;
using DbusHelper::ReadOnlyProperty;
using DbusHelper::Signal;

// One line a member, as clients see it.
// clang-format off
constexpr std::array members{
    Method<Handler(&SnapshotCapture::Snapshot)>("Snapshot", "width height quality", "path code message"),
    Method<Handler(&ScreenshotCapture::Screenshot)>("Screenshot", "folder", "path code message"),
    Method<&VideoCapture::VideoRecordStart>("VideoRecordStart", "width height quality", "code message"),
    Method<&VideoCapture::VideoRecordStop>("VideoRecordStop", "", "code message"),
    Method<&VideoCapture::VideoRecordPause>("VideoRecordPause", "", "code message"),
    Method<&VideoCapture::VideoRecordResume>("VideoRecordResume", "", "code message"),
    Signal<int32_t, std::string>("CaptureError", "code message"),
    Signal<int32_t, std::string>("CaptureSizeLimitReached", "captureType message"),
    Method<&VideoPlayback::VideoPlaybackStart>("VideoPlaybackStart", "filename rate", "code message"),
    Method<&VideoPlayback::VideoPlaybackStop>("VideoPlaybackStop", "restartLive", "code message"),
    Method<&VideoPlayback::VideoPlaybackPause>("VideoPlaybackPause", "", "code message"),
    Method<&VideoPlayback::VideoPlaybackResume>("VideoPlaybackResume", "", "code message"),
    Method<&VideoPlayback::VideoPlaybackSeek>("VideoPlaybackSeek", "position", "code message"),
    // Announces nothing: the video daemon, which owns the rate, tells of it.
    Property<&VideoPlayback::GetVideoPlaybackRate, &VideoPlayback::SetVideoPlaybackRate>("VideoPlaybackRate", SD_BUS_VTABLE_UNPRIVILEGED),
    Signal<int32_t, std::string>("PlaybackError", "code message"),
    Method<&PhotoTalkCapture::PhotoTalkRecordStart>("PhotoTalkRecordStart", "width height quality", "code message"),
    Method<&PhotoTalkCapture::PhotoTalkRecordStop>("PhotoTalkRecordStop", "", "code message"),
    Method<&PhotoTalkCapture::PhotoTalkRecordPause>("PhotoTalkRecordPause", "", "code message"),
    Method<&PhotoTalkCapture::PhotoTalkRecordResume>("PhotoTalkRecordResume", "", "code message"),
    Method<&AutoLogCapture::AutoLogRecordStart>("AutoLogRecordStart", "width height quality", "code message"),
    Method<&AutoLogCapture::AutoLogRecordStop>("AutoLogRecordStop", "", "code message"),
    Method<&AutoLogCapture::AutoLogRecordPause>("AutoLogRecordPause", "", "code message"),
    Method<&AutoLogCapture::AutoLogRecordResume>("AutoLogRecordResume", "", "code message"),
    Property<&DeviceManager::GetKeypadBeepEnabled, &DeviceManager::SetKeypadBeepEnabled>("KeypadBeepEnabled", announced),
    Property<&DeviceManager::GetSonde, &DeviceManager::SetSonde>("Sonde", announced),
    Property<&DeviceManager::GetMicEnabled, Handler(&DeviceManager::SetMicEnabled)>("MicEnabled", announced),
    Property<&DeviceManager::GetSpkrEnabled, Handler(&DeviceManager::SetSpkrEnabled)>("SpkrEnabled", announced),
    Property<&DeviceManager::GetSpkrVolume, Handler(&DeviceManager::SetSpkrVolume)>("SpkrVolume", announced),
    ReadOnlyProperty<&DeviceManager::GetAudioFiles>("AudioFiles", announced),
    Method<&DeviceManager::PlayAudio>("PlayAudio", "name"),
    Method<&TimeManager::SetTime>("SetTime", "year month day hour minute second dst local"),
    Method<&TimeManager::SetTimeSecs>("SetTimeSecs", "seconds local"),
    Method<&TimeManager::GetTime>("GetTime", "local", "year month day hour minute second dst"),
    Method<&TimeManager::GetTimeSecs>("GetTimeSecs", "local", "seconds dst"),
    Method<&TimeManager::SetDst>("SetDst", "dst"),
    Method<&TimeManager::SetTimezone>("SetTimezone", "timezone"),
    Method<&TimeManager::SetTimeGPS>("SetTimeGPS"),
    Method<&TimeManager::SetTimezoneGPS>("SetTimezoneGPS"),
    Method<&TimeManager::SetTimezoneUTC>("SetTimezoneUTC", "offsetSeconds dst"),
    Method<&TimeManager::GetTimezoneFromUTC>("GetTimezoneFromUTC", "offsetSeconds dst", "timezone"),
    // Properties, although their names begin with a verb: clients read them as such.
    ReadOnlyProperty<&TimeManager::GetDst>("GetDst", announced),
    ReadOnlyProperty<&TimeManager::GetTimezone>("GetTimezone", announced),
    ReadOnlyProperty<&TimeManager::GetTimezoneList>("GetTimezoneList", announced),
    ReadOnlyProperty<&TimeManager::GetTimeSourceAvailable>("GetTimeSourceAvailable", announced),
    Signal<int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, bool>("TimeChanged", "year month day hour minute second dst"),
    Signal<std::string>("TimezoneChanged", "timezone"),
};
// clang-format on

} // namespace

std::span<const DbusHelper::Member> ControllerMembers() { return members; }

} // namespace ControllerDaemon
