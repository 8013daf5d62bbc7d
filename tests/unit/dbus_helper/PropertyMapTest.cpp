#include "dbus_helper/PropertyMap.h"

#include "tests/unit/support/SyslogCapture.h"
#include "tests/unit/support/TestMessage.h"

#include <gtest/gtest.h>

namespace
{

using sdbus_utils::ParseProperties;
using sdbus_utils::ParsePropertiesWithType;
using sdbus_utils::PropertyMap;
using sdbus_utils::TypedPropertyMap;
using std::string;
using Strings = std::vector<string>;

const Strings list{"x", "", "a"};

void AddOneOfEach(TestMessage& message)
{
    message.AddDictionary([&] {
        message.AddEntry("b", true)
            .AddEntry("y", uint8_t{255})
            .AddEntry("n", int16_t{-32768})
            .AddEntry("q", uint16_t{65535})
            .AddEntry("i", int32_t{-5})
            .AddEntry("u", uint32_t{4000000000})
            .AddEntry("x", int64_t{-1} << 40)
            .AddEntry("t", uint64_t{1} << 63)
            .AddEntry("d", 0.25)
            .AddEntry("s", string("text"))
            .AddEntry("as", list)
            .AddEntry("o", "o", [&] { sd_bus_message_append_basic(message.Get(), 'o', "/a/b"); })
            .AddEntry("g", "g", [&] { sd_bus_message_append_basic(message.Get(), 'g', "a{sv}"); });
    });
}

TEST(PropertyMap, EveryKnownTypeIsHeldAsItsNativeType)
{
    TestMessage message;
    AddOneOfEach(message);
    PropertyMap map;
    ASSERT_GE(ParseProperties(message.Read(), map), 0);
    ASSERT_EQ(map.size(), 13U);
    EXPECT_EQ(std::any_cast<bool>(map["b"]), true);
    EXPECT_EQ(std::any_cast<uint8_t>(map["y"]), 255);
    EXPECT_EQ(std::any_cast<int16_t>(map["n"]), -32768);
    EXPECT_EQ(std::any_cast<uint16_t>(map["q"]), 65535);
    EXPECT_EQ(std::any_cast<int32_t>(map["i"]), -5);
    EXPECT_EQ(std::any_cast<uint32_t>(map["u"]), 4000000000);
    EXPECT_EQ(std::any_cast<int64_t>(map["x"]), int64_t{-1} << 40);
    EXPECT_EQ(std::any_cast<uint64_t>(map["t"]), uint64_t{1} << 63);
    EXPECT_EQ(std::any_cast<double>(map["d"]), 0.25);
    EXPECT_EQ(std::any_cast<string>(map["s"]), "text");
    EXPECT_EQ(std::any_cast<string>(map["o"]), "/a/b");
    EXPECT_EQ(std::any_cast<string>(map["g"]), "a{sv}");
    EXPECT_EQ(std::any_cast<Strings>(map["as"]), list);
}

TEST(PropertyMap, TypesComeWithTheirSignature)
{
    TestMessage message;
    AddOneOfEach(message);
    PropertyMap plain;
    TypedPropertyMap typed;
    ASSERT_GE(ParseProperties(message.Read(), plain), 0);
    ASSERT_GE(ParsePropertiesWithType(message.Read(), typed), 0);
    ASSERT_EQ(typed.size(), plain.size());
    for (const auto& [name, entry] : typed)
    {
        EXPECT_EQ(entry.first, name);
        EXPECT_EQ(entry.second.type(), plain[name].type()) << name;
    }
}

TEST(PropertyMap, AValueTakenOutAsAnotherTypeThrows)
{
    TestMessage message;
    message.AddDictionary([&] { message.AddEntry("duration", int32_t{5}); });
    TypedPropertyMap map;
    ASSERT_GE(ParsePropertiesWithType(message.Read(), map), 0);
    EXPECT_EQ(map["duration"].first, "i");
    EXPECT_THROW((void)std::any_cast<uint32_t>(map["duration"].second), std::bad_any_cast);
}

TEST(PropertyMap, UnknownTypesAreLeftOut)
{
    TestMessage message;
    message.AddDictionary([&] {
        message.AddEntry("a", int32_t{1})
            .AddEntry("structure", std::tuple(1, string("x")))
            .AddEntry("bytes", std::vector<uint8_t>{1, 2})
            .AddEntry("nested", std::vector<Strings>{{"a"}, {}})
            .AddEntry("dictionary", "a{sv}", [&] { AddOneOfEach(message); })
            .AddEntry("variant", "v", [&] { message.AddContainer('v', "i", [&] { message.Add(5); }); })
            .AddEntry("z", string("last"));
    });
    PropertyMap map;
    ASSERT_GE(ParseProperties(message.Read(), map), 0);
    ASSERT_EQ(map.size(), 2U);
    EXPECT_EQ(std::any_cast<int32_t>(map["a"]), 1);
    EXPECT_EQ(std::any_cast<string>(map["z"]), "last");
    EXPECT_TRUE(SyslogCapture::Take().empty());
}

TEST(PropertyMap, IsOrderedByBytesAndTheLastOfANameHolds)
{
    TestMessage message;
    message.AddDictionary([&] {
        for (const char* name : {"period", "enabled", "\xC3\xA4", "Z", "beeps", "duration", ""})
        {
            message.AddEntry(name, uint32_t{1});
        }
        message.AddEntry("beeps", uint32_t{2});
    });
    TypedPropertyMap map;
    ASSERT_GE(ParsePropertiesWithType(message.Read(), map), 0);
    Strings names;
    for (const auto& [name, entry] : map)
    {
        names.push_back(name);
    }
    EXPECT_EQ(names, (Strings{"", "Z", "beeps", "duration", "enabled", "period", "\xC3\xA4"}));
    EXPECT_EQ(std::any_cast<uint32_t>(map["beeps"].second), 2U);
}

TEST(PropertyMap, AnEmptyDictionaryEmptiesTheMap)
{
    TestMessage message;
    message.AddDictionary([] {});
    PropertyMap map{{"old", 1}};
    EXPECT_EQ(ParseProperties(message.Read(), map), 0);
    EXPECT_TRUE(map.empty());
}

TEST(PropertyMap, TenThousandEntries)
{
    TestMessage message;
    message.AddDictionary([&] {
        for (int32_t i = 0; i < 10000; ++i)
        {
            message.AddEntry("key" + std::to_string(i), i);
        }
    });
    PropertyMap map;
    ASSERT_GE(ParseProperties(message.Read(), map), 0);
    ASSERT_EQ(map.size(), 10000U);
    for (int32_t i = 0; i < 10000; ++i)
    {
        ASSERT_EQ(std::any_cast<int32_t>(map["key" + std::to_string(i)]), i);
    }
}

TEST(PropertyMap, SomethingElseLeavesTheMapAsItWas)
{
    TestMessage text;
    text.Add(string("x"));
    TestMessage otherDictionary;
    otherDictionary.AddContainer('a', "{ss}", [&] {
        otherDictionary.AddContainer('e', "ss", [&] { otherDictionary.Add(string("a"), string("b")); });
    });
    TestMessage nothing;
    for (TestMessage* message : {&text, &otherDictionary, &nothing})
    {
        PropertyMap plain{{"old", 1}};
        TypedPropertyMap typed{{"old", {"i", 1}}};
        EXPECT_EQ(ParseProperties(message->Read(), plain), -ENXIO);
        EXPECT_EQ(ParsePropertiesWithType(message->Read(), typed), -ENXIO);
        EXPECT_EQ(plain.size(), 1U);
        EXPECT_EQ(typed.size(), 1U);
    }
}

TEST(PropertyMap, WhatFollowsTheDictionaryIsReadable)
{
    TestMessage message;
    AddOneOfEach(message);
    message.Add(Strings{"invalidated"});
    PropertyMap map;
    Strings rest;
    ASSERT_GE(ParseProperties(message.Read(), map), 0);
    EXPECT_GT(DbusHelper::Codec<Strings>::Read(message.Get(), rest), 0);
    EXPECT_EQ(rest, Strings{"invalidated"});
}

} // namespace
