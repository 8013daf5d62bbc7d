#include "controller_client/ControllerAsync.h"
#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controller_client/ControllerSignals.h"
#include "tests/driver/OperationTable.h"

#include <poll.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace
{

using Controllerd::ControllerDaemonDbusHandler;
using Controllerd::LocalDateTime;
using std::string;

// A time is given and told field by field, by name here, so that no field can stand in another's place.
int SetTime(int year, int month, int day, int hour, int minute, int second, bool dst, bool local)
{
    const LocalDateTime time{
        .year = year, .month = month, .day = day, .hour = hour, .minute = minute, .second = second, .dst = dst};
    return ControllerDaemonDbusHandler::SetTime(time, local);
}

int GetTime(int& year, int& month, int& day, int& hour, int& minute, int& second, bool& dst, bool local)
{
    LocalDateTime time{year, month, day, hour, minute, second, dst};
    const int result = ControllerDaemonDbusHandler::GetTime(time, local);
    year = time.year;
    month = time.month;
    day = time.day;
    hour = time.hour;
    minute = time.minute;
    second = time.second;
    dst = time.dst;
    return result;
}

// References that are only read are inputs to the driver; -1 as the result tells that one was changed all the same.
int StartPlayback(const string& filename, double rate, int& code, string& message)
{
    string givenName = filename;
    double givenRate = rate;
    const int result = ControllerDaemonDbusHandler::StartPlayback(givenName, givenRate, code, message);
    return givenName == filename && givenRate == rate ? result : -1;
}

int SeekPlayback(int position, int& code, string& message)
{
    int given = position;
    const int result = ControllerDaemonDbusHandler::SeekPlayback(given, code, message);
    return given == position ? result : -1;
}

int SeekPlaybackOnce()
{
    int code = 0;
    string message;
    return SeekPlayback(1, code, message);
}

int TakeScreenshot(const string& folder, string& path, int& code, string& message)
{
    string given = folder;
    const int result = ControllerDaemonDbusHandler::TakeScreenshot(given, path, code, message);
    return given == folder ? result : -1;
}

/// Takes screenshots from that many threads at once, that many in each, every one in a folder of its own. Returns the
/// number of those that were not answered with a picture in that very folder.
int TakeScreenshotsTogether(int threads, int calls)
{
    std::atomic<int> failures = 0;
    const auto work = [&](int thread) {
        for (int call = 0; call < calls; ++call)
        {
            string folder = "/";
            folder.append(std::to_string(thread)).append("/").append(std::to_string(call));
            string path;
            string message;
            int code = -1;
            const int result = TakeScreenshot(folder, path, code, message);
            const bool good = result >= 0 && code == 0 && path == folder + "/screenshot.png";
            failures += good ? 0 : 1;
        }
    };
    std::vector<std::thread> workers;
    for (int thread = 0; thread < threads; ++thread)
    {
        workers.emplace_back(work, thread);
    }
    for (std::thread& worker : workers)
    {
        worker.join();
    }
    return failures;
}

/// Has screenshots taken by a worker, that many times, and looks at each in a loop of its own. Returns the number of
/// those that were not answered with a picture in their own folder, in order.
int TakeScreenshotsMeanwhile(int calls)
{
    Controllerd::ControllerAsync worker;
    int over = 0;
    int failures = 0;
    for (int call = 0; call < calls; ++call)
    {
        const string folder = string("/").append(std::to_string(call));
        const int queued = worker.Start(
            [folder] {
                string path;
                string message;
                int code = -1;
                const int result = TakeScreenshot(folder, path, code, message);
                return result >= 0 && code == 0 ? path : "";
            },
            [&, call, folder](const string& path) {
                failures += path == folder + "/screenshot.png" && over == call ? 0 : 1;
                ++over;
            });
        failures += queued < 0 ? 1 : 0;
    }
    pollfd entry{.fd = worker.Descriptor(), .events = POLLIN, .revents = 0};
    while (over < calls && failures == 0 && poll(&entry, 1, -1) > 0)
    {
        worker.Dispatch();
    }
    // What is never seen again: neither the call in progress nor those behind it may touch what has gone.
    int dropped = worker.Start([] { return SeekPlaybackOnce(); }, [&failures](int) { ++failures; });
    dropped |= worker.Start([] { return SeekPlaybackOnce(); }, [&failures](int) { ++failures; });
    return failures + dropped;
}

/// Listens in one thread, that many times, until another one ends it. Returns the number of times that it ended
/// otherwise.
int ListenUntilCancelled(int times)
{
    int failures = 0;
    for (int time = 0; time < times; ++time)
    {
        Controllerd::ControllerSignals signals;
        int result = signals.Open();
        std::thread listener([&] {
            Controllerd::ControllerEvent event;
            while (result >= 0)
            {
                result = signals.Next(event, -1);
            }
        });
        signals.Cancel();
        listener.join();
        failures += result == -ECANCELED && signals.Dispatch() == -ECANCELED ? 0 : 1;
    }
    return failures;
}

} // namespace

#define ADD(operation) table.Add("controller." #operation, &ControllerDaemonDbusHandler::operation)

void AddOperations(Driver::OperationTable& table)
{
    table.Add("controller.SetTime(LocalDateTime)", &SetTime);
    table.Add<int(time_t, bool)>("controller.SetTime(time_t)", &ControllerDaemonDbusHandler::SetTime);
    ADD(SetTimeGPS);
    table.Add("controller.GetTime(LocalDateTime)", &GetTime);
    table.Add<int(time_t&, bool&, bool)>("controller.GetTime(time_t)", &ControllerDaemonDbusHandler::GetTime);
    ADD(SetDST);
    table.Add<int(string)>("controller.SetTimezone(string)", &ControllerDaemonDbusHandler::SetTimezone);
    table.Add<int(int, bool)>("controller.SetTimezone(int)", &ControllerDaemonDbusHandler::SetTimezone);
    ADD(SetTimezoneGPS);
    ADD(GetTimezoneFromUTC);
    ADD(SetMicrophoneEnabled);
    ADD(SetSpeakerEnabled);
    ADD(SetSpeakerVolume);
    table.Add<int(string)>("controller.PlayAudio", &ControllerDaemonDbusHandler::PlayAudio);
    ADD(SetSondeEnabled);
    ADD(SetKeypadBeepEnabled);
    ADD(SetPlaybackRate);
    table.Add("controller.StartPlayback", &StartPlayback);
    ADD(StopPlayback);
    table.Add("controller.SeekPlayback", &SeekPlayback);
    ADD(PausePlayback);
    ADD(ResumePlayback);
    ADD(StartRecording);
    ADD(StopRecording);
    ADD(PauseRecording);
    ADD(ResumeRecording);
    ADD(StartPhotoTalk);
    ADD(StopPhotoTalk);
    ADD(PausePhotoTalk);
    ADD(ResumePhotoTalk);
    ADD(StartAutoLog);
    ADD(StopAutoLog);
    ADD(PauseAutoLog);
    ADD(ResumeAutoLog);
    ADD(TakeSnapshot);
    table.Add("controller.TakeScreenshot", &TakeScreenshot);
    // Those that read a property.
#include "ControllerGetters.inc"
    table.Add("together.TakeScreenshot", &TakeScreenshotsTogether);
    table.Add("meanwhile.TakeScreenshot", &TakeScreenshotsMeanwhile);
    table.Add("meanwhile.Cancel", &ListenUntilCancelled);
}
