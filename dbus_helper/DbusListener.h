#pragma once

#include "dbus_helper/DbusConnector.h"

#include <list>
#include <map>
#include <string>
#include <vector>

namespace DbusHelper
{

/// A signal that a client of another daemon knows how to handle. Which of them are subscribed is the owner's choice.
struct SignalDescriptor
{
    std::string key; ///< the name by which it is chosen, equal to the member
    std::string service;
    std::string path; ///< empty: every object of the service
    std::string interface;
    std::string member;
    sd_bus_message_handler_t handler = nullptr;

    bool operator==(const SignalDescriptor& other) const = default;
};

/// Subscribes to signals of other daemons on a connection of its own. Handlers run on the loop's thread. They are given
/// what the service emits to everybody; a signal that is addressed to this connection may be anyone's and is dropped.
/// An exception that leaves a handler is logged.
class DbusListener : public DbusConnector
{
  public:
    explicit DbusListener(sd_event* event);
    ~DbusListener() override;
    DbusListener(const DbusListener&) = delete;
    DbusListener& operator=(const DbusListener&) = delete;
    DbusListener(DbusListener&&) = delete;
    DbusListener& operator=(DbusListener&&) = delete;

    /// Makes signals known, by their keys, with the user data that their handlers are given.
    void DefineSignals(std::vector<SignalDescriptor> descriptors, void* userData);

    /// Connects when need be and subscribes to the signals with these keys. All are tried. Returns 0, or the first
    /// failure: negative errno-style, -ENOENT for a key that is not known. What is subscribed already stays so, once.
    [[nodiscard]] int32_t ListenSignals(const std::vector<std::string>& keys);

    /// Subscribes to one signal on the connection, which must stand, unless this very subscription exists. An empty
    /// path matches every object of the service. Returns 0, negative errno-style on failure.
    [[nodiscard]] int32_t ListenSignal(const std::string& service, const std::string& path,
                                       const std::string& interface, const std::string& member,
                                       sd_bus_message_handler_t handler, void* userData);

    /// Ends every subscription and the connection.
    void Disconnect() override;

  private:
    struct Subscription
    {
        SignalDescriptor signal;
        void* userData = nullptr;
        SlotHandle slot;
    };
    static int OnSignal(sd_bus_message* message, void* subscription, sd_bus_error* error);

    std::map<std::string, SignalDescriptor> descriptors_;
    void* userData_ = nullptr;
    std::list<Subscription> subscriptions_; // each is the user data of its match
};

} // namespace DbusHelper
