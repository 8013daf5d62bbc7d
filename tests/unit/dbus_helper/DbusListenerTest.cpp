#include "dbus_helper/DbusListener.h"

#include "tests/unit/support/BusTest.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <utility>
#include <vector>

namespace
{

using DbusHelper::DbusListener;
using testing::ElementsAre;

int Ignore(sd_bus_message* /*message*/, void* /*userData*/, sd_bus_error* /*error*/) { return 0; }

TEST(DbusListener, NoLoopIsAFailureWhateverIsAskedFor)
{
    DbusListener listener(nullptr);
    listener.DefineSignals({{"Grew", "a.Service", "/a", "a.Interface", "Grew", &Ignore}}, nullptr);
    EXPECT_EQ(listener.ListenSignals({"Grew"}), -EINVAL);
    EXPECT_EQ(listener.ListenSignals({}), -EINVAL);
    EXPECT_EQ(listener.ListenSignal("a.Service", "", "a.Interface", "Grew", &Ignore, nullptr), -ENOTCONN);
    listener.Disconnect();
}

TEST(DbusListener, NoBusIsAFailureWithNothingLeftOpen)
{
    ASSERT_EQ(setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1), 0);
    sd_event* event = nullptr;
    ASSERT_GE(sd_event_new(&event), 0);
    {
        DbusListener listener(event);
        EXPECT_EQ(listener.ListenSignals({}), -ENOENT);
        EXPECT_EQ(listener.GetBus(), nullptr);
    }
    sd_event_unref(event);
}

constexpr const char* service = "test.Sibling";
constexpr const char* path = "/test/Sibling";
constexpr const char* interface = "test.Sibling.Control";

/// The other connection is a sibling with two signals, "Grew" and "Shrank", each with a number.
class Listening : public BusTest
{
  protected:
    Listening()
    {
        EXPECT_GE(sd_bus_request_name(other_.get(), service, 0), 0);
        const DbusHelper::SignalDescriptor grew{"Grew", service, path, interface, "Grew", &Hear};
        const DbusHelper::SignalDescriptor shrank{"Shrank", service, "", interface, "Shrank", &Hear};
        listener_.DefineSignals({grew, shrank}, this);
    }

    static int Hear(sd_bus_message* message, void* userData, sd_bus_error* /*error*/)
    {
        int number = 0;
        EXPECT_GE(sd_bus_message_read(message, "i", &number), 0);
        static_cast<Listening*>(userData)->heard_.push_back(number);
        if (number < 0)
        {
            throw std::length_error("no such number");
        }
        return 0;
    }

    void Emit(const char* member, int number, const char* destination = nullptr)
    {
        sd_bus_message* raw = nullptr;
        EXPECT_GE(sd_bus_message_new_signal(other_.get(), &raw, path, interface, member), 0);
        const DbusHelper::MessageHandle message(raw);
        EXPECT_GE(sd_bus_message_append(raw, "i", number), 0);
        EXPECT_GE((destination != nullptr ? sd_bus_send_to(other_.get(), raw, destination, nullptr)
                                          : sd_bus_send(other_.get(), raw, nullptr)),
                  0);
    }
    /// What has been heard when this last number has come.
    std::vector<int> HeardUntil(int last)
    {
        Emit("Grew", last);
        RunUntil([&] { return !heard_.empty() && heard_.back() == last; });
        return std::exchange(heard_, {});
    }

    DbusListener listener_{event_};
    std::vector<int> heard_;
};

TEST_F(Listening, OneHandlerCallASignalHoweverOftenItIsListenedTo)
{
    EXPECT_EQ(listener_.ListenSignals({"Grew", "Shrank", "Grew"}), 0);
    EXPECT_EQ(listener_.ListenSignals({"Grew"}), 0);
    EXPECT_EQ(listener_.ListenSignal(service, path, interface, "Grew", &Hear, this), 0);
    Emit("Grew", 1);
    Emit("Shrank", 2);
    EXPECT_THAT(HeardUntil(3), ElementsAre(1, 2, 3));
}

TEST_F(Listening, SubscriptionsThatDifferAreHeardEach)
{
    EXPECT_EQ(listener_.ListenSignals({"Grew"}), 0);
    EXPECT_EQ(listener_.ListenSignal(service, "", interface, "Grew", &Hear, this), 0);
    EXPECT_THAT(HeardUntil(1), ElementsAre(1, 1));
}

TEST_F(Listening, WhatIsAddressedToTheConnectionIsDropped)
{
    EXPECT_EQ(listener_.ListenSignals({"Grew", "Shrank"}), 0);
    const char* address = nullptr;
    EXPECT_GE(sd_bus_get_unique_name(listener_.GetBus(), &address), 0);
    Emit("Grew", 1, address);
    Emit("Shrank", 2, address);
    EXPECT_THAT(HeardUntil(3), ElementsAre(3));
}

TEST_F(Listening, AnExceptionIsALineAndTheNextSignalIsHeard)
{
    EXPECT_EQ(listener_.ListenSignals({"Grew"}), 0);
    Emit("Grew", -1);
    EXPECT_THAT(HeardUntil(2), ElementsAre(-1, 2));
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(SyslogCapture::Line{LOG_ERR, "Exception while serving Grew: no such number"}));
}

TEST_F(Listening, ADisconnectedListenerListensAnew)
{
    EXPECT_EQ(listener_.ListenSignals({"Grew"}), 0);
    listener_.Disconnect();
    EXPECT_EQ(listener_.ListenSignals({"Grew"}), 0);
    EXPECT_THAT(HeardUntil(1), ElementsAre(1));
}

} // namespace
