#include "controllerctl/Gpsd.h"

#include <sys/shm.h>

#include <cstdlib>

namespace ControllerCtl
{

bool IsGpsdThere()
{
    constexpr key_t usualKey = 0x47505344;
    constexpr int anyBase = 0;
    const char* key = std::getenv("GPSD_SHM_KEY");
    return shmget(key == nullptr ? usualKey : static_cast<key_t>(std::strtol(key, nullptr, anyBase)), 0, 0) >= 0;
}

} // namespace ControllerCtl
