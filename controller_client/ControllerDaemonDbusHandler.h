#pragma once

#include "controller_client/Export.h"
#include "controller_client/LocalDateTime.h"

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

namespace Controllerd
{

/// Client of the controller daemon, "com.tavilon.common.Controller1", for the user interface and the other programs of
/// a unit.
///
/// Every operation is one blocking call on a user-bus connection of its own; nothing is kept between calls, so any
/// thread may call any operation at any time. A controller that does not answer costs the bus library's time-out: 25
/// seconds, or `$SYSTEMD_BUS_TIMEOUT`; `ControllerTimeout` shortens it. A user interface, which must not wait, lets
/// `ControllerAsync` make its calls.
///
/// Results are sd-bus's: 0 or positive on success, negative errno-style when the call failed: -EHOSTUNREACH without a
/// controller, -ETIMEDOUT without an answer, -ENXIO for a reply of another type, -EACCES or another errno when the
/// controller refused, -EINVAL for a text that cannot be sent, that of the connection when there is no bus. A failure
/// is logged to syslog, and leaves the out-arguments as they were; `ControllerFailure::Last` has its words.
///
/// Recordings, pictures and playback answer besides with a `code` and its `message`, in English. 0 is success, a
/// negative code tells why the controller did not do what it was asked; the result tells only whether it was asked.
/// Widths and heights are pixels of the picture that goes with a recording, `quality` is its JPEG quality in percent.
///
/// The codes and their texts are those of ControllerCodes.h.
///
/// Arguments that are references but not named as answers (`filename`, `rate`, `position`, `folder`) are only read;
/// each of these operations takes them constant as well.
class CONTROLLER_CLIENT_API ControllerDaemonDbusHandler
{
    /// What nobody can give but with empty braces.
    enum class Nothing
    {
    };

  public:
    ControllerDaemonDbusHandler() = delete;

    // Clock and time zone ---------------------------------------------------------------------------------------------

    /// Sets the clock; refused while something is recorded or synced. `local`: the time is one of the unit's zone, not
    /// UTC. `dateTime.dst` chooses between the zone's two forms.
    CONTROLLER_CLIENT_RESULT static int SetTime(LocalDateTime dateTime, bool local);
    /// The same in seconds since 1970. -ERANGE for a time that does not fit the 32 bits in which it travels.
    CONTROLLER_CLIENT_RESULT static int SetTime(time_t seconds, bool local);
    /// `SetTime({}, local)` does not say which of the two it means: it would take the braces for 0 seconds, 1970.
    static int SetTime(Nothing, bool local) = delete;
    /// Sets the clock by GPS.
    CONTROLLER_CLIENT_RESULT static int SetTimeGPS();
    /// The unit's time, in its zone if `local`, else in UTC.
    CONTROLLER_CLIENT_RESULT static int GetTime(LocalDateTime& dateTime, bool local);
    /// The same in seconds since 1970, and whether the zone is one of daylight saving time.
    CONTROLLER_CLIENT_RESULT static int GetTime(time_t& seconds, bool& dst, bool local);
    /// Switches daylight saving time.
    CONTROLLER_CLIENT_RESULT static int SetDST(bool dst);
    CONTROLLER_CLIENT_RESULT static int GetDST(bool& dst);

    /// Sets the time zone by a name out of GetTimezoneList.
    CONTROLLER_CLIENT_RESULT static int SetTimezone(std::string timezone);
    /// Sets the time zone by its offset from UTC in seconds, east of Greenwich positive: the zone that
    /// GetTimezoneFromUTC names. Not refused while something is recorded or synced.
    CONTROLLER_CLIENT_RESULT static int SetTimezone(int offsetSeconds, bool dst);
    /// `SetTimezone(0)` and `SetTimezone(nullptr)` are no names, and an offset alone is not enough.
    static int SetTimezone(std::nullptr_t timezone) = delete;
    static int SetTimezone(int offsetSeconds) = delete;
    /// Sets the time zone by the position that GPS gives.
    CONTROLLER_CLIENT_RESULT static int SetTimezoneGPS();
    CONTROLLER_CLIENT_RESULT static int GetTimezone(std::string& timezone);
    /// The names of the zones that are installed.
    CONTROLLER_CLIENT_RESULT static int GetTimezoneList(std::vector<std::string>& timezones);
    /// `source`: 1 when the controller would let clock and zone be changed now, 0 while something is recorded or
    /// synced. Despite its name it does not tell what the clock could be set by, nor whether GPS has a fix.
    CONTROLLER_CLIENT_RESULT static int GetTimeSourceAvailable(int& source);
    /// The whole name ("CCU/Bogota") of the zone that SetTimezone would set for these: the one whose standard time,
    /// an hour later if `dst`, comes nearest to the offset, the first by name of several. Its form, with or without
    /// daylight saving time, is the one in force, whatever `dst` says.
    CONTROLLER_CLIENT_RESULT static int GetTimezoneFromUTC(std::string& timezone, int offsetSeconds, bool dst);

