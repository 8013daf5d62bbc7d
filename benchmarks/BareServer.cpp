// The yardstick: the least that a server of one property can be, in plain sd-bus. What the daemon costs is told beside
// what this costs. Nothing is added here that the comparison does not need.

#include "benchmarks/BareStart.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <cstdlib>

namespace
{

constexpr int textsOfACall = 6;

int GetAnswer(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*)
{
    return sd_bus_message_append(reply, "b", 1);
}

const sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("KeypadBeepEnabled", "b", GetAnswer, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

bool StartLikeTheDaemon(sd_event* loop, int count, char** texts)
{
    std::vector<Bench::Operation> calls;
    for (char** text = texts; count >= textsOfACall; count -= textsOfACall, text += textsOfACall)
    {
        calls.push_back({text[0], text[1], text[2], text[3], text[4], text[5]});
    }
    return Bench::BareStart(loop, calls);
}

} // namespace

/// Arguments: none; or six for each call that it makes after all else that a start does, in the order of Operation's
/// fields.
int main(int count, char** arguments)
{
    sd_event* event = nullptr;
    sd_bus* bus = nullptr;
    if (sd_event_default(&event) < 0 || (count > 1 && !StartLikeTheDaemon(event, count - 1, arguments + 1)) ||
        sd_bus_open_user(&bus) < 0 || sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL) < 0 ||
        sd_bus_add_object_vtable(bus, nullptr, "/com/tavilon/common/BareServer1",
                                 "com.tavilon.common.BareServer1.Control", table, nullptr) < 0 ||
        sd_bus_request_name(bus, "com.tavilon.common.BareServer1", 0) < 0)
    {
        return EXIT_FAILURE;
    }
    sd_notify(0, "READY=1");
    return sd_event_loop(event) < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
