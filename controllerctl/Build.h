#pragma once

#include "controllerctl/Place.h"

#include <string>

namespace ControllerCtl
{

/// Prints this program's version, and that of the controller that runs and of its build, where it runs and its program
/// can be read. Returns the exit status.
[[nodiscard]] int PrintVersions(const std::string& own, const Place& place);

} // namespace ControllerCtl
