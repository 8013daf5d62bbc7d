#pragma once

#include "dbus_helper/Handles.h"
#include "tests/unit/support/PrivateBus.h"
#include "tests/unit/support/SyslogCapture.h"

#include <gtest/gtest.h>
#include <systemd/sd-event.h>

#include <functional>
#include <string>

/// A bus, a loop, and somebody else's connection, which is on the loop as well.
class BusTest : public testing::Test
{
  protected:
    BusTest()
    {
        EXPECT_GE(sd_event_new(&event_), 0);
        EXPECT_GE(DbusHelper::OpenUserBus(other_), 0);
        EXPECT_GE(sd_bus_attach_event(other_.get(), event_, SD_EVENT_PRIORITY_NORMAL), 0);
        SyslogCapture::Take();
    }
    ~BusTest() override
    {
        sd_bus_detach_event(other_.get());
        sd_event_unref(event_);
    }
    BusTest(const BusTest&) = delete;
    BusTest& operator=(const BusTest&) = delete;
    BusTest(BusTest&&) = delete;
    BusTest& operator=(BusTest&&) = delete;

    /// Runs the loop until the condition holds.
    void RunUntil(const std::function<bool()>& holds)
    {
        while (!holds())
        {
            ASSERT_GE(sd_event_run(event_, UINT64_MAX), 0);
        }
    }

    /// Sends a call of the other connection's and runs the loop until it is answered. The reply, or the error's name
    /// and words as one text.
    std::string Ask(sd_bus_message* call)
    {
        struct Answer
        {
            bool there = false;
            std::string text;
        } answer;
        const auto take = [](sd_bus_message* reply, void* userData, sd_bus_error*) {
            auto& target = *static_cast<Answer*>(userData);
            const sd_bus_error* error = sd_bus_message_get_error(reply);
            target = {true, error != nullptr ? std::string(error->name) + ": " + error->message : "answered"};
            return 0;
        };
        sd_bus_slot* slot = nullptr;
        EXPECT_GE(sd_bus_call_async(other_.get(), &slot, call, take, &answer, UINT64_MAX), 0);
        const DbusHelper::SlotHandle held(slot);
        RunUntil([&] { return answer.there; });
        return answer.text;
    }

    PrivateBus bus_;
    sd_event* event_ = nullptr;
    DbusHelper::BusHandle other_;
};
