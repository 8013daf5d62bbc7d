#pragma once

#include "dbus_helper/Call.h"
#include "dbus_helper/Log.h"

#include <cstdint>
#include <tuple>

/// The shapes of the jobs daemon's members, for the operations of its client only.
namespace libjobsdaemon
{

inline constexpr DbusHelper::Endpoint jobsDaemon{"com.tavilon.common.JobsManagerDaemon1",
                                                 "/com/tavilon/common/JobsManagerDaemon1",
                                                 "com.tavilon.common.JobsManagerDaemon1"};

/// The lines of a member's call that did not get through. Returns the call's result.
int32_t Report(const char* member, const DbusHelper::Outcome& outcome);

/// A call whose reply is one value: a code, or the ID of the two members that have none.
template <typename Reply, typename... In>
int32_t Call(const char* member, Reply& reply, const In&... arguments)
{
    Log::Debug("%s", member);
    return Report(member, DbusHelper::Call(jobsDaemon, member, std::tie(reply), arguments...));
}

/// A call whose reply is a structure of a code and data.
template <typename... Out, typename... In>
int32_t CallForStructure(const char* member, std::tuple<Out&...> answer, const In&... arguments)
{
    Log::Debug("%s", member);
    std::tuple<Out...> structure;
    const DbusHelper::Outcome outcome = DbusHelper::Call(jobsDaemon, member, std::tie(structure), arguments...);
    if (outcome.Ok())
    {
        answer = std::move(structure);
    }
    return Report(member, outcome);
}

} // namespace libjobsdaemon
