#include "tests/unit/device/BusStandIn.h"

#include <systemd/sd-bus.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <utility>

namespace
{

std::vector<BusStandIn::LedCall> ledCalls;

/// The far end of the connection that was opened last.
int peer = -1;

} // namespace

namespace BusStandIn
{

void PrintTo(const LedCall& call, std::ostream* out)
{
    *out << call.member << '(' << call.led << ", " << call.value << ')';
}

std::vector<LedCall> TakeLedCalls() { return std::exchange(ledCalls, {}); }

} // namespace BusStandIn

/// A connection to a peer that says nothing: good enough to write messages for.
extern "C" int sd_bus_open_user(sd_bus** bus)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) < 0)
    {
        return -errno;
    }
    close(std::exchange(peer, ends[1]));
    sd_bus_new(bus);
    sd_bus_set_fd(*bus, ends[0], ends[0]);
    return sd_bus_start(*bus);
}

extern "C" int sd_bus_call(sd_bus* /*bus*/, sd_bus_message* message, uint64_t /*timeout*/, sd_bus_error* error,
                           sd_bus_message** /*reply*/)
{
    uint32_t led = 0;
    uint32_t value = 0;
    if (sd_bus_message_has_signature(message, "uu") > 0)
    {
        sd_bus_message_seal(message, 1, 0);
        sd_bus_message_rewind(message, 1);
        sd_bus_message_read(message, "uu", &led, &value);
        ledCalls.push_back({sd_bus_message_get_member(message), led, value});
    }
    close(std::exchange(peer, -1)); // nothing is there to be flushed to
    return sd_bus_error_set(error, SD_BUS_ERROR_SERVICE_UNKNOWN, "nobody there");
}
