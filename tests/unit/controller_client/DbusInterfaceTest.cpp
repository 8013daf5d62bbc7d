#include "controller_client/DbusInterface.h"

#include "tests/unit/controller_client/UserBus.h"
#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

namespace
{

using ControllerDaemon::DbusInterface;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = SyslogCapture::Line;

class Derived : public DbusInterface
{
  public:
    using DbusInterface::DbusInterface;
    int32_t Hook() override { return 7; }
};

TEST(DbusInterface, HoldsAConnectionOfItsOwnAsLongAsItLives)
{
    const UserBus bus;
    SyslogCapture::Take();
    int peer = -1;
    {
        DbusInterface interface(42);
        EXPECT_EQ(interface.Owner(), 42U);
        EXPECT_NE(interface.GetBus(), nullptr);
        EXPECT_EQ(interface.Hook(), 0);
        peer = bus.Accept();
        EXPECT_GE(peer, 0);
        shutdown(peer, SHUT_RDWR); // so that the flush at the end need not wait
    }
    char byte = 0;
    while (read(peer, &byte, 1) > 0)
    {}
    close(peer);
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST(DbusInterface, StaysUsableWithoutABus)
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    SyslogCapture::Take();
    Derived interface(1);
    EXPECT_EQ(interface.GetBus(), nullptr);
    EXPECT_EQ(static_cast<DbusInterface&>(interface).Hook(), 7);
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, "failed to open user bus"}));
}

} // namespace
