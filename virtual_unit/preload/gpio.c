/*
 * Preloaded into the unmodified daemon to give it GPIO chips:
 *
 *   CCU_GPIO=DIR   every folder in there is a chip, every folder in a chip a line, named by its offset
 *
 * A line's files are what a person sees and sets: `value` (0 or 1), and while somebody has the line `direction` and
 * `consumer`. `owner` is locked by who has the line, so that a line is free again as soon as its owner ends, as the
 * kernel has it. Files request.error, write.error and read.error make these operations fail with the errno in them.
 * The chip's `events` tells all that was done, a line each.
 *
 * What a program asks of a chip's device itself is answered as far as it is about its lines: the folder of a chip
 * stands in the place of its device, see places.c.
 *
 * The functions are those of libgpiod 1.6 that the daemon calls, and fail as that library does. The kernel's own
 * simulated chips are a module that a container cannot load.
 */
#define _GNU_SOURCE
#include <gpiod.h>

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/gpio.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

struct gpiod_line
{
    struct gpiod_line* next;
    struct gpiod_chip* chip;
    unsigned int offset;
    int owner; /* the locked file, -1 while the line is not requested */
};

struct gpiod_chip
{
    char folder[PATH_MAX];
    struct gpiod_line* lines;
};

/* Files ------------------------------------------------------------------------------------------------------------ */

__attribute__((format(printf, 3, 4))) static int open_file(const struct gpiod_chip* chip, int flags, const char* format,
                                                           ...)
{
    char path[PATH_MAX];
    const int length = snprintf(path, sizeof path, "%s/", chip->folder);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(path + length, sizeof path - (size_t)length, format, arguments);
    va_end(arguments);
    return open(path, flags | O_CLOEXEC, 0600);
}

