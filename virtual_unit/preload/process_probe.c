/*
 * Preloaded into the unmodified daemon to give it a machine on which no process can be started:
 *
 *   CCU_NO_PROCESSES=FILE   while that file exists, popen(3), posix_spawn(3) and fork(2) fail as with too many
 *                           processes; system(3) is not used
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <spawn.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

static void* real(const char* name) { return dlsym(RTLD_NEXT, name); }

/* True, with errno set, when there is no room for another process. */
static bool full(void)
{
    const int before = errno;
    const char* file = getenv("CCU_NO_PROCESSES");
    if (file == NULL || access(file, F_OK) < 0)
    {
        errno = before;
        return false;
    }
    errno = EAGAIN;
    return true;
}

EXPORT FILE* popen(const char* command, const char* mode)
{
    FILE* (*next)(const char*, const char*) = real("popen");
    return full() ? NULL : next(command, mode);
}

EXPORT pid_t fork(void)
{
    pid_t (*next)(void) = real("fork");
    return full() ? -1 : next();
}

EXPORT int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[])
{
    int (*next)(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*, char* const[],
                char* const[]) = real("posix_spawn");
    return full() ? EAGAIN : next(pid, path, actions, attributes, arguments, environment);
}

EXPORT int posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                        const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[])
{
    int (*next)(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*, char* const[],
                char* const[]) = real("posix_spawnp");
    return full() ? EAGAIN : next(pid, file, actions, attributes, arguments, environment);
}
