#include "dbus_helper/DbusListener.h"

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
    sd_bus_slot* slot = nullptr;
    const int result = sd_bus_match_signal(GetBus(), &slot, service.c_str(), path.empty() ? nullptr : path.c_str(),
                                           interface.c_str(), member.c_str(), handler, userData);
    if (result < 0)
    {
        return result;
    }
    slots_.emplace_back(slot);
    return 0;
}

void DbusListener::Disconnect()
{
    slots_.clear();
    DbusConnector::Disconnect();
}

} // namespace DbusHelper
