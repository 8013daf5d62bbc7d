#include "benchmarks/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <utility>

namespace Bench
{
namespace
{

/// What a child tells of itself before it becomes its program, and after that has failed.
struct Birth
{
    Clock::time_point execTime;
    bool hasFailed = false;
};

/// Turns the forked copy of the benchmark into the child; does not return.
[[noreturn]] void Become(const Command& command, pid_t parent, int told)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0); // Ctrl-C is the benchmark's business
    if (getppid() != parent)
    {
        _exit(EXIT_FAILURE);
    }
    if (command.descriptor >= 0)
    {
        fcntl(command.descriptor, F_SETFD, 0);
    }
    if (!command.complaints.empty())
    {
        dup2(open(command.complaints.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR),
             STDERR_FILENO);
    }
    for (const auto& [name, value] : command.environment)
    {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> arguments;
    for (const std::string& argument : command.arguments)
    {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    Birth birth{.execTime = Clock::now()};
    const bool isTold = write(told, &birth, sizeof birth) == sizeof birth;
    if (isTold)
    {
        execvp(arguments.front(), arguments.data());
    }
    birth.hasFailed = true;
    const ssize_t ignored = write(told, &birth, sizeof birth);
    _exit(ignored > 0 ? EXIT_FAILURE : EXIT_FAILURE + 1);
}

/// The whole of what the child tells: the pipe ends when it has become its program.
Birth ReadBirth(int told)
{
    Birth birth{.execTime = {}, .hasFailed = true};
    Birth read;
    while (TEMP_FAILURE_RETRY(::read(told, &read, sizeof read)) == sizeof read)
    {
        birth = read;
    }
    return birth;
}

int64_t CountDescriptors(pid_t pid)
{
    std::error_code error;
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd", error);
    return std::distance(begin(entries), end(entries));
}

} // namespace

ChildProcess::ChildProcess(const Command& command)
{
    std::array<int, 2> told{};
    if (pipe2(told.data(), O_CLOEXEC) != 0)
    {
        throw Failure("cannot make a pipe");
    }
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0)
    {
        Become(command, parent, told[1]);
    }
    close(told[1]);
    const Birth birth = pid_ > 0 ? ReadBirth(told[0]) : Birth{.execTime = {}, .hasFailed = true};
    close(told[0]);
    execTime_ = birth.execTime;
    if (birth.hasFailed)
    {
        End();
        throw Failure("cannot start " + command.arguments.front());
    }
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), execTime_(other.execTime_)
{}

ChildProcess::~ChildProcess() { End(); }

void ChildProcess::End()
{
    if (pid_ > 0)
    {
        kill(pid_, SIGKILL);
        TEMP_FAILURE_RETRY(waitpid(pid_, nullptr, 0));
        pid_ = -1;
    }
}

double ChildProcess::CpuSeconds() const
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &time) != 0)
    {
        throw Failure("a process that is measured has ended");
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

Holdings ChildProcess::Held() const
{
    Holdings held{.descriptors = CountDescriptors(pid_)};
    std::ifstream rollup("/proc/" + std::to_string(pid_) + "/smaps_rollup");
    rollup.ignore(std::numeric_limits<std::streamsize>::max(), '\n'); // the range that the figures are of
    std::string name;
    std::string unit;
    int64_t kib = 0;
    bool isRead = false;
    while (rollup >> name >> kib >> unit)
    {
        isRead = true;
        held.residentKib = name == "Rss:" ? kib : held.residentKib;
        held.privateDirtyKib = name == "Private_Dirty:" ? kib : held.privateDirtyKib;
    }
    if (!isRead)
    {
        throw Failure("cannot read the memory of a process that is measured");
    }
    return held;
}

} // namespace Bench
