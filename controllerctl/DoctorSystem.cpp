// The system around the controller: clock, rights, zones, folders, log.
#include "capture/ScreenNames.h"
#include "controllerctl/Doctor.h"
#include "controllerctl/Inquiry.h"
#include "dbus_helper/Descriptor.h"
#include "time/TimezoneCatalogue.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <tuple>

namespace ControllerCtl
{
namespace
{

namespace fs = std::filesystem;
using std::string;

constexpr DbusHelper::Endpoint timedate{"org.freedesktop.timedate1", "/org/freedesktop/timedate1",
                                        "org.freedesktop.timedate1"};
constexpr DbusHelper::Endpoint polkit{"org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
                                      "org.freedesktop.PolicyKit1.Authority"};
constexpr const char* fixedClock = "clock and zone cannot be set";

// Rights --------------------------------------------------------------------------------------------------------------

/// Asks whether this program's own connection, which is of the same user as the controller's, may do what is to be
/// done.
void AskPolkit(Inquiry& inquiry, sd_bus* bus, const char* action, Hearing& hearing, bool& isAllowed)
{
    const char* self = "";
    sd_bus_get_unique_name(bus, &self);
    const Inquiry::Writer write = [self, action](sd_bus_message* call) {
        constexpr unsigned noPrompt = 0;
        int result = sd_bus_message_append(call, "(sa{sv})", "system-bus-name", 1, "name", "s", self);
        result = result < 0 ? result : sd_bus_message_append(call, "s", action);
        result = result < 0 ? result : sd_bus_message_append(call, "a{ss}", 0);
        return result < 0 ? result : sd_bus_message_append(call, "us", noPrompt, "");
    };
    inquiry.CallAs(polkit, "CheckAuthorization", write, hearing, [&isAllowed](sd_bus_message* answer) {
        int allowed = 0;
        int result = sd_bus_message_enter_container(answer, 'r', "bba{ss}");
        result = result <= 0 ? -ENXIO : sd_bus_message_read_basic(answer, 'b', &allowed);
        isAllowed = allowed != 0;
        return result;
    });
}

void FindRights(const Patient& patient, sd_bus* bus, Findings& findings)
{
    constexpr std::array actions{"org.freedesktop.timedate1.set-time", "org.freedesktop.timedate1.set-timezone",
                                 "org.freedesktop.timedate1.set-ntp"};
    std::array<Hearing, actions.size()> hearings;
    std::array<bool, actions.size()> allowed{};
    Inquiry inquiry(bus);
    for (size_t i = 0; i < actions.size(); ++i)
    {
        AskPolkit(inquiry, bus, actions.at(i), hearings.at(i), allowed.at(i));
    }
    std::ignore = inquiry.Wait(Patience(patient.seconds));
    string refused;
    for (size_t i = 0; i < actions.size(); ++i)
    {
        const Hearing& hearing = hearings.at(i);
        if (hearing.heard != Heard::Well)
        {
            const bool isAbsent = hearing.heard == Heard::Absent;
            findings.push_back({"polkit", isAbsent ? Verdict::Missing : Verdict::Wrong,
                                isAbsent ? "polkit does not run" : "polkit does not say: " + hearing.message,
                                fixedClock, "install polkitd, and its rule 60-controllerd.rules"});
            return;
        }
        refused += allowed.at(i) ? "" : (refused.empty() ? "" : ", ") + string(actions.at(i));
    }
    if (refused.empty())
    {
        findings.push_back({"polkit", Verdict::Ok, "clock, zone and network clock may be set without a password"});
        return;
    }
    findings.push_back({"polkit", Verdict::Wrong, "the rule does not allow " + refused, fixedClock,
                        "check 60-controllerd.rules, and its user, in /usr/share/polkit-1/rules.d and "
                        "/etc/polkit-1/rules.d"});
}

// Clock ---------------------------------------------------------------------------------------------------------------

void FindClock(const Patient& patient, sd_bus* bus, Findings& findings)
{
    Reply<string> zone;
    Inquiry inquiry(bus);
    inquiry.Get(timedate, "Timezone", zone);
    std::ignore = inquiry.Wait(Patience(patient.seconds));
    using std::chrono::year_month_day;
    const auto now = std::chrono::system_clock::from_time_t(std::time(nullptr));
    const year_month_day today(std::chrono::floor<std::chrono::days>(now));
    constexpr std::chrono::year first{2025};
    if (!zone.Well())
    {
        findings.push_back({"clock", zone.heard == Heard::Absent ? Verdict::Missing : Verdict::Wrong,
                            "timedated does not tell the zone: " + zone.message, fixedClock,
                            "systemctl status systemd-timedated"});
    }
    else if (today.year() < first)
    {
        findings.push_back({"clock", Verdict::Wrong, "it stands in the year " + std::to_string(int{today.year()}),
                            "recordings and pictures get wrong dates",
                            "controllerctl time set, or time set-gps; check "
                            "the battery of the clock"});
    }
    else if (!zone.value.starts_with(ControllerDaemon::standardPrefix))
    {
        findings.push_back({"clock", Verdict::Wrong, "the zone is " + zone.value + ", which is none of the unit's",
                            "the user interface does not know the zone", "controllerctl timezone set NAME"});
    }
    else
    {
        findings.push_back({"clock", Verdict::Ok, "it goes, in the zone " + zone.value});
    }
}

// Folders and log -----------------------------------------------------------------------------------------------------

size_t CountFiles(const string& folder)
{
    std::error_code error;
    size_t count = 0;
    fs::directory_iterator entry(folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error))
    {
        std::error_code unreadable;
        count += entry->is_regular_file(unreadable) ? 1 : 0;
    }
    return count;
}

void FindZones(Findings& findings)
{
    const string folder = ControllerDaemon::timezoneDirectory;
    const size_t standard = CountFiles(folder);
    const size_t summer = CountFiles(folder + "DST");
    constexpr const char* remedy = "install the image's zones";
    if (standard == 0)
    {
        findings.push_back({"zones", Verdict::Missing, "there is none in " + folder, "no zone can be chosen", remedy});
    }
    else if (summer == 0)
    {
        findings.push_back({"zones", Verdict::Missing, "there is none in " + folder + "DST",
                            "daylight saving time cannot be switched on", remedy});
    }
    else
    {
        findings.push_back(
            {"zones", Verdict::Ok,
             std::to_string(standard) + " and " + std::to_string(summer) + " with daylight saving time"});
    }
}

void FindLogs(Findings& findings)
{
    const string folder = ControllerDaemon::logsFolder;
    constexpr const char* meaning = "screenshots without a folder are answered \"Bad directory\"";
    struct stat status
    {};
    if (stat(folder.c_str(), &status) != 0)
    {
        findings.push_back({"logs folder", Verdict::Missing, folder + ": " + std::strerror(errno), meaning,
                            "make it, for the unit's user"});
    }
    else if (!S_ISDIR(status.st_mode) || access(folder.c_str(), W_OK | X_OK) != 0)
    {
        findings.push_back({"logs folder", Verdict::Wrong, folder + " is no folder that can be written to", meaning,
                            "give it to the unit's user"});
    }
    else
    {
        findings.push_back({"logs folder", Verdict::Ok, folder + " can be written to"});
    }
}

/// Connects to the log and sends nothing. A reader that is there but has stopped shows by its full socket.
void FindLog(Findings& findings)
{
    constexpr const char* path = "/dev/log";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    string(path).copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    const DbusHelper::Descriptor log(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(log.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    {
        findings.push_back({"log", errno == ENOENT ? Verdict::Missing : Verdict::Wrong,
                            string(path) + ": " + std::strerror(errno), "what fails is told nowhere",
                            "systemctl status systemd-journald"});
        return;
    }
    pollfd waited{.fd = log.Get(), .events = POLLOUT, .revents = 0};
    if (poll(&waited, 1, 0) <= 0)
    {
        findings.push_back({"log", Verdict::Wrong, "its reader has stopped: the socket is full",
                            "the controller hangs at its next line", "systemctl restart systemd-journald"});
        return;
    }
    findings.push_back({"log", Verdict::Ok, "it takes lines"});
}

} // namespace

void ExamineSystem(const Patient& patient, Findings& findings)
{
    LookBus bus;
    const int result = OpenForLooks(bus, &DbusHelper::OpenSystemBus);
    if (result < 0)
    {
        findings.push_back(
            {"system bus", Verdict::Missing, std::strerror(-result), fixedClock, "systemctl status dbus"});
        return;
    }
    FindClock(patient, bus.get(), findings);
    if (sd_bus_is_ready(bus.get()) <= 0)
    {
        findings.push_back({"system bus", Verdict::Wrong, "it does not answer", fixedClock, "systemctl status dbus"});
        return;
    }
    FindRights(patient, bus.get(), findings);
}

void ExamineFolders(const Patient& /*patient*/, Findings& findings)
{
    FindZones(findings);
    FindLogs(findings);
    FindLog(findings);
}

} // namespace ControllerCtl
