#include "tests/unit/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace
{

/// Starts the bus with its standard output at the descriptor. setpriv has it end with the test, whatever becomes of
/// that.
pid_t Spawn(const std::filesystem::path& configuration, int output)
{
    std::vector<std::string> words{"setpriv",
                                   "--pdeathsig",
                                   "KILL",
                                   "dbus-daemon",
                                   "--nofork",
                                   "--nopidfile",
                                   "--print-address=1",
                                   "--config-file=" + configuration.string()};
    std::vector<char*> arguments;
    for (std::string& word : words)
    {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    EXPECT_EQ(posix_spawnp(&pid, arguments.front(), &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

} // namespace

PrivateBus::PrivateBus()
{
    std::string folder = "/tmp/ccu-bus-XXXXXX"; // short enough for a socket, whatever $TMPDIR says
    EXPECT_NE(mkdtemp(folder.data()), nullptr);
    folder_ = folder;
    const std::string address = "unix:path=" + folder + "/bus";
    std::ofstream(folder_ / "bus.conf")
        << "<busconfig><type>session</type><listen>" << address << "</listen><auth>EXTERNAL</auth>"
        << R"(<policy context="default"><allow user="*"/><allow own="*"/>)"
        << R"(<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/></policy></busconfig>)";
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    pid_ = Spawn(folder_ / "bus.conf", ends[1]);
    close(ends[1]);
    char first = '\0';
    EXPECT_EQ(read(ends[0], &first, 1), 1) << "the bus does not listen";
    close(ends[0]);
    setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
}

PrivateBus::~PrivateBus()
{
    Kill();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void PrivateBus::Kill()
{
    if (pid_ > 0)
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }
}
