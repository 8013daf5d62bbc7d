#pragma once

#include "controllerctl/Verb.h"

namespace ControllerCtl
{

/// Reads the command line, runs the verb that it names and tells what came of it. Returns the exit status.
[[nodiscard]] int RunCommandLine(const Verbs& verbs, int count, char** words);

} // namespace ControllerCtl
