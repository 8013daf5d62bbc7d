#include "controllerctl/Tool.h"

#include "dbus_helper/Descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace ControllerCtl
{
namespace
{

/// Reads to the end of the output; false when the time has passed before.
bool ReadAll(int descriptor, const Patience& patience, std::string& output)
{
    std::array<char, 4096> chunk{};
    pollfd waited{.fd = descriptor, .events = POLLIN, .revents = 0};
    ssize_t count = 1;
    while (count > 0)
    {
        const int ready = poll(&waited, 1, patience.Left());
        if (ready == 0)
        {
            return false;
        }
        count = read(descriptor, chunk.data(), chunk.size());
        output.append(chunk.data(), count > 0 ? static_cast<size_t>(count) : 0);
        count = count < 0 && errno == EINTR ? 1 : count;
    }
    return true;
}

/// Waits for the end of a child; false when the time has passed before.
bool WaitFor(pid_t child, const Patience& patience)
{
    const DbusHelper::Descriptor handle(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    pollfd waited{.fd = handle.Get(), .events = POLLIN, .revents = 0};
    return poll(&waited, 1, patience.Left()) > 0;
}

} // namespace

ToolEnd RunTool(const std::vector<std::string>& words, const Patience& patience)
{
    ToolEnd end;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
    {
        return end;
    }
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
    {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const DbusHelper::Descriptor reading(ends[0]);
    pid_t child = 0;
    {
        const DbusHelper::Descriptor writing(ends[1]);
        posix_spawn_file_actions_t actions{};
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, writing.Get(), STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        end.hasStarted = posix_spawnp(&child, words.front().c_str(), &actions, nullptr, arguments.data(), environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
    }
    if (!end.hasStarted)
    {
        return end;
    }
    end.isInTime = ReadAll(reading.Get(), patience, end.output) && WaitFor(child, patience);
    if (!end.isInTime)
    {
        kill(child, SIGKILL);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
    {}
    end.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return end;
}

} // namespace ControllerCtl
