/*
 * Preloaded into the unmodified daemon to let the files that stand in the framebuffers' place (CCU_FRAMEBUFFERS, see
 * places.c) tell of their screen: FBIOGET_VSCREENINFO answers what fb0.info and fb1.info hold beside them, a struct
 * fb_var_screeninfo, and as the kernel does for a file that is no framebuffer without them.  A byte behind it that is
 * not 0 says that the unit draws into this one when somebody looks: the answer waits until it has, which a connection
 * to CCU_DISPLAY asks for and whose end tells.
 *
 * A kernel's own virtual framebuffer has neither three bytes a pixel nor a place in a container.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fb.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

static void* real(const char* name) { return dlsym(RTLD_NEXT, name); }

/* Has the unit draw what is to be seen now, and waits for it.  By calls that nobody else can meet. */
static void have_drawn(void)
{
    const char* door = getenv("CCU_DISPLAY");
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    if (door == NULL || strlen(door) >= sizeof address.sun_path)
    {
        return;
    }
    strcpy(address.sun_path, door);
    const int connection = (int)syscall(SYS_socket, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection < 0)
    {
        return;
    }
    char nothing;
    if (syscall(SYS_connect, connection, &address, sizeof address) == 0)
    {
        while (syscall(SYS_read, connection, &nothing, sizeof nothing) < 0 && errno == EINTR)
        {}
    }
    close(connection);
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
    /* Not by open(2), which may be met again: the folder can be below /dev by its true name. */
    const int information = (int)syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC);
    if (information < 0)
    {
        return -1;
    }
    const ssize_t count = read(information, screen, sizeof *screen);
    char drawn = 0;
    if (count == (ssize_t)sizeof *screen && read(information, &drawn, sizeof drawn) == 1 && drawn != 0)
    {
        have_drawn();
    }
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
