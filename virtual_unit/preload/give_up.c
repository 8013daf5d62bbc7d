/*
 * Preloaded into programs that ask siblings, so that a test can end the wait for an answer that never comes. The
 * time-out itself can be long then, and no answer that does come depends on how fast the machine is.
 *
 *   CCU_GIVE_UP=FOLDER   the process makes a pipe FOLDER/PID. Each byte in it ends one wait of the main thread in
 *                        ppoll(2), the present one or the next, as if its time had passed: for the process it has, its
 *                        monotonic clock has gone on by that much.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))
#define NANOSECONDS 1000000000LL

/* More than a program has open connections in one wait. */
enum
{
    MOST = 64
};

static int given_up = -1;
static _Atomic long long passed;

__attribute__((constructor)) static void make_pipe(void)
{
    char path[256];
    const char* folder = getenv("CCU_GIVE_UP");
    if (folder == NULL || snprintf(path, sizeof path, "%s/%d", folder, (int)getpid()) >= (int)sizeof path)
    {
        return;
    }
    mkfifo(path, 0600); /* there already when the program was started by another one in the same process */
    given_up = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

/* Takes one byte, unless something else has happened too: that comes first. */
static bool gives_up(int ready, const struct pollfd* last, const struct timespec* limit)
{
    char byte = 0;
    if (ready != 1 || last->revents == 0 || read(given_up, &byte, 1) != 1)
    {
        return false;
    }
    passed += limit->tv_sec * NANOSECONDS + limit->tv_nsec + 1;
    return true;
}

EXPORT int ppoll(struct pollfd* waited, nfds_t count, const struct timespec* limit, const sigset_t* mask)
{
    int (*next)(struct pollfd*, nfds_t, const struct timespec*, const sigset_t*) = dlsym(RTLD_NEXT, "ppoll");
    struct pollfd all[MOST];
    if (given_up < 0 || limit == NULL || (limit->tv_sec == 0 && limit->tv_nsec == 0) || count >= MOST ||
        gettid() != getpid())
    {
        return next(waited, count, limit, mask);
    }
    memcpy(all, waited, count * sizeof *waited);
    all[count] = (struct pollfd){.fd = given_up, .events = POLLIN};
    const int ready = next(all, count + 1, limit, mask);
    if (ready < 0)
    {
        return ready;
    }
    memcpy(waited, all, count * sizeof *waited);
    return gives_up(ready, &all[count], limit) ? 0 : ready - (all[count].revents != 0);
}

EXPORT int clock_gettime(clockid_t clock, struct timespec* now)
{
    static int (*next)(clockid_t, struct timespec*);
    if (next == NULL)
    {
        next = dlsym(RTLD_NEXT, "clock_gettime");
    }
    const int result = next(clock, now);
    if (result == 0 && clock == CLOCK_MONOTONIC && passed != 0)
    {
        const long long sum = now->tv_nsec + passed;
        now->tv_sec += sum / NANOSECONDS;
        now->tv_nsec = sum % NANOSECONDS;
    }
    return result;
}
