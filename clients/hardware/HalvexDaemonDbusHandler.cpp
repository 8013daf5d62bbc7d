#include "clients/hardware/HalvexDaemonDbusHandler.h"

#include "clients/hardware/BatteryLevelIcons.h"
#include "clients/hardware/HalvexEndpoints.h"
#include "dbus_helper/Call.h"
#include "dbus_helper/Log.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace Halvexd
{

using Handler = HalvexDaemonDbusHandler;

namespace
{

using DbusHelper::Endpoint;
using DbusHelper::Outcome;
using DbusHelper::Step;

/// A line about a failure. Its first value is the result, its second, which most lines leave out, the bus's words.
struct Line
{
    const char* format;

    /// Does not compile with conversions of another kind: the call that takes the format shows it to no compiler.
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is what it is for
    consteval Line(const char* text) : format(text)
    {
        std::string_view rest(text == nullptr ? "%d" : text);
        const size_t number = rest.find('%');
        const bool hasNumber = rest.substr(number, 2) == "%d";
        rest.remove_prefix(number + 2);
        const size_t words = rest.find('%');
        if (!hasNumber ||
            (words != std::string_view::npos && (rest.substr(words, 2) != "%s" || rest.rfind('%') != words)))
        {
            throw "takes %d, or %d and %s";
        }
    }
};

/// A method of the hardware daemon and the lines of its failures, which have nothing in common. A null line is none.
struct Method
{
    const Endpoint& object;
    const char* member;
    Line callLine = nullptr;
    Line readLine = nullptr;
    Line openLine = nullptr; ///< none: a failed open counts as a failed call
};

constexpr Method setRemote{control, "SetRemote", "Failed to set remote credentials for HalvexDaemon: %d, %s"};
constexpr Method setLocal{control, "SetLocal", "Failed to clear remote credentials for HalvexDaemon: %d, %s"};
constexpr Method getVideoStatus{control, "GetVideoStatus"};
constexpr Method setLedState{control, "SetLedState", "sd_bus_call_method SetLedState failed (r = %d)"};
constexpr Method beepBuzzer{control, "BeepBuzzer", nullptr,
                            "sd_bus_call_method SetLedState failed (r = %d)"}; // names another member: deliberate
constexpr Method setPowerState{control, "SetPowerState", nullptr, "SetPowerState: sd_bus_message_read failed (r = %d)"};
constexpr Method getPowerStates{control, "GetPowerStates"};
constexpr Method getBatteryUpdateState{power, "GetBatteryUpdateState",
                                       "sd_bus_call_method GetBatteryUpdate failed (r = %d)",
                                       "sd_bus_message_read failed (r = %d)"};
constexpr Method getBatteryUpdateDirection{power, "GetBatteryUpdateDirection",
                                           "sd_bus_call_method GetBatteryUpdateDirection failed (r = %d)",
                                           "sd_bus_message_read failed (r = %d)"};
constexpr Method getPowerSufficientForAction{power, "GetPowerSufficientForAction",
                                             "GetPowerSufficientForAction: sd_bus_call_method failed (r = %d)",
                                             "GetPowerSufficientForAction: sd_bus_message_read failed (r = %d)",
                                             "GetPowerSufficientForAction: sd_bus_open_user failed r = %d\n"};
constexpr Method requestBatteryData{power, "RequestBatteryData",
                                    "RequestGetBatteryData: sd_bus_call_method failed (r = %d)",
                                    "RequestGetBatteryData: sd_bus_message_read failed (r = %d)",
                                    "RequestGetBatteryData: sd_bus_open_user failed r = %d"};
constexpr Method overlay{reel, "overlay", "Failed to set analog reel display: %d, %s"};

int32_t Report(const Method& method, const Outcome& outcome)
{
    const bool ownLine = outcome.step == Step::Open && method.openLine.format != nullptr;
    const Line line = outcome.step == Step::Read ? method.readLine : ownLine ? method.openLine : method.callLine;
    if (!outcome.Ok() && line.format != nullptr)
    {
        Log::Error(line.format, outcome.result, outcome.errorText.c_str());
    }
    return outcome.result;
}

/// A method call on the user bus, and the lines of its failure.
template <typename... Out, typename... In>
int32_t Call(const Method& method, std::tuple<Out&...> reply, const In&... arguments)
{
    return Report(method, DbusHelper::Call(method.object, method.member, reply, arguments...));
}

constexpr const char* batteryText = "libdbus-helper - HalvexDaemonDbusHandler::GetBatteryInfo";

void LogValue(const char* battery, const char* field, uint32_t value)
{
    Log::Info("bI.battery_info[%s].%s %u.\n", battery, field, value);
}
void LogValue(const char* battery, const char* field, const std::string& value)
{
    Log::Info("bI.battery_info[%s].%s %s.\n", battery, field, value.c_str());
}

void LogBattery(const char* name, const BatteryData& battery)
{
    constexpr std::array fields{
        "update_state",     "update_direction", "power_source",           "orvel_type", "serial_num",
        "manu_date",        "bat_capacity",     "bat_chrg_dischrg_cycle", "bat_vs",     "bat_hw",
        "bat_self_soft_vs", "bat_itf_soft_vs",  "bat_charger_soft_vs"};
    static_assert(fields.size() == std::tuple_size_v<decltype(Fields(battery))>);
    const auto* field = fields.begin();
    std::apply([&](const auto&... value) { (LogValue(name, *field++, value), ...); }, Fields(battery));
}

void LogBatteryInfo(const char* member, const BatteryInfo& info)
{
    Log::Info("%s message parsed successfully.\n", batteryText);
    if (!info.success)
    {
        Log::Error("%s %s method reported battery info read failure", batteryText, member);
        return;
    }
    Log::Info("%s %s method returned sucessful info collection.\n", batteryText, member);
    LogBattery("RIGHT_BATT_INDEX", info.battery_info[RIGHT_BATT_INDEX]);
    LogBattery("LEFT_BATT_INDEX", info.battery_info[LEFT_BATT_INDEX]);
}

} // namespace

int32_t Handler::SetRemote(const std::string& ip, const std::string& dbusAddress)
{
    return Call(setRemote, std::tie(), ip, dbusAddress);
}
int32_t Handler::SetLocal() { return Call(setLocal, std::tie()); }
int32_t Handler::GetVideoStatus(int32_t& status) { return Call(getVideoStatus, std::tie(status)); }
int32_t Handler::SetLedState(uint32_t led, uint32_t value) { return Call(setLedState, std::tie(), led, value); }

int32_t Handler::BeepBuzzer(uint32_t duration, uint32_t period, uint32_t beeps)
{
    bool success = true;
    const int32_t result = Call(beepBuzzer, std::tie(success), duration, period, beeps);
    if (!success)
    {
        Log::Error("sd_bus_call_method SetLedState success != (int) true"); // names another member: deliberate
    }
    return result;
}

int32_t Handler::SetPowerState(int32_t first, int32_t second)
{
    bool obeyed = false;
    return Call(setPowerState, std::tie(obeyed), first, second);
}
int32_t Handler::GetPowerStates(bool& first, bool& second, bool& third, bool& fourth, bool& fifth)
{
    return Call(getPowerStates, std::tie(first, second, third, fourth, fifth));
}
int32_t Handler::GetBatteryUpdateState(int32_t& state) { return Call(getBatteryUpdateState, std::tie(state)); }
int32_t Handler::GetBatteryUpdateDirection(int32_t& direction)
{
    return Call(getBatteryUpdateDirection, std::tie(direction));
}
int32_t Handler::GetPowerSufficientForAction(int32_t action, int32_t& sufficient)
{
    return Call(getPowerSufficientForAction, std::tie(sufficient), action);
}
int32_t Handler::RequestBatteryData(bool& success) { return Call(requestBatteryData, std::tie(success)); }
int32_t Handler::SetAnalogReelDisplay(int32_t display) { return Call(overlay, std::tie(), display); }

int32_t Handler::GetBatteryInfo(BatteryInfo& info)
{
    constexpr const char* member = "GetBatteryInfo";
    Log::Info("%s start\n", batteryText);
    Log::Info("%s calling %s dbus method.\n", batteryText, member);
    BatteryInfo read;
    const Outcome outcome = DbusHelper::Call(power, member, Fields(read));
    if (!outcome.Ok() && outcome.step != Step::Read)
    {
        Log::Error("%s sd_bus_call_method GetBatInfo failed (r = %d), %s\n", batteryText, outcome.result,
                   outcome.errorText.c_str());
        return outcome.result;
    }
    Log::Info("%s reading returned message.\n", batteryText);
    if (!outcome.Ok())
    {
        Log::Error("%s sd_bus_message_read failed (r = %d)", batteryText, outcome.result);
        return outcome.result;
    }
    LogBatteryInfo(member, read);
    info = std::move(read);
    return outcome.result;
}

Handler::HalvexDaemonDbusHandler(sd_event* event) : listener_(event) {}

int32_t Handler::Listen()
{
    constexpr const char* properties = "org.freedesktop.DBus.Properties";
    constexpr const char* objects = "org.freedesktop.DBus.ObjectManager";
    constexpr const char* changed = "PropertiesChanged";
    struct Subscription
    {
        const Endpoint& object;
        const char* interface;
        const char* member;
        sd_bus_message_handler_t handler;
    };
    constexpr std::array subscriptions{
        Subscription{control, control.interface, "VideoStatusChanged", &VideoStatusChangedHandler},
        Subscription{control, control.interface, "KeyPressEvent", &KeyPressHandler},
        Subscription{reel, properties, changed, &PropertiesChangedHandler<&Handler::reelPropertiesChanged_>},
        Subscription{distance, properties, changed,
                     &PropertiesChangedHandler<&Handler::reelDistancePropertiesChanged_>},
        Subscription{power, properties, changed, &PropertiesChangedHandler<&Handler::powerPropertiesChanged_>},
        Subscription{cooling, properties, changed, &PropertiesChangedHandler<&Handler::coolingPropertiesChanged_>},
        Subscription{control, properties, changed, &PropertiesChangedHandler<&Handler::propertiesChanged_>},
        Subscription{control, objects, "InterfacesAdded", &InterfacesAddedHandler},
        Subscription{control, objects, "InterfacesRemoved", &InterfacesRemovedHandler},
    };
    int32_t failure = listener_.Connect();
    if (failure < 0)
    {
        Log::Error("Failed to connect to the dbus, %s", std::strerror(-failure));
        return failure;
    }
    for (const Subscription& each : subscriptions)
    {
        const int32_t result = listener_.ListenSignal(each.object.service, each.object.path, each.interface,
                                                      each.member, each.handler, this);
        if (result < 0)
        {
            Log::Error("Failed to register %s signal, %s", each.member, std::strerror(-result));
            failure = failure < 0 ? failure : result;
        }
    }
    if (failure < 0)
    {
        Log::Error("Storage: Failed to init signal listeners"); // names another daemon: deliberate
    }
    return failure;
}

namespace
{

/// The end of every signal handler: `parser` is named when the signal could not be read. sd-bus takes 0 for "go on".
int Handled(const char* parser, int result)
{
    if (result < 0)
    {
        Log::Error("%s failed (r = %d)", parser, result);
    }
    return std::min(result, 0);
}

} // namespace

int Handler::VideoStatusChangedHandler(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    std::tuple<int32_t> body;
    const int result = DbusHelper::Sequence<int32_t>::Read(message, body);
    if (result >= 0)
    {
        static_cast<Handler*>(userData)->videoStatusChanged_.emit(std::get<0>(body));
    }
    return Handled("sd_bus_message_read", result);
}

int Handler::KeyPressHandler(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    std::tuple<int32_t, int32_t> body;
    const int result = DbusHelper::Sequence<int32_t, int32_t>::Read(message, body);
    if (result >= 0)
    {
        static_cast<Handler*>(userData)->keyPressed_.emit(std::get<0>(body), std::get<1>(body));
    }
    return Handled("sd_bus_message_read", result);
}

template <Handler::PropertiesSignal Handler::*Signal>
int Handler::PropertiesChangedHandler(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    sdbus_utils::TypedPropertyMap properties;
    int result = sd_bus_message_skip(message, "s");
    result = result < 0 ? result : sdbus_utils::ParsePropertiesWithType(message, properties);
    if (result >= 0)
    {
        (static_cast<Handler*>(userData)->*Signal).emit(properties);
    }
    return Handled("ParsePropertiesWithType", result);
}

int Handler::InterfacesAddedHandler(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    std::string path;
    sdbus_utils::InterfaceMap interfaces;
    sdbus_utils::InterfacesStep step{};
    const int result = sdbus_utils::ParseInterfaceAdded(message, path, interfaces, step);
    if (result >= 0)
    {
        static_cast<Handler*>(userData)->interfacesAdded_.emit(path, interfaces);
    }
    return Handled("ParseInterfaceAdded", result);
}

int Handler::InterfacesRemovedHandler(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    std::string path;
    std::vector<std::string> interfaces;
    const int result = sdbus_utils::ParseInterfaceRemoved(message, path, interfaces);
    if (result >= 0)
    {
        static_cast<Handler*>(userData)->interfacesRemoved_.emit(path, interfaces);
    }
    return Handled("ParseInterfaceRemoved", result);
}

} // namespace Halvexd
