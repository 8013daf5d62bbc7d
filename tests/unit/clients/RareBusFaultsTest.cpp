#include "clients/sync/SyncDaemonDbusHandler.h"
#include "tests/unit/support/SyslogCapture.h"
#include "tests/unit/support/TestMessage.h"
#include "time/SystemdDateTime.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <dlfcn.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

// Failures that no peer can bring about, since the bus library checks a property's type before it hands it out and
// makes every message of a good endpoint. The two functions below come before the library's own.
namespace
{

using Lines = std::vector<SyslogCapture::Line>;
using Syncd::SyncDaemonDbusHandler;

bool failing = false;

template <typename Function>
Function* Real(Function* /*function*/, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" int sd_bus_message_new_method_call(sd_bus* bus, sd_bus_message** message, const char* destination,
                                              const char* path, const char* interface, const char* member)
{
    const bool greeting = std::string_view(destination) == "org.freedesktop.DBus"; // part of opening a bus
    if (failing && !greeting)
    {
        return -ENOMEM;
    }
    static auto* const real = Real(&sd_bus_message_new_method_call, "sd_bus_message_new_method_call");
    return real(bus, message, destination, path, interface, member);
}

/// Gives a reply that holds nothing.
extern "C" int sd_bus_get_property(sd_bus* bus, const char* destination, const char* path, const char* interface,
                                   const char* member, sd_bus_error* error, sd_bus_message** reply, const char* type)
{
    if (!failing)
    {
        static auto* const real = Real(&sd_bus_get_property, "sd_bus_get_property");
        return real(bus, destination, path, interface, member, error, reply, type);
    }
    TestMessage empty;
    *reply = sd_bus_message_ref(empty.Read());
    return 0;
}

namespace
{

class RareBusFaults : public testing::Test
{
  protected:
    RareBusFaults()
    {
        // a bus that can be connected to, and that nobody can come to terms with
        setenv("DBUS_SESSION_BUS_ADDRESS", "unixexec:path=/bin/sleep,argv1=60", 1);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unixexec:path=/bin/sleep,argv1=60", 1);
        failing = true;
        SyslogCapture::Take();
    }
    ~RareBusFaults() override { failing = false; }
    RareBusFaults(const RareBusFaults&) = delete;
    RareBusFaults& operator=(const RareBusFaults&) = delete;
    RareBusFaults(RareBusFaults&&) = delete;
    RareBusFaults& operator=(RareBusFaults&&) = delete;

    int32_t code_ = 77;
    std::string text_ = "untouched";
    bool flag_ = true;
};

TEST_F(RareBusFaults, SyncMessagesThatCannotBeMade)
{
    EXPECT_EQ(SyncDaemonDbusHandler::AddSyncs("a", "b", {"c"}, code_, text_), -ENOMEM);
    EXPECT_EQ(SyncDaemonDbusHandler::CancelSyncs({"c"}, code_), -ENOMEM);
    EXPECT_EQ(
        SyslogCapture::Take(),
        (Lines{{LOG_ERR, "SyncDaemonDbusHandler::AddSyncs: sd_bus_message_new_method_call failed r = -12, reason = "
                         "Cannot allocate memory"},
               {LOG_ERR, "SyncDaemonDbusHandler::CancelSyncs: sd_bus_message_new_method_call failed r = -12, "
                         "reason = Cannot allocate memory"}}));
    EXPECT_EQ(code_, 77);
    EXPECT_EQ(text_, "untouched");
}

TEST_F(RareBusFaults, SyncPropertiesThatCannotBeRead)
{
    EXPECT_EQ(SyncDaemonDbusHandler::HasActiveSyncs(flag_), -ENXIO);
    EXPECT_EQ(SyncDaemonDbusHandler::GetSyncStatus(text_), -ENXIO);
    EXPECT_EQ(SyslogCapture::Take(),
              (Lines{{LOG_ERR, "SyncDaemonDbusHandler::HasActiveSyncs: sd_bus_message_read failed"},
                     {LOG_ERR, "SyncDaemonDbusHandler::GetSyncStatus: sd_bus_message_read failed r = -6"}}));
    EXPECT_TRUE(flag_);
    EXPECT_EQ(text_, "untouched");
}

TEST_F(RareBusFaults, TimedatePropertiesThatCannotBeRead)
{
    EXPECT_EQ(SystemdDateTime::GetNTP(flag_), -ENXIO);
    EXPECT_EQ(SystemdDateTime::GetTimezone(text_), -ENXIO);
    EXPECT_EQ(
        SyslogCapture::Take(),
        (Lines{{LOG_ERR, "int SystemdDateTime::GetNTP(bool&): sd_bus_message_read failed"},
               {LOG_ERR, "int SystemdDateTime::GetTimezone(std::__cxx11::string&): sd_bus_message_read failed"}}));
    EXPECT_TRUE(flag_);
    EXPECT_EQ(text_, "untouched");
}

TEST_F(RareBusFaults, TimedateMessagesThatCannotBeMadeAreFailedCalls)
{
    EXPECT_EQ(SystemdDateTime::SetTime(1), -ENOMEM);
    EXPECT_EQ(SystemdDateTime::SetNTP(true), -ENOMEM);
    EXPECT_EQ(SyslogCapture::Take(), (Lines{{LOG_DEBUG, "int SystemdDateTime::SetTime(uint64_t): usec = 1"},
                                            {LOG_ERR, "int SystemdDateTime::SetTime(uint64_t): Cannot call method: "
                                                      "Cannot allocate memory"}}));
}

TEST(SyncHandlerWithoutALoop, CannotListen)
{
    SyslogCapture::Take();
    EXPECT_EQ(SyncDaemonDbusHandler(nullptr).Listen(), -EINVAL);
    EXPECT_EQ(SyslogCapture::Take(), (Lines{{LOG_ERR, "SyncDaemonDbusHandler: Failed to init signal listeners"}}));
}

} // namespace
