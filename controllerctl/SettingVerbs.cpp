#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controllerctl/Properties.h"
#include "controllerctl/Suggestions.h"
#include "controllerctl/Verb.h"

#include <algorithm>
#include <cstdint>

namespace ControllerCtl
{
namespace
{

using Client = Controllerd::ControllerDaemonDbusHandler;
using std::string;

/// A percentage that is in its bounds.
int64_t Within(int64_t percent) { return std::clamp<int64_t>(percent, 0, 100); }

/// What the property becomes by what is given: "toggle" and a change follow from what it is now.
std::optional<Json> Wanted(const Property& property, const Json& given)
{
    Json now;
    if (given.is_string() || given.is_array())
    {
        if (property.read(now) < 0)
        {
            return std::nullopt;
        }
        return given.is_string() ? Json(!now.get<bool>()) : Json(Within(now.get<int64_t>() + given[0].get<int64_t>()));
    }
    return given;
}

/// Writes the property, and prints what it is then unless that is what was given.
Answer Write(const Property& property, const Json& given)
{
    const std::optional<Json> wanted = Wanted(property, given);
    return !wanted || property.write(*wanted) < 0 ? Failed() : Holds(property, given);
}

/// Writes the property when a value is given, else reads it.
Verb Setting(const char* name, const char* about, const char* propertyName, Type type)
{
    const Property& property = *FindProperty(propertyName);
    const auto run = [&property](const Arguments& arguments) {
        const auto given = arguments.find("value");
        return given == arguments.end() ? ReadProperty(property) : Write(property, *given);
    };
    return {name,
            about,
            {{.name = "value", .about = std::string("What it becomes, ") + Describe(type), .type = type}},
            run};
}

Answer PlaySound(const Arguments& arguments)
{
    const auto name = arguments.at("name").get<string>();
    Answer answer = Ordered(Client::PlayAudio(name));
    std::vector<string> sounds;
    const bool unknown = answer.fields.value("message", Json()) == "Could not play file";
    if (unknown && Client::GetAudioFiles(sounds) >= 0)
    {
        Suggest(answer, name, sounds);
    }
    return answer;
}

} // namespace

Verbs SettingVerbs()
{
    return {
        Setting("play rate", "Show or change the speed of the playback", "VideoPlaybackRate", Type::Real),
        Setting("mic", "Show or switch the microphone", "MicEnabled", Type::Switch),
        Setting("speaker", "Show or switch the speaker", "SpkrEnabled", Type::Switch),
        Setting("volume", "Show or change the volume of the speaker in percent", "SpkrVolume", Type::Level),
        Setting("sonde", "Show or switch the transmitter in the camera head", "Sonde", Type::Switch),
        Setting("key-beep", "Show or switch the beep of the keypad", "KeypadBeepEnabled", Type::Switch),
        {"sound", "Play sounds on the speaker"},
        {"sound list", "Print the sounds that can be played", {}, Reading("AudioFiles")},
        {"sound play",
         "Play a sound",
         {{.name = "name",
           .about = "Its name in the list",
           .need = Parameter::Need::Required,
           .offered = Listing("AudioFiles")}},
         &PlaySound},
    };
}

} // namespace ControllerCtl
