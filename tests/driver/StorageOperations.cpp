#include "clients/storage/StorageDaemonDbusHandler.h"
#include "tests/driver/ClientOperations.h"

namespace
{

using Driver::SignalSink;
using Storaged::StorageDaemonDbusHandler;

Driver::Listening Listen(sd_event* event, const SignalSink& sink)
{
    auto client = std::make_shared<StorageDaemonDbusHandler>(event);
    Driver::Forward<std::string, sdbus_utils::InterfaceMap>(client->InterfacesAdded(), "InterfacesAdded", sink);
    Driver::Forward<std::string, std::vector<std::string>>(client->InterfacesRemoved(), "InterfacesRemoved", sink);
    Driver::Forward<std::string, sdbus_utils::PropertyMap>(client->PropertiesChanged(), "PropertiesChanged", sink);
    return {client->ListenSignals({"InterfacesAdded", "InterfacesRemoved", "PropertiesChanged"}), client};
}

} // namespace

#define ADD(operation) table.Add("storage." #operation, &StorageDaemonDbusHandler::operation)

void AddStorageOperations(Driver::OperationTable& table)
{
    ADD(GetPrimaryDevice);
    ADD(GetAvailableDevices);
    ADD(GetReadOnly);
    ADD(GetBus);
    ADD(GetSocket);
    ADD(GetMountPoint);
    ADD(GetDevicePath);
    ADD(GetStorageSpaceBelowWarningThreshold);
    ADD(GetStorageSpaceBelowMinimumThreshold);
    ADD(GetMounted);
    ADD(GetKnownPrimary);
    ADD(SetKnownPrimary);
    ADD(GetFreeSpace);
    ADD(GetId);
    ADD(GetIsSafeToRemove);
    ADD(SetWriteActive);
    ADD(StartFormat);
    ADD(GetStorageObjectPaths);
    ADD(GetPathFromFilename);
    table.AddListener("storage", &Listen);
}
