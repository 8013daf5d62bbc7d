#pragma once

#include <libinput.h>

#include <cstdint>
#include <deque>

/// libinput gives events as things of its own; here they are what they tell.
struct libinput_event
{
    libinput_event_type type;
    uint32_t key;
    uint32_t time;
    libinput_key_state state;
};

/// Stands in for libgpiod, which has no chip here, and for udev and libinput.
namespace HardwareStandIn
{

struct Keypad
{
    bool hasUdev = true;
    bool hasContext = true;
    bool hasSeat = true;
    int descriptor = -1; ///< readable while there are events to fetch
    const libinput_interface* access = nullptr;
    std::deque<libinput_event> events; ///< given out from the front
    int dispatched = 0;
    int destroyed = 0;
};

/// The one keypad; tests start with a fresh one.
Keypad& TheKeypad();

} // namespace HardwareStandIn
