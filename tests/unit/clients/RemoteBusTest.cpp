#include "clients/hardware/RemoteBus.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>

namespace
{

using Halvexd::IsBusAddress;
using Halvexd::IsIpLiteral;

constexpr const char* goodIp = "192.0.2.7";
constexpr const char* goodAddress = "unix:path=/run/user/1000/bus";

TEST(RemoteBus, TakesIpLiterals)
{
    for (const char* ip : {goodIp, "127.0.0.1", "0.0.0.0", "::1", "2001:db8::7", "::ffff:192.0.2.7"})
    {
        EXPECT_TRUE(IsIpLiteral(ip)) << ip;
    }
}

TEST(RemoteBus, TakesNothingElseForAnIp)
{
    for (const char* ip :
         {"", "unit", "192.0.2", "192.0.2.256", "192.0.2.7 ", " 192.0.2.7", "192.0.2.7;reboot", "-oProxyCommand=reboot",
          "root@192.0.2.7", "192.0.2.7:22", "[::1]", "fe80::1%eth0", "0x7f.1", "192.0.2.7,port=1"})
    {
        EXPECT_FALSE(IsIpLiteral(ip)) << ip;
    }
}

TEST(RemoteBus, ReadsAnIpToItsEnd)
{
    EXPECT_FALSE(IsIpLiteral(std::string("192.0.2.7\0;reboot", 17)));
    EXPECT_FALSE(IsIpLiteral(std::string("::1\0", 4)));
}

TEST(RemoteBus, TakesAddressesThatConnect)
{
    for (const char* address :
         {goodAddress, "tcp:host=unit,port=4711", "tcp:host=%3a%3A1,port=1,family=ipv6",
          "unix:abstract=/tmp/dbus-A_b.c", "unix:path=/run/bus,guid=0123456789abcdef0123456789abcdef",
          "x-machine-unix:pid=1", "unix:path=a\\b*"})
    {
        EXPECT_TRUE(IsBusAddress(address)) << address;
    }
}

TEST(RemoteBus, TakesNothingElseForAnAddress)
{
    for (const char* address : {"",
                                "unix",
                                "unix:",
                                ":path=/run/bus",
                                "unix:path",
                                "unix:path=",
                                "unix:=/run/bus",
                                "unix:path=/run/bus,",
                                "unix:,path=/run/bus",
                                "unix:path=/run/bus;tcp:host=a",
                                "unix:path=/run/a b",
                                "unix:path=/run/bus\n",
                                "unix:path=/run/$(reboot)",
                                "unix:path=/run/'bus'",
                                "unix:path=/run/`x`",
                                "unix:path=/run/bus%2",
                                "unix:path=%zz",
                                "unix:path=%",
                                "tcp:host=::1,port=1",
                                "unix:path=\xc3\xa4",
                                "unix:pa th=/run/bus",
                                "un ix:path=/run/bus",
                                "unixexec:path=/sbin/reboot"})
    {
        EXPECT_FALSE(IsBusAddress(address)) << address;
    }
}

TEST(RemoteBus, OpensNothingThatIsNotWhatItShouldBe)
{
    for (const auto& [ip, address] :
         {std::pair{"unit", goodAddress}, {goodIp, "bus"}, {"", ""}, {goodIp, "unixexec:path=ls"}})
    {
        DbusHelper::BusHandle bus;
        EXPECT_EQ(Halvexd::OpenRemoteBus(bus, ip, address), -EINVAL) << ip << " " << address;
        EXPECT_EQ(bus, nullptr);
    }
}

} // namespace
