#include "dbus_helper/DbusListener.h"

#include "dbus_helper/HandlerGuard.h"

#include <algorithm>
#include <cerrno>

namespace DbusHelper
{

DbusListener::DbusListener(sd_event* event) : DbusConnector(event) {}

DbusListener::~DbusListener() { DbusListener::Disconnect(); }

void DbusListener::DefineSignals(std::vector<SignalDescriptor> descriptors, void* userData)
{
    userData_ = userData;
    for (SignalDescriptor& descriptor : descriptors)
    {
        std::string key = descriptor.key;
        descriptors_.insert_or_assign(std::move(key), std::move(descriptor));
    }
}

int32_t DbusListener::ListenSignals(const std::vector<std::string>& keys)
{
    int32_t failure = Connect();
    if (failure < 0)
    {
        return failure;
    }
    for (const std::string& key : keys)
    {
        const auto found = descriptors_.find(key);
        const int32_t result = found == descriptors_.end()
                                   ? -ENOENT
                                   : ListenSignal(found->second.service, found->second.path, found->second.interface,
                                                  found->second.member, found->second.handler, userData_);
        failure = failure < 0 ? failure : result;
    }
    return failure;
}

int32_t DbusListener::ListenSignal(const std::string& service, const std::string& path, const std::string& interface,
                                   const std::string& member, sd_bus_message_handler_t handler, void* userData)
{
    if (GetBus() == nullptr)
    {
        return -ENOTCONN;
    }
    SignalDescriptor signal{member, service, path, interface, member, handler};
    const auto stands = [&](const Subscription& other) { return other.signal == signal && other.userData == userData; };
    if (std::any_of(subscriptions_.begin(), subscriptions_.end(), stands))
    {
        return 0;
    }
    subscriptions_.push_back({std::move(signal), userData, nullptr});
    Subscription& added = subscriptions_.back();
    sd_bus_slot* slot = nullptr;
    const int result = sd_bus_match_signal(GetBus(), &slot, service.c_str(), path.empty() ? nullptr : path.c_str(),
                                           interface.c_str(), member.c_str(), &OnSignal, &added);
    if (result < 0)
    {
        subscriptions_.pop_back();
        return result;
    }
    added.slot.reset(slot);
    return 0;
}

int DbusListener::OnSignal(sd_bus_message* message, void* subscription, sd_bus_error* error)
{
    // Anybody can send to a connection directly: the bus holds no match rule, and so no sender, against that.
    if (sd_bus_message_get_destination(message) != nullptr)
    {
        return 0;
    }
    const auto& listened = *static_cast<const Subscription*>(subscription);
    return Guard(listened.signal.member.c_str(), error,
                 [&] { return listened.signal.handler(message, listened.userData, error); });
}

void DbusListener::Disconnect()
{
    subscriptions_.clear();
    DbusConnector::Disconnect();
}

} // namespace DbusHelper
