#include "time/TimezoneCatalogue.h"

#include "tests/unit/support/SyslogCapture.h"
#include "tests/unit/time/DateTimeStandIn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <syslog.h>

namespace
{

using namespace ControllerDaemon;
using testing::ElementsAre;
using Line = SyslogCapture::Line;

TEST(TimezoneCatalogue, TakesTheFormFromTheName)
{
    EXPECT_TRUE(IsDst("CCU/DST/Berlin") && IsDst("DST") && IsDst("xDSTx"));
    EXPECT_FALSE(IsDst("CCU/Berlin") || IsDst("") || IsDst("CCU/dst/Berlin"));
    DateTimeStandIn::Hold("CCU/DST/Berlin");
    EXPECT_EQ(GetTimezonePrefix(), "CCU/DST/");
    DateTimeStandIn::Hold("CCU/Berlin");
    EXPECT_EQ(GetTimezonePrefix(), "CCU/");
    DateTimeStandIn::Fail();
    EXPECT_EQ(GetTimezonePrefix(), "CCU/");
}

TEST(TimezoneCatalogue, TakesTheBareNameFromBehindTheLastSlash)
{
    EXPECT_EQ(BareName("CCU/DST/Berlin"), "Berlin");
    EXPECT_EQ(BareName("Berlin"), "Berlin");
    EXPECT_EQ(BareName("CCU/"), "");
    EXPECT_EQ(BareName(""), "");
}

TEST(TimezoneCatalogue, FindsTheNearestZone)
{
    struct Case
    {
        double latitude;
        double longitude;
        const char* zone;
    };
    DateTimeStandIn::Hold("CCU/London");
    for (const auto& [latitude, longitude, zone] : {
             Case{0, 0, "CCU/Central"},               // three zones lie there, the first by name is taken
             Case{-34.935, 138.6, "CCU/Adelaide"},    // two
             Case{22.305, 114.185, "CCU/Hong_Kong"},  // two
             Case{42.97, -81.25, "CCU/London"},       // where no atlas has it
             Case{51.5, -0.12, "CCU/Paris"},          // where every atlas has it
             Case{-44.0263, 179.9999, "CCU/Chatham"}, // across the date line
             Case{90, 0, "CCU/Yukon"},
             Case{-90, 123, "CCU/Chatham"},
             Case{1, 1, "CCU/Central"},
         })
    {
        EXPECT_EQ(GetNearestTimezone(latitude, longitude), zone) << latitude << ", " << longitude;
    }
    DateTimeStandIn::Hold("CCU/DST/London");
    EXPECT_EQ(GetNearestTimezone(0, 0), "CCU/DST/Central");
}

TEST(TimezoneCatalogue, KnowsZonesByPartsOfTheirNames)
{
    for (const char* known : {"CCU/Berlin", "Berlin", "CCU/", "", "a/b/UTC", "CCU/DST/New_", "x/o"})
    {
        SyslogCapture::Take();
        EXPECT_TRUE(IsTimezoneInstalled(known)) << known;
        EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_INFO, std::string("timezone: ") + known}));
    }
    for (const char* unknown : {"CCU/Berlin/Mitte", "CCU/berlin", "UT", "UTC ", "CCU/xBerlin"})
    {
        EXPECT_FALSE(IsTimezoneInstalled(unknown)) << unknown;
    }
}

} // namespace
