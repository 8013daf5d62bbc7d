#include "device/MixerOutput.h"

#include <gtest/gtest.h>

#include <tuple>

namespace
{

using namespace ControllerDaemon;

TEST(MixerOutput, ALineIsThatOfTheKeyWithItsColon)
{
    EXPECT_TRUE(IsMixerLine("  Front Left: Playback 100 [79%] [-13.50dB] [on]\n", "Front Left"));
    EXPECT_TRUE(IsMixerLine("Front Left:", "Front Left"));
    EXPECT_FALSE(IsMixerLine("  Playback channels: Front Left - Front Right\n", "Front Left"));
    EXPECT_FALSE(IsMixerLine("  Front Left : Playback 100\n", "Front Left"));
    EXPECT_FALSE(IsMixerLine("  front left: Playback 100\n", "Front Left"));
    EXPECT_FALSE(IsMixerLine("", "Limits"));
}

TEST(MixerOutput, TheTextBeginsTwoCharactersBehindTheFirstColon)
{
    EXPECT_EQ(MixerText("  Limits: Playback 0 - 127\n"), "Playback 0 - 127\n");
    EXPECT_EQ(MixerText("Limits:Playback"), "layback");
    EXPECT_EQ(MixerText("a: Limits: b"), "Limits: b");
    EXPECT_EQ(MixerText("no colon"), "o colon");
    EXPECT_EQ(MixerText("Limits:"), "");
    EXPECT_EQ(MixerText("Limits: "), "");
    EXPECT_EQ(MixerText(""), "");
}

struct VolumeCase
{
    const char* text;
    bool good;
    std::tuple<int, int, float> values = {7, 7, 7.0F}; // what they held before
};

TEST(MixerOutput, AVolumeNeedsAllThreeOfItsNumbers)
{
    for (const auto& [text, good, values] : {
             VolumeCase{"Playback 100 [79%] [-13.50dB] [on]\n", true, {100, 79, -13.5F}},
             VolumeCase{"Playback 0 [0%] [-63.50dB]", true, {0, 0, -63.5F}},
             VolumeCase{"Playback -5 [100%] [0.00dB] [off]", true, {-5, 100, 0.0F}},
             VolumeCase{"Playback 100 [79%] [-13,50dB]", true, {100, 79, -13.0F}}, // the number ends at the comma
             VolumeCase{"Playback 100 [79%] [on]", false},
             VolumeCase{"Playback 100", false},
             VolumeCase{"Playback [79%] [-13.50dB]", false},
             VolumeCase{"Capture 100 [79%] [-13.50dB]", false},
             VolumeCase{"Wiedergabe 100 [79%] [-13.50dB]", false},
             VolumeCase{"", false},
         })
    {
        std::tuple<int, int, float> read{7, 7, 7.0F};
        auto& [raw, percent, decibels] = read;
        EXPECT_EQ(ParseVolume(text, raw, percent, decibels), good) << text;
        EXPECT_EQ(read, values) << text;
    }
}

TEST(MixerOutput, LimitsNeedBothOfTheirNumbers)
{
    int minimum = 7;
    int maximum = 7;
    for (const char* text : {"Playback 5", "Playback 5 -", "Capture 0 - 9", "0 - 9", ""})
    {
        EXPECT_FALSE(ParseLimits(text, minimum, maximum)) << text;
    }
    EXPECT_EQ(std::tie(minimum, maximum), std::make_tuple(7, 7));
    EXPECT_TRUE(ParseLimits("Playback -10 - 127\n", minimum, maximum));
    EXPECT_EQ(std::tie(minimum, maximum), std::make_tuple(-10, 127));
}

} // namespace
