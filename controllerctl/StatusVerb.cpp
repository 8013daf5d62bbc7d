#include "controllerctl/RecordingFile.h"
#include "controllerctl/SiblingSignals.h"
#include "controllerctl/Style.h"
#include "controllerctl/UnitStatus.h"
#include "controllerctl/Verb.h"

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace ControllerCtl
{
namespace
{

using std::string;

LookLimits LimitsOf(const Arguments& arguments)
{
    const auto given = arguments.find("timeout");
    return given == arguments.end() ? LookLimits{siblingSeconds, controllerSeconds}
                                    : LookLimits{given->get<double>(), given->get<double>()};
}

Answer Described(const UnitLook& look, bool color)
{
    Answer answer = StatusOf(look);
    answer.text = StatusText(answer.fields, color);
    return answer;
}

// Watching ------------------------------------------------------------------------------------------------------------

/// What a look has found, without what goes on by itself.
Json LastingOf(Json fields)
{
    fields.erase("time");
    for (Json& recording : fields.at("recordings"))
    {
        recording.erase("seconds");
        recording.erase("bytes");
    }
    return fields;
}

bool IsRecording(const Json& fields)
{
    const Json& recordings = fields.at("recordings");
    return std::any_of(recordings.begin(), recordings.end(),
                       [](const Json& recording) { return !IsBlank(recording.at("file")); });
}

/// Tells it in the place of what was told before. False when it cannot be written.
bool Redraw(const Answer& answer)
{
    constexpr const char* fromTheTop = "\x1b[H\x1b[J";
    string text = fromTheTop + answer.text;
    for (const string& message : answer.messages)
    {
        text += "\n" + message;
    }
    return TellLine(text);
}

/// Files that grow say so all the time, and change nothing else.
bool Matters(const char* /*who*/, sd_bus_message* signal)
{
    const char* member = sd_bus_message_get_member(signal);
    return member == nullptr || !std::string_view(member).ends_with("Grew");
}

/// Looks again whenever something is told on the bus, until the bus goes or nothing can be written.
class Watch
{
  public:
    Watch(sd_bus* bus, const Arguments& arguments)
        : bus_(bus), limits_(LimitsOf(arguments)), json_(arguments.at("json").get<bool>()),
          redraws_(!json_ && isatty(STDOUT_FILENO) == 1), color_(WantsColor(arguments)), signals_(bus, &Matters)
    {}

    Answer Run()
    {
        int result = signals_.Listen();
        while (result >= 0)
        {
            UnitLook look;
            signals_.Take();
            result = LookAtUnit(bus_, limits_, look);
            result = result < 0 ? result : FollowOn(look);
            if (result == unwritten)
            {
                return {.status = ExitStatus::Refused, .fields = nullptr};
            }
        }
        return BusIsGone(result);
    }

  private:
    static constexpr int unwritten = 1;

    /// Tells what was found, and again each second where a recording goes on, until something has happened.
    int FollowOn(const UnitLook& look)
    {
        constexpr int second = 1000;
        int heard = 0;
        while (heard == 0)
        {
            const Answer answer = Described(look, color_);
            if (!TellChange(answer))
            {
                return unwritten;
            }
            heard = signals_.Wait(redraws_ && IsRecording(answer.fields) ? second : -1);
        }
        return heard < 0 ? heard : 0;
    }

    bool TellChange(const Answer& answer)
    {
        if (redraws_)
        {
            return Redraw(answer);
        }
        Json lasting = LastingOf(answer.fields);
        if (told_ == lasting)
        {
            return true;
        }
        const bool isFirst = !told_;
        told_ = std::move(lasting);
        return (isFirst || json_ || TellLine("")) && TellAnswer(answer, json_);
    }

    sd_bus* bus_;
    LookLimits limits_;
    bool json_;
    bool redraws_;
    bool color_;
    SiblingSignals signals_;
    std::optional<Json> told_;
};

Answer Status(const Arguments& arguments)
{
    LookBus bus;
    int result = OpenForLooks(bus);
    if (result >= 0 && arguments.at("watch").get<bool>())
    {
        return Watch(bus.get(), arguments).Run();
    }
    UnitLook look;
    result = result < 0 ? result : LookAtUnit(bus.get(), LimitsOf(arguments), look);
    return result < 0 ? BusIsGone(result) : Described(look, WantsColor(arguments));
}

} // namespace

Verbs StatusVerbs()
{
    return {{"status",
             "Show what is recorded and where to, whether all is well, and how everything is set",
             {{.name = "--watch", .about = "Go on, and show it again when something changes", .type = Type::Flag},
              ColorParameter(),
              {.name = "--timeout",
               .about = "How long the answers have, like 2 (seconds) or 500ms; all siblings together 500ms and the "
                        "controller 5s when not given",
               .type = Type::Time}},
             &Status}};
}

} // namespace ControllerCtl
