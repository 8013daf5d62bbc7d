#pragma once

#include "dbus_helper/DbusListener.h"
#include "dbus_helper/PropertyMap.h"

#include <sigc++/signal.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace Settingsd
{

/// The sections of the settings daemon, each an object of its own below its root object.
inline constexpr std::array sectionNames{
    "boot",
    "system",
    "audio",
    "keyBeep",
    "display",
    "capture",
    "jobs",
    "sync",
    "sonde",
    "reel",
    "camera",
    "overlay",
    "video",
    "videoRecording",
    "autologRecording",
    "photoTalkRecording",
    "storage",
    "development",
    "bluetooth",
    "device",
    "network",
    "motionDetection",
    "contacts",
    "remoteCamera",
    "remoteDevices",
    "shutdown",
    "time",
    "gps",
    "cooling",
};

/// The name of a section, checked while compiling: a name that is not in the table does not compile.
class SectionName
{
  public:
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is what it is for
    consteval SectionName(const char* name) : index_(Find(name)) {}

    [[nodiscard]] constexpr size_t Index() const { return index_; }

  private:
    static consteval size_t Find(std::string_view name)
    {
        size_t index = 0;
        while (sectionNames.at(index) != name)
        {
            ++index;
        }
        return index;
    }

    size_t index_;
};

/// Client of the settings daemon, "com.tavilon.common.Settings1", which keeps every persistent setting of the unit by
/// section and key.
///
/// The static operations are one blocking call each, on a user-bus connection of their own, and may run on any thread;
/// they return sd-bus's result, 0 or positive on success, negative errno-style on failure. Changes are told by the
/// signals, on the loop's thread; an exception of a subscriber ends the daemon.
class SettingsDaemonDbusHandler : public DbusHelper::DbusListener
{
  public:
    /// The name of the section and its changed settings by key.
    using SectionChangedSignal = sigc::signal<void, const std::string&, sdbus_utils::TypedPropertyMap&>;
    /// The changed settings of one section by key.
    using SectionSignal = sigc::signal<void, sdbus_utils::TypedPropertyMap&>;

    explicit SettingsDaemonDbusHandler(sd_event* event);
    ~SettingsDaemonDbusHandler() override;
    SettingsDaemonDbusHandler(const SettingsDaemonDbusHandler&) = delete;
    SettingsDaemonDbusHandler& operator=(const SettingsDaemonDbusHandler&) = delete;
    SettingsDaemonDbusHandler(SettingsDaemonDbusHandler&&) = delete;
    SettingsDaemonDbusHandler& operator=(SettingsDaemonDbusHandler&&) = delete;

    /// Connects and subscribes to the changes of all sections; once, after construction. Returns 0. A failure is
    /// logged, leaves nothing connected and is returned, negative errno-style.
    [[nodiscard]] int32_t Listen();

    /// Changes of any object of the settings daemon, also of one that is no section of the table.
    SectionChangedSignal& SectionChanged() { return sectionChanged_; }

    /// Changes of one section, told after SectionChanged.
    SectionSignal& SectionChanged(SectionName section) { return sectionSignals_.at(section.Index()); }

    /// Reads one setting; for std::string, bool, int32_t and uint32_t. A failure is logged and leaves `value` as it
    /// was.
    template <typename T>
    [[nodiscard]] static int32_t GetSetting(const std::string& section, const std::string& key, T& value);

    /// Everything, a section or a setting back to its default. What the flag of ResetToDefaults means is the settings
    /// daemon's.
    [[nodiscard]] static int32_t ResetToDefaults(bool flag);
    [[nodiscard]] static int32_t ResetSection(const std::string& section);
    [[nodiscard]] static int32_t ResetSetting(const std::string& section, const std::string& key);

    /// Reads all settings of a section; `settings` is left as it was on failure, which is not logged.
    [[nodiscard]] static int32_t GetSectionSettings(const std::string& section,
                                                    sdbus_utils::TypedPropertyMap& settings);

    /// What sd-bus calls for each "PropertiesChanged": tells the changes of the object that sent it. 0, -1 when the
    /// message cannot be read, which is logged. `userData` is the handler.
    static int32_t PropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* error);

  private:
    SectionChangedSignal sectionChanged_;
    std::array<SectionSignal, sectionNames.size()> sectionSignals_;
    /// Handles of the same signals, by the table's own texts: ordered by where these lie, not by what they say.
    std::map<const char*, SectionSignal> signalsBySection_;
};

extern template int32_t SettingsDaemonDbusHandler::GetSetting(const std::string&, const std::string&, std::string&);
extern template int32_t SettingsDaemonDbusHandler::GetSetting(const std::string&, const std::string&, bool&);
extern template int32_t SettingsDaemonDbusHandler::GetSetting(const std::string&, const std::string&, int32_t&);
extern template int32_t SettingsDaemonDbusHandler::GetSetting(const std::string&, const std::string&, uint32_t&);

/// The one settings client, shared by all who follow settings.
using SettingsHandler = std::shared_ptr<SettingsDaemonDbusHandler>;

} // namespace Settingsd
