#pragma once

#include "controllerctl/Answer.h"

#include <string>
#include <string_view>
#include <vector>

namespace ControllerCtl
{

/// The word that was probably meant: the same in another case, or else the one that takes the fewest slips of the
/// fingers; empty when none is near.
[[nodiscard]] std::string Meant(const std::string& word, const std::vector<std::string>& words);

/// Whether two names differ in nothing but case, and blanks for "_".
[[nodiscard]] bool AlikeNames(std::string_view one, std::string_view other);

/// Adds "did you mean ...?" to the messages when a word is near enough.
void Suggest(Answer& answer, const std::string& word, const std::vector<std::string>& words);

} // namespace ControllerCtl
