// Requests whose arguments cannot be read. The server's table keeps them from the handlers, which must be able to stand
// on their own all the same: here they are objects of a peer connection that checks nothing.
#include "capture/SnapshotCapture.h"
#include "capture/VideoPlayback.h"
#include "dbus_helper/Handles.h"
#include "tests/unit/support/SyslogCapture.h"
#include "tests/unit/support/TestMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <syslog.h>

namespace
{

using namespace ControllerDaemon;
using DbusHelper::Handler;
using DbusHelper::OnMethodCall;
using DbusHelper::OnPropertyAccess;
using testing::ElementsAre;
using Line = SyslogCapture::Line;

const std::string shape = "(sd_bus_message*, void*, sd_bus_error*)";
const std::string propertyShape =
    "(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*)";

/// A connection and its peer, in one process.
class PeerPair
{
  public:
    explicit PeerPair(sd_bus_message_handler_t handler)
    {
        int ends[2];
        sd_id128_t id{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        server_ = Open(ends[0]);
        EXPECT_GE(sd_bus_set_server(server_.get(), 1, id), 0);
        client_ = Open(ends[1]);
        EXPECT_GE(sd_bus_start(server_.get()), 0);
        EXPECT_GE(sd_bus_start(client_.get()), 0);
        EXPECT_GE(sd_bus_add_object(server_.get(), nullptr, "/object", handler, nullptr), 0);
    }

    /// Calls the handler with a text as the only argument; returns the reply.
    DbusHelper::MessageHandle CallWithText()
    {
        sd_bus_message* reply = nullptr;
        const auto keep = [](sd_bus_message* message, void* kept, sd_bus_error* /*error*/) {
            *static_cast<sd_bus_message**>(kept) = sd_bus_message_ref(message);
            return 0;
        };
        EXPECT_GE(sd_bus_call_method_async(client_.get(), nullptr, nullptr, "/object", "a.b", "Member", keep, &reply,
                                           "s", "text"),
                  0);
        while (reply == nullptr && sd_bus_process(client_.get(), nullptr) >= 0 &&
               sd_bus_process(server_.get(), nullptr) >= 0)
        {}
        return DbusHelper::MessageHandle(reply);
    }

  private:
    static DbusHelper::BusHandle Open(int end)
    {
        sd_bus* bus = nullptr;
        EXPECT_GE(sd_bus_new(&bus), 0);
        EXPECT_GE(sd_bus_set_fd(bus, end, end), 0);
        return DbusHelper::BusHandle(bus);
    }

    DbusHelper::BusHandle server_;
    DbusHelper::BusHandle client_;
};

TEST(MalformedRequest, SnapshotAnswersWithoutAPath)
{
    SyslogCapture::Take();
    const auto reply = PeerPair(&OnMethodCall<Handler(&SnapshotCapture::Snapshot)>).CallWithText();
    std::tuple<std::string, int32_t, std::string> answer;
    ASSERT_GE((DbusHelper::Sequence<std::string, int32_t, std::string>::Read(reply.get(), answer)), 0);
    EXPECT_EQ(answer, std::make_tuple("", -1, "Unknown error"));
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_ERR, "static int ControllerDaemon::SnapshotCapture::Snapshot" + shape +
                                              " sd_bus_message_read() failed"},
                            Line{LOG_ERR, "[CaptureError::ErrorReason] Unknown error"}));
}

TEST(MalformedRequest, PlaybackAnswersAnUnknownError)
{
    using Callback = std::pair<const char*, sd_bus_message_handler_t>;
    for (const auto& [name, handler] :
         {Callback{"VideoPlaybackStart", &OnMethodCall<&VideoPlayback::VideoPlaybackStart>},
          Callback{"VideoPlaybackStop", &OnMethodCall<&VideoPlayback::VideoPlaybackStop>},
          Callback{"VideoPlaybackSeek", &OnMethodCall<&VideoPlayback::VideoPlaybackSeek>}})
    {
        SyslogCapture::Take();
        const auto reply = PeerPair(handler).CallWithText();
        std::tuple<int32_t, std::string> answer;
        ASSERT_GE((DbusHelper::Sequence<int32_t, std::string>::Read(reply.get(), answer)), 0) << name;
        EXPECT_EQ(answer, std::make_tuple(-1, "Unknown error"));
        EXPECT_THAT(SyslogCapture::Take(),
                    ElementsAre(Line{LOG_ERR, std::string("static int ControllerDaemon::VideoPlayback::") + name +
                                                  shape + " sd_bus_message_read() failed"},
                                Line{LOG_ERR, "[PlaybackError::ErrorReason] Unknown error"}));
    }
}

TEST(MalformedRequest, ARateThatIsNoNumberIsAFailedAccess)
{
    SyslogCapture::Take();
    TestMessage message;
    message.Add(std::string("fast"));
    DbusHelper::BusError error;
    EXPECT_LT(OnPropertyAccess<&VideoPlayback::SetVideoPlaybackRate>(nullptr, "", "", "", message.Read(), nullptr,
                                                                     error.Get()),
              0);
    EXPECT_STREQ(error.Get()->name, "org.freedesktop.DBus.Error.Failed");
    EXPECT_STREQ(error.Message(), "SetVideoPlaybackRate sd_bus_message_read() failed");
    const std::string text = "static int ControllerDaemon::VideoPlayback::SetVideoPlaybackRate" + propertyShape;
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_INFO, text + " called"},
                            Line{LOG_ERR, text + " SetVideoPlaybackRate sd_bus_message_read() failed"}));
}

} // namespace
