#include "controllerctl/Events.h"
#include "controllerctl/Inquiry.h"
#include "controllerctl/MessageValues.h"
#include "controllerctl/SiblingSignals.h"
#include "controllerctl/Verb.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <string_view>

namespace ControllerCtl
{
namespace
{

using Controllerd::ControllerEvent;
using Controllerd::ControllerSignals;
using std::string;

/// The time now, in the caller's zone, as "2026-11-21 14:05:00.123".
string Now()
{
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    constexpr int64_t perSecond = 1000;
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    const int64_t elapsed = duration_cast<milliseconds>(since).count();
    const time_t seconds = elapsed / perSecond;
    tm fields{};
    localtime_r(&seconds, &fields);
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &fields);
    std::array<char, 8> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>(elapsed % perSecond));
    return string(text.data()) + fraction.data();
}

/// Tells events as they come, until there were enough.
class Teller
{
  public:
    explicit Teller(const Arguments& arguments)
        : json_(arguments.at("json").get<bool>()), stamped_(arguments.at("timestamps").get<bool>()),
          color_(WantsColor(arguments))
    {
        if (arguments.contains("count"))
        {
            left_ = arguments.at("count").get<unsigned>();
        }
    }

    [[nodiscard]] bool HasEnough() const { return left_ == 0U || !written_; }
    [[nodiscard]] bool HasWritten() const { return written_; }

    void Show(Json fields)
    {
        if (HasEnough())
        {
            return;
        }
        const string words = Painted(WordsOf(fields), ToneOf(fields), color_);
        if (stamped_)
        {
            fields["time"] = Now();
        }
        const string stamp = stamped_ ? fields.at("time").get<string>() + "  " : "";
        written_ = TellLine(json_ ? OneLine(fields) : stamp + words);
        if (left_)
        {
            --*left_;
        }
    }

  private:
    bool json_;
    bool stamped_;
    bool color_;
    bool written_ = true;
    std::optional<unsigned> left_;
};

// Siblings ------------------------------------------------------------------------------------------------------------

/// The changed properties of a sibling's object, an event each.
void ShowChanges(Teller& teller, const char* who, sd_bus_message* signal)
{
    const Json arguments = ValuesOf(signal);
    if (arguments.size() < 2 || !arguments.at(1).is_object())
    {
        return;
    }
    for (const auto& [name, value] : arguments.at(1).items())
    {
        teller.Show({{"event", "sibling"},
                     {"sibling", who},
                     {"path", sd_bus_message_get_path(signal)},
                     {"name", name},
                     {"value", value}});
    }
}

bool ShowSignal(Teller& teller, const char* who, sd_bus_message* signal)
{
    if (std::string_view(who) == "controller")
    {
        return false; // heard by the client library
    }
    if (sd_bus_message_is_signal(signal, "org.freedesktop.DBus", "NameOwnerChanged") > 0)
    {
        const Json arguments = ValuesOf(signal);
        teller.Show({{"event", "sibling"}, {"sibling", who}, {"running", !IsBlank(arguments.at(2))}});
    }
    else if (sd_bus_message_is_signal(signal, "org.freedesktop.DBus.Properties", "PropertiesChanged") > 0)
    {
        ShowChanges(teller, who, signal);
    }
    else
    {
        teller.Show({{"event", "sibling"},
                     {"sibling", who},
                     {"path", sd_bus_message_get_path(signal)},
                     {"name", sd_bus_message_get_member(signal)},
                     {"arguments", ValuesOf(signal)}});
    }
    return true;
}

// Both ----------------------------------------------------------------------------------------------------------------

/// Takes what both connections have; what comes first is shown first, of both at once the controller's.
int TakeBoth(ControllerSignals& controller, sd_bus* bus, Teller& teller)
{
    ControllerEvent event;
    int kept = controller.Dispatch();
    for (; kept > 0 && controller.Next(event, 0) > 0; --kept)
    {
        teller.Show(FieldsOf(event));
    }
    int result = 1;
    while (kept >= 0 && result > 0)
    {
        result = sd_bus_process(bus, nullptr);
    }
    return kept < 0 ? kept : result;
}

int WaitForBoth(const ControllerSignals& controller, sd_bus* bus)
{
    const int events = sd_bus_get_events(bus);
    std::array<pollfd, 2> waited{pollfd{controller.Descriptor(), POLLIN, 0},
                                 pollfd{sd_bus_get_fd(bus), static_cast<short>(events < 0 ? 0 : events), 0}};
    const int result = poll(waited.data(), waited.size(), controller.TimeoutMilliseconds());
    return result < 0 && errno != EINTR ? -errno : 0;
}

int FollowBoth(ControllerSignals& controller, Teller& teller)
{
    LookBus bus;
    int result = OpenForLooks(bus);
    SiblingSignals family(bus.get(),
                          [&](const char* who, sd_bus_message* signal) { return ShowSignal(teller, who, signal); });
    result = result < 0 ? result : family.Listen();
    if (result >= 0)
    {
        TellMessage("listening");
    }
    while (result >= 0 && !teller.HasEnough())
    {
        result = TakeBoth(controller, bus.get(), teller);
        result = result < 0 || teller.HasEnough() ? result : WaitForBoth(controller, bus.get());
    }
    return result;
}

int FollowController(ControllerSignals& controller, Teller& teller)
{
    TellMessage("listening");
    ControllerEvent event;
    int result = 0;
    while (result >= 0 && !teller.HasEnough())
    {
        result = controller.Next(event, -1);
        if (result >= 0)
        {
            teller.Show(FieldsOf(event));
        }
    }
    return result;
}

Answer Monitor(const Arguments& arguments)
{
    ControllerSignals controller;
    Teller teller(arguments);
    int result = controller.Open();
    if (result >= 0)
    {
        result = arguments.at("follow-siblings").get<bool>() ? FollowBoth(controller, teller)
                                                             : FollowController(controller, teller);
    }
    if (result < 0)
    {
        return BusIsGone(result);
    }
    return {.status = teller.HasWritten() ? ExitStatus::Done : ExitStatus::Refused, .fields = nullptr};
}

} // namespace

Verb Monitoring()
{
    return {"monitor",
            "Show signals and changes as they come, one line each",
            {{.name = "--count", .about = "End after so many lines", .type = Type::Natural},
             {.name = "--timestamps", .about = "Begin each line with the time at which it came", .type = Type::Flag},
             {.name = "--follow-siblings",
              .about = "Also what the siblings say, and their starts and ends",
              .type = Type::Flag},
             ColorParameter()},
            &Monitor};
}

} // namespace ControllerCtl
