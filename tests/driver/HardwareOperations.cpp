#include "clients/hardware/HalvexDaemonDbusHandler.h"
#include "tests/driver/ClientOperations.h"

namespace
{

using Driver::Forward;
using Halvexd::HalvexDaemonDbusHandler;
using sdbus_utils::TypedPropertyMap;

Driver::Listening Listen(sd_event* event, const Driver::SignalSink& sink)
{
    auto client = std::make_shared<HalvexDaemonDbusHandler>(event);
    Forward<int32_t>(client->VideoStatusChanged(), "VideoStatusChanged", sink);
    Forward<int32_t, int32_t>(client->KeyPressed(), "KeyPressed", sink);
    Forward<TypedPropertyMap>(client->ReelPropertiesChanged(), "ReelPropertiesChanged", sink);
    Forward<TypedPropertyMap>(client->ReelDistancePropertiesChanged(), "ReelDistancePropertiesChanged", sink);
    Forward<TypedPropertyMap>(client->PowerPropertiesChanged(), "PowerPropertiesChanged", sink);
    Forward<TypedPropertyMap>(client->CoolingPropertiesChanged(), "CoolingPropertiesChanged", sink);
    Forward<TypedPropertyMap>(client->PropertiesChanged(), "PropertiesChanged", sink);
    Forward<std::string, sdbus_utils::InterfaceMap>(client->InterfacesAdded(), "InterfacesAdded", sink);
    Forward<std::string, std::vector<std::string>>(client->InterfacesRemoved(), "InterfacesRemoved", sink);
    return {client->Listen(), client};
}

} // namespace

#define ADD(operation) table.Add("hardware." #operation, &HalvexDaemonDbusHandler::operation)

void AddHardwareOperations(Driver::OperationTable& table)
{
    ADD(SetRemote);
    ADD(SetLocal);
    ADD(GetVideoStatus);
    ADD(SetLedState);
    ADD(BeepBuzzer);
    ADD(SetPowerState);
    ADD(GetPowerStates);
    ADD(GetBatteryUpdateState);
    ADD(GetBatteryUpdateDirection);
    ADD(GetPowerSufficientForAction);
    ADD(GetBatteryInfo);
    ADD(RequestBatteryData);
    ADD(SetAnalogReelDisplay);
    ADD(GetBatteryLevelIcons);
    ADD(GetPropVideoStatus);
    ADD(GetRemoteIP);
    ADD(GetRemoteDbusAddr);
    ADD(GetHalvexSwVersion);
    ADD(GetHalvexHwVersion);
    ADD(GetKeypadPicVersion);
    ADD(GetCameraLedBrightness);
    ADD(SetCameraLedBrightness);
    ADD(GetCameraSonde);
    ADD(SetCameraSonde);
    ADD(GetCameraAtex);
    ADD(SetCameraAtex);
    ADD(GetCPUtempC);
    ADD(GetFanSpeed);
    ADD(GetFanCtrlMode);
    ADD(SetFanCtrlMode);
    ADD(GetManualFanSpeed);
    ADD(SetManualFanSpeed);
    ADD(GetFanCtrlRangeMinTempC);
    ADD(SetFanCtrlRangeMinTempC);
    ADD(GetFanCtrlRangeMaxTempC);
    ADD(SetFanCtrlRangeMaxTempC);
    ADD(GetCPUtempAveragingPeriod);
    ADD(SetCPUtempAveragingPeriod);
    ADD(GetEmitStatusChanges);
    ADD(SetEmitStatusChanges);
    ADD(GetPowerSource);
    ADD(ReadBatteryVoltages);
    ADD(ReadBatteryChargePercentages);
    ADD(GetSystemPowerLevel);
    ADD(GetBatteryDrainMode);
    ADD(SetBatteryDrainMode);
    ADD(GetBatteryTypes);
    ADD(GetLowBatteryWarnings);
    ADD(GetPermittedActions);
    ADD(GetReelStatus);
    ADD(GetReelConnected);
    ADD(GetReelSerialNumber);
    ADD(SetReelSerialNumber);
    ADD(GetReelCountMode);
    ADD(SetReelCountMode);
    ADD(GetReelCount);
    ADD(ZeroReelCount);
    ADD(GetReelDistanceSoftwareMode);
    ADD(SetReelDistanceSoftwareMode);
    ADD(GetReelDistanceAbsolute);
    ADD(SetReelDistanceAbsolute);
    ADD(GetReelDistanceRelative);
    ADD(GetAllReelProperties);
    table.AddListener("hardware", &Listen);
}
