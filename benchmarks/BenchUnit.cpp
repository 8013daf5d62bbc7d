#include "benchmarks/BenchUnit.h"

#include "benchmarks/Comparison.h"
#include "dbus_helper/Codec.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

namespace Bench
{
namespace
{

constexpr const char* busConfiguration =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=@socket@</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
)";

constexpr std::string_view socketMark = "@socket@";
constexpr int patienceMilliseconds = 10000;
/// Longer than a batch of signals takes on a slow machine.
constexpr uint64_t emitTimeoutMicroseconds = 60'000'000;

/// Answers of the bus: throws Failure when there is none.
class Answer
{
  public:
    [[nodiscard]] sd_bus_message* Message() const { return message_.get(); }

    template <typename... Arguments>
    Answer(sd_bus* bus, const DbusHelper::Endpoint& endpoint, const char* member, const char* signature,
           Arguments... arguments)
    {
        sd_bus_message* reply = nullptr;
        const int result = sd_bus_call_method(bus, endpoint.service, endpoint.path, endpoint.interface, member,
                                              error_.Get(), &reply, signature, arguments...);
        message_.reset(reply);
        Check(result, endpoint, member);
    }
    Answer(sd_bus* bus, sd_bus_message* call, const DbusHelper::Endpoint& endpoint, const char* member)
    {
        sd_bus_message* reply = nullptr;
        const int result = sd_bus_call(bus, call, emitTimeoutMicroseconds, error_.Get(), &reply);
        message_.reset(reply);
        Check(result, endpoint, member);
    }

  private:
    void Check(int result, const DbusHelper::Endpoint& endpoint, const char* member)
    {
        if (result < 0)
        {
            const char* reason = error_.Message() != nullptr ? error_.Message() : std::strerror(-result);
            throw Failure(std::string(endpoint.service) + " " + member + ": " + reason);
        }
    }

