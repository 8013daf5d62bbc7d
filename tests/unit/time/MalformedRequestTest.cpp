// Requests whose arguments cannot be read. The server's table keeps them from the handlers, which must be able to stand
// on their own all the same.
#include "dbus_helper/Handles.h"
#include "tests/unit/support/TestMessage.h"
#include "tests/unit/time/DateTimeStandIn.h"
#include "time/TimeManager.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{

using ControllerDaemon::TimeManager;
using DbusHelper::OnMethodCall;
using DbusHelper::OnPropertyAccess;

struct Case
{
    const char* name;
    sd_bus_message_handler_t handler;
    const char* text;
};

TEST(MalformedRequest, IsRefusedByTheTextOfItsMember)
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1); // nobody is asked whether the time can be set
    DateTimeStandIn::Hold("CCU/London");
    for (const auto& [name, handler, text] : {
             Case{"GetTime", &OnMethodCall<&TimeManager::GetTime>, "Failed to get 'local' parameter CODE: -6"},
             Case{"GetTimeSecs", &OnMethodCall<&TimeManager::GetTimeSecs>, "Failed to get 'local' parameter CODE: -6"},
             Case{"SetTime", &OnMethodCall<&TimeManager::SetTime>, "Failed to read dbus message"},
             Case{"SetTimeSecs", &OnMethodCall<&TimeManager::SetTimeSecs>, "Failed to get parameter CODE: -6"},
             Case{"SetTimezone", &OnMethodCall<&TimeManager::SetTimezone>,
                  "Failed to read parameter 'timezone' CODE:-6"},
             Case{"SetTimezoneUTC", &OnMethodCall<&TimeManager::SetTimezoneUTC>, "sd_bus_message_read failed CODE:-6"},
             Case{"GetTimezoneFromUTC", &OnMethodCall<&TimeManager::GetTimezoneFromUTC>,
                  "sd_bus_message_read failed CODE:-6"},
             Case{"SetDst", &OnMethodCall<&TimeManager::SetDst>, "Failed to read dbus message"},
         })
    {
        TestMessage message;
        message.Add(1.5); // no member takes a double
        DbusHelper::BusError error;
        EXPECT_LT(handler(message.Read(), nullptr, error.Get()), 0) << name;
        EXPECT_STREQ(error.Get()->name, "org.freedesktop.DBus.Error.Failed") << name;
        EXPECT_STREQ(error.Message(), text) << name;
    }
}

TEST(MalformedRequest, AListThatCannotBeAttachedIsAFailedAccess)
{
    TestMessage message; // that takes no more, since it is being read
    DbusHelper::BusError error;
    EXPECT_LT(
        OnPropertyAccess<&TimeManager::GetTimezoneList>(nullptr, "", "", "", message.Read(), nullptr, error.Get()), 0);
    EXPECT_STREQ(error.Get()->name, "org.freedesktop.DBus.Error.Failed");
    EXPECT_STREQ(error.Message(), "Failed to attach timezone list to message");
}

} // namespace
