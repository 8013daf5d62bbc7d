#pragma once

#include "clients/hardware/HalvexTypes.h"
#include "dbus_helper/DbusListener.h"
#include "dbus_helper/PropertyMap.h"
#include "dbus_helper/SdbusUtils.h"

#include <sigc++/signal.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Halvexd
{

/// Client of the hardware daemon, "com.tavilon.common.Halvex1": power, camera head, cooling, reel, keypad and LEDs.
///
/// Every operation is one blocking call or property access on a bus connection of its own; nothing is kept between
/// calls and nothing is tried twice. It returns sd-bus's result: negative on failure, logged where there is a line for
/// it, with every out-argument as it was. Static operations may run on any thread; signals are dispatched on the
/// loop's.
///
/// Properties are read from, and written to, the hardware that is chosen: the local unit's, or that of another unit
/// while both "RemoteIP" and "RemoteDBusAddress" say where it is. Those two are always asked of the local daemon, and
/// count as empty when they cannot be read. Without a bus of either kind a property operation returns -1. Methods, and
/// the battery level icons, are always the local unit's.
class HalvexDaemonDbusHandler
{
  public:
    using VideoStatusSignal = sigc::signal<void, int32_t>;
    using KeySignal = sigc::signal<void, int32_t, int32_t>; ///< key code; 1 pressed, 0 released, 2 repeated
    using PropertiesSignal = sigc::signal<void, const sdbus_utils::TypedPropertyMap&>; ///< the changed properties
    using AddedSignal = sigc::signal<void, std::string, const sdbus_utils::InterfaceMap&>;
    using RemovedSignal = sigc::signal<void, std::string, const std::vector<std::string>&>;

    explicit HalvexDaemonDbusHandler(sd_event* event);

    /// Subscribes to all of the hardware daemon's signals. Each is tried, each failure is logged. Returns 0, or the
    /// first failure: negative errno-style.
    [[nodiscard]] int32_t Listen();

    VideoStatusSignal& VideoStatusChanged() { return videoStatusChanged_; }
    KeySignal& KeyPressed() { return keyPressed_; }
    PropertiesSignal& ReelPropertiesChanged() { return reelPropertiesChanged_; }
    PropertiesSignal& ReelDistancePropertiesChanged() { return reelDistancePropertiesChanged_; }
    PropertiesSignal& PowerPropertiesChanged() { return powerPropertiesChanged_; }
    PropertiesSignal& CoolingPropertiesChanged() { return coolingPropertiesChanged_; }
    PropertiesSignal& PropertiesChanged() { return propertiesChanged_; } ///< of the daemon's root object
    AddedSignal& InterfacesAdded() { return interfacesAdded_; }
    RemovedSignal& InterfacesRemoved() { return interfacesRemoved_; }

    /// Chooses the hardware of another unit: its IP and the D-Bus address of its user bus.
    [[nodiscard]] static int32_t SetRemote(const std::string& ip, const std::string& dbusAddress);
    /// Chooses the unit's own hardware again.
    [[nodiscard]] static int32_t SetLocal();

    [[nodiscard]] static int32_t GetVideoStatus(int32_t& status);
    /// LEDs: 0 microphone, 3 sonde. Values 0 off, 1 on, 2 and 3 as the front panel defines them.
    [[nodiscard]] static int32_t SetLedState(uint32_t led, uint32_t value);
    /// Sounds the keypad's buzzer: duration and period in the hardware daemon's unit. A daemon that answers that it
    /// did not is logged and counts as success.
    [[nodiscard]] static int32_t BeepBuzzer(uint32_t duration, uint32_t period, uint32_t beeps);
    /// Both numbers are the hardware daemon's; whether it obeyed is not told.
    [[nodiscard]] static int32_t SetPowerState(int32_t first, int32_t second);
    /// The five states in the hardware daemon's order.
    [[nodiscard]] static int32_t GetPowerStates(bool& first, bool& second, bool& third, bool& fourth, bool& fifth);
    [[nodiscard]] static int32_t GetBatteryUpdateState(int32_t& state);
    [[nodiscard]] static int32_t GetBatteryUpdateDirection(int32_t& direction);
    /// `sufficient` is not 0 when the power suffices for the action.
    [[nodiscard]] static int32_t GetPowerSufficientForAction(int32_t action, int32_t& sufficient);
    /// Logs what it gets, field by field. `info.success` is false when the batteries could not be asked.
    [[nodiscard]] static int32_t GetBatteryInfo(BatteryInfo& info);
    [[nodiscard]] static int32_t RequestBatteryData(bool& success);
    [[nodiscard]] static int32_t SetAnalogReelDisplay(int32_t display);
    /// Names of the icons that show the level of the right and the left battery; `text` is the hardware daemon's.
    [[nodiscard]] static int32_t GetBatteryLevelIcons(std::string& text, std::vector<std::string>& right,
                                                      std::vector<std::string>& left);

    [[nodiscard]] static int32_t GetPropVideoStatus(int32_t& status);
    [[nodiscard]] static int32_t GetRemoteIP(std::string& ip);
    [[nodiscard]] static int32_t GetRemoteDbusAddr(std::string& address);
    [[nodiscard]] static int32_t GetHalvexSwVersion(std::string& version);
    [[nodiscard]] static int32_t GetHalvexHwVersion(std::string& version);
    [[nodiscard]] static int32_t GetKeypadPicVersion(std::string& version);

    [[nodiscard]] static int32_t GetCameraLedBrightness(int32_t& brightness);
    [[nodiscard]] static int32_t SetCameraLedBrightness(int32_t brightness);
    [[nodiscard]] static int32_t GetCameraSonde(bool& enabled);
    [[nodiscard]] static int32_t SetCameraSonde(bool enabled);
    [[nodiscard]] static int32_t GetCameraAtex(bool& enabled);
    [[nodiscard]] static int32_t SetCameraAtex(bool enabled);

    /// Degrees Celsius.
    [[nodiscard]] static int32_t GetCPUtempC(int16_t& temperature);
    [[nodiscard]] static int32_t GetFanSpeed(uint8_t& speed);
    [[nodiscard]] static int32_t GetFanCtrlMode(std::string& mode);
    [[nodiscard]] static int32_t SetFanCtrlMode(const std::string& mode);
    [[nodiscard]] static int32_t GetManualFanSpeed(uint8_t& speed);
    [[nodiscard]] static int32_t SetManualFanSpeed(uint8_t speed);
    /// Degrees Celsius.
    [[nodiscard]] static int32_t GetFanCtrlRangeMinTempC(int16_t& temperature);
    [[nodiscard]] static int32_t SetFanCtrlRangeMinTempC(int16_t temperature);
    [[nodiscard]] static int32_t GetFanCtrlRangeMaxTempC(int16_t& temperature);
    [[nodiscard]] static int32_t SetFanCtrlRangeMaxTempC(int16_t temperature);
    [[nodiscard]] static int32_t GetCPUtempAveragingPeriod(uint8_t& period);
    [[nodiscard]] static int32_t SetCPUtempAveragingPeriod(uint8_t period);
    [[nodiscard]] static int32_t GetEmitStatusChanges(bool& enabled);
    [[nodiscard]] static int32_t SetEmitStatusChanges(bool enabled);

    [[nodiscard]] static int32_t GetPowerSource(ActivePowerSource& source);
    [[nodiscard]] static int32_t ReadBatteryVoltages(int32_t& right, int32_t& left);
    /// 0..100.
    [[nodiscard]] static int32_t ReadBatteryChargePercentages(int32_t& right, int32_t& left);
    [[nodiscard]] static int32_t GetSystemPowerLevel(SystemPowerLevel& level);
    [[nodiscard]] static int32_t GetBatteryDrainMode(BatteryDrainMode& mode);
    [[nodiscard]] static int32_t SetBatteryDrainMode(BatteryDrainMode mode);
    [[nodiscard]] static int32_t GetBatteryTypes(OrvelType& right, OrvelType& left);
    [[nodiscard]] static int32_t GetLowBatteryWarnings(bool& right, bool& left);
    [[nodiscard]] static int32_t GetPermittedActions(permittedActions_t& actions);

    [[nodiscard]] static int32_t GetReelStatus(int32_t& status);
    [[nodiscard]] static int32_t GetReelConnected(bool& connected);
    [[nodiscard]] static int32_t GetReelSerialNumber(std::string& number);
    [[nodiscard]] static int32_t SetReelSerialNumber(const std::string& number);
    [[nodiscard]] static int32_t GetReelCountMode(CountMode& mode);
    [[nodiscard]] static int32_t SetReelCountMode(CountMode mode);
    [[nodiscard]] static int32_t GetReelCount(int32_t& count);
    /// Sets the count to 0.
    [[nodiscard]] static int32_t ZeroReelCount();
    /// "relative" or "absolute".
    [[nodiscard]] static int32_t GetReelDistanceSoftwareMode(std::string& mode);
    [[nodiscard]] static int32_t SetReelDistanceSoftwareMode(const std::string& mode);
    /// Centimetres; the largest int32 stands for no value.
    [[nodiscard]] static int32_t GetReelDistanceAbsolute(int32_t& distance);
    [[nodiscard]] static int32_t SetReelDistanceAbsolute(int32_t distance);
    /// Centimetres.
    [[nodiscard]] static int32_t GetReelDistanceRelative(int32_t& distance);
    /// Every property of the reel, the distance counter's apart. A failure is not logged.
    [[nodiscard]] static int32_t GetAllReelProperties(sdbus_utils::TypedPropertyMap& properties);

  private:
    static int VideoStatusChangedHandler(sd_bus_message* message, void* userData, sd_bus_error* error);
    static int KeyPressHandler(sd_bus_message* message, void* userData, sd_bus_error* error);
    static int InterfacesAddedHandler(sd_bus_message* message, void* userData, sd_bus_error* error);
    static int InterfacesRemovedHandler(sd_bus_message* message, void* userData, sd_bus_error* error);
    template <PropertiesSignal HalvexDaemonDbusHandler::*Signal>
    static int PropertiesChangedHandler(sd_bus_message* message, void* userData, sd_bus_error* error);

    DbusHelper::DbusListener listener_;
    VideoStatusSignal videoStatusChanged_;
    KeySignal keyPressed_;
    PropertiesSignal reelPropertiesChanged_;
    PropertiesSignal reelDistancePropertiesChanged_;
    PropertiesSignal powerPropertiesChanged_;
    PropertiesSignal coolingPropertiesChanged_;
    PropertiesSignal propertiesChanged_;
    AddedSignal interfacesAdded_;
    RemovedSignal interfacesRemoved_;
};

} // namespace Halvexd
