#pragma once

#include <string>
#include <vector>

/// Stands in for the programs that are run: their commands are noted instead.
namespace ProgramStandIn
{

/// The commands since the last call, those that ran before main included, as one would write them for a shell.
std::vector<std::string> TakeCommands();

/// The status of commands from now on.
void Answer(int status);

/// What comes of starting a program from now on, an errno; 0: it is started.
void Refuse(int error);

/// Whether the status of commands is not to be had from now on, as when somebody else has reaped them.
void Lose(bool lost);

/// What a command whose output is read prints from now on; no more than a pipe holds.
void Print(const std::string& text);

} // namespace ProgramStandIn
