// The yardstick: the least that a server of one property can be, in plain sd-bus. What the daemon costs is told beside
// what this costs. Nothing is added here that the comparison does not need.

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace
{

int32_t answer = 0;
const char* errorName = nullptr;
const char* errorText = nullptr;

int GetAnswer(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error* error)
{
    return errorName != nullptr ? sd_bus_error_set(error, errorName, errorText)
                                : sd_bus_message_append(reply, "i", answer);
}

const sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("SpkrVolume", "i", GetAnswer, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

} // namespace

/// Arguments: "value" NUMBER or "error" NAME TEXT, what a Get of the property answers.
int main(int count, char** arguments)
{
    if (count == 3 && strcmp(arguments[1], "value") == 0)
    {
        answer = atoi(arguments[2]);
    }
    else if (count == 4 && strcmp(arguments[1], "error") == 0)
    {
        errorName = arguments[2];
        errorText = arguments[3];
    }
    else
    {
        return EXIT_FAILURE;
    }
    sd_event* event = nullptr;
    sd_bus* bus = nullptr;
    if (sd_event_default(&event) < 0 || sd_bus_open_user(&bus) < 0 ||
        sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL) < 0 ||
        sd_bus_add_object_vtable(bus, nullptr, "/com/tavilon/common/BareServer1",
                                 "com.tavilon.common.BareServer1.Control", table, nullptr) < 0 ||
        sd_bus_request_name(bus, "com.tavilon.common.BareServer1", 0) < 0)
    {
        return EXIT_FAILURE;
    }
    sd_notify(0, "READY=1");
    return sd_event_loop(event) < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
