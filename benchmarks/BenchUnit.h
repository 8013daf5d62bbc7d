#pragma once

#include "benchmarks/ChildProcess.h"
#include "benchmarks/Operation.h"
#include "dbus_helper/Endpoint.h"
#include "dbus_helper/Handles.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Bench
{

inline constexpr DbusHelper::Endpoint daemonEndpoint{
    "com.tavilon.common.Controller1", "/com/tavilon/common/Controller1", "com.tavilon.common.Controller1.Control"};
inline constexpr DbusHelper::Endpoint bareEndpoint{"com.tavilon.common.BareServer1", "/com/tavilon/common/BareServer1",
                                                   "com.tavilon.common.BareServer1.Control"};

/// A folder that is removed with everything in it when it goes.
class TemporaryFolder
{
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    TemporaryFolder(TemporaryFolder&&) = delete;
    TemporaryFolder& operator=(TemporaryFolder&&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

  private:
    std::filesystem::path path_;
};

/// Receives the readiness of the services that the benchmark starts, as systemd would.
class ReadySocket
{
  public:
    explicit ReadySocket(const std::filesystem::path& path);
    ~ReadySocket();
    ReadySocket(const ReadySocket&) = delete;
    ReadySocket& operator=(const ReadySocket&) = delete;
    ReadySocket(ReadySocket&&) = delete;
    ReadySocket& operator=(ReadySocket&&) = delete;

    /// When the process said "READY=1". Throws Failure when it does not within ten seconds.
    [[nodiscard]] Clock::time_point Wait(pid_t pid) const;

  private:
    int descriptor_;
};

/// A service that has said that it is ready, and answers.
struct Service
{
    ChildProcess process;
    double startSeconds; ///< from exec(3) to READY=1
};

/// What the bare server does beside its property, and when: at its "start", for a "record", or at each "signal".
struct BareWork
{
    std::string occasion;
    std::vector<Operation> calls;
    size_t lines = 0;   ///< to the log
    size_t members = 0; ///< offered beside its own
};

/// Where the log of what is started goes.
enum class LogTarget
{
    Syslog, ///< where syslog(3) leads on this machine
    File,   ///< to a file of the unit, by a preloaded library
};

/// A private bus with the responder on it, and the benchmark's own connection to it. Everything ends with it.
class BenchUnit
{
  public:
    /// `build` is the build folder. From now on both buses of this process are the private one.
    explicit BenchUnit(const std::filesystem::path& build);

    [[nodiscard]] sd_bus* Bus() const { return bus_.get(); }
    /// The folder of the job's media.
    [[nodiscard]] std::filesystem::path Media() const { return folder_.Path() / "media"; }
    /// The folder of the files that are the screen's layers to a daemon that is started with layers.
    [[nodiscard]] std::filesystem::path Layers() const { return folder_.Path() / "layers"; }
    [[nodiscard]] std::filesystem::path DaemonProgram() const { return build_ / "daemon" / "controllerd"; }
    [[nodiscard]] std::filesystem::path BareServerProgram() const
    {
        return build_ / "benchmarks" / "bench_bare_server";
    }
    [[nodiscard]] std::filesystem::path ControlProgram() const { return build_ / "controllerctl" / "controllerctl"; }

    [[nodiscard]] Service StartDaemon(LogTarget log = LogTarget::Syslog) const;
    [[nodiscard]] Service StartDaemonWithLayers() const;
    [[nodiscard]] Service StartBareServer(const BareWork& work = {}, LogTarget log = LogTarget::Syslog) const;

    /// Calls a member of a server, by default the daemon, that answers "is". Throws Failure when it answers anything
    /// but success.
    void Order(const char* member, const char* signature = "", uint32_t first = 0, uint32_t second = 0,
               uint32_t third = 0, const DbusHelper::Endpoint& endpoint = daemonEndpoint) const;

    /// How many members a server offers, those of every bus object among them.
    [[nodiscard]] size_t CountMembers(const DbusHelper::Endpoint& endpoint) const;

    /// Lines in the log's file so far.
    [[nodiscard]] size_t LogLines() const;

    /// Makes the responder keep what it is called for, until the log is taken.
    void StartLog() const;
    [[nodiscard]] std::vector<Operation> TakeLog() const;
    /// From now on the storage daemon has so many devices, and its "StorageChanged" so many properties.
    void Resize(uint32_t devices, uint32_t properties) const;
    /// The names of a process's connections.
    [[nodiscard]] std::vector<std::string> ConnectionsOf(pid_t pid) const;
    /// Has the siblings emit a signal so many times; returns when the receiver, whose connections these are, has dealt
    /// with them.
    void Emit(const char* signal, uint32_t count, const std::vector<std::string>& receiver) const;

  private:
    [[nodiscard]] std::filesystem::path Mixer() const { return folder_.Path() / "bin"; }
    [[nodiscard]] std::filesystem::path Chips() const { return folder_.Path() / "gpio"; }
    void MakeDevices() const;
    /// What keeps the programs that are measured, and theirs, from the machine's own devices.
    [[nodiscard]] Environment Shielded(LogTarget log) const;
    [[nodiscard]] Service Start(const Command& command, const DbusHelper::Endpoint& endpoint) const;
    [[nodiscard]] ChildProcess StartBus();

    std::filesystem::path build_;
    TemporaryFolder folder_;
    ReadySocket ready_;
    ChildProcess busDaemon_;
    DbusHelper::BusHandle bus_;
    std::optional<Service> responder_;
};

} // namespace Bench
