#include "controllerctl/RecordingFile.h"

#include "capture/MarkerNames.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace ControllerCtl
{
namespace
{

using std::string;

/// Whether the bus that is asked is that of this unit, and so its files are those that are looked at.
bool IsLocal()
{
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    return address == nullptr || string(address).find("unixexec:") == string::npos;
}

} // namespace

FileLook LookAtFile(const string& path)
{
    FileLook look;
    struct stat status
    {};
    if (path.empty() || !IsLocal())
    {
        return look;
    }
    if (stat(path.c_str(), &status) == 0)
    {
        look.bytes = static_cast<uint64_t>(status.st_size);
    }
    const string marker = ControllerDaemon::MarkerPath(path, ControllerDaemon::recActiveSuffix);
    if (stat(marker.c_str(), &status) == 0)
    {
        look.seconds = std::max<int64_t>(std::time(nullptr) - status.st_mtime, 0);
    }
    return look;
}

} // namespace ControllerCtl
