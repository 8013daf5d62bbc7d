#include "tests/unit/device/ShellStandIn.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace
{

struct Shell
{
    std::vector<std::string> commands;
    int status = 0;
    std::string output;
};

/// There as soon as the first command comes, which is before main.
Shell& State()
{
    static Shell shell;
    return shell;
}

} // namespace

namespace ShellStandIn
{

std::vector<std::string> TakeCommands() { return std::exchange(State().commands, {}); }
void Answer(int status) { State().status = status; }
void Print(const std::string& text) { State().output = text; }

} // namespace ShellStandIn

// The shell's child, which ends at once.
extern "C" int posix_spawn(pid_t* child, const char* /*path*/, const posix_spawn_file_actions_t* /*actions*/,
                           const posix_spawnattr_t* /*attributes*/, char* const arguments[],
                           char* const /*environment*/[])
{
    State().commands.emplace_back(arguments[2]);
    *child = 1;
    return State().status < 0 ? EAGAIN : 0;
}

extern "C" pid_t waitpid(pid_t child, int* status, int /*options*/)
{
    *status = State().status;
    return child;
}

extern "C" FILE* popen(const char* command, const char* /*mode*/)
{
    State().commands.emplace_back(command);
    FILE* output = State().status < 0 ? nullptr : std::tmpfile();
    if (output != nullptr)
    {
        std::fwrite(State().output.data(), 1, State().output.size(), output);
        std::rewind(output);
    }
    return output;
}

extern "C" int pclose(FILE* output) { return std::fclose(output); }
