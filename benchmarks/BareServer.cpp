// The yardstick: the least that a server can be, in plain sd-bus. What the daemon costs is told beside what this costs.
// Nothing is added here that the comparison does not need.

#include "benchmarks/BareCalls.h"
#include "benchmarks/BareStart.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace
{

constexpr int textsOfACall = 6;
constexpr int firstCall = 5;

/// What the server does beside its property.
struct Work
{
    std::string_view occasion;
    int lines = 0;
    std::string folder;
    int members = 0; ///< that are offered as well, at a start
    std::vector<Bench::Operation> calls;
};

int GetAnswer(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*)
{
    return sd_bus_message_append(reply, "b", 1);
}

void WriteLines(int count)
{
    for (int line = 0; line < count; ++line)
    {
        syslog(LOG_INFO, "%s: line %d of a server that tells as much as it is told to", "static int Bare::Do(Work)",
               line);
    }
}

bool Do(const Work& work)
{
    WriteLines(work.lines);
    return std::all_of(work.calls.begin(), work.calls.end(),
                       [](const Bench::Operation& call) { return Bench::BareCall(call) >= 0; });
}

bool MakeFile(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    return descriptor >= 0 && close(descriptor) == 0;
}

int Record(sd_bus_message* message, void* userData, sd_bus_error*)
{
    const Work& work = *static_cast<Work*>(userData);
    uint32_t numbers[3] = {};
    const bool isDone = sd_bus_message_read(message, "uuu", &numbers[0], &numbers[1], &numbers[2]) > 0 &&
                        MakeFile(work.folder + "/.0042-recovery") && MakeFile(work.folder + "/.0042-recActive") &&
                        Do(work);
    return sd_bus_reply_method_return(message, "is", isDone ? 0 : -1, isDone ? "Ran successfully" : "failed");
}

int Grew(sd_bus_message* message, void* userData, sd_bus_error*)
{
    const char* path = nullptr;
    int isNearLimit = 0;
    const int result = sd_bus_message_read(message, "sb", &path, &isNearLimit);
    return result < 0 || !Do(*static_cast<Work*>(userData)) ? -EIO : 0;
}

const sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Record", "uuu", "is", Record, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("KeypadBeepEnabled", "b", GetAnswer, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

/// An interface as large as the daemon's.
bool OfferMembers(sd_bus* bus, int count)
{
    static std::vector<std::string> names; // the bus keeps the table and its texts
    static std::vector<sd_bus_vtable> members{SD_BUS_VTABLE_START(0)};
    names.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
    {
        names.push_back("Member" + std::to_string(i));
        members.push_back(SD_BUS_METHOD_WITH_NAMES(
            names.back().c_str(), "uuu", SD_BUS_PARAM(width) SD_BUS_PARAM(height) SD_BUS_PARAM(quality), "is",
            SD_BUS_PARAM(code) SD_BUS_PARAM(message), Record, SD_BUS_VTABLE_UNPRIVILEGED));
    }
    members.push_back(SD_BUS_VTABLE_END);
    return sd_bus_add_object_vtable(bus, nullptr, "/com/tavilon/common/BareServer1",
                                    "com.tavilon.common.BareServer1.Members", members.data(), nullptr) >= 0;
}

/// Has the object and its name on the bus.
bool Serve(sd_event* event, sd_bus*& bus, Work& work)
{
    return sd_bus_open_user(&bus) >= 0 && sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL) >= 0 &&
           sd_bus_add_object_vtable(bus, nullptr, "/com/tavilon/common/BareServer1",
                                    "com.tavilon.common.BareServer1.Control", table, &work) >= 0 &&
           OfferMembers(bus, work.members) && sd_bus_request_name(bus, "com.tavilon.common.BareServer1", 0) >= 0;
}

bool TellProperty(sd_bus* bus)
{
    return sd_bus_emit_properties_changed(bus, "/com/tavilon/common/BareServer1",
                                          "com.tavilon.common.BareServer1.Control", "KeypadBeepEnabled", nullptr) >= 0;
}

/// In the daemon's order, which decides what is still in the caches of whoever has a part in it: what is there before
/// the clock is set, the name before the settings of the first device are asked for, and each device when its settings
/// are known.
bool Start(sd_event* event, sd_bus*& bus, Work& work)
{
    WriteLines(work.lines);
    return Bench::BareStart(event) && std::all_of(work.calls.begin(), work.calls.end(), [&](const auto& call) {
               const bool isReady = call.property != "micEnabled" || Serve(event, bus, work);
               const int isSet = isReady && Bench::BareCall(call) >= 0 ? Bench::BareDevice(call.property) : -1;
               return isSet == 0 || (isSet > 0 && TellProperty(bus));
           });
}

bool HearVideo(sd_event* event, Work& work)
{
    sd_bus* ear = nullptr;
    return sd_bus_open_user(&ear) >= 0 && sd_bus_attach_event(ear, event, SD_EVENT_PRIORITY_NORMAL) >= 0 &&
           sd_bus_match_signal(ear, nullptr, "com.tavilon.common.Video1", "/com/tavilon/common/Video1",
                               "com.tavilon.common.Video1.Control", "VideoGrew", Grew, &work) >= 0;
}

Work ReadWork(int count, char** texts)
{
    Work work;
    if (count >= firstCall)
    {
        work = {texts[1], std::atoi(texts[2]), texts[3], std::atoi(texts[4]), {}};
    }
    for (int text = firstCall; text + textsOfACall <= count; text += textsOfACall)
    {
        char** call = texts + text;
        work.calls.push_back({call[0], call[1], call[2], call[3], call[4], call[5]});
    }
    return work;
}

} // namespace

/// Arguments: none; or the occasion, a number of lines to log, a folder for two files, a number of members to offer,
/// and six texts for each call to be made, in the order of Operation's fields. At a "start" all else is done before
/// that a start does; a "record" is the method, at a "signal" is "VideoGrew".
int main(int count, char** arguments)
{
    Work work = ReadWork(count, arguments);
    sd_event* event = nullptr;
    sd_bus* bus = nullptr;
    const bool isUp =
        sd_event_default(&event) >= 0 &&
        (work.occasion == "start" ? Start(event, bus, work)
                                  : (work.occasion != "signal" || HearVideo(event, work)) && Serve(event, bus, work));
    if (!isUp)
    {
        return EXIT_FAILURE;
    }
    sd_notify(0, "READY=1");
    return sd_event_loop(event) < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
