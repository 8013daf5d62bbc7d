// The texts and numbers that the library gives to other programs are those that the controller sends.
#include "controller_client/ControllerCodes.h"

#include "capture/CaptureErrors.h"
#include "tests/unit/support/SyslogCapture.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace
{

template <typename Ours, typename Theirs>
constexpr bool same = static_cast<int>(Ours::Unknown) == static_cast<int>(Theirs::Unknown) &&
                      static_cast<int>(Ours::PowerTooLow) == static_cast<int>(Theirs::PowerTooLow);

using Ours = Controllerd::CaptureErrorCode;
using Theirs = DbusHelper::CaptureErrorCode;
static_assert(Ours::Success == static_cast<int>(Theirs::Success) && Ours::Unknown == static_cast<int>(Theirs::Unknown));
static_assert(Ours::PowerTooLow == static_cast<int>(Theirs::PowerTooLow));
static_assert(Ours::StorageTooLow == static_cast<int>(Theirs::StorageTooLow));
static_assert(Ours::PathNotCreated == static_cast<int>(Theirs::PathNotCreated));
static_assert(Ours::FileExists == static_cast<int>(Theirs::FileExists));
static_assert(Ours::FileExistsAskOverwrite == static_cast<int>(Theirs::FileExistsAskOverwrite));
static_assert(Ours::NoCurrentJob == static_cast<int>(Theirs::NoCurrentJob));
static_assert(Ours::WrongState == static_cast<int>(Theirs::WrongState));
static_assert(Ours::NoStorage == static_cast<int>(Theirs::NoStorage));
static_assert(Ours::MediaItemNotAdded == static_cast<int>(Theirs::MediaItemNotAdded));

using OurEnd = Controllerd::CaptureRuntimeError;
using TheirEnd = DbusHelper::CaptureRuntimeError;
static_assert(same<OurEnd, TheirEnd>);
static_assert(OurEnd::StorageTooLow == static_cast<int>(TheirEnd::StorageTooLow));
static_assert(OurEnd::StorageRemoved == static_cast<int>(TheirEnd::StorageRemoved));

using OurType = Controllerd::CaptureType;
using TheirType = DbusHelper::CaptureType;
static_assert(OurType::AutoLog == static_cast<int>(TheirType::AutoLog));
static_assert(OurType::PhotoTalk == static_cast<int>(TheirType::PhotoTalk));
static_assert(OurType::Video == static_cast<int>(TheirType::Video));

using OurPlayback = Controllerd::PlaybackErrorCode;
using TheirPlayback = DbusHelper::PlaybackErrorCode;
static_assert(OurPlayback::Success == static_cast<int>(TheirPlayback::Success));
static_assert(OurPlayback::Unknown == static_cast<int>(TheirPlayback::Unknown));
static_assert(OurPlayback::NoFile == static_cast<int>(TheirPlayback::NoFile));
static_assert(OurPlayback::WrongState == static_cast<int>(TheirPlayback::WrongState));

using OurPlaybackEnd = Controllerd::PlaybackRuntimeError;
using TheirPlaybackEnd = DbusHelper::PlaybackRuntimeError;
static_assert(same<OurPlaybackEnd, TheirPlaybackEnd>);
static_assert(OurPlaybackEnd::StorageRemoved == static_cast<int>(TheirPlaybackEnd::StorageRemoved));

const int numbers[] = {INT_MIN, -12, -11, -10, -9, -8, -7, -6, -5, -4, -3, -2, -1, 0, 1, 2, 3, INT_MAX};

TEST(ControllerCodes, HaveTheTextsThatTheControllerAnswers)
{
    for (const int number : numbers)
    {
        EXPECT_STREQ(Ours::Text(number), ControllerDaemon::CaptureErrorReason(static_cast<Theirs>(number)));
        EXPECT_STREQ(OurPlayback::Text(number),
                     ControllerDaemon::PlaybackErrorReason(static_cast<TheirPlayback>(number)));
    }
}

/// What follows the prefix in the log when a signal is emitted, which is the signal's text.
template <typename Emit>
std::string Emitted(Emit emit)
{
    SyslogCapture::Take();
    emit();
    const std::string line = SyslogCapture::Take().front().text;
    return line.substr(line.find("] ") + 2);
}

TEST(ControllerCodes, HaveTheTextsThatTheControllerEmits)
{
    for (const int number : numbers)
    {
        EXPECT_EQ(OurEnd::Text(number),
                  Emitted([&] { ControllerDaemon::EmitCaptureError(nullptr, static_cast<TheirEnd>(number)); }));
        EXPECT_EQ(OurType::Text(number), Emitted([&] {
                      ControllerDaemon::EmitCaptureSizeLimitReached(nullptr, static_cast<TheirType>(number));
                  }));
        EXPECT_EQ(OurPlaybackEnd::Text(number), Emitted([&] {
                      ControllerDaemon::EmitPlaybackError(nullptr, static_cast<TheirPlaybackEnd>(number));
                  }));
    }
}

} // namespace
