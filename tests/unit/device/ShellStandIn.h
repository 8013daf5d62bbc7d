#pragma once

#include <string>
#include <vector>

/// Stands in for the shell: commands are noted instead of being run.
namespace ShellStandIn
{

/// The commands since the last call, those that ran before main included.
std::vector<std::string> TakeCommands();

/// The status of commands from now on; negative: no shell can be run.
void Answer(int status);

/// What a command whose output is read prints from now on.
void Print(const std::string& text);

} // namespace ShellStandIn
