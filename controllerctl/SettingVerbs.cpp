#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controllerctl/Clock.h"
#include "controllerctl/Properties.h"
#include "controllerctl/Verb.h"

namespace ControllerCtl
{
namespace
{

using Client = Controllerd::ControllerDaemonDbusHandler;
using std::string;

/// Writes the property when a value is given, else reads it.
Verb Setting(const char* name, const char* about, const char* propertyName)
{
    const Property& property = *FindProperty(propertyName);
    const auto run = [&property](const Arguments& arguments) {
        const auto given = arguments.find("value");
        return given == arguments.end() ? ReadProperty(property) : Ordered(property.write(*given));
    };
    return {
        name, about, {{.name = "value", .about = "What it becomes; told when not given", .type = property.type}}, run};
}

Answer PlaySound(const Arguments& arguments) { return Ordered(Client::PlayAudio(arguments.at("name"))); }

/// Adds what was read to the whole. A value that the controller refuses is missing; without it there is no status.
bool AddTo(Answer& whole, const char* key, Answer part, const Json& value)
{
    if (part.status == ExitStatus::Unreachable || part.status == ExitStatus::TimeOut)
    {
        whole = std::move(part);
        return false;
    }
    const bool good = part.status == ExitStatus::Done;
    whole.text += string(whole.text.empty() ? "" : "\n") + key + ": " + (good ? part.text : "-");
    whole.fields[key] = good ? value : Json();
    if (!good)
    {
        whole.status = part.status;
        whole.messages.push_back(string(key) + ": " + part.messages.front());
        whole.fields["errors"][key] = part.fields.at("message");
    }
    return true;
}

Answer Status(const Arguments& /*arguments*/)
{
    Answer whole;
    constexpr bool local = true;
    Answer clock = ReadClock(local);
    const Json time = clock.text;
    whole.fields["errors"] = Json::object();
    bool reached = AddTo(whole, "time", std::move(clock), time);
    for (const Property& property : Properties())
    {
        if (reached && property.type != Type::List)
        {
            Answer part = ReadProperty(property);
            const Json value = part.fields.value(property.key, Json());
            reached = AddTo(whole, property.key, std::move(part), value);
        }
    }
    return whole;
}

} // namespace

Verbs SettingVerbs()
{
    return {
        {"status", "Tell the clock and all that is switched", {}, &Status},
        Setting("play rate", "Tell or change the speed of the playback", "VideoPlaybackRate"),
        Setting("mic", "Tell or switch the microphone", "MicEnabled"),
        Setting("speaker", "Tell or switch the speaker", "SpkrEnabled"),
        Setting("volume", "Tell or change the volume of the speaker in percent", "SpkrVolume"),
        Setting("sonde", "Tell or switch the transmitter in the camera head", "Sonde"),
        Setting("key-beep", "Tell or switch the beep of the keypad", "KeypadBeepEnabled"),
        {"sound", "Play sounds on the speaker"},
        {"sound list", "Tell the sounds that can be played", {}, Reading("AudioFiles")},
        {"sound play",
         "Play a sound",
         {{.name = "name", .about = "Its name in the list", .need = Parameter::Need::Required}},
         &PlaySound},
    };
}

} // namespace ControllerCtl
