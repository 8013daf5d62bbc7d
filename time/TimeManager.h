#pragma once

#include "clients/SettingsDaemonDbusHandler.h"
#include "dbus_helper/PropertyMap.h"

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

    /// Method handlers. Each failure is answered with "org.freedesktop.DBus.Error.Failed" and a text that names it;
    /// nothing has been changed then, and nothing is emitted.
    static int GetTime(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    /// The seconds travel as "i": from 2038-01-19 03:14:07 UTC on the reply stays at that second.
    static int GetTimeSecs(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int SetTime(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    /// Answers without an error also when timedated refuses.
    static int SetTimeSecs(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int SetTimeGPS(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int SetTimezone(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int SetTimezoneGPS(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    /// Takes effect also while something is recorded or synchronised.
    static int SetTimezoneUTC(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int GetTimezoneFromUTC(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;
    static int SetDst(sd_bus_message* message, void* userData, sd_bus_error* error) noexcept;

    /// Property handlers. A failed one tells the client by a text of its own; in the log it is the line of the client
    /// of timedated that says so.
    static int GetDst(sd_bus* bus, const char* path, const char* interface, const char* property, sd_bus_message* reply,
                      void* userData, sd_bus_error* error) noexcept;
    /// The zone's bare name, without prefix.
    static int GetTimezone(sd_bus* bus, const char* path, const char* interface, const char* property,
                           sd_bus_message* reply, void* userData, sd_bus_error* error) noexcept;
    /// The zones that were installed when the daemon started.
    static int GetTimezoneList(sd_bus* bus, const char* path, const char* interface, const char* property,
                               sd_bus_message* reply, void* userData, sd_bus_error* error) noexcept;
    /// 1 when the time could be set now, else 0. Despite its name it does not look at GPS.
    static int GetTimeSourceAvailable(sd_bus* bus, const char* path, const char* interface, const char* property,
                                      sd_bus_message* reply, void* userData, sd_bus_error* error) noexcept;

  private:
    [[nodiscard]] static const std::vector<std::string>& InstalledZones();
    void UpdateTimezone() const;

    std::string zone_; // of the settings, a bare name
    bool dst_ = false;
    Settingsd::SettingsHandler settings_;
};

} // namespace ControllerDaemon
