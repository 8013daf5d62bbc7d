#pragma once

#include "device/Gpiod.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ControllerDaemon
{

/// The unit's audio hardware: two GPIO lines that switch microphone and speaker, the mixer's controls, through amixer,
/// and sound files, through aplay. Loop thread only; amixer is waited for, aplay is not.
///
/// Results are negative on failure. Those of the operations that set a control are a status as system(3) gives it: a
/// failing amixer is positive, and so is a missing one; negative is only that no process can be started.
class SoundManager
{
  public:
    /// Sets up the pre-amplifier. Made before main runs: it logs nothing and needs no other object.
    SoundManager() noexcept;

    /// Takes the lines, microphone on and speaker off, sets the DAC to its full level, which may fail, and reads the
    /// names of the sound files. Once; until it has succeeded there are no sounds, and the lines cannot be used.
    /// 0; -1 without the chip, -2 without a line, -3 when a line cannot be had as an output, with everything given
    /// back. The lines are kept for the life of the process.
    int32_t Init();

    /// The switches: true is on. libgpiod's results; a failed Get leaves `enabled` as it was.
    int32_t SetMicEnabled(bool enabled);
    int32_t GetMicEnabled(bool& enabled);
    int32_t SetSpkrEnabled(bool enabled);
    int32_t GetSpkrEnabled(bool& enabled);

    /// Sets the speaker's volume. The percentage is handed to amixer as it is, which keeps it within 0..100.
    static int32_t SetSpkrVolume(int percent);
    /// Asks the mixer for the speaker's volume: in the control's own steps, in percent and in dB. -1 when amixer does
    /// not say, with everything as it was; the same below.
    static int32_t GetSpkrVolume(int& raw, int& percent, float& decibels);
    /// Asks the mixer for the limits of the DAC, in its own steps.
    static int32_t GetSpkrVolumeLimits(int& minimum, int& maximum);

    /// The sound files that Init found, as the folder listed them: names with ".wav", without folder.
    [[nodiscard]] std::vector<std::string> GetAudioFiles() const { return audioFiles_; }

    /// Starts playing a sound file, besides those that are playing, and does not wait for it; whether it is heard is
    /// not told. -1 when the name is not one of GetAudioFiles, letter by letter.
    int32_t Play(const std::string& name) const;

  private:
    void ListAudioFiles();

    gpiod_chip* chip_ = nullptr;
    gpiod_line* micLine_ = nullptr;
    gpiod_line* spkrLine_ = nullptr;
    std::vector<std::string> audioFiles_;
};

} // namespace ControllerDaemon
