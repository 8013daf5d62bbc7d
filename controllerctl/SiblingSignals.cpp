#include "controllerctl/SiblingSignals.h"

#include "controllerctl/Patience.h"
#include "interfaces/ControllerEndpoint.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace ControllerCtl
{
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
    const auto match = [&](const std::string& rule, sd_bus_message_handler_t handler) {
        sd_bus_slot* slot = nullptr;
        const int result = sd_bus_add_match(bus_, &slot, rule.c_str(), handler, &source);
        source.slots.emplace_back(slot);
        return result;
    };
    const int result = match("type='signal',sender='" + service + "'", &OnSignal);
    return result < 0
               ? result
               : match("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + service + "'",
                       &OnOwner);
}

int SiblingSignals::OnSignal(sd_bus_message* signal, void* userData, sd_bus_error* /*error*/)
{
    const Source& source = *static_cast<Source*>(userData);
    // The bus passes on what the siblings say, but it is not said here whose name a sender has.
    std::string path = source.sibling.service;
    std::replace(path.begin(), path.end(), '.', '/');
    const char* sent = sd_bus_message_get_path(signal);
    if (sent != nullptr && std::string_view(sent).starts_with("/" + path))
    {
        source.signals->Hear(source, signal);
    }
    return 0;
}

int SiblingSignals::OnOwner(sd_bus_message* signal, void* userData, sd_bus_error* /*error*/)
{
    const Source& source = *static_cast<Source*>(userData);
    source.signals->Hear(source, signal);
    return 0;
}

void SiblingSignals::Hear(const Source& source, sd_bus_message* signal)
{
    hasHeard_ = hear_(source.sibling.name, signal) || hasHeard_;
}

int SiblingSignals::Process(int milliseconds)
{
    constexpr uint64_t microseconds = 1000;
    int result = sd_bus_process(bus_, nullptr);
    if (result == 0)
    {
        result = sd_bus_wait(bus_, milliseconds < 0 ? UINT64_MAX : static_cast<uint64_t>(milliseconds) * microseconds);
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
    return result < 0 && result != -EINTR ? result : hasHeard_ ? 1 : 0;
}

} // namespace ControllerCtl
