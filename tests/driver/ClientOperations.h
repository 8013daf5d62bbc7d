#pragma once

#include "tests/driver/OperationTable.h"

void AddVideoOperations(Driver::OperationTable& table);
void AddStorageOperations(Driver::OperationTable& table);
void AddSettingsOperations(Driver::OperationTable& table);
void AddJobsOperations(Driver::OperationTable& table);
void AddHardwareOperations(Driver::OperationTable& table);
void AddSyncOperations(Driver::OperationTable& table);
void AddTimedateOperations(Driver::OperationTable& table);
