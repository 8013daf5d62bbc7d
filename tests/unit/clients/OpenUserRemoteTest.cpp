#include "clients/hardware/OpenUserRemote.h"

#include <gtest/gtest.h>

namespace
{

using Halvexd::RemoteBusAddress;

TEST(RemoteBusAddress, PutsTheIpInPlaceOfATcpHost)
{
    EXPECT_EQ(RemoteBusAddress("192.0.2.7", "tcp:host=unit,port=4711"), "tcp:host=192.0.2.7,port=4711");
    EXPECT_EQ(RemoteBusAddress("192.0.2.7", "tcp:port=4711,host=unit,family=ipv4"),
              "tcp:host=192.0.2.7,port=4711,family=ipv4");
    EXPECT_EQ(RemoteBusAddress("192.0.2.7", "tcp:port=4711"), "tcp:host=192.0.2.7,port=4711");
    EXPECT_EQ(RemoteBusAddress("2001:db8::7", "tcp:host=unit,port=1"), "tcp:host=2001%3adb8%3a%3a7,port=1");
}

TEST(RemoteBusAddress, ReachesAnyOtherAddressOverSsh)
{
    EXPECT_EQ(RemoteBusAddress("192.0.2.7", "unix:path=/run/user/1000/bus"),
              "unixexec:path=ssh,argv1=-xT,argv2=-oBatchMode%3dyes,argv3=--,argv4=192.0.2.7,"
              "argv5=systemd-stdio-bridge,argv6=--bus-path%3d%27unix%3apath%3d/run/user/1000/bus%27");
}

TEST(RemoteBusAddress, QuotesTheAddressForTheOtherShell)
{
    EXPECT_EQ(RemoteBusAddress("::1", "unix:path=/a*,guid=%41\\"),
              "unixexec:path=ssh,argv1=-xT,argv2=-oBatchMode%3dyes,argv3=--,argv4=%3a%3a1,"
              "argv5=systemd-stdio-bridge,argv6=--bus-path%3d%27unix%3apath%3d/a%2a%2cguid%3d%2541%5c%27");
}

} // namespace
