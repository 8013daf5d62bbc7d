#include "controllerctl/DoctorNeeds.h"

#include <array>

namespace ControllerCtl
{
namespace
{

constexpr MemberNeed SiblingMethod(SiblingIndex sibling, const DbusHelper::Endpoint& object, const char* member,
                                   const char* in, const char* out)
{
    return {sibling, object.path, object.interface, member, in, out};
}

constexpr MemberNeed SiblingProperty(SiblingIndex sibling, const DbusHelper::Endpoint& object, const char* member,
                                     const char* type)
{
    return {sibling, object.path, object.interface, member, nullptr, type};
}

constexpr MemberNeed VideoMethod(const char* member, const char* in)
{
    return SiblingMethod(videoSibling, Videod::control, member, in, "i");
}
constexpr MemberNeed VideoProperty(const char* member, const char* type)
{
    return SiblingProperty(videoSibling, Videod::control, member, type);
}
constexpr MemberNeed JobsMethod(const char* member, const char* in, const char* out)
{
    return SiblingMethod(jobsSibling, libjobsdaemon::jobsDaemon, member, in, out);
}
constexpr MemberNeed HardwareProperty(const DbusHelper::Endpoint& object, const char* member, const char* type)
{
    return SiblingProperty(hardwareSibling, object, member, type);
}

constexpr DbusHelper::Endpoint storageObjects{Storaged::manager.service, Storaged::manager.path,
                                              "org.freedesktop.DBus.ObjectManager"};

// clang-format off
constexpr std::array needs{
    VideoMethod("StartRecording", "sssuuu"), VideoMethod("StopRecording", ""), VideoMethod("PauseRecording", ""),
    VideoMethod("ResumeRecording", ""), VideoMethod("StartPhotoTalk", "sssuuu"), VideoMethod("StopPhotoTalk", ""),
    VideoMethod("PausePhotoTalk", ""), VideoMethod("ResumePhotoTalk", ""), VideoMethod("StartAutoLog", "sssuuu"),
    VideoMethod("StopAutoLog", ""), VideoMethod("PauseAutoLog", ""), VideoMethod("ResumeAutoLog", ""), VideoMethod("Snapshot", "suuu"),
    VideoMethod("StartPlayback", "sd"), VideoMethod("StopPlayback", "b"), VideoMethod("PausePlayback", ""),
    VideoMethod("ResumePlayback", ""), VideoMethod("SeekPlayback", "i"),
    VideoProperty("RecordingState", "i"), VideoProperty("PhotoTalkState", "i"), VideoProperty("AutoLogState", "i"),
    VideoProperty("PlaybackState", "i"), VideoProperty("RecordingFilename", "s"), VideoProperty("PhotoTalkFilename", "s"),
    VideoProperty("AutoLogFilename", "s"), VideoProperty("PlaybackFilename", "s"), VideoProperty("PreviousRecordingFilename", "s"),
    VideoProperty("PreviousPhotoTalkFilename", "s"), VideoProperty("PreviousAutoLogFilename", "s"), VideoProperty("PlaybackRate", "d"),
    VideoProperty("AutoRotateCapable", "b"), VideoProperty("CameraRollAngleRaw", "i"), VideoProperty("TiltsenseCapable", "b"),
    VideoProperty("CameraPitchAngle", "i"), VideoProperty("ActiveCaptures", "as"), VideoProperty("SystemMicMute", "b"),
    SiblingMethod(storageSibling, storageObjects, "GetManagedObjects", "", "a{oa{sa{sv}}}"),
    JobsMethod("GetNewMediaPathComponents", "", "(iss)"), JobsMethod("AddSnapshotMedia", "ssbibibii", "i"),
    JobsMethod("AddVideoMedia", "sssssbibibii", "i"), JobsMethod("AddAutologMedia", "sssssbibibii", "i"),
    JobsMethod("AddPhotoTalkMedia", "sssssbibibii", "i"), JobsMethod("UpdateMediaFileSizes", "s", "i"),
    JobsMethod("GetCurrentJobID", "", "s"), JobsMethod("GetCurrentJobDeviceID", "", "s"), JobsMethod("GetMediaID", "s", "(is)"),
    JobsMethod("DeleteMediaItem", "sss", "i"),
    HardwareProperty(Halvexd::control, "RemoteIP", "s"), HardwareProperty(Halvexd::control, "RemoteDBusAddress", "s"),
    SiblingMethod(hardwareSibling, Halvexd::control, "SetLedState", "uu", ""),
    SiblingMethod(hardwareSibling, Halvexd::control, "BeepBuzzer", "uuu", "b"),
    SiblingMethod(hardwareSibling, Halvexd::power, "GetPowerSufficientForAction", "i", "i"),
    HardwareProperty(Halvexd::camera, "Sonde", "b"), HardwareProperty(Halvexd::reel, "Connected", "b"),
    HardwareProperty(Halvexd::distance, "Mode", "s"), HardwareProperty(Halvexd::distance, "Absolute", "i"),
    HardwareProperty(Halvexd::distance, "Relative", "i"),
    SiblingProperty(syncSibling, Syncd::syncDaemon, "HasActiveSyncs", "b"),
};

constexpr std::array deviceNeeds{
    MemberNeed{storageSibling, nullptr, Storaged::deviceInterface, "MountPoint", nullptr, "s"},
    MemberNeed{storageSibling, nullptr, Storaged::deviceInterface, "IsMounted", nullptr, "b"},
    MemberNeed{storageSibling, nullptr, Storaged::deviceInterface, "ReadOnly", nullptr, "b"},
    MemberNeed{storageSibling, nullptr, Storaged::deviceInterface, "StorageIsBelowMinimumLevel", nullptr, "b"},
};

constexpr std::array settingNeeds{
    SettingNeed{"time", "zone", "s"}, SettingNeed{"time", "dst", "b"}, SettingNeed{"audio", "micEnabled", "b"},
    SettingNeed{"audio", "speakerEnabled", "b"}, SettingNeed{"audio", "speakerVolume", "i"},
    SettingNeed{"sonde", "enabled", "b"}, SettingNeed{"keyBeep", "enabled", "b"},
    SettingNeed{"keyBeep", "duration", "u"}, SettingNeed{"keyBeep", "period", "u"},
    SettingNeed{"keyBeep", "beeps", "u"},
};
// clang-format on

} // namespace

std::span<const MemberNeed> Needs() { return needs; }
std::span<const MemberNeed> DeviceNeeds() { return deviceNeeds; }
std::span<const SettingNeed> SettingNeeds() { return settingNeeds; }

} // namespace ControllerCtl
