// Deliberately plain, without the daemon's helpers, its log and its care: the floor of its start-up.

#include "benchmarks/BareStart.h"

#include <gpiod.h>
#include <libinput.h>
#include <libudev.h>
#include <systemd/sd-bus.h>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>
#include <string_view>

namespace Bench
{
namespace
{

using Words = std::array<const char*, 5>; ///< up to a null pointer

bool RunMixer(const Words& words, const posix_spawn_file_actions_t* actions = nullptr)
{
    pid_t mixer = 0;
    return posix_spawnp(&mixer, words.front(), actions, nullptr, const_cast<char* const*>(words.data()), environ) ==
               0 &&
           waitpid(mixer, nullptr, 0) == mixer;
}

bool ReadMixer()
{
    std::array<int, 2> pipe{};
    posix_spawn_file_actions_t actions{};
    if (pipe2(pipe.data(), O_CLOEXEC) != 0 || posix_spawn_file_actions_init(&actions) != 0 ||
        posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO) != 0)
    {
        return false;
    }
    std::array<char, 200> line{};
    const bool isRead = RunMixer({"amixer", "get", "HP DAC"}, &actions) && read(pipe[0], line.data(), line.size()) > 0;
    posix_spawn_file_actions_destroy(&actions);
    close(pipe[0]);
    close(pipe[1]);
    return isRead;
}

std::array<gpiod_line*, 2> lines{};
constexpr std::array lineOffsets{14U, 13U}; ///< microphone, speaker

bool RequestLines()
{
    gpiod_chip* chip = gpiod_chip_open_by_name("gpiochip4");
    bool isDone = chip != nullptr;
    for (size_t i = 0; i < lines.size() && isDone; ++i)
    {
        lines.at(i) = gpiod_chip_get_line(chip, lineOffsets.at(i));
        isDone = lines.at(i) != nullptr && gpiod_line_request_output(lines.at(i), "bare", 0) == 0;
    }
    return isDone;
}

bool SwitchLine(gpiod_line* line) { return gpiod_line_set_value(line, 1) == 0 && gpiod_line_get_value(line) == 1; }

/// The sounds and the zones that the unit has; a machine may have none.
void ListFolder(const char* path)
{
    if (DIR* folder = opendir(path); folder != nullptr)
    {
        while (readdir(folder) != nullptr)
        {}
        closedir(folder);
    }
}

constexpr libinput_interface deviceAccess{
    .open_restricted = [](const char* path, int flags, void* /*userData*/) { return open(path, flags); },
    .close_restricted = [](int descriptor, void* /*userData*/) { close(descriptor); },
};

bool ListenToKeys(sd_event* loop)
{
    udev* devices = udev_new();
    libinput* input = libinput_udev_create_context(&deviceAccess, nullptr, devices);
    const auto dispatch = [](sd_event_source*, int, uint32_t, void* context) {
        return libinput_dispatch(static_cast<libinput*>(context));
    };
    return input != nullptr && libinput_udev_assign_seat(input, "seat0") == 0 &&
           sd_event_add_io(loop, nullptr, libinput_get_fd(input), EPOLLIN, dispatch, input) >= 0;
}

bool Attach(sd_event* loop, sd_bus*& bus)
{
    return sd_bus_open_user(&bus) >= 0 && sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL) >= 0;
}

/// The siblings' signals, on a connection for each sibling beside that of the listener.
bool Subscribe(sd_event* loop)
{
    struct Subscription
    {
        const char* sibling;
        const char* path; ///< null for those that emit at several
        const char* interface;
        const char* member;
    };
    constexpr const char* properties = "org.freedesktop.DBus.Properties";
    constexpr const char* objects = "org.freedesktop.DBus.ObjectManager";
    constexpr const char* video = "/com/tavilon/common/Video1";
    constexpr const char* videoControl = "com.tavilon.common.Video1.Control";
    constexpr const char* storage = "/com/tavilon/common/StorageDaemon1";
    constexpr std::array subscriptions{Subscription{"Settings1", nullptr, properties, "PropertiesChanged"},
                                       Subscription{"Video1", video, properties, "PropertiesChanged"},
                                       Subscription{"Video1", video, videoControl, "VideoGrew"},
                                       Subscription{"Video1", video, videoControl, "PhotoTalkGrew"},
                                       Subscription{"Video1", video, videoControl, "AutoLogGrew"},
                                       Subscription{"StorageDaemon1", nullptr, properties, "PropertiesChanged"},
                                       Subscription{"StorageDaemon1", storage, objects, "InterfacesRemoved"}};
    sd_bus* bus = nullptr;
    bool isSubscribed = Attach(loop, bus);
    std::string_view last;
    for (const Subscription& each : subscriptions)
    {
        isSubscribed = isSubscribed && (last == each.sibling || Attach(loop, bus));
        last = each.sibling;
        const std::string service = std::string("com.tavilon.common.") + each.sibling;
        const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
        isSubscribed = isSubscribed && sd_bus_match_signal(bus, nullptr, service.c_str(), each.path, each.interface,
                                                           each.member, ignore, nullptr) >= 0;
    }
    return isSubscribed;
}

} // namespace

bool BareStart(sd_event* loop)
{
    bool isDone = RunMixer({"amixer", "set", "PGA", "3"}) && Subscribe(loop) && RequestLines() &&
                  RunMixer({"amixer", "set", "PCM", "100%"});
    ListFolder("/usr/share/sounds");
    isDone = isDone && ListenToKeys(loop);
    ListFolder("/usr/share/zoneinfo/CCU");
    return isDone;
}

int BareDevice(const std::string& property)
{
    const bool isMixer = property == "speakerVolume";
    if (!isMixer && property != "SystemMicMute" && property != "speakerEnabled")
    {
        return 0;
    }
    const bool isSet = isMixer ? RunMixer({"amixer", "set", "HP DAC", "50%"}) && ReadMixer()
                               : SwitchLine(lines.at(property == "SystemMicMute" ? 0 : 1));
    return isSet ? 1 : -1;
}

} // namespace Bench
