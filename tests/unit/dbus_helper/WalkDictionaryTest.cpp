#include "dbus_helper/PropertyMap.h"
#include "tests/unit/support/SyslogCapture.h"
#include "tests/unit/support/TestMessage.h"

#include <gtest/gtest.h>

#include <functional>

namespace
{

using sdbus_utils::WalkDictionary;
using std::string;
using Strings = std::vector<string>;

/// "first" 1, "second" a structure, "third" a text; then the number 9.
class Walk : public testing::Test
{
  protected:
    Walk()
    {
        message_.AddDictionary([&] {
            message_.AddEntry("first", int32_t{1})
                .AddEntry("second", std::tuple(2, Strings{"x"}))
                .AddEntry("third", string("3"));
        });
        message_.Add(int32_t{9});
        SyslogCapture::Take();
    }

    void ExpectAtTheEnd()
    {
        int32_t number = 0;
        EXPECT_GT(DbusHelper::Codec<int32_t>::Read(message_.Get(), number), 0);
        EXPECT_EQ(number, 9);
    }

    TestMessage message_;
    Strings seen_;
};

TEST_F(Walk, DeclinedEntriesAreSkipped)
{
    int mine = 0;
    const auto visitor = [&](sd_bus_message* message, void* userData, const char* contents, const char* key) {
        EXPECT_EQ(message, message_.Get());
        EXPECT_EQ(userData, &mine);
        seen_.push_back(string(key) + " " + contents);
        return false;
    };
    EXPECT_EQ(WalkDictionary(message_.Read(), visitor, &mine), 0);
    EXPECT_EQ(seen_, (Strings{"first i", "second (ias)", "third s"}));
    EXPECT_TRUE(SyslogCapture::Take().empty());
    ExpectAtTheEnd();
}

TEST_F(Walk, AcceptedEntriesHaveBeenRead)
{
    const auto visitor = [&](sd_bus_message* message, void*, const char* contents, const char*) {
        string text;
        return string(contents) == "s" && DbusHelper::Codec<string>::Read(message, text) > 0 &&
               (seen_.push_back(text), true);
    };
    EXPECT_EQ(WalkDictionary(message_.Read(), visitor, nullptr), 0);
    EXPECT_EQ(seen_, Strings{"3"});
    EXPECT_TRUE(SyslogCapture::Take().empty());
    ExpectAtTheEnd();
}

TEST_F(Walk, AnAcceptedEntryThatWasNotReadEndsTheWalk)
{
    const auto visitor = [&](sd_bus_message*, void*, const char*, const char* key) {
        seen_.emplace_back(key);
        return true;
    };
    EXPECT_EQ(WalkDictionary(message_.Read(), visitor, nullptr), -ENXIO); // what entering the next entry gives
    EXPECT_EQ(seen_, Strings{"first"});
}

TEST_F(Walk, AnEntryThatCannotBeSkippedIsLoggedAndTheWalkGoesOn)
{
    const auto visitor = [&](sd_bus_message* message, void*, const char* contents, const char* key) {
        seen_.emplace_back(key);
        EXPECT_GE(sd_bus_message_skip(message, contents), 0); // and then it is declined all the same
        return false;
    };
    EXPECT_EQ(WalkDictionary(message_.Read(), visitor, nullptr), 0);
    EXPECT_EQ(seen_, (Strings{"first", "second", "third"}));
    EXPECT_EQ(SyslogCapture::Take(),
              (std::vector<SyslogCapture::Line>{{LOG_ERR, " i Failed to skip first, type: i"},
                                                {LOG_ERR, " ( Failed to skip second, type: (ias)"},
                                                {LOG_ERR, " s Failed to skip third, type: s"}}));
    ExpectAtTheEnd();
}

TEST_F(Walk, AnEmptyVisitorThrowsAtTheFirstEntry)
{
    EXPECT_THROW(WalkDictionary(message_.Read(), {}, nullptr), std::bad_function_call);
}

TEST(WalkDictionary, AnEmptyDictionaryNeedsNoVisitor)
{
    TestMessage message;
    message.AddDictionary([] {});
    EXPECT_EQ(WalkDictionary(message.Read(), {}, nullptr), 0);
}

TEST(WalkDictionary, SomethingElseIsAFailure)
{
    TestMessage text;
    text.Add(string("x"));
    TestMessage texts;
    texts.Add(Strings{"x"});
    TestMessage nothing;
    EXPECT_EQ(WalkDictionary(text.Read(), {}, nullptr), -ENXIO);
    EXPECT_EQ(WalkDictionary(texts.Read(), {}, nullptr), -ENXIO);
    EXPECT_EQ(WalkDictionary(nothing.Read(), {}, nullptr), -ENXIO);
}

} // namespace
