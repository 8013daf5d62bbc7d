#include "controller_client/ControllerDaemonDbusHandler.h"
#include "controllerctl/RecordingWatch.h"
#include "controllerctl/Verb.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

namespace ControllerCtl
{
namespace
{

using Client = Controllerd::ControllerDaemonDbusHandler;
using Need = Parameter::Need;
using std::string;

/// An operation that is answered with a code and a message, and takes nothing.
using Order = int (*)(int& code, string& message);

struct RecordingKind
{
    const char* name;
    int (*start)(unsigned width, unsigned height, unsigned quality, int& code, string& message);
    Order stop;
    Order pause;
    Order resume;
};

constexpr std::array kinds{
    RecordingKind{"video", &Client::StartRecording, &Client::StopRecording, &Client::PauseRecording,
                  &Client::ResumeRecording},
    RecordingKind{"photo-talk", &Client::StartPhotoTalk, &Client::StopPhotoTalk, &Client::PausePhotoTalk,
                  &Client::ResumePhotoTalk},
    RecordingKind{"auto-log", &Client::StartAutoLog, &Client::StopAutoLog, &Client::PauseAutoLog,
                  &Client::ResumeAutoLog},
};

const RecordingKind& KindOf(const Arguments& arguments)
{
    const auto name = arguments.at("kind").get<string>();
    return *std::find_if(kinds.begin(), kinds.end(), [&](const RecordingKind& kind) { return kind.name == name; });
}

/// Runs an operation that answers with a code and a message behind its other arguments.
template <typename Operation, typename... Inputs>
Answer Ask(Operation operation, Inputs&&... inputs)
{
    int code = 0;
    string message;
    const int result = operation(std::forward<Inputs>(inputs)..., code, message);
    return Coded(result, code, message);
}

/// The same for one that answers with a path before.
template <typename Operation, typename... Inputs>
Answer AskForFile(Operation operation, Inputs&&... inputs)
{
    int code = 0;
    string path;
    string message;
    const int result = operation(std::forward<Inputs>(inputs)..., path, code, message);
    return Coded(result, code, message, {.text = path, .fields = {{"path", path}}});
}

unsigned Natural(const Arguments& arguments, const char* name) { return arguments.at(name).get<unsigned>(); }

/// The controller takes paths from its own folder; users give them from theirs.
string Absolute(const string& path) { return path.empty() ? path : std::filesystem::absolute(path).string(); }

Parameter KindParameter()
{
    Parameter parameter{.name = "--kind", .about = "What is recorded", .initial = kinds.front().name};
    for (const RecordingKind& kind : kinds)
    {
        parameter.choices.emplace_back(kind.name);
    }
    return parameter;
}

std::vector<Parameter> SizeParameters()
{
    return {{.name = "--width", .about = "Width of the picture in pixels", .type = Type::Natural, .initial = 1920},
            {.name = "--height", .about = "Height of the picture in pixels", .type = Type::Natural, .initial = 1080},
            {.name = "--quality", .about = "JPEG quality in percent", .type = Type::Natural, .initial = 90}};
}

Answer Snapshot(const Arguments& arguments)
{
    return AskForFile(&Client::TakeSnapshot, Natural(arguments, "width"), Natural(arguments, "height"),
                      Natural(arguments, "quality"));
}

Answer Screenshot(const Arguments& arguments)
{
    const auto take = [](const string& folder, string& path, int& code, string& message) {
        return Client::TakeScreenshot(folder, path, code, message);
    };
    return AskForFile(take, Absolute(arguments.value("folder", "")));
}

/// Adds the recording's file, where it is known.
Answer WithFile(Answer answer, const string& file)
{
    if (answer.status == ExitStatus::Done && !file.empty())
    {
        answer.text = file;
        answer.fields["file"] = file;
    }
    return answer;
}

Answer RecordStop(const Arguments& arguments)
{
    const KindOfRecording& kind = RecordingNamed(arguments.at("kind"));
    const string file = FileOf(kind);
    Answer answer = WithFile(Ask(KindOf(arguments).stop), file);
    ExplainRefusal(answer, kind);
    return answer;
}

Answer RecordStart(const Arguments& arguments)
{
    const KindOfRecording& kind = RecordingNamed(arguments.at("kind"));
    const Answer started = Ask(KindOf(arguments).start, Natural(arguments, "width"), Natural(arguments, "height"),
                               Natural(arguments, "quality"));
    if (started.status != ExitStatus::Done || !arguments.at("wait").get<bool>())
    {
        return started.status == ExitStatus::Done ? WithFile(started, FileOf(kind)) : started;
    }
    return FollowRecording(kind, arguments.at("json").get<bool>(), [&] { return RecordStop(arguments); });
}

Answer PlayStart(const Arguments& arguments)
{
    const auto start = [](const string& file, double rate, int& code, string& message) {
        return Client::StartPlayback(file, rate, code, message);
    };
    return Ask(start, Absolute(arguments.at("file").get<string>()), arguments.at("rate").get<double>());
}

Answer PlayStop(const Arguments& arguments) { return Ask(&Client::StopPlayback, !arguments.at("no-live").get<bool>()); }

Answer PlaySeek(const Arguments& arguments)
{
    const auto seek = [](int position, int& code, string& message) {
        return Client::SeekPlayback(position, code, message);
    };
    return Ask(seek, arguments.at("position").get<int>());
}

} // namespace

Verbs CaptureVerbs()
{
    const auto order = [](Order RecordingKind::*step) {
        return [step](const Arguments& arguments) { return Ask(KindOf(arguments).*step); };
    };
    const auto play = [](Order step) { return [step](const Arguments&) { return Ask(step); }; };
    std::vector<Parameter> start = SizeParameters();
    start.insert(start.begin(), KindParameter());
    start.push_back({.name = "--wait",
                     .about = "Show time and size until Ctrl-C, which stops and saves the recording",
                     .type = Type::Flag});
    return {
        {"snapshot", "Take a picture of the camera into the current job", SizeParameters(), &Snapshot},
        {"screenshot",
         "Take a picture of what the display shows",
         {{.name = "folder",
           .about = "Where to; the unit's own folder for logs when it is not given",
           .type = Type::Folder}},
         &Screenshot},
        {"record", "Record into the current job"},
        {"record start", "Start a recording", start, &RecordStart},
        {"record stop", "Stop and save a recording", {KindParameter()}, &RecordStop},
        {"record pause", "Pause a recording", {KindParameter()}, order(&RecordingKind::pause)},
        {"record resume", "Go on with a recording", {KindParameter()}, order(&RecordingKind::resume)},
        {"play", "Play recordings on the unit's display"},
        {"play start",
         "Start a playback",
         {{.name = "file", .about = "The recording", .type = Type::File, .need = Need::Required},
          {.name = "--rate", .about = "Its speed, 1 is that of the recording", .type = Type::Real, .initial = 1.0}},
         &PlayStart},
        {"play stop",
         "Stop the playback",
         {{.name = "--no-live", .about = "Do not return to the camera's picture", .type = Type::Flag}},
         &PlayStop},
        {"play pause", "Pause the playback", {}, play(&Client::PausePlayback)},
        {"play resume", "Go on with the playback", {}, play(&Client::ResumePlayback)},
        {"play seek",
         "Go to another place of the playback",
         {{.name = "position",
           .about = "In the unit of the video daemon",
           .type = Type::Integer,
           .need = Need::Required}},
         &PlaySeek},
    };
}

} // namespace ControllerCtl
