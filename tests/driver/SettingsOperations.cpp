#include "clients/settings/SettingsDaemonDbusHandler.h"
#include "tests/driver/ClientOperations.h"

namespace
{

using Driver::SignalSink;
using sdbus_utils::TypedPropertyMap;
using Settingsd::sectionNames;
using Settingsd::SettingsDaemonDbusHandler;

template <typename T>
using GetSetting = int32_t(const std::string&, const std::string&, T&);

template <size_t... Index>
void ForwardSections(SettingsDaemonDbusHandler& client, const SignalSink& sink, std::index_sequence<Index...> /*all*/)
{
    (Driver::Forward<TypedPropertyMap&>(client.SectionChanged(sectionNames[Index]), sectionNames[Index], sink), ...);
}

Driver::Listening Listen(sd_event* event, const SignalSink& sink)
{
    auto client = std::make_shared<SettingsDaemonDbusHandler>(event);
    Driver::Forward<const std::string&, TypedPropertyMap&>(client->SectionChanged(), "SectionChanged", sink);
    ForwardSections(*client, sink, std::make_index_sequence<sectionNames.size()>());
    return {client->Listen(), client};
}

} // namespace

#define ADD(operation) table.Add("settings." #operation, &SettingsDaemonDbusHandler::operation)

void AddSettingsOperations(Driver::OperationTable& table)
{
    table.Add<GetSetting<std::string>>("settings.GetSetting(string)", &SettingsDaemonDbusHandler::GetSetting);
    table.Add<GetSetting<bool>>("settings.GetSetting(bool)", &SettingsDaemonDbusHandler::GetSetting);
    table.Add<GetSetting<int32_t>>("settings.GetSetting(int32)", &SettingsDaemonDbusHandler::GetSetting);
    table.Add<GetSetting<uint32_t>>("settings.GetSetting(uint32)", &SettingsDaemonDbusHandler::GetSetting);
    ADD(ResetToDefaults);
    ADD(ResetSection);
    ADD(ResetSetting);
    ADD(GetSectionSettings);
    table.AddListener("settings", &Listen);
}
