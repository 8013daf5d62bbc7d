/*
 * A program with libinput, as the daemon has it: prints "seat RESULT" once it watches its seat, then a line for each
 * event, "key CODE STATE MILLISECONDS" for keys and "event TYPE" for the others. The argument is the seat.
 */
#include <libinput.h>
#include <libudev.h>

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <unistd.h>

static int open_device(const char* path, int flags, void* data)
{
    (void)data;
    return open(path, flags);
}

static void close_device(int descriptor, void* data)
{
    (void)data;
    close(descriptor);
}

static void print_event(struct libinput_event* event)
{
    if (libinput_event_get_type(event) != LIBINPUT_EVENT_KEYBOARD_KEY)
    {
        printf("event %d\n", libinput_event_get_type(event));
        return;
    }
    struct libinput_event_keyboard* key = libinput_event_get_keyboard_event(event);
    printf("key %u %d %u\n", libinput_event_keyboard_get_key(key), libinput_event_keyboard_get_key_state(key),
           libinput_event_keyboard_get_time(key));
}

int main(int count, char** arguments)
{
    static const struct libinput_interface functions = {open_device, close_device};
    struct udev* udev = udev_new();
    struct libinput* input = libinput_udev_create_context(&functions, NULL, udev);
    printf("seat %d\n", libinput_udev_assign_seat(input, count > 1 ? arguments[1] : "seat0"));
    struct pollfd descriptor = {libinput_get_fd(input), POLLIN, 0};
    for (;;)
    {
        libinput_dispatch(input);
        for (struct libinput_event* event; (event = libinput_get_event(input)) != NULL; libinput_event_destroy(event))
        {
            print_event(event);
        }
        fflush(stdout);
        poll(&descriptor, 1, -1);
    }
}
