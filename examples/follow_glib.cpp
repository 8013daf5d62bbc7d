// Tells what the unit tells, and in which time zone it is, from a GLib program, until SIGTERM: follow_glib
#include "HeartBeat.h"

#include <controller_client/ControllerAsync.h>
#include <controller_client/ControllerDaemonDbusHandler.h>
#include <controller_client/ControllerFailure.h>
#include <controller_client/ControllerSignals.h>
#include <glib-unix.h>

#include <csignal>
#include <iostream>
#include <string>

using Controller = Controllerd::ControllerDaemonDbusHandler;
using Controllerd::ControllerEvent;

struct Follower
{
    GMainLoop* loop;
    Controllerd::ControllerSignals signals;
    Controllerd::ControllerAsync calls;
    HeartBeat heart;
};

struct Zone
{
    int result = 0;
    std::string name;
};

/// Asks for the zone; the loop goes on, and has the answer later.
static void AskZone(Follower& follower)
{
    const int queued = follower.calls.Start(
        [] {
            Zone zone;
            zone.result = Controller::GetTimezone(zone.name);
            return zone;
        },
        [](const Zone& zone) {
            std::cout << "zone: " << (zone.result < 0 ? Controllerd::ControllerFailure::Last().message : zone.name)
                      << std::endl;
        },
        1000);
    if (queued < 0)
    {
        g_main_loop_quit(follower.loop);
    }
}

static void Tell(Follower& follower, const ControllerEvent& event)
{
    using Kind = ControllerEvent::Kind;
    if (event.kind == Kind::Signal || event.kind == Kind::PropertyChanged)
    {
        std::cout << event.name << std::endl;
    }
    if (event.kind == Kind::Started || event.kind == Kind::Lost || event.name == "TimezoneChanged")
    {
        AskZone(follower); // what was known may hold no longer
    }
}

static gboolean OnSignals(int /*descriptor*/, GIOCondition /*condition*/, gpointer data)
{
    Follower& follower = *static_cast<Follower*>(data);
    ControllerEvent event;
    int kept = follower.signals.Dispatch();
    for (; kept > 0 && follower.signals.Next(event, 0) > 0; --kept)
    {
        Tell(follower, event);
    }
    if (kept < 0)
    {
        std::cout << "the bus is gone" << std::endl;
        g_main_loop_quit(follower.loop);
    }
    return kept < 0 ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

static gboolean OnCalls(int /*descriptor*/, GIOCondition /*condition*/, gpointer data)
{
    static_cast<Follower*>(data)->calls.Dispatch();
    return G_SOURCE_CONTINUE;
}

static gboolean OnBeat(gpointer data)
{
    static_cast<Follower*>(data)->heart.Beat();
    return G_SOURCE_CONTINUE;
}

static gboolean OnEnd(gpointer data)
{
    g_main_loop_quit(static_cast<Follower*>(data)->loop);
    return G_SOURCE_CONTINUE;
}

int main()
{
    Follower follower{g_main_loop_new(nullptr, FALSE), {}, {}, {}};
    if (follower.signals.Open() < 0)
    {
        return 3;
    }
    g_unix_fd_add(follower.signals.Descriptor(), G_IO_IN, OnSignals, &follower);
    g_unix_fd_add(follower.calls.Descriptor(), G_IO_IN, OnCalls, &follower);
    g_unix_signal_add(SIGTERM, OnEnd, &follower);
    g_timeout_add(HeartBeat::periodMilliseconds, OnBeat, &follower);
    std::cout << "following" << std::endl;
    AskZone(follower);
    g_main_loop_run(follower.loop);
    g_main_loop_unref(follower.loop);
    return 0;
}
