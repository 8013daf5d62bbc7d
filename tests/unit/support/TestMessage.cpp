#include "tests/unit/support/TestMessage.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>

TestMessage::TestMessage(const char* path)
{
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
    peer_ = ends[1];
    sd_bus* bus = nullptr;
    EXPECT_GE(sd_bus_new(&bus), 0);
    bus_.reset(bus);
    // sd-bus makes messages for a bus that has been started, which needs somebody at the other end to be waited for
    EXPECT_GE(sd_bus_set_fd(bus, ends[0], ends[0]), 0);
    EXPECT_GE(sd_bus_start(bus), 0);
    sd_bus_message* message = nullptr;
    EXPECT_GE(path != nullptr ? sd_bus_message_new_signal(bus, &message, path, "test.Interface", "Signal")
                              : sd_bus_message_new(bus, &message, SD_BUS_MESSAGE_METHOD_RETURN),
              0);
    message_.reset(message);
}

TestMessage::~TestMessage()
{
    message_.reset();
    sd_bus_close(bus_.get()); // nothing is there to be flushed to
    bus_.reset();
    close(peer_);
}

TestMessage& TestMessage::AddContainer(char type, const std::string& signature, const std::function<void()>& contents)
{
    EXPECT_GE(sd_bus_message_open_container(message_.get(), type, signature.c_str()), 0);
    contents();
    EXPECT_GE(sd_bus_message_close_container(message_.get()), 0);
    return *this;
}

TestMessage& TestMessage::AddEntry(const std::string& key, const std::string& signature,
                                   const std::function<void()>& contents)
{
    return AddContainer('e', "sv", [&] {
        Add(key);
        AddContainer('v', signature, contents);
    });
}

TestMessage& TestMessage::AddDictionary(const std::function<void()>& entries)
{
    return AddContainer('a', "{sv}", entries);
}

sd_bus_message* TestMessage::Read()
{
    if (!sealed_)
    {
        EXPECT_GE(sd_bus_message_seal(message_.get(), 1, 0), 0);
        sealed_ = true;
    }
    EXPECT_GE(sd_bus_message_rewind(message_.get(), 1), 0);
    return message_.get();
}
