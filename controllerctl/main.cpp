#include "controllerctl/CommandLine.h"

#include <csignal>
#include <cstdlib>
#include <exception>

int main(int count, char** words)
{
    using namespace ControllerCtl;
    // A reader that goes away ends the program quietly, whatever the caller does with the signal.
    std::signal(SIGPIPE, SIG_DFL);
    // The controller serves one request after another, and starting a recording can take it a while.
    setenv("SYSTEMD_BUS_TIMEOUT", "120s", 0);
    try
    {
        Verbs verbs = CaptureVerbs(); // has the group of the playback, to which the settings add
        for (const Verbs& more :
             {StatusVerbs(), SettingVerbs(), TimeVerbs(), WatchVerbs(), DoctorVerbs(), RecoverVerbs()})
        {
            verbs.insert(verbs.end(), more.begin(), more.end());
        }
        return RunCommandLine(verbs, count, words);
    }
    catch (const std::exception& error)
    {
        TellMessage(error.what());
        return static_cast<int>(ExitStatus::Refused);
    }
}
