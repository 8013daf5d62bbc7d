#include "controller_client/ControllerTimeout.h"

#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controller_client/ControllerFailure.h"
#include "tests/unit/controller_client/UserBus.h"
#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>

namespace
{

using Controllerd::ControllerDaemonDbusHandler;
using Controllerd::ControllerFailure;
using Controllerd::ControllerTimeout;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using Line = SyslogCapture::Line;

constexpr milliseconds limit{50};
constexpr milliseconds patience{30000}; // less than what the bus library waits for a bus that says nothing

TEST(ControllerTimeout, EndsTheWaitForABusThatSaysNothing)
{
    const UserBus bus;
    SyslogCapture::Take();
    const ControllerTimeout timeout(limit.count());
    std::string zone = "kept";
    const auto before = steady_clock::now();
    EXPECT_EQ(ControllerDaemonDbusHandler::GetTimezone(zone), -ETIMEDOUT);
    const auto waited = steady_clock::now() - before;
    EXPECT_GE(waited, limit);
    EXPECT_LT(waited, patience);
    EXPECT_EQ(zone, "kept");
    EXPECT_EQ(ControllerFailure::Last().kind, ControllerFailure::Kind::Silent);
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_ERR, "static int Controllerd::ControllerDaemonDbusHandler::GetTimezone("
                                          "std::string&): failed Connection timed out"}));
}

TEST(ControllerTimeout, TellsABusThatIsNotThereAsEver)
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    const ControllerTimeout timeout(limit.count());
    SyslogCapture::Take();
    EXPECT_EQ(ControllerDaemonDbusHandler::SetTimeGPS(), -ENOENT);
    EXPECT_EQ(ControllerFailure::Last().kind, ControllerFailure::Kind::Unreachable);
    EXPECT_THAT(SyslogCapture::Take(),
                ElementsAre(Line{LOG_ERR, "static int Controllerd::ControllerDaemonDbusHandler::SetTimeGPS(): "
                                          "Cannot open bus"}));
}

TEST(ControllerTimeout, HoldsForTheInnerMostAndIsGoneWithIt)
{
    const UserBus bus;
    const ControllerTimeout outer(limit.count());
    {
        const ControllerTimeout inner(0);
        EXPECT_EQ(ControllerDaemonDbusHandler::SetTimeGPS(), -ETIMEDOUT);
    }
    const auto before = steady_clock::now();
    EXPECT_EQ(ControllerDaemonDbusHandler::SetTimeGPS(), -ETIMEDOUT);
    EXPECT_GE(steady_clock::now() - before, limit);
}

} // namespace
