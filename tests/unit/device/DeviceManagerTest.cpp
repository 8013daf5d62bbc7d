#include "device/DeviceManager.h"

#include "dbus_helper/Handles.h"
#include "device/LedValues.h"
#include "tests/unit/device/BusStandIn.h"
#include "tests/unit/device/HardwareStandIn.h"
#include "tests/unit/device/ProgramStandIn.h"
#include "tests/unit/support/SyslogCapture.h"
#include "tests/unit/support/TestMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

namespace
{

using namespace ControllerDaemon;
using BusStandIn::LedCall;
using DbusHelper::Handler;
using DbusHelper::OnMethodCall;
using DbusHelper::OnPropertyAccess;
using testing::Contains;
using testing::ElementsAre;
using Line = SyslogCapture::Line;

const std::string prefix = "static int ControllerDaemon::DeviceManager::";
const std::string propertyShape =
    "(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*)";

class DeviceManagerTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        HardwareStandIn::TheKeypad() = {};
        HardwareStandIn::TheKeypad().hasUdev = false;
        ProgramStandIn::Refuse(0);
        ProgramStandIn::TakeCommands();
        BusStandIn::TakeLedCalls();
        SyslogCapture::Take();
    }
};

TEST_F(DeviceManagerTest, WithoutAnythingIsBuiltAllTheSame)
{
    const DeviceManager manager(nullptr, nullptr);
    EXPECT_THAT(
        SyslogCapture::Take(),
        ElementsAre(Line{LOG_ERR, "int32_t ControllerDaemon::SoundManager::Init(): Failed to open GPIO chip"},
                    Line{LOG_ERR, "ControllerDaemon::DeviceManager::DeviceManager(sd_event*, SettingsHandler): Failed "
                                  "to initialize Sound Manager"},
                    Line{LOG_ERR, "Failed to create udev instance"}));
}

TEST_F(DeviceManagerTest, LedsOfSwitchesAreOffOnOrThree)
{
    for (const auto& [value, shown] : {std::pair{0, 0U}, {1, 1U}, {2, 3U}, {3, 3U}, {-1, 3U}, {INT_MIN, 3U}})
    {
        EXPECT_LT(DeviceManager::HandleLED(7, value), 0);
        EXPECT_THAT(BusStandIn::TakeLedCalls(), ElementsAre(LedCall{"SetLedState", 7, shown})) << value;
        EXPECT_THAT(SyslogCapture::Take(),
                    Contains(Line{LOG_ERR, "static int32_t ControllerDaemon::DeviceManager::HandleLED(int, int): "
                                           "Failed to set LED led=7 value=" +
                                               std::to_string(value)}));
    }
}

TEST_F(DeviceManagerTest, LedsOfCapturesHaveOneStateMore)
{
    for (const auto& [value, shown] :
         {std::pair{0, 0U}, {1, 1U}, {2, 2U}, {3, 3U}, {5, 3U}, {-1, 3U}, {INT_MIN, 3U}, {INT_MAX, 3U}})
    {
        EXPECT_LT(DeviceManager::CaptureLED(4, value), 0);
        EXPECT_THAT(BusStandIn::TakeLedCalls(), ElementsAre(LedCall{"SetLedState", 4, shown})) << value;
        EXPECT_THAT(SyslogCapture::Take(),
                    Contains(Line{LOG_ERR, "static int32_t ControllerDaemon::DeviceManager::CaptureLED(int, int): "
                                           "Failed to set the LED 4 to value=" +
                                               std::to_string(value)}));
    }
}

TEST_F(DeviceManagerTest, WithoutABusAChangeIsNotEmitted)
{
    DeviceManager::SetBus(nullptr);
    EXPECT_LT(DeviceManager::EmitPropertyChanged("MicEnabled"), 0);
    EXPECT_EQ(DeviceManager::SetSpkrVolume(40), 0);
    EXPECT_THAT(ProgramStandIn::TakeCommands(), ElementsAre("amixer set 'HP DAC' 40%"));
}

TEST_F(DeviceManagerTest, AVolumeWithoutRoomForAProcessFails)
{
    ProgramStandIn::Refuse(EAGAIN);
    EXPECT_EQ(DeviceManager::SetSpkrVolume(40), -1);
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_ERR, "static int32_t ControllerDaemon::DeviceManager::SetSpkrVolume(int): "
                                          "SoundManager::SetSpkrVolume failed"}));
}

