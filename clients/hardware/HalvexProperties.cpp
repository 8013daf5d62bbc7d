#include "clients/hardware/BatteryLevelIcons.h"
#include "clients/hardware/HalvexDaemonDbusHandler.h"
#include "clients/hardware/HalvexEndpoints.h"
#include "clients/hardware/RemoteBus.h"
#include "dbus_helper/Call.h"
#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"

#include <tuple>

namespace Halvexd
{

using Handler = HalvexDaemonDbusHandler;

namespace
{

using DbusHelper::BusHandle;
using DbusHelper::Endpoint;
using DbusHelper::Outcome;
using DbusHelper::Step;

/// A property and the name under which support people look for it in the log.
struct Property
{
    const Endpoint& object;
    const char* name;
    const char* constant;
};

constexpr Property videoStatus{control, "VideoStatus", "HALVEX_DAEMON_PROP_VIDEO_STATUS"};
constexpr Property remoteIp{control, "RemoteIP", "HALVEX_DAEMON_PROP_REMOTE_IP"};
constexpr Property remoteDBusAddress{control, "RemoteDBusAddress", "HALVEX_DAEMON_PROP_REMOTE_DBUS_ADDR"};
constexpr Property halvexSwVersion{control, "GetHalvexSwVersion", "HALVEX_DAEMON_PROP_HALVEX_SW_VERSION"};
constexpr Property halvexHwVersion{control, "GetHalvexHwVersion", "HALVEX_DAEMON_PROP_HALVEX_HW_VERSION"};
constexpr Property keypadPicVersion{control, "GetKeypadPicVersion", "HALVEX_DAEMON_PROP_KEYPAD_PIC_VERSION"};
constexpr Property cameraBrightness{camera, "Brightness", "HALVEX_DAEMON_PROP_CAMERA_LED_BRIGHTNESS"};
constexpr Property cameraSonde{camera, "Sonde", "HALVEX_DAEMON_PROP_CAMERA_SONDE"};
constexpr Property cameraAtex{camera, "Atex", "HALVEX_DAEMON_PROP_CAMERA_ATEX"};
constexpr Property cpuTemp{cooling, "CpuTemp", "HALVEX_DAEMON_PROP_COOLING_CPU_TEMP"};
constexpr Property fanSpeed{cooling, "FanSpeed", "HALVEX_DAEMON_PROP_COOLING_FAN_SPEED"};
constexpr Property fanCtrlMode{cooling, "FanCtrlMode", "HALVEX_DAEMON_PROP_COOLING_FAN_CTRL_MODE"};
constexpr Property manualFanSpeed{cooling, "ManualFanSpeed", "HALVEX_DAEMON_PROP_COOLING_MANUAL_FAN_SPEED"};
constexpr Property fanCtrlRangeMinTemp{cooling, "FanCtrlRangeMinTemp",
                                       "HALVEX_DAEMON_PROP_COOLING_FAN_CTRL_RANGE_MIN_TEMP"};
constexpr Property fanCtrlRangeMaxTemp{cooling, "FanCtrlRangeMaxTemp",
                                       "HALVEX_DAEMON_PROP_COOLING_FAN_CTRL_RANGE_MAX_TEMP"};
constexpr Property cpuTempAvgPeriod{cooling, "CpuTempAvgPeriod", "HALVEX_DAEMON_PROP_COOLING_CPU_TEMP_AVG_PERIOD"};
constexpr Property emitStatusChanges{cooling, "EmitStatusChanges", "HALVEX_DAEMON_PROP_COOLING_EMIT_STATUS_CHANGES"};
constexpr Property activePowerSource{power, "ActivePowerSource", "HALVEX_DAEMON_PROP_POWER_ACTIVE_POWER_SOURCE"};
constexpr Property batteryVoltages{power, "BatteryVoltages", "HALVEX_DAEMON_PROP_POWER_BATTERY_VOLTAGES"};
constexpr Property batteryChargePercentages{power, "BatteryChargePercentages",
                                            "HALVEX_DAEMON_PROP_POWER_BATTERY_CHARGE_PERCENTAGES"};
constexpr Property systemPowerLevel{power, "SystemPowerLevel", "HALVEX_DAEMON_PROP_POWER_SYSTEM_POWER_LEVEL"};
constexpr Property batteryDrainMode{power, "BatteryDrainMode", "HALVEX_DAEMON_PROP_POWER_BATTERY_DRAIN_MODE"};
constexpr Property batteryTypes{power, "BatteryTypes", "HALVEX_DAEMON_PROP_POWER_BATTERY_TYPES"};
constexpr Property lowBatteryWarnings{power, "LowBatteryWarnings", "HALVEX_DAEMON_PROP_POWER_LOW_BATTERY_WARNINGS"};
constexpr Property permittedActions{power, "PermittedActions", "HALVEX_DAEMON_PROP_POWER_PERMITTED_ACTIONS"};
constexpr Property batteryLevelIcons{power, "BatteryLevelIcons", "HALVEX_DAEMON_PROP_POWER_BATTERY_LEVEL_ICONS"};
constexpr Property reelStatus{reel, "Status", "HALVEX_DAEMON_PROP_REEL_STATUS"};
constexpr Property reelConnected{reel, "Connected", "HALVEX_DAEMON_PROP_REEL_CONNECTED"};
constexpr Property reelSerialNumber{reel, "SerialNumber", "HALVEX_DAEMON_PROP_REEL_SERIAL_NUMBER"};
constexpr Property distanceCountMode{distance, "CountMode", "HALVEX_DAEMON_PROP_REEL_COUNT_MODE"};
constexpr Property distanceCount{distance, "Count", "HALVEX_DAEMON_PROP_REEL_COUNT"};
constexpr Property distanceMode{distance, "Mode", "HALVEX_DAEMON_PROP_REEL_DIST_MODE"};
constexpr Property distanceAbsolute{distance, "Absolute", "HALVEX_DAEMON_PROP_REEL_DIST_ABS"};
constexpr Property distanceRelative{distance, "Relative", "HALVEX_DAEMON_PROP_REEL_DIST_REL"};

/// The names of an operation in its lines.
struct Operation
{
    const char* name;
    const char* signature;
};

template <auto operation>
constexpr Operation names{DbusHelper::nameOf<operation>.c_str(), DbusHelper::signatureOf<operation>};

enum BusOpened : int32_t
{
    NO_BUS_OPENED = -1,
    OPENED_LOCAL_BUS = 1,
    OPENED_REMOTE_BUS = 2,
};

/// Opens the bus of the hardware that is chosen.
BusOpened OpenChosenBus(BusHandle& bus)
{
    std::string ip;
    std::string address;
    std::ignore = Handler::GetRemoteIP(ip);
    std::ignore = Handler::GetRemoteDbusAddr(address);
    if (ip.empty() || address.empty())
    {
        return DbusHelper::OpenUserBus(bus) < 0 ? NO_BUS_OPENED : OPENED_LOCAL_BUS;
    }
    return OpenRemoteBus(bus, ip, address) < 0 ? NO_BUS_OPENED : OPENED_REMOTE_BUS;
}

/// Runs `access` on the bus of the hardware that is chosen. The result is its own, -1 without a bus.
template <typename Access>
int32_t OnChosenBus(const char* operation, Access access)
{
    BusHandle bus;
    const BusOpened opened = OpenChosenBus(bus);
    if (opened == NO_BUS_OPENED)
    {
        Log::Error("r != OPENED_LOCAL_BUS && r != OPENED_REMOTE_BUS");
        return opened;
    }
    Log::Info("Opened %s bus for %s", opened == OPENED_LOCAL_BUS ? "local" : "remote", operation);
    return access(bus.get());
}

int32_t Report(const Operation& operation, const char* function, const Property& property, const Outcome& outcome)
{
    if (!outcome.Ok())
    {
        Log::Error("%s: sdbus_utils::%s %s failed %s", operation.signature, function, property.constant,
                   outcome.errorText.c_str());
    }
    return outcome.result;
}

template <typename T>
int32_t GetOn(sd_bus* bus, const Operation& operation, const Property& property, T& value)
{
    return Report(operation, "GetProperty", property,
                  DbusHelper::GetPropertyOn(bus, property.object, property.name, value));
}

template <typename T>
int32_t Get(const Operation& operation, const Property& property, T& value)
{
    return OnChosenBus(operation.name, [&](sd_bus* bus) { return GetOn(bus, operation, property, value); });
}

template <typename T>
int32_t Set(const Operation& operation, const Property& property, const T& value)
{
    return OnChosenBus(operation.name, [&](sd_bus* bus) {
        return Report(operation, "SetProperty", property,
                      DbusHelper::SetPropertyOn(bus, property.object, property.name, value));
    });
}

/// What both batteries have travels as a structure of two, the right one first.
template <typename T>
int32_t GetPair(const Operation& operation, const Property& property, T& right, T& left)
{
    std::pair<T, T> both;
    const int32_t result = Get(operation, property, both);
    if (result >= 0)
    {
        std::tie(right, left) = both;
    }
    return result;
}

} // namespace

int32_t Handler::GetPropVideoStatus(int32_t& status)
{
    return Get(names<&Handler::GetPropVideoStatus>, videoStatus, status);
}
int32_t Handler::GetRemoteIP(std::string& ip) { return GetOn(nullptr, names<&Handler::GetRemoteIP>, remoteIp, ip); }
int32_t Handler::GetRemoteDbusAddr(std::string& address)
{
    return GetOn(nullptr, names<&Handler::GetRemoteDbusAddr>, remoteDBusAddress, address);
}
int32_t Handler::GetHalvexSwVersion(std::string& version)
{
    return Get(names<&Handler::GetHalvexSwVersion>, halvexSwVersion, version);
}
int32_t Handler::GetHalvexHwVersion(std::string& version)
{
    return Get(names<&Handler::GetHalvexHwVersion>, halvexHwVersion, version);
}
int32_t Handler::GetKeypadPicVersion(std::string& version)
{
    return Get(names<&Handler::GetKeypadPicVersion>, keypadPicVersion, version);
}
int32_t Handler::GetCameraLedBrightness(int32_t& brightness)
{
    return Get(names<&Handler::GetCameraLedBrightness>, cameraBrightness, brightness);
}
int32_t Handler::SetCameraLedBrightness(int32_t brightness)
{
    return Set(names<&Handler::SetCameraLedBrightness>, cameraBrightness, brightness);
}
int32_t Handler::GetCameraSonde(bool& enabled) { return Get(names<&Handler::GetCameraSonde>, cameraSonde, enabled); }
int32_t Handler::SetCameraSonde(bool enabled) { return Set(names<&Handler::SetCameraSonde>, cameraSonde, enabled); }
int32_t Handler::GetCameraAtex(bool& enabled) { return Get(names<&Handler::GetCameraAtex>, cameraAtex, enabled); }
int32_t Handler::SetCameraAtex(bool enabled) { return Set(names<&Handler::SetCameraAtex>, cameraAtex, enabled); }
int32_t Handler::GetCPUtempC(int16_t& temperature) { return Get(names<&Handler::GetCPUtempC>, cpuTemp, temperature); }
int32_t Handler::GetFanSpeed(uint8_t& speed) { return Get(names<&Handler::GetFanSpeed>, fanSpeed, speed); }
int32_t Handler::GetFanCtrlMode(std::string& mode) { return Get(names<&Handler::GetFanCtrlMode>, fanCtrlMode, mode); }
int32_t Handler::SetFanCtrlMode(const std::string& mode)
{
    return Set(names<&Handler::SetFanCtrlMode>, fanCtrlMode, mode);
}
int32_t Handler::GetManualFanSpeed(uint8_t& speed)
{
    return Get(names<&Handler::GetManualFanSpeed>, manualFanSpeed, speed);
}
int32_t Handler::SetManualFanSpeed(uint8_t speed)
{
    return Set(names<&Handler::SetManualFanSpeed>, manualFanSpeed, speed);
}
int32_t Handler::GetFanCtrlRangeMinTempC(int16_t& temperature)
{
    return Get(names<&Handler::GetFanCtrlRangeMinTempC>, fanCtrlRangeMinTemp, temperature);
}
int32_t Handler::SetFanCtrlRangeMinTempC(int16_t temperature)
{
    return Set(names<&Handler::SetFanCtrlRangeMinTempC>, fanCtrlRangeMinTemp, temperature);
}
int32_t Handler::GetFanCtrlRangeMaxTempC(int16_t& temperature)
{
    return Get(names<&Handler::GetFanCtrlRangeMaxTempC>, fanCtrlRangeMaxTemp, temperature);
}
int32_t Handler::SetFanCtrlRangeMaxTempC(int16_t temperature)
{
    return Set(names<&Handler::SetFanCtrlRangeMaxTempC>, fanCtrlRangeMaxTemp, temperature);
}
int32_t Handler::GetCPUtempAveragingPeriod(uint8_t& period)
{
    return Get(names<&Handler::GetCPUtempAveragingPeriod>, cpuTempAvgPeriod, period);
}
int32_t Handler::SetCPUtempAveragingPeriod(uint8_t period)
{
    return Set(names<&Handler::SetCPUtempAveragingPeriod>, cpuTempAvgPeriod, period);
}
int32_t Handler::GetEmitStatusChanges(bool& enabled)
{
    return Get(names<&Handler::GetEmitStatusChanges>, emitStatusChanges, enabled);
}
int32_t Handler::SetEmitStatusChanges(bool enabled)
{
    return Set(names<&Handler::SetEmitStatusChanges>, emitStatusChanges, enabled);
}
int32_t Handler::GetPowerSource(ActivePowerSource& source)
{
    return Get(names<&Handler::GetPowerSource>, activePowerSource, source);
}
int32_t Handler::ReadBatteryVoltages(int32_t& right, int32_t& left)
{
    return GetPair(names<&Handler::ReadBatteryVoltages>, batteryVoltages, right, left);
}
int32_t Handler::ReadBatteryChargePercentages(int32_t& right, int32_t& left)
{
    return GetPair(names<&Handler::ReadBatteryChargePercentages>, batteryChargePercentages, right, left);
}
int32_t Handler::GetSystemPowerLevel(SystemPowerLevel& level)
{
    return Get(names<&Handler::GetSystemPowerLevel>, systemPowerLevel, level);
}
int32_t Handler::GetBatteryDrainMode(BatteryDrainMode& mode)
{
    return Get(names<&Handler::GetBatteryDrainMode>, batteryDrainMode, mode);
}
int32_t Handler::SetBatteryDrainMode(BatteryDrainMode mode)
{
    return Set(names<&Handler::SetBatteryDrainMode>, batteryDrainMode, mode);
}
int32_t Handler::GetBatteryTypes(OrvelType& right, OrvelType& left)
{
    return GetPair(names<&Handler::GetBatteryTypes>, batteryTypes, right, left);
}
int32_t Handler::GetLowBatteryWarnings(bool& right, bool& left)
{
    return GetPair(names<&Handler::GetLowBatteryWarnings>, lowBatteryWarnings, right, left);
}
int32_t Handler::GetPermittedActions(permittedActions_t& actions)
{
    return Get(names<&Handler::GetPermittedActions>, permittedActions, actions);
}
int32_t Handler::GetReelStatus(int32_t& status) { return Get(names<&Handler::GetReelStatus>, reelStatus, status); }
int32_t Handler::GetReelConnected(bool& connected)
{
    return Get(names<&Handler::GetReelConnected>, reelConnected, connected);
}
int32_t Handler::GetReelSerialNumber(std::string& number)
{
    return Get(names<&Handler::GetReelSerialNumber>, reelSerialNumber, number);
}
int32_t Handler::SetReelSerialNumber(const std::string& number)
{
    return Set(names<&Handler::SetReelSerialNumber>, reelSerialNumber, number);
}
int32_t Handler::GetReelCountMode(CountMode& mode)
{
    return Get(names<&Handler::GetReelCountMode>, distanceCountMode, mode);
}
int32_t Handler::SetReelCountMode(CountMode mode)
{
    return Set(names<&Handler::SetReelCountMode>, distanceCountMode, mode);
}
int32_t Handler::GetReelCount(int32_t& count) { return Get(names<&Handler::GetReelCount>, distanceCount, count); }
int32_t Handler::ZeroReelCount() { return Set(names<&Handler::ZeroReelCount>, distanceCount, int32_t{0}); }
int32_t Handler::GetReelDistanceSoftwareMode(std::string& mode)
{
    return Get(names<&Handler::GetReelDistanceSoftwareMode>, distanceMode, mode);
}
int32_t Handler::SetReelDistanceSoftwareMode(const std::string& mode)
{
    return Set(names<&Handler::SetReelDistanceSoftwareMode>, distanceMode, mode);
}
int32_t Handler::GetReelDistanceAbsolute(int32_t& distance)
{
    return Get(names<&Handler::GetReelDistanceAbsolute>, distanceAbsolute, distance);
}
int32_t Handler::SetReelDistanceAbsolute(int32_t distance)
{
    return Set(names<&Handler::SetReelDistanceAbsolute>, distanceAbsolute, distance);
}
int32_t Handler::GetReelDistanceRelative(int32_t& distance)
{
    return Get(names<&Handler::GetReelDistanceRelative>, distanceRelative, distance);
}

int32_t Handler::GetAllReelProperties(sdbus_utils::TypedPropertyMap& properties)
{
    return OnChosenBus("GetAllReelProperties", [&](sd_bus* bus) {
        return sdbus_utils::GetAllProperties(bus, reel.service, reel.path, reel.interface, properties);
    });
}

int32_t Handler::GetBatteryLevelIcons(std::string& text, std::vector<std::string>& right,
                                      std::vector<std::string>& left)
{
    constexpr auto read = [](sd_bus_message* message, void* icons) {
        return ReadBatteryLevelIcons(message, *static_cast<BatteryLevelIcons*>(icons));
    };
    BatteryLevelIcons icons;
    const Outcome outcome = DbusHelper::ReadProperty(nullptr, batteryLevelIcons.object, batteryLevelIcons.name,
                                                     BatteryLevelIcons::signature, {read, &icons});
    switch (outcome.step)
    {
    case Step::Open:
        Log::Error("sd_bus_open_user returned %i\n", outcome.result);
        return outcome.result;
    case Step::Read: // has its own lines
        return outcome.result;
    case Step::Done:
        text = std::move(icons.text);
        right = std::move(icons.right);
        left = std::move(icons.left);
        return outcome.result;
    default:
        return Report(names<&Handler::GetBatteryLevelIcons>, "GetProperty", batteryLevelIcons, outcome);
    }
}

} // namespace Halvexd
