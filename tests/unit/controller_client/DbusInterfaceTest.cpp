#include "controller_client/DbusInterface.h"

#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

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

/// A user bus that takes connections and says nothing: enough for a connection to be opened and closed.
class UserBus
{
  public:
    UserBus()
    {
        char pattern[] = "/tmp/ccu-interface-XXXXXX";
        folder_ = mkdtemp(pattern);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (folder_ + "/bus").copy(address.sun_path, sizeof address.sun_path - 1);
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 1), 0);
        setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + folder_ + "/bus").c_str(), 1);
    }
    ~UserBus()
    {
        close(listener_);
        std::filesystem::remove_all(folder_);
    }
    UserBus(const UserBus&) = delete;
    UserBus& operator=(const UserBus&) = delete;
    UserBus(UserBus&&) = delete;
    UserBus& operator=(UserBus&&) = delete;

    [[nodiscard]] int Accept() const { return accept(listener_, nullptr, nullptr); }

  private:
    std::string folder_;
    int listener_ = -1;
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
