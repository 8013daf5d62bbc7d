#include "device/KeyInput.h"

#include "dbus_helper/HandlerGuard.h"
#include "dbus_helper/Log.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace ControllerDaemon
{
namespace
{

/// libinput takes what open(2) gives: a failure is told as -1, deliberately not as the errno.
constexpr libinput_interface deviceAccess{
    .open_restricted = [](const char* path, int flags, void* /*userData*/) { return open(path, flags); },
    .close_restricted = [](int descriptor, void* /*userData*/) { close(descriptor); },
};

struct EventDestroyer
{
    void operator()(libinput_event* event) const { libinput_event_destroy(event); }
};
using EventHandle = std::unique_ptr<libinput_event, EventDestroyer>;

} // namespace

KeyInput::KeyInput(sd_event* loop) : udev_(udev_new())
{
    if (udev_ == nullptr)
    {
        Log::Error("Failed to create udev instance");
        return;
    }
    libinput_.reset(libinput_udev_create_context(&deviceAccess, nullptr, udev_.get()));
    if (libinput_ == nullptr)
    {
        Log::Error("Failed to create libinput context");
        return;
    }
    if (libinput_udev_assign_seat(libinput_.get(), "seat0") != 0)
    {
        Log::Error("Failed to assign libinput seat");
        return;
    }
    if (sd_event_add_io(loop, nullptr, libinput_get_fd(libinput_.get()), EPOLLIN, &Readable, this) < 0)
    {
        Log::Error("Failed to register io event");
    }
}

int KeyInput::Readable(sd_event_source* /*source*/, int /*descriptor*/, uint32_t /*events*/, void* userData)
{
    DbusHelper::Guard("the keypad", nullptr, [&] {
        if (userData != nullptr)
        {
            static_cast<KeyInput*>(userData)->Drain();
        }
        return 0;
    });
    return 0; // always: the loop gives up a source that fails
}

void KeyInput::Drain()
{
    libinput_dispatch(libinput_.get());
    while (const EventHandle event{libinput_get_event(libinput_.get())})
    {
        if (libinput_event_get_type(event.get()) != LIBINPUT_EVENT_KEYBOARD_KEY)
        {
            continue;
        }
        libinput_event_keyboard* key = libinput_event_get_keyboard_event(event.get());
        keyChanged_.emit(libinput_event_keyboard_get_key(key), libinput_event_keyboard_get_time(key),
                         libinput_event_keyboard_get_key_state(key));
    }
}

} // namespace ControllerDaemon
