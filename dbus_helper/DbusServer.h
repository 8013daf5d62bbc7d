#pragma once

#include "dbus_helper/DbusConnector.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace DbusHelper
{

/// One object with one interface on a bus, under a well-known name. Members are registered first, in the order in which
/// introspection lists them, with the names of their arguments separated by blanks; Start brings the object up.
/// Handlers are plain sd-bus callbacks, given null user data, and run on the loop's thread. An exception that leaves
/// one is logged and answered with a D-Bus error. `flags` are sd-bus vtable flags.
class DbusServer
{
  public:
    /// `systemBus`: own the name on the system bus instead of the user bus. `objectManager`: also export
    /// org.freedesktop.DBus.ObjectManager at the path.
    DbusServer(std::string service, std::string path, std::string interface, bool systemBus, bool objectManager,
               sd_event* event);
    virtual ~DbusServer();
    DbusServer(const DbusServer&) = delete;
    DbusServer& operator=(const DbusServer&) = delete;
    DbusServer(DbusServer&&) = delete;
    DbusServer& operator=(DbusServer&&) = delete;

    /// Each appends one member. Returns 0, or -EBUSY while the object is up: sd-bus holds the table then.
    int32_t AddVtableMethod(const char* member, const char* signature, const char* resultSignature,
                            sd_bus_message_handler_t handler, uint64_t flags, const char* argumentNames = "",
                            const char* resultNames = "");
    int32_t AddVtableProperty(const char* name, const char* signature, sd_bus_property_get_t getter,
                              sd_bus_property_set_t setter, uint64_t flags);
    int32_t AddVtablePropertyReadOnly(const char* name, const char* signature, sd_bus_property_get_t getter,
                                      uint64_t flags);
    int32_t AddVtableSignal(const char* member, const char* signature, uint64_t flags, const char* argumentNames = "");

    /// Connects, exports the object and takes the name, in that order, so that no caller finds the name without the
    /// object. 0 on success, also when started already; negative errno-style on failure, -EEXIST when the name is
    /// taken, with nothing left up.
    [[nodiscard]] int32_t Start();

    /// Withdraws the object, gives the name back and closes the connection; does nothing when not started. Members can
    /// be added then, for the next start.
    void Stop();

    /// The server's connection, null unless started. Owned by the server.
    [[nodiscard]] sd_bus* GetBus() const { return connector_.GetBus(); }

  private:
    struct Handlers
    {
        sd_bus_message_handler_t method = nullptr;
        sd_bus_property_get_t getter = nullptr;
        sd_bus_property_set_t setter = nullptr;
    };
    struct Trampolines;

    int32_t AppendProperty(uint8_t type, const char* name, const char* signature, const Handlers& handlers,
                           uint64_t flags);
    int32_t Append(const sd_bus_vtable& entry);
    const char* Keep(const char* text);
    size_t Keep(const Handlers& handlers);
    const char* KeepNames(const std::string& first, const std::string& second = {});
    int32_t BringUp();

    DbusConnector connector_;
    std::string service_;
    std::string path_;
    std::string interface_;
    bool objectManager_;
    std::deque<std::string> texts_; // stable storage of every text that the vtable points to
    std::deque<Handlers> handlers_; // and of the handlers
    std::vector<sd_bus_vtable> vtable_;
    std::vector<SlotHandle> slots_;
};

} // namespace DbusHelper
