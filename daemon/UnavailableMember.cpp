#include "daemon/UnavailableMember.h"

namespace ControllerDaemon::UnavailableMember
{
namespace
{

int Refuse(sd_bus_error* error, const char* member)
{
    return sd_bus_error_setf(error, SD_BUS_ERROR_FAILED, "%s is not available in this build of the controller daemon",
                             member);
}

} // namespace

int Call(sd_bus_message* message, void* /*userData*/, sd_bus_error* error) noexcept
{
    return Refuse(error, sd_bus_message_get_member(message));
}

int Get(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* property,
        sd_bus_message* /*reply*/, void* /*userData*/, sd_bus_error* error) noexcept
{
    return Refuse(error, property);
}

int Set(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* property,
        sd_bus_message* /*value*/, void* /*userData*/, sd_bus_error* error) noexcept
{
    return Refuse(error, property);
}

} // namespace ControllerDaemon::UnavailableMember
