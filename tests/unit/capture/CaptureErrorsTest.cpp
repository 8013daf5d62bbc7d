#include "capture/CaptureErrors.h"

#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>

namespace
{

using namespace ControllerDaemon;
using DbusHelper::CaptureErrorCode;
using DbusHelper::CaptureRuntimeError;
using DbusHelper::CaptureType;
using DbusHelper::PlaybackErrorCode;
using DbusHelper::PlaybackRuntimeError;
using testing::ElementsAre;
using Line = SyslogCapture::Line;

struct Expected
{
    int32_t code;
    std::string text;
};

const Expected captureReasons[] = {
    {0, "Ran successfully"},
    {-1, "Unknown error"},
    {-2, "Power is too low - unable to record"},
    {-3, "Storage is too low - unable to record"},
    {-4, "Unable to create path for recording"},
    {-5, "Recording file already exists - unable to overwrite"},
    {-6, "Recording file already exists - overwrite existing file?"},
    {-7, "No current job - unable to record"},
    {-8, "Not in correct state to perform record action"},
    {-9, "No storage available"},
    {-10, "Failed to add media item to job"},
    {-11, "Invalid capture error"},
    {1, "Invalid capture error"},
    {INT32_MAX, "Invalid capture error"},
    {INT32_MIN, "Invalid capture error"},
};

const Expected playbackReasons[] = {
    {0, "Ran successfully"},
    {-1, "Unknown error"},
    {-2, "Playback file doesn't exist"},
    {-3, "Not in correct state to perform playback action"},
    {-4, "Invalid playback error"},
    {1, "Invalid playback error"},
};

TEST(CaptureErrors, EveryCaptureCodeHasItsTextAndLevel)
{
    SyslogCapture::Take();
    for (const auto& [code, text] : captureReasons)
    {
        EXPECT_EQ(CaptureErrorReason(static_cast<CaptureErrorCode>(code)), text);
        EXPECT_THAT(SyslogCapture::Take(),
                    ElementsAre(Line{code == 0 ? LOG_INFO : LOG_ERR, "[CaptureError::ErrorReason] " + text}));
    }
}

TEST(CaptureErrors, EveryPlaybackCodeHasItsTextAndLevel)
{
    SyslogCapture::Take();
    for (const auto& [code, text] : playbackReasons)
    {
        EXPECT_EQ(PlaybackErrorReason(static_cast<PlaybackErrorCode>(code)), text);
        EXPECT_THAT(SyslogCapture::Take(),
                    ElementsAre(Line{code == 0 ? LOG_INFO : LOG_ERR, "[PlaybackError::ErrorReason] " + text}));
    }
}

const Expected captureRuntimeErrors[] = {
    {-1, "Unknown runtime error"},
    {-2, "Power is too low - unable to continue recording"},
    {-3, "Storage is too low - unable to continue recording"},
    {-4, "Storage was removed - unable to continue recording"},
    {-5, "Invalid capture runtime error"},
    {0, "Invalid capture runtime error"},
};

const Expected captureTypes[] = {
    {0, "Autolog file size limit reached."},
    {1, "PhotoTalk file size limit reached."},
    {2, "Video file size limit reached."},
    {3, "Invalid capture type"},
    {-1, "Invalid capture type"},
};

const Expected playbackRuntimeErrors[] = {
    {-1, "Unknown runtime error"},
    {-2, "Power is too low - unable to continue playback"},
    {-3, "Storage was removed - unable to continue playback"},
    {-4, "Invalid playback runtime error"},
};

/// A bus that is connected to the test itself by a socket pair, so that what is emitted can be read back.
class EmittedSignals : public testing::Test
{
  protected:
    void SetUp() override
    {
        int sockets[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sockets), 0);
        sender_ = Open(sockets[0], false);
        receiver_ = Open(sockets[1], true);
        SyslogCapture::Take();
    }

    void TearDown() override
    {
        sd_bus_close_unref(sender_);
        sd_bus_close_unref(receiver_);
    }

    static sd_bus* Open(int descriptor, bool server)
    {
        sd_bus* bus = nullptr;
        sd_id128_t id{};
        EXPECT_GE(sd_bus_new(&bus), 0);
        EXPECT_GE(sd_bus_set_fd(bus, descriptor, descriptor), 0);
        EXPECT_GE(server ? sd_bus_set_server(bus, 1, id) : 0, 0);
        EXPECT_GE(sd_bus_set_anonymous(bus, 1), 0);
        EXPECT_GE(sd_bus_start(bus), 0);
        return bus;
    }

    void ExpectReceived(const std::string& member, int32_t code, const std::string& text)
    {
        sd_bus_message* message = nullptr;
        while (message == nullptr)
        {
            sd_bus_process(sender_, nullptr);
            ASSERT_GE(sd_bus_process(receiver_, &message), 0);
        }
        int32_t receivedCode = 0;
        const char* receivedText = nullptr;
        EXPECT_GT(sd_bus_message_is_signal(message, "com.tavilon.common.Controller1.Control", member.c_str()), 0);
        EXPECT_STREQ(sd_bus_message_get_path(message), "/com/tavilon/common/Controller1");
        EXPECT_GT(sd_bus_message_read(message, "is", &receivedCode, &receivedText), 0);
        EXPECT_EQ(receivedCode, code);
        EXPECT_EQ(receivedText, text);
        sd_bus_message_unref(message);
    }

    sd_bus* sender_ = nullptr;
    sd_bus* receiver_ = nullptr;
};

TEST_F(EmittedSignals, CaptureErrorCarriesCodeAndText)
{
    for (const auto& [code, text] : captureRuntimeErrors)
    {
        EmitCaptureError(sender_, static_cast<CaptureRuntimeError>(code));
        EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, "[CaptureError::EmitError] " + text}));
        ExpectReceived("CaptureError", code, text);
    }
}

TEST_F(EmittedSignals, SizeLimitCarriesTypeAndText)
{
    for (const auto& [code, text] : captureTypes)
    {
        EmitCaptureSizeLimitReached(sender_, static_cast<CaptureType>(code));
        EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, "[CaptureError::EmitSizeLimitReached] " + text}));
        ExpectReceived("CaptureSizeLimitReached", code, text);
    }
}

TEST_F(EmittedSignals, PlaybackErrorCarriesCodeAndText)
{
    for (const auto& [code, text] : playbackRuntimeErrors)
    {
        EmitPlaybackError(sender_, static_cast<PlaybackRuntimeError>(code));
        EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, "[Playback::EmitError] " + text}));
        ExpectReceived("PlaybackError", code, text);
    }
}

TEST(CaptureErrors, AFailureToEmitIsLoggedBehindTheText)
{
    SyslogCapture::Take();
    EmitCaptureError(nullptr, CaptureRuntimeError::StorageTooLow);
    EmitCaptureSizeLimitReached(nullptr, CaptureType::Video);
    EmitPlaybackError(nullptr, PlaybackRuntimeError::StorageRemoved);
    const Line failed{LOG_INFO, "Failed to emit signal, error code: -22\n"};
    EXPECT_THAT(
        SyslogCapture::Take(),
        ElementsAre(Line{LOG_ERR, "[CaptureError::EmitError] Storage is too low - unable to continue recording"},
                    failed, Line{LOG_ERR, "[CaptureError::EmitSizeLimitReached] Video file size limit reached."},
                    failed, Line{LOG_ERR, "[Playback::EmitError] Storage was removed - unable to continue playback"},
                    failed));
}

} // namespace
