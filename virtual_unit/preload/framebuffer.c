/*
 * Preloaded into the unmodified daemon to give it a display and a place for what it writes on the unit itself:
 *
 *   CCU_FRAMEBUFFERS=DIR   "/dev/fb0" and "/dev/fb1" are the files fb0 and fb1 of that folder, as a file's absence is a
 *                          device's; FBIOGET_VSCREENINFO answers what fb0.info and fb1.info hold, a struct
 *                          fb_var_screeninfo, and as the kernel does for a file that is no framebuffer without them
 *   CCU_LOGS=DIR           "/mnt/ccu-data/logs" is that folder
 *
 * Tools that simulate devices for a whole process tree exist, but they want a recording of a real device, run the
 * daemon under a wrapper of theirs, and do not let a test say what the screen shows. A kernel's own virtual framebuffer
 * has neither three bytes a pixel nor a place in a container.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fb.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

static const char devices[] = "/dev/fb";
static const char logs[] = "/mnt/ccu-data/logs";

static void* real(const char* name) { return dlsym(RTLD_NEXT, name); }

/* The path that stands for the given one, which may be the given one; `space` holds it otherwise. */
static const char* place_of(const char* path, char space[PATH_MAX])
{
    const char* framebuffers = getenv("CCU_FRAMEBUFFERS");
    const char* folder = getenv("CCU_LOGS");
    int length = -1;
    if (framebuffers != NULL && strncmp(path, devices, sizeof devices - 1) == 0)
    {
        length = snprintf(space, PATH_MAX, "%s%s", framebuffers, path + strlen("/dev"));
    }
    else if (folder != NULL && strncmp(path, logs, sizeof logs - 1) == 0)
    {
        length = snprintf(space, PATH_MAX, "%s%s", folder, path + sizeof logs - 1);
    }
    return length > 0 && length < PATH_MAX ? space : path;
}

EXPORT int open(const char* path, int flags, ...)
{
    char space[PATH_MAX];
    int (*next)(const char*, int, mode_t) = real("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return next(place_of(path, space), flags, mode);
}

/* Every C library of the last years has one file offset, so the names with 64 are the same functions. */
EXPORT FILE* fopen(const char* path, const char* mode)
{
    char space[PATH_MAX];
    FILE* (*next)(const char*, const char*) = real("fopen");
    return next(place_of(path, space), mode);
}
EXPORT FILE* fopen64(const char* path, const char* mode) { return fopen(path, mode); }

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

/* Reads the screen information that belongs to an open framebuffer; returns 0 when it has one. */
static int read_information(int descriptor, struct fb_var_screeninfo* screen)
{
    char link[64];
    char path[PATH_MAX + sizeof ".info"];
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = readlink(link, path, PATH_MAX);
    if (length < 0)
    {
        return -1;
    }
    strcpy(path + length, ".info");
    int (*next)(const char*, int, mode_t) = real("open");
    const int information = next(path, O_RDONLY | O_CLOEXEC, 0);
    if (information < 0)
    {
        return -1;
    }
    const ssize_t count = read(information, screen, sizeof *screen);
    close(information);
    return count == (ssize_t)sizeof *screen ? 0 : -1;
}

EXPORT int ioctl(int descriptor, unsigned long request, ...)
{
    int (*next)(int, unsigned long, void*) = real("ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == FBIOGET_VSCREENINFO && getenv("CCU_FRAMEBUFFERS") != NULL &&
        read_information(descriptor, argument) == 0)
    {
        return 0;
    }
    return next(descriptor, request, argument);
}
