/*
 * Preloaded into the unmodified daemon to reach what cannot be reached from outside:
 *
 *   CCU_FAIL_CALLS=NAME[,NAME...]   these library calls fail: sd_event_default, sd_event_loop, sd_event_add_io (those
 *                                   of the daemon itself), sd_bus_emit_signal, udev_new,
 *                                   libinput_udev_create_context, libinput_udev_assign_seat
 *   CCU_TELL_CALLS=sd_event_unref   a line in the log for each call of it without a loop
 *   CCU_FULL_DISK=PATTERN           nothing new can be made at paths that match: "no space left on device"
 *   CCU_FULL_DISKS=FILE             the same at paths that match a line of the file, which may come and change
 *   CCU_LOOP_ENDS_ON_SIGUSR1=1      the daemon's event loop ends normally on SIGUSR1, so that a test sees the orderly
 *                                   end, leak checkers run and coverage is written
 *   CCU_EXITS_ON_SIGUSR1=1          a program without such a loop exits on SIGUSR1, for the same reason
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
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

static bool listed(const char* variable, const char* name)
{
    const char* list = getenv(variable);
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

static bool fails(const char* name) { return listed("CCU_FAIL_CALLS", name); }

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

__attribute__((visibility("default"))) sd_event* sd_event_unref(sd_event* event)
{
    sd_event* (*next)(sd_event*) = real("sd_event_unref");
    if (event == NULL && listed("CCU_TELL_CALLS", "sd_event_unref"))
    {
        syslog(LOG_DEBUG, "sd_event_unref without a loop");
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

__attribute__((visibility("default"))) int sd_event_add_io(sd_event* event, sd_event_source** source, int descriptor,
                                                           uint32_t events, sd_event_io_handler_t handler, void* data)
{
    int (*next)(sd_event*, sd_event_source**, int, uint32_t, sd_event_io_handler_t, void*) = real("sd_event_add_io");
    return fails("sd_event_add_io") ? -EIO : next(event, source, descriptor, events, handler, data);
}

/* Of libudev and libinput, whose types do not matter here. */
__attribute__((visibility("default"))) void* udev_new(void)
{
    void* (*next)(void) = real("udev_new");
    return fails("udev_new") ? NULL : next();
}

__attribute__((visibility("default"))) void* libinput_udev_create_context(const void* interface, void* data, void* udev)
{
    void* (*next)(const void*, void*, void*) = real("libinput_udev_create_context");
    return fails("libinput_udev_create_context") ? NULL : next(interface, data, udev);
}

__attribute__((visibility("default"))) int libinput_udev_assign_seat(void* context, const char* seat)
{
    int (*next)(void*, const char*) = real("libinput_udev_assign_seat");
    return fails("libinput_udev_assign_seat") ? -1 : next(context, seat);
}

/* Read by the system's own calls: this is called by open. */
static bool on_full_device(const char* path)
{
    char lines[4096];
    const char* list = getenv("CCU_FULL_DISKS");
    const long file = list == NULL ? -1 : syscall(SYS_openat, AT_FDCWD, list, O_RDONLY | O_CLOEXEC);
    if (file < 0)
    {
        return false;
    }
    const long length = syscall(SYS_read, file, lines, sizeof lines - 1);
    syscall(SYS_close, file);
    lines[length < 0 ? 0 : length] = '\0';
    char* rest = NULL;
    for (char* line = strtok_r(lines, "\n", &rest); line != NULL; line = strtok_r(NULL, "\n", &rest))
    {
        if (fnmatch(line, path, 0) == 0)
        {
            return true;
        }
    }
    return false;
}

static bool on_full_disk(const char* path)
{
    const char* pattern = getenv("CCU_FULL_DISK");
    return (pattern != NULL && fnmatch(pattern, path, 0) == 0) || on_full_device(path);
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

static void end(int number)
{
    (void)number;
    exit(0); /* wherever it is: only for programs that wait when they get the signal */
}

__attribute__((constructor)) static void expect_signal(void)
{
    if (getenv("CCU_EXITS_ON_SIGUSR1") != NULL)
    {
        signal(SIGUSR1, end);
    }
    else if (getenv("CCU_LOOP_ENDS_ON_SIGUSR1") != NULL)
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        sigprocmask(SIG_BLOCK, &signals, NULL);
    }
}
