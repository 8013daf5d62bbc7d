// Takes a picture from a program on sd-event, and tells what the unit tells meanwhile: snapshot_sd_event
#include "HeartBeat.h"

#include <systemd/sd-event.h>

#include <controller_client/ControllerAsync.h>
#include <controller_client/ControllerCodes.h>
#include <controller_client/ControllerDaemonDbusHandler.h>
#include <controller_client/ControllerFailure.h>
#include <controller_client/ControllerSignals.h>

#include <iostream>
#include <string>

using Controller = Controllerd::ControllerDaemonDbusHandler;

struct Picture
{
    int result = 0;
    int code = 0;
    std::string path;
    std::string message;
};

static int OnSignals(sd_event_source* source, int /*descriptor*/, uint32_t /*events*/, void* data)
{
    auto& signals = *static_cast<Controllerd::ControllerSignals*>(data);
    Controllerd::ControllerEvent event;
    int kept = signals.Dispatch();
    for (; kept > 0 && signals.Next(event, 0) > 0; --kept)
    {
        std::cout << event.name << std::endl;
    }
    return kept < 0 ? sd_event_exit(sd_event_source_get_event(source), 3) : 0;
}

static int OnCalls(sd_event_source* /*source*/, int /*descriptor*/, uint32_t /*events*/, void* data)
{
    static_cast<Controllerd::ControllerAsync*>(data)->Dispatch();
    return 0;
}

static int OnBeat(sd_event_source* source, uint64_t /*due*/, void* data)
{
    static_cast<HeartBeat*>(data)->Beat();
    return sd_event_source_set_time_relative(source, HeartBeat::periodMilliseconds * 1000);
}

/// The exit status.
static int Tell(const Picture& picture)
{
    if (picture.result < 0)
    {
        std::cout << "snapshot: " << Controllerd::ControllerFailure::Last().message << std::endl;
        return 1;
    }
    const bool taken = picture.code == Controllerd::CaptureErrorCode::Success;
    std::cout << "snapshot: " << (taken ? picture.path : picture.message) << std::endl;
    return taken ? 0 : 1;
}

int main()
{
    const int milliseconds = 5000; // that a person waits for an answer
    sd_event* loop = nullptr;
    HeartBeat heart;
    Controllerd::ControllerSignals signals;
    Controllerd::ControllerAsync calls;
    sd_event_source* beat = nullptr;
    if (signals.Open() < 0 || sd_event_new(&loop) < 0 ||
        sd_event_add_io(loop, nullptr, signals.Descriptor(), EPOLLIN, OnSignals, &signals) < 0 ||
        sd_event_add_io(loop, nullptr, calls.Descriptor(), EPOLLIN, OnCalls, &calls) < 0 ||
        sd_event_add_time_relative(loop, &beat, CLOCK_MONOTONIC, 0, 1, OnBeat, &heart) < 0 ||
        sd_event_source_set_enabled(beat, SD_EVENT_ON) < 0)
    {
        return 3;
    }
    const int queued = calls.Start(
        [] {
            Picture picture;
            picture.result = Controller::TakeSnapshot(1920, 1080, 90, picture.path, picture.code, picture.message);
            return picture;
        },
        [loop](const Picture& picture) { sd_event_exit(loop, Tell(picture)); }, milliseconds);
    const int status = queued < 0 ? 3 : sd_event_loop(loop);
    sd_event_source_unref(beat);
    sd_event_unref(loop);
    return status;
}
