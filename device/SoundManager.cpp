#include "device/SoundManager.h"

#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"
#include "device/MixerOutput.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <thread>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::signatureOf;

constexpr const char* chipName = "gpiochip4";
constexpr const char* consumer = "controller";
constexpr unsigned int micOffset = 14;
constexpr unsigned int spkrOffset = 13;
constexpr const char* soundFolder = "/usr/share/sounds/";
constexpr const char* soundExtension = ".wav";
constexpr const char* speakerControl = "'HP DAC'"; // quoted for the shell: its name has a blank
constexpr const char* dacControl = "PCM";

struct ChipCloser
{
    void operator()(gpiod_chip* chip) const { gpiod_chip_close(chip); }
};
using ChipHandle = std::unique_ptr<gpiod_chip, ChipCloser>;

struct PipeCloser
{
    void operator()(std::FILE* pipe) const { pclose(pipe); }
};
using PipeHandle = std::unique_ptr<std::FILE, PipeCloser>;

/// A line as it appears in the log.
struct Line
{
    const char* text; ///< signature text of the operation
    const char* what;
    gpiod_line* line;
};

/// A line that was never obtained fails like one that libgpiod cannot use.
int32_t WriteLine(const Line& target, bool enabled)
{
    const auto& [text, what, line] = target;
    Log::Info("%s: %s - gpiod_line_set_value: %d", text, what, enabled ? 1 : 0);
    const int result = line == nullptr ? -1 : gpiod_line_set_value(line, enabled ? 1 : 0);
    if (result < 0)
    {
        Log::Error("%s: gpiod_line_set_value returned: %d", text, result);
    }
    return result;
}

int32_t ReadLine(const Line& source, bool& enabled)
{
    const auto& [text, what, line] = source;
    const int result = line == nullptr ? -1 : gpiod_line_get_value(line);
    if (result < 0)
    {
        Log::Error("%s: gpiod_line_get_value returned: %d", text, result);
        return result;
    }
    enabled = result != 0;
    Log::Info("%s: %s - gpiod_line_get_value: %d", text, what, enabled ? 1 : 0);
    return result;
}

/// Waits for a child's end; its status, as the C library's system() gives it.
int Reap(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
    {}
    return status;
}

/// Runs a command through the shell and returns its status, -1 when no shell can be run: system() of some C libraries
/// would tell that as a shell that did not find the command.
int RunShell(std::string command)
{
    std::string shell = "sh";
    std::string option = "-c";
    const std::array<char*, 4> arguments{shell.data(), option.data(), command.data(), nullptr};
    pid_t child = 0;
    return posix_spawn(&child, "/bin/sh", nullptr, nullptr, arguments.data(), environ) == 0 ? Reap(child) : -1;
}

int32_t SetControl(const char* control, int percent)
{
    return RunShell("amixer set " + std::string(control) + " " + std::to_string(percent) + "%");
}

/// Reads a line of a program's output, with its newline. False at the end.
bool ReadOutput(std::FILE* pipe, std::string& line)
{
    line.clear();
    int character = 0;
    while (character != '\n' && (character = std::fgetc(pipe)) != EOF)
    {
        line.push_back(static_cast<char>(character));
    }
    return !line.empty();
}

int32_t GetControl(const char* control, const char* key, std::string& text)
{
    const PipeHandle pipe(popen(("amixer get " + std::string(control)).c_str(), "re"));
    std::string line;
    while (pipe != nullptr && ReadOutput(pipe.get(), line))
    {
        if (IsMixerLine(line, key))
        {
            text = MixerText(line);
            return 0;
        }
    }
    return -1;
}

/// Runs the player and reaps it. Without a shell in between: whatever characters a file's name has, it is one file.
void RunPlayer(std::string path)
{
    std::string program = "aplay";
    const std::array<char*, 3> arguments{program.data(), path.data(), nullptr};
    pid_t player = 0;
    if (posix_spawnp(&player, program.c_str(), nullptr, nullptr, arguments.data(), environ) == 0)
    {
        Reap(player);
    }
}

} // namespace

