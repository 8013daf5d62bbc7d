/*
 * The calls by which files are opened and looked for by their path, for preloaded libraries that put other files in the
 * place of some. Who includes it says which: the path that stands for the given one, which may be the given one;
 * `space` holds it otherwise.
 */
#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>

#define EXPORT __attribute__((visibility("default")))

static void* real(const char* name) { return dlsym(RTLD_NEXT, name); }

static const char* place_of(const char* path, char space[PATH_MAX]);

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
/* What a program calls that was compiled with _FORTIFY_SOURCE. */
EXPORT int __open_2(const char* path, int flags) { return open(path, flags); }

/* Every C library of the last years has one file offset, so the names with 64 are the same functions. */
EXPORT FILE* fopen(const char* path, const char* mode)
{
    char space[PATH_MAX];
    FILE* (*next)(const char*, const char*) = real("fopen");
    return next(place_of(path, space), mode);
}
EXPORT FILE* fopen64(const char* path, const char* mode) { return fopen(path, mode); }

EXPORT int access(const char* path, int mode)
{
    char space[PATH_MAX];
    int (*next)(const char*, int) = real("access");
    return next(place_of(path, space), mode);
}
