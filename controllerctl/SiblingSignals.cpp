#include "controllerctl/SiblingSignals.h"

#include "controllerctl/Patience.h"
#include "interfaces/ControllerEndpoint.h"

#include <cerrno>
#include <string_view>
#include <utility>

namespace ControllerCtl
{
namespace
{

/// Files that grow say so all the time, and change nothing else.
bool IsGrowth(sd_bus_message* signal)
{
    const char* member = sd_bus_message_get_member(signal);
    return member != nullptr && std::string_view(member).ends_with("Grew");
}

} // namespace

SiblingSignals::SiblingSignals(sd_bus* bus, Hearer hear) : bus_(bus), hear_(std::move(hear)) {}

int SiblingSignals::Listen()
{
    int result = 0;
    const auto listen = [&](const Sibling& sibling) {
        sources_.push_back(std::make_unique<Source>(Source{this, sibling, {}}));
        result = result < 0 ? result : ListenTo(*sources_.back());
    };
    listen({"controller", ControllerDaemon::controllerEndpoint.service});
    for (const Sibling& sibling : siblings)
    {
        listen(sibling);
    }
    return result;
}

int SiblingSignals::ListenTo(Source& source)
{
    const std::string service = source.sibling.service;
    for (const std::string& rule :
         {"type='signal',sender='" + service + "'",
          "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + service + "'"})
    {
        sd_bus_slot* slot = nullptr;
        const int result = sd_bus_add_match(bus_, &slot, rule.c_str(), &OnSignal, &source);
        source.slots.emplace_back(slot);
        if (result < 0)
        {
            return result;
        }
    }
    return 0;
}

int SiblingSignals::OnSignal(sd_bus_message* signal, void* userData, sd_bus_error* /*error*/)
{
    const Source& source = *static_cast<Source*>(userData);
    SiblingSignals& signals = *source.signals;
    if (signals.hear_)
    {
        signals.hear_(source.sibling.name, signal);
    }
    signals.hasHeard_ = signals.hasHeard_ || !IsGrowth(signal);
    return 0;
}

int SiblingSignals::Process(int milliseconds)
{
    constexpr uint64_t microseconds = 1000;
    int result = sd_bus_process(bus_, nullptr);
    if (result == 0)
    {
        result = sd_bus_wait(bus_, milliseconds < 0 ? UINT64_MAX : static_cast<uint64_t>(milliseconds) * microseconds);
        result = result == -EINTR ? 1 : result;
    }
    return result;
}

int SiblingSignals::Wait(int milliseconds)
{
    constexpr double together = 0.05;
    constexpr double perSecond = 1000;
    int result = 1;
    const Patience patience = milliseconds < 0 ? Patience() : Patience(milliseconds / perSecond);
    while (result >= 0 && !hasHeard_ && patience.Left() != 0)
    {
        result = Process(patience.Left());
    }
    const Patience rest(together);
    while (result >= 0 && hasHeard_ && rest.Left() != 0)
    {
        result = Process(rest.Left());
    }
    return result < 0 ? result : hasHeard_ ? 1 : 0;
}

} // namespace ControllerCtl
