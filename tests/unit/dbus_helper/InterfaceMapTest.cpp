#include "dbus_helper/SdbusUtils.h"
#include "tests/unit/support/TestMessage.h"

#include <gtest/gtest.h>

namespace
{

using sdbus_utils::InterfaceMap;
using sdbus_utils::InterfacesStep;
using sdbus_utils::ParseInterfaceAdded;
using sdbus_utils::ParseInterfaceRemoved;
using std::string;
using Strings = std::vector<string>;

void AddPath(TestMessage& message) { ASSERT_GE(sd_bus_message_append_basic(message.Get(), 'o', "/device"), 0); }

TEST(InterfacesAdded, EachInterfaceHasItsProperties)
{
    TestMessage message;
    AddPath(message);
    message.AddContainer('a', "{sa{sv}}", [&] {
        message.AddContainer('e', "sa{sv}", [&] {
            message.Add(string("z.Second"));
            message.AddDictionary([&] { message.AddEntry("Id", string("card")).AddEntry("Free", uint64_t{5}); });
        });
        message.AddContainer('e', "sa{sv}", [&] {
            message.Add(string("a.First"));
            message.AddDictionary([] {});
        });
    });
    string path;
    InterfaceMap interfaces;
    InterfacesStep step{};
    ASSERT_GE(ParseInterfaceAdded(message.Read(), path, interfaces, step), 0);
    EXPECT_EQ(step, InterfacesStep::Done);
    EXPECT_EQ(path, "/device");
    ASSERT_EQ(interfaces.size(), 2U);
    EXPECT_TRUE(interfaces["a.First"].empty());
    EXPECT_EQ(std::any_cast<string>(interfaces["z.Second"]["Id"]), "card");
    EXPECT_EQ(std::any_cast<uint64_t>(interfaces["z.Second"]["Free"]), 5U);
}

TEST(InterfacesAdded, NoInterfaceAtAll)
{
    TestMessage message;
    AddPath(message);
    message.AddContainer('a', "{sa{sv}}", [] {});
    string path;
    InterfaceMap interfaces;
    InterfacesStep step{};
    EXPECT_GE(ParseInterfaceAdded(message.Read(), path, interfaces, step), 0);
    EXPECT_EQ(step, InterfacesStep::Done);
    EXPECT_TRUE(interfaces.empty());
}

TEST(InterfacesAdded, SomethingElseFailsAtTheInterfaces)
{
    TestMessage nothing;
    TestMessage text;
    text.Add(string("/device"));
    TestMessage pathAlone;
    AddPath(pathAlone);
    TestMessage names;
    AddPath(names);
    names.Add(Strings{"a.First"});
    for (TestMessage* message : {&nothing, &text, &pathAlone, &names})
    {
        string path;
        InterfaceMap interfaces;
        InterfacesStep step = InterfacesStep::Done;
        EXPECT_EQ(ParseInterfaceAdded(message->Read(), path, interfaces, step), -ENXIO);
        EXPECT_EQ(step, InterfacesStep::Interface);
    }
}

TEST(InterfacesRemoved, PathAndNames)
{
    TestMessage message;
    AddPath(message);
    message.Add(Strings{"b", "a"});
    string path;
    Strings names{"before"};
    EXPECT_GE(ParseInterfaceRemoved(message.Read(), path, names), 0);
    EXPECT_EQ(path, "/device");
    EXPECT_EQ(names, (Strings{"b", "a"}));
}

TEST(InterfacesRemoved, SomethingElseLeavesTheNamesAsTheyWere)
{
    TestMessage nothing;
    TestMessage pathAlone;
    AddPath(pathAlone);
    TestMessage number;
    AddPath(number);
    number.Add(5);
    for (TestMessage* message : {&nothing, &pathAlone, &number})
    {
        string path;
        Strings names{"before"};
        EXPECT_LT(ParseInterfaceRemoved(message->Read(), path, names), 0);
        EXPECT_EQ(names, Strings{"before"});
    }
}

} // namespace
