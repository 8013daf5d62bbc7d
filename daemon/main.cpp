#include "daemon/Controller.h"
#include "daemon/ControllerDbusListener.h"
#include "dbus_helper/Log.h"

#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <exception>

namespace
{

using ControllerDaemon::Controller;
using ControllerDaemon::ControllerDbusListener;

int OpenLoop(sd_event*& event)
{
    const int result = sd_event_default(&event);
    if (result < 0)
    {
        Log::Info("Failed to create event loop");
    }
    return result;
}

int Connect(ControllerDbusListener& listener)
{
    const int result = listener.Connect();
    if (result < 0)
    {
        Log::Info("Failed to start listener");
    }
    return result;
}

int Start(Controller& controller)
{
    const int result = controller.Start();
    if (result < 0)
    {
        Log::Info("Failed to start Controller");
    }
    return result;
}

int Loop(sd_event* event)
{
    const int result = sd_event_loop(event);
    if (result < 0)
    {
        Log::Info("Failed to start main event loop");
    }
    return result;
}

/// The life of the process: 0 when every step succeeded and the loop ended normally, 1 otherwise.
int Run()
{
    Log::Info("syslog controller daemon started");
    sd_event* event = nullptr;
    int result = OpenLoop(event);
    ControllerDbusListener listener(event);
    result = result < 0 ? result : Connect(listener);
    const bool connected = result >= 0;
    Log::Info("The controller is enabled");
    Controller controller(listener, event);
    result = result < 0 ? result : Start(controller);
    // On every path: systemd must not wait for a daemon that is about to say why it cannot run.
    sd_notify(0, "READY=1");
    result = result < 0 ? result : Loop(event);
    Log::Info("Exiting..\n");
    if (connected)
    {
        listener.Disconnect();
    }
    sd_event_unref(event); // before the controller goes, and also when there never was a loop
    return result < 0 ? 1 : 0;
}

} // namespace

int main()
{
    try
    {
        return Run();
    }
    catch (const std::exception& exception)
    {
        Log::Error("Controller daemon ends: %s", exception.what());
        return 1;
    }
}
