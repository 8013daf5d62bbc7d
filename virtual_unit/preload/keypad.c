/*
 * Preloaded into the unmodified daemon, before umockdev's library, to give it what that one leaves out of an input
 * device:
 *
 *   CCU_INPUT=DIR   the root of a testbed of umockdev. "/run/udev" is the folder run/udev in it, and the pipes
 *                   dev/input/event* are evdev nodes: they have the device number 13:64 and so on, and tell what the
 *                   files of evdev/event* in the testbed hold. Events are what somebody writes to the pipes.
 *
 * With it the real libudev and libinput run in the daemon, where no real device can be made: /dev/uinput is not there
 * in a container. umockdev alone knows nothing of udev's database, without which libinput skips a device, and has a
 * terminal where an evdev node should be, or needs the recording of a real device.
 */
#define _GNU_SOURCE
#include "paths.h"

#include <errno.h>
#include <linux/input.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

static const char database[] = "/run/udev";
static const char nodes[] = "/dev/input/event";
static const unsigned int inputMajor = 13;
static const int firstMinor = 64;

/*
 * umockdev's fclose(3) goes to the C library past a sanitizer, whose open_memstream(3) would then find a stream that it
 * knows at the place of a new one. So that one goes past it as well.
 */
EXPORT FILE* open_memstream(char** text, size_t* length)
{
    FILE* (*next)(char**, size_t*) = dlsym(dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD), "open_memstream");
    return next(text, length);
}

/* Paths ------------------------------------------------------------------------------------------------------------ */

static const char* place_of(const char* path, char space[PATH_MAX])
{
    const char* root = getenv("CCU_INPUT");
    if (root == NULL ||
        (strncmp(path, database, sizeof database - 1) != 0 && strncmp(path, nodes, sizeof nodes - 1) != 0))
    {
        return path;
    }
    const int length = snprintf(space, PATH_MAX, "%s%s", root, path);
    return length > 0 && length < PATH_MAX ? space : path;
}

/* Kept from umockdev, whose own cannot be called as early as sanitizers make the folder of their reports. */
EXPORT int mkdir(const char* path, mode_t mode) { return (int)syscall(SYS_mkdirat, AT_FDCWD, path, mode); }

/* Nodes ------------------------------------------------------------------------------------------------------------ */

/* The number of the input device that is open there, -1 when it is something else. */
static int device_number(int descriptor)
{
    char link[64];
    char path[PATH_MAX] = "";
    char root[PATH_MAX] = "";
    const char* folder = getenv("CCU_INPUT");
    const size_t length = folder != NULL && realpath(folder, root) != NULL ? strlen(root) : 0;
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    ssize_t (*next)(const char*, char*, size_t) = real("readlink");
    if (length == 0 || next(link, path, sizeof path - 1) < 0 || strncmp(path, root, length) != 0 ||
        strncmp(path + length, nodes, sizeof nodes - 1) != 0)
    {
        return -1;
    }
    return atoi(path + length + sizeof nodes - 1);
}

EXPORT int fstat(int descriptor, struct stat* status)
{
    int (*next)(int, struct stat*) = real("fstat");
    const int result = next(descriptor, status);
    const int number = result == 0 && S_ISFIFO(status->st_mode) ? device_number(descriptor) : -1;
    if (number >= 0)
    {
        status->st_mode = S_IFCHR | (status->st_mode & 07777);
        status->st_rdev = makedev(inputMajor, (unsigned int)(firstMinor + number));
    }
    return result;
}
EXPORT int fstat64(int descriptor, struct stat64* status) { return fstat(descriptor, (struct stat*)status); }

/* Answers with what a file of the device's description holds; zeros when there is none. */
static int tell(int device, const char* name, unsigned int number, void* answer, size_t size)
{
    char path[PATH_MAX];
    snprintf(path, sizeof path, "%s/evdev/event%d/%s%u", getenv("CCU_INPUT"), device, name, number);
    memset(answer, 0, size);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
    {
        return 0;
    }
    const ssize_t count = read(file, answer, size);
    close(file);
    return (int)count;
}

/* The answers of the kernel's evdev; those that are no question, as for the clock, are taken and forgotten. */
static int answer_evdev(int device, unsigned long request, void* argument)
{
    const unsigned int number = _IOC_NR(request);
    const size_t size = _IOC_SIZE(request);
    if (_IOC_DIR(request) != _IOC_READ)
    {
        return 0;
    }
    if (number >= _IOC_NR(EVIOCGABS(0)) && number < _IOC_NR(EVIOCGABS(ABS_CNT)))
    {
        return tell(device, "abs", number - _IOC_NR(EVIOCGABS(0)), argument, size) < 0 ? -1 : 0;
    }
    if (number >= _IOC_NR(EVIOCGBIT(0, 0)) && number < _IOC_NR(EVIOCGBIT(EV_CNT, 0)))
    {
        return tell(device, "bits", number - _IOC_NR(EVIOCGBIT(0, 0)), argument, size);
    }
    switch (number)
    {
    case _IOC_NR(EVIOCGVERSION):
        *(int*)argument = EV_VERSION;
        return 0;
    case _IOC_NR(EVIOCGNAME(0)):
        return tell(device, "name", 0, argument, size);
    case _IOC_NR(EVIOCGPHYS(0)):
    case _IOC_NR(EVIOCGUNIQ(0)):
        errno = ENOENT;
        return -1;
    default:
        memset(argument, 0, size);
        return 0;
    }
}

EXPORT int ioctl(int descriptor, unsigned long request, ...)
{
    int (*next)(int, unsigned long, void*) = real("ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const int device = _IOC_TYPE(request) == 'E' ? device_number(descriptor) : -1;
    return device >= 0 ? answer_evdev(device, request, argument) : next(descriptor, request, argument);
}
