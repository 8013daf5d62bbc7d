/*
 * Preloaded into the unmodified daemon to put folders of the virtual unit in the place of the unit's own devices and
 * folders, those for which the variable is set:
 *
 *   CCU_FRAMEBUFFERS=DIR   "/dev/fb0" and "/dev/fb1" are the files fb0 and fb1 of that folder, as a file's absence is a
 *                          device's
 *   CCU_LOGS=DIR           "/mnt/ccu-data/logs" is that folder
 *   CCU_SOUNDS=DIR         "/usr/share/sounds" is that folder
 *   CCU_ZONES=DIR          "/usr/share/zoneinfo/CCU" is that folder
 *   CCU_GPIO=DIR           "/dev/gpiochip4" is the folder gpiochip4 in that folder, which gpio.c makes a chip
 *   CCU_MOUNTS=FILE        "/proc/self/mountinfo" is that file
 *   CCU_DEV_LOG=SOCKET     "/dev/log" is that socket, for programs that look at it by themselves
 *
 * It holds for the calls below, which are those by which the daemon and the C++ library's <filesystem> open, list, look
 * up and remove files; the C library's own calls, as for /etc/localtime, cannot be met here.
 *
 * Tools that simulate devices for a whole process tree exist, but they want a recording of a real device, run the
 * daemon under a wrapper of theirs, and do not let a test say what the screen shows.
 */
#define _GNU_SOURCE
#include "paths.h"

#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

/* What has the path, or is beneath it, is `inside` the folder that the variable names. */
struct place
{
    const char* path;
    const char* variable;
    const char* inside;
};

static const struct place places[] = {
    {"/dev/fb0", "CCU_FRAMEBUFFERS", "/fb0"},     {"/dev/fb1", "CCU_FRAMEBUFFERS", "/fb1"},
    {"/mnt/ccu-data/logs", "CCU_LOGS", ""},       {"/usr/share/sounds", "CCU_SOUNDS", ""},
    {"/usr/share/zoneinfo/CCU", "CCU_ZONES", ""}, {"/dev/gpiochip4", "CCU_GPIO", "/gpiochip4"},
    {"/proc/self/mountinfo", "CCU_MOUNTS", ""},   {"/dev/log", "CCU_DEV_LOG", ""},
};

static const char* place_of(const char* path, char space[PATH_MAX])
{
    for (size_t index = 0; index < sizeof places / sizeof places[0]; ++index)
    {
        const struct place* place = &places[index];
        const size_t length = strlen(place->path);
        if (strncmp(path, place->path, length) != 0 || (path[length] != '\0' && path[length] != '/'))
        {
            continue;
        }
        const char* folder = getenv(place->variable);
        const int written =
            folder == NULL ? -1 : snprintf(space, PATH_MAX, "%s%s%s", folder, place->inside, path + length);
        return written > 0 && written < PATH_MAX ? space : path;
    }
    return path;
}

EXPORT int openat(int folder, const char* path, int flags, ...)
{
    char space[PATH_MAX];
    int (*next)(int, const char*, int, mode_t) = real("openat");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return next(folder, place_of(path, space), flags, mode);
}

EXPORT int remove(const char* path)
{
    char space[PATH_MAX];
    int (*next)(const char*) = real("remove");
    return next(place_of(path, space));
}

EXPORT int stat(const char* path, struct stat* status)
{
    char space[PATH_MAX];
    int (*next)(const char*, struct stat*) = real("stat");
    return next(place_of(path, space), status);
}
EXPORT int stat64(const char* path, struct stat64* status)
{
    char space[PATH_MAX];
    int (*next)(const char*, struct stat64*) = real("stat64");
    return next(place_of(path, space), status);
}

EXPORT int lstat(const char* path, struct stat* status)
{
    char space[PATH_MAX];
    int (*next)(const char*, struct stat*) = real("lstat");
    return next(place_of(path, space), status);
}

EXPORT int connect(int descriptor, const struct sockaddr* address, socklen_t length)
{
    int (*next)(int, const struct sockaddr*, socklen_t) = real("connect");
    struct sockaddr_un other;
    char space[PATH_MAX];
    if (address->sa_family != AF_UNIX || length > sizeof other || length <= sizeof other.sun_family)
    {
        return next(descriptor, address, length);
    }
    memset(&other, 0, sizeof other);
    memcpy(&other, address, length);
    char path[sizeof other.sun_path + 1] = "";
    memcpy(path, other.sun_path, sizeof other.sun_path);
    const char* place = place_of(path, space);
    if (place == path || strlen(place) >= sizeof other.sun_path)
    {
        return next(descriptor, address, length);
    }
    strcpy(other.sun_path, place);
    return next(descriptor, (const struct sockaddr*)&other, sizeof other);
}
