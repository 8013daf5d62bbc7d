#pragma once

#include <libinput.h>
#include <libudev.h>
#include <sigc++/signal.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <memory>

namespace ControllerDaemon
{

struct UdevReleaser
{
    void operator()(udev* context) const { udev_unref(context); }
};
struct LibinputReleaser
{
    void operator()(libinput* context) const { libinput_unref(context); }
};

/// The unit's keypad, read from the kernel's input devices of udev seat "seat0", those that are plugged in later
/// included. Loop thread only. Outlives the last turn of the loop: its event source stays on the loop.
class KeyInput
{
  public:
    /// Linux input key code; libinput's time of the event in milliseconds; 1 pressed, 0 released.
    using KeySignal = sigc::signal<void, uint32_t, uint32_t, int>;

    /// Starts listening on the loop. A step that fails is logged, and no key is ever told.
    explicit KeyInput(sd_event* loop);
    ~KeyInput() = default;
    KeyInput(const KeyInput&) = delete;
    KeyInput& operator=(const KeyInput&) = delete;
    KeyInput(KeyInput&&) = delete;
    KeyInput& operator=(KeyInput&&) = delete;

    /// Emitted once for each key event, in the order of the events.
    KeySignal& KeyChanged() { return keyChanged_; }

  private:
    static int Readable(sd_event_source* source, int descriptor, uint32_t events, void* userData);
    void Drain();

    KeySignal keyChanged_;
    std::unique_ptr<udev, UdevReleaser> udev_;
    std::unique_ptr<libinput, LibinputReleaser> libinput_;
};

} // namespace ControllerDaemon
