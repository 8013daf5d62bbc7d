#pragma once

#include "controllerctl/Answer.h"

#include <systemd/sd-bus.h>

namespace ControllerCtl
{

/// The values of a message as JSON, whatever their types are: structures and lists are arrays, dictionaries objects.
/// What cannot be read is null.
[[nodiscard]] Json ValuesOf(sd_bus_message* message);

} // namespace ControllerCtl
