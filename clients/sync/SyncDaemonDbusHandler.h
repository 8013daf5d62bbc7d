#pragma once

#include "dbus_helper/DbusListener.h"
#include "dbus_helper/PropertyMap.h"

#include <sigc++/signal.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Syncd
{

/// Client of the sync daemon, "com.tavilon.common.SyncDaemon1": copies content from one storage to others.
///
/// Every operation is one blocking call on a user-bus connection of its own; nothing is kept between calls. It returns
/// sd-bus's result: 0 or positive on success, negative errno-style on failure, which is logged and leaves every
/// out-argument as it was. `code` is the sync daemon's own result code (0 succeeded; see ErrorText): a refusal is a
/// success here, and for the caller to judge. What names a source, a destination or an item, and what a status says, is
/// the sync daemon's to define. Everything belongs on the loop's thread.
class SyncDaemonDbusHandler
{
  public:
    /// The interface that has changed and its changed properties.
    using PropertiesChangedSignal = sigc::signal<void, const std::string&, const sdbus_utils::PropertyMap&>;

    explicit SyncDaemonDbusHandler(sd_event* event);

    /// Subscribes to the changes of the sync daemon's properties. Returns 0. A failure is logged, leaves nothing
    /// connected and is returned, negative errno-style.
    [[nodiscard]] int32_t Listen();

    PropertiesChangedSignal& PropertiesChanged() { return propertiesChanged_; }

    /// The text of a result code of the sync daemon, "Unknown error code" for one that it does not have.
    [[nodiscard]] static const char* ErrorText(int32_t code);

    /// Starts syncs of `items`; `status` is that of all syncs after it. The code's text and the status are logged.
    [[nodiscard]] static int32_t AddSyncs(const std::string& source, const std::string& destination,
                                          const std::vector<std::string>& items, int32_t& code, std::string& status);
    /// The code's text is logged.
    [[nodiscard]] static int32_t CancelSyncs(const std::vector<std::string>& items, int32_t& code);
    [[nodiscard]] static int32_t CancelAllDevices(int32_t& code);

    [[nodiscard]] static int32_t HasActiveSyncs(bool& active);
    /// What it reads is logged.
    [[nodiscard]] static int32_t GetSyncStatus(std::string& status);

  private:
    static int OnPropertiesChanged(sd_bus_message* message, void* userData, sd_bus_error* error);

    DbusHelper::DbusListener listener_;
    PropertiesChangedSignal propertiesChanged_;
};

} // namespace Syncd
