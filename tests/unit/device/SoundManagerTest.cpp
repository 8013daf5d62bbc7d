#include "device/SoundManager.h"

#include "tests/unit/device/ProgramStandIn.h"
#include "tests/unit/support/SyslogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <utility>

namespace
{

using namespace ControllerDaemon;
using testing::ElementsAre;
using Line = SyslogCapture::Line;

const std::string soundManager = "int32_t ControllerDaemon::SoundManager::";

class SoundManagerTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        ProgramStandIn::Answer(0);
        ProgramStandIn::Refuse(0);
        ProgramStandIn::Lose(false);
        ProgramStandIn::Print("");
        ProgramStandIn::TakeCommands();
        SyslogCapture::Take();
    }
};

TEST_F(SoundManagerTest, IsMadeByOneCommandWhateverComesOfIt)
{
    ProgramStandIn::Refuse(EAGAIN);
    const SoundManager sound;
    EXPECT_THAT(ProgramStandIn::TakeCommands(), ElementsAre("amixer set PGA 3"));
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre());
    EXPECT_THAT(sound.GetAudioFiles(), ElementsAre());
}

TEST_F(SoundManagerTest, WithoutAChipHasNoSoundsAndTouchesNoMixer)
{
    SoundManager sound;
    ProgramStandIn::TakeCommands();
    EXPECT_EQ(sound.Init(), -1);
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre(Line{LOG_ERR, soundManager + "Init(): Failed to open GPIO chip"}));
    EXPECT_THAT(ProgramStandIn::TakeCommands(), ElementsAre());
    EXPECT_EQ(sound.Play(""), -1);
    EXPECT_EQ(sound.Play("beep.wav"), -1);
}

TEST_F(SoundManagerTest, LinesThatWereNeverObtainedFailAndLeaveTheValue)
{
    SoundManager sound;
    EXPECT_EQ(sound.SetMicEnabled(true), -1);
    EXPECT_EQ(sound.SetSpkrEnabled(false), -1);
    for (bool before : {false, true})
    {
        bool enabled = before;
        EXPECT_EQ(sound.GetMicEnabled(enabled), -1);
        EXPECT_EQ(sound.GetSpkrEnabled(enabled), -1);
        EXPECT_EQ(enabled, before);
    }
    const std::vector<Line> lines = SyslogCapture::Take();
    ASSERT_EQ(lines.size(), 8);
    EXPECT_EQ(lines[0],
              (Line{LOG_INFO, soundManager + "SetMicEnabled(bool): Set Microphone enabled - gpiod_line_set_value: 1"}));
    EXPECT_EQ(lines[1], (Line{LOG_ERR, soundManager + "SetMicEnabled(bool): gpiod_line_set_value returned: -1"}));
    EXPECT_EQ(lines[2],
              (Line{LOG_INFO, soundManager + "SetSpkrEnabled(bool): Set Spkr enabled - gpiod_line_set_value: 0"}));
    EXPECT_EQ(lines[3], (Line{LOG_ERR, soundManager + "SetSpkrEnabled(bool): gpiod_line_set_value returned: -1"}));
    EXPECT_EQ(lines[4], (Line{LOG_ERR, soundManager + "GetMicEnabled(bool&): gpiod_line_get_value returned: -1"}));
    EXPECT_EQ(lines[5], (Line{LOG_ERR, soundManager + "GetSpkrEnabled(bool&): gpiod_line_get_value returned: -1"}));
}

TEST_F(SoundManagerTest, HandsVolumesToTheMixerAsTheyAre)
{
    for (const int percent : {75, 0, 150, -1, INT_MIN, INT_MAX})
    {
        EXPECT_EQ(SoundManager::SetSpkrVolume(percent), 0);
        EXPECT_THAT(ProgramStandIn::TakeCommands(),
                    ElementsAre("amixer set 'HP DAC' " + std::to_string(percent) + "%"));
    }
}

