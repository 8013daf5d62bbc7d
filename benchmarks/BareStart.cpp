// Deliberately plain, without the daemon's helpers, its log and its care: the floor of its start-up.

#include "benchmarks/BareStart.h"

#include "benchmarks/BareCalls.h"

#include <gpiod.h>
#include <libinput.h>
#include <libudev.h>

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace Bench
{
namespace
{

bool SetMixer()
{
    return std::system("amixer set PGA 3") == 0 && std::system("amixer set PCM 100%") == 0 &&
           std::system("amixer set 'HP DAC' 50%") == 0;
}

bool ReadMixer()
{
    std::array<char, 200> line{};
    std::FILE* pipe = popen("amixer get 'HP DAC'", "re");
    const bool isRead = pipe != nullptr && std::fgets(line.data(), line.size(), pipe) != nullptr;
    return pipe != nullptr && pclose(pipe) == 0 && isRead;
}

bool SwitchLine(gpiod_chip* chip, unsigned int offset)
{
    gpiod_line* line = gpiod_chip_get_line(chip, offset);
    return line != nullptr && gpiod_line_request_output(line, "bare", 0) == 0 && gpiod_line_set_value(line, 1) == 0;
}

bool SwitchLines()
{
    gpiod_chip* chip = gpiod_chip_open_by_name("gpiochip4");
    return chip != nullptr && SwitchLine(chip, 14) && SwitchLine(chip, 13);
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

} // namespace

bool BareStart(sd_event* loop, const std::vector<Operation>& calls)
{
    return SetMixer() && ReadMixer() && SwitchLines() && ListenToKeys(loop) &&
           std::all_of(calls.begin(), calls.end(), [](const Operation& call) { return BareCall(call) >= 0; });
}

} // namespace Bench
