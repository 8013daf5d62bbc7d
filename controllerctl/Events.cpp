#include "controllerctl/Events.h"

#include "controllerctl/Properties.h"
#include "controllerctl/Values.h"

#include <array>
#include <map>
#include <string_view>

namespace ControllerCtl
{
namespace
{

using Controllerd::ControllerEvent;
using EventKind = ControllerEvent::Kind;
using std::string;

/// The arguments of a signal by their names.
Json NamedArguments(const ControllerEvent& event)
{
    const Signal* signal = FindSignal(event.name);
    Json arguments = Json::object();
    for (size_t index = 0; index < event.arguments.size(); ++index)
    {
        const bool known = signal != nullptr && index < signal->arguments.size() && signal->arguments[index] != nullptr;
        const string name = known ? signal->arguments[index] : "argument" + std::to_string(index);
        arguments[name] = FromController(event.arguments[index]);
    }
    return arguments;
}

} // namespace

Json FieldsOf(const ControllerEvent& event)
{
    switch (event.kind)
    {
    case EventKind::Signal:
        return {{"event", "signal"}, {"name", event.name}, {"arguments", NamedArguments(event)}};
    case EventKind::PropertyChanged:
        return {{"event", "property"},
                {"name", event.name},
                {"value", event.arguments.empty() ? Json() : FromController(event.arguments.front())}};
    case EventKind::Started:
    case EventKind::Stopped:
    case EventKind::Lost: // never here: every event is taken as soon as it has come
        break;
    }
    return {{"event", "controller"}, {"running", event.kind == EventKind::Started}};
}

string TextOf(const Json& fields)
{
    if (fields.at("event") == "controller")
    {
        return fields.at("running").get<bool>() ? "controller started" : "controller stopped";
    }
    string text = fields.at("name");
    if (fields.at("event") == "property")
    {
        return text + "=" + Quoted(fields.at("value"));
    }
    for (const auto& [name, value] : fields.at("arguments").items())
    {
        text += " " + name + "=" + Quoted(value);
    }
    return text;
}

namespace
{

/// What each property is to a person.
string LabelOf(const string& name)
{
    static const std::map<string, const char*> labels{
        {"GetTimezone", "time zone"},      {"GetDst", "daylight saving time"},
        {"MicEnabled", "microphone"},      {"SpkrEnabled", "speaker"},
        {"SpkrVolume", "volume"},          {"Sonde", "sonde"},
        {"KeypadBeepEnabled", "key beep"}, {"VideoPlaybackRate", "playback rate"}};
    const auto found = labels.find(name);
    return found == labels.end() ? name : found->second;
}

string WordsOfProperty(const Json& fields)
{
    const Json& value = fields.at("value");
    const char* unit = fields.at("name") == "SpkrVolume" ? " %" : "";
    return LabelOf(fields.at("name")) + (value.is_null() ? " has changed" : " is " + Quoted(value) + unit);
}

string WordsOfClock(const Json& clock)
{
    std::array<char, 80> text{};
    const auto field = [&](const char* name) { return clock.at(name).get<int>(); };
    std::snprintf(text.data(), text.size(), "the clock was set to %04d-%02d-%02d %02d:%02d:%02d", field("year"),
                  field("month"), field("day"), field("hour"), field("minute"), field("second"));
    return text.data() + string(", daylight saving time ") + Text(clock.at("dst"));
}

string WordsOfSignal(const string& name, const Json& arguments)
{
    const auto because = [&](const char* what) {
        return string(what) + ": " + OneLine(arguments.at("message")) + " (" + Text(arguments.at("code")) + ")";
    };
    if (name == "CaptureError")
    {
        return because("the recording was ended");
    }
    if (name == "PlaybackError")
    {
        return because("the playback was ended");
    }
    if (name == "CaptureSizeLimitReached")
    {
        constexpr std::array kinds{"auto-log", "photo-talk", "video"};
        const auto type = arguments.at("captureType").get<int64_t>();
        const bool isKnown = type >= 0 && type < static_cast<int64_t>(kinds.size());
        return string("the recording was saved at its size limit: ") +
               (isKnown ? kinds.at(static_cast<size_t>(type)) : std::to_string(type)) + ", " +
               OneLine(arguments.at("message"));
    }
    if (name == "TimeChanged")
    {
        return WordsOfClock(arguments);
    }
    return name == "TimezoneChanged" ? "the time zone was set to " + Text(arguments.at("timezone")) : "";
}

string WordsOfSibling(const Json& fields)
{
    const string who = "the " + fields.at("sibling").get<string>() + " daemon";
    if (fields.contains("running"))
    {
        return who + (fields.at("running").get<bool>() ? " has started" : " has stopped");
    }
    if (fields.contains("value"))
    {
        return who + ": " + fields.at("name").get<string>() + " is " + Quoted(fields.at("value"));
    }
    string text = who + ": " + fields.at("name").get<string>();
    for (const Json& argument : fields.at("arguments"))
    {
        text += " " + Quoted(argument);
    }
    return text;
}

} // namespace

string WordsOf(const Json& fields)
{
    const string event = fields.at("event");
    if (event == "property")
    {
        return WordsOfProperty(fields);
    }
    if (event == "sibling")
    {
        return WordsOfSibling(fields);
    }
    if (event == "controller")
    {
        return fields.at("running").get<bool>() ? "the controller has started" : "the controller has stopped";
    }
    string words;
    try
    {
        words = WordsOfSignal(fields.at("name"), fields.at("arguments"));
    }
    catch (const Json::exception&) // a later controller's signal of that name has other arguments
    {}
    return words.empty() ? TextOf(fields) : words;
}

Tone ToneOf(const Json& fields)
{
    const string name = fields.value("name", "");
    const bool stopped = fields.contains("running") && !fields.at("running").get<bool>();
    return name.ends_with("Error") || stopped  ? Tone::Bad
           : name == "CaptureSizeLimitReached" ? Tone::Warning
           : fields.at("event") == "sibling"   ? Tone::Quiet
                                               : Tone::Plain;
}

} // namespace ControllerCtl
