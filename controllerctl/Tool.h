#pragma once

#include "controllerctl/Patience.h"

#include <string>
#include <vector>

namespace ControllerCtl
{

/// How a program that was run has ended.
struct ToolEnd
{
    bool hasStarted = false;
    bool isInTime = false; ///< or else it was ended
    int status = -1;       ///< its exit status; -1 when a signal has ended it
    std::string output;
};

/// Runs a program of the PATH and reads what it prints, for so long and no longer.
[[nodiscard]] ToolEnd RunTool(const std::vector<std::string>& words, const Patience& patience);

} // namespace ControllerCtl
