#include "clients/hardware/BatteryLevelIcons.h"
#include "clients/hardware/HalvexTypes.h"
#include "clients/jobs/JobsManager.h"
#include "dbus_helper/Codec.h"

#include <gtest/gtest.h>

// What the clients' records are on the bus follows from their fields; here it is held against what the other daemons
// use.
namespace
{

using DbusHelper::Codec;
using DbusHelper::Sequence;
using std::string;

template <typename... Types>
std::string_view SignatureOf(const std::tuple<Types&...>& /*fields*/)
{
    return Sequence<std::remove_const_t<Types>...>::signature.View();
}

TEST(WireTypes, MediaRecordsAreBooleansAndNumbersInTurn)
{
    JobsManagerD::cameraAngles_t angles;
    JobsManagerD::reelDistance_t distance;
    EXPECT_EQ(SignatureOf(Fields(angles)), "bibi");
    EXPECT_EQ(SignatureOf(Fields(distance)), "bii");
    string path;
    EXPECT_EQ(SignatureOf(std::tuple_cat(std::tie(path, path), Fields(angles), Fields(distance))), "ssbibibii");
    EXPECT_EQ(SignatureOf(std::tuple_cat(std::tie(path, path, path, path, path), Fields(angles), Fields(distance))),
              "sssssbibibii");
}

TEST(WireTypes, MediaRecordsStartEmpty)
{
    const JobsManagerD::cameraAngles_t angles;
    const JobsManagerD::reelDistance_t distance;
    EXPECT_EQ(Fields(angles), std::make_tuple(false, 0, false, 0));
    EXPECT_EQ(Fields(distance), std::make_tuple(false, 0, 0));
}

TEST(WireTypes, BatteryInfoIsAFlagAndTwoBatteries)
{
    Halvexd::BatteryInfo info;
    EXPECT_EQ(SignatureOf(Fields(info)), "bqqqqssuuqqqqqqqqqssuuqqqqq");
    info.battery_info[Halvexd::RIGHT_BATT_INDEX].serial_num = "right";
    info.battery_info[Halvexd::LEFT_BATT_INDEX].bat_charger_soft_vs = 13;
    EXPECT_EQ(std::get<5>(Fields(info)), "right");
    EXPECT_EQ(std::get<26>(Fields(info)), 13);
}

TEST(WireTypes, ValuesOfTheHardwareDaemon)
{
    EXPECT_EQ(Codec<Halvexd::ActivePowerSource>::signature.View(), "i");
    EXPECT_EQ(Codec<Halvexd::SystemPowerLevel>::signature.View(), "i");
    EXPECT_EQ(Codec<Halvexd::BatteryDrainMode>::signature.View(), "i");
    EXPECT_EQ(Codec<Halvexd::CountMode>::signature.View(), "i");
    EXPECT_EQ((Codec<std::pair<Halvexd::OrvelType, Halvexd::OrvelType>>::signature.View()), "(ii)");
    EXPECT_EQ((Codec<std::pair<bool, bool>>::signature.View()), "(bb)");
    EXPECT_EQ(Codec<Halvexd::permittedActions_t>::signature.View(), "(bbbbb)");
    EXPECT_STREQ(Halvexd::BatteryLevelIcons::signature, "(sassas)");
}

TEST(WireTypes, ValuesOfTheJobsDaemon)
{
    libjobsdaemon::MediaCounts counts;
    int32_t code = 0;
    EXPECT_EQ(SignatureOf(std::tuple_cat(std::tie(code), Fields(counts))), "iiiiii");
    EXPECT_EQ(Codec<libjobsdaemon::SearchCriterion>::signature.View(), "y");
    EXPECT_EQ(static_cast<int>(libjobsdaemon::SearchCriterion::Contains), 0);
    EXPECT_EQ(static_cast<int>(libjobsdaemon::SearchCriterion::StartsWith), 1);
    EXPECT_EQ(static_cast<int>(libjobsdaemon::SearchCriterion::Exactly), 2);
}

} // namespace
