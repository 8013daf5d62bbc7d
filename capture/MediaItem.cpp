#include "capture/MediaItem.h"

#include "clients/jobs/JobsManager.h"
#include "dbus_helper/Log.h"

namespace ControllerDaemon
{

bool MediaItemDone(const MediaItemRequest& request, int32_t result, int32_t jobsCode)
{
    if (result < 0)
    {
        Log::Error("%s: Failed to %s %s media item, r = %d", request.signature, request.verb, request.item, result);
        return false;
    }
    if (jobsCode != 0)
    {
        Log::Error("%s: Failed to %s %s media item. Error: %s", request.signature, request.verb, request.item,
                   libjobsdaemon::JobsManager::ErrorText(jobsCode));
        return false;
    }
    return true;
}

} // namespace ControllerDaemon
