// A program that is built as its toolchain builds by itself, whatever the library is built with: it has the time_t of
// its own, and finds the operations for it.

#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controller_client/ControllerTimeout.h"
#include "tests/unit/controller_client/UserBus.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace
{

using Controllerd::ControllerDaemonDbusHandler;

TEST(PlainProgram, HasTheOperationsForItsOwnTime)
{
    const UserBus bus;
    const Controllerd::ControllerTimeout timeout(1);
    EXPECT_EQ(ControllerDaemonDbusHandler::SetTime(time_t{0}, false), -ETIMEDOUT);
    time_t seconds = -5;
    bool dst = true;
    EXPECT_EQ(ControllerDaemonDbusHandler::GetTime(seconds, dst, false), -ETIMEDOUT);
    EXPECT_EQ(seconds, -5);
    EXPECT_TRUE(dst);
}

} // namespace
