/*
 * Preloaded into the unmodified daemon to reach what cannot be reached from outside:
 *
 *   CCU_FAIL_CALLS=NAME[,NAME...]   these library calls fail with -EIO: sd_event_default, sd_event_loop,
 *                                   sd_bus_emit_signal
 *   CCU_FULL_DISK=PATTERN           nothing new can be made at paths that match: "no space left on device"
 *   CCU_LOOP_ENDS_ON_SIGUSR1=1      the daemon's event loop ends normally on SIGUSR1, so that a test sees the orderly
 *                                   end, leak checkers run and coverage is written
 */
#define _GNU_SOURCE
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

static bool fails(const char* name)
{
    const char* list = getenv("CCU_FAIL_CALLS");
    const size_t length = strlen(name);
    while (list != NULL && *list != '\0')
    {
        const char* end = strchrnul(list, ',');
        if ((size_t)(end - list) == length && strncmp(list, name, length) == 0)
        {
            return true;
        }
        list = *end == ',' ? end + 1 : end;
    }
    return false;
}

static void* real(const char* name) { return dlsym(RTLD_NEXT, name); }

__attribute__((visibility("default"))) int sd_event_default(sd_event** event)
{
    int (*next)(sd_event**) = real("sd_event_default");
    return fails("sd_event_default") ? -EIO : next(event);
}

__attribute__((visibility("default"))) int sd_event_loop(sd_event* event)
{
    int (*next)(sd_event*) = real("sd_event_loop");
    if (fails("sd_event_loop"))
    {
        return -EIO;
    }
    if (getenv("CCU_LOOP_ENDS_ON_SIGUSR1") != NULL)
    {
        /* Without a handler the source ends the loop with the code that it is given as user data: 0. The signal is
           blocked since before main, so that one that comes early is not lost. */
        sd_event_add_signal(event, NULL, SIGUSR1, NULL, NULL);
    }
    return next(event);
}

__attribute__((visibility("default"))) int sd_bus_emit_signal(sd_bus* bus, const char* path, const char* interface,
                                                              const char* member, const char* types, ...)
{
    va_list arguments;
    if (fails("sd_bus_emit_signal"))
    {
        return -EIO;
    }
    va_start(arguments, types);
    const int result = sd_bus_emit_signalv(bus, path, interface, member, types, arguments);
    va_end(arguments);
    return result;
}

static bool on_full_disk(const char* path)
{
    const char* pattern = getenv("CCU_FULL_DISK");
    return pattern != NULL && fnmatch(pattern, path, 0) == 0;
}

__attribute__((visibility("default"))) int open(const char* path, int flags, ...)
{
    int (*next)(const char*, int, mode_t) = real("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if ((flags & O_CREAT) != 0 && on_full_disk(path))
    {
        errno = ENOSPC;
        return -1;
    }
    return next(path, flags, mode);
}

__attribute__((visibility("default"))) int mkdir(const char* path, mode_t mode)
{
    int (*next)(const char*, mode_t) = real("mkdir");
    if (on_full_disk(path))
    {
        errno = ENOSPC;
        return -1;
    }
    return next(path, mode);
}

__attribute__((constructor)) static void block_signal(void)
{
    if (getenv("CCU_LOOP_ENDS_ON_SIGUSR1") != NULL)
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        sigprocmask(SIG_BLOCK, &signals, NULL);
    }
}
