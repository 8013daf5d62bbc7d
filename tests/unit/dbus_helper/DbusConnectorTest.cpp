#include "dbus_helper/DbusConnector.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace
{

using DbusHelper::BusKind;
using DbusHelper::DbusConnector;

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

} // namespace
