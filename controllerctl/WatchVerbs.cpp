#include "controller_client/ControllerSignals.h"
#include "controllerctl/Events.h"
#include "controllerctl/Patience.h"
#include "controllerctl/Properties.h"
#include "controllerctl/Suggestions.h"
#include "controllerctl/Verb.h"

#include <optional>
#include <utility>

namespace ControllerCtl
{
namespace
{

using Controllerd::ControllerEvent;
using Controllerd::ControllerSignals;
using EventKind = ControllerEvent::Kind;
using std::string;

// Wait ----------------------------------------------------------------------------------------------------------------

/// What is waited for: a signal, a change of a property, or a value of it.
struct Aim
{
    string name;
    const Property* property = nullptr;
    std::optional<Json> value = {};
    std::optional<Json> before = {}; ///< at the last look
    string complaint = {};           ///< why there is nothing to wait for
};

/// All names that can be waited for.
std::vector<string> Names()
{
    std::vector<string> names;
    for (const Signal& signal : Signals())
    {
        names.emplace_back(signal.name);
    }
    for (const Property& property : Properties())
    {
        if (property.untold == nullptr)
        {
            names.emplace_back(property.name);
        }
    }
    return names;
}

Aim AimOf(const Arguments& arguments)
{
    Aim aim{.name = arguments.at("name").get<string>()};
    aim.property = FindProperty(aim.name);
    const bool valued = arguments.contains("value");
    if (aim.property == nullptr && FindSignal(aim.name) == nullptr)
    {
        aim.complaint = "name: there is no such signal or property";
        const string meant = Meant(aim.name, Names());
        aim.complaint += meant.empty() ? "" : ", did you mean \"" + meant + "\"?";
    }
    else if (aim.property == nullptr && valued)
    {
        aim.complaint = "value: a signal has none";
    }
    else if (aim.property != nullptr && aim.property->untold != nullptr)
    {
        aim.complaint = "name: the controller does not tell of changes of " + aim.name + ", " + aim.property->untold;
    }
    else if (valued)
    {
        aim.value = Parse(aim.property->type, arguments.at("value").get<string>());
        aim.complaint = aim.value ? "" : string("value: it must be ") + Describe(aim.property->type);
    }
    return aim;
}

/// What a property is now, if that ends the waiting: the value that is waited for, or another one than at the first
/// look where nothing but a signal tells of changes. A controller that is not there may come, and one that ends over
/// the question has not answered it.
std::optional<Answer> LookAt(Aim& aim, const Patience& patience)
{
    const bool compared = !aim.value && aim.property != nullptr && aim.property->toldBy != nullptr;
    if (!aim.value && !compared)
    {
        return std::nullopt;
    }
    Json value;
    patience.LimitCalls();
    if (aim.property->read(value) < 0)
    {
        Answer failed = Failed();
        return failed.status == ExitStatus::Refused ? std::optional(std::move(failed)) : std::nullopt;
    }
    const bool met = compared ? aim.before && value != *aim.before : value == *aim.value;
    const Json fields = {{"event", "property"}, {"name", aim.name}, {"value", value}};
    aim.before = std::move(value);
    return met ? std::optional(Answer{.text = TextOf(fields), .fields = fields}) : std::nullopt;
}

/// The same later on: the unit has told the value before, or may once it has come up, so its refusal is no end.
std::optional<Answer> LookAgain(Aim& aim, const Patience& patience)
{
    std::optional<Answer> seen = LookAt(aim, patience);
    return seen && seen->status == ExitStatus::Done ? std::move(seen) : std::nullopt;
}

/// Whether an event says that the property may have another value, and not which.
bool IsHint(const Aim& aim, const ControllerEvent& event)
{
    const bool unseen = event.kind == EventKind::PropertyChanged && event.arguments.empty();
    const bool told = event.kind == EventKind::Signal && aim.property != nullptr && aim.property->toldBy != nullptr;
    return event.kind == EventKind::Started || (unseen && event.name == aim.name && aim.value) ||
           (told && event.name == aim.property->toldBy);
}

/// Whether an event ends the waiting, and with what.
std::optional<Answer> Judge(Aim& aim, const ControllerEvent& event, const Patience& patience)
{
    if (IsHint(aim, event))
    {
        return LookAgain(aim, patience);
    }
    const EventKind wanted = aim.property == nullptr ? EventKind::Signal : EventKind::PropertyChanged;
    if (event.kind != wanted || event.name != aim.name)
    {
        return std::nullopt;
    }
    const Json fields = FieldsOf(event);
    const bool met = !aim.value || fields.at("value") == *aim.value;
    return met ? std::optional(Answer{.text = TextOf(fields), .fields = fields}) : std::nullopt;
}

Answer WaitFor(Aim aim, const Patience& patience)
{
    ControllerSignals signals;
    int result = signals.Open();
    if (result < 0)
    {
        return BusIsGone(result);
    }
    TellMessage("waiting");
    std::optional<Answer> answer = LookAt(aim, patience);
    while (!answer)
    {
        ControllerEvent event;
        result = signals.Next(event, patience.Left());
        if (result <= 0)
        {
            return result == 0 ? Failed(ExitStatus::TimeOut, "the time has passed") : BusIsGone(result);
        }
        answer = Judge(aim, event, patience);
    }
    return *answer;
}

Answer Wait(const Arguments& arguments)
{
    Aim aim = AimOf(arguments);
    if (!aim.complaint.empty())
    {
        return Failed(ExitStatus::Usage, aim.complaint);
    }
    const auto timeout = arguments.find("timeout");
    return WaitFor(std::move(aim), timeout == arguments.end() ? Patience() : Patience(timeout->get<double>()));
}

/// What can be the value of what is waited for.
std::vector<string> ValuesOf(const std::vector<string>& before)
{
    const Property* property = before.empty() ? nullptr : FindProperty(before.front());
    return property != nullptr && property->type == Type::Boolean ? std::vector<string>{"on", "off"}
                                                                  : std::vector<string>{};
}

} // namespace

Verbs WatchVerbs()
{
    return {
        Monitoring(),
        {"wait",
         "Wait for a signal, a change of a property, or a value of it",
         {{.name = "name",
           .about = "One of " + Joined(Names(), ", "),
           .need = Parameter::Need::Required,
           .offered = [](const auto&) { return Names(); }},
          {.name = "value", .about = "Of the property; any change when it is not given", .offered = &ValuesOf},
          {.name = "--timeout",
           .about = "How long, like 90 (seconds) or 5m; without end when not given",
           .type = Type::Time}},
         &Wait},
    };
}

} // namespace ControllerCtl
