#include "clients/hardware/BatteryLevelIcons.h"

#include "tests/unit/support/SyslogCapture.h"
#include "tests/unit/support/TestMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace
{

using Halvexd::BatteryLevelIcons;
using Halvexd::ReadBatteryLevelIcons;
using testing::ElementsAre;
using testing::IsEmpty;

/// Bytes that are no UTF-8, which sd-bus refuses to read.
constexpr const char* unreadable = "\xff\xfe";

class BatteryLevelIconsTest : public testing::Test
{
  protected:
    BatteryLevelIconsTest() { SyslogCapture::Take(); }

    int Read(const std::string& text, const std::vector<std::string>& right, const std::vector<std::string>& left)
    {
        message_.AddContainer('r', "sassas", [&] {
            message_.Add(text);
            AppendTexts(right);
            message_.Add(std::string("second text"));
            AppendTexts(left);
        });
        return ReadIcons();
    }

    int ReadIcons() { return ReadBatteryLevelIcons(message_.Read(), icons_); }

    void ExpectError(const std::string& text, int result)
    {
        const std::string line = text + " returned " + std::to_string(result) + "\n";
        EXPECT_THAT(SyslogCapture::Take(), ElementsAre(SyslogCapture::Line{LOG_ERR, line}));
    }

    BatteryLevelIcons icons_;
    TestMessage message_;

  private:
    /// Unchecked, as a faulty peer would.
    void AppendTexts(const std::vector<std::string>& texts)
    {
        message_.AddContainer('a', "s", [&] {
            for (const std::string& text : texts)
            {
                char* place = nullptr;
                ASSERT_GE(sd_bus_message_append_string_space(message_.Get(), text.size(), &place), 0);
                text.copy(place, text.size());
            }
        });
    }
};

TEST_F(BatteryLevelIconsTest, ReadsTextRightAndLeft)
{
    EXPECT_GE(Read("batteries", {"right-80", "right-charging"}, {"left-20"}), 0);
    EXPECT_EQ(icons_.text, "batteries");
    EXPECT_THAT(icons_.right, ElementsAre("right-80", "right-charging"));
    EXPECT_THAT(icons_.left, ElementsAre("left-20"));
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST_F(BatteryLevelIconsTest, ReadsEmptyLists)
{
    EXPECT_GE(Read("", {}, {}), 0);
    EXPECT_THAT(icons_.right, IsEmpty());
    EXPECT_THAT(icons_.left, IsEmpty());
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST_F(BatteryLevelIconsTest, RefusesAnotherTypeWithoutALine)
{
    EXPECT_GE(sd_bus_message_append(message_.Get(), "(sss)", "batteries", "right", "left"), 0);
    EXPECT_EQ(ReadIcons(), -ENXIO);
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

TEST_F(BatteryLevelIconsTest, TellsThatARightNameIsUnreadable)
{
    const int result = Read("batteries", {"right", unreadable}, {"left"});
    EXPECT_EQ(result, -EBADMSG);
    ExpectError("sd_bus_message_read(m, s, &cPtr) for right battery", result);
}

TEST_F(BatteryLevelIconsTest, TellsThatALeftNameIsUnreadable)
{
    const int result = Read("batteries", {"right"}, {"left", unreadable});
    EXPECT_EQ(result, -EBADMSG);
    ExpectError("sd_bus_message_read(m, s, &cPtr) for left battery", result);
}

} // namespace
