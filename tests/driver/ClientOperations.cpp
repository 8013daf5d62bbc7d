#include "tests/driver/ClientOperations.h"

void AddOperations(Driver::OperationTable& table)
{
    AddVideoOperations(table);
    AddStorageOperations(table);
    AddSettingsOperations(table);
    AddJobsOperations(table);
    AddHardwareOperations(table);
    AddSyncOperations(table);
    AddTimedateOperations(table);
}