    // Sound, sonde and keypad -----------------------------------------------------------------------------------------

    CONTROLLER_CLIENT_RESULT static int GetMicrophoneEnabled(bool& enabled);
    CONTROLLER_CLIENT_RESULT static int SetMicrophoneEnabled(bool enabled);
    CONTROLLER_CLIENT_RESULT static int GetSpeakerEnabled(bool& enabled);
    CONTROLLER_CLIENT_RESULT static int SetSpeakerEnabled(bool enabled);
    /// Addition: the speaker's volume in percent.
    CONTROLLER_CLIENT_RESULT static int GetSpeakerVolume(int& percent);
    CONTROLLER_CLIENT_RESULT static int SetSpeakerVolume(int percent);
    /// The sounds that the controller can play.
    CONTROLLER_CLIENT_RESULT static int GetAudioFiles(std::vector<std::string>& files);
    /// Addition: plays a sound by a name out of GetAudioFiles.
    CONTROLLER_CLIENT_RESULT static int PlayAudio(std::string name);
    static int PlayAudio(std::nullptr_t name) = delete;
    /// The sonde is the transmitter in the camera head.
    CONTROLLER_CLIENT_RESULT static int GetSondeEnabled(bool& enabled);
    CONTROLLER_CLIENT_RESULT static int SetSondeEnabled(bool enabled);
    CONTROLLER_CLIENT_RESULT static int GetKeypadBeepEnabled(bool& enabled);
    CONTROLLER_CLIENT_RESULT static int SetKeypadBeepEnabled(bool enabled);

    // Playback --------------------------------------------------------------------------------------------------------

    /// 1.0 is the speed of the recording.
    CONTROLLER_CLIENT_RESULT static int GetPlaybackRate(double& rate);
    CONTROLLER_CLIENT_RESULT static int SetPlaybackRate(double rate);
    CONTROLLER_CLIENT_RESULT static int StartPlayback(std::string& filename, double& rate, int& code,
                                                      std::string& message);
    CONTROLLER_CLIENT_RESULT static int StartPlayback(const std::string& filename, const double& rate, int& code,
                                                      std::string& message);
    static int StartPlayback(std::nullptr_t filename, const double& rate, int& code, std::string& message) = delete;
    /// `restartLive`: show the camera's picture again.
    CONTROLLER_CLIENT_RESULT static int StopPlayback(bool restartLive, int& code, std::string& message);
    /// `position` is that of the video daemon's "SeekPlayback".
    CONTROLLER_CLIENT_RESULT static int SeekPlayback(int& position, int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int SeekPlayback(const int& position, int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int PausePlayback(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int ResumePlayback(int& code, std::string& message);

    // Recordings and pictures -----------------------------------------------------------------------------------------

    CONTROLLER_CLIENT_RESULT static int StartRecording(unsigned width, unsigned height, unsigned quality, int& code,
                                                       std::string& message);
    CONTROLLER_CLIENT_RESULT static int StopRecording(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int PauseRecording(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int ResumeRecording(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int StartPhotoTalk(unsigned width, unsigned height, unsigned quality, int& code,
                                                       std::string& message);
    CONTROLLER_CLIENT_RESULT static int StopPhotoTalk(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int PausePhotoTalk(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int ResumePhotoTalk(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int StartAutoLog(unsigned width, unsigned height, unsigned quality, int& code,
                                                     std::string& message);
    CONTROLLER_CLIENT_RESULT static int StopAutoLog(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int PauseAutoLog(int& code, std::string& message);
    CONTROLLER_CLIENT_RESULT static int ResumeAutoLog(int& code, std::string& message);
    /// A JPEG picture of the camera; `path` is the new file.
    CONTROLLER_CLIENT_RESULT static int TakeSnapshot(unsigned width, unsigned height, unsigned quality,
                                                     std::string& path, int& code, std::string& message);
    /// What the display shows, as a PNG in `folder`; `path` is the new file.
    CONTROLLER_CLIENT_RESULT static int TakeScreenshot(std::string& folder, std::string& path, int& code,
                                                       std::string& message);
    CONTROLLER_CLIENT_RESULT static int TakeScreenshot(const std::string& folder, std::string& path, int& code,
                                                       std::string& message);
    static int TakeScreenshot(std::nullptr_t folder, std::string& path, int& code, std::string& message) = delete;
};

} // namespace Controllerd