TEST_F(DeviceManagerTest, AKeyIsToldWithItsCodeAndNeverBeepsUnlessThatIsEnabled)
{
    DeviceManager::KeyPress(59, 1000, 1);
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_INFO, "DeviceManager::KeyPress: Got keyCode 59, keypadBeepEnabled 0"}));
}

TEST_F(DeviceManagerTest, AValueThatContradictsItsTypeIsNotCaught)
{
    DeviceManager manager(nullptr, nullptr);
    using Slot = void (DeviceManager::*)(sdbus_utils::TypedPropertyMap&);
    struct Contradiction
    {
        Slot handler;
        const char* key;
        const char* type;
    };
    for (const auto& [handler, key, type] : {
             Contradiction{&DeviceManager::AudioSettingsChanged, "micEnabled", "b"},
             Contradiction{&DeviceManager::AudioSettingsChanged, "speakerEnabled", "b"},
             Contradiction{&DeviceManager::AudioSettingsChanged, "speakerVolume", "i"},
             Contradiction{&DeviceManager::SondeSettingsChanged, "enabled", "b"},
             Contradiction{&DeviceManager::KeyBeepSettingsChanged, "enabled", "b"},
             Contradiction{&DeviceManager::KeyBeepSettingsChanged, "duration", "u"},
             Contradiction{&DeviceManager::KeyBeepSettingsChanged, "period", "u"},
             Contradiction{&DeviceManager::KeyBeepSettingsChanged, "beeps", "u"},
         })
    {
        sdbus_utils::TypedPropertyMap changes{{key, {type, std::string("text")}}};
        EXPECT_THROW((manager.*handler)(changes), std::bad_any_cast) << key;
        changes = {{key, {"s", std::string("text")}}};
        EXPECT_NO_THROW((manager.*handler)(changes)) << key;
    }
}

struct Write
{
    const char* name;
    sd_bus_property_set_t setter;
    const char* before; ///< what is logged until the value is read, if anything
    const char* separator;
    const char* words;
};

// The server's table keeps such requests from the handlers, which must be able to stand on their own all the same.
TEST_F(DeviceManagerTest, AWrittenValueThatCannotBeReadIsAFailedAccess)
{
    for (const auto& [name, setter, before, separator, words] : {
             Write{"SetKeypadBeepEnabled", &OnPropertyAccess<Handler(&DeviceManager::SetKeypadBeepEnabled)>, "", " ",
                   "sd_bus_message_read() failed"},
             Write{"SetSonde", &OnPropertyAccess<Handler(&DeviceManager::SetSonde)>, " called", " ",
                   "SetSonde sd_bus_message_read() failed"},
             Write{"SetMicEnabled", &OnPropertyAccess<Handler(&DeviceManager::SetMicEnabled)>, nullptr, ": ",
                   "sd_bus_message_read() failed"},
             Write{"SetSpkrEnabled", &OnPropertyAccess<Handler(&DeviceManager::SetSpkrEnabled)>, nullptr, ": ",
                   "sd_bus_message_read() failed"},
             Write{"SetSpkrVolume", &OnPropertyAccess<Handler(&DeviceManager::SetSpkrVolume)>, nullptr, ": ",
                   "sd_bus_message_read() failed"},
         })
    {
        for (const bool empty : {false, true})
        {
            TestMessage message;
            if (!empty)
            {
                message.Add(std::string("loud"));
            }
            DbusHelper::BusError error;
            EXPECT_LT(setter(nullptr, "", "", "", message.Read(), nullptr, error.Get()), 0) << name;
            EXPECT_STREQ(error.Get()->name, "org.freedesktop.DBus.Error.Failed") << name;
            EXPECT_STREQ(error.Message(), words) << name;
            const std::string text = std::string(prefix).append(name).append(propertyShape);
            std::vector<Line> expected{{LOG_ERR, text + separator + words}};
            if (before != nullptr)
            {
                expected.insert(expected.begin(), {LOG_INFO, text + before});
            }
            EXPECT_EQ(SyslogCapture::Take(), expected) << name;
        }
    }
}

TEST_F(DeviceManagerTest, ASoundIsRefusedWithoutItsName)
{
    TestMessage message;
    message.Add(int32_t{1});
    DbusHelper::BusError error;
    EXPECT_LT(OnMethodCall<&DeviceManager::PlayAudio>(message.Read(), nullptr, error.Get()), 0);
    EXPECT_STREQ(error.Get()->name, "org.freedesktop.DBus.Error.Failed");
    EXPECT_STREQ(error.Message(), "Could not read message");
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre());
}

} // namespace
