#include "clients/sync/SyncDaemonDbusHandler.h"
#include "tests/driver/ClientOperations.h"

namespace
{

using Syncd::SyncDaemonDbusHandler;

Driver::Listening Listen(sd_event* event, const Driver::SignalSink& sink)
{
    auto client = std::make_shared<SyncDaemonDbusHandler>(event);
    Driver::Forward<const std::string&, const sdbus_utils::PropertyMap&>(client->PropertiesChanged(),
                                                                         "PropertiesChanged", sink);
    return {client->Listen(), client};
}

} // namespace

#define ADD(operation) table.Add("sync." #operation, &SyncDaemonDbusHandler::operation)

void AddSyncOperations(Driver::OperationTable& table)
{
    ADD(AddSyncs);
    ADD(CancelSyncs);
    ADD(CancelAllDevices);
    ADD(HasActiveSyncs);
    ADD(GetSyncStatus);
    table.AddListener("sync", &Listen);
}
