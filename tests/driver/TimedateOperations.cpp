#include "tests/driver/ClientOperations.h"
#include "time/SystemdDateTime.h"

#define ADD(operation) table.Add("timedate." #operation, &SystemdDateTime::operation)

void AddTimedateOperations(Driver::OperationTable& table)
{
    ADD(SetTime);
    ADD(SetTimezone);
    ADD(SetNTP);
    ADD(GetNTP);
    ADD(GetTimezone);
}
