// Interposes syslog(3) for a process started with LD_PRELOAD: messages are appended to the file that CCU_SYSLOG_FILE
// names instead of going to the system's log.  One record a message, written with one write(2), so that the records of
// several processes never mix: "LEVEL\tTEXT\n" with backslash, newline and tab of the text written as \\, \n and \t.
// With CCU_SYSLOG_CALLERS in the environment further fields tell who has logged it, the innermost first:
// "\tFILE+OFFSET" of each return address, as the file's debug information counts.

#undef _FORTIFY_SOURCE // its inline syslog would stand in the way of defining our own
#define _GNU_SOURCE

#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

typedef void (*vsyslogFunction)(int, const char*, va_list);

static pthread_once_t once = PTHREAD_ONCE_INIT;
static int captureFile = -1;
static bool withCallers = false;
static vsyslogFunction systemLog = NULL;

static void Initialise(void)
{
    const char* path = getenv("CCU_SYSLOG_FILE");
    if (path != NULL && path[0] != '\0')
    {
        captureFile = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        withCallers = getenv("CCU_SYSLOG_CALLERS") != NULL;
        return;
    }
    void* symbol = dlsym(RTLD_NEXT, "vsyslog");
    memcpy(&systemLog, &symbol, sizeof symbol);
}

static char EscapeLetter(char character)
{
    switch (character)
    {
    case '\\':
        return '\\';
    case '\n':
        return 'n';
    case '\t':
        return 't';
    default:
        return '\0';
    }
}

static size_t AppendEscaped(char* out, const char* text)
{
    char* end = out;
    for (; *text != '\0'; ++text)
    {
        const char letter = EscapeLetter(*text);
        if (letter != '\0')
        {
            *end++ = '\\';
        }
        *end++ = letter != '\0' ? letter : *text;
    }
    return (size_t)(end - out);
}

// The callers outside this library; null when they are not asked for.
static char* Callers(void)
{
    char* text = NULL;
    size_t length = 0;
    FILE* out = withCallers ? open_memstream(&text, &length) : NULL;
    if (out == NULL)
    {
        return NULL;
    }
    void* addresses[32];
    const int count = backtrace(addresses, sizeof addresses / sizeof *addresses);
    Dl_info own;
    Dl_info place;
    struct link_map* map = NULL;
    dladdr(&captureFile, &own);
    for (int index = 0; index < count; ++index)
    {
        if (dladdr1(addresses[index], &place, (void**)&map, RTLD_DL_LINKMAP) != 0 && place.dli_fbase != own.dli_fbase)
        {
            const uintptr_t offset = (uintptr_t)addresses[index] - map->l_addr; // which is 0 where the place is fixed
            fprintf(out, "\t%s+%#zx", place.dli_fname, (size_t)offset);
        }
    }
    fclose(out);
    return text;
}

static void WriteRecord(int level, const char* text, const char* callers)
{
    char* record = malloc(2 * strlen(text) + (callers != NULL ? strlen(callers) : 0) + 16);
    if (record == NULL)
    {
        return;
    }
    size_t length = (size_t)sprintf(record, "%d\t", level);
    length += AppendEscaped(record + length, text);
    length += callers != NULL ? (size_t)sprintf(record + length, "%s", callers) : 0;
    record[length++] = '\n';
    while (write(captureFile, record, length) < 0 && errno == EINTR)
    {}
    free(record);
}

static void Capture(int priority, const char* format, va_list arguments)
{
    const int callersErrno = errno; // what %m stands for
    pthread_once(&once, Initialise);
    if (systemLog != NULL)
    {
        errno = callersErrno;
        systemLog(priority, format, arguments);
        return;
    }
    char* text = NULL;
    errno = callersErrno;
    const int masked = (setlogmask(0) & LOG_MASK(LOG_PRI(priority))) == 0; // setlogmask(3) holds here as well
    if (captureFile >= 0 && !masked && vasprintf(&text, format, arguments) >= 0)
    {
        char* callers = Callers();
        WriteRecord(LOG_PRI(priority), text, callers);
        free(callers);
        free(text);
    }
    errno = callersErrno;
}

EXPORT void vsyslog(int priority, const char* format, va_list arguments) { Capture(priority, format, arguments); }

EXPORT void syslog(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Capture(priority, format, arguments);
    va_end(arguments);
}

// What a program calls that was compiled with _FORTIFY_SOURCE; the names are glibc's.
EXPORT void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments);
EXPORT void __syslog_chk(int priority, int flag, const char* format, ...);

void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments)
{
    (void)flag;
    Capture(priority, format, arguments);
}

void __syslog_chk(int priority, int flag, const char* format, ...)
{
    (void)flag;
    va_list arguments;
    va_start(arguments, format);
    Capture(priority, format, arguments);
    va_end(arguments);
}
