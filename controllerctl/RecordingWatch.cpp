#include "controllerctl/RecordingWatch.h"

#include "controllerctl/Inquiry.h"
#include "controllerctl/RecordingFile.h"
#include "controllerctl/SiblingSignals.h"
#include "controllerctl/Style.h"
#include "interfaces/ControllerEndpoint.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string_view>
#include <utility>

namespace ControllerCtl
{
namespace
{

using std::string;

volatile std::sig_atomic_t isInterrupted = 0;

/// Has the first interruption end the waiting, and a second one the program.
void ListenToInterruptions()
{
    struct sigaction action
    {};
    action.sa_handler = [](int) { isInterrupted = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

struct VideoLook
{
    Reply<int32_t> state;
    Reply<string> file;
};

/// Asks the video daemon, which has as long as any sibling.
int LookAtVideo(sd_bus* bus, const KindOfRecording& kind, VideoLook& look)
{
    Inquiry inquiry(bus);
    inquiry.Get(Videod::control, kind.state, look.state);
    inquiry.Get(Videod::control, kind.file, look.file);
    return inquiry.Wait(Patience(siblingSeconds));
}

VideoLook LookAtVideo(const KindOfRecording& kind)
{
    LookBus bus;
    VideoLook look;
    if (OpenForLooks(bus) >= 0)
    {
        std::ignore = LookAtVideo(bus.get(), kind, look);
    }
    return look;
}

/// One recording on its way: what is shown of it, and what ends it.
class RecordingWatch
{
  public:
    RecordingWatch(const KindOfRecording& kind, bool json)
        : kind_(kind), json_(json), isLive_(!json && isatty(STDOUT_FILENO) == 1)
    {}

    /// Until the recording has ended, the user interrupts (true) or nothing can be shown any more.
    bool Follow()
    {
        constexpr int second = 1000;
        LookBus bus;
        int result = OpenForLooks(bus);
        SiblingSignals signals(bus.get(),
                               [this](const char* who, sd_bus_message* signal) { return Hear(who, signal); });
        result = result < 0 ? result : signals.Listen();
        while (result >= 0 && isInterrupted == 0)
        {
            VideoLook look;
            signals.Take();
            result = LookAtVideo(bus.get(), kind_, look);
            if (result < 0 || HasEnded(bus.get(), look) || !Show(look))
            {
                break;
            }
            while (result >= 0 && isInterrupted == 0 && (result = signals.Wait(second)) == 0 && isLive_)
            {
                Show(look);
            }
        }
        if (isLive_)
        {
            std::ignore = TellLine("");
        }
        lost_ = std::min(result, 0);
        return isInterrupted != 0;
    }

    /// How it has ended without the user.
    [[nodiscard]] Answer Ended() const
    {
        if (lost_ < 0)
        {
            return BusIsGone(lost_);
        }
        if (code_ != 0)
        {
            Answer answer = Failed(ExitStatus::Refused, message_);
            answer.fields["code"] = code_;
            answer.fields["file"] = file_;
            return answer;
        }
        return {.text = file_,
                .fields = {{"code", 0}, {"message", message_}, {"file", file_}},
                .messages = {message_.empty() ? "the recording has been ended" : message_}};
    }

  private:
    /// Whether the recording is over. The controller, which serves one after another, has told what it has to tell of
    /// that by the time at which it answers.
    static bool HasEnded(sd_bus* bus, const VideoLook& look)
    {
        const bool isOver = look.state.Well() && look.state.value == 0;
        if (isOver)
        {
            Reply<bool> answer;
            Inquiry inquiry(bus);
            inquiry.Get(ControllerDaemon::controllerEndpoint, "KeypadBeepEnabled", answer);
            std::ignore = inquiry.Wait(Patience(controllerSeconds));
        }
        return isOver;
    }

    bool Hear(const char* who, sd_bus_message* signal)
    {
        if (std::string_view(who) == "video")
        {
            return true;
        }
        const bool isError = sd_bus_message_is_signal(signal, nullptr, "CaptureError") > 0;
        const bool isLimit = sd_bus_message_is_signal(signal, nullptr, "CaptureSizeLimitReached") > 0;
        int32_t number = 0;
        const char* text = nullptr;
        if ((isError || isLimit) && sd_bus_message_read(signal, "is", &number, &text) > 0)
        {
            code_ = isError ? number : 0;
            message_ = text;
        }
        return isError || isLimit;
    }

    /// False when it cannot be written.
    bool Show(const VideoLook& look)
    {
        file_ = look.file.Well() && !look.file.value.empty() ? look.file.value : file_;
        const FileLook found = LookAtFile(file_);
        const string state = look.state.Well() && look.state.value > 1 ? "paused" : "recording";
        if (json_)
        {
            return TellLine(OneLine({{"event", "recording"},
                                     {"kind", kind_.name},
                                     {"state", state},
                                     {"file", file_},
                                     {"seconds", OrNull(found.seconds)},
                                     {"bytes", OrNull(found.bytes)}}));
        }
        const string text = state + " " + (found.seconds ? Duration(*found.seconds) : "-") + ", " +
                            (found.bytes ? Bytes(*found.bytes) : "-") + ", " + file_;
        return isLive_ ? TellInPlace(text) : TellLine(text);
    }

    const KindOfRecording& kind_;
    bool json_;
    bool isLive_;
    int lost_ = 0;
    int code_ = 0;
    string message_;
    string file_;
};

} // namespace

const KindOfRecording& RecordingNamed(const string& name)
{
    return *std::find_if(kindsOfRecording.begin(), kindsOfRecording.end(),
                         [&](const KindOfRecording& kind) { return kind.name == name; });
}

string FileOf(const KindOfRecording& kind)
{
    const VideoLook look = LookAtVideo(kind);
    return look.file.Well() ? look.file.value : "";
}

void ExplainRefusal(Answer& answer, const KindOfRecording& kind)
{
    if (answer.status == ExitStatus::Refused && answer.fields.at("code").is_number())
    {
        const VideoLook look = LookAtVideo(kind);
        answer.messages.front() += look.state.Well() && look.state.value == 0 ? " (nothing is being recorded)" : "";
    }
}

Answer FollowRecording(const KindOfRecording& kind, bool json, const std::function<Answer()>& stop)
{
    ListenToInterruptions();
    RecordingWatch watch(kind, json);
    return watch.Follow() ? stop() : watch.Ended();
}

} // namespace ControllerCtl
