#include "time/SystemdDateTime.h"
#include "tests/driver/ClientOperations.h"

#define ADD(operation) table.Add("timedate." #operation, &SystemdDateTime::operation)

void AddTimedateOperations(Driver::OperationTable& table)
{
    ADD(SetTime);
    ADD(SetTimezone);
    ADD(SetNTP);
    ADD(GetNTP);
    ADD(GetTimezone);
}