SoundManager::SoundManager() noexcept
{
    // What comes of it is nobody's: without a mixer the daemon has other things to do.
    RunShell("amixer set PGA 3");
}

int32_t SoundManager::Init()
{
    constexpr const char* text = signatureOf<&SoundManager::Init>;
    ChipHandle chip(gpiod_chip_open_by_name(chipName));
    if (chip == nullptr)
    {
        Log::Error("%s: Failed to open GPIO chip", text);
        return -1;
    }
    gpiod_line* mic = gpiod_chip_get_line(chip.get(), micOffset);
    gpiod_line* spkr = gpiod_chip_get_line(chip.get(), spkrOffset);
    if (mic == nullptr || spkr == nullptr)
    {
        Log::Error("%s: Failed to get MIC or SPKR lines", text);
        return -2;
    }
    const int micRequest = gpiod_line_request_output(mic, consumer, 1);
    const int spkrRequest = gpiod_line_request_output(spkr, consumer, 0);
    if (micRequest < 0 || spkrRequest < 0)
    {
        Log::Error("%s: Failed to request GPIO output for MIC or SPKR lines", text);
        gpiod_line_release(mic);
        gpiod_line_release(spkr);
        return -3;
    }
    chip_ = chip.release(); // for the life of the process, as its lines
    micLine_ = mic;
    spkrLine_ = spkr;
    if (SetControl(dacControl, 100) < 0)
    {
        Log::Error("%s: Failed to configure volume of DAC device", text);
    }
    ListAudioFiles();
    return 0;
}

int32_t SoundManager::SetMicEnabled(bool enabled)
{
    return WriteLine({signatureOf<&SoundManager::SetMicEnabled>, "Set Microphone enabled", micLine_}, enabled);
}
int32_t SoundManager::GetMicEnabled(bool& enabled)
{
    return ReadLine({signatureOf<&SoundManager::GetMicEnabled>, "Get Microphone", micLine_}, enabled);
}
int32_t SoundManager::SetSpkrEnabled(bool enabled)
{
    return WriteLine({signatureOf<&SoundManager::SetSpkrEnabled>, "Set Spkr enabled", spkrLine_}, enabled);
}
int32_t SoundManager::GetSpkrEnabled(bool& enabled)
{
    return ReadLine({signatureOf<&SoundManager::GetSpkrEnabled>, "Get Spkr enabled", spkrLine_}, enabled);
}

int32_t SoundManager::SetSpkrVolume(int percent) { return SetControl(speakerControl, percent); }

int32_t SoundManager::GetSpkrVolume(int& raw, int& percent, float& decibels)
{
    std::string text;
    return GetControl(speakerControl, "Front Left", text) == 0 && ParseVolume(text, raw, percent, decibels) ? 0 : -1;
}

int32_t SoundManager::GetSpkrVolumeLimits(int& minimum, int& maximum)
{
    std::string text;
    return GetControl(dacControl, "Limits", text) == 0 && ParseLimits(text, minimum, maximum) ? 0 : -1;
}

int32_t SoundManager::Play(const std::string& name) const
{
    if (std::find(audioFiles_.begin(), audioFiles_.end(), name) == audioFiles_.end())
    {
        return -1;
    }
    try
    {
        std::thread(&RunPlayer, soundFolder + name).detach();
    }
    catch (const std::system_error&) // no thread to be had
    {
        return -1;
    }
    return 0;
}

void SoundManager::ListAudioFiles()
{
    audioFiles_.clear();
    std::error_code error;
    std::filesystem::directory_iterator entry(soundFolder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
    {
        if (entry->path().extension() == soundExtension)
        {
            audioFiles_.push_back(entry->path().filename());
        }
    }
}

} // namespace ControllerDaemon
