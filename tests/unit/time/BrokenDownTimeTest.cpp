#include "time/BrokenDownTime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

namespace
{

using namespace ControllerDaemon;

constexpr int32_t lowest = std::numeric_limits<int32_t>::min();
constexpr int32_t highest = std::numeric_limits<int32_t>::max();
constexpr time_t aDay = 86400;

/// Local time of a place with daylight saving, by the rules of its region and not by files.
class BrokenDownTimeTest : public testing::Test
{
  protected:
    void SetUp() override { setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1); }
    void TearDown() override { unsetenv("TZ"); }
};

TEST_F(BrokenDownTimeTest, ReadsLocalTimeAndUtc)
{
    const auto local = BreakDown(1'750'000'000, true, true).value_or(BrokenDownTime{});
    EXPECT_EQ(std::tie(local.year, local.month, local.day, local.hour, local.minute, local.second, local.dst),
              std::make_tuple(2025, 6, 15, 17, 6, 40, true));
    const auto utc = BreakDown(-1, false, false).value_or(BrokenDownTime{});
    EXPECT_EQ(std::tie(utc.year, utc.month, utc.day, utc.hour, utc.minute, utc.second, utc.dst),
              std::make_tuple(1969, 12, 31, 23, 59, 59, false));
}

TEST_F(BrokenDownTimeTest, KnowsTheEndsOfItsCalendar)
{
    EXPECT_FALSE(BreakDown(std::numeric_limits<time_t>::max(), true, false).has_value());
    EXPECT_FALSE(BreakDown(std::numeric_limits<time_t>::min(), false, false).has_value());
    // The year fits the C library's field, which begins at 1900, and no longer ours.
    EXPECT_FALSE(BreakDown(67'768'036'191'676'799, false, false).has_value());
}

TEST_F(BrokenDownTimeTest, TellsTheSecondBeforeTheEpochFromAFailure)
{
    EXPECT_EQ(ToSeconds({1969, 12, 31, 23, 59, 59, false}, false), -1);
    EXPECT_EQ(ToSeconds({1970, 1, 1, 0, 59, 59, false}, true), -1);
    EXPECT_EQ(ToSeconds({highest, highest, highest, highest, highest, highest, false}, true), std::nullopt);
    EXPECT_EQ(ToSeconds({lowest, 1, 1, 0, 0, 0, false}, false), std::nullopt);
    EXPECT_EQ(ToSeconds({2000, lowest, 1, 0, 0, 0, false}, false), std::nullopt);
}

TEST_F(BrokenDownTimeTest, CarriesOver)
{
    EXPECT_EQ(ToSeconds({1970, 1, 2, 0, 0, 60, false}, false), aDay + 60);
    EXPECT_EQ(ToSeconds({1971, -10, 32, 24, 0, 0, false}, false), aDay * 63);
}

TEST_F(BrokenDownTimeTest, TakesTheFlagForDaylightSaving)
{
    const auto noon = [](bool dst, bool local) { return ToSeconds({2025, 6, 15, 12, 0, 0, dst}, local); };
    constexpr time_t utcNoon = 1'749'988'800;
    EXPECT_EQ(noon(true, true), utcNoon - 7200);
    EXPECT_EQ(noon(false, true), utcNoon - 3600);
    EXPECT_EQ(noon(true, false), utcNoon);
}

TEST_F(BrokenDownTimeTest, StaysAtTheEndsOfTheWire)
{
    EXPECT_EQ(ToWireSeconds(time_t{highest}), highest);
    EXPECT_EQ(ToWireSeconds(time_t{highest} + 1), highest);
    EXPECT_EQ(ToWireSeconds(time_t{lowest} - 1), lowest);
    EXPECT_EQ(ToWireSeconds(-1), -1);
}

TEST_F(BrokenDownTimeTest, TakesWholeSeconds)
{
    EXPECT_EQ(WholeSeconds(1767225600.999), 1767225600);
    EXPECT_EQ(WholeSeconds(-1.5), -1);
    EXPECT_EQ(WholeSeconds(1e19), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(WholeSeconds(-1e19), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(WholeSeconds(std::numeric_limits<double>::quiet_NaN()), 0);
}

TEST_F(BrokenDownTimeTest, GoesByWayOfFields)
{
    for (const time_t seconds : {time_t{0}, time_t{1'750'000'000}, time_t{1'743'296'400}, time_t{1'761'440'400}})
    {
        EXPECT_EQ(FromLocalFields(seconds), seconds);
        EXPECT_EQ(FromUtcFields(seconds), seconds - 3600);
    }
    // What has no fields stays what it is.
    EXPECT_EQ(FromLocalFields(std::numeric_limits<time_t>::max()), std::numeric_limits<time_t>::max());
    EXPECT_EQ(FromUtcFields(std::numeric_limits<time_t>::max()), std::numeric_limits<time_t>::max());
}

} // namespace
