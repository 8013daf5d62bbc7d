#pragma once

#include "clients/settings/SettingsDaemonDbusHandler.h"
#include "dbus_helper/FileNames.h"
#include "dbus_helper/PropertyMap.h"
#include "dbus_helper/Serve.h"

#include <sigc++/trackable.h>
#include <systemd/sd-bus.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ControllerDaemon
{

/// The unit's wall clock and time zone. timedated keeps both and is asked for each change; the zone also follows the
/// settings daemon's section "time", which wins over what clients have set whenever it changes. Position and time come
/// from gpsd. Clients may change clock and zone only while nothing is recorded and nothing is synchronised.
///
/// Everything runs on the loop's thread and blocks on timedated, gpsd's shared memory, the video and the sync daemon.
class TimeManager : public sigc::trackable
{
  public:
    /// Lists the installed zones, takes the clock from the network's hands and brings the zone in line with the
    /// settings, which are followed from then on. They may be null.
    explicit TimeManager(Settingsd::SettingsHandler settings);

    /// Applies the stored zone and follows the settings from then on; once. Negative when the stored zone cannot be
    /// read, which is logged.
    int32_t SetDefaultSettings();
    /// What the settings daemon tells of its section "time".
    void TimeSettingsChanged(sdbus_utils::TypedPropertyMap& settings);

    /// Year, month, day, hour, minute, second and whether daylight saving is in force.
    using LocalTimeCall =
        DbusHelper::MethodCall<std::tuple<int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, bool>(bool local)>;
    using SetTimeCall =
        DbusHelper::MethodCall<void(int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, bool dst, bool local)>;

    /// Method handlers. Each failure is answered with "org.freedesktop.DBus.Error.Failed" and a text that names it;
    /// nothing is emitted then, and nothing has been changed, unless the handler says otherwise.
    static int GetTime(const LocalTimeCall& call);
    /// The seconds travel as "i": from 2038-01-19 03:14:07 UTC on the reply stays at that second.
    static int GetTimeSecs(const DbusHelper::MethodCall<std::tuple<int32_t, bool>(bool)>& call);
    /// Brings the zone into the form that the time asks for first: it stays so when the clock is then refused.
    static int SetTime(const SetTimeCall& call);
    /// Answers without an error also when timedated refuses.
    static int SetTimeSecs(const DbusHelper::MethodCall<void(int32_t, bool)>& call);
    static int SetTimeGPS(const DbusHelper::MethodCall<void()>& call);
    static int SetTimezone(const DbusHelper::MethodCall<void(std::string)>& call);
    static int SetTimezoneGPS(const DbusHelper::MethodCall<void()>& call);
    /// Takes effect also while something is recorded or synchronised.
    static int SetTimezoneUTC(const DbusHelper::MethodCall<void(int32_t, bool)>& call);
    static int GetTimezoneFromUTC(const DbusHelper::MethodCall<std::string(int32_t, bool)>& call);
    static int SetDst(const DbusHelper::MethodCall<void(bool)>& call);

    /// Property handlers. A failed one tells the client by a text of its own; in the log it is the line of the client
    /// of timedated that says so.
    static int GetDst(const DbusHelper::PropertyRead<bool>& read);
    /// The zone's bare name, without prefix.
    static int GetTimezone(const DbusHelper::PropertyRead<std::string>& read);
    /// The zones that were installed when the daemon started.
    static int GetTimezoneList(const DbusHelper::PropertyRead<DbusHelper::FileNames>& read);
    /// 1 when the time could be set now, else 0. Despite its name it does not look at GPS.
    static int GetTimeSourceAvailable(const DbusHelper::PropertyRead<int32_t>& read);

  private:
    /// Class-level state: handlers are plain functions.
    struct State
    {
        std::vector<std::string> installedZones;
    };
    static State state;

    void UpdateTimezone() const;

    std::string zone_; // of the settings, a bare name
    bool dst_ = false;
    Settingsd::SettingsHandler settings_;
};

} // namespace ControllerDaemon