TEST_F(SoundManagerTest, GivesTheStatusOfTheMixerOn)
{
    for (const int status : {0, 256, 9})
    {
        ProgramStandIn::Answer(status);
        EXPECT_EQ(SoundManager::SetSpkrVolume(50), status);
    }
}

TEST_F(SoundManagerTest, AMixerThatIsMissingOrNoneIsWhatAShellMakesOfIt)
{
    for (const auto& [error, status] : {std::pair(ENOENT, 127 << 8), std::pair(EACCES, 126 << 8),
                                        std::pair(ENOEXEC, 126 << 8), std::pair(E2BIG, 126 << 8)})
    {
        ProgramStandIn::Refuse(error);
        EXPECT_EQ(SoundManager::SetSpkrVolume(50), status);
    }
}

TEST_F(SoundManagerTest, WithoutRoomForAProcessAVolumeCannotBeSet)
{
    for (const int error : {EAGAIN, ENOMEM})
    {
        ProgramStandIn::Refuse(error);
        EXPECT_EQ(SoundManager::SetSpkrVolume(50), -1);
    }
}

TEST_F(SoundManagerTest, TakesAStatusThatIsNotToBeHadForAFailure)
{
    ProgramStandIn::Lose(true);
    EXPECT_EQ(SoundManager::SetSpkrVolume(50), -1);
    EXPECT_THAT(ProgramStandIn::TakeCommands(), ElementsAre("amixer set 'HP DAC' 50%"));
}

const char* const output = "Simple mixer control 'HP DAC',0\n"
                           "  Capabilities: pvolume pswitch\n"
                           "  Playback channels: Front Left - Front Right\n"
                           "  Limits: Playback 0 - 127\n"
                           "  Mono:\n"
                           "  Front Left: Playback 100 [79%] [-13.50dB] [on]\n"
                           "  Front Right: Playback 10 [8%] [-58.50dB] [on]\n";

TEST_F(SoundManagerTest, ReadsTheVolumeOfTheLeftChannel)
{
    ProgramStandIn::Print(output);
    int raw = 0;
    int percent = 0;
    float decibels = 0;
    EXPECT_EQ(SoundManager::GetSpkrVolume(raw, percent, decibels), 0);
    EXPECT_THAT(ProgramStandIn::TakeCommands(), ElementsAre("amixer get 'HP DAC'"));
    EXPECT_EQ(raw, 100);
    EXPECT_EQ(percent, 79);
    EXPECT_EQ(decibels, -13.5F);
}

TEST_F(SoundManagerTest, ReadsTheLimitsOfTheDac)
{
    ProgramStandIn::Print(output);
    int minimum = 7;
    int maximum = 7;
    EXPECT_EQ(SoundManager::GetSpkrVolumeLimits(minimum, maximum), 0);
    EXPECT_THAT(ProgramStandIn::TakeCommands(), ElementsAre("amixer get PCM"));
    EXPECT_EQ(minimum, 0);
    EXPECT_EQ(maximum, 127);
}

TEST_F(SoundManagerTest, WhatTheMixerDoesNotSayIsAFailureThatLeavesTheValues)
{
    int raw = 7;
    int percent = 7;
    float decibels = 7;
    const auto fails = [&] {
        return SoundManager::GetSpkrVolume(raw, percent, decibels) == -1 &&
               SoundManager::GetSpkrVolumeLimits(raw, percent) == -1 && raw == 7 && percent == 7 && decibels == 7;
    };
    // The first line with the key decides, although a better one follows.
    for (const char* text : {"", "\n", "Front Left:", "Front Left:\nFront Left: Playback 100 [79%] [-13.50dB]\n",
                             "  Limits: Capture 0 - 9\n  Front Left: Capture 1 [1%] [1.00dB]\n"})
    {
        ProgramStandIn::Print(text);
        EXPECT_TRUE(fails()) << text;
    }
    ProgramStandIn::Print(output);
    ProgramStandIn::Refuse(ENOENT);
    EXPECT_TRUE(fails());
    EXPECT_THAT(SyslogCapture::Take(), ElementsAre());
}

} // namespace
