// Plants one wrong into the unmodified daemon, that which CCU_PLANTED names: what the fuzzer must find.

#undef _FORTIFY_SOURCE // its inline functions would stand in the way of defining our own
#define _GNU_SOURCE

#include <systemd/sd-bus.h>

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#define EXPORT __attribute__((visibility("default")))

static bool IsPlanted(const char* name)
{
    const char* planted = getenv("CCU_PLANTED");
    return planted != NULL && strcmp(planted, name) == 0;
}

// The function that stands behind ours.
static void* Next(const char* name) { return dlsym(RTLD_NEXT, name); }

static void* WaitForEver(void* nothing)
{
    pause();
    return nothing;
}

static const size_t leakedBytes = (size_t)64 * 1024;

static void DoWrong(void)
{
    pthread_t thread;
    if (IsPlanted("descriptor"))
    {
        (void)!dup(STDERR_FILENO);
    }
    if (IsPlanted("thread"))
    {
        pthread_create(&thread, NULL, &WaitForEver, NULL);
    }
    if (IsPlanted("memory"))
    {
        memset(malloc(leakedBytes), 1, leakedBytes);
    }
    if (IsPlanted("report"))
    {
        fclose(fopen("sanitizer.planted", "w"));
    }
    if (IsPlanted("zombie") && fork() == 0)
    {
        _exit(0);
    }
    if (IsPlanted("crash"))
    {
        raise(SIGSEGV);
    }
    if (IsPlanted("hang"))
    {
        for (;;)
        {
            pause();
        }
    }
}

// The answer with a code and its message, which are not what the daemon wants.
static int AnswerOther(sd_bus_message* call, va_list arguments)
{
    const int code = va_arg(arguments, int);
    const char* words = va_arg(arguments, const char*);
    words = IsPlanted("message") && code < 0 ? "Ran successfully" : words;
    sd_bus_message* answer = NULL;
    sd_bus_message_new_method_return(call, &answer);
    sd_bus_message_append(answer, IsPlanted("types") ? "iss" : "is", code, words, words);
    const int result = sd_bus_send(NULL, answer, NULL);
    sd_bus_message_unref(answer);
    return result;
}

// Only what stops and plays does wrong, so that there is something to be shrunk.
static bool IsMeant(sd_bus_message* call)
{
    const char* member = sd_bus_message_get_member(call);
    return strstr(member, "Stop") != NULL || strstr(member, "Playback") != NULL;
}

EXPORT int sd_bus_reply_method_return(sd_bus_message* call, const char* types, ...)
{
    va_list arguments;
    va_start(arguments, types);
    int (*answer)(sd_bus_message*, const char*, va_list) = NULL;
    *(void**)&answer = Next("sd_bus_reply_method_returnv");
    int result = 0;
    if (!IsMeant(call))
    {
        result = answer(call, types, arguments);
    }
    else if (IsPlanted("no answer"))
    {
        result = 1;
    }
    else if (IsPlanted("refusal"))
    {
        result = sd_bus_reply_method_errorf(call, SD_BUS_ERROR_FAILED, "for no reason");
    }
    else if (strcmp(types, "is") == 0)
    {
        DoWrong();
        if (IsPlanted("two answers"))
        {
            sd_bus_reply_method_errorf(call, SD_BUS_ERROR_FAILED, "another one");
        }
        result = AnswerOther(call, arguments);
    }
    va_end(arguments);
    return result;
}

// Tells of the clock in another type than the interface has.
EXPORT int sd_bus_emit_signal(sd_bus* bus, const char* path, const char* interface, const char* member,
                              const char* types, ...)
{
    va_list arguments;
    va_start(arguments, types);
    int (*next)(sd_bus*, const char*, const char*, const char*, const char*, va_list) = NULL;
    *(void**)&next = Next("sd_bus_emit_signalv");
    int (*simple)(sd_bus*, const char*, const char*, const char*, const char*, ...) = NULL;
    *(void**)&simple = Next("sd_bus_emit_signal");
    const int result = IsPlanted("signal") ? simple(bus, path, interface, member, "s", "changed")
                                           : next(bus, path, interface, member, types, arguments);
    va_end(arguments);
    return result;
}

// What std::filesystem::remove calls: leaves the markers.
EXPORT int remove(const char* path)
{
    if (IsPlanted("marker") && strstr(path, "-rec") != NULL)
    {
        return 0;
    }
    int (*next)(const char*) = NULL;
    *(void**)&next = Next("remove");
    return next(path);
}

// Takes the line's text for a format, with nothing to fill it with.
static void Log(int priority, const char* format, va_list arguments)
{
    void (*next)(int, const char*, ...) = NULL;
    *(void**)&next = Next("syslog");
    char* text = NULL;
    if (vasprintf(&text, format, arguments) < 0)
    {
        return;
    }
    char* conversion = strstr(text, "%s");
    if (IsPlanted("format") && conversion != NULL)
    {
        next(priority, "%.*s(null)%s", (int)(conversion - text), text, conversion + 2);
    }
    else
    {
        next(priority, IsPlanted("conversion") && strstr(text, "Failed") != NULL ? "%s %%d" : "%s", text);
    }
    free(text);
}

EXPORT void vsyslog(int priority, const char* format, va_list arguments) { Log(priority, format, arguments); }

// What a program calls that was compiled with _FORTIFY_SOURCE; the name is glibc's.
EXPORT void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments);
void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments)
{
    (void)flag;
    Log(priority, format, arguments);
}

// Has a shell run the player as well, which sees more than a name in some names.
EXPORT int posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                        const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[])
{
    int (*next)(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*, char* const[],
                char* const[]) = NULL;
    *(void**)&next = Next("posix_spawnp");
    char* last = NULL;
    for (char* const* argument = arguments; *argument != NULL; ++argument)
    {
        last = *argument;
    }
    char* command = NULL;
    if (IsPlanted("shell") && strcmp(file, "aplay") == 0 && asprintf(&command, "true %s", last) > 0)
    {
        (void)!system(command);
        free(command);
    }
    return next(pid, file, actions, attributes, arguments, environment);
}
