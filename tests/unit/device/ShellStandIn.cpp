#include "tests/unit/device/ShellStandIn.h"

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

extern "C" int system(const char* command)
{
    State().commands.emplace_back(command);
    return State().status;
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
