#pragma once

#include "dbus_helper/Codec.h"
#include "dbus_helper/Signature.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>

/// The hardware daemon's own kinds of values. It defines what their numbers mean; here they are passed through, those
/// that are not known included, without being mistaken for one another.
namespace Halvexd
{

enum class ActivePowerSource : int32_t
{
};
enum class SystemPowerLevel : int32_t
{
};
enum class BatteryDrainMode : int32_t
{
};
enum class OrvelType : int32_t ///< type of a battery
{
};
enum class CountMode : int32_t ///< how the reel counts
{
};

/// What the state of the power system permits at the moment; travels as "(bbbbb)".
struct permittedActions_t // NOLINT(readability-identifier-naming): its name at the hardware daemon
{
    bool record = false;
    bool playBack = false;
    bool transferJobs = false;
    bool updateFirmware = false;
    bool switchOff = false;
};

/// Places of the batteries in BatteryInfo.
enum BatteryIndex : size_t
{
    RIGHT_BATT_INDEX = 0,
    LEFT_BATT_INDEX = 1,
};

/// What one battery says of itself.
struct BatteryData
{
    uint16_t update_state = 0;
    uint16_t update_direction = 0;
    uint16_t power_source = 0;
    uint16_t orvel_type = 0;
    std::string serial_num;
    std::string manu_date; ///< manufacturing date
    uint32_t bat_capacity = 0;
    uint32_t bat_chrg_dischrg_cycle = 0; ///< charge and discharge cycles
    uint16_t bat_vs = 0;                 ///< version of the battery
    uint16_t bat_hw = 0;                 ///< version of its hardware
    uint16_t bat_self_soft_vs = 0;
    uint16_t bat_itf_soft_vs = 0;
    uint16_t bat_charger_soft_vs = 0;
};

/// What both batteries say, and whether the hardware daemon could ask them.
struct BatteryInfo
{
    bool success = false;
    std::array<BatteryData, 2> battery_info; ///< by BatteryIndex
};

auto Fields(DbusHelper::ConstOrNot<permittedActions_t> auto& actions)
{
    return std::tie(actions.record, actions.playBack, actions.transferJobs, actions.updateFirmware, actions.switchOff);
}

auto Fields(DbusHelper::ConstOrNot<BatteryData> auto& battery)
{
    return std::tie(battery.update_state, battery.update_direction, battery.power_source, battery.orvel_type,
                    battery.serial_num, battery.manu_date, battery.bat_capacity, battery.bat_chrg_dischrg_cycle,
                    battery.bat_vs, battery.bat_hw, battery.bat_self_soft_vs, battery.bat_itf_soft_vs,
                    battery.bat_charger_soft_vs);
}

/// All values in the order in which they travel: the flag, the right battery, the left one.
auto Fields(DbusHelper::ConstOrNot<BatteryInfo> auto& info)
{
    return std::tuple_cat(std::tie(info.success), Fields(info.battery_info[RIGHT_BATT_INDEX]),
                          Fields(info.battery_info[LEFT_BATT_INDEX]));
}

} // namespace Halvexd

namespace DbusHelper
{

template <>
inline constexpr auto typeText<Halvexd::ActivePowerSource> = FixedString{"Halvexd::ActivePowerSource"};
template <>
inline constexpr auto typeText<Halvexd::SystemPowerLevel> = FixedString{"Halvexd::SystemPowerLevel"};
template <>
inline constexpr auto typeText<Halvexd::BatteryDrainMode> = FixedString{"Halvexd::BatteryDrainMode"};
template <>
inline constexpr auto typeText<Halvexd::OrvelType> = FixedString{"Halvexd::OrvelType"};
template <>
inline constexpr auto typeText<Halvexd::CountMode> = FixedString{"Halvexd::CountMode"};
template <>
inline constexpr auto typeText<Halvexd::permittedActions_t> = FixedString{"Halvexd::permittedActions_t"};

} // namespace DbusHelper
