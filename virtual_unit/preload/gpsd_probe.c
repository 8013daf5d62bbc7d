/*
 * Preloaded into the unmodified gpsd, so that nothing of it leaves the virtual unit.
 *
 * Besides its export gpsd opens the machine's segments for NTP, makes them where there are none and leaves them there:
 * of System V shared memory it gets the segment of GPSD_SHM_KEY alone.
 *
 * Started by root it would become another user, and the kernel would then forget the signal that ends it with the
 * unit: it stays who it is.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <sys/shm.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

EXPORT int shmget(key_t key, size_t size, int flags)
{
    int (*next)(key_t, size_t, int) = dlsym(RTLD_NEXT, "shmget");
    const char* own = getenv("GPSD_SHM_KEY");
    if (own == NULL || key != (key_t)strtol(own, NULL, 0))
    {
        errno = EACCES;
        return -1;
    }
    return next(key, size, flags);
}

EXPORT int setuid(uid_t user)
{
    (void)user;
    return 0;
}

EXPORT int setgid(gid_t group)
{
    (void)group;
    return 0;
}
