#pragma once

#include <cstdint>

namespace ControllerDaemon
{

/// What is asked of the jobs manager, in the words of the lines about it.
struct MediaItemRequest
{
    const char* signature; ///< of the operation that asks
    const char* verb;      ///< "add", "update", "delete"
    const char* item;      ///< the kind of media item
};

/// Whether the jobs manager did as it was asked, by the result of the call and its own code; logged when it did not.
bool MediaItemDone(const MediaItemRequest& request, int32_t result, int32_t jobsCode);

} // namespace ControllerDaemon
