#include "clients/hardware/BatteryLevelIcons.h"

#include "dbus_helper/Handles.h"
#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace
{

using DbusHelper::BusHandle;
using DbusHelper::MessageHandle;
using Halvexd::BatteryLevelIcons;
using Halvexd::ReadBatteryLevelIcons;
using testing::ElementsAre;
using testing::IsEmpty;

/// Bytes that are no UTF-8, which sd-bus refuses to read.
constexpr const char* unreadable = "\xff\xfe";

class BatteryLevelIconsTest : public testing::Test
{
  public:
    BatteryLevelIconsTest(const BatteryLevelIconsTest&) = delete;
    BatteryLevelIconsTest& operator=(const BatteryLevelIconsTest&) = delete;
    BatteryLevelIconsTest(BatteryLevelIconsTest&&) = delete;
    BatteryLevelIconsTest& operator=(BatteryLevelIconsTest&&) = delete;

  protected:
    BatteryLevelIconsTest()
    {
        std::array<int, 2> ends{}; // messages are made for a started bus only: this one talks to nobody
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
        peer_ = ends[1];
        sd_bus* bus = nullptr;
        EXPECT_GE(sd_bus_new(&bus), 0);
        bus_.reset(bus);
        EXPECT_GE(sd_bus_set_fd(bus, ends[0], ends[0]), 0);
        EXPECT_GE(sd_bus_start(bus), 0);
        sd_bus_message* message = nullptr;
        EXPECT_GE(sd_bus_message_new(bus, &message, SD_BUS_MESSAGE_METHOD_CALL), 0);
        message_.reset(message);
        SyslogCapture::Take();
    }

    ~BatteryLevelIconsTest() override { close(peer_); }

    int Read(const std::string& text, const std::vector<std::string>& right, const std::vector<std::string>& left)
    {
        EXPECT_GE(sd_bus_message_open_container(message_.get(), 'r', "sassas"), 0);
        EXPECT_GE(sd_bus_message_append_basic(message_.get(), 's', text.c_str()), 0);
        AppendTexts(right);
        EXPECT_GE(sd_bus_message_append_basic(message_.get(), 's', "second text"), 0);
        AppendTexts(left);
        EXPECT_GE(sd_bus_message_close_container(message_.get()), 0);
        return ReadSealed();
    }

    int ReadSealed()
    {
        EXPECT_GE(sd_bus_message_seal(message_.get(), 1, 0), 0);
        EXPECT_GE(sd_bus_message_rewind(message_.get(), 1), 0);
        return ReadBatteryLevelIcons(message_.get(), icons_);
    }

    void ExpectError(const std::string& text, int result)
    {
        const std::string line = text + " returned " + std::to_string(result) + "\n";
        EXPECT_THAT(SyslogCapture::Take(), ElementsAre(SyslogCapture::Line{LOG_ERR, line}));
    }

    BatteryLevelIcons icons_;
    MessageHandle message_;

  private:
    /// Unchecked, as a faulty peer would.
    void AppendTexts(const std::vector<std::string>& texts)
    {
        EXPECT_GE(sd_bus_message_open_container(message_.get(), 'a', "s"), 0);
        for (const std::string& text : texts)
        {
            char* place = nullptr;
            ASSERT_GE(sd_bus_message_append_string_space(message_.get(), text.size(), &place), 0);
            text.copy(place, text.size());
        }
        EXPECT_GE(sd_bus_message_close_container(message_.get()), 0);
    }

    int peer_ = -1;
    BusHandle bus_;
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
    EXPECT_GE(sd_bus_message_append(message_.get(), "(sss)", "batteries", "right", "left"), 0);
    EXPECT_EQ(ReadSealed(), -ENXIO);
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
