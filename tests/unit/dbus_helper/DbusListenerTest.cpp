#include "dbus_helper/DbusListener.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

namespace
{

using DbusHelper::BusKind;
using DbusHelper::DbusConnector;
using DbusHelper::DbusListener;

int Ignore(sd_bus_message* /*message*/, void* /*userData*/, sd_bus_error* /*error*/) { return 0; }

TEST(DbusConnector, NoLoopIsAFailure)
{
    for (const BusKind kind : {BusKind::User, BusKind::System})
    {
        DbusConnector connector(nullptr, kind);
        EXPECT_EQ(connector.Connect(), -EINVAL);
        EXPECT_EQ(connector.GetBus(), nullptr);
        connector.Disconnect();
    }
}

TEST(DbusListener, NoLoopIsAFailureWhateverIsAskedFor)
{
    DbusListener listener(nullptr);
    listener.DefineSignals({{"Grew", "a.Service", "/a", "a.Interface", "Grew", &Ignore}}, nullptr);
    EXPECT_EQ(listener.ListenSignals({"Grew"}), -EINVAL);
    EXPECT_EQ(listener.ListenSignals({}), -EINVAL);
    EXPECT_EQ(listener.ListenSignal("a.Service", "", "a.Interface", "Grew", &Ignore, nullptr), -ENOTCONN);
    listener.Disconnect();
}

TEST(DbusListener, NoBusIsAFailureWithNothingLeftOpen)
{
    ASSERT_EQ(setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1), 0);
    sd_event* event = nullptr;
    ASSERT_GE(sd_event_new(&event), 0);
    {
        DbusListener listener(event);
        EXPECT_EQ(listener.ListenSignals({}), -ENOENT);
        EXPECT_EQ(listener.GetBus(), nullptr);
    }
    sd_event_unref(event);
}

} // namespace