__attribute__((format(printf, 2, 3))) static void note(const struct gpiod_chip* chip, const char* format, ...)
{
    const int events = open_file(chip, O_WRONLY | O_APPEND, "events");
    if (events < 0)
    {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    vdprintf(events, format, arguments);
    va_end(arguments);
    close(events);
}

static int read_number(const struct gpiod_line* line, const char* name, int* number)
{
    char text[16] = "";
    const int file = open_file(line->chip, O_RDONLY, "%u/%s", line->offset, name);
    if (file < 0)
    {
        return -1;
    }
    const ssize_t count = read(file, text, sizeof text - 1);
    close(file);
    *number = atoi(text);
    return count > 0 ? 0 : -1;
}

/* Never shortened first, so that nobody reads a file that is about to get its text. */
static int write_text(const struct gpiod_line* line, const char* name, const char* text)
{
    const int file = open_file(line->chip, O_WRONLY | O_CREAT, "%u/%s", line->offset, name);
    if (file < 0)
    {
        return -1;
    }
    const ssize_t count = write(file, text, strlen(text));
    const int shortened = ftruncate(file, count);
    close(file);
    return count == (ssize_t)strlen(text) && shortened == 0 ? 0 : -1;
}

static void remove_file(const struct gpiod_line* line, const char* name)
{
    char path[PATH_MAX + 32];
    snprintf(path, sizeof path, "%s/%u/%s", line->chip->folder, line->offset, name);
    unlink(path);
}

/* True, with errno set, when the operation is to fail. */
static bool fails(const struct gpiod_line* line, const char* operation)
{
    char name[32];
    int number = 0;
    snprintf(name, sizeof name, "%s.error", operation);
    if (read_number(line, name, &number) < 0)
    {
        return false;
    }
    errno = number;
    return true;
}

static int fail(int number)
{
    errno = number;
    return -1;
}

/* Chips ------------------------------------------------------------------------------------------------------------ */

EXPORT struct gpiod_chip* gpiod_chip_open_by_name(const char* name)
{
    const char* folder = getenv("CCU_GPIO");
    struct gpiod_chip* chip = calloc(1, sizeof *chip);
    if (chip == NULL)
    {
        return NULL;
    }
    snprintf(chip->folder, sizeof chip->folder, "%s/%s", folder != NULL ? folder : "/nonexistent", name);
    struct stat status;
    if (stat(chip->folder, &status) < 0)
    {
        free(chip);
        errno = ENOENT;
        return NULL;
    }
    note(chip, "open\n");
    return chip;
}

EXPORT void gpiod_chip_close(struct gpiod_chip* chip)
{
    while (chip->lines != NULL)
    {
        struct gpiod_line* line = chip->lines;
        gpiod_line_release(line);
        chip->lines = line->next;
        free(line);
    }
    note(chip, "close\n");
    free(chip);
}

EXPORT struct gpiod_line* gpiod_chip_get_line(struct gpiod_chip* chip, unsigned int offset)
{
    for (struct gpiod_line* known = chip->lines; known != NULL; known = known->next)
    {
        if (known->offset == offset)
        {
            return known;
        }
    }
    const int folder = open_file(chip, O_RDONLY | O_DIRECTORY, "%u", offset);
    struct gpiod_line* line = folder < 0 ? NULL : calloc(1, sizeof *line);
    if (folder < 0)
    {
        errno = EINVAL; /* what the library says of an offset beyond the chip's last line */
        return NULL;
    }
    close(folder);
    if (line != NULL)
    {
        *line = (struct gpiod_line){.next = chip->lines, .chip = chip, .offset = offset, .owner = -1};
        chip->lines = line;
    }
    return line;
}

/* Lines ------------------------------------------------------------------------------------------------------------ */

EXPORT int gpiod_line_request_output(struct gpiod_line* line, const char* consumer, int default_val)
{
    note(line->chip, "request %u %s %d\n", line->offset, consumer, default_val);
    if (line->owner >= 0)
    {
        return fail(EBUSY);
    }
    if (fails(line, "request"))
    {
        return -1;
    }
    const int owner = open_file(line->chip, O_RDWR | O_CREAT, "%u/owner", line->offset);
    if (owner < 0)
    {
        return fail(ENODEV);
    }
    if (flock(owner, LOCK_EX | LOCK_NB) < 0)
    {
        close(owner);
        return fail(EBUSY);
    }
    line->owner = owner;
    write_text(line, "direction", "output\n");
    write_text(line, "consumer", consumer);
    return write_text(line, "value", default_val != 0 ? "1\n" : "0\n") < 0 ? fail(ENODEV) : 0;
}

EXPORT void gpiod_line_release(struct gpiod_line* line)
{
    if (line->owner < 0)
    {
        return;
    }
    remove_file(line, "consumer");
    remove_file(line, "direction");
    close(line->owner);
    line->owner = -1;
    note(line->chip, "release %u\n", line->offset);
}

EXPORT int gpiod_line_set_value(struct gpiod_line* line, int value)
{
    note(line->chip, "set %u %d\n", line->offset, value);
    if (line->owner < 0)
    {
        return fail(EPERM);
    }
    if (fails(line, "write"))
    {
        return -1;
    }
    return write_text(line, "value", value != 0 ? "1\n" : "0\n") < 0 ? fail(ENODEV) : 0;
}

EXPORT int gpiod_line_get_value(struct gpiod_line* line)
{
    int value = 0;
    note(line->chip, "get %u\n", line->offset);
    if (line->owner < 0)
    {
        return fail(EPERM);
    }
    if (fails(line, "read"))
    {
        return -1;
    }
    return read_number(line, "value", &value) < 0 ? fail(ENODEV) : value != 0;
}

/* Devices ---------------------------------------------------------------------------------------------------------- */

/* The chip whose folder is open; false when it is something else. */
static bool chip_of(int descriptor, struct gpiod_chip* chip)
{
    const char* folder = getenv("CCU_GPIO");
    char link[64];
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = readlink(link, chip->folder, sizeof chip->folder - 1);
    char whole[PATH_MAX];
    if (folder == NULL || length < 0 || realpath(folder, whole) == NULL)
    {
        return false;
    }
    chip->folder[length] = '\0';
    return strncmp(chip->folder, whole, strlen(whole)) == 0;
}

static int tell_line(const struct gpiod_chip* chip, struct gpioline_info* information)
{
    const struct gpiod_line line = {.chip = (struct gpiod_chip*)chip, .offset = information->line_offset};
    const int folder = open_file(chip, O_RDONLY | O_DIRECTORY, "%u", line.offset);
    if (folder < 0)
    {
        return fail(EINVAL);
    }
    close(folder);
    memset(information, 0, sizeof *information);
    information->line_offset = line.offset;
    const int owner = open_file(chip, O_RDWR, "%u/owner", line.offset);
    if (owner >= 0 && flock(owner, LOCK_EX | LOCK_NB) < 0)
    {
        const int consumer = open_file(chip, O_RDONLY, "%u/consumer", line.offset);
        information->flags = GPIOLINE_FLAG_KERNEL;
        const ssize_t count =
            consumer < 0 ? -1 : read(consumer, information->consumer, sizeof information->consumer - 1);
        if (count > 0)
        {
            information->consumer[strcspn(information->consumer, "\n")] = '\0';
        }
        if (consumer >= 0)
        {
            close(consumer);
        }
    }
    if (owner >= 0)
    {
        close(owner);
    }
    return 0;
}

EXPORT int ioctl(int descriptor, unsigned long request, ...)
{
    int (*next)(int, unsigned long, void*) = dlsym(RTLD_NEXT, "ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    struct gpiod_chip chip = {.lines = NULL};
    return request == GPIO_GET_LINEINFO_IOCTL && chip_of(descriptor, &chip) ? tell_line(&chip, argument)
                                                                            : next(descriptor, request, argument);
}
