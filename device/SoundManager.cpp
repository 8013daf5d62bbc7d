#include "device/SoundManager.h"

#include "dbus_helper/Log.h"
#include "dbus_helper/Signature.h"
#include "device/DeviceNames.h"
#include "device/MixerOutput.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <system_error>
#include <thread>

namespace ControllerDaemon
{
namespace
{

using DbusHelper::signatureOf;

constexpr const char* consumer = "controller";

struct ChipCloser
{
    void operator()(gpiod_chip* chip) const { gpiod_chip_close(chip); }
};
using ChipHandle = std::unique_ptr<gpiod_chip, ChipCloser>;

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

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

/// A program and its arguments, with a null pointer behind them.
using Words = std::initializer_list<const char*>;

/// Starts a program of the PATH; 0 or an errno. Without a shell in between: whatever characters an argument has, it is
/// one argument. What it prints goes to `output`, or else to nobody: the daemon's own standard output is the journal.
/// What it complains of goes there, as nothing else tells why a mixer or a player does not do as it is told.
int Spawn(pid_t& child, Words words, int output = -1)
{
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    if (output >= 0)
    {
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    }
    else
    {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    const int error =
        posix_spawnp(&child, *words.begin(), &actions, nullptr, const_cast<char* const*>(words.begin()), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

/// Waits for a child's end; its status, as the C library's system() gives it: -1 when it is not to be had.
int Reap(pid_t child)
{
    int status = 0;
    pid_t reaped = 0;
    while ((reaped = waitpid(child, &status, 0)) < 0 && errno == EINTR)
    {}
    return reaped < 0 ? -1 : status;
}

/// Runs a program to its end and returns the status that system() gives of a shell that runs it, also where there is
/// no such program. -1 when there is no room for another process.
int Run(Words words)
{
    constexpr int notFound = 127 << 8;
    constexpr int notExecutable = 126 << 8;
    pid_t child = 0;
    switch (Spawn(child, words))
    {
    case 0:
        return Reap(child);
    case EAGAIN:
    case ENOMEM:
        return -1;
    case ENOENT:
        return notFound;
    default:
        return notExecutable;
    }
}

/// What a program prints. Its end is waited for, and what is not read by then is not missed.
class Output
{
  public:
    explicit Output(Words words)
    {
        std::array<int, 2> pipe{};
        if (pipe2(pipe.data(), O_CLOEXEC) != 0)
        {
            return;
        }
        file_.reset(fdopen(pipe[0], "r"));
        if (file_ == nullptr)
        {
            close(pipe[0]);
            close(pipe[1]);
            return;
        }
        if (Spawn(child_, words, pipe[1]) != 0)
        {
            child_ = 0;
        }
        close(pipe[1]);
    }
    ~Output()
    {
        file_.reset(); // before the wait, or a program that prints on would never end
        if (child_ > 0)
        {
            Reap(child_);
        }
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    Output(Output&&) = delete;
    Output& operator=(Output&&) = delete;

    /// The next line, with its newline. False at the end.
    bool Read(std::string& line)
    {
        line.clear();
        int character = 0;
        while (file_ != nullptr && character != '\n' && (character = std::fgetc(file_.get())) != EOF)
        {
            line.push_back(static_cast<char>(character));
        }
        return !line.empty();
    }

  private:
    FileHandle file_;
    pid_t child_ = 0;
};

int32_t SetControl(const char* control, int percent)
{
    const std::string value = std::to_string(percent) + "%";
    return Run({"amixer", "set", control, value.c_str(), nullptr});
}

int32_t GetControl(const char* control, const char* key, std::string& text)
{
    Output output({"amixer", "get", control, nullptr});
    std::string line;
    while (output.Read(line))
    {
        if (IsMixerLine(line, key))
        {
            text = MixerText(line);
            return 0;
        }
    }
    return -1;
}

} // namespace

SoundManager::SoundManager() noexcept
{
    // What comes of it is nobody's: without a mixer the daemon has other things to do.
    Run({"amixer", "set", amplifierControl, "3", nullptr});
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
        std::thread([path = soundFolder + name] { Run({"aplay", path.c_str(), nullptr}); }).detach();
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
