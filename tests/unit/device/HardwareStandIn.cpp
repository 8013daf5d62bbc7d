#include "tests/unit/device/HardwareStandIn.h"

#include <gpiod.h>
#include <libudev.h>

using HardwareStandIn::TheKeypad;

namespace
{

/// Something to point at: nobody looks into it.
int thing;

template <typename T>
T* Pointer(bool exists)
{
    return exists ? reinterpret_cast<T*>(&thing) : nullptr;
}

} // namespace

HardwareStandIn::Keypad& HardwareStandIn::TheKeypad()
{
    static Keypad keypad;
    return keypad;
}

extern "C" {
gpiod_chip* gpiod_chip_open_by_name(const char* /*name*/) { return nullptr; }

udev* udev_new() { return Pointer<udev>(TheKeypad().hasUdev); }
udev* udev_unref(udev* /*context*/) { return nullptr; }

libinput* libinput_udev_create_context(const libinput_interface* access, void* /*userData*/, udev* /*context*/)
{
    TheKeypad().access = access;
    return Pointer<libinput>(TheKeypad().hasContext);
}
int libinput_udev_assign_seat(libinput* /*context*/, const char* /*seat*/) { return TheKeypad().hasSeat ? 0 : -1; }
int libinput_get_fd(libinput* /*context*/) { return TheKeypad().descriptor; }
libinput* libinput_unref(libinput* /*context*/) { return nullptr; }
int libinput_dispatch(libinput* /*context*/) { return TheKeypad().dispatched++ * 0; }
libinput_event* libinput_get_event(libinput* /*context*/)
{
    auto& events = TheKeypad().events;
    return events.empty() ? nullptr : &events.front();
}
void libinput_event_destroy(libinput_event* /*event*/)
{
    TheKeypad().events.pop_front();
    ++TheKeypad().destroyed;
}
libinput_event_type libinput_event_get_type(libinput_event* event) { return event->type; }
libinput_event_keyboard* libinput_event_get_keyboard_event(libinput_event* event)
{
    return reinterpret_cast<libinput_event_keyboard*>(event);
}
uint32_t libinput_event_keyboard_get_key(libinput_event_keyboard* key)
{
    return reinterpret_cast<libinput_event*>(key)->key;
}
uint32_t libinput_event_keyboard_get_time(libinput_event_keyboard* key)
{
    return reinterpret_cast<libinput_event*>(key)->time;
}
libinput_key_state libinput_event_keyboard_get_key_state(libinput_event_keyboard* key)
{
    return reinterpret_cast<libinput_event*>(key)->state;
}
}
