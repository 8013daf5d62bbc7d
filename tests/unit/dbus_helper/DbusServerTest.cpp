#include "dbus_helper/DbusServer.h"

#include "dbus_helper/HandlerGuard.h"
#include "tests/unit/support/BusTest.h"

#include <gmock/gmock.h>

#include <any>
#include <functional>
#include <new>
#include <stdexcept>

namespace
{

using DbusHelper::DbusServer;
using DbusHelper::Guard;
using DbusHelper::MessageHandle;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Line = SyslogCapture::Line;

constexpr const char* serverName = "test.Server";
constexpr const char* serverPath = "/test/Server";
constexpr const char* serverInterface = "test.Server.Control";

/// What the handlers do.
std::function<void()> act;

int Method(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
{
    EXPECT_EQ(userData, nullptr);
    act();
    return sd_bus_reply_method_return(message, "");
}

int Getter(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
           sd_bus_message* reply, void* userData, sd_bus_error* /*error*/)
{
    EXPECT_EQ(userData, nullptr);
    act();
    return sd_bus_message_append(reply, "i", 5);
}

int Setter(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
           sd_bus_message* value, void* userData, sd_bus_error* /*error*/)
{
    EXPECT_EQ(userData, nullptr);
    act();
    return sd_bus_message_skip(value, "i");
}

class DbusServerTest : public BusTest
{
  protected:
    DbusServerTest() : server_(serverName, serverPath, serverInterface, false, false, event_)
    {
        act = [] {};
        EXPECT_EQ(AddMethod("First"), 0);
        EXPECT_EQ(server_.AddVtableProperty("Level", "i", &Getter, &Setter, SD_BUS_VTABLE_UNPRIVILEGED), 0);
        EXPECT_EQ(server_.AddVtablePropertyReadOnly("Age", "i", &Getter, 0), 0);
    }

    int32_t AddMethod(const char* member)
    {
        return server_.AddVtableMethod(member, "", "", &Method, SD_BUS_VTABLE_UNPRIVILEGED);
    }

    MessageHandle Message(const char* of, const char* member)
    {
        sd_bus_message* message = nullptr;
        EXPECT_GE(sd_bus_message_new_method_call(other_.get(), &message, serverName, serverPath, of, member), 0);
        return MessageHandle(message);
    }
    std::string Call(const char* member) { return Ask(Message(serverInterface, member).get()); }
    std::string Get(const char* property)
    {
        const MessageHandle message = Message("org.freedesktop.DBus.Properties", "Get");
        EXPECT_GE(sd_bus_message_append(message.get(), "ss", serverInterface, property), 0);
        return Ask(message.get());
    }
    std::string SetLevel()
    {
        const MessageHandle message = Message("org.freedesktop.DBus.Properties", "Set");
        EXPECT_GE(sd_bus_message_append(message.get(), "ssv", serverInterface, "Level", "i", 1), 0);
        return Ask(message.get());
    }

    DbusServer server_;
};

TEST_F(DbusServerTest, ASecondStartLeavesARunningServerAsItIs)
{
    ASSERT_EQ(server_.Start(), 0);
    const sd_bus* bus = server_.GetBus();
    EXPECT_EQ(server_.Start(), 0);
    EXPECT_EQ(server_.GetBus(), bus);
    EXPECT_EQ(Call("First"), "answered");
}

TEST_F(DbusServerTest, MembersAddedAfterAStopAppearAtTheNextStart)
{
    ASSERT_EQ(server_.Start(), 0);
    EXPECT_EQ(AddMethod("Second"), -EBUSY);
    EXPECT_THAT(Call("Second"), HasSubstr("UnknownMethod"));
    server_.Stop();
    EXPECT_EQ(AddMethod("Second"), 0);
    ASSERT_EQ(server_.Start(), 0);
    EXPECT_EQ(Call("First"), "answered");
    EXPECT_EQ(Call("Second"), "answered");
    server_.Stop();
    ASSERT_EQ(server_.Start(), 0);
    EXPECT_EQ(Call("Second"), "answered");
}

TEST_F(DbusServerTest, EachHandlerServesItsOwnMember)
{
    ASSERT_EQ(server_.Start(), 0);
    EXPECT_EQ(Call("First"), "answered");
    EXPECT_EQ(Get("Level"), "answered");
    EXPECT_EQ(Get("Age"), "answered");
    EXPECT_EQ(SetLevel(), "answered");
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST_F(DbusServerTest, ShortageOfMemoryIsAnErrorAndALine)
{
    ASSERT_EQ(server_.Start(), 0);
    act = [] { throw std::bad_alloc(); };
    const std::string answer = "org.freedesktop.DBus.Error.NoMemory: Out of memory";
    EXPECT_EQ(Call("First"), answer);
    EXPECT_EQ(Get("Level"), answer);
    EXPECT_EQ(SetLevel(), answer);
    EXPECT_EQ(Get("Age"), answer);
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, "Exception while serving First: Out of memory"},
                                                   Line{LOG_ERR, "Exception while serving Level: Out of memory"},
                                                   Line{LOG_ERR, "Exception while serving Level: Out of memory"},
                                                   Line{LOG_ERR, "Exception while serving Age: Out of memory"}));
    act = [] {};
    EXPECT_EQ(Call("First"), "answered");
}

TEST_F(DbusServerTest, AnyOtherExceptionIsAFailureInItsWords)
{
    ASSERT_EQ(server_.Start(), 0);
    act = [] { throw std::length_error("too long"); };
    EXPECT_EQ(Call("First"), "org.freedesktop.DBus.Error.Failed: too long");
    act = [] { throw 7; };
    EXPECT_EQ(Call("First"), "org.freedesktop.DBus.Error.Failed: Unknown exception");
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, "Exception while serving First: too long"},
                                                   Line{LOG_ERR, "Exception while serving First: Unknown exception"}));
}

// Both are faults of this program itself, which no message can bring about.
TEST(Guard, AValueThatContradictsItsSignatureAndAnEmptyVisitorEndTheProcess)
{
    EXPECT_DEATH(Guard("it", nullptr, []() -> int { throw std::bad_any_cast(); }), "bad any_cast");
    EXPECT_DEATH(Guard("it", nullptr, []() -> int { throw std::bad_function_call(); }), "bad_function_call");
}

} // namespace
