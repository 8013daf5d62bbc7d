#include "daemon/ControllerMembers.h"

#include "capture/AutoLogCapture.h"
#include "capture/PhotoTalkCapture.h"
#include "capture/ScreenshotCapture.h"
#include "capture/SnapshotCapture.h"
#include "capture/VideoCapture.h"
#include "capture/VideoPlayback.h"
#include "daemon/UnavailableMember.h"
#include "time/TimeManager.h"

#include <array>

namespace ControllerDaemon
{
namespace
{

/// Anyone on the bus may call a method.
constexpr uint64_t unprivileged = SD_BUS_VTABLE_UNPRIVILEGED;
constexpr uint64_t emitsChange = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;

constexpr Member Method(const char* name, const char* signature, const char* argumentNames, const char* result,
                        const char* resultNames, sd_bus_message_handler_t handler)
{
    return {.kind = Member::Kind::Method,
            .name = name,
            .signature = signature,
            .argumentNames = argumentNames,
            .result = result,
            .resultNames = resultNames,
            .flags = unprivileged,
            .handler = handler};
}

constexpr Member Signal(const char* name, const char* signature, const char* argumentNames)
{
    return {.kind = Member::Kind::Signal, .name = name, .signature = signature, .argumentNames = argumentNames};
}

constexpr Member Property(const char* name, const char* signature, uint64_t flags, sd_bus_property_get_t getter,
                          sd_bus_property_set_t setter)
{
    return {.kind = Member::Kind::Property,
            .name = name,
            .signature = signature,
            .flags = flags,
            .getter = getter,
            .setter = setter};
}

constexpr Member ReadOnly(const char* name, const char* signature, sd_bus_property_get_t getter)
{
    return {.kind = Member::Kind::ReadOnlyProperty,
            .name = name,
            .signature = signature,
            .flags = emitsChange,
            .getter = getter};
}

constexpr auto noMethod = &UnavailableMember::Call;
constexpr auto noGetter = &UnavailableMember::Get;
constexpr auto noSetter = &UnavailableMember::Set;

// One line a member, as clients see it.
// clang-format off
constexpr std::array members{
    Method("Snapshot", "uuu", "width height quality", "sis", "path code message", &SnapshotCapture::Snapshot),
    Method("Screenshot", "s", "folder", "sis", "path code message", &ScreenshotCapture::Screenshot),
    Method("VideoRecordStart", "uuu", "width height quality", "is", "code message", &VideoCapture::VideoRecordStart),
    Method("VideoRecordStop", "", "", "is", "code message", &VideoCapture::VideoRecordStop),
    Method("VideoRecordPause", "", "", "is", "code message", &VideoCapture::VideoRecordPause),
    Method("VideoRecordResume", "", "", "is", "code message", &VideoCapture::VideoRecordResume),
    Signal("CaptureError", "is", "code message"),
    Signal("CaptureSizeLimitReached", "is", "captureType message"),
    Method("VideoPlaybackStart", "sd", "filename rate", "is", "code message", &VideoPlayback::VideoPlaybackStart),
    Method("VideoPlaybackStop", "b", "restartLive", "is", "code message", &VideoPlayback::VideoPlaybackStop),
    Method("VideoPlaybackPause", "", "", "is", "code message", &VideoPlayback::VideoPlaybackPause),
    Method("VideoPlaybackResume", "", "", "is", "code message", &VideoPlayback::VideoPlaybackResume),
    Method("VideoPlaybackSeek", "i", "position", "is", "code message", &VideoPlayback::VideoPlaybackSeek),
    // Emits no change: the video daemon, which owns the rate, tells of it.
    Property("VideoPlaybackRate", "d", unprivileged, &VideoPlayback::GetVideoPlaybackRate,
             &VideoPlayback::SetVideoPlaybackRate),
    Signal("PlaybackError", "is", "code message"),
    Method("PhotoTalkRecordStart", "uuu", "width height quality", "is", "code message", &PhotoTalkCapture::PhotoTalkRecordStart),
    Method("PhotoTalkRecordStop", "", "", "is", "code message", &PhotoTalkCapture::PhotoTalkRecordStop),
    Method("PhotoTalkRecordPause", "", "", "is", "code message", &PhotoTalkCapture::PhotoTalkRecordPause),
    Method("PhotoTalkRecordResume", "", "", "is", "code message", &PhotoTalkCapture::PhotoTalkRecordResume),
    Method("AutoLogRecordStart", "uuu", "width height quality", "is", "code message", &AutoLogCapture::AutoLogRecordStart),
    Method("AutoLogRecordStop", "", "", "is", "code message", &AutoLogCapture::AutoLogRecordStop),
    Method("AutoLogRecordPause", "", "", "is", "code message", &AutoLogCapture::AutoLogRecordPause),
    Method("AutoLogRecordResume", "", "", "is", "code message", &AutoLogCapture::AutoLogRecordResume),
    Property("KeypadBeepEnabled", "b", emitsChange, noGetter, noSetter),
    Property("Sonde", "b", emitsChange, noGetter, noSetter),
    Property("MicEnabled", "b", emitsChange, noGetter, noSetter),
    Property("SpkrEnabled", "b", emitsChange, noGetter, noSetter),
    Property("SpkrVolume", "i", emitsChange, noGetter, noSetter),
    ReadOnly("AudioFiles", "as", noGetter),
    Method("PlayAudio", "s", "name", "", "", noMethod),
    Method("SetTime", "iiiiiibb", "year month day hour minute second dst local", "", "", &TimeManager::SetTime),
    Method("SetTimeSecs", "ib", "seconds local", "", "", &TimeManager::SetTimeSecs),
    Method("GetTime", "b", "local", "iiiiiib", "year month day hour minute second dst", &TimeManager::GetTime),
    Method("GetTimeSecs", "b", "local", "ib", "seconds dst", &TimeManager::GetTimeSecs),
    Method("SetDst", "b", "dst", "", "", &TimeManager::SetDst),
    Method("SetTimezone", "s", "timezone", "", "", &TimeManager::SetTimezone),
    Method("SetTimeGPS", "", "", "", "", &TimeManager::SetTimeGPS),
    Method("SetTimezoneGPS", "", "", "", "", &TimeManager::SetTimezoneGPS),
    Method("SetTimezoneUTC", "ib", "offsetSeconds dst", "", "", &TimeManager::SetTimezoneUTC),
    Method("GetTimezoneFromUTC", "ib", "offsetSeconds dst", "s", "timezone", &TimeManager::GetTimezoneFromUTC),
    // Properties, although their names begin with a verb: clients read them as such.
    ReadOnly("GetDst", "b", &TimeManager::GetDst),
    ReadOnly("GetTimezone", "s", &TimeManager::GetTimezone),
    ReadOnly("GetTimezoneList", "as", &TimeManager::GetTimezoneList),
    ReadOnly("GetTimeSourceAvailable", "i", &TimeManager::GetTimeSourceAvailable),
    Signal("TimeChanged", "iiiiiib", "year month day hour minute second dst"),
    Signal("TimezoneChanged", "s", "timezone"),
};
// clang-format on

} // namespace

std::span<const Member> ControllerMembers() { return members; }

} // namespace ControllerDaemon
