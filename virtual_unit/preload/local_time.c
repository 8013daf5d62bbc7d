/*
 * Preloaded into the unmodified daemon to give it a local time of its own:
 *
 *   CCU_LOCALTIME=LINK   that link to a zone file stands for /etc/localtime, and a link to nothing is UTC; a TZ in the
 *                        daemon's environment goes before it, as it goes before /etc/localtime
 *
 * The C library opens /etc/localtime by calls of its own that no other library can meet, so it is told by TZ where the
 * link leads, whenever it would look itself. It does look at /etc/localtime again in localtime, mktime and tzset, and
 * does not in localtime_r, which keeps the zone that it knows: a daemon that used it would keep its old time after a
 * change of the zone, and is to do so here as well. So localtime_r is deliberately not met.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <limits.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define EXPORT __attribute__((visibility("default")))

static bool zone_is_given = false;

__attribute__((constructor)) static void note_given_zone(void) { zone_is_given = getenv("TZ") != NULL; }

static void* real(const char* name) { return dlsym(RTLD_NEXT, name); }

static void follow_link(void)
{
    const char* link = getenv("CCU_LOCALTIME");
    if (link == NULL || zone_is_given)
    {
        return;
    }
    char zone[PATH_MAX + 1] = ":";
    if (realpath(link, zone + 1) == NULL)
    {
        strcpy(zone, "UTC0");
    }
    const char* known = getenv("TZ");
    if (known == NULL || strcmp(known, zone) != 0)
    {
        setenv("TZ", zone, 1);
    }
}

EXPORT struct tm* localtime(const time_t* moment)
{
    struct tm* (*next)(const time_t*) = real("localtime");
    follow_link();
    return next(moment);
}

EXPORT time_t mktime(struct tm* broken)
{
    time_t (*next)(struct tm*) = real("mktime");
    follow_link();
    return next(broken);
}

EXPORT void tzset(void)
{
    void (*next)(void) = real("tzset");
    follow_link();
    next();
}
