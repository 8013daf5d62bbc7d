#pragma once

#include "controllerctl/Values.h"

#include <functional>
#include <string>
#include <vector>

namespace ControllerCtl
{

/// An argument or an option of a verb.
struct Parameter
{
    enum class Need : unsigned char
    {
        Optional, ///< missing in the arguments when it is not given
        Required,
    };

    std::string name; ///< "file" is an argument, "--rate" an option
    std::string about;
    Type type = Type::Text;
    Need need = Need::Optional;
    Json initial = nullptr;                ///< its value when it is not given; null for none
    std::vector<std::string> choices = {}; ///< all that it can be, when not empty
    /// What completes it where neither choices nor type do, by the arguments before it; may ask the controller.
    std::function<std::vector<std::string>(const std::vector<std::string>& before)> offered = {};
};

/// What was given, by name without dashes; besides "json", whether that is how to print.
using Arguments = Json;

/// A verb of the command line as data, such as "record start". A verb with neither a function nor parameters opens a
/// group; it stands before its members.
struct Verb
{
    std::string name;
    std::string about;
    std::vector<Parameter> parameters = {};
    std::function<Answer(const Arguments&)> run = {};
    bool looksAtFiles = false; ///< and devices, which are this computer's, whichever bus was chosen
};

using Verbs = std::vector<Verb>;

[[nodiscard]] Verbs CaptureVerbs(); ///< recordings, pictures, playback
[[nodiscard]] Verbs TimeVerbs();    ///< clock and time zone
[[nodiscard]] Verbs StatusVerbs();  ///< the state of the whole unit
[[nodiscard]] Verbs SettingVerbs(); ///< what is switched, sounds
[[nodiscard]] Verbs DoctorVerbs();  ///< what is wrong with the unit
[[nodiscard]] Verb Monitoring();    ///< signals and changes as they come
[[nodiscard]] Verbs WatchVerbs();   ///< signals and changes
[[nodiscard]] Verbs RecoverVerbs(); ///< what crashes have left

} // namespace ControllerCtl
