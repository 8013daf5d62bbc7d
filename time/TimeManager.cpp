#include "time/TimeManager.h"

#include "clients/settings/SettingsChanges.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"
#include "time/ClockOperations.h"
#include "time/SystemdDateTime.h"
#include "time/TimezoneCatalogue.h"

#include <sigc++/functors/mem_fun.h>

#include <tuple>
#include <utility>

namespace ControllerDaemon
{
namespace
{

/// Stores a changed value; true when it differs from what was stored.
template <typename T>
bool Store(const T* value, T& stored)
{
    return value != nullptr && std::exchange(stored, *value) != *value;
}

} // namespace

TimeManager::State TimeManager::state;

TimeManager::TimeManager(Settingsd::SettingsHandler settings) : settings_(std::move(settings))
{
    state.installedZones = ListInstalledTimezones();
    // The clock is set by clients and by GPS; timedated refuses that while the network keeps it.
    constexpr bool networkTime = false;
    std::ignore = SystemdDateTime::SetNTP(networkTime);
    SetDefaultSettings();
}

int32_t TimeManager::SetDefaultSettings()
{
    std::string zone;
    bool dst = false;
    int32_t result = Settingsd::SettingsDaemonDbusHandler::GetSetting("time", "zone", zone);
    const int32_t dstResult = Settingsd::SettingsDaemonDbusHandler::GetSetting("time", "dst", dst);
    result = result < 0 ? result : dstResult;
    if (result >= 0)
    {
        dst_ = dst;
        zone_ = std::move(zone);
        UpdateTimezone();
    }
    else
    {
        Log::Error("%s: Failed to get default time settings",
                   "int ControllerDaemon::TimeManager::SetDefaultSettings()");
    }
    if (settings_ != nullptr)
    {
        settings_->SectionChanged("time").connect(sigc::mem_fun(*this, &TimeManager::TimeSettingsChanged));
    }
    return result;
}

void TimeManager::TimeSettingsChanged(sdbus_utils::TypedPropertyMap& settings)
{
    constexpr const char* text = DbusHelper::signatureOf<&TimeManager::TimeSettingsChanged>;
    bool changed = false;
    Settingsd::VisitChanges(text, settings, [&](const auto& setting) {
        const bool dstChanged = Store(sdbus_utils::ValueOf<bool>(setting, "dst"), dst_);
        const bool zoneChanged = Store(sdbus_utils::ValueOf<std::string>(setting, "zone"), zone_);
        changed = changed || dstChanged || zoneChanged;
    });
    if (changed)
    {
        UpdateTimezone();
    }
}

void TimeManager::UpdateTimezone() const
{
    const std::string wanted = PrefixFor(dst_) + zone_;
    std::string current;
    std::ignore = SystemdDateTime::GetTimezone(current); // a zone that cannot be read is another one
    if (wanted == current)
    {
        return;
    }
    Log::Info("%s: Setting Timezone from %s -> %s", "UpdateTimezone", current.c_str(), wanted.c_str());
    ChangeTimezone(wanted); // a refusal is logged there
}

} // namespace ControllerDaemon
