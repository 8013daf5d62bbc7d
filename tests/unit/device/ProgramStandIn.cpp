#include "tests/unit/device/ProgramStandIn.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace
{

struct Programs
{
    std::vector<std::string> commands;
    int status = 0;
    int error = 0;
    bool lost = false;
    std::string output;
    int outputDescriptor = -1; ///< where the next program prints to
};

/// There as soon as the first command comes, which is before main.
Programs& State()
{
    static Programs programs;
    return programs;
}

std::string CommandText(char* const arguments[])
{
    std::string text = arguments[0];
    for (size_t i = 1; arguments[i] != nullptr; ++i)
    {
        const std::string argument = arguments[i];
        const bool isPlain = argument.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                        "0123456789%-") == std::string::npos;
        text += isPlain ? " " + argument : " '" + argument + "'";
    }
    return text;
}

} // namespace

namespace ProgramStandIn
{

std::vector<std::string> TakeCommands() { return std::exchange(State().commands, {}); }
void Answer(int status) { State().status = status; }
void Refuse(int error) { State().error = error; }
void Lose(bool lost) { State().lost = lost; }
void Print(const std::string& text) { State().output = text; }

} // namespace ProgramStandIn

extern "C" int posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* /*actions*/, int descriptor, int /*target*/)
{
    State().outputDescriptor = descriptor;
    return 0;
}

// The child ends at once.
extern "C" int posix_spawnp(pid_t* child, const char* /*file*/, const posix_spawn_file_actions_t* /*actions*/,
                            const posix_spawnattr_t* /*attributes*/, char* const arguments[],
                            char* const /*environment*/[])
{
    Programs& state = State();
    state.commands.push_back(CommandText(arguments));
    const int output = std::exchange(state.outputDescriptor, -1);
    *child = 1;
    if (state.error == 0 && output >= 0)
    {
        const ssize_t written = write(output, state.output.data(), state.output.size());
        return written == static_cast<ssize_t>(state.output.size()) ? 0 : EIO;
    }
    return state.error;
}

extern "C" pid_t waitpid(pid_t child, int* status, int /*options*/)
{
    if (State().lost)
    {
        errno = ECHILD;
        return -1;
    }
    *status = State().status;
    return child;
}
