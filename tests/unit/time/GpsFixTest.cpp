// What counts as a fix, over all that gpsd can export, also what a receiver hardly ever brings about.  libgps is
// replaced by its two functions that are used.

#include "time/GpsFix.h"

#include <gps.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace
{

using ControllerDaemon::ReadGpsFix;

constexpr int plainFix = 1; // STATUS_FIX or, in later versions, STATUS_GPS
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

/// What gps_open and gps_read answer, and what they were asked.
struct Exported
{
    int opened = 0;
    int read = sizeof(gps_data_t);
    int status = plainFix;
    int mode = MODE_3D;
    timespec time{1'767'225'600, 250'000'000};
    double latitude = 52.5;
    double longitude = -13.25;
    std::string host;
    bool hasPort = true;
    int opens = 0;
    int reads = 0;
};

Exported exported;

class GpsFixTest : public testing::Test
{
  protected:
    void SetUp() override { exported = Exported{}; }
};

} // namespace

extern "C" int gps_open(const char* host, const char* port, gps_data_t* /*data*/)
{
    ++exported.opens;
    exported.host = host;
    exported.hasPort = port != nullptr;
    return exported.opened;
}

extern "C" int gps_read(gps_data_t* data, char* /*message*/, int /*length*/)
{
    ++exported.reads;
    if (exported.read != 0)
    {
        data->fix.status = exported.status;
        data->fix.mode = exported.mode;
        data->fix.time = exported.time;
        data->fix.latitude = exported.latitude;
        data->fix.longitude = exported.longitude;
    }
    return exported.read;
}

TEST_F(GpsFixTest, AsksTheSharedMemoryOnce)
{
    EXPECT_TRUE(ReadGpsFix().has_value());
    EXPECT_EQ(exported.host, "shared memory");
    EXPECT_FALSE(exported.hasPort);
    EXPECT_EQ(exported.opens, 1);
    EXPECT_EQ(exported.reads, 1);
}

TEST_F(GpsFixTest, CarriesTimeAndPosition)
{
    const auto fix = ReadGpsFix();
    ASSERT_TRUE(fix.has_value());
    EXPECT_EQ(fix->time, 1'767'225'600.25);
    EXPECT_EQ(fix->latitude, 52.5);
    EXPECT_EQ(fix->longitude, -13.25);
}

TEST_F(GpsFixTest, NeedsStatusOneAndModeTwoOrThree)
{
    for (exported.status = -1; exported.status <= STATUS_PPS_FIX + 1; ++exported.status)
    {
        for (exported.mode = -1; exported.mode <= MODE_3D + 1; ++exported.mode)
        {
            const bool isFix = exported.status == 1 && (exported.mode == 2 || exported.mode == 3);
            EXPECT_EQ(ReadGpsFix().has_value(), isFix) << "status " << exported.status << ", mode " << exported.mode;
        }
    }
}

TEST_F(GpsFixTest, NeedsBothCoordinates)
{
    exported.latitude = notANumber;
    EXPECT_FALSE(ReadGpsFix().has_value());
    exported.longitude = notANumber;
    EXPECT_FALSE(ReadGpsFix().has_value());
    exported.latitude = 0;
    EXPECT_FALSE(ReadGpsFix().has_value());
    exported.longitude = 0;
    EXPECT_TRUE(ReadGpsFix().has_value());
}

TEST_F(GpsFixTest, FailsWithEitherCall)
{
    exported.read = -1;
    EXPECT_FALSE(ReadGpsFix().has_value());
    exported.read = 0; // met gpsd while it was writing
    EXPECT_FALSE(ReadGpsFix().has_value());
    EXPECT_EQ(exported.reads, 2);
    exported.read = sizeof(gps_data_t);
    exported.opened = -1;
    EXPECT_FALSE(ReadGpsFix().has_value());
    EXPECT_EQ(exported.reads, 2);
}
