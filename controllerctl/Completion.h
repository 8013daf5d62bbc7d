#pragma once

#include "controllerctl/Verb.h"

#include <string>
#include <vector>

namespace ControllerCtl
{

/// An option that every verb has.
struct CommonOption
{
    const char* name;
    const char* letter; ///< its other name, or ""
    const char* about;
    bool valued; ///< whether it takes a value

    [[nodiscard]] bool IsCalled(const std::string& word) const { return word == name || word == letter; }
};

/// Prints what can stand for the last of the words, an unfinished one, which follow the program's name: an entry a
/// line, with a tabulator and what it is behind it. The first line may be ":names" for entries that are the unit's, or
/// all of it ":files" or ":folders". Ends the process when the unit does not answer soon enough for a shell.
void Complete(const Verbs& verbs, const std::vector<CommonOption>& common, const std::vector<std::string>& words);

} // namespace ControllerCtl