    DbusHelper::BusError error_;
    DbusHelper::MessageHandle message_;
};

constexpr DbusHelper::Endpoint busEndpoint{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
constexpr DbusHelper::Endpoint responderEndpoint{responderName, responderPath, responderName};

/// Reads to the end of the first line.
std::string ReadLine(int descriptor)
{
    std::string line;
    char character = '\0';
    pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
    while (poll(&waiting, 1, patienceMilliseconds) > 0 && read(descriptor, &character, 1) == 1 && character != '\n')
    {
        line += character;
    }
    return line;
}

void WriteBusConfiguration(const std::filesystem::path& configuration, const std::filesystem::path& socket)
{
    std::string text = busConfiguration;
    text.replace(text.find(socketMark), socketMark.size(), socket.string());
    std::ofstream(configuration) << text;
}

/// A program that has just been linked counts as dirty memory of whoever runs it until it has been written to the disk.
void WriteToDisk(const std::filesystem::path& program)
{
    const int descriptor = open(program.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0)
    {
        fsync(descriptor);
        close(descriptor);
    }
}

} // namespace

TemporaryFolder::TemporaryFolder()
{
    std::string name = (std::filesystem::temp_directory_path() / "ccu-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
    {
        throw Failure("cannot make a temporary folder");
    }
    path_ = name;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

ReadySocket::ReadySocket(const std::filesystem::path& path) : descriptor_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    const int on = 1;
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.string().copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    if (setsockopt(descriptor_, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0 ||
        bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    {
        close(descriptor_);
        throw Failure("cannot listen for the readiness of services");
    }
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
}

ReadySocket::~ReadySocket() { close(descriptor_); }

Clock::time_point ReadySocket::Wait(pid_t pid) const
{
    std::array<char, 256> text{};
    std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
    pollfd waiting{.fd = descriptor_, .events = POLLIN, .revents = 0};
    while (poll(&waiting, 1, patienceMilliseconds) > 0)
    {
        const Clock::time_point now = Clock::now();
        iovec part{.iov_base = text.data(), .iov_len = text.size()};
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        const ssize_t length = recvmsg(descriptor_, &header, 0);
        ucred sender{};
        if (const cmsghdr* first = CMSG_FIRSTHDR(&header); first != nullptr)
        {
            std::memcpy(&sender, CMSG_DATA(first), sizeof sender);
        }
        if (length > 0 && sender.pid == pid &&
            std::string_view(text.data(), static_cast<size_t>(length)).starts_with("READY=1"))
        {
            return now;
        }
    }
    ThrowIfInterrupted();
    throw Failure("a service did not become ready");
}

BenchUnit::BenchUnit(const std::filesystem::path& build)
    : build_(build), ready_(folder_.Path() / "ready"), busDaemon_(StartBus())
{
    std::filesystem::create_directory(Media());
    std::filesystem::create_directory(Layers());
    MakeDevices();
    const int result = DbusHelper::OpenUserBus(bus_);
    if (result < 0)
    {
        throw Failure(std::string("cannot connect to the private bus: ") + std::strerror(-result));
    }
    WriteToDisk(DaemonProgram());
    WriteToDisk(BareServerProgram());
    responder_.emplace(
        Start({{(build_ / "benchmarks" / "bench_responder").string(), Media().string()}}, responderEndpoint));
}

ChildProcess BenchUnit::StartBus()
{
    const std::filesystem::path configuration = folder_.Path() / "bus.conf";
    WriteBusConfiguration(configuration, folder_.Path() / "bus");
    std::array<int, 2> told{};
    if (pipe2(told.data(), O_CLOEXEC) != 0)
    {
        throw Failure("cannot make a pipe");
    }
    const std::filesystem::path complaints = folder_.Path() / "bus.stderr";
    ChildProcess process(
        {.arguments = {"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + configuration.string(),
                       "--print-address=" + std::to_string(told[1])},
         .environment = {{"NOTIFY_SOCKET", ""}},
         .descriptor = told[1],
         .complaints = complaints.string()});
    close(told[1]);
    const std::string address = ReadLine(told[0]);
    close(told[0]);
    if (address.empty())
    {
        std::ostringstream reason;
        reason << std::ifstream(complaints).rdbuf();
        throw Failure("the private bus did not start: " + reason.str());
    }
    for (const char* variable : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
    {
        setenv(variable, address.c_str(), 1);
    }
    return process;
}

Service BenchUnit::Start(const Command& command, const DbusHelper::Endpoint& endpoint) const
{
    ChildProcess process(command);
    const std::chrono::duration<double> taken = ready_.Wait(process.Pid()) - process.ExecTime();
    const Answer pong(Bus(), {endpoint.service, endpoint.path, "org.freedesktop.DBus.Peer"}, "Ping", "");
    return {std::move(process), taken.count()};
}

void BenchUnit::MakeDevices() const
{
    std::filesystem::create_directory(Mixer());
    std::filesystem::create_symlink(std::filesystem::absolute(build_ / "benchmarks" / "mixer" / "amixer"),
                                    Mixer() / "amixer");
    std::filesystem::create_symlink("/bin/true", Mixer() / "aplay");
    for (const char* line : {"13", "14"})
    {
        const std::filesystem::path folder = Chips() / "gpiochip4" / line;
        std::filesystem::create_directories(folder);
        std::ofstream(folder / "value") << "0\n";
    }
}

Environment BenchUnit::Shielded(LogTarget log) const
{
    const std::filesystem::path ofTheUnit = build_ / "virtual_unit" / "preload";
    std::vector<std::filesystem::path> libraries{ofTheUnit / "libgpio.so",
                                                 build_ / "benchmarks" / "libinput_shield.so"};
    if (log == LogTarget::File)
    {
        libraries.push_back(ofTheUnit / "libsyslog_capture.so");
    }
    std::string preload;
    for (const std::filesystem::path& library : libraries)
    {
        preload.append(library).append(" ");
    }
    return {{"PATH", Mixer().string()},
            {"CCU_GPIO", Chips().string()},
            {"CCU_SYSLOG_FILE", log == LogTarget::File ? (folder_.Path() / "syslog").string() : ""},
            {"LD_PRELOAD", preload}};
}

Service BenchUnit::StartDaemon(LogTarget log) const
{
    return Start({{DaemonProgram()}, Shielded(log)}, daemonEndpoint);
}

Service BenchUnit::StartDaemonWithLayers() const
{
    Environment environment = Shielded(LogTarget::File);
    environment["CCU_FRAMEBUFFERS"] = Layers();
    for (const char* library : {"libplaces.so ", "libframebuffer.so "})
    {
        environment["LD_PRELOAD"].append(build_ / "virtual_unit" / "preload" / library);
    }
    return Start({{DaemonProgram()}, environment}, daemonEndpoint);
}

Service BenchUnit::StartBareServer(const BareWork& work, LogTarget log) const
{
    Command command{
        {BareServerProgram(), work.occasion, std::to_string(work.lines), Media(), std::to_string(work.members)},
        Shielded(log)};
    for (const Operation& call : work.calls)
    {
        const auto texts = {call.service, call.path, call.interface, call.member, call.property, call.signature};
        command.arguments.insert(command.arguments.end(), texts);
    }
    return Start(command, bareEndpoint);
}

void BenchUnit::Order(const char* member, const char* signature, uint32_t first, uint32_t second, uint32_t third,
                      const DbusHelper::Endpoint& endpoint) const
{
    const Answer answer(Bus(), endpoint, member, signature, first, second, third);
    int32_t code = -1;
    const char* text = "an answer that cannot be read";
    if (sd_bus_message_read(answer.Message(), "is", &code, &text) < 0 || code != 0)
    {
        throw Failure(std::string(member) + " answered: " + text);
    }
}

size_t BenchUnit::CountMembers(const DbusHelper::Endpoint& endpoint) const
{
    const Answer answer(Bus(), {endpoint.service, endpoint.path, "org.freedesktop.DBus.Introspectable"}, "Introspect",
                        "");
    const char* text = "";
    sd_bus_message_read(answer.Message(), "s", &text);
    size_t count = 0;
    for (const std::string_view tag : {"<method ", "<property ", "<signal "})
    {
        for (const char* found = std::strstr(text, tag.data()); found != nullptr;
             found = std::strstr(found + 1, tag.data()))
        {
            ++count;
        }
    }
    return count;
}

size_t BenchUnit::LogLines() const
{
    std::ifstream log(folder_.Path() / "syslog");
    return static_cast<size_t>(std::count(std::istreambuf_iterator(log), {}, '\n'));
}

void BenchUnit::Resize(uint32_t devices, uint32_t properties) const
{
    Answer(Bus(), responderEndpoint, "Resize", "uu", devices, properties);
}

void BenchUnit::StartLog() const { Answer(Bus(), responderEndpoint, "StartLog", ""); }

std::vector<Operation> BenchUnit::TakeLog() const
{
    const Answer answer(Bus(), responderEndpoint, "TakeLog", "");
    std::vector<OperationTexts> log;
    if (DbusHelper::Codec<std::vector<OperationTexts>>::Read(answer.Message(), log) < 0)
    {
        throw Failure("the responder's log cannot be read");
    }
    std::vector<Operation> operations;
    for (const OperationTexts& texts : log)
    {
        std::apply([&](const auto&... text) { operations.push_back({text...}); }, texts);
    }
    return operations;
}

std::vector<std::string> BenchUnit::ConnectionsOf(pid_t pid) const
{
    const Answer names(Bus(), busEndpoint, "ListNames", "");
    std::vector<std::string> all;
    std::vector<std::string> connections;
    DbusHelper::Codec<std::vector<std::string>>::Read(names.Message(), all);
    for (const std::string& name : all)
    {
        if (!name.starts_with(':'))
        {
            continue;
        }
        const Answer owner(Bus(), busEndpoint, "GetConnectionUnixProcessID", "s", name.c_str());
        uint32_t ownerPid = 0;
        if (sd_bus_message_read(owner.Message(), "u", &ownerPid) > 0 && ownerPid == static_cast<uint32_t>(pid))
        {
            connections.push_back(name);
        }
    }
    return connections;
}

void BenchUnit::Emit(const char* signal, uint32_t count, const std::vector<std::string>& receiver) const
{
    std::vector<char*> connections;
    connections.reserve(receiver.size() + 1);
    for (const std::string& name : receiver)
    {
        connections.push_back(const_cast<char*>(name.c_str()));
    }
    connections.push_back(nullptr);
    sd_bus_message* message = nullptr;
    int result = sd_bus_message_new_method_call(Bus(), &message, responderEndpoint.service, responderEndpoint.path,
                                                responderEndpoint.interface, "Emit");
    const DbusHelper::MessageHandle call(message);
    result = result < 0 ? result : sd_bus_message_append(message, "su", signal, count);
    result = result < 0 ? result : sd_bus_message_append_strv(message, connections.data());
    if (result < 0)
    {
        throw Failure("cannot order signals");
    }
    const Answer answer(Bus(), message, responderEndpoint, "Emit");
}

} // namespace Bench
