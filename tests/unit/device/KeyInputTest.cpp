#include "device/KeyInput.h"

#include "tests/unit/device/HardwareStandIn.h"
#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>

namespace
{

using ControllerDaemon::KeyInput;
using HardwareStandIn::TheKeypad;
using testing::ElementsAre;
using Line = SyslogCapture::Line;
using Key = std::tuple<uint32_t, uint32_t, int>;

class KeyInputTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        TheKeypad() = {};
        TheKeypad().descriptor = eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
        sd_event_new(&loop_);
        SyslogCapture::Take();
    }
    void TearDown() override
    {
        sd_event_unref(loop_);
        close(TheKeypad().descriptor);
    }

    sd_event* loop_ = nullptr;
};

TEST_F(KeyInputTest, SaysWhichStepFailedAndGoesNoFurther)
{
    const auto failure = [this](const char* text) {
        const KeyInput input(loop_);
        EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, text}));
        EXPECT_EQ(sd_event_run(loop_, 0), 0); // nothing is on the loop
    };
    TheKeypad().hasUdev = false;
    failure("Failed to create udev instance");
    TheKeypad().hasUdev = true;
    TheKeypad().hasContext = false;
    failure("Failed to create libinput context");
    TheKeypad().hasContext = true;
    TheKeypad().hasSeat = false;
    failure("Failed to assign libinput seat");
}

TEST_F(KeyInputTest, WithoutALoopSaysSo)
{
    const KeyInput input(nullptr);
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, "Failed to register io event"}));
}

TEST_F(KeyInputTest, TellsAllKeysThatAreQueuedInOrderAndNothingElse)
{
    KeyInput input(loop_);
    std::vector<Key> keys;
    std::vector<uint32_t> heardLater;
    input.KeyChanged().connect([&](uint32_t key, uint32_t time, int state) { keys.emplace_back(key, time, state); });
    input.KeyChanged().connect([&](uint32_t key, uint32_t, int) {
        EXPECT_EQ(key, std::get<0>(keys.back())); // slots are called in the order of their connection
        heardLater.push_back(key);
    });
    TheKeypad().events = {
        {LIBINPUT_EVENT_DEVICE_ADDED, 1, 1, LIBINPUT_KEY_STATE_PRESSED},
        {LIBINPUT_EVENT_KEYBOARD_KEY, 59, 1000, LIBINPUT_KEY_STATE_PRESSED},
        {LIBINPUT_EVENT_POINTER_BUTTON, 272, 1001, LIBINPUT_KEY_STATE_PRESSED},
        {LIBINPUT_EVENT_KEYBOARD_KEY, 60, 1002, LIBINPUT_KEY_STATE_PRESSED},
        {LIBINPUT_EVENT_TOUCH_DOWN, 2, 1003, LIBINPUT_KEY_STATE_PRESSED},
        {LIBINPUT_EVENT_KEYBOARD_KEY, 59, 4294967295, LIBINPUT_KEY_STATE_RELEASED},
    };
    EXPECT_GT(sd_event_run(loop_, 0), 0);
    EXPECT_THAT(keys, ElementsAre(Key{59, 1000, 1}, Key{60, 1002, 1}, Key{59, 4294967295, 0}));
    EXPECT_THAT(heardLater, ElementsAre(59, 60, 59));
    EXPECT_EQ(TheKeypad().destroyed, 6);
    EXPECT_EQ(TheKeypad().dispatched, 1);
}

TEST_F(KeyInputTest, WithNothingQueuedTellsNothing)
{
    KeyInput input(loop_);
    input.KeyChanged().connect([](uint32_t, uint32_t, int) { ADD_FAILURE(); });
    EXPECT_GT(sd_event_run(loop_, 0), 0);
    EXPECT_EQ(TheKeypad().dispatched, 1);
}

TEST_F(KeyInputTest, OpensDevicesLikeOpen)
{
    const KeyInput input(loop_);
    const libinput_interface& access = *TheKeypad().access;
    errno = 0;
    EXPECT_EQ(access.open_restricted("/nonexistent", O_RDWR, nullptr), -1); // and not the errno
    EXPECT_EQ(errno, ENOENT);
    const int descriptor = access.open_restricted("/dev/null", O_RDONLY | O_CLOEXEC, nullptr);
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_ACCMODE, O_RDONLY);
    access.close_restricted(descriptor, nullptr);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

} // namespace
