#include "clients/settings/SettingsDaemonDbusHandler.h"

#include "clients/settings/SettingsEndpoint.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/SdbusUtils.h"
#include "dbus_helper/Signature.h"

#include <algorithm>

namespace Settingsd
{

using Handler = SettingsDaemonDbusHandler;

namespace
{

using DbusHelper::Concat;
using DbusHelper::FixedString;
using DbusHelper::signatureOf;
using DbusHelper::WireText;

/// Support looks for the text that GCC makes of the template, so it is spelt as GCC spells it.
template <FixedString Type>
constexpr auto getSettingOf = Concat(
    FixedString{"static int32_t Settingsd::SettingsDaemonDbusHandler::GetSetting(const string&, const string&, T&) "
                "[with T = "},
    Type, FixedString{"; int32_t = int; std::__cxx11::string = std::__cxx11::basic_string<char>]"});

template <typename T>
constexpr auto getSettingText = nullptr;
template <>
constexpr auto getSettingText<std::string> = getSettingOf<"std::__cxx11::basic_string<char>">;
template <>
constexpr auto getSettingText<bool> = getSettingOf<"bool">;
template <>
constexpr auto getSettingText<int32_t> = getSettingOf<"int">;
template <>
constexpr auto getSettingText<uint32_t> = getSettingOf<"unsigned int">;

template <typename... In>
int32_t Reset(const char* signatureText, const char* member, const In&... arguments)
{
    Log::Info("%s", signatureText);
    const int32_t result = DbusHelper::Call(root, member, std::tie(), arguments...).result;
    if (result < 0)
    {
        Log::Error("%s:sd_bus_call_method call failed (r = %d)", signatureText, result);
    }
    return result;
}

constexpr const char* propertiesChangedText = "static int32_t Settingsd::SettingsDaemonDbusHandler::PropertiesChanged("
                                              "sd_bus_message*, void*, sd_bus_error*)";

/// The last part of the object's path, empty (and logged) when it has none.
std::string SectionOf(sd_bus_message* message)
{
    const char* sent = sd_bus_message_get_path(message);
    const std::string_view path = sent != nullptr ? sent : "";
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
    {
        Log::Error("%s: Failed to find / in path", propertiesChangedText);
        return {};
    }
    if (slash + 1 == path.size())
    {
        Log::Error("%s: Mallformed path string", propertiesChangedText);
    }
    return std::string(path.substr(slash + 1));
}

/// Reads the body as far as the changes; the list of invalidated settings is nobody's.
bool ReadChanges(sd_bus_message* message, sdbus_utils::TypedPropertyMap& changes)
{
    int32_t result = sd_bus_message_skip(message, "s");
    if (result < 0)
    {
        Log::Error("%s: Failed to skip interface string", propertiesChangedText);
        return false;
    }
    result = sdbus_utils::ParsePropertiesWithType(message, changes);
    if (result < 0)
    {
        Log::Error("%s: ParsePropertiesWithType failed:%d", propertiesChangedText, result);
    }
    return result >= 0;
}

} // namespace

Handler::SettingsDaemonDbusHandler(sd_event* event) : DbusListener(event)
{
    for (size_t i = 0; i < sectionNames.size(); ++i)
    {
        signalsBySection_.emplace(sectionNames[i], sectionSignals_[i]);
    }
}

Handler::~SettingsDaemonDbusHandler()
{
    std::for_each(sectionSignals_.rbegin(), sectionSignals_.rend(), [](SectionSignal& signal) { signal.clear(); });
    sectionChanged_.clear();
    signalsBySection_.clear();
}

int32_t Handler::Listen()
{
    constexpr const char* text = "int32_t Settingsd::SettingsDaemonDbusHandler::Listen()";
    int32_t result = Connect();
    if (result < 0)
    {
        Log::Error("%s: Failed to connect to dbus", text);
        return result;
    }
    result |= ListenSignal(root.service, "", "org.freedesktop.DBus.Properties", "PropertiesChanged", &PropertiesChanged,
                           this);
    if (result < 0)
    {
        Log::Error("%s: Failed to register %s signal", text, "PropertiesChanged");
    }
    if (result != 0)
    {
        // The text names the storage client; it is what this failure has always been searched by.
        Log::Error("LibDbusHelper::Storage: Failed to init signal listeners");
        Disconnect();
    }
    return result;
}

template <typename T>
int32_t Handler::GetSetting(const std::string& section, const std::string& key, T& value)
{
    std::string errorText;
    const int32_t result = sdbus_utils::GetProperty(nullptr, root.service, WireText(SectionPath(section)),
                                                    root.interface, WireText(key), value, errorText);
    if (result < 0)
    {
        Log::Error("%s: ERROR sdbus_utils::GetProperty %s failed %s", getSettingText<T>.c_str(), key.c_str(),
                   errorText.c_str());
    }
    return result;
}

template int32_t Handler::GetSetting(const std::string&, const std::string&, std::string&);
template int32_t Handler::GetSetting(const std::string&, const std::string&, bool&);
template int32_t Handler::GetSetting(const std::string&, const std::string&, int32_t&);
template int32_t Handler::GetSetting(const std::string&, const std::string&, uint32_t&);

int32_t Handler::ResetToDefaults(bool flag)
{
    return Reset(signatureOf<&Handler::ResetToDefaults>, "ResetToDefaults", flag);
}
int32_t Handler::ResetSection(const std::string& section)
{
    return Reset(signatureOf<&Handler::ResetSection>, "ResetSection", section);
}
int32_t Handler::ResetSetting(const std::string& section, const std::string& key)
{
    return Reset(signatureOf<&Handler::ResetSetting>, "ResetSetting", section, key);
}

int32_t Handler::GetSectionSettings(const std::string& section, sdbus_utils::TypedPropertyMap& settings)
{
    return sdbus_utils::GetAllProperties(nullptr, root.service, WireText(SectionPath(section)), root.interface,
                                         settings);
}

int32_t Handler::PropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    const std::string section = SectionOf(message);
    sdbus_utils::TypedPropertyMap changes;
    if (section.empty() || !ReadChanges(message, changes))
    {
        return -1;
    }
    auto& handler = *static_cast<SettingsDaemonDbusHandler*>(userData);
    handler.sectionChanged_.emit(section, changes);
    for (auto& [name, signal] : handler.signalsBySection_)
    {
        if (name == section)
        {
            signal.emit(changes);
            break;
        }
    }
    return 0;
}

} // namespace Settingsd
