#include "dbus_helper/DbusConnector.h"

#include "tests/unit/support/BusTest.h"

#include <cerrno>

namespace
{

using DbusHelper::BusKind;
using DbusHelper::DbusConnector;

TEST(DbusConnector, NoLoopIsAFailure)
{
    for (const BusKind kind : {BusKind::User, BusKind::System})
    {
        DbusConnector connector(nullptr, kind);
        EXPECT_EQ(connector.Connect(), -EINVAL);
        EXPECT_EQ(connector.GetBus(), nullptr);
        connector.Disconnect();
    }
}

class Connected : public BusTest
{
  protected:
    Connected() { EXPECT_EQ(connector_.Connect(), 0); }

    /// What the loop ends with that nothing ends before everything that is waiting has been dealt with.
    int EndOfLoop()
    {
        constexpr int undisturbed = 7;
        const auto end = [](sd_event_source* source, void*) {
            return sd_event_exit(sd_event_source_get_event(source), undisturbed);
        };
        sd_event_source* idle = nullptr;
        EXPECT_GE(sd_event_add_defer(event_, &idle, end, nullptr), 0);
        EXPECT_GE(sd_event_source_set_priority(idle, SD_EVENT_PRIORITY_IDLE), 0);
        const int code = sd_event_loop(event_);
        sd_event_source_unref(idle);
        return code;
    }

    DbusConnector connector_{event_};
};

TEST_F(Connected, ABusThatEndsEndsTheLoop)
{
    bus_.Kill();
    EXPECT_EQ(EndOfLoop(), -ENOTCONN);
}

TEST_F(Connected, AConnectionThatIsGivenUpDoesNot)
{
    connector_.Disconnect();
    EXPECT_EQ(EndOfLoop(), 7);
}

TEST_F(Connected, NorOneThatIsGivenUpAfterTheBusHasEnded)
{
    bus_.Kill();
    connector_.Disconnect();
    EXPECT_EQ(EndOfLoop(), 7);
}

TEST_F(Connected, NorOneThatIsMadeAnew)
{
    connector_.Disconnect();
    EXPECT_EQ(connector_.Connect(), 0);
    EXPECT_EQ(EndOfLoop(), 7);
}

} // namespace
